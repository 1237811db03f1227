"""`kavaro slim` on application bundles with made-up universal files, through real servers and embedded."""
import json
import os
import shutil
import stat
import subprocess
import unittest

import harness
import universal

INTEL = os.uname().machine in ('x86_64', 'i686')
PPC, I386, X86_64, ARM64 = ((name, name[:1].encode() * size) for name, size in
                            (('ppc', 20000), ('i386', 30000), ('x86_64', 40000), ('arm64', 50000)))
# On another machine what goes has to be named.
WANTED = [] if INTEL else ['--arch', 'ppc']


class Slim(harness.Case):
    def setUp(self):
        super().setUp()
        self.root = self.make('apps')
        self.program = self.write('A.app/Contents/MacOS/A', [PPC, I386, X86_64])
        self.wide = self.write('B "b"\n.app/Contents/MacOS/B', [PPC, X86_64, ARM64], wide=True)
        self.framework = self.write('C.framework/Versions/A/C', [X86_64, ARM64])
        self.other = self.write('other', [PPC, X86_64])
        os.chmod(self.program, 0o751)
        os.utime(self.program, ns=(10 ** 18, 11 * 10 ** 17))

    def write(self, name, slices, wide=False):
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return universal.write(path, slices, wide)

    def entries(self):
        return sorted(os.path.join(folder, name) for folder, _, names in os.walk(self.root) for name in names)

    def slim(self, *arguments, **options):
        return self.kavaro('slim', *WANTED, *arguments, **options)

    def expect_slimmed(self):
        self.assertEqual(universal.read(self.program), [I386, X86_64])
        self.assertEqual(universal.read(self.wide), [X86_64, ARM64])
        self.assertEqual(universal.read(self.framework), [X86_64, ARM64])
        self.assertEqual(universal.read(self.other), [PPC, X86_64])
        status = os.stat(self.program)
        self.assertEqual(stat.S_IMODE(status.st_mode), 0o751)
        self.assertEqual(status.st_mtime_ns, 11 * 10 ** 17)

    def expect_unchanged(self):
        self.assertEqual(universal.read(self.program), [PPC, I386, X86_64])
        self.assertEqual(universal.read(self.wide), [PPC, X86_64, ARM64])

    def listed(self, *arguments):
        found = json.loads(self.slim('--json', *arguments, self.root).stdout)
        self.assertEqual(found['freed'], 40000)
        going = {program['path']: [part['architecture'] for part in program['architectures'] if part['goes']]
                 for program in found['programs']}
        self.assertEqual({path: names for path, names in going.items() if names},
                         {self.program: ['ppc'], self.wide: ['ppc']})
        if INTEL:
            staying = {program['path']: {part['architecture']: part['size'] for part in program['architectures']
                                         if not part['goes']} for program in found['programs']}
            self.assertEqual(staying, {self.program: {}, self.wide: {'arm64': 50000}, self.framework: {'arm64': 50000}})
        for program in found['programs']:
            self.assertEqual(program['inode'], os.lstat(program['path']).st_ino)

    def test_lists(self):
        self.listed()
        text = self.slim('--embedded', self.root).stdout
        self.assertIn(' in 2 programs could go: 39.1 KB\n', text)
        self.assertIn(f'19.5 KB  ppc   {self.program}\n', text)
        self.expect_unchanged()

    def test_applies(self):
        before = self.entries()
        result = self.slim('--apply', '--yes', self.root)
        self.assertTrue(result.stdout.endswith('\n2 programs rewritten, 39.1 KB freed.\n'), result.stdout)
        self.expect_slimmed()
        self.assertEqual(self.entries(), before)
        again = self.slim('--apply', '--yes', '--embedded', self.root).stdout
        self.assertIn('no code that could go', again)

    def test_applies_through_a_server_that_runs(self):
        self.private_bus()
        server = self.start_server()
        self.assertIn('2 programs rewritten', self.slim('--apply', '--yes', self.root).stdout)
        self.expect_slimmed()
        server.wait(harness.PATIENCE)

    def test_a_named_architecture(self):
        self.kavaro('slim', '--arch', 'arm64', '--apply', '--yes', '--embedded', self.root)
        self.assertEqual(universal.read(self.wide), [PPC, X86_64])
        self.assertEqual(universal.read(self.framework), [X86_64])
        self.assertEqual(universal.read(self.program), [PPC, I386, X86_64])

    def test_nothing_without_a_yes(self):
        self.assertIn('--yes', self.slim('--apply', '--embedded', self.root, code=2, stdin=subprocess.DEVNULL).stderr)
        self.assertIn('dry run', self.slim('--apply', '--dry-run', '--embedded', self.root).stderr)
        self.expect_unchanged()

    def test_failures_are_told(self):
        os.link(self.program, os.path.join(self.root, 'second'))
        result = self.slim('--apply', '--yes', '--embedded', self.root, code=1)
        self.assertIn(f'{self.program}: it has 2 names (hard links)', result.stderr)
        self.assertIn('1 program rewritten, 19.5 KB freed.', result.stdout)
        self.assertEqual(universal.read(self.program), [PPC, I386, X86_64])
        with open(self.other, 'ab'):
            os.rename(self.other, os.path.join(self.root, 'A.app/Contents/MacOS/busy'))
            result = self.slim('--apply', '--yes', '--embedded', self.root, code=1)
        self.assertIn('another program has it open for writing', result.stderr)

    @unittest.skipUnless(os.geteuid() == 0, 'root alone mounts')
    def test_what_stands_in_the_way_is_told(self):
        volume = self.make('volume')
        script = '''
            mount -t tmpfs -o size=400k none "$1" && cp -r "$2" "$1/apps" || exit 77
            shift 2
            mount -o remount,ro "$KAVARO_VOLUME"
            "$0" slim "$@" "$KAVARO_VOLUME"
            mount -o remount,rw "$KAVARO_VOLUME"
            dd if=/dev/zero of="$KAVARO_VOLUME/full" bs=4k 2>/dev/null
            "$0" slim "$@" "$KAVARO_VOLUME"
        '''
        options = [*WANTED, '--apply', '--yes', '--embedded']
        result = subprocess.run(['unshare', '-m', 'sh', '-c', script, harness.KAVARO, volume, self.root, *options],
                                env=dict(self.environment, KAVARO_VOLUME=volume), capture_output=True, text=True,
                                stdin=subprocess.DEVNULL, timeout=harness.PATIENCE)
        if result.returncode == 77:
            self.skipTest('mounting is refused here')
        program = f'kavaro: {volume}/apps/A.app/Contents/MacOS/A: '
        self.assertIn(program + 'its volume can only be read.\n', result.stderr)
        self.assertIn(program + 'no space is left for the new file beside it.\n', result.stderr)
        self.assertEqual(result.stdout.count('0 programs rewritten, 0 bytes freed.\n'), 2, result.stdout)

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which('chattr'), 'root alone sets attributes')
    def test_attributes_that_forbid_it_are_told(self):
        for path, reason in ((self.program, 'an attribute of the file forbids every change (lsattr shows it)'),
                             (os.path.dirname(self.program), 'permission denied')):
            if subprocess.run(['chattr', '+i', path], capture_output=True).returncode != 0:
                self.skipTest('there are no such attributes here')
            try:
                result = self.slim('--apply', '--yes', '--embedded', os.path.join(self.root, 'A.app'), code=1)
            finally:
                subprocess.run(['chattr', '-i', path], check=True)
            self.assertIn(f'kavaro: {self.program}: {reason}.\n', result.stderr)

    @unittest.skipUnless(os.geteuid() == 0, 'only root can be another user')
    def test_files_of_others(self):
        os.chown(self.program, 1234, 2345)
        os.chmod(self.program, 0o4751)
        self.slim('--apply', '--yes', '--embedded', self.root)
        status = os.stat(self.program)
        self.assertEqual((status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)), (1234, 2345, 0o4751))

    def test_wrong_usage(self):
        self.assertIn('kavaro slim --help', self.kavaro('slim', code=2).stderr)
        self.assertIn('--apply', self.kavaro('slim', '--yes', self.root, code=2).stderr)
        self.kavaro('slim', '--apply', '--json', self.root, code=2)
        self.kavaro('slim', os.path.join(self.root, 'absent'), code=1)


if __name__ == '__main__':
    harness.main()

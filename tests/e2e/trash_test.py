"""Moving to the Trash and removing, by the client and by the distribution's gdbus; the Trash read by others."""
import contextlib
import os
import pty
import shutil
import signal
import stat
import subprocess
import time
import unittest
import urllib.parse

import harness

ODD_NAMES = [b'plain', b'with blank', b'line\nend', b'quotes"\'`', b'percent%20', b'\xff\xfe not UTF-8',
             '\u00e4\u00f6\u00fc \u6f22'.encode(), b'-dash', b'.hidden', b'back\\slash', b'hash#?&=']


class Trash(harness.Case):
    def setUp(self):
        super().setUp()
        self.environment['TZ'] = 'CET-1CEST,M3.5.0,M10.5.0/3'
        self.trash = os.path.join(self.home, '.local', 'share', 'Trash')

    def write(self, name, content=b''):
        path = os.path.join(os.fsencode(self.folder), os.fsencode(name))
        with open(path, 'wb') as f:
            f.write(content)
        return path

    def run_trash(self, *arguments, code=0, **options):
        return self.kavaro('trash', *arguments, code=code, stdin=subprocess.DEVNULL, text=False, **options)

    def infos(self, trash=None):
        """What the info files say, read here: {name in the Trash: (path, date)}."""
        result = {}
        folder = os.fsencode(os.path.join(trash or self.trash, 'info'))
        for name in os.listdir(folder):
            self.assertTrue(name.endswith(b'.trashinfo'), name)
            with open(os.path.join(folder, name), 'rb') as f:
                lines = f.read().split(b'\n')
            self.assertEqual(lines[0], b'[Trash Info]')
            self.assertEqual(lines[3:], [b''])
            path, date = lines[1], lines[2]
            self.assertRegex(path, rb'\APath=[A-Za-z0-9/._~%-]+\Z')
            self.assertRegex(date, rb'\ADeletionDate=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\Z')
            result[name[:-len(b'.trashinfo')]] = (urllib.parse.unquote_to_bytes(path[len(b'Path='):]),
                                                  date[len(b'DeletionDate='):].decode())
        return result

    def test_every_name_goes_there_and_is_found(self):
        paths = [self.write(name, name) for name in ODD_NAMES]
        before = time.time()
        result = self.run_trash('--yes', '--', *paths)
        self.assertEqual(result.stderr, b'')
        self.assertIn(b'11 entries moved to the Trash.\n', result.stdout)
        infos = self.infos()
        for name, path in zip(ODD_NAMES, paths):
            self.assertFalse(os.path.lexists(path))
            with open(os.path.join(os.fsencode(self.trash), b'files', name), 'rb') as f:
                self.assertEqual(f.read(), name)
            self.assertEqual(infos[name][0], path)
        self.assertEqual(len(infos), len(ODD_NAMES))
        zone = dict(os.environ, TZ=self.environment['TZ'])
        earliest = subprocess.run(['date', '-d', f'@{int(before)}', '+%FT%T'], env=zone, capture_output=True,
                                  text=True, check=True).stdout.strip()
        latest = subprocess.run(['date', '+%FT%T'], env=zone, capture_output=True, text=True, check=True).stdout.strip()
        for _, date in infos.values():
            self.assertTrue(earliest <= date <= latest, f'{earliest} {date} {latest}')
        for folder in ('', 'files', 'info'):
            self.assertEqual(stat.S_IMODE(os.stat(os.path.join(self.trash, folder)).st_mode), 0o700)
        # A second round of the same names replaces nothing.
        self.run_trash('--yes', '--', *[self.write(name, b'second') for name in ODD_NAMES])
        self.assertEqual(len(self.infos()), 2 * len(ODD_NAMES))
        self.assertEqual(len(os.listdir(os.path.join(self.trash, 'files'))), 2 * len(ODD_NAMES))

    @unittest.skipUnless(shutil.which('trash-list'), 'trash-cli is not installed')
    def test_trash_cli_lists_and_restores_it(self):
        names = [name for name in ODD_NAMES if b'\xff' not in name and b'\n' not in name]
        paths = [self.write(name) for name in names]
        folder = self.make_tree('a folder')
        self.run_trash('--yes', '--', *paths, folder)
        listed = subprocess.run(['trash-list'], env=self.environment, capture_output=True, check=True).stdout
        lines = {line.split(b' ', 2)[2]: line for line in listed.splitlines()}
        for path in (*paths, os.fsencode(folder)):
            self.assertIn(path, lines)
            self.assertRegex(lines[path], rb'\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d ')
        restored = subprocess.run(['trash-restore', folder], env=self.environment, input=b'0\n', capture_output=True,
                                  cwd=self.folder)
        self.assertEqual(restored.returncode, 0, restored.stderr)
        self.assertTrue(os.path.exists(os.path.join(folder, 'folder0', 'file0')))

    def test_folders_show_what_they_free(self):
        tree = self.make_tree('tree', folders=2, files=3, size=5000)  # 8 KiB each on disk
        size = sum(os.stat(os.path.join(folder, name)).st_blocks * 512 for folder, _, names in os.walk(tree)
                   for name in names)
        result = self.run_trash(tree, code=2)
        self.assertIn(b'1 entry, %.1f KB that are free once the Trash is emptied\n' % (size / 1024), result.stdout)
        self.assertTrue(os.path.isdir(tree), 'without --yes and a terminal nothing happens')
        self.run_trash('--yes', tree)
        self.assertFalse(os.path.exists(tree))
        self.assertTrue(os.path.exists(os.path.join(self.trash, 'files', 'tree', 'folder1', 'file2')))

    def test_a_terminal_is_asked(self):
        for answer, code in ((b'n\n', 1), (b'y\n', 0)):
            path = self.write('file')
            master, slave = pty.openpty()
            process = self.start([harness.KAVARO, 'trash', path], stdin=slave, stderr=slave, stdout=subprocess.PIPE)
            os.close(slave)
            seen = b''
            while b'[y/N] ' not in seen:
                seen += os.read(master, 1000)
            self.assertTrue(os.path.exists(path))
            os.write(master, answer)
            process.stdout.read()
            self.assertEqual(process.wait(timeout=harness.PATIENCE), code)
            self.assertEqual(os.path.exists(path), code != 0)
            os.close(master)

    def ask(self, *arguments, typed=b'', **options):
        """A client that asks on a terminal of its own. Gives it, the terminal and what was read of it."""
        master, slave = pty.openpty()
        os.write(master, typed)
        process = self.start([harness.KAVARO, *arguments], stdin=slave, stderr=slave, stdout=subprocess.PIPE, **options)
        os.close(slave)
        self.addCleanup(os.close, master)
        seen = b''
        while b'[y/N] ' not in seen:
            seen += os.read(master, 1000)
        return process, master, seen

    def test_what_was_typed_before_the_question_is_no_answer(self):
        path = self.write('file')
        process, master, _ = self.ask('trash', path, typed=b'y\n')
        os.write(master, b'n\n')
        process.stdout.read()
        self.assertEqual(process.wait(timeout=harness.PATIENCE), 1)
        self.assertTrue(os.path.exists(path))

    def test_an_interrupted_question_ends_its_line(self):
        process, master, seen = self.ask('trash', self.write('file'))
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=harness.PATIENCE), 130)
        with contextlib.suppress(OSError):  # that nobody writes there any more
            while not seen.endswith(b'\r\n'):
                seen += os.read(master, 1000)
        self.assertTrue(seen.endswith(b'[y/N] \r\n'), seen)

    def test_embedded_does_the_same(self):
        path = self.write('line\nend')
        tree = self.make_tree('tree')
        os.symlink('tree', os.path.join(self.folder, 'link'))
        result = self.run_trash('--yes', '--embedded', path, tree, os.path.join(self.folder, 'link') + '/')
        self.assertEqual(result.stderr, b'')
        self.assertEqual(set(self.infos()), {b'line\nend', b'tree', b'link'})
        self.assertTrue(os.path.islink(os.path.join(self.trash, 'files', 'link')))

    def test_failures_have_a_path_and_a_reason(self):
        path = self.write('file')
        in_trash = os.path.join(self.make('.Trash'), 'inner')
        open(in_trash, 'w').close()
        result = self.run_trash('--yes', path, os.path.join(self.folder, 'absent'), in_trash, self.home, code=1)
        errors = result.stderr.decode()
        self.assertIn(f'kavaro: {self.folder}/absent: no such file or folder.', errors)
        self.assertIn(f'kavaro: {in_trash}: it is in a Trash already', errors)
        self.assertIn(f'kavaro: {self.home}: Could not move this file to Trash (the Trash itself is in it).\n', errors)
        self.assertIn(b'\n1 entry moved to the Trash.\n', result.stdout)
        self.assertEqual(set(self.infos()), {b'file'})

    @unittest.skipUnless(os.geteuid() == 0, 'root alone becomes others')
    def test_an_ordinary_user_among_files_of_others(self):
        app = harness.copy_programs(self.make('app'))
        os.chmod(self.folder, 0o755)
        theirs = self.make('theirs')
        sticky = self.make('sticky')
        os.chmod(sticky, 0o1777)
        for folder in (theirs, sticky):
            with open(os.path.join(folder, 'file'), 'w') as f:
                f.write('x')
        mine = os.path.join(sticky, 'mine')
        open(mine, 'w').close()
        os.chown(mine, 65534, 65534)
        os.chown(self.home, 65534, 65534)
        result = subprocess.run(['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups', app, 'trash', '--yes',
                                 os.path.join(theirs, 'file'), os.path.join(sticky, 'file'), mine],
                                env=self.environment, capture_output=True, text=True, stdin=subprocess.DEVNULL,
                                cwd='/', timeout=harness.PATIENCE)
        self.assertEqual(result.returncode, 1, result.stderr)
        for folder in (theirs, sticky):
            self.assertIn(f'kavaro: {folder}/file: Could not move this file to Trash. The file is owned by user root '
                          '(permission denied).\n', result.stderr)
            self.assertTrue(os.path.exists(os.path.join(folder, 'file')))
        self.assertEqual(set(self.infos()), {b'mine'})

    @unittest.skipUnless(os.geteuid() == 0, 'root alone mounts')
    def test_another_volume_is_never_copied_from(self):
        volume = self.make('volume')
        script = '''
            mount -t tmpfs none "$1" || exit 77
            mkdir "$1/sub" && echo x > "$1/sub/file" && echo x > "$1/sub/second"
            "$0" trash --yes "$1/sub/file" || exit 1
            cat "$1/.Trash-0/info/file.trashinfo"
            rm -r "$1/.Trash-0" && touch "$1/.Trash-0"
            "$0" trash --yes "$1/sub/second" && exit 1
            test -e "$1/sub/second" && test ! -e "$HOME/.local/share/Trash/files/second"
        '''
        result = subprocess.run(['unshare', '-m', 'sh', '-c', script, harness.KAVARO, volume], env=self.environment,
                                capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=harness.PATIENCE)
        if result.returncode == 77:
            self.skipTest('mounting is refused here')
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertIn('\nPath=sub/file\n', result.stdout)
        self.assertIn('there is no Trash on its volume, and nothing is copied to another one', result.stderr)

    @unittest.skipUnless(os.geteuid() == 0, 'root alone mounts')
    def test_a_trash_where_nobody_looks_is_told(self):
        volume = self.make('volume')
        script = '''
            mount -t tmpfs none "$1" || exit 77
            export HOME="$1/home"
            mkdir -p "$HOME/.local/share" && touch "$HOME/.local/share/Trash" "$1/first" "$1/second" || exit 1
            "$0" trash --yes "$1/first" || exit 1
            test -e "$1/.Trash-0/files/first" || exit 1
            rm "$HOME/.local/share/Trash"
            "$0" trash --yes "$1/second" 2>&1
        '''
        result = subprocess.run(['unshare', '-m', 'sh', '-c', script, harness.KAVARO, volume], env=self.environment,
                                capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=harness.PATIENCE)
        if result.returncode == 77:
            self.skipTest('mounting is refused here')
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(result.stderr, f'kavaro: {volume}/home/.local/share/Trash: cannot be used (Not a directory), '
                                        f'so what lay on its volume is in {volume}/.Trash-0.\n')
        self.assertNotIn('.Trash-0', result.stdout)

    def test_many_folders_are_measured_quickly(self):
        tree = self.make_tree('tree', folders=60, files=2, size=5000)
        folders = [os.path.join(tree, name) for name in sorted(os.listdir(tree))]
        size = sum(os.stat(os.path.join(folder, name)).st_blocks * 512 for folder in folders
                   for name in os.listdir(folder))
        begin = time.monotonic()
        result = self.run_trash('--dry-run', *folders)
        self.assertLess(time.monotonic() - begin, 30, 'a job for each would take over a minute')
        self.assertIn(b'\n60 entries, %.1f KB that are free' % (size / 1024), result.stdout)
        self.assertIn(b'\n60 entries moved', self.run_trash('--yes', *folders).stdout)


class Gdbus(harness.Case):
    """The three commands of the server, driven with gdbus alone."""

    def setUp(self):
        super().setUp()
        self.private_bus()
        self.server = self.start_server()

    @staticmethod
    def paths(*paths):
        return '[' + ', '.join(f"b'{path}'" for path in paths) + ']'

    def test_move_to_trash(self):
        monitor = self.start(['gdbus', 'monitor', '--session', '-d', harness.SERVER_NAME], stdout=subprocess.PIPE,
                             text=True)
        monitor.stdout.readline()
        monitor.stdout.readline()
        path = os.path.join(self.folder, 'file')
        open(path, 'w').close()
        absent = os.path.join(self.folder, 'absent')
        self.assertEqual(self.call_server('moveToTrash', self.paths(path, absent)).stdout.strip(), '()')
        self.assertTrue(os.path.exists(os.path.join(self.home, '.local/share/Trash/files/file')))
        line = ''
        while 'TuvNodeFactoryTrashFileNotification' not in line:
            line = monitor.stdout.readline()
            self.assertTrue(line, 'the monitor ended')
        self.assertIn("('TuvNodeFactory', {'serialized': <[byte 0x01, 0x00, 0x00, 0x00", line)
        self.assertIn("'errors': <[{'reason': <'Could not load node form path'>, "
                      f"'pathName': <b'{absent}'>}}]>", line)
        self.assertIn('2 files, isRemote', self.server_log())
        self.assertIn('It worked, recycle tag is 0', self.server_log())

    def test_remove_locales(self):
        for name in ('app/en.lproj', 'app/fr.lproj', 'other/de.lproj'):
            self.make(name)
        french, german = (os.path.join(self.folder, name) for name in ('app/fr.lproj', 'other/de.lproj'))
        self.assertEqual(self.call_server('removeLocales', self.paths(french, german)).stdout.strip(), '()')
        self.assertFalse(os.path.exists(french))
        self.assertTrue(os.path.exists(german), 'no English beside it')
        log = self.server_log()
        self.assertIn(f'Removed {french} ...', log)
        self.assertIn(f'Could not find {self.folder}/other/English.lproj !!!', log)
        self.assertIn(f'Could not find {self.folder}/other/en.lproj !!!', log)

    def test_remove_nibs(self):
        folder = self.make('Main.nib')
        nib = os.path.join(folder, 'info.nib')
        open(nib, 'w').close()
        self.assertEqual(self.call_server('removeNibs', self.paths(nib, nib, folder)).stdout.strip(), '()')
        self.assertFalse(os.path.exists(nib))
        self.assertTrue(os.path.isdir(folder))
        log = self.server_log()
        self.assertIn(f'Removed {nib} ...', log)
        self.assertIn(f'File does not exist {nib} ...', log)
        self.assertIn(f'Could not remove {folder} ...', log)

    def test_wrong_arguments_are_refused(self):
        for member in ('moveToTrash', 'removeLocales', 'removeNibs'):
            for arguments in ([], ['5'], ["b'/x'"], ["['/x']"], ["[b'/x', b'relative']"], ["[b'']"]):
                with self.subTest(member=member, arguments=arguments):
                    self.assertNotEqual(self.call_server(member, *arguments, check=False).returncode, 0)
        self.assertIsNone(self.server.poll())


if __name__ == '__main__':
    harness.main()

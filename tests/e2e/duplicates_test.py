"""`kavaro duplicates` against md5sum, with the real programs."""
import base64
import json
import os
import re
import signal
import subprocess
import unittest

import harness


class Duplicates(harness.Case):
    def setUp(self):
        super().setUp()
        self.tree = os.path.join(self.folder, 'tree')

    def write(self, name, content):
        path = os.path.join(os.fsencode(self.tree), os.fsencode(name))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'wb') as f:
            f.write(content)
        return path

    def by_md5sum(self):
        """What md5sum says of all files that are not empty: sets of paths with the same digest."""
        paths = [os.path.join(folder, name) for folder, _, names in os.walk(os.fsencode(self.tree)) for name in names]
        paths = [path for path in paths if not os.path.islink(path) and os.path.getsize(path) > 0]
        digests = {}
        for at in range(0, len(paths), 500):
            out = subprocess.run(['md5sum', '-z', '--', *paths[at:at + 500]], stdout=subprocess.PIPE).stdout
            for line in out.split(b'\0')[:-1]:
                digest, path = line.split(b'  ', 1)
                digests.setdefault(digest, set()).add(path)
        return sorted(sorted(group) for group in digests.values() if len(group) > 1)

    def duplicates(self, *arguments, **options):
        return self.kavaro('duplicates', *arguments, text=False, **options)

    def groups(self, *arguments, **options):
        found = json.loads(self.duplicates('--json', *arguments, self.tree, **options).stdout)
        return found, sorted(sorted(self.path_of(file) for file in group['files']) for group in found['groups'])

    @staticmethod
    def path_of(entry):
        if 'pathRaw' in entry:
            return base64.b64decode(entry['pathRaw'])
        return entry['path'].encode()

    def make_files(self):
        for number in range(300):
            # Few sizes, few contents: many files of one size, in pairs, crowds and alone.
            content = bytes([number % 7]) * (1 + 4096 * (number % 3)) + (b'tail' if number % 5 else b'TAIL')
            self.write(f'folder{number % 11}/file{number}', content)
        for name in ('line\nend', 'line\n', '"quotes\'`$(echo)', b'bytes \xff\xfe', ' blanks ', '-q', ') = MD5 (x',
                     'unicode é写'):
            self.write(os.fsencode('odd/') + os.fsencode(name), b'odd')
        for number in range(4):
            self.write(f'large/{number}', os.urandom(1) * 3_000_000 if number % 2 else b'L' * 3_000_000)
        self.write('empty/1', b'')
        self.write('empty/2', b'')

    def test_finds_what_md5sum_finds(self):
        self.make_files()
        expected = self.by_md5sum()
        self.assertGreater(len(expected), 20)
        found, groups = self.groups()
        self.assertEqual(groups, expected)
        self.assertNotIn('undigested', found)
        wastes = [group['waste'] for group in found['groups']]
        self.assertEqual(wastes, sorted(wastes, reverse=True))
        self.assertEqual(sum(wastes), found['waste'])
        # Again: by the records of the first search, as far as they may be used, and without them.
        self.assertEqual(self.groups()[1], expected)
        self.assertEqual(self.groups('--fresh')[1], expected)
        self.assertEqual(self.groups('--embedded', '--fresh')[1], expected)
        fdupes = self.duplicates('--fdupes', self.tree).stdout
        # Names with line ends make groups that cannot be told apart by lines: here the others.
        plain = [b'\n'.join(sorted(group)) for group in expected if not any(b'\n' in path for path in group)]
        for group in plain:
            self.assertIn(group + b'\n\n', b'\n\n' + fdupes)

    def test_hard_links_and_links(self):
        first = self.write('a', b'x' * 10000)
        os.link(first, os.path.join(os.path.dirname(first), b'b'))
        self.write('c', b'x' * 10000)
        os.symlink('a', os.path.join(self.tree, 'd'))
        found, groups = self.groups()
        self.assertEqual([os.path.basename(path) for path in groups[0]], [b'a', b'b', b'c'])
        self.assertEqual(found['groups'][0]['files'][1]['hardLinkOf'], 0)
        self.assertEqual(found['waste'], os.stat(first).st_blocks * 512)
        out = self.duplicates(self.tree).stdout.decode()
        self.assertIn(f'{self.tree}/b  (hard link of {self.tree}/a)\n', out)

    def test_files_just_written_are_read_each_time(self):
        self.write('a', b'same')
        self.write('b', b'same')
        cache = os.path.join(self.home, '.cache', 'kavaro', 'digests')
        self.assertEqual(len(self.groups()[1]), 1)
        self.assertFalse(os.path.exists(cache), 'they may change once more and look the same')
        log = self.kavaro('duplicates', '--verbose', self.tree).stderr
        self.assertIn('processed', log)
        # A change that leaves size and date as they were.
        times = os.stat(os.path.join(self.tree, 'b'))
        self.write('b', b'diff')
        os.utime(os.path.join(self.tree, 'b'), ns=(times.st_atime_ns, times.st_mtime_ns))
        self.assertEqual(self.groups()[1], [])
        self.write('b', b'same')
        os.makedirs(os.path.dirname(cache), exist_ok=True)
        for damaged in (b'', b'nonsense', b'Kavaro digests 1\n' + bytes(64)):
            with open(cache, 'wb') as f:
                f.write(damaged)
            self.assertEqual(len(self.groups()[1]), 1)

    def test_one_folder_by_two_ways(self):
        self.write('d1/only', b'content')
        os.symlink('d1', os.path.join(self.tree, 'd2'))
        ways = [os.path.join(self.tree, name) for name in ('d1', 'd2')]
        self.assertEqual(self.duplicates('--fdupes', *ways).stdout, b'')
        self.assertEqual(json.loads(self.duplicates('--json', *ways).stdout)['groups'], [])

    def test_uses_a_server_that_runs(self):
        self.make_files()
        self.private_bus()
        server = self.start_server()
        self.assertEqual(self.groups('--bus', self.environment['DBUS_SESSION_BUS_ADDRESS'])[1], self.by_md5sum())
        self.assertEqual(server.wait(timeout=harness.PATIENCE), 0, 'it measured, and ended with its job')
        self.assertFalse(self.has_owner(harness.SERVER_NAME), 'the one for the digests ended with the client')

    def test_the_server_for_digests_gets_ready_while_another_one_measures(self):
        self.make_files()
        lines = self.kavaro('duplicates', '--verbose', '--json', self.tree).stderr.splitlines()
        servers = re.findall(r' (\d+)\.\d+ info  TuvNodeFactory _startWorkingThread: ', '\n'.join(lines))
        self.assertEqual(len(set(servers)), 2)
        digesting = next(line.split()[2].split('.')[0] for line in lines if 'fileDuplicates:header:' in line)
        ready = next(i for i, line in enumerate(lines)
                     if '_startWorkingThread' in line and line.split()[2].startswith(digesting + '.'))
        completed = next(i for i, line in enumerate(lines) if '_completedNode:' in line)
        self.assertLess(ready, completed)

    def big_files(self):
        memory = '/dev/shm' if os.access('/dev/shm', os.W_OK) else self.folder
        self.tree = os.path.join(memory, f'kavaro-e2e {os.getpid()} big')
        os.makedirs(self.tree)
        self.addCleanup(subprocess.run, ['rm', '-rf', self.tree])
        for number in range(40):
            with open(os.path.join(self.tree, str(number)), 'wb') as f:
                f.truncate(100_000_000)  # without a block on disk

    def started(self):
        """A client whose server digests."""
        errors = os.path.join(self.folder, 'errors')
        with open(errors, 'wb') as f:
            client = self.start([harness.KAVARO, 'duplicates', '--verbose', self.tree], stdout=subprocess.PIPE, stderr=f)
        harness.wait_until(lambda: b' processed ' in open(errors, 'rb').read() or client.poll() is not None,
                           'a first part is digested')
        self.assertIsNone(client.poll())
        return client, lambda: '\n'.join(line for line in open(errors, errors='replace').read().splitlines()
                                         if line.startswith('kavaro: '))

    def test_interrupted(self):
        self.big_files()
        client, said = self.started()
        client.send_signal(signal.SIGINT)
        out, _ = client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 130)
        self.assertEqual(out, b'')
        self.assertIn('kavaro: interrupted.', said())

    def test_a_server_that_dies(self):
        self.big_files()
        client, said = self.started()
        servers = [child for child in harness.children(client.pid) if harness.name_of(child) == 'kavarod']
        self.assertTrue(servers)
        os.kill(servers[-1], signal.SIGKILL)  # the one before has measured
        out, _ = client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 1)
        self.assertIn('the server went away in the middle (it ended with signal 9)', said())
        self.assertIn(b'(partial)', out)

    @unittest.skipUnless(os.geteuid() == 0, 'files of others')
    def test_unreadable_files_as_another_user(self):
        os.chmod(self.folder, 0o755)
        for name in ('a', 'b', 'c'):
            self.write(name, b'same')
        os.chmod(os.path.join(self.tree, 'a'), 0)
        kavaro = harness.copy_programs(self.make('programs'))
        subprocess.run(['chmod', '-R', 'a+rX', self.folder], check=True)
        os.chmod(os.path.join(self.tree, 'a'), 0)
        nobody = {**self.environment, 'HOME': '/nonexistent'}
        result = subprocess.run(['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups', kavaro, 'duplicates',
                                 '--errors', self.tree], env=nobody, capture_output=True, text=True,
                                timeout=harness.PATIENCE)
        self.assertIn('1 group of 2 files', result.stdout)
        self.assertIn(f'  {self.tree}/a: Permission denied\n', result.stderr)
        self.assertIn('1 file could not be read', result.stderr)
        self.assertEqual(result.returncode, 0, result.stderr)


if __name__ == '__main__':
    harness.main()

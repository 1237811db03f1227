"""Folders that are odd, missing or closed, through the real programs. Servers and buses that go: lifecycle_test.py."""
import base64
import json
import os
import shutil
import signal
import socket
import subprocess

import harness

NOBODY = 65534


class BadInput(harness.Case):
    def size_each(self, commands, **options):
        """Code, tree and errors of each list of folders, all at once, over the bus and embedded: both say the same."""
        started = [[self.start([harness.KAVARO, 'size', '--json', *mode, '--', *arguments], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, **options) for mode in ([], ['--embedded'])]
                   for arguments in commands]
        for arguments, both in zip(commands, started):
            results = []
            for process in both:
                out, err = process.communicate(timeout=harness.PATIENCE)
                trees = json.loads(out) if out.strip() else None
                for tree in trees if isinstance(trees, list) else [trees] if trees else []:
                    tree.pop('seconds')
                results.append((process.returncode, trees, err.decode()))
            self.assertEqual(results[0], results[1], arguments)
            yield results[0]

    def size(self, *arguments, **options):
        return next(self.size_each([arguments], **options))

    def assert_refused(self, argument, reason, shown=None):
        code, tree, err = self.size(argument)
        self.assertEqual((code, tree), (1, None), err)
        self.assertEqual(len(err.splitlines()), 1, err)
        self.assertTrue(err.startswith('kavaro: '), err)
        self.assertIn(reason, err)
        if shown is not None:
            self.assertIn(f'{shown}: ', err)

    def fill(self, folder):
        os.makedirs(os.path.join(folder, b'sub') if isinstance(folder, bytes) else os.path.join(folder, 'sub'))
        with open(os.path.join(folder, b'file') if isinstance(folder, bytes) else os.path.join(folder, 'file'), 'w') as f:
            f.write('x' * 7)
        return folder

    def long_folder(self):
        """A path of 5,000 bytes, with a file of 7 bytes at its end, made part by part."""
        start = self.make('start')
        names = []
        place = os.open(start, os.O_RDONLY)
        left = 5000 - len(start)
        while left > 0:
            # The last name takes what is left, at least one byte behind its slash.
            name = 'n' * min(200, left - 1 if left <= 202 else 200)
            os.mkdir(name, dir_fd=place)
            inner = os.open(name, os.O_RDONLY, dir_fd=place)
            os.close(place)
            place = inner
            names.append(name)
            left -= 1 + len(name)
        with open(os.open('file', os.O_WRONLY | os.O_CREAT, dir_fd=place), 'w') as f:
            f.write('x' * 7)
        os.mkdir('sub', dir_fd=place)
        os.close(place)
        path = '/'.join([start, *names])
        self.assertEqual(len(path), 5000)
        return path

    def test_does_not_exist(self):
        path = os.path.join(self.folder, 'nothing')
        self.assert_refused(path, 'no such folder', path)
        os.symlink('nowhere', path)
        self.assert_refused(path, 'is a link to something that does not exist', path)

    def test_is_a_file(self):
        path = os.path.join(self.fill(os.path.join(self.folder, 'tree')), 'file')
        self.assert_refused(path, 'is not a folder', path)
        self.assert_refused(path + '/', 'is not a folder', path)
        self.assert_refused(path + '/deeper', 'a part of the path is a file', path + '/deeper')
        self.assert_refused('/dev/null', 'is not a folder', '/dev/null')

    def test_is_empty(self):
        self.assert_refused('', 'the path is empty')

    def test_is_relative(self):
        self.fill(os.path.join(self.folder, 'tree'))
        names = ('tree', './tree', 'tree/', 'tree/sub/..', '../' + os.path.basename(self.folder) + '/tree')
        for code, tree, err in self.size_each([[name] for name in names], cwd=self.folder):
            self.assertEqual((code, err), (0, ''))
            self.assertEqual((tree['path'], tree['logicalSize']), (os.path.join(self.folder, 'tree'), 7))
        self.assert_refused('nothing', 'no such folder', os.path.join(os.getcwd(), 'nothing'))

    def test_relative_to_a_folder_that_is_gone(self):
        gone = self.make('gone')
        process = self.start(['/bin/sh', '-c', 'rmdir "$1"; exec "$2" size .', 'sh', gone, harness.KAVARO], cwd=gone,
                             stderr=subprocess.PIPE, text=True)
        _, err = process.communicate(timeout=harness.PATIENCE)
        self.assertEqual(process.returncode, 1)
        self.assertIn('the current folder is gone', err)

    def test_holds_a_newline(self):
        path = os.path.join(self.folder, 'two\nlines\x1b[31m')
        self.assert_refused(path, 'no such folder', os.path.join(self.folder, r'two\nlines\x1b[31m'))
        code, tree, err = self.size(self.fill(path))
        self.assertEqual((code, err), (0, ''))
        self.assertEqual((tree['path'], tree['files'], tree['folders']), (path, 1, 1))
        table = self.kavaro('size', path).stdout
        self.assertNotIn('\x1b', table)
        self.assertNotIn('two\nlines', table)

    def test_is_not_utf8(self):
        path = os.fsencode(self.folder) + b'/caf\xe9 \xff\xfe'
        self.assert_refused(path, 'no such folder', self.folder + r'/caf\xe9 \xff\xfe')
        self.fill(path)
        os.mkdir(path + b'/sub\xf0')
        code, tree, err = self.size(path)
        self.assertEqual((code, err), (0, ''))
        self.assertEqual((tree['files'], tree['folders'], tree['logicalSize']), (1, 2, 7))
        self.assertEqual(base64.b64decode(tree['pathRaw']), path)
        names = {base64.b64decode(child['nameRaw']) for child in tree['children'] if 'nameRaw' in child}
        self.assertEqual(names, {b'sub\xf0'})

    def test_is_5000_bytes_long(self):
        path = self.long_folder()
        code, tree, err = self.size(path)
        self.assertEqual((code, err), (0, ''))
        self.assertEqual((tree['path'], tree['files'], tree['folders'], tree['logicalSize']), (path, 1, 1, 7))
        self.assert_refused(path + '/nothing', 'no such folder', path + '/nothing')
        self.assert_refused('/' + 'nothing/' * 700, 'no such folder')
        self.assert_refused('/' + 'n' * 4999, 'longer than a name can be')
        # And below a folder that is named by a short path.
        code, tree, err = self.size(os.path.join(self.folder, 'start'))
        self.assertEqual((code, tree['logicalSize'], err), (0, 7, ''))

    def as_nobody(self, *arguments, code):
        """Runs a copy of the client as a user who may not read everything."""
        os.chmod(self.folder, 0o755)
        options = {}
        if os.geteuid() == 0:
            os.chown(self.home, NOBODY, NOBODY)
            options = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}
        kavaro = harness.copy_programs(self.folder) if not hasattr(self, 'copy') else self.copy
        self.copy = kavaro
        result = subprocess.run([kavaro, 'size', *arguments], env=self.environment, capture_output=True, text=True,
                                timeout=harness.PATIENCE, cwd='/', **options)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result

    def test_without_permission(self):
        tree = self.make_tree('tree', folders=3, files=2, size=10)
        closed = os.path.join(tree, 'folder1')
        os.chmod(tree, 0o755)
        os.chmod(closed, 0)
        self.addCleanup(os.chmod, closed, 0o755)
        for mode in ([], ['--embedded']):
            with self.subTest(mode=mode):
                result = json.loads(self.as_nobody('--json', *mode, tree, code=0).stdout)
                self.assertEqual((result['files'], result['folders'], result['logicalSize']), (4, 3, 40))
                self.assertEqual(result['unread'], [{'path': closed, 'reason': 'permission'}])
                table = self.as_nobody(*mode, tree, code=0).stdout
                self.assertIn('1 folder could not be read', table)
                self.assertIn('\u2265 40 bytes', table)
                self.assertIn('lower bound', table)
                self.assertNotIn(closed, table)
                table = self.as_nobody('--errors', *mode, tree, code=0).stdout
                self.assertIn(closed, table)
                self.assertIn('permission', table)
                refused = self.as_nobody(*mode, closed, code=1)
                self.assertEqual(refused.stdout, '')
                self.assertIn(f'kavaro: {closed}: permission denied', refused.stderr)

    def test_one_of_several_is_bad(self):
        trees = [self.make_tree(f'tree{n}', folders=n + 1) for n in range(2)]
        code, results, err = self.size(trees[0], os.path.join(self.folder, 'nothing'), trees[1])
        self.assertEqual(code, 1)
        self.assertEqual([result['folders'] for result in results], [1, 2])
        self.assertIn('nothing: no such folder', err)

    def test_one_of_several_vanishes_meanwhile(self):
        gone = self.make_tree('gone')
        job = self.long_job(gone, self.make_tree('other', folders=2), files=400)
        shutil.rmtree(gone)
        out, err = job.end()
        self.assertEqual(job.client.returncode, 1)
        self.assertEqual([result['folders'] for result in json.loads(out)], [job.files, 2])
        self.assertIn(f'{gone}: no such folder', err)

    def test_folders_that_vanish_under_way(self):
        job = self.long_job(files=600)
        for number in range(job.files):
            shutil.rmtree(os.path.join(job.tree, f'folder{number:04}'))
        out, err = job.end()
        self.assertEqual(job.client.returncode, 0, err)
        result = json.loads(out)
        self.assertEqual(result['folders'], job.files)
        self.assertTrue(0 < result['files'] < job.files)
        self.assertEqual(len(result['unread']), job.files - result['files'])
        self.assertEqual({entry['reason'] for entry in result['unread']}, {'vanished'})

    def test_a_second_server_disturbs_nothing(self):
        self.private_bus()
        job = self.long_job()
        second = subprocess.run([harness.KAVAROD], env=self.environment, capture_output=True, text=True,
                                timeout=harness.PATIENCE)
        self.assertEqual(second.returncode, 0)
        self.assertIn('There can be one server instance per machine.', second.stderr)
        self.assertIn('main() Could not create server instance.', second.stderr)
        job.client.send_signal(signal.SIGINT)
        out, _ = job.end()
        self.assertEqual(job.client.returncode, 130)
        self.assertTrue(json.loads(out)['files'])

    def test_wrong_usage(self):
        for arguments in (['size'], ['size', '--depth', 'x', '/'], ['size', '--sort', 'color', '/'], ['size', '--no', '/'],
                          ['size', '--export', 'zip', '/'], ['nothing'], ['defaults'], ['defaults', 'write', 'x']):
            with self.subTest(arguments=arguments):
                result = self.kavaro(*arguments, code=2)
                self.assertEqual(result.stdout, '')
                self.assertTrue(result.stderr.startswith('kavaro: '), result.stderr)

    def assert_measured(self, environments):
        """Each of them sees the same tree, all at once."""
        tree = self.make_tree('tree')
        place = self.make('place')  # a home that is no whole path is made here
        started = [(environment, self.start([harness.KAVARO, 'size', '--json', tree], environment=environment,
                                            cwd=place, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True))
                   for environment in environments]
        for environment, process in started:
            out, err = process.communicate(timeout=harness.PATIENCE)
            self.assertEqual((process.returncode, err), (0, ''), environment)
            self.assertEqual(json.loads(out)['files'], 15)

    def test_homes_that_are_of_no_use(self):
        closed = self.make('closed')
        os.chmod(closed, 0o500)
        without = {name: value for name, value in self.environment.items() if name != 'HOME'}
        homes = ('', '/proc/nonexistent', closed, '/dev/null', 'relative')
        self.assert_measured([without] + [dict(without, HOME=home) for home in homes])

    def test_session_buses_that_are_of_no_use(self):
        with socket.socket(socket.AF_UNIX) as silent:
            silent.bind(os.path.join(self.folder, 'silent'))
            silent.listen()
            self.assert_measured([dict(self.environment, DBUS_SESSION_BUS_ADDRESS=address) for address in (
                '', 'nonsense', 'unix:path=/nonexistent', 'unix:path=' + self.folder, 'tcp:host=localhost',
                'unix:path=' + os.path.join(self.folder, 'silent'), 'autolaunch:', '\\xff')])

    def test_a_session_bus_of_another_user(self):
        if os.geteuid() == 0:
            os.chmod(self.folder, 0o777)
            bus = self.start(['dbus-daemon', '--session', '--nofork', '--nopidfile', '--print-address',
                              '--address=unix:dir=' + self.folder], stdout=subprocess.PIPE, text=True, user=NOBODY)
            self.assert_measured([dict(self.environment, DBUS_SESSION_BUS_ADDRESS=bus.stdout.readline().strip())])


if __name__ == '__main__':
    harness.main()

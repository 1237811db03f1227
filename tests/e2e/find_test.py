"""What `kavaro find` finds is what find(1) finds, on a tree of files of many sizes, dates and names."""
import json
import os
import random
import subprocess
import tempfile
import time

import harness

NOBODY = 65534
BLOCK = 4096  # sizes are multiples of it, so that size and room on disk are the same


class Find(harness.Case):
    def setUp(self):
        super().setUp()
        # In memory where there is such a place: blocks are what was written, at once.
        memory = '/dev/shm' if os.access('/dev/shm', os.W_OK) else self.folder
        tree = tempfile.TemporaryDirectory(prefix='kavaro-e2e find ', dir=memory)
        self.addCleanup(tree.cleanup)
        os.chmod(tree.name, 0o755)
        self.root = os.fsencode(tree.name) + b'/tree'
        os.mkdir(self.root)
        self.random = random.Random(4)
        self.midnight = time.mktime(time.localtime()[:3] + (0, 0, 0, 0, 0, -1))
        folders = [self.root]
        names = [b'notes', b'Report.TXT', b'photo.jpg', b'LOG', b'access.log', b'caf\xc3\xa9', b'CAF\xc3\x89', b'b\xe9t\xe9',
                 b'a b', b'line\nend', b'[x]', b'-name', b'"q"', b"it's"]
        for number in range(40):
            folder = os.path.join(self.random.choice(folders), b'%d %s' % (number, self.random.choice(names)))
            os.mkdir(folder)
            folders.append(folder)
        for number in range(400):
            path = os.path.join(self.random.choice(folders), b'%s %d' % (self.random.choice(names), number))
            if number % 20 == 0:
                os.symlink(b'nowhere', path)
                continue
            with open(path, 'wb') as f:
                f.write(os.urandom(BLOCK) * self.random.choice([0, 1, 2, 16, 256, 257]))
            days = self.random.choice([0, 0, 1, 3, 6, 8, 40, 100, 400, 800, 4000])
            # Whole seconds around noon: no test depends on the second at which it runs.
            when = self.midnight - days * 86400 + (43200 if days else min(60, time.time() - self.midnight))
            os.utime(path, (when, when))
        if memory == self.folder:
            os.sync()

    def found(self, *options, environment=None):
        """Paths below the tree, by kavaro."""
        result = self.kavaro('find', '-0', *options, os.fsdecode(self.root), text=False, environment=environment)
        self.assertEqual(result.stderr, b'')
        return sorted(result.stdout.split(b'\0')[:-1])

    def find(self, *tests):
        output = subprocess.run(['find', self.root, *tests, '-print0'], capture_output=True, check=True).stdout
        return sorted(output.split(b'\0')[:-1])

    def equal(self, options, tests, least=1):
        expected = self.find(*tests)
        self.assertGreaterEqual(len(expected), least, tests)
        self.assertEqual(self.found(*options), expected, options)

    def test_everything_and_kinds(self):
        self.equal([], [], 440)
        self.equal(['--kind', 'folder'], ['-type', 'd'], 41)
        self.equal(['--kind', 'file'], ['-type', 'f'], 300)
        self.equal(['--kind', 'link'], ['-type', 'l'], 20)
        self.equal(['--kind', 'file', '--embedded'], ['-type', 'f'], 300)

    def test_sizes(self):
        file = ['--kind', 'file', '--size']
        self.equal([*file, '64 KB..'], ['-type', 'f', '-size', '+65535c'])
        self.equal([*file, '..1 MB'], ['-type', 'f', '-size', '-1048577c'])
        self.equal([*file, '8 KB..64 KB'], ['-type', 'f', '-size', '+8191c', '-size', '-65537c'])
        self.equal([*file, '> 1 MB'], ['-type', 'f', '-size', '+1048575c'])
        self.equal([*file, '(10 KB ... 100 KB)'], ['-type', 'f', '-size', '+10239c', '-size', '-102401c'])
        self.equal([*file, '..0'], ['-type', 'f', '-empty'])
        # Folders have the sum of what is in them.
        tree = json.loads(self.kavaro('size', '--json', '--depth', '0', os.fsdecode(self.root)).stdout)
        self.assertIn(self.root, self.found('--size', f'{tree["physicalSize"]}..', '--kind', 'folder'))
        self.assertEqual(self.found('--size', f'{tree["physicalSize"] + 1}..'), [])

    def test_names(self):
        # -iname knows no letter beyond ASCII in this locale: both spellings are asked for.
        self.equal(['--name', 'LOG'], ['-iname', '*log*'])
        self.equal(['--name', '.txt'], ['-iname', '*.txt*'])
        self.equal(['--name', 'CAFÉ'], ['(', '-name', '*café*', '-o', '-name', '*CAFÉ*', ')'])
        self.equal(['--name', '[x]'], ['-name', r'*\[x\]*'])
        self.equal(['--name', '-name'], ['-name', '*-name*'])
        exact = os.path.basename(self.find(b'-name', b'*log*')[0])
        self.equal(['--name', os.fsdecode(exact), '--exact'], [b'-name', exact])
        self.equal(['--name', 'E\n'[1:] + 'END'], ['-iname', '*\nend*'])
        bad = [path for path in self.find() if b'b\xe9t\xe9' in os.path.basename(path)]
        self.assertTrue(bad)
        self.assertEqual(self.found('--name', os.fsdecode(b'B\xe9T\xe9')), bad)

    def test_dates(self):
        def between(begin, end):
            day = '%Y-%m-%d %H:%M:%S'
            stamp = lambda moment: time.strftime(day, time.localtime(moment))
            return ['-type', 'f', '-newermt', stamp(begin), '!', '-newermt', stamp(end)]

        file = ['--kind', 'file', '--modified']
        day = 86400
        self.equal([*file, 'Yesterday'], between(self.midnight - day, self.midnight))
        self.equal([*file, 'Last Week'], between(self.midnight - 7 * day, self.midnight))
        self.equal([*file, 'last month'], between(self.midnight - 31 * day, self.midnight))
        self.equal([*file, 'Before 1 Year'], ['-type', 'f', '-mtime', '+366'])
        self.equal([*file, 'Today'], ['-type', 'f', '-newermt', time.strftime('%Y-%m-%d', time.localtime(self.midnight))])
        self.equal([*file, 'AnyTime'], ['-type', 'f'])

    def test_all_at_once(self):
        self.equal(['--kind', 'file', '--size', '4 KB..1 MB', '--name', 'o', '--modified', 'Before 1 Year'],
                   ['-type', 'f', '-size', '+4095c', '-size', '-1048577c', '-iname', '*o*', '-mtime', '+366'])

    def test_paths_begin_as_the_folder_was_given(self):
        for folder in ('.', './', '../tree', os.fsdecode(self.root) + '/'):
            mine = self.kavaro('find', folder, text=False, cwd=self.root).stdout
            theirs = subprocess.run(['find', folder], capture_output=True, check=True, cwd=self.root).stdout
            self.assertEqual(sorted(mine.split(b'\n')), sorted(theirs.split(b'\n')), folder)

    def test_json(self):
        result = json.loads(self.kavaro('find', '--json', '--kind', 'file', os.fsdecode(self.root)).stdout)
        self.assertEqual(len(result['found']), len(self.find('-type', 'f')))
        for entry in result['found']:
            if 'pathRaw' not in entry:
                info = os.lstat(entry['path'])
                self.assertEqual((entry['kind'], entry['logicalSize'], entry['physicalSize']),
                                 ('file', info.st_size, info.st_blocks * 512))
                modified = time.strftime('%Y-%m-%dT%H:%M:%SZ', time.gmtime(info.st_mtime))
                self.assertEqual(entry['modified'], modified)

    def test_the_users_language(self):
        environment = dict(self.environment, LANG='de_DE.UTF-8')
        environment.pop('LC_ALL')
        listing = self.kavaro('find', '--list-ranges', environment=environment).stdout
        week = next(line.split('  (')[0].strip() for line in listing.splitlines() if line.endswith('(Last Week)'))
        self.assertNotEqual(week, 'Last Week')
        english = self.found('--modified', 'Last Week')
        self.assertEqual(self.found('--modified', week, environment=environment), english)
        self.assertEqual(self.found('--modified', 'Last Week', environment=environment), english)

    def test_odd_environments(self):
        expected = self.found('--kind', 'file', '--name', 'É')
        for change in ({'LC_ALL': ''}, {'LC_ALL': 'xx_YY'}, {'TZ': 'Nowhere/Land'}, {'TZ': ''}, {'LANG': '\xff', 'LC_ALL': ''}):
            environment = dict(self.environment, **change)
            self.assertEqual(self.found('--kind', 'file', '--name', 'É', environment=environment), expected, change)

    def test_wrong_values(self):
        error = self.kavaro('find', '--modified', 'Some Day', os.fsdecode(self.root), code=2).stderr
        for title in ('"AnyTime"', '"Last 3 Months"', '"Before 10 Years"'):
            self.assertIn(title, error)
        self.assertIn('"> 10 GB"', self.kavaro('find', '--size', 'Big', os.fsdecode(self.root), code=2).stderr)
        self.kavaro('find', '--kind', 'socket', os.fsdecode(self.root), code=2)
        self.kavaro('find', code=2)

    def test_a_reader_that_has_seen_enough(self):
        client = self.start([harness.KAVARO, 'find', self.root], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        client.stdout.close()
        self.assertEqual(client.stderr.read(), b'')
        self.assertEqual(client.wait(harness.PATIENCE), 0)

    def test_a_folder_that_cannot_be_read(self):
        locked = os.path.join(os.fsdecode(self.root), 'locked')
        os.mkdir(locked)
        os.chmod(locked, 0)
        self.addCleanup(os.chmod, locked, 0o700)
        os.chmod(self.folder, 0o755)
        options = {}
        if os.geteuid() == 0:  # who reads everything
            os.chown(self.home, NOBODY, NOBODY)
            options = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}
        result = subprocess.run([harness.copy_programs(self.folder), 'find', '--name', 'log', '--errors', self.root],
                                env=self.environment, capture_output=True, timeout=harness.PATIENCE, cwd='/', **options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(sorted(result.stdout.split(b'\n')[:-1]),
                         sorted(b'\n'.join(self.find('-iname', '*log*')).split(b'\n')))
        self.assertIn(b': 1 folder could not be read; ', result.stderr)
        self.assertIn(os.fsencode(locked) + b': permission', result.stderr)


if __name__ == '__main__':
    harness.main()

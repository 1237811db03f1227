"""What kavaro says of this machine's /usr is what find and du say of it."""
import collections
import os
import subprocess

import harness


def find_says(root):
    """Files, folders, sums of sizes and of allocated bytes per entry of the root, and in all; from find alone."""
    output = subprocess.run(['find', root, '-printf', r'%y %s %b %P\0'], capture_output=True, check=True).stdout
    total = collections.Counter()
    tops = collections.defaultdict(collections.Counter)
    for record in output.split(b'\0')[:-1]:
        kind, size, blocks, path = record.split(b' ', 3)
        if not path:
            continue
        where = [total]
        if b'/' in path or kind != b'd':
            where.append(tops[path.split(b'/', 1)[0]])
        for counter in where:
            if kind == b'd':
                counter['folders'] += 1
            else:
                counter['files'] += 1
                counter['logicalSize'] += int(size)
                counter['physicalSize'] += int(blocks) * 512
    return total, tops


def du_says(root):
    """du -s counts what folders themselves take, once per name; that is taken off again."""
    whole = int(subprocess.run(['du', '-slx', '--block-size=1', root], capture_output=True, check=True).stdout.split()[0])
    folders = subprocess.run(['find', root, '-xdev', '-type', 'd', '-printf', '%b\n'], capture_output=True, check=True)
    return whole - 512 * sum(int(blocks) for blocks in folders.stdout.split())


class Usr(harness.Case):
    def test_equals_find_and_du(self):
        before = find_says('/usr')
        du = du_says('/usr')
        result = self.measured('/usr')
        self.assertEqual(before, find_says('/usr'), '/usr changed meanwhile: run the test again')
        total, tops = before

        for key in ('files', 'folders', 'logicalSize', 'physicalSize'):
            self.assertEqual(result[key], total[key], key)
        self.assertEqual(result['physicalSize'], du)
        self.assertEqual(result['path'], '/usr')
        self.assertNotIn('unread', result)
        self.assertNotIn('partial', result)

        children = {os.fsencode(child['name']): child for child in result['children']}
        self.assertEqual(set(children), set(os.listdir(b'/usr')))
        for name, child in children.items():
            if child['kind'] == 'folder':
                for key in ('files', 'folders', 'logicalSize', 'physicalSize'):
                    self.assertEqual(child[key], tops[name][key], (name, key))

    def test_is_the_same_embedded(self):
        remote, embedded = self.measured('--depth', '3', '/usr'), self.measured('--embedded', '--depth', '3', '/usr')
        remote.pop('seconds')
        embedded.pop('seconds')
        self.assertEqual(remote, embedded)


if __name__ == '__main__':
    harness.main()

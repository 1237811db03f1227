"""The server is driven with the distribution's gdbus alone."""
import hashlib
import os
import re
import struct
import subprocess

import harness
import universal


class Gdbus(harness.Case):
    def setUp(self):
        super().setUp()
        self.private_bus()
        self.server = self.start_server()

    def monitor(self):
        return self.start(['gdbus', 'monitor', '--session', '-d', harness.SERVER_NAME], stdout=subprocess.PIPE,
                          text=True)

    @staticmethod
    def path(text):
        return f"b'{text}'"

    def inode(self, path):
        return os.stat(path).st_ino

    def test_a_job_from_start_to_end(self):
        tree = self.make_tree('tree', folders=2, files=3, size=10)
        monitor = self.monitor()
        self.assertIn('The name', monitor.stdout.readline() + monitor.stdout.readline())
        self.assertIn("'version'", self.call_server('versionInfo').stdout)
        self.assertEqual(self.call_server('startWorkingAtPath', self.path(tree)).stdout.strip(), '()')
        self.assertEqual(self.server.wait(timeout=harness.PATIENCE), 0)

        seen = []
        while not (seen and 'Completed' in seen[-1]):
            line = monitor.stdout.readline()
            self.assertTrue(line, 'the monitor ended')
            if harness.NOTIFICATION_INTERFACE in line:
                seen.append(line)
        names = [re.search(r'TuvNodeFactory(\w+)Notification', line).group(1) for line in seen]
        self.assertEqual(names[0], 'Started')
        self.assertEqual(names[-1], 'Completed')
        self.assertEqual(set(names[1:-1]), {'Resolved'})
        for line in seen:
            self.assertIn("'TuvNodeFactory', {'serialized'", line)
            self.assertNotIn('parentInodes', line)
        log = self.server_log()
        self.assertIn('Server has been terminated properly', log)
        self.assertIn('The server will shutdown in 0 seconds', log)

    def test_parent_inodes_come_back(self):
        tree = self.make_tree('tree')
        monitor = self.monitor()
        monitor.stdout.readline()
        self.call_server('startWorkingAtPathParentInodes', self.path(tree), '[uint32 7, 8]')
        line = ''
        while 'Completed' not in line:
            line = monitor.stdout.readline()
            self.assertTrue(line, 'the monitor ended')
            if harness.NOTIFICATION_INTERFACE in line:
                self.assertIn("'parentInodes': <[uint32 7, 8]>", line)

    def test_one_folder_at_once(self):
        tree = self.make_tree('tree', folders=1, files=1, size=1)
        answer = self.call_server('hasFileSytemChanged', self.path(tree)).stdout
        self.assertIn('0x', answer)
        # 36 bytes of header, the name, a count and no file, a count and one folder: its header and name.
        name = len(tree)
        self.assertEqual(len(re.findall(r'0x[0-9a-f]{2}', answer)), 36 + name + 4 + 4 + 36 + len('folder0'))
        fresh = self.call_server('prioritizeNodeWithInodePath', str(self.inode(tree)), self.path(tree)).stdout
        self.assertEqual(fresh, answer)
        self.assertIsNone(self.server.poll(), 'one-shot requests do not end the server')

    def test_bad_paths_give_no_data(self):
        for path in (os.path.join(self.folder, 'none'), __file__):
            self.assertIn('@ay []', self.call_server('hasFileSytemChanged', self.path(path)).stdout)
            self.assertIn('@ay []', self.call_server('prioritizeNodeWithInodePath', '5', self.path(path)).stdout)
            self.assertEqual(self.call_server('startWorkingAtPath', self.path(path)).stdout.strip(), '()')
        self.assertIn('Please pass in a folder path as argument !!!', self.server_log())
        self.assertIsNone(self.server.poll())

    def test_wrong_arguments_are_refused(self):
        for member, arguments in (('startWorkingAtPath', ['5']), ('startWorkingAtPath', ['[byte 0x2f, 0x00, 0x2f]']),
                                  ('startWorkingAtPath', [self.path('relative')]), ('startWorkingAtPath', ['@ay []']),
                                  ('startWorkingAtPathParentInodes', [self.path('/tmp'), "['a']"]),
                                  ('prioritizeNodeWithInodePath', ["'x'", self.path('/tmp')]),
                                  ('hasFileSytemChanged', []), ('stopSizing', ['1']), ('noSuchMember', [])):
            with self.subTest(member=member, arguments=arguments):
                result = self.call_server(member, *arguments, check=False)
                self.assertNotEqual(result.returncode, 0)
        self.assertIsNone(self.server.poll())
        self.assertIn("'version'", self.call_server('versionInfo').stdout)

    def test_slimming(self):
        machine_runs_it = 'i386' if os.uname().machine in ('x86_64', 'i686') else 'none'
        name = os.path.join(self.folder, 'a "name"')
        universal.write(name, [('ppc', b'p' * 1000), ('i386', b'i' * 2000), ('arm64', b'a' * 3000)])
        entries = (f'[{{"inode": <uint32 5>, "filePath": <{self.path(name)}>}},'
                   f' {{"inode": <uint32 6>, "filePath": <{self.path("/none")}>}}]')
        answer = self.call_server('lipoNodesInfo', entries).stdout
        self.assertIn("{uint32 5: {", answer)
        self.assertIn("'ppc': {'architecture': 'ppc', 'size': '1000'}", answer)
        self.assertIn("'arm64': {'architecture': 'arm64', 'size': '3000'}", answer)
        self.assertEqual('i386' in answer, machine_runs_it == 'none')
        self.assertNotIn('6:', answer)
        removal = f'[{{"filePath": <{self.path(name)}>, "archTypes": <["ppc"]>}}]'
        self.assertEqual(self.call_server('lipoNodes', removal).stdout.strip(), '()')
        self.assertEqual([slice[0] for slice in universal.read(name)], ['i386', 'arm64'])
        log = self.server_log()
        self.assertIn(f'Removed [ppc] from "{name}"', log)
        self.assertIn('No changes in permissions', log)
        for member, wrong in (('lipoNodesInfo', '[{"inode": <uint32 5>}]'), ('lipoNodes', removal.replace('Types', '')),
                              ('lipoNodesInfo', removal)):
            self.assertIn('InvalidArgs', self.call_server(member, wrong, check=False).stderr)
        self.assertEqual(self.call_server('lipoNodesInfo', '@aa{sv} []').stdout.strip(), '(@a{ua{sa{ss}}} {},)')

    @staticmethod
    def hash_record(inode, path, digest=b'', modified=0.0):
        path = path.encode()
        return struct.pack('<I34s2xdI', inode, digest, modified, len(path)) + path

    def test_digests_of_files(self):
        tree = self.make_tree('tree', folders=1, files=2, size=100)
        first, second = (os.path.join(tree, 'folder0', f'file{item}') for item in range(2))
        missing = os.path.join(tree, 'missing')
        records = b''.join(self.hash_record(inode, path, modified=inode / 2)
                           for inode, path in enumerate((second, missing, first), 1))
        data = '<[byte ' + ', '.join(f'0x{byte:02x}' for byte in records) + ']>'
        header = "{'instanceCount': '3', 'dataSize': '%d'}" % len(records)
        answer = self.call_server('fileDuplicatesHeader', data, header).stdout
        self.assertIn("'headerData': <{'dataSize': '%d', 'instanceCount': '3'}>" % len(records), answer)
        got = bytes(int(byte, 16) for byte in re.findall(r'0x([0-9a-f]{2})', answer))
        digest = hashlib.md5(b'x' * 100).hexdigest().encode()
        self.assertEqual(got, self.hash_record(1, second, digest, 0.5) + self.hash_record(2, missing, b'', 1.0) +
                         self.hash_record(3, first, digest, 1.5))
        self.assertIn(f'no hash for [{missing}]', self.server_log())
        for wrong in ("{'instanceCount': '4', 'dataSize': '%d'}" % len(records), '@a{ss} {}'):
            answer = self.call_server('fileDuplicatesHeader', data, wrong).stdout
            self.assertIn("'data': <@ay []>", answer)
        self.assertIsNone(self.server.poll(), 'it stays until it is told to go')

    def test_stop_and_shutdown(self):
        monitor = self.monitor()
        monitor.stdout.readline()
        self.assertEqual(self.call_server('stopSizing').stdout.strip(), '()')
        line = ''
        while 'Stopped' not in line:
            line = monitor.stdout.readline()
            self.assertTrue(line, 'the monitor ended')
        self.assertIsNone(self.server.poll())
        self.assertEqual(self.call_server('shutdownServer', 'the test').stdout.strip(), '()')
        self.assertEqual(self.server.wait(timeout=harness.PATIENCE), 0)
        self.assertEqual(self.server_log().count('[the test]'), 2)

    def test_second_server_ends_with_status_0(self):
        second = subprocess.run([harness.KAVAROD], env=self.environment, capture_output=True, text=True,
                                timeout=harness.PATIENCE)
        self.assertEqual(second.returncode, 0)
        self.assertIn('We just found an existing server instance in this machine.', second.stderr)
        self.assertIn('main() Could not create server instance.', second.stderr)
        self.assertIsNone(self.server.poll())

    def test_introspection_has_every_member(self):
        xml = self.gdbus('introspect', '--session', '-d', harness.SERVER_NAME, '-o', harness.SERVER_PATH, '--xml').stdout
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'resources', 'dbus',
                              'org.kavaro.Kavaro.NodeFactoryServer.xml')
        with open(source) as f:
            for declaration in re.findall(r'<(?:method|arg) [^>]*?/?>', f.read()):
                words = set(re.findall(r'\w+="[^"]*"', declaration))
                self.assertTrue(any(words == set(re.findall(r'\w+="[^"]*"', live))
                                    for live in re.findall(r'<(?:method|arg) [^>]*?/?>', xml)), declaration)


if __name__ == '__main__':
    harness.main()

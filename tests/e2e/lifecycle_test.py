"""Clients, servers and buses that end in every way."""
import json
import os
import signal
import subprocess

import harness


class Lifecycle(harness.Case):
    def big_tree(self):
        """What happens to a job happens in the engine's second of set-up or soon after: the tree need not be large."""
        root = self.make('big')
        for number in range(50):
            folder = os.path.join(root, f'folder{number:03}')
            os.mkdir(folder)
            for item in range(20):
                open(os.path.join(folder, f'file{item}'), 'w').close()
        return root

    def size(self, *arguments, **options):
        return self.start([harness.KAVARO, 'size', *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, **options)

    def server_of(self, client):
        harness.wait_until(lambda: harness.child_named(client.pid, 'kavarod') or client.poll() is not None,
                           'the client starts a server')
        return harness.child_named(client.pid, 'kavarod')

    def test_without_a_bus(self):
        tree = self.make_tree('tree', folders=2, files=3, size=10)
        result = self.measured(tree)
        self.assertEqual((result['files'], result['folders'], result['logicalSize']), (6, 2, 60))

    def test_on_a_session_bus(self):
        self.private_bus()
        tree = self.make_tree('tree', folders=2, files=3, size=10)
        self.assertEqual(self.measured(tree)['logicalSize'], 60)
        harness.wait_until(lambda: not self.has_owner(harness.SERVER_NAME), 'the server gives its name back')

    def test_a_server_that_runs_already_is_used(self):
        self.private_bus()
        server = self.start_server()
        tree = self.make_tree('tree', folders=2, files=3, size=10)
        self.assertEqual(self.measured(tree)['logicalSize'], 60)
        self.assertEqual(server.wait(timeout=harness.PATIENCE), 0)
        self.assertIn('completed: rootPath=', self.server_log())

    def test_several_folders_one_after_another(self):
        trees = [self.make_tree(f'tree{n}', folders=n + 1, files=2, size=10) for n in range(3)]
        for bus in (False, True):
            if bus:
                self.private_bus()
            results = json.loads(self.kavaro('size', '--json', *trees).stdout)
            self.assertEqual([r['folders'] for r in results], [1, 2, 3])
            self.assertEqual([r['path'] for r in results], trees)

    def test_two_clients_at_once(self):
        self.private_bus()
        one, two = self.make_tree('one', folders=2, files=2), self.make_tree('two', folders=5, files=3)
        first, second = self.size('--json', one), self.size('--json', two)
        outputs = [client.communicate(timeout=harness.PATIENCE) for client in (first, second)]
        self.assertEqual([first.returncode, second.returncode], [0, 0], outputs)
        self.assertEqual([json.loads(out)['folders'] for out, _ in outputs], [2, 5])

    def test_interrupt_shows_what_there_is(self):
        client = self.size('--json', self.big_tree())
        self.server_of(client)
        client.send_signal(signal.SIGINT)
        out, _ = client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 130)
        if out.strip():
            self.assertTrue(json.loads(out)['partial'])

    def test_nothing_outlives_a_killed_client(self):
        for bus in (False, True):
            if bus:
                self.private_bus()
            tree = self.big_tree() if not bus else os.path.join(self.folder, 'big')
            client = self.size(tree)
            self.server_of(client)
            started = harness.children(client.pid)
            self.assertTrue(started)
            client.kill()
            client.wait()
            harness.wait_until(lambda: not any(harness.is_alive(pid) for pid in started), 'its children end')

    def test_server_killed_in_the_middle(self):
        client = self.size('--json', self.big_tree())
        server = self.server_of(client)
        # After the engine's pause the job runs; whenever the server goes, the client says so.
        os.kill(server, signal.SIGKILL)
        out, err = client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 1)
        self.assertIn('server', err)
        self.assertIn('big', err)

    def test_bus_that_goes_away(self):
        bus = self.private_bus()
        server = self.start_server()
        client = self.size(self.big_tree())
        harness.wait_until(lambda: 'startWorkingAtPath' in self.server_log() or client.poll() is not None, 'a start')
        bus.terminate()
        bus.wait()
        _, err = client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 1)
        self.assertIn('bus', err)
        self.assertEqual(server.wait(timeout=harness.PATIENCE), 0)
        self.assertIn('Server has been terminated properly', self.server_log())

    def test_signals_end_a_server_properly(self):
        self.private_bus()
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            server = self.start_server()
            self.assertTrue(self.has_owner(harness.SERVER_NAME))
            server.send_signal(number)
            self.assertEqual(server.wait(timeout=harness.PATIENCE), 0)
            self.assertFalse(self.has_owner(harness.SERVER_NAME))
        self.assertEqual(self.server_log().count('Server has been terminated properly'), 3)

    def test_server_without_a_bus_ends_with_status_0(self):
        self.environment['DBUS_SESSION_BUS_ADDRESS'] = 'unix:path=' + os.path.join(self.folder, 'no-bus')
        server = subprocess.run([harness.KAVAROD], env=self.environment, capture_output=True, text=True,
                                timeout=harness.PATIENCE)
        self.assertEqual(server.returncode, 0)
        self.assertIn('main() Could not create server instance.', server.stderr)

    def test_stop_and_version_commands(self):
        self.private_bus()
        self.assertIn('0.1.0', self.kavaro('version').stdout)
        server = self.start_server()
        self.assertIn('kavarod 0.1.0', self.kavaro('version').stdout)
        self.kavaro('stop')
        self.assertEqual(server.wait(timeout=harness.PATIENCE), 0)

    def test_nothing_is_left_behind(self):
        tree = self.make_tree('tree')
        self.measured(tree)
        left = [os.path.join(folder, name) for folder, _, names in os.walk(self.home) for name in names]
        self.assertEqual(left, [])


if __name__ == '__main__':
    harness.main()

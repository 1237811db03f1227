"""Clients, servers and buses that end in every way."""
import json
import os
import re
import signal
import subprocess

import harness


class Lifecycle(harness.Case):
    def size(self, *arguments, program=harness.KAVARO, **options):
        return self.start([program, 'size', *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          **options)

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

    def test_a_server_without_the_options_asked_for_is_left_alone(self):
        self.private_bus()
        server = self.start_server()
        trees = [self.make_tree(f'tree{n}', folders=n + 1, files=1, size=10) for n in range(2)]
        results = self.measured('--same-file-system', *trees)
        self.assertEqual([result['logicalSize'] for result in results], [10, 20])
        bus = self.environment['DBUS_SESSION_BUS_ADDRESS']
        refused = self.kavaro('size', '--same-file-system', '--bus', bus, trees[0], code=1)
        self.assertIn('started without the options asked for here', refused.stderr)
        self.assertIsNone(server.poll())
        self.assertNotIn('startWorkingAtPath', self.server_log())

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
        job = self.long_job()
        job.client.send_signal(signal.SIGINT)
        out, err = job.end()
        self.assertEqual(job.client.returncode, 130, err)
        result = json.loads(out)
        self.assertTrue(result['partial'])
        self.assertTrue(0 < result['files'] < job.files, result['files'])
        self.assertIn('stopSizing', job.log())

    def test_interrupt_before_there_is_a_job(self):
        for wait in (lambda client: harness.children(client.pid), self.server_of):
            client = self.size(self.folder)
            harness.wait_until(lambda: wait(client) or client.poll() is not None, 'the client begins')
            client.send_signal(signal.SIGINT)
            client.communicate(timeout=harness.PATIENCE)
            self.assertEqual(client.returncode, 130)

    def test_second_interrupt_leaves_at_once(self):
        server = self.private_bus() and self.start_server()
        server.send_signal(signal.SIGSTOP)  # so that nothing the client waits for comes
        client = self.size(self.folder)
        harness.wait_until(lambda: self.has_owner(harness.CLIENT_NAME), 'the client is on the bus')
        client.send_signal(signal.SIGINT)
        client.send_signal(signal.SIGTERM)
        client.communicate(timeout=harness.PATIENCE)
        self.assertEqual(client.returncode, 130)

    def test_nothing_outlives_a_killed_client(self):
        for bus in (False, True):
            if bus:
                self.private_bus()
            client = self.size(self.folder)
            self.server_of(client)
            started = harness.children(client.pid)
            self.assertTrue(started)
            client.kill()
            client.wait()
            harness.wait_until(lambda: not any(harness.is_alive(pid) for pid in started), 'its children end')

    def test_server_killed_in_the_middle(self):
        job = self.long_job()
        os.kill(self.server_of(job.client), signal.SIGKILL)
        out, err = job.end()
        self.assertEqual(job.client.returncode, 1)
        self.assertIn(f'{job.tree}: the server went away in the middle of the job (it ended with signal 9).', err)
        result = json.loads(out)
        self.assertTrue(result['partial'])
        self.assertTrue(0 < result['files'] < job.files, result['files'])

    def test_server_stopped_in_the_middle(self):
        self.private_bus()
        job = self.long_job()
        self.kavaro('stop')
        out, err = job.end()
        self.assertEqual(job.client.returncode, 1)
        self.assertIn(f'{job.tree}: the server went away in the middle of the job (somebody stopped it).', err)
        self.assertTrue(json.loads(out)['files'])

    def test_bus_that_goes_away(self):
        bus = self.private_bus()
        job = self.long_job()
        server = self.server_of(job.client)
        bus.terminate()
        bus.wait()
        out, err = job.end()
        self.assertEqual(job.client.returncode, 1)
        self.assertIn(f'{job.tree}: the message bus went away.', err)
        self.assertTrue(json.loads(out)['files'])
        harness.wait_until(lambda: not harness.is_alive(server), 'the server ends')
        self.assertIn('Server has been terminated properly', job.log())

    def test_bus_that_goes_away_from_a_server_alone(self):
        bus = self.private_bus()
        server = self.start_server()
        bus.kill()
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

    def test_run_modes_are_said_at_the_start(self):
        self.private_bus()
        for arguments, mode in (([], 'daemon'), (['-standardLog', 'NO'], 'daemon'),
                                (['-standardLog', 'YES', '-runAsDataCollector', 'YES'],
                                 'normal process (not a daemon)')):
            before = len(self.server_log()) if os.path.exists(os.path.join(self.folder, 'kavarod.log')) else 0
            server = self.start_server(*arguments)
            server.terminate()
            self.assertEqual(server.wait(timeout=harness.PATIENCE), 0)
            lines = self.server_log()[before:].splitlines()
            self.assertTrue(lines[0].endswith(f' main() Starting as {mode} ...'), lines[0])
            self.assertTrue(lines[1].endswith(' main() *********************************************'), lines[1])

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

    def test_the_client_is_on_the_bus_as_declared(self):
        self.private_bus()
        job = self.long_job()
        place = ['--session', '-d', harness.CLIENT_NAME, '-o', '/org/kavaro/Kavaro/client']
        live = self.gdbus('introspect', *place, '--xml').stdout
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'resources', 'dbus',
                              'org.kavaro.Kavaro.Client.xml')
        with open(source) as f:
            declarations = re.findall(r'<(?:interface|method|arg) ([^>]*?)/?>', f.read())
        self.assertEqual(len(declarations), 3)
        for declaration in declarations:
            for attribute in declaration.split():
                self.assertIn(attribute, live)
        answer = self.gdbus('call', *place, '-m', 'org.kavaro.Kavaro.Client.versionInfo').stdout
        for key in ('version', 'versionNumber', 'buildNumber', 'build'):
            self.assertIn(f"'{key}': <'", answer)
        job.client.send_signal(signal.SIGINT)
        job.end()

    def test_nothing_is_left_behind(self):
        tree = self.make_tree('tree')
        self.measured(tree)
        left = [os.path.join(folder, name) for folder, _, names in os.walk(self.home) for name in names]
        self.assertEqual(left, [])


if __name__ == '__main__':
    harness.main()

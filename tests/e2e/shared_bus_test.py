"""A bus that users share, as the system bus is, without polkit: root alone is served."""
import json
import os
import subprocess
from xml.sax.saxutils import escape

import harness

NOBODY = 65534
# What distributions allow on their system bus, and then what is installed.
CONFIGURATION = '''<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <policy context="default">
    <allow user="*"/><deny own="*"/><deny send_type="method_call"/><allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/><allow receive_type="method_return"/>
    <allow receive_type="error"/><allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Introspectable"/>
  </policy>
  <include>{policy}</include>
</busconfig>'''


class SharedBus(harness.Case):
    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o755)
        socket = os.path.join(self.folder, 'bus')
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..')
        policy = os.path.join(source, 'packaging', 'dbus', 'org.kavaro.Kavaro.conf')
        configuration = os.path.join(self.folder, 'bus.conf')
        with open(configuration, 'w') as f:
            f.write(CONFIGURATION.format(socket=socket, policy=escape(policy)))
        self.start(['dbus-daemon', '--config-file=' + configuration, '--nofork', '--nopidfile', '--print-address'],
                   stdout=subprocess.PIPE, text=True).stdout.readline()
        os.chmod(socket, 0o666)
        self.environment['DBUS_SYSTEM_BUS_ADDRESS'] = 'unix:path=' + socket
        # What the harness asks goes to the same bus.
        self.environment['DBUS_SESSION_BUS_ADDRESS'] = self.environment['DBUS_SYSTEM_BUS_ADDRESS']

    def version_as(self, user):
        options = {} if user == os.geteuid() else {'user': user, 'group': user, 'extra_groups': []}
        return subprocess.run(
            ['gdbus', 'call', '--system', '-d', harness.SERVER_NAME, '-o', harness.SERVER_PATH, '-m',
             harness.SERVER_INTERFACE + '.versionInfo'],
            env=self.environment, capture_output=True, text=True, timeout=harness.PATIENCE, **options)

    def test_root_alone_may_be_the_server(self):
        if os.geteuid() == 0:
            return self.check_callers()
        server = subprocess.run([harness.KAVAROD, '-bus', 'system'], env=self.environment, capture_output=True,
                                text=True, timeout=harness.PATIENCE)
        self.assertEqual(server.returncode, 0)
        self.assertIn('Could not register with [org.kavaro.Kavaro.server].', server.stderr)

    def check_callers(self):
        """And root alone may call it."""
        server = self.start_server('-bus', 'system')
        self.assertIn("'version'", self.version_as(0).stdout)
        refused = self.version_as(NOBODY)
        self.assertIn('org.freedesktop.DBus.Error.AccessDenied', refused.stderr)
        self.assertIn('only the administrator may call', refused.stderr)
        self.assertIn('versionInfo refused to :', self.server_log())
        self.assertIsNone(server.poll())

    def test_a_job_on_it(self):
        tree = self.make_tree('tree', folders=2, files=3, size=10)
        code = 0 if os.geteuid() == 0 else 1
        result = self.kavaro('size', '--json', '--bus', 'system', tree, code=code)
        if code == 0:
            self.assertEqual(json.loads(result.stdout)['logicalSize'], 60)
        else:
            self.assertIn('bus "system": ', result.stderr)
        harness.wait_until(lambda: not self.has_owner(harness.SERVER_NAME), 'the server ends by itself')


if __name__ == '__main__':
    harness.main()

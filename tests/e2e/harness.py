"""What the end-to-end tests share: the programs, a home of their own, private buses. Nothing of ours but the programs.

A process is ended by the id it was started with, never by its name.
"""
import contextlib
import ctypes
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

APP = os.environ.get('KAVARO_APP_DIR', '')
KAVARO = os.path.join(APP, 'Contents', 'Linux', 'kavaro')
KAVAROD = os.path.join(APP, 'Contents', 'Linux', 'kavarod')
SERVER_NAME = 'org.kavaro.Kavaro.server'
SERVER_PATH = '/org/kavaro/Kavaro/server'
SERVER_INTERFACE = 'org.kavaro.Kavaro.NodeFactoryServer'
NOTIFICATION_INTERFACE = 'org.kavaro.Kavaro.NodeFactory'
PATIENCE = 120  # seconds until something that must happen counts as not happening


def die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f'{what} did not happen')
        time.sleep(0.01)


def is_alive(pid):
    """True while the process runs; a zombie counts as ended."""
    try:
        with open(f'/proc/{pid}/stat') as f:
            return f.read().rsplit(')', 1)[1].split()[0] != 'Z'
    except OSError:
        return False


def children(pid):
    try:
        with open(f'/proc/{pid}/task/{pid}/children') as f:
            return [int(child) for child in f.read().split()]
    except OSError:
        return []


def name_of(pid):
    try:
        with open(f'/proc/{pid}/comm') as f:
            return f.read().strip()
    except OSError:
        return ''


def child_named(pid, name):
    return next((child for child in children(pid) if name_of(child) == name), None)


class Case(unittest.TestCase):
    """A test with a temporary folder, a home in it and no bus."""

    def setUp(self):
        self.assertTrue(os.path.exists(KAVARO), 'KAVARO_APP_DIR names the built Kavaro.app')
        folder = tempfile.TemporaryDirectory(prefix='kavaro-e2e-')
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.home = self.make('home')
        self.environment = {k: v for k, v in os.environ.items()
                            if not k.startswith(('DBUS_', 'XDG_', 'KAVARO_', 'NO_COLOR', 'COLOR'))}
        self.environment.update(HOME=self.home, LC_ALL='C.UTF-8')

    def make(self, name):
        path = os.path.join(self.folder, name)
        os.makedirs(path)
        return path

    def make_tree(self, name, folders=3, files=5, size=100):
        root = self.make(name)
        for number in range(folders):
            os.mkdir(os.path.join(root, f'folder{number}'))
            for item in range(files):
                with open(os.path.join(root, f'folder{number}', f'file{item}'), 'wb') as f:
                    f.write(b'x' * size)
        return root

    def start(self, command, environment=None, **options):
        process = subprocess.Popen(command, env=environment or self.environment, preexec_fn=die_with_parent, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        if process.poll() is None:
            process.kill()
        process.wait()
        for stream in (process.stdin, process.stdout, process.stderr):
            if stream:
                with contextlib.suppress(OSError):
                    stream.close()

    def private_bus(self):
        """Starts a message bus; the environment of all later programs leads to it."""
        bus = self.start(['dbus-daemon', '--session', '--nofork', '--nopidfile', '--print-address'],
                         stdout=subprocess.PIPE, text=True)
        self.environment['DBUS_SESSION_BUS_ADDRESS'] = bus.stdout.readline().strip()
        return bus

    def start_server(self, *arguments):
        log = open(os.path.join(self.folder, 'kavarod.log'), 'ab')
        self.addCleanup(log.close)
        server = self.start([KAVAROD, *arguments], stderr=log)
        wait_until(lambda: self.has_owner(SERVER_NAME) or server.poll() is not None, 'the server takes its name')
        return server

    def server_log(self):
        with open(os.path.join(self.folder, 'kavarod.log'), errors='replace') as f:
            return f.read()

    def gdbus(self, *arguments, check=True):
        result = subprocess.run(['gdbus', *arguments], env=self.environment, capture_output=True, text=True,
                                timeout=PATIENCE)
        if check:
            self.assertEqual(result.returncode, 0, result.stderr)
        return result

    def has_owner(self, name):
        result = self.gdbus('call', '--session', '-d', 'org.freedesktop.DBus', '-o', '/org/freedesktop/DBus',
                            '-m', 'org.freedesktop.DBus.NameHasOwner', name, check=False)
        return result.stdout.strip() == '(true,)'

    def call_server(self, member, *arguments, check=True):
        return self.gdbus('call', '--session', '-d', SERVER_NAME, '-o', SERVER_PATH, '-m',
                          f'{SERVER_INTERFACE}.{member}', *arguments, check=check)

    def kavaro(self, *arguments, code=0, environment=None, text=True, **options):
        result = subprocess.run([KAVARO, *arguments], env=environment or self.environment, capture_output=True,
                                text=text, timeout=PATIENCE * 3, **options)
        self.assertEqual(result.returncode, code, f'{arguments}: {result.stdout}\n{result.stderr}')
        return result

    def measured(self, *arguments, **options):
        return json.loads(self.kavaro('size', '--json', *arguments, **options).stdout)


def main():
    unittest.main(argv=[sys.argv[0], '-v', *sys.argv[1:]])

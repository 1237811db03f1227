"""What the end-to-end tests share: the programs, a home of their own, private buses. Nothing of ours but the programs.

A process is ended by the id it was started with, never by its name.
"""
import contextlib
import ctypes
import json
import os
import shutil
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
CLIENT_NAME = 'org.kavaro.Kavaro.client'
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


def copy_programs(folder, resolve_slowly=False):
    """The installed tree copied to a folder that anyone may read. Gives the path of its client.

    With the engine's log at debug level each folder takes it 10 ms and batches come every 0.5 s, so that a small tree
    makes a long job.
    """
    app = os.path.join(folder, 'Kavaro.app')
    shutil.copytree(APP, app)
    if resolve_slowly:
        with open(os.path.join(app, 'Resources', 'TuvLog.plist'), 'w') as f:
            f.write('<plist version="1.0"><dict><key>components</key><dict>'
                    '<key>TuvNodeFactory</key><string>debug</string></dict></dict></plist>')
    return os.path.join(app, 'Contents', 'Linux', 'kavaro')


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
        bus = self.start(['dbus-daemon', '--session', '--nofork', '--nopidfile', '--print-address',
                          '--address=unix:dir=' + self.folder], stdout=subprocess.PIPE, text=True)
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

    def long_job(self, *arguments, files=1500, **options):
        """Starts `kavaro size --json` on a tree of `files` folders with a file each, and then on `arguments`. Its
        server needs 10 ms for a folder. Returns when a part has come in."""
        slow_kavaro = os.path.join(self.folder, 'slow', 'Kavaro.app', 'Contents', 'Linux', 'kavaro')
        if not os.path.exists(slow_kavaro):
            copy_programs(self.make('slow'), resolve_slowly=True)
        memory = '/dev/shm' if os.access('/dev/shm', os.W_OK) else self.folder  # some disks need long for it
        tree = tempfile.TemporaryDirectory(prefix='kavaro-e2e slow tree ', dir=memory)
        self.addCleanup(tree.cleanup)
        for number in range(files):
            os.mkdir(os.path.join(tree.name, f'folder{number:04}'))
            open(os.path.join(tree.name, f'folder{number:04}', 'file'), 'w').close()
        return LongJob(self, tree.name, files, [slow_kavaro, 'size', '--json', '--verbose', tree.name, *arguments],
                       **options)

    def kavaro(self, *arguments, code=0, environment=None, text=True, **options):
        result = subprocess.run([KAVARO, *arguments], env=environment or self.environment, capture_output=True,
                                text=text, timeout=PATIENCE * 3, **options)
        self.assertEqual(result.returncode, code, f'{arguments}: {result.stdout}\n{result.stderr}')
        return result

    def measured(self, *arguments, **options):
        return json.loads(self.kavaro('size', '--json', *arguments, **options).stdout)


class LongJob:
    """A client in the middle of its job. The log of its server is on its standard error."""

    def __init__(self, case, tree, files, command, **options):
        self.tree = tree
        self.files = files
        self._errors = os.path.join(case.folder, f'errors {time.monotonic_ns()}')
        with open(self._errors, 'wb') as errors:
            self.client = case.start(command, stdout=subprocess.PIPE, stderr=errors, text=True, **options)
        # What the log says of the first batch is said before it leaves; the second one follows it.
        wait_until(lambda: self.log().count('_resolvedFileNotificationAppkit') > 1 or self.client.poll() is not None,
                   'a part of the tree comes in')

    def log(self):
        with open(self._errors, errors='replace') as f:
            return f.read()

    def end(self):
        """Waits for the client. Gives what it wrote, and what it said of errors."""
        out, _ = self.client.communicate(timeout=PATIENCE)
        said = [line for line in self.log().splitlines() if line.startswith('kavaro: ')]
        return out, '\n'.join(said)


def main():
    unittest.main(argv=[sys.argv[0], '-v', *sys.argv[1:]])

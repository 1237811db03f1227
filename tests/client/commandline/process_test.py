#!/usr/bin/env python3
"""The program itself, from outside: what it does with signals, closed and full outputs, terminals and odd paths.

Everything runs with --embedded, so that no bus is needed. Every job takes a second at least (the engine's own pause),
which is when the signals are sent: after the live line has been seen, or when the output stands still.
"""
import fcntl
import json
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest

KAVARO = os.path.join(os.environ["KAVARO_APP_DIR"], "Contents/Linux/kavaro")
LIMIT = 60  # seconds for anything that should come at once


class Terminal:
    """A pseudo-terminal: `.slave` for the program, read() for us."""

    def __init__(self, columns):
        self.master, self.slave = pty.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

    def read_until(self, part):
        seen = b""
        end = time.monotonic() + LIMIT
        while part not in seen:
            ready, _, _ = select.select([self.master], [], [], end - time.monotonic())
            if not ready:
                raise AssertionError("%r was not shown: %r" % (part, seen))
            seen += os.read(self.master, 65536)
        return seen

    def close(self):
        os.close(self.master)
        os.close(self.slave)


class ProcessTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kavaro-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.tree = os.path.join(self.folder, "tree")
        os.makedirs(os.path.join(self.tree, "a/b"))
        for i in range(2000):
            with open(os.path.join(self.tree, "a/b", "file with a rather long name %d" % i), "wb"):
                pass
        with open(os.path.join(self.tree, "a/full"), "wb") as file:
            file.write(b"x" * 5000)
        self.environment = dict(os.environ, HOME=self.folder, TERM="xterm", LC_ALL="C.UTF-8")
        for name in ("NO_COLOR", "COLORTERM", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "DBUS_SESSION_BUS_ADDRESS"):
            self.environment.pop(name, None)

    def start(self, *arguments, **options):
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        process = subprocess.Popen([KAVARO, *arguments], env=self.environment, stdin=subprocess.DEVNULL, **options)
        self.addCleanup(self.end, process)
        return process

    def end(self, process):
        if process.poll() is None:
            process.kill()
        process.wait()
        for stream in (process.stdout, process.stderr):
            if stream:
                stream.close()

    def run_kavaro(self, *arguments, **options):
        process = self.start(*arguments, **options)
        output, error = process.communicate(timeout=LIMIT)
        return process.returncode, output, error

    def test_measures(self):
        code, output, error = self.run_kavaro("size", "--embedded", "--json", self.tree)
        self.assertEqual((code, error), (0, b""))
        result = json.loads(output)
        self.assertEqual((result["files"], result["folders"], result["logicalSize"]), (2001, 2, 5000))

    def test_no_colour_and_no_live_line_in_a_pipe(self):
        code, output, error = self.run_kavaro("size", "--embedded", self.tree)
        self.assertEqual((code, error), (0, b""))
        self.assertNotIn(b"\x1b", output)

    def test_terminal_gets_colours_and_a_live_line(self):
        terminal = Terminal(60)
        self.addCleanup(terminal.close)
        process = self.start("size", "--embedded", self.tree, stdout=terminal.slave, stderr=terminal.slave)
        shown = terminal.read_until(b"folders/s")
        shown += terminal.read_until(b"a/\r\n")
        self.assertEqual(process.wait(LIMIT), 0)
        self.assertIn(b"\x1b[38;5;", shown)
        live = shown.rindex(b"folders/s")
        self.assertIn(b"\r\x1b[K" + self.tree.encode()[:8], shown[live:])  # erased before the result

    def test_no_live_line_on_a_dumb_terminal_or_from_the_background(self):
        def take_terminal():
            os.setsid()
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)

        for name, job in (("dumb", '"$0" size --embedded "$1"'), ("xterm", '"$0" size --embedded "$1" & wait')):
            terminal = Terminal(80)
            self.addCleanup(terminal.close)
            process = subprocess.Popen(["bash", "-c", "set -m; " + job + "; echo all''over", KAVARO, self.tree],
                                       stdin=terminal.slave, stdout=terminal.slave, stderr=terminal.slave,
                                       env=dict(self.environment, TERM=name), preexec_fn=take_terminal)
            self.addCleanup(self.end, process)
            shown = terminal.read_until(b"allover")
            self.assertIn(b"ON DISK", shown)
            self.assertNotIn(b"folders/s", shown)
            self.assertNotIn(b"\x1b[K", shown)

    def test_interrupt_shows_what_was_measured(self):
        terminal = Terminal(80)
        self.addCleanup(terminal.close)
        process = self.start("size", "--embedded", self.tree, stderr=terminal.slave)
        terminal.read_until(b"folders/s")
        process.send_signal(signal.SIGINT)
        output = process.stdout.read()
        self.assertEqual(process.wait(LIMIT), 130)
        terminal.read_until(b"interrupted")
        self.assertIn(b"(partial)", output)

    def test_interrupt_while_the_output_stands_still(self):
        process = self.start("size", "--embedded", "--json", "--depth", "9", self.tree)
        end = time.monotonic() + LIMIT
        while struct.unpack("i", fcntl.ioctl(process.stdout, termios.FIONREAD, b"\0" * 4))[0] < 65536:
            self.assertLess(time.monotonic(), end)
            self.assertIsNone(process.poll())
            select.select([], [], [], 0.01)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(LIMIT), 130)

    def test_reader_that_leaves(self):
        process = self.start("size", "--embedded", "--json", "--depth", "9", self.tree)
        process.stdout.read(10)
        process.stdout.close()
        self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.wait(LIMIT), 0)

    def test_full_disk(self):
        with open("/dev/full", "wb") as full:
            code, _, error = self.run_kavaro("size", "--embedded", self.tree, stdout=full)
        self.assertEqual(code, 1)
        self.assertTrue(error.startswith(b"kavaro: standard output: cannot be written: No space left"), error)

    def test_closed_output(self):
        code, _, error = self.run_kavaro("size", "--embedded", self.tree, stdout=None,
                                         preexec_fn=lambda: os.close(1))
        self.assertEqual(code, 1)
        self.assertTrue(error.startswith(b"kavaro: standard output: cannot be written: Bad file descriptor"), error)

    def test_everything_closed(self):
        process = self.start("size", "--embedded", self.tree, stdout=None, stderr=None,
                             preexec_fn=lambda: os.closerange(0, 3))
        self.assertEqual(process.wait(LIMIT), 1)

    def test_odd_paths(self):
        odd = os.path.join(os.fsencode(self.folder), b"n\xff\nl")
        os.mkdir(odd)
        code, output, error = self.run_kavaro("size", "--embedded", "--depth", "0", odd)
        self.assertEqual((code, error), (0, b""))
        self.assertIn(b"n\\xff\\nl: 0 bytes", output)
        code, _, error = self.run_kavaro("size", "--embedded", "b", cwd=os.path.join(self.tree, "a"))
        self.assertEqual((code, error), (0, b""))
        for path, reason in (("", "the path is empty"), ("/n" * 2500, "no such folder"),
                             (os.path.join(self.tree, "a/full"), "is not a folder")):
            code, output, error = self.run_kavaro("size", "--embedded", path)
            self.assertEqual((code, output), (1, b""))
            self.assertIn(reason.encode(), error)

    def test_bash_completes_paths(self):
        os.mkdir(os.path.join(self.folder, "two words"))
        terminal = Terminal(200)
        self.addCleanup(terminal.close)
        process = subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], stdin=terminal.slave, stdout=terminal.slave,
                                   stderr=terminal.slave, cwd=self.folder, start_new_session=True,
                                   env=dict(self.environment, INPUTRC="/dev/null"))
        self.addCleanup(self.end, process)
        os.write(terminal.master, b"source <('%s' --generate bash); echo sour''ced\n" % KAVARO.encode())
        terminal.read_until(b"sourced\r\n")
        for typed, completed in ((b"kavaro size tw", b"kavaro size two\\ words/"),
                                 (b"kavaro size 'tw", b"kavaro size 'two words"),
                                 (b"kavaro size ~/tr", b"kavaro size ~/tree/"),
                                 (b"kavaro size --sort=n", b"kavaro size --sort=name ")):
            os.write(terminal.master, typed + b"\t")
            terminal.read_until(completed)
            os.write(terminal.master, b"\x15")

    def test_wrong_usage(self):
        code, output, error = self.run_kavaro("size", "--depth", "x", self.tree)
        self.assertEqual((code, output), (2, b""))
        self.assertTrue(error.startswith(b"kavaro: --depth:"), error)


if __name__ == "__main__":
    unittest.main()

"""What tests of the command-line host share: a folder of their own, and the program run in it."""
import fcntl
import json
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest


class HostCase(unittest.TestCase):
    HOST = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def host(self, *args, **more):
        return subprocess.run([self.HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=120, **more)

    def good(self, *args):
        p = self.host(*args)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p

    def start(self, *args, **more):
        """A run that is ended with the test, in a session of its own, so that its group can be signalled."""
        p = subprocess.Popen([self.HOST] + [str(a) for a in args], cwd=self.folder, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True, start_new_session=True, **more)
        self.addCleanup(self.end, p)
        return p

    @staticmethod
    def end(p):
        try:
            os.killpg(p.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        p.communicate()

    def simulate(self, name='scan.rxp', *args, shots=2000):
        self.good('simulate', name, '--shots', shots, *args)
        return self.path(name)

    def convert(self, *args, code=0):
        p = self.host('convert', '--json', *args)
        self.assertEqual(p.returncode, code, p.stderr)
        return json.loads(p.stdout)['results']

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, data):
        with open(self.path(name), 'wb') as f:
            f.write(data)
        return name

    def read(self, name):
        with open(self.path(name), 'rb') as f:
            return f.read()

    def damage(self, name):
        """Puts a header whose sequence ends before it begins into a recording's middle. Returns where."""
        data = self.read(name)
        at = len(data) // 2 // 4 * 4
        self.write(name, data[:at] + struct.pack('<3I', 0xFFFFFFFF, 0x00010000, 1) + data[at:])
        return at

    def size_of(self, name):
        try:
            return os.path.getsize(self.path(name))
        except FileNotFoundError:
            return 0

    def wait_for(self, condition, seconds=60):
        until = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), until, 'it does not come')
            time.sleep(0.002)

    def on_terminal(self, *args, columns=120, **environment):
        """Exit code and what a terminal behind standard error shows."""
        near, far = pty.openpty()
        fcntl.ioctl(far, termios.TIOCSWINSZ, struct.pack('4H', 24, columns, 0, 0))
        env = {k: v for k, v in os.environ.items() if k not in ('NO_COLOR', 'TERM')}
        p = subprocess.Popen([self.HOST] + [str(a) for a in args], cwd=self.folder, stdin=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=far, env=dict(env, **{'TERM': 'xterm', **environment}))
        os.close(far)
        shown = b''
        while select.select([near], [], [], 120)[0]:
            try:
                piece = os.read(near, 65536)
            except OSError:  # how a terminal tells that nobody writes any more
                break
            shown += piece
        os.close(near)
        return p.wait(120), shown.decode()

    def children_of(self, pid):
        try:
            with open('/proc/%d/task/%d/children' % (pid, pid)) as f:
                return [int(n) for n in f.read().split()]
        except FileNotFoundError:
            return []


def main(arguments=1):
    """Runs the tests named behind the program and what else the script takes."""
    HostCase.HOST = os.path.abspath(sys.argv[1])
    unittest.main(argv=[sys.argv[0]] + sys.argv[1 + arguments:], verbosity=1)

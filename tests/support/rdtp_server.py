"""A server of the live protocol for tests. It shares nothing with the client, and checks what the client sends."""
import re
import select
import socket
import struct
import threading

STATUSES = ('CURRENT', 'ACTUAL', 'FILE')


def hang_up(conn):
    """Closes without an orderly end."""
    try:
        conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
    except OSError:
        pass
    conn.close()


def no_delay(conn):
    """Else small pieces wait for the one before them, which is slow to be told of."""
    conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)


class LineReader:
    def __init__(self, conn):
        self.conn, self.rest = conn, b''

    def line(self, timeout=20):
        self.conn.settimeout(timeout)
        while b'\n' not in self.rest:
            got = self.conn.recv(4096)
            if not got:
                return None
            self.rest += got
        line, self.rest = self.rest.split(b'\n', 1)
        self.conn.settimeout(None)
        return line.decode('ascii')


class Listener:
    """Accepts on a loopback port and gives each connection to `serve` on a thread of its own."""

    def __init__(self):
        self.port, self.listener, self.failures, self.conns = 0, None, [], []
        self.count = 0
        self.listen()

    def listen(self):
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(('127.0.0.1', self.port))
        self.port = self.listener.getsockname()[1]
        self.listener.listen(16)
        threading.Thread(target=self.accept, args=(self.listener,), daemon=True).start()

    def accept(self, listener):
        while True:
            try:
                conn, _ = listener.accept()
            except OSError:
                return
            no_delay(conn)
            self.conns.append(conn)
            number, self.count = self.count, self.count + 1
            threading.Thread(target=self.guard, args=(conn, number), daemon=True).start()

    def guard(self, conn, number):
        try:
            self.serve(conn, number)
        except AssertionError as e:
            self.failures.append(str(e))
        except (OSError, ValueError):
            pass  # the client has gone, or the test has closed what is waited for
        finally:
            conn.close()

    def deaf(self):
        """Nobody can connect until `listen` is called again; it takes the same port."""
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def close(self):
        try:
            self.deaf()
        except OSError:
            pass
        for conn in self.conns:
            try:
                conn.close()
            except OSError:
                pass

    def uri(self, rest='/current'):
        return 'rdtp://127.0.0.1:%d%s' % (self.port, rest)


class RdtpServer(Listener):
    """Serves `data` in chunks of the lengths that `lengths` (a function of the position) gives.

    tokens        a continuation token with every such chunk; 0 for none
    acknowledges  asks for an acknowledge with every such chunk, and does not go on until the one before the last is there
    pings         a chunk of length 0 before every such chunk
    """

    def __init__(self, data, lengths=lambda at: 1000, tokens=1, acknowledges=0, pings=0, name='scan_1', end='EOF\n'):
        self.data, self.lengths, self.tokens, self.acknowledges, self.pings = data, lengths, tokens, acknowledges, pings
        self.name, self.end, self.places, self.requests, self.acknowledged = name, end, {}, [], []
        super().__init__()

    @staticmethod
    def parse(line):
        m = re.fullmatch(r'(\S*) (.*)', line)
        assert m, 'no request: %r' % line
        pairs = [p.partition('=') for p in m.group(2).split('; ')]
        keys = [k for k, _, _ in pairs]
        assert keys == sorted(set(keys)), 'keys out of order: %r' % line
        return m.group(1), {k: v for k, _, v in pairs}

    def serve(self, conn, number):
        lines = LineReader(conn)
        line = lines.line()
        if line is None:
            return
        assert '\r' not in line, 'request with a carriage return'
        self.requests.append(line)
        verb, asked = self.parse(line)
        if verb not in STATUSES:
            conn.sendall(b'ERROR error-text=No such stream.\n')
            return
        assert asked['format'] == 'rxp' and asked['encoding'] in ('chunked', 'plain'), line
        at, echo = 0, ''
        if 'continuation-token' in asked:
            if asked['continuation-token'] not in self.places:
                conn.sendall(b'ERROR error-text=No such place.\n')
                return
            at = self.places[asked['continuation-token']] + int(asked['continuation-offset'])
            echo = '; continuation-token=%(continuation-token)s; continuation-offset=%(continuation-offset)s' % asked
        reply = '%s\t id = %s ;encoding=%s%s\r\n' % (verb.capitalize(), self.name, asked['encoding'], echo)
        conn.sendall(reply.encode())
        if asked['encoding'] == 'plain':
            conn.sendall(self.data[at:])
        else:
            self.send_chunks(conn, lines, at)
        conn.shutdown(socket.SHUT_WR)
        while lines.line() is not None:
            pass

    def send_chunks(self, conn, lines, at):
        n, owed = 0, []
        while at < len(self.data):
            if self.pings and n % self.pings == 0:
                conn.sendall(b'0\n' if n % 2 else b'0 pong\r\n')
                if owed:
                    self.expect(lines, owed)
            length = min(self.lengths(at), len(self.data) - at)
            head = '%d' % length
            if self.tokens and n % self.tokens == 0:
                token = 'Place%x' % at
                self.places[token] = at
                head += ' Continuation-Token = %s' % token
            if self.acknowledges and n % self.acknowledges == 0:
                owed.append('A%d' % at)
                head += '%sacknowledge-token=%s' % ('; ' if ' ' in head else ' ', owed[-1])
            conn.sendall(head.encode() + b'\n' + self.data[at:at + length])
            while len(owed) > 1:
                self.expect(lines, owed)
            at, n = at + length, n + 1
        conn.sendall(self.end.encode())

    def expect(self, lines, owed):
        """An acknowledge is due: the next chunk line has been sent. One may be of a link before this one."""
        while True:
            line = lines.line()
            if line is None:
                raise OSError('the client has gone')
            m = re.fullmatch(r'ACKNOWLEDGE acknowledge-token=(\S+)', line)
            assert m, 'no acknowledge: %r' % line
            if m.group(1) == owed[0]:
                self.acknowledged.append(owed.pop(0))
                return
            assert m.group(1) not in owed, 'acknowledge out of order: %r' % line


class FaultProxy(Listener):
    """Passes connections on to a server. `fault(number)` gives for the connection of that number what happens to it on
    its way to the client: None, or a pair of how many bytes pass and 'reset', 'close', or a function that is called
    before the rest passes. `on_fault` is called then."""

    def __init__(self, server, fault, on_fault=lambda: None):
        self.server, self.fault, self.on_fault = server, fault, on_fault
        super().__init__()

    def serve(self, conn, number):
        # One thread for both directions: a socket that another one waits for is not reset by closing it.
        upstream = socket.create_connection(('127.0.0.1', self.server.port))
        no_delay(upstream)
        fault = self.fault(number)
        try:
            while True:
                if fault and fault[0] == 0:
                    self.on_fault()
                    if fault[1] == 'reset':
                        hang_up(conn)
                        return
                    if fault[1] == 'close':
                        conn.shutdown(socket.SHUT_WR)
                        return
                    fault[1]()
                    fault = None
                readable, _, _ = select.select([conn, upstream], [], [])
                if conn in readable:
                    got = conn.recv(4096)
                    if not got:
                        return
                    upstream.sendall(got)
                if upstream in readable:
                    got = upstream.recv(min(65536, fault[0]) if fault else 65536)
                    if not got:
                        conn.shutdown(socket.SHUT_WR)
                        return
                    conn.sendall(got)
                    if fault:
                        fault = (fault[0] - len(got), fault[1])
        finally:
            upstream.close()

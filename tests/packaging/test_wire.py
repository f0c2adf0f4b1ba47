"""The bytes on the wire: the captures in tests/wire, sent and compared by peers of python's own.

The peers here share no code with the library. Each capture crosses the wire in both directions: a peer sends it to the
library and checks what arrives, and compares it with what the library sends.
"""

import re
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest

import support
import test_command

WIRE = support.SOURCE / "tests/wire"
PAGE = support.SOURCE / "docs/wire.md"
LIMIT = 30 * support.PATIENCE  # seconds, for every wait
LONG = b"a" * 66047


class Capture:
    """Bytes, some of which vary."""

    def __init__(self, tokens):
        self.bytes = []
        for token in tokens:
            byte, _, count = token.partition("*")
            self.bytes += [None if byte == "??" else int(byte, 16)] * int(count or 1)

    def __len__(self):
        return len(self.bytes)

    def fits(self, data):
        return len(data) == len(self) and all(mine in (None, byte) for mine, byte in zip(self.bytes, data))

    def varying(self, data):
        """What stands in the place of the bytes that vary."""
        return bytes(byte for mine, byte in zip(self.bytes, data) if mine is None)

    def filled(self, values=b""):
        """The capture with values for the bytes that vary."""
        values = iter(values)
        return bytes(next(values) if byte is None else byte for byte in self.bytes)

    def __str__(self):
        return " ".join("??" if byte is None else f"{byte:02x}" for byte in self.bytes[:200])


def tokens_of(text):
    return [token for line in text.splitlines() for token in line.partition("#")[0].split()]


def captures_of(name):
    """The captures of tests/wire/NAME.hex by their names."""
    parts = re.split(r"^\[(.+)\]$", (WIRE / f"{name}.hex").read_text(), flags=re.MULTILINE)
    return {title: Capture(tokens_of(text)) for title, text in zip(parts[1::2], parts[2::2])}


class Tool:
    """A running tarn, of which every line is kept."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([str(a) for a in arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.lines = []
        self.thread = threading.Thread(target=self.read, daemon=True)
        self.thread.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.append(line.decode("ascii", "replace"))

    def wait_for(self, pattern):
        """The first line with the pattern."""
        def find():
            return next(filter(None, (re.search(pattern, line) for line in list(self.lines))), None)
        test_command.wait_until(find)
        return find()

    def message_lengths(self):
        return [int(length) for length in re.findall(r"message from .*, (\d+) bytes: ", "".join(list(self.lines)))]

    def result(self):
        """The exit status and everything that was said."""
        status = self.process.wait(LIMIT)
        self.thread.join(LIMIT)
        return status, "".join(self.lines)

    def close(self):
        self.process.kill()
        self.process.wait(LIMIT)
        self.thread.join(LIMIT)
        self.process.stdout.close()


def take(connection, count):
    """So many bytes, or fewer at the end of the stream."""
    taken = b""
    try:
        while len(taken) < count and (piece := connection.recv(count - len(taken))):
            taken += piece
    except ConnectionResetError:
        pass
    return taken


def rest_of(connection):
    """What still comes until the other side closes."""
    return take(connection, 1 << 20)


class Wire(test_command.Command):
    def listen(self):
        listener = socket.create_server(("127.0.0.1", 0))
        listener.settimeout(LIMIT)
        self.addCleanup(listener.close)
        return listener, f"127.0.0.1:{listener.getsockname()[1]}"

    def accept(self, listener):
        """A client's connection: one that is reset without a byte was its test of the port."""
        while True:
            connection = listener.accept()[0]
            self.addCleanup(connection.close)
            connection.settimeout(LIMIT)
            try:
                if connection.recv(1, socket.MSG_PEEK):
                    return connection
            except ConnectionResetError:
                pass

    def connect(self, port):
        connection = socket.create_connection(("127.0.0.1", port), timeout=LIMIT)
        self.addCleanup(connection.close)
        return connection

    def tool(self, *arguments):
        tool = Tool(self.tarn, *arguments)
        self.addCleanup(tool.close)
        return tool

    def assert_wire(self, capture, data):
        if not capture.fits(data):
            self.fail(f"{len(data)} bytes\n{data[:200].hex(' ')}\nare not the {len(capture)} of\n{capture}")


class WireFraming(Wire):
    # Framing, options, the messages, and the captures of them as sent and as received.
    CLIENTS = [
        ("string", [], [b"hi", b""], "lines", "lines"),
        ("byte", [], [b"abc", b"", LONG], "big-endian", "big-endian"),
        ("byte", ["--little-endian"], [b"abc", b"", LONG], "little-endian", "little-endian"),
        ("none", [], [b"\0\r\n\xffa"], "bytes", "bytes"),
        ("string-recv", [], [b"one", b"two"], "sent", "received"),
        ("string-send", [], [b"one", b"two"], "sent", "received"),
    ]
    SERVERS = CLIENTS + [("http", [], [b"one", b"two"], "server", "server")]

    def assert_arrives(self, tool, saved, framing, messages):
        """Messages arrive with their boundaries where the form has any."""
        whole = b"".join(messages)
        test_command.wait_until(lambda: len(saved.read_bytes()) >= len(whole))
        self.assertEqual(saved.read_bytes(), whole)
        if framing not in ("none", "string-send"):
            test_command.wait_until(lambda: len(tool.message_lengths()) >= len(messages))
            self.assertEqual(tool.message_lengths(), [len(message) for message in messages])

    def messages_to_send(self, messages):
        """As arguments of the command: a file takes any byte."""
        if any(b"\0" in message for message in messages):
            return ["--file", self.write("message", messages[0])]
        return [message.decode() for message in messages]

    def client(self, listener, target, framing, options, messages):
        saved = self.folder / "saved"
        tool = self.tool("tcp", "send", target, "--framing", framing, *options, "--wait", LIMIT, "--save", saved,
                         *self.messages_to_send(messages))
        return tool, saved, self.accept(listener)

    def server(self, framing, *options):
        saved = self.folder / "saved"
        tool = self.tool("tcp", "listen", "--framing", framing, *options, "--echo", "--save", saved)
        port = int(tool.wait_for(r"listening on TCP port (\d+)").group(1))
        return tool, saved, self.connect(port)

    def test_clients_send_and_receive_the_captures(self):
        listener, target = self.listen()
        for framing, options, messages, sent, received in self.CLIENTS:
            with self.subTest(framing=framing, options=options):
                captures = captures_of(framing)
                tool, saved, connection = self.client(listener, target, framing, options, messages)
                self.assert_wire(captures[sent], take(connection, len(captures[sent])))
                connection.sendall(captures[received].filled())
                self.assert_arrives(tool, saved, framing, messages)
                tool.close()
                self.assertEqual(rest_of(connection), b"")

    def test_servers_receive_and_send_the_captures(self):
        for framing, options, messages, sent, received in self.SERVERS:
            with self.subTest(framing=framing, options=options):
                captures = captures_of(framing)
                tool, saved, connection = self.server(framing, *options)
                # Where reads are delivered whole, one message at a time keeps them apart.
                come = captures[received].filled()
                steps = messages if framing == "string-send" else [come]
                answer = b""
                for step in steps:
                    connection.sendall(step)
                    answer += take(connection, len(captures[sent]) // len(steps))
                self.assert_wire(captures[sent], answer)
                self.assertEqual(b"".join(steps), come)
                self.assert_arrives(tool, saved, framing, messages)
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(rest_of(connection), b"")
                tool.close()

    def test_an_http_client_sends_bytes_and_delivers_nothing(self):
        captures = captures_of("http")
        listener, target = self.listen()
        tool, saved, connection = self.client(listener, target, "http", [], [b"one", b"two"])
        self.assert_wire(captures["client"], take(connection, len(captures["client"])))
        connection.sendall(captures["server"].filled())
        connection.close()
        self.assertIn("closed the connection", tool.result()[1])
        self.assertEqual((tool.message_lengths(), saved.read_bytes()), ([], b""))

    def test_a_nul_in_a_line_leaves_nuls_behind_its_end(self):
        capture = captures_of("string")["a payload with a NUL"]
        listener, target = self.listen()
        for framing in ("string", "string-send"):
            tool, _, connection = self.client(listener, target, framing, [], [b"x\0y"])
            self.assert_wire(capture, take(connection, len(capture)))
            tool.close()
            self.assertEqual(rest_of(connection), b"")
        _, _, connection = self.server("string-send")
        connection.sendall(b"x\0y")
        self.assert_wire(capture, take(connection, len(capture)))

    def test_lines_end_at_a_nul_and_nowhere_but_at_cr_lf(self):
        captures = captures_of("string")
        for framing in ("string", "string-recv"):
            for name, message in (("line ends that are data", b"a\rb\nc\r"), ("a line with a NUL", b"x")):
                with self.subTest(framing=framing, name=name):
                    tool, saved, connection = self.server(framing)
                    connection.sendall(captures[name].filled())
                    self.assert_arrives(tool, saved, framing, [message])
                    tool.close()

    def test_a_length_below_4_ends_the_connection(self):
        bad = captures_of("byte")["a length below 4"].filled()
        listener, target = self.listen()
        tool, _, connection = self.client(listener, target, "byte", [], [b"abc"])
        connection.sendall(bad)
        self.assertIn("sent what is no message", tool.result()[1])
        self.assertEqual(len(rest_of(connection)), 7)
        for framing in ("byte", "http"):
            tool, _, connection = self.server(framing)
            connection.sendall(bad)
            self.assertEqual(rest_of(connection), b"")
            tool.wait_for(r"client \d+ disconnected")
            self.assertEqual(tool.message_lengths(), [])
            tool.close()

    def test_the_longest_message_is_one_byte_shorter_than_the_buffer(self):
        captures = captures_of("byte")
        tool, saved, connection = self.server("byte", "--buffer", "16")
        connection.sendall(captures["the longest message"].filled())
        self.assert_arrives(tool, saved, "byte", [b"a" * 11])
        self.assert_wire(captures["the longest message"], take(connection, 15))
        connection.sendall(captures["a message that does not fit"].filled())
        self.assertEqual(rest_of(connection), b"")
        self.assertEqual(tool.message_lengths(), [11])


class WireTransfer(Wire):
    def serve(self):
        server = test_command.Server(self.tarn, self.folder / "served")
        self.addCleanup(server.stop, signal.SIGKILL)
        return server


class WireUpload(WireTransfer):
    CONTENT = b"0123456789"
    LONG = b"a" * 66001
    DIGITS = b"20240305070809123456"

    def put(self, name, content, request, answer):
        """Uploads a file to a peer; the exit status and what was said."""
        listener, target = self.listen()
        tool = self.tool("put", target, self.write(name, content))
        connection = self.accept(listener)
        self.assert_wire(request, take(connection, len(request)))
        connection.sendall(answer)
        status, told = tool.result()
        self.assertEqual(rest_of(connection), b"")
        return status, told

    def test_a_client_sends_the_requests_and_takes_the_answers(self):
        captures = captures_of("upload")
        for name, content, request, answer in (
                ("a.txt", self.CONTENT, "request", "answer"),
                ("b.abcdefghijklmnop", self.LONG, "a long request", "the answer to a long request")):
            with self.subTest(request=request):
                sent = captures[answer].filled(self.DIGITS)
                status, told = self.put(name, content, captures[request], sent)
                self.assertEqual(status, 0, told)
                ending = name[1:15]
                self.assertIn(f"tarn: stored as {self.DIGITS.decode()}{ending}\n", told)

    def answered(self, server, request, answer):
        """Sends a request; the connection and the digits of the name in the answer."""
        connection = self.connect(server.port)
        connection.sendall(request.filled())
        data = take(connection, len(answer))
        self.assert_wire(answer, data)
        digits = answer.varying(data).decode()
        self.assertRegex(digits, r"^\d{20}$")
        return connection, digits

    def test_a_server_stores_the_requests_and_sends_the_answers(self):
        captures = captures_of("upload")
        server = self.serve()
        for content, ending, request, answer in (
                (self.CONTENT, ".txt", "request", "answer"),
                (self.LONG, ".abcdefghijklm", "a long request", "the answer to a long request")):
            with self.subTest(request=request):
                before = time.time()
                connection, digits = self.answered(server, captures[request], captures[answer])
                named = time.mktime(time.strptime(digits[:14], "%Y%m%d%H%M%S"))
                self.assertTrue(before - 1 <= named <= time.time(), digits)
                stored = self.folder / f"served/uploads\\{digits}{ending}"
                self.assertEqual(stored.read_bytes(), content)
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(rest_of(connection), b"")

    def test_a_server_takes_a_request_that_comes_byte_by_byte(self):
        captures = captures_of("upload")
        connection = self.connect(self.serve().port)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in captures["request"].filled():
            connection.sendall(bytes([byte]))
        self.assert_wire(captures["answer"], take(connection, len(captures["answer"])))

    def test_a_server_closes_after_what_it_cannot_keep(self):
        captures = captures_of("upload")
        server = self.serve()
        for request, answer in (("a wrong MD5", "answer"),
                                ("an extension with a slash", "the answer to an extension with a slash")):
            with self.subTest(request=request):
                connection, _ = self.answered(server, captures[request], captures[answer])
                self.assertEqual(rest_of(connection), b"")
        connection = self.connect(server.port)
        connection.sendall(captures["a length below the header's"].filled())
        self.assertEqual(rest_of(connection), b"")
        self.assertEqual(server.stored(), [])


class WireDownload(WireTransfer):
    CONTENT = b"0123456789"
    LONG = b"a" * 66011

    def get(self, request, answer, *options):
        """Downloads a.bin from a peer; the exit status and what was said."""
        captures = captures_of("download")
        listener, target = self.listen()
        tool = self.tool("get", target, "a.bin", "--to", self.folder / "fetched", *options)
        connection = self.accept(listener)
        self.assert_wire(captures[request], take(connection, len(captures[request])))
        connection.sendall(captures[answer].filled())
        if answer == "an empty file":
            connection.shutdown(socket.SHUT_WR)
        status, told = tool.result()
        self.assertEqual(rest_of(connection), b"")
        return status, told

    def test_a_client_sends_the_requests_and_takes_the_responses(self):
        for content, request, answer, options in (
                (self.CONTENT, "request", "response", []),
                (self.LONG, "a request with a folder", "a long response", ["--sub", "sub"])):
            with self.subTest(answer=answer):
                status, told = self.get(request, answer, *options)
                self.assertEqual(status, 0, told)
                self.assertEqual((self.folder / "fetched/a.bin").read_bytes(), content)

    def test_a_client_keeps_nothing_of_a_missing_or_an_empty_file(self):
        for answer, code in (("a missing file", 2000), ("an empty file", 2003)):
            with self.subTest(answer=answer):
                status, told = self.get("request", answer)
                self.assertEqual(status, 1)
                self.assertIn(f"the client reports {code}: ", told)
                self.assertEqual(list((self.folder / "fetched").iterdir()), [])

    def test_a_server_takes_the_requests_and_sends_the_responses(self):
        captures = captures_of("download")
        connection = self.connect(self.serve().download_port)
        for path, content, request, answer in (
                ("a.bin", self.CONTENT, "request", "response"),
                ("sub/a.bin", self.LONG, "a request with a folder", "a long response"),
                ("a.bin", b"", "request", "an empty file"),
                (None, b"", "request", "a missing file")):
            with self.subTest(answer=answer):
                if path is None:
                    (self.folder / "served/a.bin").unlink()
                else:
                    self.write(f"served/{path}", content)
                connection.sendall(captures[request].filled())
                self.assert_wire(captures[answer], take(connection, len(captures[answer])))
        connection.shutdown(socket.SHUT_WR)
        self.assertEqual(rest_of(connection), b"")


def raw_socket():
    return socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.getprotobyname("icmp"))


def raw_sockets_allowed():
    try:
        raw_socket().close()
    except PermissionError:
        return False
    return True


def checksum(packet):
    total = sum(struct.unpack(f">{len(packet) // 2}H", packet))
    while total > 0xFFFF:
        total = (total >> 16) + (total & 0xFFFF)
    return ~total & 0xFFFF


def echo(kind, identifier, sequence, seconds, microseconds):
    rest = struct.pack(">HH", identifier, sequence) + struct.pack("<qq", seconds, microseconds) + bytes(40)
    return struct.pack(">BBH", kind, 0, checksum(bytes([kind, 0, 0, 0]) + rest)) + rest


def receive_until(peer, wanted):
    """The first packet that is wanted."""
    end = time.monotonic() + LIMIT
    peer.settimeout(LIMIT)
    while time.monotonic() < end:
        packet = peer.recv(4096)
        if wanted(packet):
            return packet
    raise AssertionError("waited in vain")


class WireEcho(support.TestCase):
    """What tests/wire/EchoCaptureTest.cpp holds against the engine, held against packets made here and the platform."""

    def setUp(self):
        super().setUp()
        self.captures = captures_of("icmp-echo")

    def test_the_captures_are_echo_packets(self):
        values = (0x1234, 0x0203, 0x0102030405060708, 123456)
        self.assertTrue(self.captures["request"].fits(echo(8, *values)))
        reply = self.captures["reply"].filled(bytes(range(8)))
        self.assertEqual(reply[20:], echo(0, *values))
        self.assertEqual((reply[0] >> 4, reply[0] & 15, struct.unpack(">H", reply[2:4])[0]), (4, 5, len(reply)))

    @unittest.skipUnless(raw_sockets_allowed(), "raw sockets need root")
    def test_the_platform_answers_the_request_with_the_reply(self):
        reply = self.captures["reply"]
        with raw_socket() as peer:
            peer.sendto(self.captures["request"].filled(), ("127.0.0.1", 0))
            receive_until(peer, reply.fits)


class WireEngine(support.TestCase):
    """The library's engine as a host runs it, against a peer that listens."""

    ENGINE = "_ZN4Tarn7Generic11CPing_linux"

    def send(self):
        """What a host does to send its requests; the number of the process that did."""
        code = ("import ctypes, os, sys\n"
                "library = ctypes.CDLL(sys.argv[1])\n"
                "call = lambda name, *more: getattr(library, sys.argv[2] + name)(engine, *more)\n"
                "engine = ctypes.create_string_buffer(65536)\n"
                "call('C1EPKci', b'127.0.0.1', 1000)\n"
                "assert call('12CreateSocketEv') == 1\n"
                "call('11send_packetEv')\n"
                "call('D1Ev')\n"
                "print(os.getpid())\n")
        return int(support.output(sys.executable, "-c", code, support.LIBRARY, self.ENGINE))

    @unittest.skipUnless(raw_sockets_allowed(), "raw sockets need root")
    def test_it_sends_the_captured_request(self):
        capture = captures_of("icmp-echo")["the first request of an engine"]
        with raw_socket() as peer:
            before = time.time()
            identifier = self.send() & 0xFFFF
            ours = struct.pack(">H", identifier)
            packet = receive_until(peer, lambda data: capture.fits(data[20:]) and data[24:26] == ours)[20:]
            seconds, microseconds = struct.unpack("<qq", packet[8:24])
            self.assertTrue(int(before) <= seconds <= time.time(), seconds)
            self.assertEqual(packet, echo(8, identifier, 1, seconds, microseconds))


class WirePage(support.TestCase):
    def test_the_examples_of_the_page_are_the_captures(self):
        shown = re.findall(r"^ *```hex ([\w-]+): (.+?)\n(.*?)^ *```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
        self.assertTrue(shown)
        for file, name, text in shown:
            with self.subTest(file=file, name=name):
                self.assertEqual(Capture(tokens_of(text)).bytes, captures_of(file)[name].bytes)

    def test_the_page_shows_something_of_every_file(self):
        shown = set(re.findall(r"^ *```hex ([\w-]+): ", PAGE.read_text(), re.MULTILINE))
        self.assertEqual(shown, {path.stem for path in WIRE.glob("*.hex")})


if __name__ == "__main__":
    unittest.main()

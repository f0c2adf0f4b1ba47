"""The tarn command: digests, serving, sending, signals and exit statuses."""

import hashlib
import hmac
import json
import os
import pty
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest
import zlib

import support

BLOCK = 1048576
HEADER = 50


def pattern(size):
    return (bytes(range(251)) * (size // 251 + 1))[:size]


class Command(support.TestCase):
    def setUp(self):
        super().setUp()
        # Logs stand beside the executable: each case has its own.
        self.tarn = self.folder / "app/bin/tarn"
        self.tarn.parent.mkdir(parents=True)
        shutil.copy2(support.COMMAND, self.tarn)
        os.link(support.LIBRARY, self.tarn.parent / support.LIBRARY.name) if same_device(support.LIBRARY, self.tarn) \
            else shutil.copy2(support.LIBRARY, self.tarn.parent)

    def run_tarn(self, *arguments, **options):
        return support.run(self.tarn, *arguments, **options)

    def log_text(self):
        return "".join(log.read_text(errors="replace") for log in self.tarn.parent.glob("AsyncLogs/*.log"))


def same_device(one, other):
    return one.stat().st_dev == other.stat().st_dev


class Usage(Command):
    def test_help_and_version_succeed(self):
        self.assertIn("serve", self.run_tarn("--help").stdout)
        self.assertRegex(self.run_tarn("--version").stdout, r"^tarn \d+\.\d+\.\d+$")

    def test_wrong_usage_ends_with_2(self):
        for arguments in ([], ["fetch"], ["serve"], ["put", "127.0.0.1:1"], ["hash"],
                          ["serve", "--dir", self.folder, "--upload-port", "65536"],
                          ["serve", "--dir", self.folder, "--download-port", "-1"],
                          ["serve", "--dir", self.folder, "--workers", "0"],
                          ["get", "127.0.0.1:1"], ["get", "127.0.0.1:1", "f", "--wait", "0"]):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.run_tarn(*arguments).returncode, 2)


class Hash(Command):
    def digests(self, *arguments):
        done = self.run_tarn("hash", *arguments)
        self.assertEqual(done.returncode, 0, done.stderr)
        return [line.split("  ")[0] for line in done.stdout.splitlines()]

    def samples(self):
        sizes = (0, 1, 63, 64, 65, 1023, 1024, 600000, BLOCK)
        return {self.write(f"sample{size}", pattern(size)): pattern(size) for size in sizes}

    def assert_digests(self, expected, *options):
        samples = self.samples()
        self.assertEqual(self.digests(*options, *samples), [expected(data) for data in samples.values()])

    def test_md5_is_the_default(self):
        self.assert_digests(lambda data: hashlib.md5(data).hexdigest())
        self.assert_digests(lambda data: hashlib.md5(data).hexdigest(), "--md5")

    def test_sha256(self):
        self.assert_digests(lambda data: hashlib.sha256(data).hexdigest(), "--sha256")

    def test_hmac(self):
        for key in ("k", "a key of more than sixty-four bytes, which is hashed before it is used at all"):
            self.assert_digests(lambda data, key=key: hmac.new(key.encode(), data, "sha256").hexdigest(),
                                "--hmac", "--key", key)

    def test_crc32(self):
        self.assert_digests(lambda data: f"{zlib.crc32(data):08x}", "--crc32")

    def test_crc8_adds_its_own_constant_after_every_byte(self):
        def crc8(data):
            table = []
            for entry in range(256):
                for _ in range(8):
                    entry = entry >> 1 ^ (0x8C if entry & 1 else 0)
                table.append(entry ^ 0x21)
            register = 0
            for byte in data:
                register = table[register ^ byte]
            return f"{register:02x}"
        self.assert_digests(crc8, "--crc8")

    def test_crc8_refuses_what_the_library_would_answer_with_0(self):
        largest, larger = self.write("largest", bytes(10000000)), self.write("larger", bytes(10000001))
        self.assertEqual(len(self.digests("--crc8", largest)), 1)
        done = self.run_tarn("hash", "--crc8", larger)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("larger: File too large", done.stderr)

    def test_its_lines_are_those_of_md5sum_whatever_the_name(self):
        names = ["plain", "two words", "back\\slash", "line\nend", "carriage\rreturn"]
        files = [self.write(name, pattern(len(name))).name for name in names]
        done = self.run_tarn("hash", *files, cwd=self.folder)
        # A text, so that neither side translates line ends.
        expected = subprocess.run(["md5sum", *files], cwd=self.folder, capture_output=True, check=True).stdout
        self.assertEqual(done.stdout.encode(), expected)
        check = subprocess.run(["md5sum", "--check", "-"], cwd=self.folder, input=expected, capture_output=True,
                               check=False)
        self.assertEqual(check.returncode, 0)

    def test_a_dash_is_standard_input(self):
        with open(self.write("in", "abc")) as stream:
            done = self.run_tarn("hash", "--sha256", "-", stdin=stream)
        self.assertEqual(done.stdout, hashlib.sha256(b"abc").hexdigest() + "  -\n")

    def test_a_missing_file_is_reported_and_the_others_are_done(self):
        good = self.write("good", "abc")
        done = self.run_tarn("hash", self.folder / "none", good, self.folder)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout, f"{hashlib.md5(b'abc').hexdigest()}  {good}\n")
        self.assertIn("none: No such file or directory", done.stderr)
        self.assertIn("Is a directory", done.stderr)

    def test_a_full_disk_is_an_error(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([self.tarn, "hash", self.tarn], stdout=full, check=False)
        self.assertEqual(done.returncode, 1)

    def test_wrong_combinations_are_refused(self):
        file = self.write("f", "")
        for options in (["--hmac"], ["--key", "k"], ["--md5", "--sha256"], ["--hmac", "--crc8", "--key", "k"]):
            with self.subTest(options=options):
                self.assertEqual(self.run_tarn("hash", *options, file).returncode, 2)


class Server:
    """A running `tarn serve`."""

    def __init__(self, tarn, folder, *options):
        self.folder = folder
        self.process = subprocess.Popen([tarn, "serve", "--dir", folder, *options], stdout=subprocess.PIPE, text=True)
        self.port = self.download_port = None
        self.lines = []
        for line in self.process.stdout:
            self.lines.append(line)
            found = re.match(r"tarn: listening on port (\d+) for (uploads|downloads) ", line)
            if found and found.group(2) == "uploads":
                self.port = int(found.group(1))
            elif found:
                self.download_port = int(found.group(1))
                break

    def stop(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
        self.lines += self.process.communicate(timeout=30 * support.PATIENCE)[0].splitlines(True)
        return self.process.returncode

    def stored(self):
        return sorted(self.folder.glob("uploads\\*"))

    def address(self):
        """Where downloads are served."""
        return f"127.0.0.1:{self.download_port}"

    def resources(self):
        """How many descriptors and threads it has."""
        entries = [os.listdir(f"/proc/{self.process.pid}/{name}") for name in ("fd", "task")]
        return [len(names) for names in entries]


class Serve(Command):
    def start(self, *options):
        server = Server(self.tarn, self.folder / "received", *options)
        self.addCleanup(server.stop)
        return server

    def send(self, port, data, digest=None):
        header = struct.pack("<I32s14s", len(data) + HEADER, (digest or hashlib.md5(data).hexdigest()).encode(), b".bin")
        with socket.create_connection(("127.0.0.1", port), timeout=20 * support.PATIENCE) as peer:
            peer.sendall(header + data)
            return json.loads(peer.makefile("r").readline())

    def test_it_says_which_free_port_it_took_and_stores_what_comes(self):
        server = self.start()
        data = pattern(3 * BLOCK + 17)
        answer = self.send(server.port, data)
        self.assertEqual(answer["err"], 0)
        self.assertEqual([p.name for p in server.stored()], ["uploads\\" + answer["file"]])
        self.assertEqual(server.stored()[0].read_bytes(), data)
        self.assertEqual(server.stop(), 0)

    def test_it_takes_the_port_that_it_is_given(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        server = self.start("--upload-port", str(port))
        self.assertEqual(server.port, port)
        self.assertEqual(server.stop(), 0)
        self.assertEqual(self.start("--download-port", str(port)).download_port, port)

    def test_two_servers_take_two_ports(self):
        self.assertNotEqual(self.start().port, self.start().port)

    def test_a_port_in_use_ends_it_with_1(self):
        port = self.start().port
        done = self.run_tarn("serve", "--dir", self.folder / "received", "--upload-port", port)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"tarn: no upload server can listen on port {port}", done.stderr)
        done = self.run_tarn("serve", "--dir", self.folder / "received", "--download-port", port)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"tarn: no download server can listen on port {port}", done.stderr)

    def test_it_writes_nothing_outside_its_folder(self):
        server = self.start()
        before = sorted(p.name for p in self.folder.iterdir())
        self.send(server.port, b"x")
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()), before)
        self.assertEqual([p.name for p in server.folder.iterdir() if p.name == "uploads"], ["uploads"])

    def test_a_folder_that_cannot_be_made_ends_it_with_1(self):
        done = self.run_tarn("serve", "--dir", self.folder / "no/such/parent")
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot be made", done.stderr)

    def test_both_stop_signals_end_it_cleanly_with_its_log_written(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            server = self.start()
            self.send(server.port, b"x")
            self.assertEqual(server.stop(number), 0)
            self.assertIn(f"tarn: stopped by {number.name}\n", server.lines)
            self.assertIn("CUploadServer::OnConnect", self.log_text())

    def test_a_stop_in_the_middle_of_an_upload_leaves_no_file(self):
        server = self.start()
        with socket.create_connection(("127.0.0.1", server.port), timeout=20 * support.PATIENCE) as peer:
            peer.sendall(struct.pack("<I32s14s", 1000 + HEADER, b"0" * 32, b".bin") + b"part")
            wait_until(server.stored)
            self.assertEqual(server.stop(), 0)
        self.assertEqual(server.stored(), [])

    def test_a_vanishing_reader_of_its_output_does_not_end_it(self):
        server = self.start()
        server.process.stdout.close()
        self.assertEqual(self.send(server.port, b"x")["err"], 0)
        server.process.terminate()
        self.assertEqual(server.process.wait(30), 0)
        server.process.stdout = open(os.devnull)


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds * support.PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.01)


class Peer:
    """An upload server of our own: hands each connection that sends a header to `behave`."""

    def __init__(self, behave):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"127.0.0.1:{self.listener.getsockname()[1]}"
        self.behave = behave
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        try:
            while True:
                # The client first tests the port with a connection that it drops at once.
                self.handle(self.listener.accept()[0])
        except OSError:
            pass

    def handle(self, connection):
        try:
            with connection:
                header = connection.recv(HEADER, socket.MSG_WAITALL)
                if len(header) == HEADER:
                    self.behave(connection, struct.unpack("<I", header[:4])[0] - HEADER)
        except OSError:
            pass

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join(20)


def take(connection, size):
    while size > 0:
        got = connection.recv(min(size, BLOCK))
        if not got:
            return
        size -= len(got)


class Put(Command):
    def serve(self):
        server = Server(self.tarn, self.folder / "received")
        self.addCleanup(server.stop)
        return server

    def peer(self, behave):
        peer = Peer(behave)
        self.addCleanup(peer.close)
        return peer

    def start(self, address, file, **options):
        return subprocess.Popen([self.tarn, "put", address, file], stdout=subprocess.PIPE, text=True,
                                **{"stderr": subprocess.PIPE, **options})

    def test_it_stores_files_and_names_them(self):
        server = self.serve()
        for size in (1, 10, BLOCK - 51, BLOCK + 1):
            with self.subTest(size=size):
                done = self.run_tarn("put", f"localhost:{server.port}", self.write("a.txt", pattern(size)))
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                name = re.search(r"^tarn: stored as (\S+\.txt)$", done.stdout, re.M).group(1)
                stored = server.folder / f"uploads\\{name}"
                self.assertEqual(stored.read_bytes(), pattern(size))
                self.assertIn("tarn: 100 %\n", done.stderr)
                self.assertNotIn("2003", done.stderr)
        self.assertIn("Send file end.", self.log_text())

    def test_the_answer_decides_where_the_client_also_reports_2003(self):
        server = self.serve()
        for size in (BLOCK - 49, BLOCK, 2 * BLOCK):
            with self.subTest(size=size):
                done = self.run_tarn("put", f"127.0.0.1:{server.port}", self.write("b.bin", pattern(size)))
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                self.assertIn("the client reports 2003", done.stderr)
                self.assertIn("tarn: the server answers 0", done.stdout)

    def test_an_empty_file_is_not_answered_but_kept(self):
        server = self.serve()
        done = self.run_tarn("put", f"127.0.0.1:{server.port}", self.write("empty", b""))
        self.assertEqual(done.returncode, 1)
        self.assertIn("the client reports 2003", done.stderr)
        self.assertIn("an empty file is never answered", done.stderr)
        self.assertEqual(server.stop(), 0)
        self.assertEqual([p.stat().st_size for p in server.stored()], [0])

    def test_a_refused_connection_is_code_1(self):
        with socket.socket() as unheard:
            unheard.bind(("127.0.0.1", 0))
            done = self.run_tarn("put", f"127.0.0.1:{unheard.getsockname()[1]}", self.write("f", b"x"))
        self.assertEqual(done.returncode, 1)
        self.assertIn("the client reports 1: the connection could not be made", done.stderr)

    def test_a_connection_closed_on_the_way_is_code_2003(self):
        peer = self.peer(lambda connection, size: take(connection, 1000))
        done = self.run_tarn("put", peer.address, self.write("f", pattern(5 * BLOCK)))
        self.assertEqual(done.returncode, 1)
        self.assertIn("the client reports 2003: the connection was closed", done.stderr)

    def test_a_server_that_closes_instead_of_answering_is_not_success(self):
        done = self.run_tarn("put", "--wait", "1", self.peer(take).address, self.write("f", b"x"))
        self.assertEqual(done.returncode, 1)
        self.assertIn("the server did not answer", done.stderr)

    def test_without_an_answer_the_report_of_2003_after_all_data_counts(self):
        def behave(connection, size):
            take(connection, size)
            connection.recv(1)
        done = self.run_tarn("put", self.peer(behave).address, self.write("f", pattern(BLOCK)))
        self.assertEqual(done.returncode, 1)
        self.assertIn("the client reports 2003", done.stderr)
        self.assertNotIn("stored as", done.stdout)

    def test_other_answers_are_told_in_words(self):
        for answer, told in ((b'{"err":2001,"file":"n"}\r\n', "answers 2001: the file could not be created"),
                             (b'{"err":7,"file":"n"}\r\n', "answers 7: an unknown result"),
                             (b"nonsense\r\n", "the server's answer names no file")):
            def behave(connection, size, answer=answer):
                take(connection, size)
                connection.sendall(answer)
                connection.recv(1)
            with self.subTest(answer=answer):
                done = self.run_tarn("put", self.peer(behave).address, self.write("f", b"x"))
                self.assertEqual(done.returncode, 1)
                self.assertIn(told, done.stderr)

    def test_stop_signals_interrupt_it(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            begun = threading.Event()

            def behave(connection, size, begun=begun):
                begun.set()
                take(connection, size)
            process = self.start(self.peer(behave).address, self.write("f", pattern(60 * BLOCK)))
            self.assertTrue(begun.wait(20))
            process.send_signal(number)
            told = process.communicate(timeout=30 * support.PATIENCE)[1]
            self.assertEqual(process.returncode, 128 + number)
            self.assertIn("tarn: interrupted at", told)

    def test_a_terminal_gets_a_bar(self):
        server = self.serve()
        controller, terminal = pty.openpty()
        process = self.start(f"127.0.0.1:{server.port}", self.write("f", pattern(BLOCK + 1)), stderr=terminal)
        os.close(terminal)
        shown = read_all(controller)
        process.communicate(timeout=30 * support.PATIENCE)
        self.assertEqual(process.returncode, 0)
        self.assertIn(b"\rtarn: [" + b"#" * 40 + b"] 100 %", shown)

    def test_what_cannot_be_sent_is_refused_with_a_reason(self):
        good = self.write("good", b"x")
        for server, file, told in (("127.0.0.1:1", self.folder / "none", "No such file or directory"),
                                   ("127.0.0.1:1", self.folder, "not a regular file"),
                                   ("127.0.0.1", good, "not of the form HOST:PORT"),
                                   ("127.0.0.1:0", good, "not of the form HOST:PORT"),
                                   ("127.0.0.1:65536", good, "not of the form HOST:PORT"),
                                   ("127.0.0.1:80x", good, "not of the form HOST:PORT"),
                                   ("no such host:80", good, "no such host: ")):
            with self.subTest(server=server, file=file):
                done = self.run_tarn("put", server, file)
                self.assertEqual(done.returncode, 1)
                self.assertIn(told, done.stderr)


def download_header(size, data=b"", error=0):
    digest = hashlib.md5(data).hexdigest().encode() if error == 0 else b""
    return struct.pack("<II32s", size + 40, error, digest)


class Source:
    """A download server of our own: hands each request to `behave`."""

    def __init__(self, behave):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"127.0.0.1:{self.listener.getsockname()[1]}"
        self.behave = behave
        self.requests = []
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        try:
            while True:
                with self.listener.accept()[0] as connection:
                    self.handle(connection)
        except OSError:
            pass

    def handle(self, connection):
        try:
            request = connection.recv(4096)
            if request:
                self.requests.append(request)
                self.behave(connection)
        except OSError:
            pass

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join(20)


class Get(Command):
    def serve(self, *options):
        server = Server(self.tarn, self.folder / "served", *options)
        self.addCleanup(server.stop)
        return server

    def source(self, behave):
        source = Source(behave)
        self.addCleanup(source.close)
        return source

    def get(self, address, name, *options):
        return self.run_tarn("get", address, name, "--to", self.folder / "fetched", *options)

    def start(self, address, name, **options):
        return subprocess.Popen([self.tarn, "get", address, name, "--to", self.folder / "fetched"],
                                stdout=subprocess.PIPE, text=True, **{"stderr": subprocess.PIPE, **options})

    def fetched(self):
        return sorted(p.name for p in (self.folder / "fetched").glob("*"))

    def test_it_fetches_files_of_telling_sizes(self):
        server = self.serve()
        for size in (1, BLOCK - 41, BLOCK - 1, BLOCK, BLOCK + 1, 3 * BLOCK):
            with self.subTest(size=size):
                data = pattern(size)
                self.write("served/a.bin", data)
                done = self.get(server.address(), "a.bin")
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                self.assertIn("tarn: the client reports 0: success\n", done.stdout)
                self.assertIn("tarn: 100 %\n", done.stderr)
                self.assertEqual((self.folder / "fetched/a.bin").read_bytes(), data)

    def test_it_fetches_from_a_folder_and_into_the_working_one(self):
        server = self.serve()
        self.write("served/sub/a.bin", "in sub")
        done = self.run_tarn("get", f"localhost:{server.download_port}", "a.bin", "--sub", "sub", cwd=self.folder)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual((self.folder / "a.bin").read_text(), "in sub")
        self.assertIn("tarn: stored as ./a.bin\n", done.stdout)

    def test_it_fetches_what_was_put(self):
        server = self.serve()
        data = pattern(BLOCK + 7)
        self.assertEqual(self.run_tarn("put", f"127.0.0.1:{server.port}", self.write("p.bin", data)).returncode, 0)
        name = server.stored()[0].name
        self.assertEqual(self.get(server.address(), name).returncode, 0)
        self.assertEqual((self.folder / "fetched" / name).read_bytes(), data)

    def test_it_says_every_result_in_words(self):
        (self.folder / "fetched/taken").mkdir(parents=True)
        part = download_header(10, b"0123456789") + b"01234"
        for name, sent, told in (
                ("none", download_header(0, error=2000), "2000: the server has no such file"),
                ("taken", download_header(3, b"abc") + b"abc", "2001: the file could not be created"),
                ("odd", download_header(3, b"other") + b"abc", "2002: the file that arrived has another MD5"),
                ("part", part, "2003: the connection was closed"),
                ("new", download_header(0, error=77), "77: an unknown result")):
            with self.subTest(name=name):
                source = self.source(lambda connection, sent=sent: connection.sendall(sent))
                done = self.get(source.address, name)
                self.assertEqual(done.returncode, 1)
                self.assertIn(f"tarn: the client reports {told}", done.stderr)
                self.assertEqual(source.requests, [name.encode() + b"\r\n"])
        self.assertEqual(self.fetched(), ["taken"])

    def test_a_refused_connection_is_code_1(self):
        with socket.socket() as unheard:
            unheard.bind(("127.0.0.1", 0))
            done = self.get(f"127.0.0.1:{unheard.getsockname()[1]}", "f")
        self.assertEqual(done.returncode, 1)
        self.assertIn("the client reports 1: the connection could not be made", done.stderr)

    def test_nothing_outside_the_served_folder_can_be_fetched(self):
        server = self.serve()
        self.write("secret", "secret")
        for name, sub in (("../secret", ""), ("secret", ".."), (str(self.folder / "secret"), ""),
                          ("secret", "uploads/../.."), ("%2e%2e/secret", ""), ("..\\secret", "")):
            with self.subTest(name=name, sub=sub):
                done = self.get(server.address(), name, "--sub", sub)
                self.assertEqual(done.returncode, 1)
                self.assertIn("the client reports 2000", done.stderr)
        self.assertEqual(self.fetched(), [])

    def test_an_empty_file_is_given_up_and_leaves_nothing(self):
        server = self.serve()
        self.write("served/empty", "")
        done = self.get(server.address(), "empty", "--wait", "1")
        self.assertEqual(done.returncode, 1)
        self.assertIn("nothing has come for 1 s; an empty file is never complete", done.stderr)
        self.assertEqual(self.fetched(), [])

    def test_stop_signals_interrupt_it_and_leave_nothing(self):
        server = self.serve()
        self.write("served/long", bytes(60 * BLOCK))
        for number in (signal.SIGTERM, signal.SIGINT):
            process = self.start(server.address(), "long")
            wait_until(self.fetched)
            process.send_signal(number)
            told = process.communicate(timeout=30 * support.PATIENCE)[1]
            self.assertEqual(process.returncode, 128 + number)
            self.assertIn("tarn: interrupted at", told)
            self.assertEqual(self.fetched(), [])

    def test_a_terminal_gets_a_bar(self):
        server = self.serve()
        self.write("served/f", pattern(BLOCK + 1))
        controller, terminal = pty.openpty()
        process = self.start(server.address(), "f", stderr=terminal)
        os.close(terminal)
        shown = read_all(controller)
        process.communicate(timeout=30 * support.PATIENCE)
        self.assertEqual(process.returncode, 0)
        self.assertIn(b"\rtarn: [" + b"#" * 40 + b"] 100 %", shown)

    def test_what_cannot_be_asked_for_is_refused_with_a_reason(self):
        for server, told in (("127.0.0.1", "not of the form HOST:PORT"), ("127.0.0.1:0", "not of the form HOST:PORT"),
                             ("no such host:80", "no such host: ")):
            with self.subTest(server=server):
                done = self.get(server, "f")
                self.assertEqual(done.returncode, 1)
                self.assertIn(told, done.stderr)
        done = self.run_tarn("get", "127.0.0.1:1", "f", "--to", self.folder / "no/such")
        self.assertEqual(done.returncode, 1)
        self.assertIn("no/such cannot be made", done.stderr)


class Kills(Command):
    """Either side dies without a word, at moments all over a transfer."""

    def serve(self):
        server = Server(self.tarn, self.folder / "served")
        self.addCleanup(server.stop)
        return server

    def start(self, *arguments):
        return subprocess.Popen([self.tarn, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def moments(self, count):
        return [random.Random(count).uniform(0, 0.9) for _ in range(count)]

    def assert_recovers(self, server, before):
        wait_until(lambda: all(now <= then for now, then in zip(server.resources(), before)))

    def warm_up(self, server):
        """One transfer each way, so that what the process keeps from then on is there."""
        small = self.write("small", "content")
        shutil.copy(small, server.folder / "small")
        self.assertEqual(self.run_tarn("put", f"127.0.0.1:{server.port}", small).returncode, 0)
        self.assertEqual(self.run_tarn("get", server.address(), "small", "--to", self.folder / "in").returncode, 0)
        time.sleep(0.5)
        return server.resources()

    def test_killed_downloaders_leave_the_server_as_it_was(self):
        server = self.serve()
        self.write("served/long", bytes(30 * BLOCK))
        before = self.warm_up(server)
        for moment in self.moments(8):
            process = self.start("get", server.address(), "long", "--to", self.folder / "fetched")
            time.sleep(moment)
            process.kill()
            process.communicate(timeout=30 * support.PATIENCE)
        self.assert_recovers(server, before)
        self.warm_up(server)

    def test_killed_uploaders_leave_the_server_as_it_was_and_no_file(self):
        server = self.serve()
        before = self.warm_up(server)
        kept = server.stored()
        long = self.write("long", bytes(30 * BLOCK))
        for moment in self.moments(8):
            process = self.start("put", f"127.0.0.1:{server.port}", long)
            time.sleep(moment)
            process.kill()
            process.communicate(timeout=30 * support.PATIENCE)
        self.assert_recovers(server, before)
        wait_until(lambda: server.stored() == kept)
        self.warm_up(server)

    def test_a_killed_server_ends_a_download_with_2003_and_no_file(self):
        for moment in self.moments(4):
            server = self.serve()
            self.write("served/long", bytes(30 * BLOCK))
            process = self.start("get", server.address(), "long", "--to", self.folder / "fetched")
            wait_until(lambda: list((self.folder / "fetched").glob("*")))
            time.sleep(moment)
            server.process.kill()
            told = process.communicate(timeout=30 * support.PATIENCE)[1]
            self.assertEqual(process.returncode, 1)
            self.assertIn("the client reports 2003", told)
            self.assertEqual(list((self.folder / "fetched").glob("*")), [])

    def test_a_killed_server_ends_an_upload_with_2003(self):
        for moment in self.moments(4):
            server = self.serve()
            process = self.start("put", f"127.0.0.1:{server.port}", self.write("long", bytes(30 * BLOCK)))
            wait_until(server.stored)
            time.sleep(moment)
            server.process.kill()
            told = process.communicate(timeout=30 * support.PATIENCE)[1]
            self.assertEqual(process.returncode, 1)
            self.assertIn("the client reports 2003", told)
            for left in server.stored():
                left.unlink()


def read_all(descriptor):
    shown = b""
    try:
        while piece := os.read(descriptor, 4096):
            shown += piece
    except OSError:
        pass  # the other end of a terminal has been closed
    os.close(descriptor)
    return shown


if __name__ == "__main__":
    unittest.main()

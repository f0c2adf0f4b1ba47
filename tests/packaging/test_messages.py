"""tarn tcp and tarn udp as a person at a terminal uses them; the bytes of the framings are held elsewhere."""

import re
import signal
import socket
import unittest

import test_wire


class Messages(test_wire.Wire):
    def listener(self, kind, *options):
        tool = self.tool(kind, "listen", *options)
        return tool, int(tool.wait_for(rf"listening on {kind.upper()} port (\d+)")[1])


class Tcp(Messages):
    def test_every_framing_that_both_ends_share_carries_lines_there_and_back(self):
        for options in (["string"], ["byte"], ["byte", "--little-endian"], ["none"]):
            with self.subTest(options=options):
                listener, port = self.listener("tcp", "--echo", "--framing", *options)
                sender = self.tool("tcp", "send", f"127.0.0.1:{port}", "first", "--framing", *options, "--count", "1",
                                   "--wait", "20")
                status, said = sender.result()
                self.assertEqual(status, 0, said)
                self.assertIn("5 bytes: first", said)
                listener.wait_for("message from client .*, 5 bytes: first")
                listener.wait_for("disconnected")

    def test_unlike_byte_orders_do_not_understand_each_other(self):
        listener, port = self.listener("tcp", "--framing", "byte", "--little-endian")
        self.tool("tcp", "send", f"127.0.0.1:{port}", "first", "--framing", "byte", "--wait", "0").result()
        listener.wait_for("disconnected")
        self.assertEqual(listener.message_lengths(), [])

    def test_a_file_is_one_message_and_can_be_saved(self):
        data = bytes(range(256)) * 1000
        saved = self.folder / "saved"
        listener, port = self.listener("tcp", "--count", "1", "--save", saved)
        status, said = self.tool("tcp", "send", f"127.0.0.1:{port}", "--file", self.write("sent", data)).result()
        self.assertEqual(status, 0, said)
        self.assertEqual(listener.result()[0], 0)
        self.assertEqual(saved.read_bytes(), data)

    def test_control_bytes_are_shown_so_that_a_terminal_is_safe(self):
        listener, port = self.listener("tcp")
        self.tool("tcp", "send", f"127.0.0.1:{port}", "a\x1b[2Jb").result()
        self.assertIn("a\\x1b[2Jb", listener.wait_for("message from .*")[0])

    def test_a_signal_ends_listening_with_0(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            listener, _ = self.listener("tcp")
            listener.process.send_signal(number)
            status, said = listener.result()
            self.assertEqual(status, 0, said)
            self.assertIn(f"stopped by {number.name}", said)

    def test_nobody_listening_is_a_failure(self):
        with socket.socket() as unheard:
            unheard.bind(("127.0.0.1", 0))
            status, said = self.tool("tcp", "send", f"127.0.0.1:{unheard.getsockname()[1]}", "x").result()
        self.assertEqual(status, 1)
        self.assertRegex(said, "tarn: .* cannot be reached")

    def test_fewer_answers_than_awaited_are_a_failure(self):
        _, port = self.listener("tcp")
        status, said = self.tool("tcp", "send", f"127.0.0.1:{port}", "x", "--count", "1", "--wait", "1").result()
        self.assertEqual(status, 1, said)

    def test_wrong_usage_is_2(self):
        for arguments in (["tcp"], ["tcp", "listen", "--framing", "morse"], ["tcp", "send"],
                          ["tcp", "send", "127.0.0.1:1", "x", "--file", "y"]):
            self.assertEqual(self.tool(*arguments).result()[0], 2, arguments)


class Udp(Messages):
    def test_datagrams_go_there_and_back(self):
        listener, port = self.listener("udp", "--echo", "--count", "2")
        status, said = self.tool("udp", "send", f"127.0.0.1:{port}", "one", "other", "--count", "2", "--wait",
                                 "20").result()
        self.assertEqual(status, 0, said)
        self.assertEqual(len(re.findall("message from 127.0.0.1", said)), 2)
        self.assertEqual(listener.result()[0], 0)
        self.assertEqual(sorted(listener.message_lengths()), [3, 5])

    def test_a_foreign_peer_gets_the_bytes_and_no_more(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
            peer.bind(("127.0.0.1", 0))
            peer.settimeout(test_wire.LIMIT)
            sender = self.tool("udp", "send", f"127.0.0.1:{peer.getsockname()[1]}", "some text", "--address",
                               "127.0.0.1", "--count", "1", "--wait", "20")
            data, address = peer.recvfrom(100)
            self.assertEqual(data, b"some text")
            peer.sendto(b"\0\xff", address)
            status, said = sender.result()
        self.assertEqual(status, 0, said)
        self.assertIn("2 bytes: \\x00\\xff", said)

    def test_a_port_in_use_ends_it_with_1(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("127.0.0.1", 0))
            port = other.getsockname()[1]
            status, said = self.tool("udp", "listen", "--address", "127.0.0.1", "--port", port).result()
        self.assertEqual(status, 1, said)
        self.assertIn(f"{port}", said)

    def test_a_group_is_heard_on_its_own_machine(self):
        listener, port = self.listener("udp", "--group", "239.7.8.9", "--count", "1")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
            try:
                peer.sendto(b"to all", ("239.7.8.9", port))
            except OSError as error:
                self.skipTest(f"no multicast here: {error}")
        status, said = listener.result()
        self.assertEqual(status, 0, said)
        self.assertIn("6 bytes: to all", said)


if __name__ == "__main__":
    unittest.main()

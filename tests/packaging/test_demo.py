"""The demonstration, for files of telling sizes."""

import unittest

import support

MEGABYTE = 1048576


class Demo(support.TestCase):
    def demo(self, *arguments):
        return support.run(support.SCRIPTS / "demo", "--built", support.BUILD, *arguments)

    def assert_stored(self, done, size):
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("byte for byte", done.stdout)
        self.assertEqual(done.stdout.count(f"  {size} bytes  "), 2 if size == 0 else 3)
        self.assertIn("CUploadServer::OnConnect", done.stdout)
        self.assertIn("CDownloadServer::OnConnect", done.stdout)
        self.assertIn("CTcpClient::ConnectThreadTask", done.stdout)

    def file(self, size):
        return self.write("sample.bin", (b"0123456789abcdef" * (size // 16 + 1))[:size])

    def test_it_sends_the_library_there_and_back_when_nothing_is_named(self):
        done = self.demo()
        self.assert_stored(done, support.LIBRARY.stat().st_size)
        self.assertIn("100 %", done.stderr)

    def test_it_shows_what_the_clients_report_for_an_empty_file(self):
        done = self.demo(self.file(0))
        self.assert_stored(done, 0)
        self.assertIn("2003", done.stderr)
        self.assertIn("an empty file is never complete", done.stderr)
        self.assertIn("an empty one cannot be fetched", done.stdout)

    def test_it_shows_both_reports_for_exactly_one_block(self):
        done = self.demo(self.file(MEGABYTE))
        self.assert_stored(done, MEGABYTE)
        self.assertIn("2003", done.stderr)
        self.assertIn("tarn: stored as", done.stdout)

    def test_it_sends_thirty_megabytes(self):
        self.assert_stored(self.demo(self.file(30000000)), 30000000)

    def test_it_refuses_a_file_that_is_not_there(self):
        self.assertEqual(self.demo(self.folder / "none").returncode, 1)


if __name__ == "__main__":
    unittest.main()

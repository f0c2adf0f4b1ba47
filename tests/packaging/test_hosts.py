"""Hosts from elsewhere: programs built with nothing but the public headers and the library file."""

import pathlib
import re
import shutil
import socket
import unittest

import support

HOSTS = pathlib.Path(__file__).resolve().parent / "hosts"
LINKERS = [name for name in ("bfd", "gold", "lld") if shutil.which(f"ld.{name}")]


class Hosts(support.TestCase):
    def setUp(self):
        super().setUp()
        self.installed = self.folder / "installed"
        shutil.copytree(support.SOURCE / "include", self.installed / "include")
        (self.installed / "lib").mkdir()
        shutil.copy2(support.LIBRARY, self.installed / "lib")

    def build(self, source, compiler="g++", standard="c++11", *options):
        """A program in a folder of its own, which looks for the library as hosts do."""
        program = self.folder / "app" / pathlib.Path(source).stem
        program.parent.mkdir(exist_ok=True)
        support.output(compiler, f"-std={standard}", "-Wall", "-Wextra", "-Werror", "-pthread",
                       f"-I{self.installed / 'include'}", HOSTS / source, "-o", program, *options)
        return program

    def linked(self, *options):
        return [f"-L{self.installed / 'lib'}", "-lTarn.Generic", "-Wl,-rpath,$ORIGIN:$ORIGIN/libs", *options]

    def place(self, program, where):
        folder = program.parent / where
        folder.mkdir(exist_ok=True)
        for old in program.parent.rglob("libTarn.Generic.so"):
            old.unlink()
        shutil.copy2(support.LIBRARY, folder)

    def assert_runs(self, program, *arguments):
        done = support.run(program, *arguments, env={}, cwd=self.folder)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)

    def test_they_find_it_beside_themselves_and_in_libs(self):
        for compiler in support.compilers():
            for standard in ("c++11", "c++20"):
                with self.subTest(compiler=compiler, standard=standard):
                    program = self.build("host.cpp", compiler, standard, *self.linked())
                    for where in (".", "libs"):
                        self.place(program, where)
                        self.assert_runs(program)

    def test_the_example_of_the_readme_is_one(self):
        code = re.search(r"^```cpp\n(.*?)^```", (support.SOURCE / "README.md").read_text(), re.M | re.S).group(1)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = str(probe.getsockname()[1])
        program = self.build(self.write("example.cpp", code.replace("50123", port)), "g++", "c++11", *self.linked())
        self.place(program, ".")
        done = support.run(program, env={}, cwd=self.folder)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("code 0, stored as 2", done.stdout)
        self.assertEqual(len(list(self.folder.glob("received\\*"))), 1)

    def test_they_do_not_start_without_it(self):
        program = self.build("host.cpp", "g++", "c++11", *self.linked())
        self.assertNotEqual(support.run(program, env={}).returncode, 0)

    def test_they_load_call_and_unload_it_twice(self):
        program = self.build("loader.cpp", "g++", "c++11", "-ldl")
        self.assert_runs(program, self.installed / "lib/libTarn.Generic.so")

    def test_they_find_cjson_in_it_whatever_links_them(self):
        self.assertIn("bfd", LINKERS)
        for linker in LINKERS:
            with self.subTest(linker=linker):
                program = self.build("json_host.cpp", "g++", "c++11", *self.linked(f"-fuse-ld={linker}"))
                needed = support.output("readelf", "-dW", program)
                self.assertNotIn("libcjson", needed)
                self.place(program, ".")
                self.assert_runs(program)

    def test_they_may_link_libcjson_as_well_in_either_order(self):
        for options in (self.linked("-lcjson"), ["-lcjson", *self.linked()]):
            program = self.build("json_host.cpp", "g++", "c++11", "-Wl,--no-as-needed", *options)
            self.place(program, ".")
            self.assert_runs(program)

    def test_they_find_cjson_by_name_and_it_is_the_only_one(self):
        program = self.build("json_loader.cpp", "g++", "c++11", "-ldl")
        self.assert_runs(program, self.installed / "lib/libTarn.Generic.so")


if __name__ == "__main__":
    unittest.main()

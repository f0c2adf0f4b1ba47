"""Hosts from elsewhere: programs built with nothing but the public headers and the library file."""

import os
import pathlib
import re
import shutil
import socket
import tempfile
import unittest

import support

HOSTS = pathlib.Path(__file__).resolve().parent / "hosts"
LINKERS = [name for name in ("bfd", "gold", "lld") if shutil.which(f"ld.{name}")]


STANDARDS = ("c++11", "c++20")


class Hosts(support.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="tarn-installed-")
        cls.addClassCleanup(folder.cleanup)
        cls.installed = pathlib.Path(folder.name)
        support.output("cmake", "--install", support.BUILD, "--prefix", cls.installed, env=os.environ | {"DESTDIR": ""})
        cls.library = next(cls.installed.rglob("libTarn.Generic.so"))

    def build(self, source, compiler="g++", standard="c++11", *options):
        """A program in a folder of its own, which looks for the library as hosts do."""
        program = self.folder / "app" / pathlib.Path(source).stem
        program.parent.mkdir(exist_ok=True)
        support.output(compiler, f"-std={standard}", "-Wall", "-Wextra", "-Werror", "-pthread",
                       f"-I{self.installed / 'include'}", HOSTS / source, "-o", program, *options)
        return program

    def linked(self, *options):
        return [f"-L{self.library.parent}", "-lTarn.Generic", "-Wl,-rpath,$ORIGIN:$ORIGIN/libs", *options]

    def place(self, program, where):
        folder = program.parent / where
        folder.mkdir(exist_ok=True)
        for old in program.parent.rglob("libTarn.Generic.so"):
            old.unlink()
        shutil.copy2(self.library, folder)

    def assert_runs(self, program, *arguments):
        done = support.run(program, *arguments, env={}, cwd=self.folder)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)

    def test_they_find_it_beside_themselves_and_in_libs(self):
        for compiler in support.compilers():
            for standard in STANDARDS:
                with self.subTest(compiler=compiler, standard=standard):
                    program = self.build("host.cpp", compiler, standard, *self.linked())
                    for where in (".", "libs"):
                        self.place(program, where)
                        self.assert_runs(program)

    def test_the_library_finds_its_own_libraries_there_as_well(self):
        program = self.build("json_host.cpp", "g++", "c++11", *self.linked())
        for place, others in ((".", "libs"), (".", "."), ("libs", "libs")):
            with self.subTest(place=place, others=others):
                self.place(program, place)
                cjson = program.parent / others / "libcjson.so.1"
                cjson.parent.mkdir(exist_ok=True)
                shutil.copy2(system_library("libcjson.so.1"), cjson)
                found = support.output("ldd", program, env={"PATH": os.environ["PATH"]})
                self.assertIn(os.path.realpath(cjson), {os.path.realpath(path) for path in re.findall(r"=> (\S+)", found)})
                self.assert_runs(program)
                cjson.unlink()

    def test_they_see_one_layout_whatever_compiles_them(self):
        layout = support.SOURCE / "tests/abi/LayoutTest.cpp"
        for compiler in support.compilers():
            for standard in STANDARDS:
                with self.subTest(compiler=compiler, standard=standard):
                    support.output(compiler, f"-std={standard}", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                                   f"-I{self.installed / 'include'}", layout)

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
        self.assertNotIn("libTarn", support.output("readelf", "-dW", program))
        self.assert_runs(program, self.library)

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
        self.assert_runs(program, self.library)


def system_library(name):
    cache = support.output("ldconfig", "-p", env=os.environ | {"PATH": os.environ["PATH"] + ":/sbin:/usr/sbin"})
    return re.search(rf"^\s*{re.escape(name)} \(libc6,x86-64[^)]*\) => (\S+)", cache, re.M).group(1)


if __name__ == "__main__":
    unittest.main()

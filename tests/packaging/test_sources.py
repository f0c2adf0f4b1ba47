"""The sources as a whole: layering, public headers, scripts. Each check is shown to catch its fault."""

import os
import re
import shutil
import unittest

import support


class Layering(support.TestCase):
    def check(self):
        return support.run(support.SCRIPTS / "check-layering", self.folder)

    def copy_project(self):
        for name in ("utility", "include", "tools", "cmake"):
            shutil.copytree(support.SOURCE / name, self.folder / name)

    def append(self, name, text):
        path = self.folder / name
        path.write_text(path.read_text() + text)

    def assert_caught(self, name, include):
        self.copy_project()
        self.append(name, f"#include {include}\n")
        done = self.check()
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"{name} must not include {include.strip('<>').strip(chr(34))}", done.stderr)

    def test_no_include_points_upwards(self):
        done = support.run(support.SCRIPTS / "check-layering")
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_a_copy_of_the_project_passes(self):
        self.copy_project()
        self.assertEqual(self.check().returncode, 0)

    def test_a_family_that_includes_a_higher_one_is_caught(self):
        self.assert_caught("utility/StringEx.cpp", "<Tarn/Generic/TcpClient.h>")

    def test_a_family_that_includes_a_higher_private_header_is_caught(self):
        self.assert_caught("utility/Lock.cpp", '"utility/Deque.h"')

    def test_a_public_header_that_includes_a_higher_one_is_caught(self):
        self.assert_caught("include/Tarn/Generic/Lock.h", "<Tarn/Generic/AsyncLog.h>")

    def test_a_public_header_that_includes_a_private_one_is_caught(self):
        self.assert_caught("include/Tarn/Generic/StringEx.h", '"utility/core/Format.h"')

    def test_logic_that_includes_the_platform_is_caught(self):
        for header in ('"utility/os/Handle.h"', "<unistd.h>", "<thread>", "<sys/socket.h>", "<Tarn/Generic/Lock.h>"):
            with self.subTest(header=header):
                for old in self.folder.iterdir():
                    shutil.rmtree(old)
                self.assert_caught("utility/core/Format.cpp", header)

    def test_a_platform_wrapper_that_includes_a_family_is_caught(self):
        self.assert_caught("utility/os/Wait.cpp", "<Tarn/Generic/StringEx.h>")

    def test_a_tool_that_includes_a_private_header_is_caught(self):
        self.assert_caught("tools/Hash.cpp", '"utility/core/HexText.h"')

    def test_an_include_without_its_full_path_is_caught(self):
        self.assert_caught("utility/TcpClient.cpp", '"TcpClient.h"')

    def test_a_file_that_the_map_does_not_name_is_caught(self):
        self.copy_project()
        self.write("utility/core/Stray.cpp", "")
        done = self.check()
        self.assertEqual(done.returncode, 1)
        self.assertIn("does not name core/Stray", done.stderr)

    def test_a_map_that_names_a_file_in_vain_is_caught(self):
        self.copy_project()
        self.append("utility/README.md", "| `Gone` | | | |\n")
        done = self.check()
        self.assertEqual(done.returncode, 1)
        self.assertIn("names Gone", done.stderr)


    def test_a_map_that_claims_a_foundation_in_vain_is_caught(self):
        self.copy_project()
        readme = self.folder / "utility/README.md"
        readme.write_text(re.sub(r"(\| `SyncEvent` \|[^|]*\|)", r"\1 `Log`, ", readme.read_text()))
        done = self.check()
        self.assertEqual(done.returncode, 1)
        self.assertIn("SyncEvent builds on Log", done.stderr)

    def test_families_that_are_built_in_another_order_are_caught(self):
        self.copy_project()
        sources = self.folder / "cmake/TarnSources.cmake"
        sources.write_text(re.sub(r"( *utility/Md5.cpp\n)( *utility/Sha256.cpp\n)", r"\2\1", sources.read_text()))
        done = self.check()
        self.assertEqual(done.returncode, 1)
        self.assertIn("different orders", done.stderr)


class Headers(support.TestCase):
    def check(self):
        return support.run(support.SCRIPTS / "check-headers", self.folder / "include", timeout=580)

    def include(self, **headers):
        """A folder with the umbrella and the given headers."""
        umbrella = "".join(f"#include <Tarn/Generic/{name}.h>\n" for name in headers)
        for name, text in {"Generic": umbrella, **headers}.items():
            self.write(f"include/Tarn/Generic/{name}.h", "#pragma once\n" + text)

    def assert_caught(self, text):
        done = self.check()
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertIn(text, done.stderr)

    def test_each_compiles_alone_and_the_umbrella_has_them_all(self):
        done = support.run(support.SCRIPTS / "check-headers", timeout=580)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_good_ones_pass(self):
        self.include(A="int a();\n", B="#include <Tarn/Generic/A.h>\n")
        self.assertEqual(self.check().returncode, 0)

    def test_one_that_needs_another_first_is_caught(self):
        self.include(A="struct a {};\n", B="a b();\n")
        self.assert_caught("B.h with g++ -std=c++11")

    def test_one_that_needs_a_newer_standard_is_caught(self):
        self.include(A="auto a() { return 1; }\n")
        self.assert_caught("A.h with g++ -std=c++11")

    def test_one_with_a_warning_is_caught(self):
        self.include(A="inline int a(int unused) { return 1; }\n")
        self.assert_caught("unused")

    def test_one_that_the_umbrella_lacks_is_caught(self):
        self.include(A="int a();\n")
        self.write("include/Tarn/Generic/B.h", "#pragma once\n")
        self.assert_caught("Generic.h does not include B.h")


class Scripts(support.TestCase):
    def scripts(self):
        folders = (support.SCRIPTS, support.SOURCE / ".ci")
        return [path for folder in folders for path in sorted(folder.iterdir()) if path.is_file()]

    def test_all_can_be_run(self):
        self.assertEqual([p.name for p in self.scripts() if not os.access(p, os.X_OK)], [])

    def test_shellcheck_finds_nothing_in_the_shell_scripts(self):
        shell = [p for p in self.scripts() if "bash" in p.read_text().splitlines()[0]]
        self.assertGreater(len(shell), 4)
        done = support.run("shellcheck", *shell)
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_setup_asks_for_nothing_when_all_is_there(self):
        fake = self.write("bin/apt-get", "#!/bin/sh\necho apt-get was called\nexit 9\n")
        fake.chmod(0o755)
        self.write("bin/dpkg-query", "#!/bin/sh\nprintf installed\n").chmod(0o755)
        done = self.setup()
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_setup_installs_what_is_missing_without_questions(self):
        self.write("bin/apt-get", '#!/bin/sh\necho "$DEBIAN_FRONTEND $*"\n').chmod(0o755)
        self.write("bin/sudo", '#!/bin/sh\nexec "$@"\n').chmod(0o755)
        self.write("bin/dpkg-query", '#!/bin/sh\ncase "$*" in *uuid-dev) exit 1;; esac\nprintf installed\n').chmod(0o755)
        done = self.setup()
        self.assertEqual(done.returncode, 0, done.stderr)
        update, install = done.stdout.splitlines()[1:]
        self.assertRegex(update, "^noninteractive .* update$")
        self.assertRegex(install, "^noninteractive .* install -y .* uuid-dev$")

    def setup(self):
        path = f"{self.folder / 'bin'}:{os.environ['PATH']}"
        return support.run(support.SCRIPTS / "setup", env={**os.environ, "PATH": path})

    def test_test_refuses_unknown_arguments(self):
        self.assertEqual(support.run(support.SCRIPTS / "test", "--unknown").returncode, 2)


if __name__ == "__main__":
    unittest.main()

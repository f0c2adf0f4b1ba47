"""The library file: its names, its dependencies and what it exports."""

import collections
import json
import pathlib
import re
import shutil
import unittest

import support

RUNTIME = {"libc.so.6", "libm.so.6", "libstdc++.so.6", "libgcc_s.so.1", "libcjson.so.1", "libuuid.so.1"}
CJSON_HEADER = pathlib.Path("/usr/include/cjson/cJSON.h")
# Mangled names of what hosts may call; other namespaces of ours stay hidden.
OURS = re.compile(r"_ZN?K?(4Tarn7Generic|4Tarn\d+\w+E|3MD5|lsRSo)")
PUBLIC = support.SOURCE / "include/Tarn/Generic"


def dynamic(tag):
    text = support.output("readelf", "-dW", support.LIBRARY)
    return re.findall(rf"\({tag}\).*?\[(.*?)\]", text)


def cjson_functions():
    text = re.sub(r"/\*.*?\*/", "", CJSON_HEADER.read_text(), flags=re.S)
    return set(re.findall(r"^CJSON_PUBLIC\([^)]*\)\s*(cJSON_\w+)\(", text, re.M))


class LibraryFile(support.TestCase):
    def test_the_soname_is_the_file_name(self):
        self.assertEqual(dynamic("SONAME"), ["libTarn.Generic.so"])

    def test_the_run_path_is_its_own_folder_and_libs(self):
        self.assertEqual(dynamic("RUNPATH"), ["$ORIGIN:$ORIGIN/libs"])
        self.assertEqual(dynamic("RPATH"), [])

    def test_nothing_but_the_promised_libraries_is_needed(self):
        needed = set(dynamic("NEEDED"))
        self.assertLessEqual(needed, RUNTIME)
        self.assertLessEqual({"libc.so.6", "libcjson.so.1"}, needed)

    def test_its_thread_local_data_fits_where_late_loaders_keep_room(self):
        segment = re.search(r"^ *TLS +(?:0x\w+ +){4}(0x\w+)", support.output("readelf", "-lW", support.LIBRARY), re.M)
        self.assertLessEqual(int(segment.group(1), 16) if segment else 0, 512)

    def test_it_carries_debug_data_and_is_bound_at_load(self):
        self.assertIn(".debug_info", support.output("readelf", "-SW", support.LIBRARY))
        flags = support.output("readelf", "-dW", support.LIBRARY)
        for flag in ("NOW", "NODELETE"):
            self.assertIn(flag, flags)

    def test_no_path_of_the_build_machine_is_needed_to_run_it(self):
        for tag in ("NEEDED", "RUNPATH", "SONAME"):
            self.assertFalse([entry for entry in dynamic(tag) if "/" in entry.replace("$ORIGIN/libs", "")])


class Exports(support.TestCase):
    def test_they_are_the_checked_in_list(self):
        listed = (support.SOURCE / "tests/packaging/exports.txt").read_text().splitlines()
        built = support.output(support.SCRIPTS / "list-exports", support.LIBRARY).splitlines()
        lost, new = sorted(set(listed) - set(built)), sorted(set(built) - set(listed))
        told = support.output("c++filt", input="\n".join(["lost:", *lost, "new:", *new]))
        self.assertEqual((lost, new), ([], []), f"scripts/renew-exports renews the list.\n{told}")

    def test_every_cjson_function_is_among_them(self):
        functions = cjson_functions()
        self.assertGreater(len(functions), 70)
        kinds = support.exported()
        self.assertEqual({name for name in functions if kinds.get(name) != "T"}, set())

    def test_no_internal_name_is_among_them(self):
        names = support.output("c++filt", input="\n".join(support.exported())).splitlines()
        self.assertEqual([n for n in names if re.search(r"Tarn::(Core|Os)::|anonymous|\bstd::\w+<.*>::", n)
                          and not n.startswith("Tarn::Generic::")], [])

    @unittest.skipUnless(shutil.which("clang++"), "reads the headers through clang")
    def test_everything_that_the_public_headers_declare_is_among_them(self):
        headers = [f"<Tarn/Generic/{header.name}>" for header in PUBLIC.glob("*.h")]
        declared = {function.name for function in declarations(headers, "Tarn")}
        declared |= {function.name for function in declarations(headers, "MD5")}
        self.assertGreater(len(declared), 150)
        self.assertEqual(sorted(declared - set(support.exported())), [])

    @unittest.skipUnless(shutil.which("clang++"), "reads the headers through clang")
    def test_the_concrete_classes_behind_the_factories_are_among_them(self):
        headers = [f'"utility/{header.name}"' for header in (support.SOURCE / "utility").glob("*.h")]
        declared = {function.name for function in declarations(headers, "Tarn") if function.marked}
        self.assertGreater(len(declared), 50)
        self.assertEqual(sorted(declared - set(support.exported())), [])

    def test_the_global_functions_and_data_are_among_them(self):
        names = set(support.output("c++filt", input="\n".join(support.exported())).splitlines())
        names = {re.sub(r"(\[abi:\w+\])?\(.*", "", name) for name in names}
        declared = {name for header in PUBLIC.glob("*.h")
                    for name in re.findall(r"^(?:extern )?TARN_API [^;({]*?(\w+)(?:\[\d+\])?[;(]", header.read_text(),
                                           re.M)}
        self.assertGreater(len(declared), 20)
        self.assertEqual(sorted(name for name in declared - names if f"Tarn::{name}" not in names), [])

    def test_every_polymorphic_class_brings_its_virtual_table_and_type_information(self):
        kinds = support.exported()
        classes = polymorphic_classes()
        self.assertGreater(len(classes), 10)
        self.assertEqual([prefix + name for name in classes for prefix in ("_ZTV", "_ZTI", "_ZTS")
                          if f"{prefix}N4Tarn7Generic{len(name)}{name}E" not in kinds], [])


def polymorphic_classes():
    found = set()
    for header in [*PUBLIC.glob("*.h"), *(support.SOURCE / "utility").glob("*.h")]:
        for name, bases, body in re.findall(r"^class TARN_API (\w+)([^;{]*)\{(.*?)^\};", header.read_text(), re.M | re.S):
            if re.search(r"^\s*virtual ", body, re.M) or ": public I" in bases:
                found.add(name)
    return sorted(found)


Function = collections.namedtuple("Function", "name marked")


def declarations(headers, name_filter):
    """The functions that headers declare without defining them in place, as clang reads them."""
    source = "".join(f"#include {header}\n" for header in headers)
    dump = support.output("clang++", "-std=c++20", f"-I{support.SOURCE}", f"-I{support.SOURCE / 'include'}",
                          "-fsyntax-only", "-Xclang", "-ast-dump=json", "-Xclang", f"-ast-dump-filter={name_filter}",
                          "-xc++", "-", input=source)
    decoder = json.JSONDecoder()
    position = dump.find("{")
    while position >= 0:
        tree, position = decoder.raw_decode(dump, position)
        yield from functions_below(tree, False)
        position = dump.find("{", position)


def functions_below(node, marked):
    inner = node.get("inner", [])
    kinds = {child.get("kind") for child in inner}
    marked = marked or "VisibilityAttr" in kinds
    function = node.get("kind") in ("FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl")
    elsewhere = not ({"pure", "isImplicit", "explicitlyDefaulted", "explicitlyDeleted", "inline"} & set(node)
                     or "CompoundStmt" in kinds)
    if function and elsewhere and OURS.match(node.get("mangledName", "")):
        yield Function(node["mangledName"], marked)
    for child in inner:
        yield from functions_below(child, marked)


if __name__ == "__main__":
    unittest.main()

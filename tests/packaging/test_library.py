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
EXPORTS = pathlib.Path(__file__).resolve().parent / "exports.txt"
# Public operations that the classes behind the factories offer each other, not hosts.
AMONG_OURSELVES = {"TryPush", "WritePieces"}
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
        listed = EXPORTS.read_text().splitlines()
        built = support.output(support.SCRIPTS / "list-exports", support.LIBRARY).splitlines()
        lost, new = sorted(set(listed) - set(built)), sorted(set(built) - set(listed))
        told = support.output("c++filt", input="\n".join(["lost:", *lost, "new:", *new]))
        self.assertEqual((lost, new), ([], []), f"scripts/renew-exports renews the list.\n{told}")

    def test_the_list_tells_the_size_and_the_bytes_of_data(self):
        listed = {name: rest for kind, _, name, *rest in map(str.split, EXPORTS.read_text().splitlines())
                  if kind == "OBJECT"}
        self.assertEqual(listed["g_nOutTerminal"], ["4", "00000000"])
        self.assertEqual(listed["g_nOutLevel"], ["4", "04000000"])
        self.assertEqual(listed["Table_CRC8"], ["256", bytes(map(crc8_entry, range(256))).hex()])
        self.assertEqual(listed["sm_chain0"], ["32", "00" * 32])
        self.assertEqual(listed["sm_szErrorMsg1"], ["23", b"Object not Initialized\0".hex()])
        self.assertEqual(listed["sm_szErrorMsg2"], ["32", b"Data not multiple of Block Size\0".hex()])
        # An address in front of the slots, one in front of that, one a slot.
        self.assertEqual(listed["_ZTVN4Tarn7Generic6IDequeE"], [str((2 + 12) * 8)])

    def test_every_cjson_function_is_among_them(self):
        functions = cjson_functions()
        self.assertGreater(len(functions), 70)
        kinds = support.exported()
        self.assertEqual({name for name in functions if kinds.get(name) != "FUNC"}, set())

    def test_no_internal_name_is_among_them(self):
        names = support.output("c++filt", input="\n".join(support.exported())).splitlines()
        self.assertEqual([n for n in names if re.search(r"Tarn::(Core|Os)::|anonymous|\bstd::\w+<.*>::", n)
                          and not n.startswith("Tarn::Generic::")], [])

    @unittest.skipUnless(shutil.which("clang++"), "reads the headers through clang")
    def test_everything_that_the_public_headers_declare_is_among_them(self):
        headers = [f"<Tarn/Generic/{header.name}>" for header in PUBLIC.glob("*.h")]
        declared = {function.mangled for function in declarations(headers, "Tarn")}
        declared |= {function.mangled for function in declarations(headers, "MD5")}
        self.assertGreater(len(declared), 150)
        self.assertEqual(sorted(declared - set(support.exported())), [])

    @unittest.skipUnless(shutil.which("clang++"), "reads the headers through clang")
    def test_the_classes_behind_the_factories_are_among_them_without_their_helpers(self):
        headers = [f'"utility/{header.name}"' for header in (support.SOURCE / "utility").glob("*.h")]
        declared = [function for function in declarations(headers, "Tarn") if function.marked]
        helpers = {function.mangled for function in declared if function.private or function.name in AMONG_OURSELVES}
        promised = {function.mangled for function in declared} - helpers
        self.assertGreater(len(helpers), 50)
        self.assertGreater(len(promised), 150)
        exported = set(support.exported())
        self.assertEqual((sorted(promised - exported), sorted(helpers & exported)), ([], []))

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
        self.assertGreater(len(classes), 30)
        self.assertEqual([prefix + name for name in classes for prefix in ("_ZTV", "_ZTI", "_ZTS")
                          if kinds.get(prefix + name) != "OBJECT"], [])


def crc8_entry(value):
    for _ in range(8):
        value = value >> 1 ^ (0x8C if value & 1 else 0)
    return value ^ 0x21


def polymorphic_classes():
    """The mangled names of the classes with virtual operations."""
    found = set()
    for header in [*PUBLIC.glob("*.h"), *(support.SOURCE / "utility").glob("*.h")]:
        text = header.read_text()
        for match in re.finditer(r"^class TARN_API (\w+)([^;{]*)\{(.*?)^\};", text, re.M | re.S):
            name, bases, body = match.groups()
            if re.search(r"^\s*virtual ", body, re.M) or ": public I" in bases:
                found.add(mangled(name, text[:match.start()]))
    return sorted(found)


def mangled(name, text_before):
    inside = len(re.findall(r"^namespace ", text_before, re.M)) > len(re.findall(r"^\}  // namespace", text_before, re.M))
    plain = f"{len(name)}{name}"
    return f"N4Tarn7Generic{plain}E" if inside else plain


Function = collections.namedtuple("Function", "name mangled marked private")


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
        yield from functions_below(tree, False, False)
        position = dump.find("{", position)


def functions_below(node, marked, private):
    inner = node.get("inner", [])
    kinds = {child.get("kind") for child in inner}
    marked = marked or "VisibilityAttr" in kinds
    function = node.get("kind") in ("FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl")
    elsewhere = not ({"pure", "isImplicit", "explicitlyDefaulted", "explicitlyDeleted", "inline"} & set(node)
                     or "CompoundStmt" in kinds)
    if function and elsewhere and OURS.match(node.get("mangledName", "")):
        yield Function(node["name"], node["mangledName"], marked, private)
    private = private or node.get("tagUsed") == "class"
    for child in inner:
        if child.get("kind") == "AccessSpecDecl":
            private = child.get("access") != "public"
        yield from functions_below(child, marked, private)


if __name__ == "__main__":
    unittest.main()

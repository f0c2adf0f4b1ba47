"""The binary interface against the baseline in abi/: hosts are not compiled again for a new library."""

import re
import unittest

import support

BASELINE = support.SOURCE / "abi/libTarn.Generic.abi"
# Additions break no host; the list of exports shows them.
COMPARE = ("abidiff", "--leaf-changes-only", "--no-added-syms")


class Abi(support.TestCase):
    def setUp(self):
        super().setUp()
        self.described = support.output(support.SCRIPTS / "describe-abi", support.LIBRARY)

    def compare(self, described):
        return support.run(*COMPARE, BASELINE, self.write("now.abi", described))

    def test_nothing_changed_for_hosts(self):
        done = self.compare(self.described)
        self.assertEqual(done.returncode, 0, f"scripts/renew-abi takes a change as the new baseline.\n{done.stdout}")

    def test_a_changed_slot_place_value_or_result_would_be_seen(self):
        changes = (
            (r'(name="Isconnect" [^\n]*>\n(?:[^\n]*\n)*?<return type-id=")[^"]+', r"\g<1>" + self.type_id("unsigned int")),
            (r'(vtable-offset=")4("[^\n]*\n<function-decl name="Isconnect")', r"\g<1>3\2"),
            (r'(layout-offset-in-bits=")128(">\n<var-decl name="m_thread")', r"\g<1>192\2"),
            (r'(name="CONN_ERROR" value=")4', r"\g<1>2"),
            (r'(name="sector_info" size-in-bits=")320', r"\g<1>384"),
        )
        for pattern, replacement in changes:
            with self.subTest(pattern=pattern):
                changed, count = re.subn(pattern, replacement, self.described)
                self.assertGreater(count, 0)
                self.assertNotEqual(changed, self.described)
                self.assertNotEqual(self.compare(changed).returncode, 0)

    def type_id(self, name):
        return re.search(rf'<type-decl name="{name}" [^>]*id="([^"]+)"', self.described).group(1)

    def test_the_baseline_describes_every_class_that_hosts_may_use(self):
        declared = declared_in("include/Tarn/Generic", r"^(?:class|struct) (?:TARN_API )?(\w+)[^;{]*\{")
        declared |= declared_in("utility", r"^class TARN_API (\w+)[^;{]*\{")
        self.assertGreater(len(declared), 50)
        described = set(re.findall(r'<class-decl name="(\w+)"', BASELINE.read_text()))
        self.assertEqual(sorted(declared - described), [])

    def test_the_baseline_knows_no_machine(self):
        self.assertNotIn('="/', BASELINE.read_text())
        paths = set(re.findall(r' path="([^"]+)"', BASELINE.read_text()))
        self.assertEqual({path for path in paths if not (support.SOURCE / path).is_file()}, set())


def declared_in(folder, pattern):
    return {name for header in (support.SOURCE / folder).glob("*.h")
            for name in re.findall(pattern, header.read_text(), re.M)}


if __name__ == "__main__":
    unittest.main()

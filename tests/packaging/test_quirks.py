"""The page on oddities that stay: every row names tests that hold it, and every such test has its row."""

import re
import shutil
import unittest

import support

PAGE = "docs/quirks.md"
COLUMNS = 5  # what happens, an example, who relies on it, safe use, tests

TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)


def kept(root):
    """All GoogleTest cases whose name ends in Kept. Those with parameters or types go without these."""
    cases = set()
    for path in (root / "tests").rglob("*.cpp"):
        cases.update(f"{suite}.{case}" for suite, case in TEST.findall(path.read_text()) if case.endswith("Kept"))
    return cases


def rows(root):
    """The cells of all rows but the heads of the tables."""
    for line in (root / PAGE).read_text().splitlines():
        if line.startswith("|") and not line.startswith(("| What happens |", "|---")):
            yield [cell.strip() for cell in line.split("|")[1:-1]]


def problems(root):
    """What is wrong with the page, as sentences."""
    cases, named, found = kept(root), set(), []
    for cells in rows(root):
        if len(cells) != COLUMNS or not all(cells):
            found.append(f"not {COLUMNS} filled cells: {cells[0]}")
            continue
        tests = set(re.findall(r"`(\w+\.\w+)`", cells[-1]))
        found += [f"no such test: {test}" for test in sorted(tests - cases)]
        if not tests & cases:
            found.append(f"no test: {cells[0]}")
        named |= tests
    found += [f"no row: {test}" for test in sorted(cases - named)]
    return found


class Quirks(support.TestCase):
    def copy(self):
        for path in (support.SOURCE / "tests").rglob("*.cpp"):
            target = self.folder / path.relative_to(support.SOURCE)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, target)
        (self.folder / "docs").mkdir()
        shutil.copy(support.SOURCE / PAGE, self.folder / PAGE)

    def assert_caught(self, *expected):
        """The copy has these problems and the project itself has not."""
        self.assertEqual(sorted(set(problems(self.folder)) - set(problems(support.SOURCE))), sorted(expected))

    def change(self, name, old, new):
        path = self.folder / name
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))

    def test_page_and_tests_agree(self):
        self.assertGreater(len(list(rows(support.SOURCE))), 150)
        self.assertEqual(problems(support.SOURCE), [])

    def test_a_row_that_is_gone_is_caught(self):
        self.copy()
        path = self.folder / PAGE
        lines = path.read_text().splitlines(keepends=True)
        path.write_text("".join(line for line in lines if "CLockEx" not in line))
        self.assert_caught("no row: LockExTest.CopiesTheWholeMutexWithItsKindKept",
                           "no row: LockExTest.LeavesTheCallersMutexUnlockedKept")

    def test_a_test_that_is_gone_is_caught(self):
        self.copy()
        self.change("tests/SettingTest.cpp", "GetStringSharesOneBufferKept", "GetStringSharesOneBuffer")
        self.assert_caught("no such test: Setting.GetStringSharesOneBufferKept")

    def test_a_row_without_any_test_is_caught(self):
        self.copy()
        self.change("tests/CrcTest.cpp", "TenMillionBytesAreTheLimitKept", "TenMillionBytesAreTheLimit")
        self.assert_caught("no such test: Crc8.TenMillionBytesAreTheLimitKept",
                           "no test: CRC-8 of more than 10,000,000 bytes is 0.")

    def test_a_test_of_a_new_oddity_is_caught(self):
        self.copy()
        self.change("tests/AesTest.cpp", "(Aes, NullPointersAreHarmless)", "(Aes, NullPointersAreHarmlessKept)")
        self.assert_caught("no row: Aes.NullPointersAreHarmlessKept")

    def test_an_empty_cell_is_caught(self):
        self.copy()
        self.change(PAGE, "| Copy the spelling. |", "| |")
        self.assertIn("not 5 filled cells: Some operations are misspelt.", problems(self.folder))


if __name__ == "__main__":
    unittest.main()

"""The page on threads: the tests that it names exist."""

import re
import unittest

import support

PAGE = support.SOURCE / "docs/threads.md"


def defined():
    """The names of all GoogleTest cases."""
    cases = set()
    for path in (support.SOURCE / "tests").rglob("*.cpp"):
        cases.update(re.findall(r"^TEST(?:_F)?\(\s*(\w+),\s*(\w+)\)", path.read_text(), re.MULTILINE))
    return {".".join(case) for case in cases}


class ThreadsPage(support.TestCase):
    def test_every_test_that_it_names_exists(self):
        named = set(re.findall(r"`(\w+\.\w+)`", PAGE.read_text()))
        self.assertTrue(named)
        self.assertEqual(named - defined(), set())

    def test_it_names_every_test_of_the_rules(self):
        rules = re.findall(r"^TEST_?F?\(\s*(\w+),\s*(\w+)\)",
                           (support.SOURCE / "tests/ThreadRulesTest.cpp").read_text(), re.MULTILINE)
        text = PAGE.read_text()
        self.assertEqual([case for case in map(".".join, rules) if f"`{case}`" not in text], [])


if __name__ == "__main__":
    unittest.main()

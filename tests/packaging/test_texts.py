"""The texts that the library prints and logs: each stands once in the code and is listed with its place and moment."""

import collections
import re
import shutil
import unittest

import support

LIST = support.SOURCE / "tests/texts.tsv"

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/"""  # comments
    r"""|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*\""""
    r"""|(?<!\w)'(?:\\.|[^'\\\n])+'"""  # a character; digits are separated by the same mark
    r"""|[A-Za-z_]\w*|\d[\w.']*|::|\S""",
    re.DOTALL)

CONVERSION = re.compile(r"%[-+ #0]*[\d*]*(?:\.[\d*]+)?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]")

# Calls that print: which argument is the format, and where it goes. For leveled lines the first argument tells.
PRINTERS = {
    "Trace": (0, "trace log"),
    "TraceEx": (1, "trace log"),
    "OutputDebugStr": (0, "standard output"),
    "WriteLog": (1, "log "),
    "LogLine": (0, "log DEBUG"),
    "printf": (0, "standard output"),
    "puts": (0, "standard output"),
    "perror": (0, "standard error"),
    "fprintf": (1, ""),
    "fputs": (0, ""),
    "fwrite": (0, ""),
}
PLACES = {"trace log", "log DEBUG", "log ERROR", "log m_level", "standard output", "standard error"}

# Calls that hand on what was made elsewhere from listed texts.
HANDED_ON = {
    ("AsyncLog.cpp", "puts"),  # a console line
    ("AsyncLog.cpp", "fwrite"),  # a batch of lines
    ("LineFile.cpp", "fwrite"),  # a line of the trace log
    ("Profile.cpp", "fwrite"),  # a file
    ("Transfer.cpp", "fwrite"),  # a file
}


def tokens(text):
    """The tokens of C++ source without comments; adjacent string literals are one."""
    found = []
    for match in TOKEN.finditer(text):
        token = match.group()
        if token.startswith(("//", "/*")):
            continue
        if token[0] == '"' and found and found[-1][0] == '"':
            found[-1] = found[-1][:-1] + token[1:]
        else:
            found.append(token)
    return found


def arguments(found, start):
    """The arguments of a call whose parenthesis opens at `start`, and where it closes."""
    parts, depth, at = [[]], 0, start
    while True:
        token = found[at]
        depth += token in ("(", "[", "{")
        depth -= token in (")", "]", "}")
        if depth == 0:
            return parts, at
        if token == "," and depth == 1:
            parts.append([])
        elif at != start:
            parts[-1].append(token)
        at += 1


def is_literal(argument):
    return len(argument) == 1 and argument[0][0] == '"'


def place_of(name, parts):
    """Where the text of a printing call goes."""
    place = PRINTERS[name][1]
    if name == "WriteLog":
        return place + "".join(parts[0])
    if place:
        return place
    return "standard error" if ["stderr"] in (parts[0], parts[-1]) else "standard output"


def printed(found):
    """The printing calls: name, format argument, place. Declarations of the same names are none."""
    for at, name in enumerate(found[:-1]):
        if name not in PRINTERS or found[at + 1] != "(":
            continue
        parts, _ = arguments(found, at + 1)
        index = PRINTERS[name][0]
        declares = any(part[:1] == ["const"] or part == [".", ".", "."] for part in parts)
        if index < len(parts) and not declares:
            yield name, parts[index], place_of(name, parts)


def is_text(literal):
    """True for what a reader could take for text: more than conversions, and not one word."""
    rest = CONVERSION.sub("", literal)
    words = re.sub(r"\\.", "", rest)
    return " " in rest or "\\r" in rest or (rest != literal and re.search("[A-Za-z]", words) is not None)


def literals(found):
    """All string literals but those of assertions about the code itself and of includes."""
    at = 0
    while at < len(found):
        if found[at] == "static_assert":
            at = arguments(found, at + 1)[1]
        elif found[at][0] == '"' and found[at - 1] != "include":
            yield found[at][1:-1]
        at += 1


def sources(root):
    return [path for path in sorted((root / "utility").rglob("*")) if path.suffix in (".cpp", ".h")]


def in_code(root):
    """Every text in the code with the places of all its uses, and the calls whose format is no literal."""
    uses, others = collections.defaultdict(list), set()
    for path in sources(root):
        found = tokens(path.read_text())
        calls = list(printed(found))
        places = {argument[0][1:-1]: place for _, argument, place in calls if is_literal(argument)}
        others.update((path.name, name) for name, argument, _ in calls if not is_literal(argument))
        for literal in literals(found):
            if is_text(literal) or (literal in places and CONVERSION.sub("", literal)):
                uses[literal].append(places.get(literal, ""))
    return uses, others


def listed(path):
    """The rows of the list: text to place and moment."""
    rows = [line.split("\t") for line in path.read_text().splitlines() if line and not line.startswith("#")]
    return [(text[1:-1], place, when) for text, place, when in rows]


def problems(root):
    """What differs between the code and its list, as sentences."""
    uses, others = in_code(root)
    rows = listed(root / "tests/texts.tsv")
    places = {text: place for text, place, _ in rows}
    found = [f'listed twice: "{text}"' for text, n in collections.Counter(row[0] for row in rows).items() if n > 1]
    found += [f'no moment: "{text}"' for text, _, when in rows if not when.strip()]
    found += [f'not in the code: "{text}"' for text in places if text not in uses]
    found += [f'not in the list: "{text}"' for text in uses if text not in places]
    found += [f'stands {len(at)} times: "{text}"' for text, at in uses.items() if len(at) > 1]
    for text, at in uses.items():
        listed_place = places.get(text, at[0])
        if at[0] != listed_place and (at[0] or listed_place in PLACES):
            found.append(f'goes to {at[0] or "no printer"}, listed as {listed_place}: "{text}"')
    found += [f"{name} in {file} prints no literal" for file, name in sorted(others - HANDED_ON)]
    return found


class Texts(support.TestCase):
    def copy(self):
        shutil.copytree(support.SOURCE / "utility", self.folder / "utility")
        (self.folder / "tests").mkdir()
        shutil.copy(LIST, self.folder / "tests")

    def change(self, name, old, new):
        path = self.folder / name
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))

    def new_problems(self):
        """Those of the copy that the project itself does not have."""
        return sorted(set(problems(self.folder)) - set(problems(support.SOURCE)))

    def assert_caught(self, *expected):
        self.assertEqual(self.new_problems(), sorted(expected))

    def test_code_and_list_agree(self):
        self.assertEqual(problems(support.SOURCE), [])

    def test_a_copy_agrees_too(self):
        self.copy()
        self.assert_caught()

    def test_a_lost_blank_is_caught(self):
        self.copy()
        self.change("utility/TcpServer.cpp", "bind failed. port", "bind failed.port")
        self.assert_caught('not in the code: "CTcpServer::InitSocket bind failed. port:%d err:%d"',
                           'not in the list: "CTcpServer::InitSocket bind failed.port:%d err:%d"')

    def test_a_lost_blank_at_the_join_of_two_literals_is_caught(self):
        self.copy()
        self.change("utility/DownloadClient.cpp", 'm_len:%d "\n', 'm_len:%d"\n')
        self.assertEqual(len(self.new_problems()), 2)

    def test_a_lost_blank_in_a_tag_is_caught(self):
        self.copy()
        self.change("utility/core/LogText.cpp", '" WARN "', '" WARN"')
        self.assert_caught('not in the code: " WARN "', 'not in the list: " WARN"')

    def test_a_text_that_goes_elsewhere_is_caught(self):
        self.copy()
        self.change("utility/UploadServer.cpp", "WriteLog(ERROR", "WriteLog(WARN")
        self.assert_caught("goes to log WARN, listed as log ERROR: "
                           '"ConnectorLogs  CUploadServer::OnConnect sid:%d cid:%d ip:%s"')

    def test_a_text_that_is_printed_no_more_is_caught(self):
        self.copy()
        self.change("utility/UdpServer.cpp", 'ILog::Trace("setsockopt', 'Ignore("setsockopt')
        self.assert_caught('goes to no printer, listed as trace log: "setsockopt failed."')

    def test_a_second_place_is_caught(self):
        self.copy()
        self.change("utility/LocalIP.cpp", "ioctl error", "socket failed")
        self.assert_caught('not in the code: "ioctl error"', 'stands 2 times: "socket failed"')

    def test_a_text_in_a_comment_does_not_count(self):
        self.copy()
        self.change("utility/LocalIP.cpp", "namespace Tarn {",
                    '// perror("x y");\n/* puts("z z"); */\nnamespace Tarn {')
        self.assert_caught()

    def test_a_new_text_is_caught(self):
        self.copy()
        self.change("utility/LocalIP.cpp", 'std::perror("socket failed");',
                    'std::perror("socket failed"); std::puts("word");')
        self.assert_caught('not in the list: "word"')

    def test_a_format_that_is_no_literal_is_caught(self):
        self.copy()
        self.change("utility/LocalIP.cpp", 'std::perror("socket failed");',
                    'std::perror("socket failed"); std::puts(word);')
        self.assert_caught("puts in LocalIP.cpp prints no literal")


if __name__ == "__main__":
    unittest.main()

"""What the packaging tests share: where things stand, running programs, temporary folders."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("TARN_BUILD", SOURCE / "build/release"))
LIBRARY = BUILD / "libTarn.Generic.so"
COMMAND = BUILD / "bin/tarn"
SCRIPTS = SOURCE / "scripts"
# How much slower than the developers' machine this one may be, as for the other tests.
PATIENCE = max(1, int(os.environ.get("TARN_TEST_PATIENCE", "1")))


def run(*arguments, **options):
    """Runs a program to its end with its output as text."""
    options.setdefault("timeout", 100 * PATIENCE)
    return subprocess.run([str(a) for a in arguments], capture_output=True, text=True, check=False, **options)


def output(*arguments, **options):
    """The standard output of a program that must succeed."""
    done = run(*arguments, **options)
    if done.returncode != 0:
        raise AssertionError(f"{arguments} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def compilers():
    return [name for name in ("g++", "clang++") if shutil.which(name)]


def exported(library=LIBRARY):
    """The exported symbols: name to FUNC or OBJECT."""
    lines = output(SCRIPTS / "list-exports", library).splitlines()
    return {name: kind for kind, _, name, *_ in map(str.split, lines)}


class TestCase(unittest.TestCase):
    """A case with a temporary folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tarn-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.maxDiff = None

    def write(self, name, content):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return path

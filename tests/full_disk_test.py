"""Runs ndk-integrate where not everything fits: under a limit on the size of a file, at every size
from 0 to beyond the largest one, and on a file system that is really full, at every number of free
blocks. Each file is whole at the end, and was whole all the time; the failure names a file; and a
later run puts everything right."""

import concurrent.futures
import os
import re
import subprocess
import tempfile
import unittest

from small_world import (
    MANIFEST, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH, SmallWorld, differences,
    fresh_tree, memory_directory, outside_store, say, versions,
)

# The script writes no file: that would fail too.
ECHO = b'echo "ran with $*"\n'

# A few files end without a line end. Others are short, and grow beyond what is kept of them when
# their placeholders are filled in; one is a single long line.
PACKAGE = {
    SETUP_64: (0o644, b"# " + b"{INSTALL_NOX_INSTALLDIR} " * 8 + b"\n{INSTALL_NOX_VERSION}\n"),
    SETUP_32: (0o640, b"{INSTALL_NOX_VERSION}\nin {INSTALL_NOX_INSTALLDIR}"),
    VARS_SH: (0o755, b"ndk='<NDK_DIR>'; " * 25),
    VARS_CSH: (0o600, b"set ndk = '<NDK_DIR>'\n" * 24),
}

TMP = "tmp"


class Case:
    """A command, the tree that it starts from, and the trees of runs that nothing limits."""

    def __init__(self, world, command, installed_before=False):
        self.command = command
        self.before = {**fresh_tree(PACKAGE, ECHO), TMP: (0o755, None)}
        if installed_before:
            self.before = world.after(self.before, "install")
        self.after = world.after(self.before, command)
        self.is_dry_run = "--dry-run" in command
        self.install = "install" if self.is_dry_run or command == "undo" else command
        self.installed = world.after(self.after, self.install)
        self.undone = world.after(self.installed, "undo")
        # All that a file's bytes are while the command works on it.
        ndk = "other" if "other" in command else "ndk"
        self.versions = {
            name: versions(name, data, world.top, ndk)
            if command != "undo"
            else [data]
            for name, (_, data) in PACKAGE.items()
        }


CASES = {
    "first install": lambda world: Case(world, "install"),
    "second install": lambda world: Case(world, "install", installed_before=True),
    "install for another NDK": lambda world: Case(
        world, "install --ndk other", installed_before=True
    ),
    "undo": lambda world: Case(world, "undo", installed_before=True),
    "dry run": lambda world: Case(world, "install --dry-run"),
}


class OpenFiles:
    """The templates, open for reading while the program runs: a file that was written in place, if
    only for a moment, is not what it was."""

    def __init__(self, world):
        self._files = {name: open(world.path(name), "rb") for name in TEMPLATES}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for file in self._files.values():
            file.close()

    def contents(self):
        return {name: file.read() for name, file in self._files.items()}


class Squeeze:
    """Runs of one case where not everything fits."""

    def __init__(self, name, world):
        self.name = name
        self.world = world
        self.case = CASES[name](world)
        self.failures = []
        self.codes = []
        self._recovered = set()

    def _fail(self, how, what):
        self.failures.append(f"{self.name} {how}: {what}")

    def _expect(self, how, what, actual, expected):
        if actual != expected:
            self._fail(f"{how}, {what}", f"\n{differences(actual, expected)}")

    def run(self, how, limit=None, before=(), make_room=lambda: None):
        """Runs the case's command once. `how` says what does not fit, `limit` is the largest size
        that a file may have, where it is known."""
        world, case = self.world, self.case
        with OpenFiles(world) as files:
            done = world.run(case.command, before=before, env={"TMPDIR": world.path(TMP)})
            seen = files.contents()
        left = world.tree()
        make_room()
        left.pop("filler", None)
        self.codes.append(done.returncode)
        if seen != {name: case.before[name][1] for name in TEMPLATES}:
            self._fail(how, "a template was changed in place")
        self._check_files(how, done, left)
        self._check_message(how, done, left, limit)
        self._recover(how, left)

    def _check_files(self, how, done, left):
        """Each file is old or new, and the output tells which."""
        case = self.case
        told = re.findall(r"^(?:filled in|put back): (.*?)(?: \(\d+ placeholders?\))?$",
                          done.stdout.decode(), re.MULTILINE)
        expected = outside_store(case.before)
        for path in told:
            name = os.path.relpath(path, self.world.top)
            expected[name] = case.after[name]
        self._expect(how, "what the output says", outside_store(left), expected)
        for name in left:
            if name.startswith(STORE) and ("/staged" in name or name.endswith((".new", ".tmp"))):
                self._fail(how, f"{name} is left behind")

    def _check_message(self, how, done, left, limit):
        """All is done, or a file that does not fit is named."""
        message = done.stderr.decode()
        if done.returncode == 0:
            self._expect(how, "done", left, self.case.after)
            if message != "":
                self._fail(how, f"says {message}")
            return
        found = re.fullmatch(
            r"ndk-integrate: not done: incomplete copy of (.*): is the disk full\?\n", message
        )
        named = os.path.relpath(found[1], self.world.top) if found else None
        if done.returncode != 1 or named not in [*TEMPLATES, MANIFEST]:
            self._fail(how, f"exit code {done.returncode}, {message}")
        elif named in TEMPLATES and limit is not None:
            if max(map(len, self.case.versions[named])) <= limit:
                self._fail(how, f"names {named}, which fits")
        elif named == MANIFEST and (self.case.is_dry_run or self.case.command == "undo"):
            self._fail(how, "names the manifest, which is not to be written")

    def _recover(self, how, left):
        """Runs with room for everything. What comes of the same tree is the same."""
        tree = frozenset(left.items())
        if tree in self._recovered:
            return
        self._recovered.add(tree)
        case = self.case
        self._run_again(how, left, [case.install], case.installed)
        undone = case.undone if STORE in left else left
        self._run_again(how, left, ["undo"], undone)
        self._run_again(how, left, [case.install, "undo"], case.undone)

    def _run_again(self, how, left, commands, expected):
        self.world.put(left)
        for command in commands:
            done = self.world.run(command)
            if done.returncode != 0:
                self._fail(
                    f"{how}, then {commands}",
                    f"{command} ends with exit code {done.returncode}: {done.stderr.decode()}",
                )
        self._expect(how, f"then {commands}", self.world.tree(), expected)

    def check_codes(self, how):
        """Once everything fits, it goes on fitting."""
        first_fit = self.codes.index(0) if 0 in self.codes else None
        if first_fit is None or any(code != 0 for code in self.codes[first_fit:]):
            self._fail(how, f"exit codes are {self.codes}")
            return
        say(
            f"full-disk test: {self.name} {how}: {len(self.codes)} runs, {first_fit} of them do "
            f"not fit and leave {len(self._recovered)} different trees"
        )


def beyond_the_largest_file(case):
    """A size that no file reaches while the command is at work."""
    sizes = [len(data) for texts in case.versions.values() for data in texts]
    if case.command.startswith("install") and not case.is_dry_run:
        another_result = 80  # for a while the manifest names two of each file
        sizes.append(len(case.after[MANIFEST][1]) + another_result * len(TEMPLATES))
    return max(sizes) + 10


def limit_every_size(name):
    """Runs the case under every limit on the size of a file. Returns the failures."""
    with SmallWorld() as world:
        squeeze = Squeeze(name, world)
        world.put(squeeze.case.before)
        for limit in range(beyond_the_largest_file(squeeze.case)):
            if world.tree() != squeeze.case.before:
                world.put(squeeze.case.before)
            squeeze.run(f"with files of {limit} bytes", limit, ["prlimit", f"--fsize={limit}"])
        squeeze.check_codes("at every file size")
        return squeeze.failures


def fail_for(test, failures):
    shown = 5
    if failures:
        test.fail(
            f"{len(failures)} failures, of which these are the first:\n"
            + "\n".join(failures[:shown])
        )


class FileSizeLimitTest(unittest.TestCase):
    LIMITED = ["first install", "install for another NDK", "dry run", "undo"]

    @classmethod
    def setUpClass(cls):
        os.umask(0o022)
        say(f"full-disk test: files are in {memory_directory() or tempfile.gettempdir()}")
        pool = concurrent.futures.ThreadPoolExecutor(2)
        cls.addClassCleanup(pool.shutdown, cancel_futures=True)
        cls.failures = {name: pool.submit(limit_every_size, name) for name in cls.LIMITED}

    def test_first_install(self):
        fail_for(self, self.failures["first install"].result())

    def test_install_for_another_ndk(self):
        fail_for(self, self.failures["install for another NDK"].result())

    def test_undo(self):
        fail_for(self, self.failures["undo"].result())

    def test_dry_run(self):
        fail_for(self, self.failures["dry run"].result())


class FullFileSystemTest(unittest.TestCase):
    """A small file system in memory, filled up but for a few blocks."""

    BLOCK = os.sysconf("SC_PAGE_SIZE")
    BLOCKS = 64
    MORE_THAN_NEEDED = 24

    def setUp(self):
        os.umask(0o022)
        above = tempfile.TemporaryDirectory(prefix="ndk_integrate_test.")
        self.addCleanup(above.cleanup)
        self.dir = above.name
        size = f"size={self.BLOCKS * self.BLOCK}"
        mount = subprocess.run(
            ["mount", "-t", "tmpfs", "-o", size, "tmpfs", self.dir],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        )
        if mount.returncode != 0:
            reason = f"no file system can be mounted here: {mount.stdout.decode().strip()}"
            say(f"full-disk test: skipped: {reason}")
            self.skipTest(reason)
        self.addCleanup(subprocess.run, ["umount", self.dir], check=True)

    def fill_up(self, filler, free):
        """Leaves `free` blocks."""
        status = os.statvfs(self.dir)
        with open(filler, "wb") as file:
            file.write(bytes((status.f_bavail - free) * self.BLOCK))
        self.assertEqual(os.statvfs(self.dir).f_bavail, free)

    def squeeze(self, name):
        with SmallWorld(self.dir) as world:
            squeeze = Squeeze(name, world)
            filler = world.path("filler")
            for free in range(self.MORE_THAN_NEEDED):
                world.put(squeeze.case.before)
                self.fill_up(filler, free)
                squeeze.run(f"with {free} free blocks", make_room=lambda: os.remove(filler))
            squeeze.check_codes("at every number of free blocks")
            fail_for(self, squeeze.failures)

    def test_first_install(self):
        self.squeeze("first install")

    def test_second_install(self):
        self.squeeze("second install")

    def test_install_for_another_ndk(self):
        self.squeeze("install for another NDK")

    def test_undo(self):
        self.squeeze("undo")

    def test_dry_run(self):
        self.squeeze("dry run")


if __name__ == "__main__":
    unittest.main()

"""Runs ndk-integrate where not everything fits: under a limit on the size of a file, at every size
from 0 to beyond the largest one, and on a file system that is really full, at every number of free
blocks. Each file is whole at the end, and was whole all the time; the failure names a file; and a
later run puts everything right."""

import os
import re
import subprocess
import tempfile
import unittest

from messages import SEVERAL, not_done
from sweep import Case, QuickWorld, Sweep, SweepTest, outside_store, say
from world import MANIFEST, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH

# The script writes no file: that would fail too.
ECHO = 'echo "ran with $*"\n'

# A few files end without a line end. Others are short, and grow beyond what is kept of them when
# their placeholders are filled in; one is a single long line.
PACKAGE = {
    SETUP_64: (0o644, b"# " + b"{INSTALL_NOX_INSTALLDIR} " * 8 + b"\n{INSTALL_NOX_VERSION}\n"),
    SETUP_32: (0o640, b"{INSTALL_NOX_VERSION}\nin {INSTALL_NOX_INSTALLDIR}"),
    VARS_SH: (0o755, b"ndk='<NDK_DIR>'; " * 6),
    VARS_CSH: (0o600, b"set ndk = '<NDK_DIR>'\n" * 6),
}

CANNOT_FILL_IN = "ndk-integrate: not done: the template (.*) could not be filled in; .*"
DOES_NOT_FIT = (
    r"ndk-integrate: (?:not done|problem): (?:incomplete copy of (.*): is the disk full\?|"
    r"the template (.*) could not be filled in; -v shows more)"
)

CASES = {
    "first install": ["install"],
    "second install": ["install", True],
    "install for another NDK": ["install --keep-ndk --ndk other", True],
    "undo": ["undo", True],
    "dry run": ["install --dry-run"],
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


class Squeeze(Sweep):
    """Runs of one case where not everything fits."""

    def __init__(self, name, world):
        super().__init__(name, world, Case(world, PACKAGE, ECHO, *CASES[name]))
        self.codes = []

    def run(self, how, limit=None, before=(), make_room=lambda: None):
        """Runs the case's command once. `how` says what does not fit, `limit` is the largest size
        that a file may have, where it is known."""
        world, case = self.world, self.case
        with OpenFiles(world) as files:
            done = world.command(case.command, before=before, env={"TMPDIR": world.path("tmp")})
            seen = files.contents()
        left = world.snapshot()
        make_room()
        left.pop("filler", None)
        self.codes.append(done.returncode)
        if seen != {name: case.before[name][1] for name in TEMPLATES}:
            self.fail(how, "a template was changed in place")
        self._check_files(how, done, left)
        self._check_message(how, done, left, limit)
        self.recover(how, left)

    def _check_files(self, how, done, left):
        """Each file is old or new, and the output tells which."""
        case = self.case
        told = re.findall(r"^(?:filled in|put back): (.*?)(?: \(\d+ placeholders?\))?$",
                          done.stdout.decode(), re.MULTILINE)
        expected = outside_store(case.before)
        for path in told:
            name = os.path.relpath(path, self.world.dir)
            expected[name] = case.after[name]
        self.expect(f"{how}, what the output says", outside_store(left), expected)
        for name in left:
            if name.startswith(STORE) and ("/staged" in name or name.endswith((".new", ".tmp"))):
                self.fail(how, f"{name} is left behind")

    def _check_message(self, how, done, left, limit):
        """All is done, or the files that do not fit are named. Nothing is changed where the
        rehearsal finds them."""
        message = done.stderr.decode()
        if done.returncode == 0:
            self.expect(f"{how}, done", left, self.case.after)
            if message != "":
                self.fail(how, f"says {message}")
            return
        *problems, end = message.splitlines()
        if problems or re.fullmatch(CANNOT_FILL_IN, end):
            self.expect(f"{how}, found by the rehearsal", left, self.case.before)
        if problems and end + "\n" != not_done(SEVERAL.format(len(problems))):
            self.fail(how, f"says {message}")
        found = [re.fullmatch(DOES_NOT_FIT, line) for line in problems or [end]]
        if done.returncode != 1 or None in found:
            self.fail(how, f"exit code {done.returncode}, {message}")
            return
        for named in [os.path.relpath(one[1] or one[2], self.world.dir) for one in found]:
            self._check_named(how, named, limit)

    def _check_named(self, how, named, limit):
        if named not in [*TEMPLATES, MANIFEST]:
            self.fail(how, f"names {named}")
        elif named in TEMPLATES and limit is not None:
            if max(map(len, self.versions(named))) <= limit:
                self.fail(how, f"names {named}, which fits")
        elif named == MANIFEST and (self.case.is_dry_run or self.case.command == "undo"):
            self.fail(how, "names the manifest, which is not to be written")

    def check_codes(self, how):
        """Once everything fits, it goes on fitting."""
        first_fit = self.codes.index(0) if 0 in self.codes else None
        if first_fit is None or any(code != 0 for code in self.codes[first_fit:]):
            self.fail(how, f"exit codes are {self.codes}")
            return
        self.summary = (
            f"{how}: {len(self.codes)} runs, {first_fit} of them do not fit and leave "
            f"{len(self.recovered)} different trees"
        )

    def versions(self, name):
        """All that a file's bytes are while the command works on it."""
        passes = self.case.versions[name]
        return passes[:1] if self.case.command == "undo" else passes


def beyond_the_largest_file(squeeze):
    """A size that no file reaches while the command is at work."""
    case = squeeze.case
    sizes = [len(data) for name in TEMPLATES for data in squeeze.versions(name)]
    if case.command.startswith("install") and not case.is_dry_run:
        another_result = 80  # for a while the manifest names two of each file
        sizes.append(len(case.after[MANIFEST][1]) + another_result * len(TEMPLATES))
    return max(sizes) + 10


def limit_every_size(name):
    """Runs the case under every limit on the size of a file."""
    with QuickWorld() as world:
        squeeze = Squeeze(name, world)
        world.put(squeeze.case.before)
        for limit in range(beyond_the_largest_file(squeeze)):
            if world.snapshot() != squeeze.case.before:
                world.put(squeeze.case.before)
            squeeze.run(f"with files of {limit} bytes", limit, ["prlimit", f"--fsize={limit}"])
        squeeze.check_codes("at every file size")
        return squeeze


class FileSizeLimitTest(SweepTest):
    sweep = staticmethod(limit_every_size)
    cases = ["first install", "install for another NDK", "dry run", "undo"]

    def test_limits(self):
        self.assert_all_survived()


class FullFileSystemTest(SweepTest):
    """A small file system in memory, filled up but for a few blocks."""

    BLOCK = os.sysconf("SC_PAGE_SIZE")
    BLOCKS = 64
    MORE_THAN_NEEDED = 24

    def setUp(self):
        self.dir = self.enterContext(tempfile.TemporaryDirectory(prefix="ndk_integrate_test."))
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

    def test_every_number_of_free_blocks(self):
        for name in CASES:
            with self.subTest(name), QuickWorld(where=self.dir) as world:
                squeeze = Squeeze(name, world)
                filler = world.path("filler")
                for free in range(self.MORE_THAN_NEEDED):
                    world.put(squeeze.case.before)
                    self.fill_up(filler, free)
                    squeeze.run(f"with {free} free blocks", make_room=lambda: os.remove(filler))
                squeeze.check_codes("at every number of free blocks")
                self.assert_survived(squeeze)


if __name__ == "__main__":
    unittest.main()

"""Kills ndk-integrate at every one of its system calls that changes something on the disk, and
shows that the next install or undo ends where it would have ended without the kill.

strace does the killing: its fault injection delivers the signal when the program enters the call,
which is then not carried out, with or without an injected error; there is no form that kills on the
way out. What a call left behind is seen by the kill at the next one, the last call being
exit_group: no call that changes something lies between them. That a write can be cut short by the
kill is seen by shortening what it wrote."""

import collections
import fcntl
import hashlib
import json
import os
import re
import tempfile
import unittest

from strace import WHY_NOT, file_in, opened_in, paths_in, real_name
from sweep import Case, QuickWorld, Sweep, SweepTest, outside_store, say
from world import (
    CC, MANIFEST, NO_LEAK_SEARCH, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH,
    text_of,
)

# Every call that can change something on the disk, and the last one. A "?" says that not every
# machine has it.
CALLS = """
write pwrite64 writev pwritev pwritev2 sendfile splice copy_file_range fallocate
rename renameat renameat2 link linkat symlink symlinkat unlink unlinkat rmdir mkdir mkdirat mknod
mknodat fsync fdatasync sync syncfs msync ftruncate truncate fchmod chmod fchmodat chown fchown
lchown fchownat fsetxattr setxattr utimensat open openat openat2 creat exit_group
""".split()

# The script leaves a note in the NDK of what it saw of the toolchain definitions. It needs no other
# program.
NOTE = 'read -r line <x86_64-nox5.0.3.42/setup.mk; echo "$line" >"$1/note"\n'

# Every template has a mode of its own. One has no line end at its end.
PACKAGE = {
    SETUP_64: (0o640, b"64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n"),
    SETUP_32: (0o444, b"32 {INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}"),
    VARS_SH: (0o755, b"ndk='<NDK_DIR>'\n"),
    VARS_CSH: (0o600, b"set ndk = '<NDK_DIR>'\n"),
}

# A newer package, put over an installed one. Of one file only the mode is new, one is as it was.
NEWER_PACKAGE = {
    **PACKAGE,
    SETUP_64: (0o664, b"newer 64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n"),
    VARS_SH: (0o744, b"newer_ndk='<NDK_DIR>'\n"),
    VARS_CSH: (0o640, PACKAGE[VARS_CSH][1]),
}


CASES = {
    "first install": ["install"],
    "second install": ["install", True],
    "install for another NDK": ["install --ndk other", True],
    "undo": ["undo", True],
    "install after a reinstallation": ["install", True, NEWER_PACKAGE],
}


def case_of(name, world):
    return Case(world, PACKAGE, NOTE, *CASES[name])


class Call:
    """A call that the program made, from a line of strace's log."""

    def __init__(self, name, number, line, descriptors):
        self.name = name
        self.number = number  # which of the calls with that name it is
        self.line = line
        self.descriptors = descriptors  # the names of what is open, by number

    def __str__(self):
        return f"{self.name} number {self.number}: {self.line[:200]}"

    def changes_something(self):
        if not self.name.startswith("open"):
            return True
        return re.search(r"O_CREAT|O_TRUNC|O_TMPFILE", self.line) is not None

    def succeeded(self):
        return re.search(r" = \d", self.line) is not None

    def file(self):
        """The file of a call that has a descriptor."""
        return file_in(self.line)

    def paths(self):
        """The files of a call that has names."""
        return [real_name(path, self.descriptors) for path in paths_in(self.line)]

    def written(self):
        """How many bytes a write has written."""
        return int(self.line.rsplit(" = ", 1)[1]) if self.succeeded() else 0

    def data(self):
        """What a write has written."""
        quoted = re.search(r'>, "((?:[^"\\]|\\.)*)", \d+\)', self.line)[1]
        return quoted.encode("latin-1").decode("unicode_escape").encode("latin-1")


def calls_of(world, command):
    """Runs the program to its end, and tells the calls that it makes itself, in order."""
    with tempfile.NamedTemporaryFile("r", encoding="latin-1") as log:
        traced = "trace=" + ",".join("?" + name for name in CALLS)
        strace = ["strace", "-y", "-s", "100000", "-o", log.name, "-e", traced]
        done = world.command(command, before=strace, env=NO_LEAK_SEARCH)
        if done.returncode != 0:
            raise AssertionError(f"{command}: {done}")
        lines = [line.rstrip("\n") for line in log]
    calls = []
    count = collections.Counter()
    descriptors = {}
    for line in lines:
        found = re.match(r"(\w+)\(", line)
        if found:
            count[found[1]] += 1
            calls.append(Call(found[1], count[found[1]], line, dict(descriptors)))
            descriptors.update(opened_in(line))
    return [call for call in calls if call.changes_something()]


def kill_at(world, command, call):
    """Runs the program until it enters the call, and waits for the script that it may have left
    behind, which still holds the lock."""
    strace = ["strace", "-o", "/dev/null", "-e", "trace=" + call.name,
              "-e", f"inject={call.name}:signal=KILL:when={call.number}"]
    done = world.command(command, before=strace, env=NO_LEAK_SEARCH)
    if done.returncode != -9:
        raise AssertionError(f"not killed at {call}: {done}")
    if os.path.exists(world.path(STORE)):
        lock = os.open(world.path(STORE), os.O_RDONLY)
        fcntl.flock(lock, fcntl.LOCK_EX)
        os.close(lock)


def cut_short(world, tree, last):
    """The tree that was left if the last call, a write, was killed half-way; None if it is not a
    write to a file of this world."""
    if last is None or last.name not in ("write", "writev") or last.written() < 2:
        return None
    name = os.path.relpath(last.file(), world.dir)
    if name not in tree:
        return None
    mode, data = tree[name]
    lost = (last.written() + 1) // 2
    return {**tree, name: (mode, data[:-lost])}


class Kills(Sweep):
    """All the kills of one case."""

    def __init__(self, name):
        with QuickWorld() as world:
            super().__init__(name, world, case_of(name, world))
            world.put(self.case.before)
            calls = calls_of(world, self.case.command)
            for last, call in zip([None, *calls], calls):
                self._kill_at(call, last)
        self.summary = f"{len(calls)} kills, {len(self.recovered)} different trees"

    def _kill_at(self, call, last):
        self.world.put(self.case.before)
        kill_at(self.world, self.case.command, call)
        killed = self.world.snapshot()
        torn = cut_short(self.world, killed, last)
        trees = {f"killed at {call}": killed}
        if torn is not None:
            trees[f"killed at {call}, the write before cut short"] = torn
        for how, tree in trees.items():
            self._check_whole(how, tree)
            self.recover(how, tree)

    def _check_whole(self, how, killed):
        """Every file is as it was before or as it is to be; nothing is missing, nothing is new."""
        before, after = outside_store(self.case.before), outside_store(self.case.after)
        for name in {**before, **after, **outside_store(killed)}:
            is_there = killed.get(name)
            if is_there not in (before.get(name), after.get(name)):
                self.fail(how, f"{name}: is {text_of(is_there)!r}")


class StraceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if WHY_NOT and os.environ.get("CI") == "true":
            raise AssertionError(WHY_NOT)
        if WHY_NOT:
            say(f"crash test: skipped: {WHY_NOT}")
            raise unittest.SkipTest(WHY_NOT)
        super().setUpClass()


class CrashTest(StraceTest, SweepTest):
    sweep = Kills
    cases = CASES

    def test_kills(self):
        self.assert_all_survived()


class DiskFile:
    def __init__(self, data=b""):
        self.data = data
        self.on_disk = data  # as it was when it was last flushed


class Disk:
    """What would be found after a power failure: of a file what was flushed, of a directory the
    names that were there when it was flushed."""

    def __init__(self, tree):
        self._files = {name: DiskFile(data) for name, (_, data) in tree.items() if data is not None}
        self._names_on_disk = dict(self._files)
        self._pending = set()  # names that changed since their directory was flushed

    def make(self, name):
        self._files[name] = DiskFile()
        self._pending.add(name)

    def make_directory(self, name):
        self._pending.add(name)

    def write(self, name, data):
        self._files[name].data += data

    def rename(self, old, new):
        self._files[new] = self._files.pop(old)
        self._pending |= {old, new}

    def exchange(self, one, other):
        self._files[one], self._files[other] = self._files[other], self._files[one]
        self._pending |= {one, other}

    def remove(self, name):
        self._files.pop(name, None)
        self._pending.add(name)

    def flush(self, name):
        if name in self._files:
            self._files[name].on_disk = self._files[name].data
            return
        for entry in [one for one in self._pending if os.path.dirname(one) == name]:
            self._pending.remove(entry)
            self._names_on_disk.pop(entry, None)
            if entry in self._files:
                self._names_on_disk[entry] = self._files[entry]

    def has(self, name):
        return name in self._files

    def bytes(self, name):
        return self._files[name].data

    def is_flushed(self, name):
        return self._files[name].on_disk == self._files[name].data

    def is_settled(self, name):
        """Whether the disk knows that the name is there, or that it is gone."""
        while name:
            if name in self._pending:
                return False
            name = os.path.dirname(name)
        return True

    def bytes_on_disk(self, name):
        """None when the name may not be there."""
        file = self._names_on_disk.get(name)
        return file.on_disk if file is not None and self.is_settled(name) else None


class DurabilityTest(StraceTest):
    """The order in which things reach the disk."""

    def follow(self, case_name):
        """Runs the case and asks check_* at each change of a template or of what is kept."""
        with QuickWorld() as world:
            case = case_of(case_name, world)
            world.put(case.before)
            calls = calls_of(world, case.command)
            self.disk = Disk(case.before)
            self.renamed = []  # the templates
            for call in calls:
                if call.succeeded():
                    self.follow_call(world, call)
            for name in TEMPLATES:
                self.assertTrue(self.disk.is_settled(name), name)
        return self.renamed

    def follow_call(self, world, call):
        disk = self.disk
        names = [os.path.relpath(path, world.dir) for path in call.paths()]
        if call.name in ("fsync", "fdatasync"):
            disk.flush(os.path.relpath(call.file(), world.dir))
        elif call.name == "write":
            name = os.path.relpath(call.file(), world.dir)
            if not name.startswith(".."):
                disk.write(name, call.data())
        elif call.name in ("open", "openat"):
            if "O_TRUNC" in call.line or not disk.has(names[0]):
                disk.make(names[0])
        elif call.name in ("mkdir", "mkdirat"):
            disk.make_directory(names[0])
        elif call.name in ("rename", "renameat", "renameat2"):
            if names[1] in TEMPLATES:
                self.check_before_rename(*names)
                self.renamed.append(names[1])
            (disk.exchange if "RENAME_EXCHANGE" in call.line else disk.rename)(*names)
        elif call.name in ("unlink", "unlinkat", "rmdir"):
            self.check_before_removal(names[0])
            disk.remove(names[0])
        else:  # its effect on the disk is not known here
            self.assertIn(call.name, ["ftruncate", "fchmod", "chmod", "chown", "fchown", "fsetxattr"])

    def check_before_rename(self, staged, template):
        """All that undo needs is on the disk before the result takes the original's place."""
        disk = self.disk
        self.assertTrue(disk.is_flushed(staged), f"data of {template}")
        for name in self.renamed:
            self.assertTrue(disk.is_settled(name), f"{name} before {template}")
        manifest = disk.bytes_on_disk(MANIFEST)
        self.assertTrue(manifest, f"manifest before {template}")
        entry = json.loads(manifest)["files"][os.path.relpath(template, CC)]
        original = disk.bytes_on_disk(f"{STORE}/originals/{entry['original']}")
        self.assertTrue(original, f"original of {template}")
        self.assertEqual(hashlib.sha256(original).hexdigest(), entry["original"])
        if disk.bytes(staged) != original:
            self.assertIn(hashlib.sha256(disk.bytes(staged)).hexdigest(), entry["results"])

    def check_before_removal(self, name):
        """The manifest goes when all originals are back, an original when no manifest names it."""
        disk = self.disk
        if name == MANIFEST:
            for template in TEMPLATES:
                self.assertTrue(disk.is_settled(template), f"{template} before {name}")
        if name == STORE + "/manifest.undone":
            self.assertTrue(disk.is_settled(STORE + "/originals"), f"originals before {name}")
        if os.path.dirname(name) == STORE + "/originals":
            self.assertTrue(disk.is_settled(MANIFEST), name)
            manifest = disk.bytes_on_disk(MANIFEST) or b""
            self.assertNotIn(os.path.basename(name).encode(), manifest)

    def test_first_install(self):
        self.assertEqual(self.follow("first install"), TEMPLATES)

    def test_install_for_another_ndk(self):
        # The toolchain definitions do not name the NDK.
        self.assertEqual(self.follow("install for another NDK"), [VARS_SH, VARS_CSH])

    def test_install_after_a_reinstallation(self):
        self.assertEqual(self.follow("install after a reinstallation"), TEMPLATES)

    def test_undo(self):
        self.assertEqual(sorted(self.follow("undo")), sorted(TEMPLATES))


if __name__ == "__main__":
    unittest.main()

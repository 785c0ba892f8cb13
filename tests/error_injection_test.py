"""An error at each system call of ndk-integrate: nothing is lost, nothing is claimed that is not so,
nothing fails silently or is left behind, and the next install and undo are right.

With --all at every call, which takes long (scripts/test-injection); otherwise at some, drawn anew each
time: the seed is printed, and SEED repeats it."""

import collections
import os
import random
import re
import sys
import unittest

from world import (
    ANDROID, CC, DISABLED, KEPT_ORIGINALS, NO_LEAK_SEARCH, ORIGINALS, OTHER_NDK, SETUP_64, STORE,
    TEMPLATES, VARS_SH, World, script, small_tree,
)

ALL = "--all" in sys.argv
SAMPLE = 30  # calls in each scenario
SEED = int(os.environ.get("SEED", random.randrange(1 << 32)))
ERRORS = {"fstat": "EIO", "newfstatat": "EIO", "read": "EIO", "pread64": "EIO", "openat": "EMFILE"}
# What fails for a program that is being loaded, or ends, is the loader's to tell; memory and signals
# are not files.
NOT_OURS = {
    "execve", "brk", "mmap", "munmap", "mprotect", "arch_prctl", "set_tid_address", "set_robust_list",
    "rseq", "prlimit64", "exit_group", "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "futex",
    "clone3", "vfork", "clone", "wait4", "waitid", "poll", "madvise", "sigaltstack", "gettid", "getpid",
}
TO = "other ndk"
REMOVAL = ANDROID + "/ndk_removal.sh"
# What is done before, and what is then tried: (command, options).
SCENARIOS = {
    "install": ([], ("install",)),
    "repeat": ([("install",)], ("install",)),
    "re-target": ([("install",)], ("install", "--ndk", TO)),
    "undo": ([("install",)], ("undo",)),
    "dry run": ([], ("install", "--dry-run")),
    "disabled": ([], ("install", DISABLED)),
}


def strace(output, *options):
    return ["strace", "-qqq", "-o", output, *options]


class Injection:
    def __init__(self, name):
        self.before, self.command = SCENARIOS[name]

    def world(self):
        world = World({**small_tree(), **OTHER_NDK})
        for command in self.before:
            assert self.start(world, command).returncode == 0
        return world

    def start(self, world, command, before=()):
        options = [world.path(TO) if word == TO else word for word in command[1:]]
        return world.start(command[0], world.path("installation.toml"), *options, before=before,
                           env=NO_LEAK_SEARCH)

    def calls(self):
        """The program's own system calls, each as (name, which of that name). Those of the loader,
        up to its last map of a library, are left out."""
        with self.world() as world:
            trace = os.path.join(world.top, "trace")
            assert self.start(world, self.command, strace(trace)).returncode == 0
            with open(trace, encoding="utf-8", errors="replace") as file:
                names = [match[1] for match in map(re.compile(r"(\w+)\(").match, file) if match]
            files = set(world.snapshot())
        assert files
        count, calls = collections.Counter(), []
        ours = [i for i, name in enumerate(names) if name == "rt_sigaction"]
        begin = ours[2] if len(ours) > 2 else 0  # main() sets three signals first
        for i, name in enumerate(names):
            count[name] += 1
            if i > begin and name not in NOT_OURS:
                calls.append((name, count[name]))
        return calls


class Errors(unittest.TestCase):
    maxDiff = None

    def check(self, scenario):
        injection = Injection(scenario)
        calls = injection.calls()
        self.assertGreater(len(calls), 100)
        if not ALL:
            calls = random.Random(SEED).sample(calls, SAMPLE)
        self.after = {}
        with injection.world() as world:
            self.known = [world.read_all()]
            world.start("install", world.path("installation.toml"))
            injection.start(world, injection.command)
            self.known.append(world.read_all())
        self.known.append({name: text.encode() for name, text in ORIGINALS.items()})
        for name, number in calls:
            error = ERRORS.get(name, "EIO")
            with self.subTest(f"{scenario}: {name} {number} {error}, SEED={SEED}"):
                self.check_call(injection, name, number, error)

    def check_call(self, injection, name, number, error):
        with injection.world() as world:
            before = world.read_all()
            inject = strace("/dev/null", "-e", f"trace={name}", "-e",
                            f"inject={name}:error={error}:when={number}")
            done = injection.start(world, (*injection.command, "--json"), inject)
            said = done.stdout.decode() + done.stderr.decode()
            after = world.read_all()
            self.check_whole(world, before, after)
            if done.returncode != 0:
                self.assertNotEqual(said, "", "it fails silently")
                left = [path for path in world.snapshot() if re.search(r"/staged|/commit-|\.new$", path)]
                self.assertEqual(left, [], said)
            claimed = '"changed":true' in said
            if "--dry-run" in injection.command:
                self.assertEqual(after, before)
            elif '"changed"' in said:
                self.assertEqual(claimed, after != before, said)
            if done.returncode == 0 and injection.command[0] == "undo":
                self.assertEqual(after, {n: t.encode() for n, t in ORIGINALS.items()}, said)
            self.check_next(world, injection)

    def check_whole(self, world, before, after):
        for name, data in after.items():
            texts = [before[name], ORIGINALS[name].encode()]
            if data not in texts:
                text = world.hidden(data.decode())
                self.assertNotIn("<NDK_DIR>", text)
                self.assertNotIn("{INSTALL", text)
                self.assertTrue(text.endswith("\n\n") and text.count("\n") in (2, 4), text)

    def check_next(self, world, injection):
        for command in [("install", "--keep-ndk"), ("undo", "--keep-ndk")]:
            done = injection.start(world, command)
            self.assertEqual((done.returncode, done.stderr), (0, b""), done.stdout)
            names = os.listdir(world.path(STORE)) if os.path.exists(world.path(STORE)) else []
            self.assertLessEqual(set(names), {"manifest.json", "originals"})
        self.assertEqual(world.read_all(), {n: t.encode() for n, t in ORIGINALS.items()})
        self.assertFalse(os.path.exists(world.path(STORE)), names)
        beside = [name for name in world.snapshot() if ".edited" in name]
        self.assertEqual(beside, [])


for _name in SCENARIOS:
    setattr(Errors, "test_" + re.sub(r"\W", "_", _name),
            lambda self, scenario=_name: self.check(scenario))


class FlushErrors(unittest.TestCase):
    """What could not be flushed is not said to be done, but for what is thrown away."""

    def test_each(self):
        for command in ["install", "undo"]:
            number, is_last = 0, False
            while not is_last:
                number += 1
                with self.subTest(command, number=number), World(small_tree()) as world:
                    if command == "undo":
                        world.install()
                    trace = os.path.join(world.top, "trace")
                    done = world.start(
                        command, world.path("installation.toml"), "-v", env=NO_LEAK_SEARCH,
                        before=strace(trace, "-e", "trace=fsync", "-e",
                                      f"inject=fsync:error=EIO:when={number}"))
                    with open(trace, encoding="utf-8") as file:
                        is_last = file.read().count("fsync(") < number
                    if not is_last and done.returncode == 0:
                        self.assertIn(b"ERROR: cannot clean up", done.stderr)
            self.assertGreater(number, 10)


class InterruptedCalls(unittest.TestCase):
    """A signal that interrupts a call is not a failure."""

    def test_all(self):
        calls = "openat2,flock,fsync,fchmod,fchown,pread64,write,getrandom"
        for command in ["install", "undo"]:
            for call in calls.split(","):
                with self.subTest(call, command=command), World(small_tree()) as world:
                    if command == "undo":
                        world.install()
                    # Of the calls that the loader and the standard output make, too, those on files.
                    files = ["-P", world.path(SETUP_64), "-P", world.path(STORE) + "/manifest.json",
                             "-P", world.path(STORE) + "/manifest.json.new"]
                    only = files if call in ("pread64", "write") else []
                    done = world.start(
                        command, world.path("installation.toml"), env=NO_LEAK_SEARCH,
                        before=strace("/dev/null", *only, "-e", f"trace={call}", "-e",
                                      f"inject={call}:error=EINTR:when=1+2"))
                    self.assertEqual(done.returncode, 0, done.stderr)


class ReadErrors(unittest.TestCase):
    """Nothing is taken for the whole of a file that could not be read whole."""

    def failing_read(self, world, file, command, first=2, tracer="pread64,read"):
        done = world.start(
            command, world.path("installation.toml"), env=NO_LEAK_SEARCH,
            before=["strace", "-f", "-qqq", "-o", "/dev/null", "-P", file, "-e", f"trace={tracer}",
                    "-e", f"inject={tracer}:error=EIO:when={first}+"])
        return done, world.hidden(done.stderr.decode())

    def test_template(self):
        big = "".join(f"line {i} of ndk='<NDK_DIR>'\n" for i in range(2000)) * 2
        with World(small_tree(**{VARS_SH: big})) as world:
            done, err = self.failing_read(world, world.path(VARS_SH), "install")
            self.assertEqual((done.returncode, world.read(VARS_SH)), (1, big))
            self.assertIn(f"cannot read WORLD/{VARS_SH}: Input/output error", err)

    def test_kept_original_and_result(self):
        big = "".join(f"line {i} of ndk='<NDK_DIR>'\n" for i in range(2000)) * 2
        with World(small_tree(**{VARS_SH: big})) as world:
            world.install()
            kept = [name for name in os.listdir(world.path(KEPT_ORIGINALS))
                    if world.read(f"{KEPT_ORIGINALS}/{name}") == big]
            filled_in = world.read(VARS_SH)
            for name in [f"{KEPT_ORIGINALS}/{kept[0]}", VARS_SH]:
                done, err = self.failing_read(world, world.path(name), "undo")
                self.assertEqual(done.returncode, 1, err)
                self.assertIn(f"cannot read WORLD/{name}: Input/output error", err)
                self.assertEqual(world.read(VARS_SH), filled_in)
                self.assertEqual(world.read(f"{KEPT_ORIGINALS}/{kept[0]}"), big)

    def test_long_installation_file(self):
        with World(small_tree()) as world:
            world.append("installation.toml", "# a comment\n" * 9000)
            done, err = self.failing_read(world, world.path("installation.toml"), "install")
            self.assertEqual(done.returncode, 2)
            self.assertIn("cannot read WORLD/installation.toml: Input/output error", err)

    def test_what_is_there_is_not_missing(self):
        # A look that fails says nothing of the NDK, the removal script or the compiler.
        for command, name, calls in [("undo", "ndk", "newfstatat"), ("undo", REMOVAL, "newfstatat"),
                                     ("install", CC, "newfstatat,openat")]:
            with self.subTest(command, name=name), World(small_tree(**{REMOVAL: script("")})) as world:
                world.install()
                before = world.snapshot()
                done, err = self.failing_read(world, world.path(name), command, 1, calls)
                self.assertEqual(done.returncode, 1, err)
                self.assertRegex(err, f"cannot (look at|open the directory) WORLD/{name}: Input/output error")
                self.assertEqual(world.snapshot(), before)

    def test_properties_of_ndk(self):
        with World(small_tree()) as world:
            world.append("ndk/source.properties", "# a comment\n" * 9000)
            done, err = self.failing_read(
                world, world.path("ndk/source.properties"), "install", first=1)
            self.assertEqual(done.returncode, 1)
            self.assertIn("cannot be read: input/output error", err)


if __name__ == "__main__":
    print(f"SEED={SEED}", file=sys.stderr)
    unittest.main(argv=[word for word in sys.argv if word != "--all"])

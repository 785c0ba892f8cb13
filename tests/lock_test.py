"""One ndk-integrate install or undo at a time on a compiler, end to end."""

import fcntl
import json
import os
import random
import shutil
import signal
import subprocess
import unittest

from ndk_integrate_world import (
    BEFORE_SCRIPT_OUTPUT,
    COMPONENT_LINE,
    DONE_LINE,
    KEPT_HERE,
    NDK_LINES,
    PROGRAM,
    SCRIPT,
    WHOLE_INSTALLATION,
    EndToEndTest,
    World,
    package_filled,
    small_tree,
)

NOT_DONE = "ndk-integrate: not done: "
LOCK = KEPT_HERE + "/lock"
NEVER = 60  # seconds after which something hangs; an ordinary test takes a fraction of one

# A script that says when it runs, and goes on when it is told to. It runs in the directory
# WORLD/package/cc/android, and first waits until it, or the shell that waits for it, is named in
# the lock file as the second holder.
BLOCKING_SCRIPT = """\
until holder=$(sed 1d ../.ndk-integrate/lock | grep -x -e $$ -e $PPID); do :; done
echo $holder > ../../../ready
read -r word < ../../../go
echo "went $word"
"""
# The same in a process that the script leaves behind, without its output.
LEAVING_SCRIPT = """\
(echo $$ > ../../../ready; read -r word < ../../../go) > /dev/null 2>&1 &
echo "left"
"""
SCRIPT_THAT_ENDS = '#!/bin/sh\necho "ran with $*"\n'


def message(holder):
    return (
        f"another ndk-integrate is at work on this compiler ({holder} holds WORLD/{LOCK}); "
        "wait until it is done"
    )


class LockTest(EndToEndTest):
    def setUp(self):
        def give_up(*_):
            raise TimeoutError("it hangs")

        signal.signal(signal.SIGALRM, give_up)
        signal.alarm(NEVER)
        self.addCleanup(signal.alarm, 0)

    def world(self, script):
        world = World(self, small_tree(script=script))
        os.mkfifo(world.path("ready"))
        os.mkfifo(world.path("go"))
        return world

    def start(self, world, command="install", before=()):
        """Starts the program; it and its script are gone after the test."""
        process = subprocess.Popen(
            [*before, PROGRAM, command, world.path("installation.toml")],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )

        def end():
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass  # nothing of it is left
            process.communicate()

        self.addCleanup(end)
        return process

    @staticmethod
    def wait_for_script(world):
        """Waits until the script waits; its process, as the lock file names it."""
        with open(world.path("ready"), encoding="ascii") as ready:
            return int(ready.read())

    @staticmethod
    def let_script_go_on(world):
        with open(world.path("go"), "w", encoding="ascii") as go:
            go.write("on\n")

    @staticmethod
    def wait_for_lock(world):
        with open(world.path(LOCK), "rb") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)

    def assert_all_stop(self, world, holder):
        """install and undo say who holds the lock, and change nothing."""
        before = world.tree(kept=True)
        err = f"{NOT_DONE}{message(holder)}\n"
        self.assert_outcome(world.install(), code=1, out=NDK_LINES + COMPONENT_LINE, err=err)
        self.assert_outcome(world.undo(), code=1, err=err)
        self.assertEqual(world.tree(kept=True), before)

    def assert_all_stop_in_json(self, world, holder):
        for outcome, expected in [
            (
                world.install("--json"),
                {
                    "schema": 1,
                    "outcome": "failed",
                    "changed": False,
                    "ndk": "WORLD/ndk",
                    "release": "r11c",
                    "component": "nox-ndk-5",
                    "files": [],
                    "script": None,
                    "message": message(holder),
                },
            ),
            (
                world.undo("--json"),
                {
                    "schema": 1,
                    "outcome": "failed",
                    "changed": False,
                    "files": [],
                    "message": message(holder),
                },
            ),
        ]:
            self.assertEqual(json.loads(outcome.out), expected)
            self.assert_outcome(outcome, code=1, out=outcome.out)


class Lock(LockTest):
    def test_running_installation(self):
        world = self.world(BLOCKING_SCRIPT)
        first = self.start(world)
        script = self.wait_for_script(world)
        self.assertEqual(world.read(LOCK), f"{first.pid}\n{script}\n")
        self.assert_all_stop(world, f"process {first.pid}")
        self.assert_all_stop_in_json(world, f"process {first.pid}")
        self.let_script_go_on(world)
        out, err = first.communicate()
        out = world.hidden(out.decode())
        self.assertEqual(
            (first.returncode, out, err),
            (0, f"{BEFORE_SCRIPT_OUTPUT}script printed: went on\n{DONE_LINE}", b""),
        )
        self.assertEqual(world.read(LOCK), "")
        self.assertEqual(world.undo().code, 0)

    def test_script_of_killed_installation(self):
        world = self.world(BLOCKING_SCRIPT)
        first = self.start(world)
        script = self.wait_for_script(world)
        first.kill()
        first.wait()
        self.assert_all_stop(world, f"process {script}")
        self.assert_all_stop_in_json(world, f"process {script}")
        self.let_script_go_on(world)
        self.wait_for_lock(world)
        world.write(SCRIPT, SCRIPT_THAT_ENDS)
        outcome = world.install()
        self.assertEqual((outcome.code, outcome.out, outcome.err), (0, WHOLE_INSTALLATION, ""))
        self.assertEqual(
            {file: world.tree()[file] for file in package_filled()}, package_filled()
        )

    def test_process_that_the_script_left(self):
        world = self.world(LEAVING_SCRIPT)
        first = self.start(world)
        self.assertEqual(first.wait(), 0)
        self.assert_all_stop(world, "a process that the integration script left behind")
        self.wait_for_script(world)
        self.let_script_go_on(world)
        self.wait_for_lock(world)
        self.assertEqual(world.undo().code, 0)

    def test_other_compiler(self):
        # Each has a lock of its own.
        first = self.world(BLOCKING_SCRIPT)
        self.start(first)
        self.wait_for_script(first)
        second = World(self, small_tree())
        self.assert_outcome(second.install(), out=WHOLE_INSTALLATION, changed=package_filled())
        self.let_script_go_on(first)

    def test_names_of_old_holders(self):
        # Only who holds the lock counts, not who is named in it.
        world = World(self, small_tree())
        world.install()
        world.write(LOCK, f"{os.getpid()}\n1\n")
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)
        self.assertEqual(world.read(LOCK), "")

    def test_never_unlinked(self):
        world = self.world('echo "ran with $*"')
        world.install()
        with open(world.path(LOCK), "rb") as lock:
            for step in [world.install, world.undo, world.undo, world.install, world.undo]:
                step()
                first, now = os.fstat(lock.fileno()), os.stat(world.path(LOCK))
                self.assertEqual((now.st_ino, first.st_nlink), (first.st_ino, 1))


@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
class Races(LockTest):
    def test_undo_when_manifest_is_looked_for(self):
        # An installation stops when it first sees the manifest, and an undo removes that, unless a
        # lock forbids it.
        world = World(self, small_tree())
        world.install()
        trace = os.path.join(world.top, "trace")
        os.mkfifo(trace)
        manifest = world.path(KEPT_HERE + "/manifest.json")
        inject = "inject=%%stat:signal=SIGSTOP:when=1"
        # No search for leaks: it cannot be made while the program is traced.
        strace = ["env", "ASAN_OPTIONS=detect_leaks=0", "strace", "-f", "-o", trace]
        strace += ["-P", manifest, "-e", "trace=%%stat", "-e", inject]
        first = self.start(world, before=strace)
        with open(trace, encoding="utf-8") as lines:
            stopped = next(line for line in lines if "stopped by SIGSTOP" in line)
            world.undo()
            os.kill(int(stopped.split()[0]), signal.SIGCONT)
            lines.read()
        out, err = first.communicate()
        self.assertEqual(
            (first.returncode, world.hidden(out.decode()), world.hidden(err.decode())),
            (0, WHOLE_INSTALLATION, ""),
        )


class ConcurrentRuns(LockTest):
    """Twenty at once, started in a random order, some of them on an installed compiler."""

    rounds = 5

    def start_in_random_order(self, world, order):
        commands = ["install"] * 10 + ["undo"] * 10
        order.shuffle(commands)
        return [(command, self.start(world, command)) for command in commands]

    def assert_done_or_stopped(self, world, command, process):
        out, err = process.communicate()
        out, err = world.hidden(out.decode()), world.hidden(err.decode())
        told = f"{command}, exit code {process.returncode}\n{out}{err}"
        if " is at work on this compiler " in err:
            self.assertRegex(err, rf"\A{NOT_DONE}{message_pattern()}\n\Z", told)
            self.assertEqual(process.returncode, 1, told)
        elif command == "install":
            self.assertEqual((process.returncode, out, err), (0, WHOLE_INSTALLATION, ""), told)
        elif "nothing to undo" not in out + err:
            self.assertRegex(out, r"\A(put back: .*\n){4}done: .*\n\Z", told)
            self.assertEqual((process.returncode, err), (0, ""), told)

    def test_end_in_a_right_state(self):
        seed = int(os.environ.get("SEED") or random.SystemRandom().randrange(2**32))
        print(f"ConcurrentRuns: SEED={seed}", flush=True)
        order = random.Random(seed)
        world = World(self, small_tree())
        world.install()
        installed = world.tree(kept=True)
        world.undo()
        undone = world.tree(kept=True)
        for _ in range(self.rounds):
            for command, process in self.start_in_random_order(world, order):
                self.assert_done_or_stopped(world, command, process)
            self.assertIn(world.tree(kept=True), [installed, undone])
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.tree(kept=True), installed)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual(world.tree(kept=True), undone)


def message_pattern():
    holders = r"(process \d+|a process that the integration script left behind)"
    return (
        rf"another ndk-integrate is at work on this compiler \({holders} holds WORLD/{LOCK}\); "
        "wait until it is done"
    )


if __name__ == "__main__":
    unittest.main()

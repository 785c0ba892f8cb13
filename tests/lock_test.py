"""One ndk-integrate install or undo at a time on a compiler, end to end."""

import fcntl
import os
import random
import re
import signal
import subprocess
import unittest

from end_to_end import EndToEndTest
from messages import LOCKED, NOTHING_TO_UNDO, Install, Undo, not_done
from strace import needs_strace
from world import STORE, MANIFEST, NO_LEAK_SEARCH, PROGRAM, SCRIPT, filled, script

UNDONE = [Undo(), NOTHING_TO_UNDO]  # what an undo in the right moment tells

NEVER = 60  # seconds after which something hangs; an ordinary test takes a fraction of one

# A script that says when it runs, and goes on when it is told to. It runs in the directory
# WORLD/package/cc/android.
BLOCKING_SCRIPT = """\
echo $PPID $$ > ../../../ready
read -r word < ../../../go
echo "went $word"
"""
# The same in a process that the script leaves behind, without its output.
LEAVING_SCRIPT = """\
(sh -c 'echo $PPID' > ../../../ready; read -r word < ../../../go) > /dev/null 2>&1 &
echo "left"
"""


class LockTest(EndToEndTest):
    def setUp(self):
        def give_up(*_):
            raise TimeoutError("it hangs")

        signal.signal(signal.SIGALRM, give_up)
        signal.alarm(NEVER)
        self.addCleanup(signal.alarm, 0)

    def blocked_world(self, runs):
        world = self.small_world(runs=runs)
        os.mkfifo(world.path("ready"))
        os.mkfifo(world.path("go"))
        return world

    def start(self, world, command="install", before=(), env=None, more=()):
        """Starts the program; it and its script are gone after the test."""
        process = subprocess.Popen(
            [*before, PROGRAM, command, world.path("installation.toml"), *more],
            env={**os.environ, **(env or {})},
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
    def end_of(world, process):
        """The exit code and what was printed."""
        out, err = process.communicate()
        return process.returncode, world.hidden(out.decode()), world.hidden(err.decode())

    @staticmethod
    def wait_for_script(world):
        """Waits until the script waits; its shell's process and its own."""
        with open(world.path("ready"), encoding="ascii") as ready:
            return ready.read().split()

    @staticmethod
    def let_script_go_on(world):
        with open(world.path("go"), "w", encoding="ascii") as go:
            go.write("on\n")

    @staticmethod
    def wait_for_lock(world):
        lock = os.open(world.path(STORE), os.O_RDONLY)
        fcntl.flock(lock, fcntl.LOCK_EX)
        os.close(lock)

    def assert_all_stop(self, world, holder):
        """install and undo say who holds the lock, and change nothing."""
        self.assert_both_refuse(world, LOCKED.format(holder), dry=False)


class Lock(LockTest):
    def test_running_installation(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        first = self.start(world)
        self.wait_for_script(world)
        self.assert_all_stop(world, f"process {first.pid}")
        self.let_script_go_on(world)
        told = Install(printed="went on\n").out()
        self.assertEqual(self.end_of(world, first), (0, told, ""))
        self.assertEqual(world.undo().code, 0)

    def test_script_of_killed_installation(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        first = self.start(world)
        running = [one for one in self.wait_for_script(world) if int(one) != first.pid]
        first.kill()
        first.wait()
        self.assert_all_stop(world, f"process {min(running, key=int)}")
        self.let_script_go_on(world)
        self.wait_for_lock(world)
        world.write(SCRIPT, script())
        outcome = world.install()
        self.assertEqual((outcome.code, outcome.out, outcome.err), (0, Install().out(), ""))
        tree = world.tree()
        self.assertEqual({file: tree[file] for file in filled(first=True)}, filled(first=True))

    def test_process_that_the_script_left(self):
        world = self.blocked_world(LEAVING_SCRIPT)
        first = self.start(world)
        self.assertEqual(first.wait(), 0)
        self.assert_all_stop(world, f"process {self.wait_for_script(world)[0]}")
        self.let_script_go_on(world)
        self.wait_for_lock(world)
        self.assertEqual(world.undo().code, 0)

    def test_other_compiler(self):
        # Each has a lock of its own.
        first = self.blocked_world(BLOCKING_SCRIPT)
        self.start(first)
        self.wait_for_script(first)
        self.assert_installs(self.small_world())
        self.let_script_go_on(first)


@needs_strace
class Races(LockTest):
    def assert_goes_on(self, world, name, call):
        """An undo that removes everything while an installation is stopped at its first `call` on
        `name` harms neither."""
        trace = os.path.join(world.top, "trace")
        os.mkfifo(trace)
        strace = ["strace", "-f", "-o", trace, "-P", world.path(name), "-e", f"trace={call}"]
        inject = ["-e", f"inject={call}:signal=SIGSTOP:when=1"]
        first = self.start(world, before=[*strace, *inject], env=NO_LEAK_SEARCH)
        with open(trace, encoding="utf-8") as lines:
            stopped = next(line for line in lines if "stopped by SIGSTOP" in line)
            world.undo()
            os.kill(int(stopped.split()[0]), signal.SIGCONT)
            lines.read()
        self.assertEqual(self.end_of(world, first), (0, Install().out(), ""))
        self.assertEqual({file: world.tree()[file] for file in filled()}, filled())

    def test_undo_when_manifest_is_looked_for(self):
        self.assert_goes_on(self.installed_world(), MANIFEST, "%%stat")

    def test_undo_when_the_lock_is_about_to_be_taken(self):
        # The installation has opened a directory that is removed then, and must not lock that one.
        self.assert_goes_on(self.installed_world(), STORE, "flock")


class ConcurrentRuns(LockTest):
    """Twenty at once, started in a random order, some of them on an installed compiler."""

    rounds = 5

    def start_in_random_order(self, world, order):
        commands = ["install"] * 10 + ["undo"] * 10
        order.shuffle(commands)
        return [(command, self.start(world, command)) for command in commands]

    def assert_done_or_stopped(self, world, command, process):
        code, out, err = self.end_of(world, process)
        told = f"{command}, exit code {code}\n{out}{err}"
        begin, end = map(re.escape, not_done(LOCKED).split("{}"))
        if re.fullmatch(rf"{begin}process \d+{end}", err):
            self.assertEqual(code, 1, told)
        elif command == "install":
            self.assertEqual((code, out, err), (0, Install().out(), ""), told)
        else:
            self.assertIn((code, out, err), [(0, one.out(), "") for one in UNDONE], told)

    def test_end_in_a_right_state(self):
        seed = int(os.environ.get("SEED") or random.SystemRandom().randrange(2**32))
        print(f"ConcurrentRuns: SEED={seed}", flush=True)
        order = random.Random(seed)
        world = self.installed_world()
        installed = world.tree()
        world.undo()
        undone = world.tree()
        for _ in range(self.rounds):
            for command, process in self.start_in_random_order(world, order):
                self.assert_done_or_stopped(world, command, process)
            self.assertIn(world.tree(), [installed, undone])
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.tree(), installed)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual(world.tree(), undone)


if __name__ == "__main__":
    unittest.main()

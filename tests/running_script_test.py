"""While a script runs under ndk-integrate, end to end: what is shown of it and kept, and what signals,
the terminal and readers that go away do to it."""

import os
import pty
import random
import re
import select
import signal
import subprocess
import sys
import unittest

from lock_test import BLOCKING_SCRIPT, LockTest
from messages import Install, command, not_done, said, script_failed
from strace import needs_usual_build
from world import ANDROID, PROGRAM, SETUP_32, SETUP_64, STORE, filled, script

INTERRUPTED = not_done("interrupted")
MOST = 8 << 20  # of each end of the output
# Runs a program, and prints its exit code and the most memory that it held. What does that must be
# small itself, for a process begins with the memory of the one that starts it.
MEASURES = """
import os, sys
null = os.open(os.devnull, os.O_WRONLY)
pid = os.posix_spawn(sys.argv[1], sys.argv[1:], os.environ, file_actions=[(os.POSIX_SPAWN_DUP2, null, 1)])
_, status, usage = os.wait4(pid, 0)
print(os.waitstatus_to_exitcode(status), usage.ru_maxrss)
"""
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]


class Output(LockTest):
    def test_shown_as_it_comes(self):
        world = self.blocked_world("printf 'one\\ntwo'\n" + BLOCKING_SCRIPT)
        process = self.start(world)
        self.wait_for_script(world)
        lines = [process.stdout.readline().decode() for _ in range(5)]
        told = [f"script: {command()}\n", "script printed: one\n"]
        self.assertEqual([world.hidden(line) for line in lines[3:]], told)
        self.let_script_go_on(world)
        code, out, err = self.end_of(world, process)
        self.assertEqual((code, err), (0, ""))
        self.assertEqual("".join(world.hidden(line) for line in lines) + out,
                         Install(printed="one\ntwowent on\n").out())

    def test_command_line_is_shown_before_it_runs(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start(world)
        self.wait_for_script(world)
        output = process.stdout.fileno()
        os.set_blocking(output, False)
        told = world.hidden(os.read(output, MOST).decode())
        os.set_blocking(output, True)
        self.assertEqual(told.splitlines()[3:], [f"script: {command()}"])
        self.let_script_go_on(world)
        self.assertEqual(self.end_of(world, process)[0], 0)

    def test_quiet(self):
        runs = "echo no room\nprintf 'at all'\nexit 7"
        outcome = self.small_world(runs=runs).install("-q")
        err = said("script printed: no room") + said("script printed: at all")
        err += not_done(script_failed(7))
        self.assert_outcome(outcome, 1, err=err, changed=filled(first=True))
        outcome = self.small_world().install("-q")
        self.assert_outcome(outcome, out=Install().result(), changed=filled(first=True))

    def test_long_line(self):
        world = self.small_world(runs="head -c 200000 /dev/zero | tr '\\0' x")
        lines = re.findall("script printed: (x+)\n", world.install().out)
        self.assertEqual("".join(lines), "x" * 200000)

    def test_both_ends_are_kept(self):
        size = 5 * MOST
        world = self.small_world(runs=f"yes 'a line of text' | head -c {size}")
        text = ("a line of text\n" * (size // 15 + 1))[:size]
        left_out = f"\n[{size - 2 * MOST} bytes are left out here]\n"
        kept = text[:MOST] + left_out + text[-MOST:]
        outcome = world.install("--json", "--log", world.path("log"))
        self.assertEqual(outcome.json()["script"]["output"], kept)
        logged = "Output: '" + kept.replace("\n", "\\n") + "'\n"
        self.assertIn(logged, world.read("log"))

    def test_any_bytes(self):
        # Long texts are escaped in pieces, which cut no character in two.
        seed = random.randrange(1 << 32)
        noise = random.Random(seed).randbytes(200_000)
        letters = "\u00e9\u20ac\U0001d11e\u0085".encode() * 20_000
        for text in [b"x" * shift + letters for shift in range(4)] + [noise]:
            with self.subTest(seed=seed, text=text[:8]):
                world = self.small_world(runs="cat text", **{f"{ANDROID}/text": text})
                printed = world.install("--json", "--log", world.path("log")).json()["script"]["output"]
                stands_for = re.sub("\ufffd(..)", lambda at: chr(0xDC00 + int(at[1], 16)), printed)
                raw = b"".join(
                    bytes([ord(c) - 0xDC00]) if 0xDC00 <= ord(c) < 0xDD00 else c.encode()
                    for c in stands_for
                )
                self.assertEqual(raw, text)
                if text != noise:
                    escaped = text.replace(b"\xc2\x85", rb"\xc2\x85")
                    self.assertIn(b"Output: '" + escaped + b"'\n", world.bytes("log"))

    @needs_usual_build
    def test_memory(self):
        for size, text, *options in [
            (200_000_000, "yes 'a line of text'"),
            (50_000_000, "tr '\\0' '\\001' < /dev/zero", "--json", "--log=log"),
            (50_000_000, "tr '\\0' '\\377' < /dev/zero", "--json"),
        ]:
            with self.subTest(text):
                world = self.small_world(runs=f"{text} | head -c {size}")
                measured = subprocess.run(
                    [sys.executable, "-ISc", MEASURES, PROGRAM, "install",
                     world.path("installation.toml"), *options],
                    cwd=world.dir, capture_output=True, text=True, check=False,
                )
                code, kilobytes = map(int, measured.stdout.split())
                self.assertEqual(code, 0)
                self.assertLess(kilobytes * 1024, 64_000_000)


class SignalTest(LockTest):
    def setUp(self):
        """What runs the tests may ignore the signals."""
        super().setUp()
        for number in SIGNALS:
            self.addCleanup(signal.signal, number, signal.signal(number, signal.SIG_DFL))


class Signals(SignalTest):
    """A signal to the program while a script, or a build, waits for ever."""

    def group_of(self, world):
        """The process group of the script, which begins to wait."""
        return os.getpgid(int(self.wait_for_script(world)[1]))

    def assert_group_has_ended(self, group):
        with self.assertRaises(ProcessLookupError):
            os.killpg(group, 0)

    def test_during_installation(self):
        for number in SIGNALS:
            with self.subTest(number):
                # A shell lets what it runs in the background ignore SIGINT.
                more = "" if number == signal.SIGINT else "sleep 1000 &\n"
                world = self.blocked_world("echo begins\n" + more + BLOCKING_SCRIPT)
                process = self.start(world)
                group = self.group_of(world)
                self.assertNotEqual(group, os.getpgid(process.pid))
                process.send_signal(number)
                code, out, err = self.end_of(world, process)
                self.assertEqual((code, err), (-number, INTERRUPTED))
                self.assertIn("\nscript printed: begins\n", out)
                self.assert_group_has_ended(group)
                whole = {name: entry for name, entry in filled().items() if name in (SETUP_64, SETUP_32)}
                self.assertEqual({name: world.tree()[name] for name in whole}, whole)
                self.assertEqual(sorted(os.listdir(world.path(STORE))), ["manifest.json", "originals"])
                told = world.run("status", world.path("installation.toml"), "--json").json()
                self.assertEqual(told["outcome"], "unfinished")
                world.write(ANDROID + "/ndk_integration.sh", script())
                self.assertEqual(world.install().code, 0)

    def test_as_json(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start(world, "install", more=["--json"])
        self.wait_for_script(world)
        process.terminate()
        code, out, _ = self.end_of(world, process)
        self.assertEqual(code, -signal.SIGTERM)
        self.assertRegex(out, r'\A{.*"outcome":"failed".*"exit_status":143.*"message":"interrupted"}\n\Z')

    def test_script_that_ends_in_its_own_way(self):
        world = self.blocked_world("trap 'echo tidied up; exit 0' TERM\n" + BLOCKING_SCRIPT)
        process = self.start(world)
        self.wait_for_script(world)
        process.terminate()
        code, out, err = self.end_of(world, process)
        self.assertEqual((code, err), (-signal.SIGTERM, INTERRUPTED))
        self.assertIn("\nscript printed: tidied up\n", out)

    def test_reader_that_takes_nothing(self):
        world = self.blocked_world("yes | head -c 60000\n" + BLOCKING_SCRIPT)
        process = self.start(world)
        group = self.group_of(world)
        process.terminate()
        self.wait_for_lock(world)
        self.assert_group_has_ended(group)
        code, out, err = self.end_of(world, process)
        self.assertEqual((code, err), (-signal.SIGTERM, INTERRUPTED))
        self.assertIn("\nscript printed: y\nfilled in: ", out)

    def test_during_removal(self):
        world = self.blocked_world("echo done")
        world.write(ANDROID + "/ndk_removal.sh", script(BLOCKING_SCRIPT))
        self.assertEqual(world.install().code, 0)
        before = world.tree()
        process = self.start(world, "undo")
        group = self.group_of(world)
        process.send_signal(signal.SIGINT)
        code, out, err = self.end_of(world, process)
        self.assertEqual((code, err), (-signal.SIGINT, INTERRUPTED))
        self.assertTrue(out.endswith("\nscript exit status: 130\n"), out)  # nothing is put back
        self.assert_group_has_ended(group)
        self.assertEqual(world.tree(), before)

    def test_during_build(self):
        world = self.blocked_world('cp -r x86_64-nox5.0.3.42 "$1/toolchains/"')
        world.write_all({
            "ndk/toolchains/": "", "ndk/build/core/toolchains/": "", "tmp/": "",
            f"{ANDROID}/x86_64-nox5.0.3.42/config.mk":
                "TOOLCHAIN_ARCH := x86_64\nTOOLCHAIN_ABIS := x86_64\n",
            "ndk/ndk-build": script(BLOCKING_SCRIPT.replace("../../..", world.path())),
        })
        world.write(ANDROID + "/ndk_integration.sh",
                    script('cp -r x86_64-nox5.0.3.42 "$1/build/core/toolchains/"'))
        self.assertEqual(world.install().code, 0)
        process = self.start(world, "verify", env={"TMPDIR": world.path("tmp")})
        group = self.group_of(world)
        process.send_signal(signal.SIGINT)
        code, _, err = self.end_of(world, process)
        self.assertEqual(code, -signal.SIGINT)
        self.assertTrue(err.endswith(INTERRUPTED), err)
        self.assert_group_has_ended(group)
        self.assertEqual(os.listdir(world.path("tmp")), [])

    def test_ignored_signal(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start(world, before=["env", "--ignore-signal=HUP"])
        self.wait_for_script(world)
        process.send_signal(signal.SIGHUP)
        self.let_script_go_on(world)
        self.assertEqual(self.end_of(world, process), (0, Install(printed="went on\n").out(), ""))

    def test_signals_of_the_script(self):
        world = self.small_world(runs="grep -E 'Sig(Blk|Ign)' /proc/self/status")
        changed = ["env", "--ignore-signal=INT,QUIT,PIPE,USR1", "--block-signal=TERM,USR2"]
        masks = re.findall(r"\\t([0-9a-f]{16})\n", world.install(before=changed).out)
        of_the_c_library = 3 << 31
        self.assertEqual([int(mask, 16) & ~of_the_c_library for mask in masks], [0, 0])

    def test_stop_and_continue(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start(world)
        running = int(self.wait_for_script(world)[1])
        process.send_signal(signal.SIGTSTP)
        _, status = os.waitpid(process.pid, os.WUNTRACED)
        self.assertTrue(os.WIFSTOPPED(status))
        while self.state_of(running) != "T":
            pass
        process.send_signal(signal.SIGCONT)
        self.let_script_go_on(world)
        self.assertEqual(self.end_of(world, process), (0, Install(printed="went on\n").out(), ""))


    @staticmethod
    def state_of(process):
        with open(f"/proc/{process}/stat", encoding="ascii") as stat:
            return stat.read().rpartition(")")[2].split()[0]


class Readers(LockTest):
    """A reader that goes away changes nothing of what is done."""

    def test_installation(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start(world)
        process.stdout.readline()
        self.wait_for_script(world)
        process.stdout.close()
        self.let_script_go_on(world)
        self.assertEqual(process.wait(), -signal.SIGPIPE)
        self.assertEqual(process.stderr.read(), b"")
        process.stderr.close()
        process.communicate = process.wait
        told = world.run("status", world.path("installation.toml"), "--json").json()
        self.assertEqual(told["outcome"], "installed")

    def code_without_reader(self, *options, stream="stdout", ignored=False):
        output, end = os.pipe()
        os.close(output)
        before = ["env", "--ignore-signal=PIPE"] if ignored else []
        how = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, stream: end}
        done = subprocess.run([*before, PROGRAM, *options], check=False, **how)
        os.close(end)
        return done.returncode, done.stderr

    def test_other_commands(self):
        for options in [["--help"], ["find", "--help"], ["release", "r21e"], ["release", "r21e", "--json"],
                        ["find", "--search", "/not/there", "--json"]]:
            self.assertEqual(self.code_without_reader(*options), (-signal.SIGPIPE, b""), options)
        code, _ = self.code_without_reader("release", "none", stream="stderr")
        self.assertEqual(code, -signal.SIGPIPE)

    def test_ignored_signal(self):
        cannot = said("cannot write to standard output").encode()
        self.assertEqual(self.code_without_reader("--help", ignored=True), (1, cannot))


class Terminal(SignalTest):
    """The program as the foreground process of a terminal."""

    def start_at_terminal(self, world):
        process, self.terminal = pty.fork()
        if process == 0:
            os.environ["LC_ALL"] = "C"
            os.execv(PROGRAM, [PROGRAM, "install", world.path("installation.toml")])
        self.addCleanup(os.close, self.terminal)
        self.printed = b""
        return process

    def read_until(self, end=None):
        """What the terminal shows up to `end`, or until the program has ended."""
        while end is None or end not in self.printed:
            ready, _, _ = select.select([self.terminal], [], [], 60)
            self.assertTrue(ready, self.printed)
            try:
                block = os.read(self.terminal, 4096)
            except OSError:
                break
            self.printed += block
        return self.printed.decode()

    def end(self, process):
        shown = self.read_until()
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), shown

    def test_long_silence(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start_at_terminal(world)
        self.wait_for_script(world)
        self.read_until(b"the script is still running, 5 s")
        self.let_script_go_on(world)
        code, shown = self.end(process)
        self.assertEqual(code, 0)
        self.assertRegex(shown, r"5 s\r +\rscript printed: went on\r\n")

    def test_interrupt_key(self):
        world = self.blocked_world(BLOCKING_SCRIPT)
        process = self.start_at_terminal(world)
        self.wait_for_script(world)
        os.write(self.terminal, b"\x03")
        code, shown = self.end(process)
        self.assertEqual(code, -signal.SIGINT)
        self.assertIn("not done: interrupted\r\n", shown)

    def test_script_that_reads_the_terminal(self):
        world = self.small_world(runs="printf 'name? ' > /dev/tty\nread name < /dev/tty\necho it is $name")
        process = self.start_at_terminal(world)
        self.read_until(b"name? ")
        os.write(self.terminal, b"Ada\n")
        code, shown = self.end(process)
        self.assertEqual(code, 0)
        self.assertIn("script printed: it is Ada\r\n", shown)
        self.assertIn("done: the compiler is integrated into", shown)

    def test_script_that_writes_to_the_terminal(self):
        world = self.small_world(runs="stty tostop < /dev/tty\necho by itself > /dev/tty\nexit 3")
        process = self.start_at_terminal(world)
        code, shown = self.end(process)
        self.assertEqual(code, 1)
        self.assertIn("by itself\r\n", shown)

    def test_interrupt_key_while_it_reads(self):
        world = self.small_world(runs="read key < /dev/tty\necho > /dev/tty 'Name? '\nread name < /dev/tty")
        process = self.start_at_terminal(world)
        self.read_until(b"script: ")
        os.write(self.terminal, b"\n")
        self.read_until(b"Name? ")
        os.write(self.terminal, b"\x03")
        code, shown = self.end(process)
        self.assertEqual(code, -signal.SIGINT)
        self.assertIn("not done: interrupted\r\n", shown)


if __name__ == "__main__":
    unittest.main()

"""The integration script under ndk-integrate install, end to end: what it sees, what is told of it,
and which names of NDKs cannot be given to it."""

import os
import unittest

from end_to_end import EndToEndTest
from messages import (
    BLANK, SCRIPT_MISSING, SHELL_SURPRISE, Install, disabled, log_of_install, not_done,
    script_failed, stands_against,
)
from world import (
    ANDROID, DISABLED, LINUX, SCRIPT, VARS_SH, filled, installation, script, small_tree, without,
)

SHELL_SURPRISES = {
    'a"b': 'a"b',
    "a$b": "a$b",
    "a`b": "a`b",
    "a\\b": "a\\b",
    "a\nb": "a\\nb",
    "a\tb": "a\\tb",
    "a\x1bb": "a\\x1bb",
    "a\x7fb": "a\\x7fb",
}
HARMLESS_NAMES = ["a b", " a ", "a;b", "a&b", "a|b", "*", "a<b>", "(a)", "#a", "~"]
HARMLESS_NAMES += ["-a", "a%sb", "café"]


class Output(EndToEndTest):
    """What the script prints, and its exit status."""

    def assert_printed(self, runs, lines, *options, status=0, log="", **how):
        printed = "".join(line + "\n" for line in lines)
        failed = script_failed(status) if status else ""
        report = Install(printed=printed, status=status, failed=failed)
        self.assert_installs(self.small_world(runs=runs), *options, report=report, log=log, **how)

    def test_lines(self):
        vars_sh = os.path.relpath(VARS_SH, ANDROID)  # from where the script runs
        for case, runs, lines in [
            ("both outputs in order", "echo one\necho two >&2\necho three\nprintf 'four' >&2",
             ["one", "two", "three", "four"]),
            ("empty lines", "printf '\\none\\n\\n\\ntwo\\n\\n'", ["", "one", "", "", "two", ""]),
            ("empty standard input", "cat\necho end of input", ["end of input"]),
            ("working directory", "pwd", [f"WORLD/{ANDROID}"]),
            ("control characters", r"printf 'red \033[31m\r\n\ta\000b\177 caf\303\251\n'",
             [r"red \x1b[31m\r", r"\ta\x00b\x7f café"]),
            # The environment scripts come after it.
            ("filled toolchain definitions", f"cat x86_64-nox5.0.3.42/setup.mk {vars_sh}",
             [f"WORLD/{LINUX}", "5.0.3.42", "", "", "ndk='<NDK_DIR>'"]),
        ]:
            with self.subTest(case):
                self.assert_printed(runs, lines)

    def test_in_log(self):
        for runs, lines, output in [
            (r"printf 'red \033[31m\r\n\tb\177 caf\303\251\n'",
             [r"red \x1b[31m\r", r"\tb\x7f café"], r"red \x1b[31m\r\n\tb\x7f café\n"),
            ("echo 100%s%n", ["100%s%n"], "100%s%n\\n"),
        ]:
            with self.subTest(runs):
                self.assert_printed(runs, lines, "-v", log=log_of_install(output))

    def test_not_utf_8_in_json(self):
        world = self.small_world(runs=r"printf 'caf\351 \303\251 \000\033\n'")
        report = Install(printed="caf\ufffde9 é \0\x1b\n")
        self.assert_installs(world, "--json", report=report)

    def test_log_file_not_inherited(self):
        runs = 'for fd in /proc/$$/fd/*; do readlink "$fd"; done | grep the.log\nexit 0'
        self.assert_printed(runs, [], "--log", "the.log")

    def test_failure(self):
        runs = "echo no room\necho at all >&2\nexit 7"
        for form in [[], ["--json"]]:
            self.assert_printed(runs, ["no room", "at all"], *form, status=7)

    def test_failure_again(self):
        world = self.small_world(runs="exit 7")
        world.install()
        report = Install(printed="", status=7, failed=script_failed(7), changed=False)
        self.assert_told(report, world.install(), world.install("--json"))

    def test_signal(self):
        # A shell says nothing about this signal.
        self.assert_printed("echo here\nkill -PIPE $$", ["here"], status=141)

    def test_child_signals_ignored(self):
        # As under a parent that lets the system collect its children.
        self.assert_printed("exit 7", [], status=7, before=["env", "--ignore-signal=CHLD"])

    def test_of_the_working_directory(self):
        # That of the working directory, whoever put it there, is not the package's.
        here = {"here/ndk_integration.sh": script("touch it-ran")}
        world = self.world({**without(small_tree(), SCRIPT), **here})
        self.assert_refused(world, stands_against(SCRIPT_MISSING), cwd=world.path("here"))

    def test_interpreter_missing(self):
        for line, shown in [("#!/not/there", "/not/there"), ("#! /bin/sh\r\n", "/bin/sh\\r")]:
            world = self.small_world(**{SCRIPT: line})
            why = f"the integration script ./ndk_integration.sh is for {shown}, which is missing or "
            why += f"not executable in WORLD/{ANDROID}"
            told = world.install()
            self.assert_outcome(told, 1, stands_against(why).out(), not_done(why), kept=True)


class ShellSurprises(EndToEndTest):
    """Names of NDKs that the shell would not give to the script as they are."""

    def world_with_ndk(self, name):
        world = self.small_world(runs='printf "<%s>" "$@"')
        os.rename(world.path("ndk"), world.path(name))
        return world

    def assert_surprises(self, world, shown, *options, **how):
        message = SHELL_SURPRISE.format(f"WORLD/{shown}")
        told = world.install(*options, **how)
        steps = stands_against(message, ndk=f"WORLD/{shown}").out()
        self.assert_outcome(told, 1, steps, not_done(message), kept=True)
        dry = world.install("--dry-run", *options, **how)
        self.assert_outcome(dry, 1, dry.out, told.err, kept=True)

    def test_refused(self):
        for name, shown in SHELL_SURPRISES.items():
            with self.subTest(name):
                world = self.world_with_ndk(name)
                self.assert_surprises(world, shown, "--ndk", world.path(name))

    def test_every_control_character(self):
        for code in [*range(1, 0x20), 0x7F]:
            with self.subTest(code):
                world = self.world_with_ndk(chr(code))
                shown = {9: "\\t", 10: "\\n", 13: "\\r"}.get(code, f"\\x{code:02x}")
                self.assert_surprises(world, shown, "--ndk", world.path(chr(code)))

    def test_other_ways_to_name_it(self):
        search = "--set=NDK_DEFAULT_SEARCH_PATH_LINUX=a$b"
        world = self.world_with_ndk("a$b")
        self.assert_surprises(world, "a$b", search, cwd=world.dir)
        world.write("installation.toml", installation(NDK_PATH="'a$b'"))
        self.assert_surprises(world, "a$b")

    def test_installed_compiler(self):
        world = self.installed_world()
        os.rename(world.path("ndk"), world.path("a`b"))
        self.assert_surprises(world, "a`b", "--ndk", world.path("a`b"))

    def assert_given(self, world, name):
        ndk = f"WORLD/{name}"
        warnings = [BLANK.format(ndk)] if " " in ndk else []
        report = Install(ndk=ndk, printed=f"<{ndk}><--force>", warnings=warnings)
        self.assert_told(
            report, world.install("--ndk", world.path(name)), changed=filled(ndk, first=True)
        )

    def test_link_with_plain_name(self):
        # The way round that the message tells.
        for name in SHELL_SURPRISES:
            with self.subTest(name):
                world = self.world_with_ndk(name)
                world.write("plain", f"-> {name}")
                self.assert_given(world, "plain")

    def test_harmless_names(self):
        for name in HARMLESS_NAMES:
            with self.subTest(name):
                self.assert_given(self.world_with_ndk(name), name)

    def test_without_integration(self):
        # No script, so no shell.
        world = self.world_with_ndk("a$b")
        outcome = world.install("--ndk", world.path("a$b"), DISABLED)
        self.assert_told(disabled(ndk="WORLD/a$b"), outcome, changed=filled("", first=True))


if __name__ == "__main__":
    unittest.main()

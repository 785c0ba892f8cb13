"""The command line of ndk-integrate, end to end: its help, and what it says of wrong usage."""

import os
import pty
import re
import subprocess
import termios
import unittest

from end_to_end import EndToEndTest
from messages import cannot_open_log, misunderstood, not_expected, said, value_missing
from world import PROGRAM, ROOT

COMMON = {"-h", "--help", "--version", "--log", "--plugin", "-v", "-q"}
INSTALLATION = {"INSTALLATION.toml", "--set", "--json"}
# What each command takes. How its description is laid out is the command-line library's affair.
TAKES = {
    "find": {
        "--search", "--supported", "--all", "--json", "--project", "--no-project", "--newest",
        "--prerelease", "--read-only", "--lock", "--locked", "--format",
    },
    "check": {"DIR", "--supported", "--read-only", "--json"},
    "release": {"RELEASE", "--json"},
    "install": {*INSTALLATION, "--ndk", "--dry-run", "--optional", "--keep-ndk", "--verify"},
    "undo": {*INSTALLATION, "--dry-run", "--force", "--keep-ndk"},
    "verify": {*INSTALLATION, "--ndk", "--no-build", "--keep"},
    "status": INSTALLATION,
    "check-host": {"--library", "--program", "--json"},
}


def read_all(terminal):
    """What was written to a terminal that is closed at its other end."""
    text = b""
    try:
        while block := os.read(terminal, 4096):
            text += block
    except OSError:
        pass
    return text


class Help(EndToEndTest):
    def help_of(self, *command, columns="80"):
        outcome = self.world().run(*command, "--help", env={"COLUMNS": columns})
        self.assert_outcome(outcome, out=outcome.out)
        return outcome.out

    def test_of_each_command(self):
        for command, takes in TAKES.items():
            with self.subTest(command):
                text = self.help_of(command)
                options = set(re.findall(r"(?<![\w-])--?[a-z][\w-]*", text))
                arguments = set(re.findall(r"^ +(INSTALLATION.toml|DIR|RELEASE)\b", text, re.MULTILINE))
                self.assertEqual(options | arguments, COMMON | takes, text)

    def test_of_the_program(self):
        text = " ".join(self.help_of().split())
        commands = [f" {command} " for command in TAKES]
        self.assertEqual([one for one in commands if one not in text], [], text)

    def test_exit_codes(self):
        codes = [
            "0 done", "1 not done; the message says why", "2 wrong usage or a wrong file",
            "3 the plug-in cannot be loaded",
            "4 nothing to do here: no NDK can be used, or no component asks for one",
        ]
        for command in [[], *([command] for command in TAKES)]:
            text = " ".join(self.help_of(*command).split())
            self.assertTrue(text.endswith("Exit codes: " + " ".join(codes)), text)

    def test_width(self):
        for command in [[], *([command] for command in TAKES)]:
            words = self.help_of(*command, columns="1000").split()
            for columns, width in [("48", 48), ("60", 60), ("100", 100), ("0", 80), ("wide", 80)]:
                text = self.help_of(*command, columns=columns)
                self.assertEqual(text.split(), words)
                self.assertLessEqual(max(len(line) for line in text.splitlines()), width, text)

    def test_of_one_command(self):
        text = self.help_of("release", columns="60")
        self.assertIn("\n  --log FILE        Append the installation log to FILE\n", text)
        self.assertIn("standard\n                    error\n", text)

    def test_width_of_the_terminal(self):
        ours, terminal = pty.openpty()
        termios.tcsetwinsize(terminal, (24, 50))
        environment = {name: os.environ[name] for name in os.environ if name != "COLUMNS"}
        subprocess.run([PROGRAM, "find", "--help"], env=environment, stdout=terminal, check=True)
        os.close(terminal)
        text = read_all(ours).decode()
        self.assertTrue(40 < max(len(line) for line in text.splitlines()) <= 50, text)

    def test_version(self):
        for command in [[], ["find"], ["check"]]:
            outcome = self.world().run(*command, "--version")
            self.assert_outcome(outcome, out="ndk-integrate 1.0.0\n")


class ManualPage(EndToEndTest):
    def test_options_and_values(self):
        with open(f"{ROOT}/docs/ndk-integrate.1", encoding="utf-8") as file:
            page = file.read()
        with open(f"{ROOT}/docs/ndk-integrate.schema.json", encoding="utf-8") as file:
            lists = re.findall(r'"enum": \[([^]]*)\]', file.read())
        values = {value for found in lists for value in re.findall(r'"([^"]+)"', found)}
        self.assertIn("notwritable", values)
        outcomes = "integrated disabled not-selected no-ndk failed undone nothing-to-undo installed"
        values |= {*outcomes.split(), "unfinished", "not-installed", "wrong-usage", "no-plugin"}
        missing = [value for value in values if not re.search(rf"\bLi\b.* {value}\b", page)]
        options = {one for takes in TAKES.values() for one in takes} | COMMON
        missing += [one for one in options if one[0] == "-" and f"Fl {one[1:]}" not in page]
        self.assertEqual(missing, [])


class WrongUsage(EndToEndTest):
    def test_messages(self):
        for command, err in [
            ([], misunderstood("no command is given")),
            (["remove"], misunderstood("unknown command 'remove'")),
            (["instal"], misunderstood("unknown command 'instal' (did you mean 'install'?)")),
            (["-V"], not_expected("-V")),
            (["-x", "find"], not_expected("-x", "find")),
            (["-"], misunderstood("unknown command '-'")),
            (["install"], misunderstood("INSTALLATION.toml is missing", "install")),
            (["install", "--force=a"], not_expected("--force", "install")),
            (["install", "a.toml", "--dryrun"],
             misunderstood("unknown option '--dryrun' (did you mean '--dry-run'?)", "install")),
            (["find", "--no-project", "--project", "a"],
             misunderstood("--project cannot stand together with --no-project", "find")),
            (["install", "a.toml", "more"], not_expected("more", "install")),
            (["install", "--", "a.toml", "more"], not_expected("more", "install")),
            (["install", "--", "a.toml", "-q"], misunderstood("unexpected argument '-q'", "install")),
            (["install", "--"], misunderstood("INSTALLATION.toml is missing", "install")),
            (["install", "a.toml", "--dry-run=b"],
             misunderstood("--dry-run takes no value", "install")),
            (["install", "a.toml", "--force"], not_expected("--force", "install")),
            (["install", "a.toml", "--log"], value_missing("--log", "install")),
            (["install", "a.toml", "--plugin"], value_missing("--plugin", "install")),
            (["install", "a.toml", "--ndk"], value_missing("--ndk", "install")),
            (["install", "a.toml", "--set"], value_missing("--set", "install")),
            (["check"], misunderstood("DIR is missing", "check")),
            (["check", ""], said("check: the directory's name is empty")),
            (["check", "a", "b"], not_expected("b", "check")),
            (["check", "a", "--all"], not_expected("--all", "check")),
            (["check", "a", "--supported", "r9", "--supported", "r10"],
             misunderstood("--supported may be given only once", "check")),
            (["check", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
            (["find", "--search"], value_missing("--search", "find")),
            (["find", "--search", ""], said("--search names no directory")),
            (["find", "--search", ";", "--search", ";;"], said("--search names no directory")),
            (["find", "--al"], misunderstood("unknown option '--al' (did you mean '--all'?)", "find")),
            (["find", "a"], not_expected("a", "find")),
            (["find", "--search", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
        ]:
            with self.subTest(command):
                self.assert_outcome(self.world().run(*command), code=2, err=err)


if __name__ == "__main__":
    unittest.main()

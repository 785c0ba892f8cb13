"""The command line of ndk-integrate, end to end: its help, and what it says of wrong usage."""

import re
import unittest

from end_to_end import EndToEndTest
from messages import cannot_open_log, misunderstood, not_expected, said, value_missing

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


class Help(EndToEndTest):
    def help_of(self, *command):
        outcome = self.world().run(*command, "--help")
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
        codes = ["0 done", "1 not done", "2 wrong usage", "3 the plug-in", "4 nothing to do"]
        self.assertEqual([one for one in commands + codes if one not in text], [], text)

    def test_version(self):
        for command in [[], ["find"], ["check"]]:
            outcome = self.world().run(*command, "--version")
            self.assert_outcome(outcome, out="ndk-integrate 1.0.0\n")


class WrongUsage(EndToEndTest):
    def test_messages(self):
        for command, err in [
            ([], misunderstood("A subcommand is required")),
            (["remove"], said("unknown command 'remove'; see ndk-integrate --help")),
            (["install"], misunderstood("INSTALLATION.toml is required", "install")),
            (["install", "a.toml", "more"], not_expected("more", "install")),
            (["install", "a.toml", "--force"], not_expected("--force", "install")),
            (["install", "a.toml", "--log"], value_missing("--log", "install")),
            (["install", "a.toml", "--plugin"], value_missing("--plugin", "install")),
            (["install", "a.toml", "--ndk"], value_missing("--ndk", "install")),
            (["install", "a.toml", "--set"], value_missing("--set", "install")),
            (["check"], misunderstood("DIR is required", "check")),
            (["check", ""], said("check: the directory's name is empty")),
            (["check", "a", "b"], not_expected("b", "check")),
            (["check", "a", "--all"], not_expected("--all", "check")),
            (["check", "a", "--supported", "r9", "--supported", "r10"],
             misunderstood("--supported: At Most 1 required but received 2", "check")),
            (["check", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
            (["find", "--search"], value_missing("--search", "find")),
            (["find", "--search", ""], said("--search names no directory")),
            (["find", "--search", ";", "--search", ";;"], said("--search names no directory")),
            (["find", "--al"], not_expected("--al", "find")),
            (["find", "a"], not_expected("a", "find")),
            (["find", "--search", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
        ]:
            with self.subTest(command):
                self.assert_outcome(self.world().run(*command), code=2, err=err)


if __name__ == "__main__":
    unittest.main()

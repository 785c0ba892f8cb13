"""The command line of ndk-integrate, end to end: its help, and what it says of wrong usage."""

import unittest

from end_to_end import EndToEndTest
from messages import cannot_open_log, misunderstood, not_expected, said, value_missing

COMMON_OPTIONS = """\
  --version                   Display program version information and exit
  --log FILE                  Append the installation log to FILE
  --plugin FILE               Load the plug-in from FILE
  -v                          Show the installation log on standard error
  -q                          Print the result and what went wrong, no steps

"""
SUPPORTED = (
    "  --supported LIST            Releases that are supported, as r10e;r11c; any readable one "
    "without this\n"
)
CHECK_HELP = f"""\
Judge one directory
Usage: ndk-integrate check [OPTIONS] DIR

Positionals:
  DIR                         The directory

Options:
  -h,--help                   Print this help message and exit
{SUPPORTED}\
  --json                      Print one JSON object
{COMMON_OPTIONS}"""
FIND_HELP = f"""\
Find an NDK, and tell why the others are not good
Usage: ndk-integrate find [OPTIONS]

Options:
  -h,--help                   Print this help message and exit
  --search DIR[;DIR...]       Look in these directories, in this order, instead of the usual places
{SUPPORTED}\
  --all                       Judge every directory, not only up to the first good one
  --json                      Print one JSON object
{COMMON_OPTIONS}"""


class Help(EndToEndTest):
    def test_whole(self):
        for command, out in {"check": CHECK_HELP, "find": FIND_HELP}.items():
            self.assert_outcome(self.world().run(command, "--help"), out=out)

    def test_mentions(self):
        common = ["-h", "--help", "--log FILE", "--plugin FILE", "-v", "-q", "--version"]
        of_install = ["INSTALLATION.toml", "--ndk DIR", "--set NAME=VALUE", "--dry-run", "--json"]
        for command, texts in [
            ([], ["install", "undo", "find", "check", "check-host"]),
            (["install"], of_install),
            (["undo"], ["INSTALLATION.toml", "--json"]),
        ]:
            with self.subTest(command):
                outcome = self.world().run(*command, "--help")
                self.assert_outcome(outcome, out=outcome.out)
                missing = [text for text in [*common, *texts] if text not in outcome.out]
                self.assertEqual(missing, [], outcome.out)

    def test_version(self):
        for command in [[], ["find"], ["check"]]:
            outcome = self.world().run(*command, "--version")
            self.assert_outcome(outcome, out="ndk-integrate 1.0.0\n")


class WrongUsage(EndToEndTest):
    def test_messages(self):
        for command, err in [
            ([], misunderstood("A subcommand is required")),
            (["remove"], said("unknown command 'remove'; see ndk-integrate --help")),
            (["install"], misunderstood("INSTALLATION.toml is required")),
            (["install", "a.toml", "more"], not_expected("more")),
            (["install", "a.toml", "--force"], not_expected("--force")),
            (["install", "a.toml", "--log"], value_missing("--log")),
            (["install", "a.toml", "--plugin"], value_missing("--plugin")),
            (["install", "a.toml", "--ndk"], value_missing("--ndk")),
            (["install", "a.toml", "--set"], value_missing("--set")),
            (["check"], misunderstood("DIR is required")),
            (["check", ""], said("check: the directory's name is empty")),
            (["check", "a", "b"], not_expected("b")),
            (["check", "a", "--all"], not_expected("--all")),
            (["check", "a", "--supported", "r9", "--supported", "r10"],
             misunderstood("--supported: At Most 1 required but received 2")),
            (["check", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
            (["find", "--search"], value_missing("--search")),
            (["find", "--search", ""], said("--search names no directory")),
            (["find", "--search", ";", "--search", ";;", "--json"],
             said("--search names no directory")),
            (["find", "--al"], not_expected("--al")),
            (["find", "a"], not_expected("a")),
            (["find", "--search", "a", "--log", "gone/log"], cannot_open_log("gone/log")),
        ]:
            with self.subTest(command):
                self.assert_outcome(self.world().run(*command), code=2, err=err)


if __name__ == "__main__":
    unittest.main()

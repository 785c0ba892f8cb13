"""ndk-integrate install --dry-run, end to end: it shows what an installation would do, and does
nothing."""

import json
import os
import re
import shutil
import subprocess
import unittest

from end_to_end import EndToEndTest
from messages import (
    DRY, NOT_DONE, NOT_ORDINARY, NO_PACKAGE, SCRIPT_MISSING, TEMPLATE_MISSING, Install, disabled,
    edited, log_of_install, no_ndk, not_selected, refused, with_files,
)
from world import (
    CC, DISABLED, LINUX, NO_LEAK_SEARCH, ORIGINALS, SCRIPT, TEMPLATES, VARS_CSH, VARS_SH, filled,
    installation, script, small_tree, without,
)


def diff_of(file, before, after):
    """The diff of a file of which every line changes, and to which empty lines are added."""
    old, new = before.splitlines(), after.splitlines()
    old_lines = "-1" if len(old) == 1 else f"-1,{len(old)}"
    begin = f"--- WORLD/{file}\n+++ WORLD/{file}\n@@ {old_lines} +1,{len(new)} @@\n"
    return begin + "".join(f"-{line}\n" for line in old) + "".join(f"+{line}\n" for line in new)


def diffs(*left_out, ndk="WORLD/ndk"):
    """The diffs of the small tree's templates."""
    after = filled(ndk)
    return [
        diff_of(file, ORIGINALS[file], after[file].removeprefix("644 "))
        for file in TEMPLATES
        if file not in left_out
    ]


class DryRunTest(EndToEndTest):
    def dry_run(self, world, *options, **how):
        """Runs an installation dry, and proves that it touches nothing outside of TMPDIR and leaves
        nothing there."""
        tmp = os.path.join(world.top, "tmp")
        os.makedirs(tmp, exist_ok=True)
        before = world.touched(world.top, leave_out=tmp)
        outcome = world.install("--dry-run", *options, env={"TMPDIR": tmp}, **how)
        self.assertEqual(world.touched(world.top, leave_out=tmp), before)
        self.assertEqual(os.listdir(tmp), [])
        return outcome

    def assert_dry(self, world, report, *options):
        """A dry run tells this, in both forms, and touches nothing."""
        outcomes = [self.dry_run(world, *options, *form) for form in [[], ["--json"]]]
        self.assert_told(report, *outcomes, kept=True)


class DryRun(DryRunTest):
    def test_first_installation(self):
        self.assert_dry(self.small_world(runs="touch it-ran"), Install(diffs=diffs()))

    def test_disabled(self):
        self.assert_dry(self.small_world(), disabled(diffs=diffs(ndk="")), DISABLED)
        # Nobody would run a script.
        world = self.world(without(small_tree(), SCRIPT))
        self.assert_dry(world, disabled(diffs=diffs(ndk="")), DISABLED)

    def test_of_installed_compiler(self):
        self.assert_dry(self.installed_world(), Install(diffs=["", "", "", ""]))

    def test_of_other_ndk(self):
        world = self.installed_world()
        changed = [
            f"--- WORLD/{file}\n+++ WORLD/{file}\n@@ -1,2 +1,2 @@\n"
            f"-{line.format('WORLD/ndk')}\n+{line.format('WORLD/other ndk')}\n \n"
            for file, line in {VARS_SH: "ndk='{}'", VARS_CSH: "set ndk = '{}'"}.items()
        ]
        other = {"ndk": "WORLD/other ndk", "release": "r11b", "revision": "11.1.1"}
        report = Install(diffs=["", "", *changed], **other)
        self.assert_dry(world, report, "--ndk", world.path("other ndk"))

    def test_quiet(self):
        outcome = self.dry_run(self.small_world(), "-q")
        report = Install(diffs=diffs())
        self.assert_outcome(outcome, out="".join(diffs()) + report.result())

    def test_log(self):
        # The plug-in reports what it does; the script, which does not run, prints nothing.
        outcome = self.dry_run(self.small_world(), "-v")
        self.assert_told(Install(diffs=diffs()), outcome, log=log_of_install(""))


class DryRunThatFails(DryRunTest):
    """The outcome is the one that an installation would have."""

    def test_before_the_templates(self):
        for case, tree, report in [
            ("no NDK", without(small_tree(), "ndk/ndk-build"), no_ndk()),
            ("nothing selected", small_tree(installation("")), not_selected()),
            ("no package", small_tree(installation(VORN_INSTALL_DIR='"elsewhere"')),
             refused(NO_PACKAGE.format("WORLD/elsewhere/cc"))),
        ]:
            with self.subTest(case):
                self.assert_dry(self.world(tree), report)

    def test_edited_file(self):
        world = self.installed_world()
        world.append(VARS_SH, "export MINE=1\n")
        self.assert_dry(world, refused(edited(VARS_SH)))

    def test_script_that_cannot_run(self):
        tree = without(small_tree(), SCRIPT)
        for case, in_its_place in {
            "missing": {}, "not executable": {SCRIPT: (0o644, script())}, "dir": {SCRIPT + "/": ""}
        }.items():
            with self.subTest(case):
                report = Install(failed=SCRIPT_MISSING, diffs=diffs())
                self.assert_dry(self.world({**tree, **in_its_place}), report)

    def test_missing_template(self):
        for file in TEMPLATES:
            with self.subTest(file):
                report = Install(
                    files=with_files(**{file: "missing"}),
                    diffs=diffs(file),
                    failed=TEMPLATE_MISSING.format(file),
                )
                self.assert_dry(self.world(without(small_tree(), file)), report)

    def test_directory_in_place_of_template(self):
        for file in TEMPLATES:
            with self.subTest(file):
                world = self.world({**without(small_tree(), file), file + "/": ""})
                self.assert_dry(world, refused(NOT_ORDINARY.format(file)))

    def test_without_permission(self):
        for name in [CC, LINUX + "/bin"]:
            with self.subTest(name):
                world = self.small_world(**{name + "/": (0o555, "")})
                dry = world.install("--dry-run", "--json", unprivileged=True)
                real = world.install("--json", unprivileged=True)
                self.assertEqual(
                    (dry.code, json.loads(dry.out)["outcome"], dry.changes),
                    (real.code, json.loads(real.out)["outcome"], {}),
                )


class TemporaryDirectory(EndToEndTest):
    def test_unset_or_relative(self):
        world = self.world({**small_tree(), "here/tmp/": ""})
        unset = {"before": ["env", "-u", "TMPDIR"]}
        relative = {"cwd": world.path("here"), "env": {"TMPDIR": "tmp"}}
        outcomes = [world.install("--dry-run", **how) for how in [unset, relative]]
        self.assert_told(Install(diffs=diffs()), *outcomes, kept=True)

    def test_missing(self):
        world = self.small_world()
        outcome = world.install("--dry-run", env={"TMPDIR": world.path("not there")})
        self.assertEqual((outcome.code, outcome.changes, outcome.kept), (1, {}, {}))
        self.assertRegex(outcome.err, rf"\A{NOT_DONE}[^\n]*WORLD/not there[^\n]*\n\Z")


# What a system call that changes a file is called.
WRITING_CALLS = re.compile(
    r"(creat|mkdir|mkdirat|mknod|mknodat|rmdir|unlink|unlinkat|rename|renameat|renameat2|link|"
    r"linkat|symlink|symlinkat|chmod|fchmod|fchmodat|fchmodat2|chown|lchown|fchown|fchownat|"
    r"truncate|ftruncate|fallocate|utime|utimes|utimensat|futimesat|setxattr|lsetxattr|fsetxattr|"
    r"removexattr|lremovexattr|fremovexattr)\Z"
)


@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
@unittest.skipIf("GCOV_ERROR_FILE" in os.environ, "a program that counts lines writes files")
class SystemCalls(EndToEndTest):
    """A second proof: what the processes of a dry run ask the system to do."""

    def calls(self, world, tmp):
        trace = os.path.join(world.top, "trace")
        names = "trace=%file,fchmod,fchown,ftruncate,fallocate,fsetxattr,fremovexattr"
        strace = ["strace", "-f", "-qq", "-y", "-s", "10000", "-o", trace, "-e", names]
        outcome = world.install("--dry-run", before=strace, env={**NO_LEAK_SEARCH, "TMPDIR": tmp})
        self.assertEqual(outcome.code, 0, outcome)
        with open(trace, encoding="utf-8") as lines:
            for line in lines:
                call = re.match(r"\d+ +(\w+)\((.*)", line)
                if call:
                    yield call.groups()

    @staticmethod
    def is_writing(name, arguments):
        opened = name.startswith("open") and re.search(r"O_(WRONLY|RDWR|CREAT|TRUNC)", arguments)
        return bool(opened or WRITING_CALLS.match(name))

    @staticmethod
    def paths(arguments):
        """The paths in a call's arguments, those relative to an open directory made absolute."""
        found = re.findall(r'(?:[\w]+<([^>]*)>, )?"((?:[^"\\]|\\.)*)"', arguments)
        if not found:
            return re.findall(r"^\d+<([^>]*)>", arguments)
        return [os.path.join(directory, path) for directory, path in found]

    def test_all_changes_in_tmpdir(self):
        world = self.small_world()
        tmp = os.path.join(world.top, "tmp")
        os.mkdir(tmp)
        written, programs = set(), set()
        for name, arguments in self.calls(world, tmp):
            if self.is_writing(name, arguments):
                written.update(self.paths(arguments))
            elif name == "execve" and " = 0" in arguments:
                programs.add(os.path.basename(self.paths(arguments)[0]))
        self.assertNotEqual(written, set())
        outside = {path for path in written if not path.startswith(tmp + "/")}
        self.assertEqual(outside - {"/dev/null"}, set())
        self.assertEqual(programs, {"ndk-integrate", "diff"})


@unittest.skipUnless(shutil.which("patch"), "patch is not installed")
class Diff(EndToEndTest):
    """`patch` makes of the diff, byte for byte, what the installation makes."""

    def assert_diff_installs(self, world, *options):
        before = world.read_all()
        toml = world.path("installation.toml")
        dry = world.start("install", toml, "--dry-run", "-q", *options)
        self.assertEqual((dry.returncode, dry.stderr), (0, b""))
        diff = dry.stdout[dry.stdout.index(b"--- ") :].partition(DRY.encode())[0]
        patch = ["patch", "--batch", "-p1", "-d", "/"]
        done = subprocess.run(patch, input=diff, capture_output=True, check=False)
        self.assertEqual(done.returncode, 0, done)
        patched = world.read_all()
        world.write_all(before)
        self.assertEqual(world.install(*options).code, 0)
        self.assertEqual(patched, world.read_all())
        self.assertNotEqual(patched, before)

    def test_kinds_of_run(self):
        self.assert_diff_installs(self.small_world())
        self.assert_diff_installs(self.small_world(), DISABLED)
        world = self.installed_world()
        self.assert_diff_installs(world, "--ndk", world.path("other ndk"))

    def test_names(self):
        for name in ["a world  with blanks", "café"]:
            with self.subTest(name):
                self.assert_diff_installs(self.world(small_tree(), name=name))

    def test_forms_of_text(self):
        long = "".join(f"line {number} in {{INSTALL_NOX_VERSION}}\n" for number in range(1000))
        for text in [
            "",
            "\n",
            "no line end <NDK_DIR> {INSTALL_NOX_VERSION}",
            "carriage\r\nreturns <NDK_DIR>\r\n",
            "--- <NDK_DIR>\n+++ <NDK_DIR>\n@@ -1 +1 @@\n",
            b"not UTF-8 caf\xe9 <NDK_DIR>\n",
            b"a NUL \x00 <NDK_DIR>\n\x00\n",
            long,
        ]:
            with self.subTest(text[:40]):
                self.assert_diff_installs(self.small_world(**dict.fromkeys(TEMPLATES, text)))


if __name__ == "__main__":
    unittest.main()

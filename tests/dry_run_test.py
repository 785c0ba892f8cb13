"""ndk-integrate install --dry-run, end to end: it shows what an installation would do, and does
nothing."""

import os
import shutil
import subprocess
import unittest

from end_to_end import EndToEndTest
from messages import (
    DRY, IS_LINK, NDK, NOT_DONE, NOT_ORDINARY, NOT_WRITABLE, SCRIPT_MISSING, TEMPLATE_MISSING, Install,
    cannot, disabled, edited, log_of_install, stands_against, with_files,
)
from strace import needs_plain_program, needs_strace, run_traced
from world import (
    AS_NOBODY, CC, DISABLED, LINUX, ORIGINALS, SCRIPT, TEMPLATES, VARS_CSH, VARS_SH, filled, script,
    small_tree, without,
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
        os.chmod(tmp, 0o777)
        if how.pop("unprivileged", False) and os.geteuid() == 0:
            how.update(program=world.give_to_nobody(), before=AS_NOBODY)
        before = world.touched(world.dir)
        outcome = world.install("--dry-run", *options, env={"TMPDIR": tmp}, **how)
        self.assertEqual(world.touched(world.dir), before)
        self.assertEqual(os.listdir(tmp), [])
        return outcome

    def assert_dry(self, world, report, *options, **how):
        """A dry run tells this, in both forms, and touches nothing."""
        outcomes = [self.dry_run(world, *options, *form, **how) for form in [[], ["--json"]]]
        self.assert_told(report, *outcomes, kept=True)


class DryRun(DryRunTest):
    def test_first_installation(self):
        self.assert_dry(self.small_world(runs="touch it-ran"), Install(diffs=diffs()))

    def test_disabled(self):
        for tree in [small_tree(), without(small_tree(), SCRIPT)]:  # which nobody would run
            self.assert_dry(self.world(tree), disabled(diffs=diffs(ndk="")), DISABLED)

    def test_of_installed_compiler(self):
        self.assert_dry(self.installed_world(), Install(diffs=["", "", "", ""], changed=False))

    def test_of_other_ndk(self):
        world = self.installed_world()
        changed = [
            f"--- WORLD/{file}\n+++ WORLD/{file}\n@@ -1,2 +1,2 @@\n"
            f"-{line.format('WORLD/ndk')}\n+{line.format('WORLD/other ndk')}\n \n"
            for file, line in {VARS_SH: "ndk='{}'", VARS_CSH: "set ndk = '{}'"}.items()
        ]
        report = Install.other_ndk(diffs=["", "", *changed], former_ndk=NDK)
        self.assert_dry(world, report, "--ndk", world.path("other ndk"))

    def test_contents(self):
        world = self.small_world()
        files = self.dry_run(world, "--json").json()["files"]
        for when, install in [("before", lambda: None), ("after", world.install)]:
            install()
            expected = {world.hidden(world.path(file)): world.read(file) for file in TEMPLATES}
            self.assertEqual({file["path"]: file[when] for file in files}, expected)

    def test_contents_of_refused_file(self):
        world = self.world(without(small_tree(), VARS_SH))
        files = self.dry_run(world, "--json").json()["files"]
        self.assertEqual(
            [file["path"] for file in files if file["before"] is None and file["after"] is None],
            [world.hidden(world.path(VARS_SH))],
        )

    def test_quiet(self):
        outcome = self.dry_run(self.small_world(), "-q")
        report = Install(diffs=diffs())
        self.assert_outcome(outcome, out="".join(diffs()) + report.result())

    def test_log(self):
        # The plug-in reports what it does; the script, which does not run, prints nothing.
        outcome = self.dry_run(self.small_world(), "-v")
        self.assert_told(Install(diffs=diffs()), outcome, log=log_of_install(""))


class Problem(DryRunTest):
    """It is told as by an installation; what that would work on is shown. Neither does anything."""

    def assert_problem(self, world, problem, file_diffs=None, unprivileged=False, **found):
        report = Install(
            files=with_files(**found), diffs=diffs(*found) if file_diffs is None else file_diffs,
            failed=problem, problem=True, changed=False,
        )
        self.assert_dry(world, report, unprivileged=unprivileged)
        self.assert_refused(world, stands_against(problem), unprivileged=unprivileged)

    def test_script(self):
        for in_its_place in [{}, {SCRIPT: (0o644, script())}, {SCRIPT + "/": ""}]:
            with self.subTest(in_its_place):
                world = self.world({**without(small_tree(), SCRIPT), **in_its_place})
                self.assert_problem(world, SCRIPT_MISSING)

    def test_missing_template(self):
        for file in TEMPLATES:
            for text, how, inside in [
                (TEMPLATE_MISSING, "missing", {}), (NOT_ORDINARY, "failed", {f"{file}/inside": ""})
            ]:
                with self.subTest(file, how=how):
                    world = self.world({**without(small_tree(), file), **inside})
                    self.assert_problem(world, text.format(file), **{file: how})

    def test_link(self):
        for file in TEMPLATES:
            for target in ["target", "nowhere", "dir", "/dev/null"]:
                with self.subTest(file, target=target):
                    world = self.world({**without(small_tree(), file), "dir/": ""})
                    world.write("target", "<NDK_DIR>\n")
                    world.write(file, f"-> {world.path(target)}")
                    self.assert_refused(world, stands_against(IS_LINK.format(file)))

    def test_edited_file(self):
        world = self.installed_world()
        world.append(VARS_SH, "export MINE=1\n")
        self.assert_problem(world, edited(VARS_SH), [""] * 3, **{VARS_SH: "failed"})

    def test_without_permission(self):
        for name in [CC, LINUX + "/bin"]:
            with self.subTest(name):
                world = self.small_world(**{name + "/": (0o555, "")})
                self.assert_problem(world, NOT_WRITABLE.format(name), unprivileged=True)
        world = self.small_world(**{VARS_SH: (0o200, ORIGINALS[VARS_SH])})
        report = stands_against(cannot("read", VARS_SH))
        self.assert_refused(world, report, unprivileged=True)


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


@needs_strace
@needs_plain_program
class SystemCalls(EndToEndTest):
    """A second proof: what the processes of a dry run ask the system to do."""

    def test_all_changes_in_tmpdir(self):
        world = self.small_world()
        tmp = os.path.join(world.top, "tmp")
        os.mkdir(tmp)
        command = ["install", world.path("installation.toml"), "--dry-run"]
        outcome, written, programs = run_traced(world, *command, env={"TMPDIR": tmp})
        self.assertEqual((outcome.code, programs), (0, {"ndk-integrate", "diff"}), outcome)
        self.assertNotEqual(written, set())
        self.assertEqual({path for path in written if not path.startswith(tmp + "/")}, set())


@unittest.skipUnless(shutil.which("patch"), "patch is not installed")
class Diff(EndToEndTest):
    """`patch` makes of the diff, byte for byte, what the installation makes."""

    def assert_diff_installs(self, world, *options):
        before = world.read_all()
        toml = world.path("installation.toml")
        dry = world.start("install", toml, "--dry-run", "-q", *options)
        self.assertEqual(dry.returncode, 0)
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
        for text in [
            "", "\n", "no line end <NDK_DIR> {INSTALL_NOX_VERSION}",
            "carriage\r\nreturns <NDK_DIR>\r\n",
            "--- <NDK_DIR>\n+++ <NDK_DIR>\n@@ -1 +1 @@\n",
            b"not UTF-8 caf\xe9 <NDK_DIR>\n", b"a NUL \x00 <NDK_DIR>\n\x00\n",
            "".join(f"line {number} in {{INSTALL_NOX_VERSION}}\n" for number in range(1000)),
        ]:
            with self.subTest(text[:40]):
                self.assert_diff_installs(self.small_world(**dict.fromkeys(TEMPLATES, text)))


if __name__ == "__main__":
    unittest.main()

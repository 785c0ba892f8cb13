"""What ndk-integrate install and undo leave of an installed compiler, end to end: nothing is lost.
An installation can be looked at beforehand, repeated, directed to another NDK and taken back."""

import hashlib
import json
import os
import re
import shutil
import stat
import subprocess
import tempfile
import unittest

from ndk_integrate_world import (
    ANDROID,
    BEFORE_SCRIPT_OUTPUT,
    COMPONENT,
    COMPONENT_LINE,
    DONE_LINE,
    FILLED_LINES,
    KEPT_HERE,
    LINUX,
    NDK_LINES,
    PROGRAM,
    SCRIPT,
    SCRIPT_LINE,
    SETUP_32,
    SETUP_64,
    TEMPLATES,
    VARS_CSH,
    VARS_SH,
    WHOLE_INSTALLATION,
    EndToEndTest,
    World,
    changes,
    example_world,
    fake_plugin,
    installation,
    log_text,
    package_filled,
    small_tree,
    without,
)

NOT_DONE = "ndk-integrate: not done: "
COMMAND = './ndk_integration.sh "WORLD/ndk" --force'
UNDONE = "what the integration script did inside the NDK is the compiler package's to undo"
DISABLED = "--set=NDK_INTEGRATION_ENABLED=no"
AS_ROOT = unittest.skipUnless(os.geteuid() == 0, "only root may give files away")

VARS_SH_FOR_SCRIPT = os.path.relpath(VARS_SH, ANDROID)  # from where the script runs


def directory_of_another_file_system():
    """None where there is no second file system that can be written to."""
    here = os.stat(tempfile.gettempdir()).st_dev
    for directory in ("/dev/shm", "/var/tmp"):
        if os.access(directory, os.W_OK) and os.stat(directory).st_dev != here:
            return directory
    return None


# A second NDK, for --ndk.
OTHER_NDK = {"other ndk/ndk-build": "", "other ndk/source.properties": "Pkg.Revision = 11.1.1\n"}

SETUP_ORIGINAL = "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n"
ORIGINALS = {
    SETUP_64: SETUP_ORIGINAL,
    SETUP_32: SETUP_ORIGINAL,
    VARS_SH: "ndk='<NDK_DIR>'\n",
    VARS_CSH: "set ndk = '<NDK_DIR>'\n",
}

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
HARMLESS_NAMES = ["a b", " a ", "it's", "a!b", "a;b", "a&b", "a|b", "*", "a<b>", "(a)", "#a", "~"]
HARMLESS_NAMES += ["-a", "a%sb", "café"]


def restored(**modes):
    """What `undo` changes: the originals are back."""
    return {file: f"{modes.get(file, '644')} {text}" for file, text in ORIGINALS.items()}


def sha256(text):
    return hashlib.sha256(text.encode()).hexdigest()


def in_order(*files):
    """The order in which `undo` goes through the files."""
    return sorted(files)


def put_back_lines(*files):
    return "".join(f"put back: WORLD/{file}\n" for file in in_order(*files)) + f"done: {UNDONE}\n"


def edited_message(file):
    return (
        f"WORLD/{file} was changed by someone else since ndk-integrate wrote it, so it is left as "
        "it is, and so is everything else; to give that change up, put its original "
        f"there: cat WORLD/{KEPT_HERE}/originals/{sha256(ORIGINALS[file])} > WORLD/{file}"
    )


def kept(world):
    """What is in the program's own directory, as names."""
    return sorted(os.listdir(world.path(KEPT_HERE)))


def append(world, file, text):
    with open(world.path(file), "a", encoding="utf-8") as out:
        out.write(text)


def bytes_of(world, *files):
    contents = {}
    for file in files:
        with open(world.path(file), "rb") as data:
            contents[file] = data.read()
    return contents


def json_of_files(**how):
    """The "files" of a whole installation."""
    placeholders = {SETUP_64: 2, SETUP_32: 2, VARS_SH: 1, VARS_CSH: 1}
    return [
        {"path": f"WORLD/{file}", "placeholders": placeholders[file], "result": "patched", **how}
        for file in TEMPLATES
    ]


def json_of_installation(**changed):
    """The object that a whole installation prints, with changes."""
    return {
        "schema": 1,
        "outcome": "integrated",
        "changed": True,
        "ndk": "WORLD/ndk",
        "release": "r11c",
        "component": "nox-ndk-5",
        "files": json_of_files(),
        "script": {
            "command": COMMAND,
            "exit_status": 0,
            "output": "ran with WORLD/ndk --force\n",
        },
        "message": "the compiler is integrated into WORLD/ndk",
        **changed,
    }


def json_of_undo(*files, **changed):
    return {
        "schema": 1,
        "outcome": "undone",
        "changed": True,
        "files": [{"path": f"WORLD/{file}", "result": "restored"} for file in in_order(*files)],
        "message": UNDONE,
        **changed,
    }


# For a plug-in of a test.
SELECT_FIRST_COMPONENT = """
    extern "C" int check_if_ndk_integration_files_are_to_be_installed(session_t* session) {
      const std::string subdir = session->tsd.components()[0]->subdir();
      env_set_string(session, "NDK_INTEGRATION_INSTALL_DETECTED", "yes");
      env_set_string(session, std::string("NDK_COMPILER_SUBDIR"), subdir);
      return 0;
    }"""


class StagingTest(EndToEndTest):
    def assert_json(self, outcome, expected, code=0, err="", changed=None):
        """One object in one line on standard output, and nothing else there."""
        self.assertEqual(outcome.out.count("\n"), 1, outcome.out)
        self.assertEqual(json.loads(outcome.out), expected)
        self.assert_outcome(outcome, code=code, out=outcome.out, err=err, changed=changed)

    def installed_world(self, *arguments, **how):
        """A world in which the compiler is integrated."""
        world = World(self, {**small_tree(**how), **OTHER_NDK})
        outcome = world.install(*arguments)
        self.assertEqual(outcome.code, 0, outcome)
        return world

    def assert_refused(self, world, message, out=NDK_LINES + COMPONENT_LINE, undo=False, **how):
        """install, or undo, does not do it, says why, and changes nothing at all."""
        before = world.tree(kept=True)
        outcome = world.undo(**how) if undo else world.install(**how)
        self.assert_outcome(
            outcome, code=1, out="" if undo else out, err=f"{NOT_DONE}{message}\n"
        )
        self.assertEqual(world.tree(kept=True), before)


# --- Dry run ---


def snapshot(world, leave_out):
    """Everything about every file of the world and beside it but who looked at it when."""
    entries = {}
    for above, dirs, files in os.walk(world.top):
        dirs[:] = [name for name in dirs if os.path.join(above, name) != leave_out]
        for name in ["", *dirs, *files]:
            path = os.path.join(above, name)
            status = os.lstat(path)
            entry = [
                status.st_mode,
                status.st_uid,
                status.st_gid,
                status.st_ino,
                status.st_nlink,
                status.st_size,
                status.st_mtime_ns,
                status.st_ctime_ns,
            ]
            if stat.S_ISREG(status.st_mode):
                with open(path, "rb") as file:
                    entry.append(file.read())
            entries[path] = entry
    return entries


def diff_of(file, before, after):
    """The diff of a file of which every line changes, and to which empty lines are added."""
    lines = after.splitlines()
    begin = f"--- WORLD/{file}\n+++ WORLD/{file}\n"
    count = len(before.splitlines())
    old = "-1" if count == 1 else f"-1,{count}"
    removed = "".join(f"-{line}\n" for line in before.splitlines())
    added = "".join(f"+{line}\n" for line in lines)
    return f"{begin}@@ {old} +1,{len(lines)} @@\n{removed}{added}"


def small_diffs(ndk="WORLD/ndk"):
    filled = package_filled(ndk)
    return [
        diff_of(file, ORIGINALS[file], filled[file].removeprefix("644 ")) for file in TEMPLATES
    ]


WOULD_FILL_LINES = FILLED_LINES.replace("filled in: ", "would fill in: ")
WOULD_RUN_LINE = SCRIPT_LINE.replace("script: ", "would run: ")
BEFORE_DIFFS = NDK_LINES + COMPONENT_LINE + WOULD_FILL_LINES + WOULD_RUN_LINE
DRY_LINE = "dry run, nothing is changed; after an installation: "
INTEGRATED = "the compiler is integrated into WORLD/ndk\n"


class DryRunTest(StagingTest):
    def dry_run(self, world, *arguments, **how):
        """Runs an installation dry, and proves that it touches nothing outside of TMPDIR and leaves
        nothing there."""
        tmp = os.path.join(world.top, "tmp")
        os.makedirs(tmp, exist_ok=True)
        before = snapshot(world, leave_out=tmp)
        outcome = world.install("--dry-run", *arguments, env={"TMPDIR": tmp}, **how)
        self.assertEqual(snapshot(world, leave_out=tmp), before)
        self.assertEqual(os.listdir(tmp), [])
        return outcome


class DryRun(DryRunTest):
    def test_outcome(self):
        world = World(self, small_tree(script="touch it-ran"))
        self.assert_outcome(
            self.dry_run(world), out=BEFORE_DIFFS + "".join(small_diffs()) + DRY_LINE + INTEGRATED
        )

    def test_json(self):
        files = json_of_files()
        for file, diff in zip(files, small_diffs()):
            file["diff"] = diff
        self.assert_json(
            self.dry_run(World(self, small_tree()), "--json"),
            json_of_installation(changed=False, script=None, files=files),
        )

    def test_disabled(self):
        diffs = "".join(small_diffs(ndk=""))
        message = "the compiler is installed without NDK integration"
        self.assert_outcome(
            self.dry_run(World(self, small_tree()), DISABLED),
            out=NDK_LINES + COMPONENT_LINE + WOULD_FILL_LINES + diffs + DRY_LINE + message + "\n",
        )

    def test_disabled_json(self):
        files = json_of_files()
        for file, diff in zip(files, small_diffs(ndk="")):
            file["diff"] = diff
        self.assert_json(
            self.dry_run(World(self, small_tree()), DISABLED, "--json"),
            json_of_installation(
                outcome="disabled",
                changed=False,
                script=None,
                files=files,
                message="the compiler is installed without NDK integration",
            ),
        )

    def test_of_installed_compiler(self):
        self.assert_outcome(
            self.dry_run(self.installed_world()), out=BEFORE_DIFFS + DRY_LINE + INTEGRATED
        )

    def test_of_installed_compiler_json(self):
        self.assert_json(
            self.dry_run(self.installed_world(), "--json"),
            json_of_installation(changed=False, script=None, files=json_of_files(diff="")),
        )

    def test_of_other_ndk(self):
        world = self.installed_world()
        outcome = self.dry_run(world, "--ndk", world.path("other ndk"))
        changed = {
            file: f"--- WORLD/{file}\n+++ WORLD/{file}\n@@ -1,2 +1,2 @@\n"
            f"-{line('WORLD/ndk')}\n+{line('WORLD/other ndk')}\n \n"
            for file, line in {
                VARS_SH: "ndk='{}'".format,
                VARS_CSH: "set ndk = '{}'".format,
            }.items()
        }
        out = BEFORE_DIFFS.replace("WORLD/ndk", "WORLD/other ndk")
        out = out.replace("r11c (11.2.2725575)", "r11b (11.1.1)")
        self.assert_outcome(
            outcome,
            out=out
            + "".join(changed.values())
            + DRY_LINE
            + "the compiler is integrated into WORLD/other ndk\n",
        )

    def test_quiet(self):
        outcome = self.dry_run(World(self, small_tree()), "-q")
        self.assertEqual(
            (outcome.code, outcome.out.partition(DRY_LINE)[0], outcome.err),
            (0, "".join(small_diffs()), ""),
        )

    def test_log(self):
        # The plug-in reports what it does; the script, which does not run, prints nothing.
        world = World(self, small_tree())
        self.assertMultiLineEqual(self.dry_run(world, "-v").err, log_text(outputs=""))


class DryRunThatFails(DryRunTest):
    """The outcome is the one that an installation would have."""

    def assert_fails(self, world, message, *lines, arguments=()):
        self.assert_outcome(
            self.dry_run(world, *arguments),
            code=1,
            out=NDK_LINES + COMPONENT_LINE + "".join(lines),
            err=f"{NOT_DONE}{message}\n",
        )

    def test_no_ndk(self):
        world = World(self, without(small_tree(), "ndk/ndk-build"))
        outcome = self.dry_run(world, "--json")
        self.assert_json(outcome, json_of_no_ndk(), code=1)

    def test_nothing_selected(self):
        world = World(self, small_tree(toml=installation("")))
        self.assert_json(self.dry_run(world, "--json"), json_of_not_selected(), code=1)

    def test_no_package(self):
        world = World(self, small_tree(toml=installation(VORN_INSTALL_DIR='"elsewhere"')))
        self.assert_fails(
            world,
            "the compiler package is not installed: there is no directory WORLD/elsewhere/cc "
            "(VORN_INSTALL_DIR followed by the component's subdir)",
        )

    missing_script = (
        "the integration script ./ndk_integration.sh is missing or not executable in "
        f"WORLD/{ANDROID}"
    )

    def test_missing_script(self):
        self.assert_fails(
            World(self, without(small_tree(), SCRIPT)),
            self.missing_script,
            WOULD_FILL_LINES,
            WOULD_RUN_LINE,
            *small_diffs(),
        )

    def test_script_not_executable(self):
        world = World(self, small_tree())
        os.chmod(world.path(SCRIPT), 0o644)
        self.assert_fails(
            world, self.missing_script, WOULD_FILL_LINES, WOULD_RUN_LINE, *small_diffs()
        )

    def test_directory_in_place_of_script(self):
        world = World(self, {**without(small_tree(), SCRIPT), SCRIPT + "/": ""})
        self.assert_fails(
            world, self.missing_script, WOULD_FILL_LINES, WOULD_RUN_LINE, *small_diffs()
        )

    def test_missing_script_without_integration(self):
        # Nobody would run it.
        world = World(self, without(small_tree(), SCRIPT))
        self.assertEqual(self.dry_run(world, DISABLED).code, 0)

    def test_missing_script_json(self):
        files = json_of_files()
        for file, diff in zip(files, small_diffs()):
            file["diff"] = diff
        self.assert_json(
            self.dry_run(World(self, without(small_tree(), SCRIPT)), "--json"),
            json_of_installation(
                outcome="failed",
                changed=False,
                script=None,
                files=files,
                message=self.missing_script,
            ),
            code=1,
        )

    def test_missing_template(self):
        for file in TEMPLATES:
            with self.subTest(file):
                lines = WOULD_FILL_LINES.splitlines(True)
                lines[TEMPLATES.index(file)] = f"missing: WORLD/{file}\n"
                diffs = small_diffs()
                del diffs[TEMPLATES.index(file)]
                self.assert_fails(
                    World(self, without(small_tree(), file)),
                    f"the template WORLD/{file} is missing: "
                    "is the compiler package installed there whole?",
                    *lines,
                    WOULD_RUN_LINE,
                    *diffs,
                )

    def test_directory_in_place_of_template(self):
        for file in TEMPLATES:
            with self.subTest(file):
                world = World(self, {**without(small_tree(), file), file + "/": ""})
                self.assertEqual(self.dry_run(world).code, 1)

    def test_edited_file(self):
        world = self.installed_world()
        append(world, VARS_SH, "export MINE=1\n")
        self.assert_fails(world, edited_message(VARS_SH))

    def test_outcome_without_permission(self):
        for name in ["package/cc", LINUX + "/bin"]:
            with self.subTest(name):
                world = World(self, small_tree())
                os.chmod(world.path(name), 0o555)
                dry = world.install("--dry-run", "--json", unprivileged=True)
                real = world.install("--json", unprivileged=True)
                self.assertEqual(
                    (dry.code, json.loads(dry.out)["outcome"], dry.changes),
                    (real.code, json.loads(real.out)["outcome"], {}),
                )


class TemporaryDirectoryOfDryRun(StagingTest):
    def test_unset(self):
        world = World(self, small_tree())
        outcome = world.install("--dry-run", before=["env", "-u", "TMPDIR"])
        self.assert_outcome(
            outcome, out=BEFORE_DIFFS + "".join(small_diffs()) + DRY_LINE + INTEGRATED
        )

    def test_relative(self):
        world = World(self, {**small_tree(), "here/tmp/": ""})
        outcome = world.install("--dry-run", cwd=world.path("here"), env={"TMPDIR": "tmp"})
        self.assert_outcome(
            outcome, out=BEFORE_DIFFS + "".join(small_diffs()) + DRY_LINE + INTEGRATED
        )

    def test_missing(self):
        world = World(self, small_tree())
        outcome = world.install("--dry-run", env={"TMPDIR": world.path("not there")})
        self.assertEqual((outcome.code, outcome.changes), (1, {}))
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
class SystemCallsOfDryRun(StagingTest):
    """A second proof: what the processes of a dry run ask the system to do."""

    def calls(self, world, tmp):
        trace = os.path.join(world.top, "trace")
        names = "trace=%file,fchmod,fchown,ftruncate,fallocate,fsetxattr,fremovexattr"
        # No search for leaks: it cannot be made while the program is traced.
        command = ["env", "ASAN_OPTIONS=detect_leaks=0"]
        command += ["strace", "-f", "-qq", "-y", "-s", "10000", "-o", trace, "-e", names]
        outcome = world.install("--dry-run", before=command, env={"TMPDIR": tmp})
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
        world = World(self, small_tree())
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
class DiffOfDryRun(StagingTest):
    """`patch` makes of the diff, byte for byte, what the installation makes."""

    def assert_diff_installs(self, world, *arguments):
        before = bytes_of(world, *TEMPLATES)
        toml = world.path("installation.toml")
        command = [PROGRAM, "install", toml, "--dry-run", "-q", *arguments]
        dry = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout
        diff = dry[dry.index(b"--- ") :].partition(DRY_LINE.encode())[0]
        done = subprocess.run(
            ["patch", "--batch", "-p1", "-d", "/"],
            input=diff,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            check=False,
        )
        self.assertEqual(done.returncode, 0, done.stdout)
        patched = bytes_of(world, *TEMPLATES)
        for file, data in before.items():
            world.write(file, data)
        self.assertEqual(world.install(*arguments).code, 0)
        self.assertEqual(patched, bytes_of(world, *TEMPLATES))
        self.assertNotEqual(patched, before)

    def test_small_files(self):
        self.assert_diff_installs(World(self, small_tree()))

    def test_disabled(self):
        self.assert_diff_installs(World(self, small_tree()), DISABLED)

    def test_other_ndk(self):
        world = self.installed_world()
        self.assert_diff_installs(world, "--ndk", world.path("other ndk"))

    def test_blanks_in_names(self):
        self.assert_diff_installs(World(self, small_tree(), name="a world  with blanks"))

    def test_unicode_in_names(self):
        self.assert_diff_installs(World(self, small_tree(), name="café"))

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
                templates = dict.fromkeys(TEMPLATES, text)
                self.assert_diff_installs(World(self, {**small_tree(), **templates}))


# --- Repeat, other NDK, --set ---


class Repeat(StagingTest):
    def test_same_tree(self):
        world = self.installed_world()
        once = world.tree(kept=True)
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)
        self.assertEqual(world.tree(kept=True), once)

    def test_files_not_touched(self):
        world = self.installed_world()
        once = {file: os.stat(world.path(file)) for file in TEMPLATES}
        world.install()
        for file, status in once.items():
            again = os.stat(world.path(file))
            self.assertEqual(
                (again.st_ino, again.st_ctime_ns), (status.st_ino, status.st_ctime_ns), file
            )

    def test_after_failed_script(self):
        world = World(self, small_tree(script="exit 7"))
        world.install()
        world.write(SCRIPT, '#!/bin/sh\necho "ran with $*"\n')
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)

    def test_after_missing_template(self):
        world = World(self, without(small_tree(), VARS_SH))
        self.assertEqual(world.install().code, 1)
        world.write(VARS_SH, ORIGINALS[VARS_SH])
        self.assert_outcome(
            world.install(), out=WHOLE_INSTALLATION, changed={VARS_SH: "644 ndk='WORLD/ndk'\n\n"}
        )

    def test_other_ndk(self):
        world = self.installed_world()
        outcome = world.install("--ndk", world.path("other ndk"))
        out = WHOLE_INSTALLATION.replace("WORLD/ndk", "WORLD/other ndk")
        filled = package_filled("WORLD/other ndk")
        self.assert_outcome(
            outcome,
            out=out.replace("r11c (11.2.2725575)", "r11b (11.1.1)"),
            changed={file: filled[file] for file in [VARS_SH, VARS_CSH]},
        )

    def test_other_ndk_same_as_fresh(self):
        for arguments in [["--ndk", "other ndk"], [DISABLED]]:
            with self.subTest(arguments):
                fresh = World(self, {**small_tree(), **OTHER_NDK})
                fresh.install(*arguments, cwd=fresh.dir)
                world = self.installed_world()
                world.install(*arguments, cwd=world.dir)
                self.assertEqual(world.tree(), fresh.tree())

    def test_other_ndk_and_back(self):
        world = self.installed_world()
        once = world.tree(kept=True)
        world.install("--ndk", world.path("other ndk"))
        world.install(DISABLED)
        world.install()
        self.assertEqual(world.tree(kept=True), once)

    def test_example(self):
        world = example_world(self)
        before = world.tree()
        world.install()
        once = world.tree(kept=True)
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.tree(kept=True), once)
        self.assertEqual(world.undo().code, 0)
        left = {name for name in changes(before, world.tree()) if not name.startswith("ndk/")}
        self.assertEqual(left, {"package/compiler/.ndk-integrate"})


class KeptDirectory(StagingTest):
    """.ndk-integrate below the compiler's directory."""

    def test_after_installation(self):
        world = self.installed_world()
        self.assertEqual(kept(world), ["lock", "manifest.json", "originals"])

    def test_manifest(self):
        world = self.installed_world()
        root = os.path.dirname(KEPT_HERE)
        expected = {}
        for file, text in ORIGINALS.items():
            setup = file.endswith("setup.mk")
            placeholders = ["{INSTALL_NOX_INSTALLDIR}", "{INSTALL_NOX_VERSION}"]
            result = bytes_of(world, file)[file]
            expected[os.path.relpath(file, root)] = {
                "original": sha256(text),
                "mode": "644",
                "results": [hashlib.sha256(result).hexdigest()],
                "placeholders": placeholders if setup else ["<NDK_DIR>"],
            }
        manifest = json.loads(bytes_of(world, KEPT_HERE + "/manifest.json").popitem()[1])
        self.assertEqual(manifest, {"schema": 1, "files": expected})

    def test_originals(self):
        # The two toolchain definitions are the same, and kept once.
        world = self.installed_world()
        directory = KEPT_HERE + "/originals"
        names = os.listdir(world.path(directory))
        found = {name: world.read(f"{directory}/{name}") for name in names}
        self.assertEqual(found, {sha256(text): text for text in ORIGINALS.values()})

    def test_originals_of_earlier_package_forgotten(self):
        world = self.installed_world()
        for file, text in ORIGINALS.items():
            world.write(file, "second edition\n" + text)
        world.install()
        self.assertEqual(
            sorted(os.listdir(world.path(KEPT_HERE + "/originals"))),
            sorted({sha256("second edition\n" + text) for text in ORIGINALS.values()}),
        )

    def test_leftovers_of_killed_run(self):
        world = self.installed_world()
        once = world.tree(kept=True)
        leftovers = ["staged/0", "staged/0.tmp", "manifest.json.new", f"originals/{64 * 'a'}.new"]
        for name in leftovers:
            world.write(f"{KEPT_HERE}/{name}", "half\n")
        world.install()
        self.assertEqual(world.tree(kept=True), once)

    def test_damaged_manifest(self):
        for text in ["", "no JSON\n", "[]", "{}", '{"schema":1}', '{"schema":1,"files":{"a":{}}}']:
            with self.subTest(text):
                world = self.installed_world()
                world.write(KEPT_HERE + "/manifest.json", text)
                before = world.tree(kept=True)
                begin = re.escape(f"{NOT_DONE}cannot use WORLD/{KEPT_HERE}/manifest.json: ")
                end = re.escape(f"; the originals are in WORLD/{KEPT_HERE}/originals\n")
                for outcome in [world.install(), world.install("--dry-run"), world.undo()]:
                    self.assertEqual(outcome.code, 1)
                    self.assertRegex(outcome.err, rf"\A{begin}[^\n]+{end}\Z")
                    self.assertEqual(world.tree(kept=True), before)

    def test_newer_manifest(self):
        world = self.installed_world()
        world.write(KEPT_HERE + "/manifest.json", '{"schema":2}')
        message = (
            f"cannot use WORLD/{KEPT_HERE}/manifest.json: it was written by a newer ndk-integrate; "
            f"the originals are in WORLD/{KEPT_HERE}/originals"
        )
        self.assert_refused(world, message)
        self.assert_refused(world, message, undo=True)

    def test_damaged_entry(self):
        # Also one that would lead out of the compiler's directory.
        good = {"original": 64 * "a", "mode": "644", "results": [64 * "b"], "placeholders": []}
        for path, changed in [
            ("../outside", {}),
            ("/outside", {}),
            ("a/../../outside", {}),
            ("", {}),
            ("a", {"original": "../lock"}),
            ("a", {"original": 64 * "g"}),
            ("a", {"mode": "abc"}),
            ("a", {"mode": ""}),
            ("a", {"results": ["b"]}),
        ]:
            with self.subTest(path=path, changed=changed):
                world = self.installed_world()
                manifest = {"schema": 1, "files": {path: {**good, **changed}}}
                world.write(KEPT_HERE + "/manifest.json", json.dumps(manifest))
                message = (
                    f"cannot use WORLD/{KEPT_HERE}/manifest.json: the entry of '{path}' is "
                    f"damaged; the originals are in WORLD/{KEPT_HERE}/originals"
                )
                self.assert_refused(world, message)
                self.assert_refused(world, message, undo=True)

    def test_missing_manifest(self):
        world = self.installed_world()
        os.remove(world.path(KEPT_HERE + "/manifest.json"))
        message = (
            f"WORLD/{KEPT_HERE}/manifest.json is missing, which says whose originals are in "
            f"WORLD/{KEPT_HERE}/originals; put it back, or remove that directory to give the "
            "originals up"
        )
        self.assert_refused(world, message)
        self.assert_refused(world, message, undo=True)

    def test_damaged_original(self):
        for text in ["", ORIGINALS[VARS_SH] + "more\n"]:
            with self.subTest(text):
                world = self.installed_world()
                original = f"{KEPT_HERE}/originals/{sha256(ORIGINALS[VARS_SH])}"
                world.write(original, text)
                os.chmod(world.path(original), 0o600)
                before = world.tree(kept=True)
                message = (
                    f"the original of WORLD/{VARS_SH} that is kept as WORLD/{original} is damaged; "
                    "reinstall the compiler package"
                )
                self.assert_refused(world, message, undo=True)
                outcome = world.install()
                self.assertEqual((outcome.code, outcome.changes), (1, {}))
                self.assertEqual(outcome.err, f"{NOT_DONE}{message}\n")
                self.assertEqual(world.tree(kept=True), before)

    def test_missing_original(self):
        world = self.installed_world()
        original = f"{KEPT_HERE}/originals/{sha256(ORIGINALS[VARS_SH])}"
        os.remove(world.path(original))
        message = f"cannot read WORLD/{original}: No such file or directory"
        self.assert_refused(world, message, undo=True)

    def test_file_in_its_place(self):
        world = World(self, {**small_tree(), KEPT_HERE: "a file\n"})
        message = f"WORLD/{KEPT_HERE} is no directory; ndk-integrate keeps originals there"
        self.assert_refused(world, message)

    def test_directory_not_writable(self):
        world = World(self, small_tree())
        os.chmod(world.path("package/cc"), 0o555)
        message = f"cannot make the directory WORLD/{KEPT_HERE}: Permission denied"
        self.assert_refused(world, message, unprivileged=True)


class NdkOption(StagingTest):
    """--ndk DIR."""

    def assert_installs_into_other(self, world, *arguments, ndk="WORLD/other ndk", **how):
        outcome = world.install(*arguments, **how)
        out = WHOLE_INSTALLATION.replace("WORLD/ndk", ndk)
        self.assert_outcome(
            outcome,
            out=out.replace("r11c (11.2.2725575)", "r11b (11.1.1)"),
            changed=package_filled(ndk),
        )

    def world(self, **changed):
        return World(self, {**small_tree(toml=installation(**changed)), **OTHER_NDK})

    def test_absolute(self):
        world = self.world()
        self.assert_installs_into_other(world, "--ndk", world.path("other ndk"))

    def test_relative_to_working_directory(self):
        world = self.world()
        self.assert_installs_into_other(world, "--ndk", "other ndk", cwd=world.dir)
        world = self.world()
        self.assert_installs_into_other(world, "--ndk=./other ndk", cwd=world.dir)
        world = self.world()
        self.assert_installs_into_other(
            world, "--ndk", "../other ndk", cwd=world.path("ndk"), ndk="WORLD/ndk/../other ndk"
        )

    def test_before_the_file(self):
        world = self.world()
        outcome = world.run(
            "install", "--ndk", world.path("other ndk"), world.path("installation.toml")
        )
        self.assertEqual(outcome.changes, package_filled("WORLD/other ndk"))

    def test_stronger_than_the_file(self):
        world = self.world(NDK_PATH='"ndk"')
        self.assert_installs_into_other(world, "--ndk", world.path("other ndk"))

    def test_stronger_than_set(self):
        for arguments in [
            ["--ndk", "other ndk", "--set", "NDK_PATH=ndk"],
            ["--set", "NDK_PATH=ndk", "--ndk", "other ndk"],
        ]:
            world = self.world()
            self.assert_installs_into_other(world, *arguments, cwd=world.dir)

    def test_judged_by_validate_ndk_path(self):
        world = World(self, small_tree())
        log = log_text().replace("NDK_INTEGRATION: detect_ndk()\n", "")
        log = log.replace("NDK_INTEGRATION: detect_ndk(): found valid NDK: 'WORLD/ndk'\n", "")
        self.assert_outcome(
            world.install("--ndk", world.path("ndk"), "-v"),
            out=WHOLE_INSTALLATION,
            err=log,
            changed=package_filled(),
        )

    def test_no_ndk(self):
        world = self.installed_world()
        before = world.tree(kept=True)
        self.assert_outcome(
            world.install("--ndk", world.path("package")),
            code=1,
            err=f"{NOT_DONE}NDK_PATH is WORLD/package, but it is no NDK directory; "
            "-v shows what was found there\n",
        )
        self.assertEqual(world.tree(kept=True), before)

    def test_empty(self):
        # Not a request to search.
        world = self.world()
        outcome = world.install("--ndk", "")
        self.assertNotEqual(outcome.code, 0)
        self.assertEqual(outcome.changes, {})


class SetOption(StagingTest):
    """--set NAME=VALUE."""

    def assert_installs(self, toml, *settings, **how):
        world = World(self, {**small_tree(toml=toml), "here/": ""})
        arguments = [argument for setting in settings for argument in ["--set", setting]]
        outcome = world.install(*arguments, cwd=world.dir, **how)
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=package_filled())

    def test_each_variable(self):
        for name, value in {
            "NDK_PATH": "ndk",
            "NDK_DEFAULT_SEARCH_PATH_LINUX": "not there;ndk",
            "NDK_SUPPORTED_VERSIONS": "r10e;r11c",
            "NDK_COMPONENT_PATTERNS": "-none-;-ndk-",
            "NDK_INTEGRATION_ENABLED": "yes",
            "VORN_INSTALL_DIR": "package",
        }.items():
            with self.subTest(name):
                self.assert_installs(installation(**{name: '"something else"'}), f"{name}={value}")
                self.assert_installs(installation(**{name: None}), f"{name}={value}")

    def test_all_variables(self):
        self.assert_installs(
            COMPONENT,
            "NDK_PATH=",
            "NDK_DEFAULT_SEARCH_PATH_LINUX=ndk",
            "NDK_SUPPORTED_VERSIONS=r11c",
            "NDK_COMPONENT_PATTERNS=-ndk-",
            "NDK_INTEGRATION_ENABLED=yes",
            "VORN_INSTALL_DIR=package",
        )

    def test_last_counts(self):
        self.assert_installs(installation(), "NDK_PATH=not there", "NDK_PATH=ndk")

    def test_equals_sign_in_value(self):
        world = World(self, small_tree())
        os.rename(world.path("ndk"), world.path("n=d=k"))
        outcome = world.install("--set", "NDK_PATH=n=d=k", cwd=world.dir)
        self.assert_outcome(
            outcome,
            out=WHOLE_INSTALLATION.replace("WORLD/ndk", "WORLD/n=d=k"),
            changed=package_filled("WORLD/n=d=k"),
        )

    def assert_wrong(self, setting, message):
        world = World(self, small_tree())
        outcome = world.install("--set", setting)
        self.assert_outcome(outcome, code=2, err=f"ndk-integrate: {message}\n")

    def test_unknown_variable(self):
        for name in ["NDK_PATH_STATUS", "ndk_path", "NDK_COMPILER_VERSION", ""]:
            with self.subTest(name):
                self.assert_wrong(
                    name + "=x",
                    f"unknown session variable '{name}', expected one of NDK_PATH, "
                    "NDK_DEFAULT_SEARCH_PATH_LINUX, NDK_SUPPORTED_VERSIONS, "
                    "NDK_INTEGRATION_ENABLED, NDK_COMPONENT_PATTERNS, VORN_INSTALL_DIR",
                )

    def test_no_value(self):
        self.assert_wrong("NDK_PATH", "--set NDK_PATH: expected NAME=VALUE")
        self.assert_wrong("", "--set : expected NAME=VALUE")


# --- JSON ---


def json_of_no_ndk():
    return json_of_installation(
        outcome="no-ndk",
        changed=False,
        ndk=None,
        release=None,
        component=None,
        files=[],
        script=None,
        message="no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX "
        "(WORLD/ndk) is a writable NDK of a supported release (r11b;r11c); "
        "-v shows what was found in each",
    )


def json_of_not_selected():
    return json_of_installation(
        outcome="not-selected",
        changed=False,
        component=None,
        files=[],
        script=None,
        message="no selected component asks for the NDK integration: "
        "none has one of -ndk- in its id",
    )


class JsonOfInstall(StagingTest):
    def test_integrated(self):
        world = World(self, small_tree())
        self.assert_json(
            world.install("--json"), json_of_installation(), changed=package_filled()
        )

    def test_integrated_again(self):
        world = self.installed_world()
        self.assert_json(world.install("--json"), json_of_installation(changed=False))

    def test_disabled(self):
        world = World(self, small_tree())
        self.assert_json(
            world.install("--json", DISABLED),
            json_of_installation(
                outcome="disabled",
                script=None,
                message="the compiler is installed without NDK integration",
            ),
            changed=package_filled(ndk=""),
        )

    def test_disabled_without_ndk(self):
        world = World(self, without(small_tree(), "ndk/ndk-build"))
        self.assert_json(
            world.install("--json", DISABLED),
            json_of_installation(
                outcome="disabled",
                ndk=None,
                release=None,
                script=None,
                message="the compiler is installed without NDK integration",
            ),
            changed=package_filled(ndk=""),
        )

    def test_not_selected(self):
        world = World(self, small_tree(toml=installation("")))
        self.assert_json(world.install("--json"), json_of_not_selected(), code=1)

    def test_no_ndk(self):
        world = World(self, without(small_tree(), "ndk/ndk-build"))
        self.assert_json(world.install("--json"), json_of_no_ndk(), code=1)

    def test_missing_template(self):
        files = json_of_files()
        files[2] = {"path": f"WORLD/{VARS_SH}", "placeholders": 0, "result": "missing"}
        self.assert_json(
            World(self, without(small_tree(), VARS_SH)).install("--json"),
            json_of_installation(
                outcome="failed",
                files=files,
                message=f"the template WORLD/{VARS_SH} is missing: "
                "is the compiler package installed there whole?",
            ),
            code=1,
            changed=without(package_filled(), VARS_SH),
        )

    def test_failed_template(self):
        files = json_of_files()
        files[2]["result"] = files[3]["result"] = "failed"
        world = World(self, small_tree())
        os.chmod(world.path(LINUX + "/bin"), 0o555)
        self.assert_json(
            world.install("--json", unprivileged=True),
            json_of_installation(
                outcome="failed",
                files=files,
                message=f"cannot replace WORLD/{VARS_SH}: Permission denied",
            ),
            code=1,
            changed=without(package_filled(), VARS_SH, VARS_CSH),
        )

    def test_failed_script(self):
        world = World(self, small_tree(script="echo no room\necho at all >&2\nexit 7"))
        self.assert_json(
            world.install("--json"),
            json_of_installation(
                outcome="failed",
                script={"command": COMMAND, "exit_status": 7, "output": "no room\nat all\n"},
                message=f"the integration script failed with exit status 7: {COMMAND}",
            ),
            code=1,
            changed=package_filled(),
        )

    def test_failed_script_again(self):
        world = World(self, small_tree(script="exit 7"))
        world.install()
        outcome = world.install("--json")
        self.assert_json(
            outcome,
            json_of_installation(
                outcome="failed",
                changed=False,
                script={"command": COMMAND, "exit_status": 7, "output": ""},
                message=f"the integration script failed with exit status 7: {COMMAND}",
            ),
            code=1,
        )

    def test_refused(self):
        world = self.installed_world()
        append(world, VARS_SH, "export MINE=1\n")
        self.assert_json(
            world.install("--json"),
            json_of_installation(
                outcome="failed",
                changed=False,
                files=[],
                script=None,
                message=edited_message(VARS_SH),
            ),
            code=1,
        )

    def test_output_that_is_not_utf_8(self):
        world = World(self, small_tree(script=r"printf 'caf\351 \303\251 \000\033\n'"))
        script = {"command": COMMAND, "exit_status": 0, "output": "caf\ufffd é \0\x1b\n"}
        self.assert_json(
            world.install("--json"), json_of_installation(script=script), changed=package_filled()
        )

    def test_log_on_standard_error(self):
        world = World(self, small_tree())
        self.assert_json(
            world.install("--json", "-v"),
            json_of_installation(),
            err=log_text(),
            changed=package_filled(),
        )

    def test_quiet(self):
        world = World(self, small_tree())
        self.assert_json(
            world.install("--json", "-q"), json_of_installation(), changed=package_filled()
        )

    def test_wrong_usage(self):
        world = World(self, small_tree(toml="[session]\nNDK_PATH = 1\n"))
        self.assert_outcome(
            world.install("--json"),
            code=2,
            err="ndk-integrate: WORLD/installation.toml:2: NDK_PATH is an integer, expected a text "
            "or an array of texts\n",
        )

    def failed_in_plugin(self, thrown):
        world = World(self, small_tree())
        text = f'extern "C" int detect_ndk(session_t*) {{ throw {thrown}; }}'
        library = fake_plugin(os.path.join(world.top, "plugin", "plugin.so"), detect_ndk=text)
        return world.install("--json", "--plugin", library)

    def test_exception(self):
        failed = json_of_no_ndk() | {"outcome": "failed", "message": "boom"}
        self.assert_json(self.failed_in_plugin('std::runtime_error("boom")'), failed, code=1)

    def test_exception_that_is_a_number(self):
        outcome = self.failed_in_plugin("42")
        message = json.loads(outcome.out)["message"]
        failed = json_of_no_ndk() | {"outcome": "failed", "message": message}
        self.assert_json(outcome, failed, code=1)


class JsonOfUndo(StagingTest):
    def test_undone(self):
        world = self.installed_world()
        self.assert_json(
            world.undo("--json"), json_of_undo(*TEMPLATES), changed=restored()
        )

    def test_nothing_to_undo(self):
        nothing = json_of_undo(
            outcome="nothing-to-undo",
            changed=False,
            message="no installation is recorded in WORLD/package/cc",
        )
        world = World(self, small_tree())
        self.assert_json(world.undo("--json"), nothing)
        world.install()
        world.undo()
        self.assert_json(world.undo("--json"), nothing)

    def test_no_compiler(self):
        world = World(self, small_tree(toml=installation("")))
        outcome = world.undo("--json")
        self.assert_json(
            outcome,
            json_of_undo(
                outcome="failed",
                changed=False,
                message="no selected component asks for the NDK integration, "
                "so which compiler is meant cannot be told",
            ),
            code=1,
        )

    def test_all_originals_already(self):
        world = self.installed_world()
        for file, text in ORIGINALS.items():
            world.write(file, text)
        files = [{"path": f"WORLD/{file}", "result": "original"} for file in in_order(*TEMPLATES)]
        self.assert_json(world.undo("--json"), json_of_undo(changed=False, files=files))

    def test_failed(self):
        world = self.installed_world()
        append(world, VARS_SH, "export MINE=1\n")
        self.assert_json(
            world.undo("--json"),
            json_of_undo(outcome="failed", changed=False, message=edited_message(VARS_SH)),
            code=1,
        )


# --- Undo ---


class Undo(StagingTest):
    def assert_undone(self, world, changed=None):
        outcome = world.undo()
        self.assert_outcome(
            outcome,
            out=put_back_lines(*TEMPLATES),
            changed=restored() if changed is None else changed,
        )
        self.assertEqual(kept(world), ["lock"])

    def test_outcome(self):
        self.assert_undone(self.installed_world())

    def test_same_tree_as_before(self):
        world = World(self, small_tree())
        before = world.tree()
        world.install()
        world.undo()
        self.assertEqual(world.tree(), {**before, KEPT_HERE: "755 /"})

    def test_forms_of_text(self):
        for text in ["", "no line end", "\n\n\n", "a\r\nb\r\n", b"caf\xe9\x00\n", "<NDK_DIR>"]:
            with self.subTest(text):
                world = World(self, {**small_tree(), **dict.fromkeys(TEMPLATES, text)})
                before = bytes_of(world, *TEMPLATES)
                world.install()
                self.assertNotEqual(bytes_of(world, *TEMPLATES), before)
                world.undo()
                self.assertEqual(bytes_of(world, *TEMPLATES), before)

    def test_after_other_ndk(self):
        world = self.installed_world()
        world.install("--ndk", world.path("other ndk"))
        world.install(DISABLED)
        self.assert_undone(world)

    def test_after_failed_script(self):
        world = World(self, small_tree(script="exit 7"))
        world.install()
        self.assert_undone(world)

    def test_after_missing_template(self):
        world = World(self, without(small_tree(), VARS_SH))
        world.install()
        files = without(ORIGINALS, VARS_SH)
        self.assert_outcome(
            world.undo(), out=put_back_lines(*files), changed=without(restored(), VARS_SH)
        )

    def test_work_of_script_stays(self):
        world = World(self, small_tree(script='echo mine > "$1/made"'))
        world.install()
        self.assert_undone(world)
        self.assertEqual(world.read("ndk/made"), "mine\n")

    def test_ndk_gone(self):
        world = self.installed_world()
        shutil.rmtree(world.path("ndk"))
        self.assert_undone(world)

    def test_log(self):
        # The plug-in's own part, which an installer would call.
        log = "NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()"
        self.assert_outcome(
            self.installed_world().undo("-v"),
            out=put_back_lines(*TEMPLATES),
            err=f"{log}\n{log}: Found pattern '-ndk-' in 'nox-ndk-5'\n"
            "NDK_INTEGRATION: unintegrate_ndk() NOT IMPLEMENTED\n",
            changed=restored(),
        )

    def test_install_again(self):
        world = self.installed_world()
        once = world.tree(kept=True)
        world.undo()
        filled = without(package_filled(), KEPT_HERE)
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=filled)
        self.assertEqual(world.tree(kept=True), once)

    def test_nothing_to_undo(self):
        nothing = "nothing to undo: no installation is recorded in WORLD/package/cc\n"
        for world in [World(self, small_tree()), self.installed_world()]:
            world.undo()
            outcome = world.undo()
            self.assertEqual((outcome.code, outcome.changes), (0, {}))
            self.assertIn(nothing, outcome.out + outcome.err)

    def test_file_missing(self):
        world = self.installed_world()
        os.remove(world.path(VARS_SH))
        self.assert_undone(world)

    def test_file_missing_with_its_mode(self):
        world = World(self, small_tree())
        os.chmod(world.path(VARS_SH), 0o750)
        world.install()
        os.remove(world.path(VARS_SH))
        self.assert_undone(world, changed=restored(**{VARS_SH: "750"}))

    def test_directory_missing(self):
        world = self.installed_world()
        shutil.rmtree(world.path(LINUX + "/bin"))
        lines = put_back_lines(SETUP_64, SETUP_32).splitlines(True)
        gone = "".join(
            f"not put back, its directory is gone (its original stays kept): WORLD/{file}\n"
            for file in [VARS_CSH, VARS_SH]
        )
        self.assert_outcome(
            world.undo(),
            out="".join([*lines[:2], gone, lines[2]]),
            changed={file: restored()[file] for file in [SETUP_64, SETUP_32]},
        )

    def test_directory_back_again(self):
        # Its originals were kept.
        world = self.installed_world()
        os.rename(world.path(LINUX + "/bin"), world.path("away"))
        world.undo()
        os.rename(world.path("away"), world.path(LINUX + "/bin"))
        changed = {file: restored()[file] for file in [VARS_SH, VARS_CSH]}
        self.assert_outcome(world.undo(), out=put_back_lines(*changed), changed=changed)
        self.assertEqual(kept(world), ["lock"])

    def test_one_original_already(self):
        world = self.installed_world()
        world.write(VARS_CSH, ORIGINALS[VARS_CSH])
        out = put_back_lines(*TEMPLATES).replace(
            f"put back: WORLD/{VARS_CSH}", f"was the original already: WORLD/{VARS_CSH}"
        )
        self.assert_outcome(world.undo(), out=out, changed=without(restored(), VARS_CSH))

    def test_edited_original_forgotten(self):
        # After it anything is an original again.
        world = self.installed_world()
        world.undo()
        append(world, VARS_SH, "export MINE=1\n")
        changed = without(package_filled(), KEPT_HERE)
        changed[VARS_SH] = "644 ndk='WORLD/ndk'\nexport MINE=1\n\n"
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=changed)


class ModesAndOwners(StagingTest):
    modes = {SETUP_64: "600", SETUP_32: "444", VARS_SH: "4755", VARS_CSH: "664"}

    def world(self):
        world = World(self, {**small_tree(), **OTHER_NDK})
        for file, mode in self.modes.items():
            os.chmod(world.path(file), int(mode, 8))
        return world

    def with_modes(self, changed):
        return {
            file: entry if file not in self.modes else self.modes[file] + entry.removeprefix("644")
            for file, entry in changed.items()
        }

    def test_modes(self):
        world = self.world()
        self.assertEqual(world.install().changes, self.with_modes(package_filled()))
        self.assertEqual(world.undo().changes, self.with_modes(restored()))

    def test_modes_under_a_strict_umask(self):
        world = self.world()
        strict = {"before": ["sh", "-c", 'umask 077; exec "$@"', "sh"]}
        changed = self.with_modes(package_filled())
        changed[KEPT_HERE] = "700 /"
        self.assertEqual(world.install(**strict).changes, changed)
        self.assertEqual(world.undo(**strict).changes, self.with_modes(restored()))

    def test_modes_unprivileged(self):
        world = self.world()
        os.chmod(world.path(VARS_SH), 0o755)  # a new owner takes the set-user-ID bit away
        changed = self.with_modes(package_filled())
        changed[VARS_SH] = changed[VARS_SH].removeprefix("4")
        outcome = world.install(unprivileged=True)
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=changed)
        back = self.with_modes(restored())
        back[VARS_SH] = back[VARS_SH].removeprefix("4")
        outcome = world.undo(unprivileged=True)
        self.assert_outcome(outcome, out=put_back_lines(*TEMPLATES), changed=back)

    def test_changed_mode_is_no_edit(self):
        world = self.installed_world()
        os.chmod(world.path(VARS_SH), 0o600)
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)
        outcome = world.install("--ndk", world.path("other ndk"))
        self.assertEqual(outcome.changes[VARS_SH], "600 ndk='WORLD/other ndk'\n\n")

    def test_changed_mode_undone(self):
        world = self.world()
        world.install()
        for file in TEMPLATES:
            os.chmod(world.path(file), 0o640)
        self.assertEqual(world.undo().changes, self.with_modes(restored()))

    def test_original_of_a_secret_file(self):
        # Nobody may read more of it than before.
        world = World(self, small_tree())
        os.chmod(world.path(VARS_SH), 0o600)
        world.install()
        original = world.path(f"{KEPT_HERE}/originals/{sha256(ORIGINALS[VARS_SH])}")
        self.assertEqual(stat.S_IMODE(os.stat(original).st_mode) & 0o077, 0)

    @AS_ROOT
    def test_owners(self):
        world = self.world()
        for number, file in enumerate(TEMPLATES):
            os.chown(world.path(file), 1000 + number, 2000 + number)
            os.chmod(world.path(file), int(self.modes[file], 8))
        owners = {file: (1000 + number, 2000 + number) for number, file in enumerate(TEMPLATES)}
        for step in [world.install, world.install, world.undo, world.install]:
            self.assertEqual(step().code, 0)
            for file, owner in owners.items():
                status = os.stat(world.path(file))
                self.assertEqual((status.st_uid, status.st_gid), owner)
                self.assertEqual(f"{stat.S_IMODE(status.st_mode):o}", self.modes[file])

    def test_hard_link(self):
        # A file is replaced, not written into.
        world = World(self, small_tree())
        os.link(world.path(VARS_SH), world.path("second name"))
        world.install()
        self.assertEqual(world.read("second name"), ORIGINALS[VARS_SH])


class Unprivileged(StagingTest):
    """A user who owns nothing but the world."""

    def test_install_and_undo(self):
        world = World(self, {**small_tree(), **OTHER_NDK})
        self.assert_outcome(
            world.install("--dry-run", unprivileged=True),
            out=BEFORE_DIFFS + "".join(small_diffs()) + DRY_LINE + INTEGRATED,
        )
        self.assert_outcome(
            world.install(unprivileged=True), out=WHOLE_INSTALLATION, changed=package_filled()
        )
        self.assert_outcome(world.install(unprivileged=True), out=WHOLE_INSTALLATION)
        self.assert_outcome(
            world.undo(unprivileged=True), out=put_back_lines(*TEMPLATES), changed=restored()
        )

    def test_undo_without_permission(self):
        world = self.installed_world()
        os.chmod(world.path(LINUX + "/bin"), 0o555)
        before = world.tree()
        outcome = world.undo(unprivileged=True)
        self.assert_outcome(
            outcome,
            code=1,
            out=put_back_lines(SETUP_32, SETUP_64).partition("done: ")[0],
            err=f"{NOT_DONE}cannot replace WORLD/{VARS_CSH}: Permission denied\n",
            changed={file: restored()[file] for file in [SETUP_32, SETUP_64]},
        )
        os.chmod(world.path(LINUX + "/bin"), 0o755)
        self.assertEqual(world.undo(unprivileged=True).code, 0)
        self.assertEqual(
            changes(before, world.tree()), {**restored(), LINUX + "/bin": "755 /"}
        )


class Quiet(StagingTest):
    """-q: the result and what went wrong, no steps."""

    def test_install(self):
        world = World(self, small_tree())
        self.assert_outcome(world.install("-q"), out=DONE_LINE, changed=package_filled())

    def test_install_that_fails(self):
        world = World(self, without(small_tree(), VARS_SH))
        self.assert_outcome(
            world.install("-q"),
            code=1,
            err=f"{NOT_DONE}the template WORLD/{VARS_SH} is missing: "
            "is the compiler package installed there whole?\n",
            changed=without(package_filled(), VARS_SH),
        )

    def test_undo(self):
        self.assert_outcome(
            self.installed_world().undo("-q"), out=f"done: {UNDONE}\n", changed=restored()
        )


# --- Files that others change ---


class EditsByOthers(StagingTest):
    def test_each_file(self):
        for file in TEMPLATES:
            with self.subTest(file):
                world = self.installed_world()
                append(world, file, "# mine\n")
                self.assert_refused(world, edited_message(file))
                self.assert_refused(world, edited_message(file), undo=True)

    def test_other_ndk(self):
        world = self.installed_world()
        append(world, VARS_SH, "# mine\n")
        before = world.tree(kept=True)
        outcome = world.install("--ndk", world.path("other ndk"))
        self.assertEqual((outcome.code, outcome.changes), (1, {}))
        self.assertEqual(outcome.err, f"{NOT_DONE}{edited_message(VARS_SH)}\n")
        self.assertEqual(world.tree(kept=True), before)

    def test_emptied_file(self):
        world = self.installed_world()
        world.write(VARS_SH, "")
        self.assert_refused(world, edited_message(VARS_SH))
        self.assert_refused(world, edited_message(VARS_SH), undo=True)

    def test_result_of_an_earlier_installation(self):
        # Nothing that this program put there is an edit, but it was forgotten that it did.
        world = self.installed_world()
        earlier = bytes_of(world, VARS_SH)[VARS_SH]
        world.install("--ndk", world.path("other ndk"))
        world.write(VARS_SH, earlier)
        self.assert_refused(world, edited_message(VARS_SH))

    def test_edit_given_up(self):
        # As the message says.
        world = self.installed_world()
        append(world, VARS_SH, "# mine\n")
        kept_as = f"{KEPT_HERE}/originals/{sha256(ORIGINALS[VARS_SH])}"
        shutil.copyfile(world.path(kept_as), world.path(VARS_SH))
        self.assert_outcome(
            world.install(),
            out=WHOLE_INSTALLATION,
            changed={VARS_SH: package_filled()[VARS_SH]},
        )

    def test_edit_taken_back(self):
        world = self.installed_world()
        ours = bytes_of(world, VARS_SH)[VARS_SH]
        append(world, VARS_SH, "# mine\n")
        world.install()
        world.write(VARS_SH, ours)
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)

    def test_edit_before_first_installation(self):
        # It is part of the original.
        world = World(self, small_tree())
        append(world, VARS_SH, "# mine\n")
        world.install()
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk'\n# mine\n\n")
        self.assertEqual(world.undo().changes[VARS_SH], "644 ndk='<NDK_DIR>'\n# mine\n")

    def test_edit_while_script_runs(self):
        # The environment scripts are worked on after the integration script.
        world = self.installed_world()
        world.write(SCRIPT, f"#!/bin/sh\necho '# mine' >> {VARS_SH_FOR_SCRIPT}\n")
        outcome = world.install()
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk'\n\n# mine\n")
        self.assertRegex(outcome.err, rf"\A{NOT_DONE}WORLD/{VARS_SH} was changed by someone else ")
        self.assertEqual(outcome.code, 1)

    def test_edit_while_plugin_works(self):
        world = World(self, small_tree())
        real = world.path(VARS_SH)
        text = f"""
            #include <fstream>
            extern "C" int integrate_ndk(session_t*) {{
              const std::string copy = path("{real}");
              if (copy.rfind("/dev/null", 0) == 0) return 0;  // only asked which files
              std::ofstream("{real}", std::ios::app) << "# mine\\n";
              std::ofstream(copy + ".tmp") << "ndk='x'\\n\\n";
              file_move(copy + ".tmp", copy);
              return 0;
            }}"""
        library = fake_plugin(
            os.path.join(world.top, "plugin", "plugin.so"),
            integrate_ndk=text,
            check_if_ndk_integration_files_are_to_be_installed=SELECT_FIRST_COMPONENT,
        )
        outcome = world.install("--plugin", library, DISABLED)
        self.assertEqual(
            outcome.err,
            f"{NOT_DONE}WORLD/{VARS_SH} was changed by someone else just now; "
            "it is left as it is\n",
        )
        self.assertEqual(outcome.code, 1)
        self.assertEqual(world.read(VARS_SH), ORIGINALS[VARS_SH] + "# mine\n")


class ReinstalledPackage(StagingTest):
    second = {file: "# second edition\n" + text for file, text in ORIGINALS.items()}

    def second_filled(self):
        return {
            file: entry.replace("644 ", "644 # second edition\n", 1)
            for file, entry in without(package_filled(), KEPT_HERE).items()
        }

    def reinstall(self, world, texts):
        for file, text in texts.items():
            world.write(file, text)

    def test_same_package(self):
        world = self.installed_world()
        once = world.tree(kept=True)
        self.reinstall(world, ORIGINALS)
        filled = without(package_filled(), KEPT_HERE)
        self.assert_json(world.install("--json"), json_of_installation(), changed=filled)
        self.assertEqual(world.tree(kept=True), once)

    def test_becomes_new_original(self):
        world = self.installed_world()
        self.reinstall(world, self.second)
        self.assert_outcome(
            world.install(), out=WHOLE_INSTALLATION, changed=self.second_filled()
        )
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)
        self.assert_outcome(
            world.undo(),
            out=put_back_lines(*TEMPLATES),
            changed={file: "644 " + text for file, text in self.second.items()},
        )

    def test_one_file(self):
        world = self.installed_world()
        self.reinstall(world, {VARS_SH: self.second[VARS_SH]})
        changed = {VARS_SH: self.second_filled()[VARS_SH]}
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=changed)

    def test_one_placeholder_of_two(self):
        world = self.installed_world()
        world.write(SETUP_64, "{INSTALL_NOX_VERSION}\n")
        outcome = world.install()
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(outcome.changes, {SETUP_64: "644 5.0.3.42\n\n\n"})

    def test_undone(self):
        # The reinstalled files stay: they are the package's own.
        world = self.installed_world()
        self.reinstall(world, self.second)
        files = [{"path": f"WORLD/{file}", "result": "original"} for file in in_order(*TEMPLATES)]
        self.assert_json(world.undo("--json"), json_of_undo(changed=False, files=files))
        self.assertEqual(kept(world), ["lock"])

    def test_other_file_edited(self):
        world = self.installed_world()
        self.reinstall(world, without(self.second, VARS_SH))
        append(world, VARS_SH, "# mine\n")
        self.assert_refused(world, edited_message(VARS_SH))
        self.assert_refused(world, edited_message(VARS_SH), undo=True)

    def test_without_placeholders(self):
        # Nobody can tell it from an edit.
        world = self.installed_world()
        world.write(VARS_SH, "# third edition\n")
        self.assert_refused(world, edited_message(VARS_SH))

    def test_new_mode(self):
        world = self.installed_world()
        self.reinstall(world, self.second)
        os.chmod(world.path(VARS_SH), 0o755)
        world.install()
        self.assertEqual(world.undo().changes[VARS_SH], "755 " + self.second[VARS_SH])


    def test_same_bytes_with_new_mode(self):
        world = self.installed_world()
        self.reinstall(world, ORIGINALS)
        os.chmod(world.path(VARS_SH), 0o755)
        world.install()
        self.assertEqual(world.undo().changes[VARS_SH], "755 " + ORIGINALS[VARS_SH])


class NewPackageVersion(StagingTest):
    """Another version of the compiler in the same directory: 5.1.3 has toolchain definitions of its
    own, and its environment scripts in the places of those of 5.0.3."""

    new = {file: file.replace("5.0.3", "5.1.3") for file in [SETUP_64, SETUP_32]}

    def upgraded(self, old_version_removed):
        world = self.installed_world()
        self.before = world.tree()
        world.write("installation.toml", installation(COMPONENT.replace("5.0.3", "5.1.3")))
        for old, new in self.new.items():
            world.write(new, SETUP_ORIGINAL)
            if old_version_removed:
                shutil.rmtree(os.path.dirname(world.path(old)))
        for file in [VARS_SH, VARS_CSH]:
            world.write(file, "# 5.1.3\n" + ORIGINALS[file])
        return world

    def filled(self):
        changed = {
            file: entry.replace("644 ", "644 # 5.1.3\n")
            for file, entry in without(package_filled(), KEPT_HERE).items()
        }
        for old, new in self.new.items():
            changed[new] = changed.pop(old).replace("# 5.1.3\n", "").replace("5.0.3", "5.1.3")
        return changed

    def restored(self):
        changed = {file: f"644 # 5.1.3\n{ORIGINALS[file]}" for file in [VARS_SH, VARS_CSH]}
        return {**changed, **dict.fromkeys(self.new.values(), "644 " + SETUP_ORIGINAL)}

    out = WHOLE_INSTALLATION.replace("nox5.0.3", "nox5.1.3").replace(
        "(version 5.0.3", "(version 5.1.3"
    )

    def test_install(self):
        for removed in [True, False]:
            with self.subTest(removed):
                world = self.upgraded(old_version_removed=removed)
                self.assert_outcome(world.install(), out=self.out, changed=self.filled())
                self.assert_outcome(world.install(), out=self.out)

    def test_undo_after_removal_of_old_one(self):
        world = self.upgraded(old_version_removed=True)
        world.install()
        paths = in_order(*self.new, *self.new.values(), VARS_SH, VARS_CSH)
        files = [
            {"path": f"WORLD/{path}", "result": "gone" if path in self.new else "restored"}
            for path in paths
        ]
        self.assert_json(
            world.undo("--json"), json_of_undo(files=files), changed=self.restored()
        )

    def test_undo_of_both(self):
        world = self.upgraded(old_version_removed=False)
        world.install()
        files = [*self.new, *self.new.values(), VARS_SH, VARS_CSH]
        old = dict.fromkeys(self.new, "644 " + SETUP_ORIGINAL)
        self.assert_json(
            world.undo("--json"), json_of_undo(*files), changed={**self.restored(), **old}
        )


# --- What is refused ---


class Links(StagingTest):
    def link_message(self, name):
        return (
            f"WORLD/{name} is a link, which filling in the template would replace or write "
            "through; put an ordinary file there or remove it"
        )

    def assert_link_refused(self, world, name):
        before = world.tree(kept=True)
        for dry in [[], ["--dry-run"]]:
            outcome = world.install(*dry)
            self.assert_outcome(
                outcome,
                code=1,
                out=NDK_LINES + COMPONENT_LINE,
                err=f"{NOT_DONE}{self.link_message(name)}\n",
            )
        self.assertEqual(world.tree(kept=True), before)

    def world_with_link(self, name, target):
        world = World(self, {**small_tree(), "target": "<NDK_DIR>\n", "dir/": ""})
        if name in TEMPLATES:
            os.remove(world.path(name))
        os.symlink(world.path(target), world.path(name))
        return world

    def test_template(self):
        for file in TEMPLATES:
            for target in ["target", "nowhere", "dir", "/dev/null"]:
                with self.subTest(file=file, target=target):
                    self.assert_link_refused(self.world_with_link(file, target), file)

    def test_tmp_name(self):
        for file in TEMPLATES:
            for target in ["target", "nowhere", "dir", "/dev/null"]:
                with self.subTest(file=file, target=target):
                    world = self.world_with_link(file + ".tmp", target)
                    self.assert_link_refused(world, file + ".tmp")

    def test_without_integration(self):
        world = self.world_with_link(VARS_SH, "target")
        outcome = world.install(DISABLED)
        self.assertEqual((outcome.code, outcome.changes), (1, {}))
        self.assertEqual(outcome.err, f"{NOT_DONE}{self.link_message(VARS_SH)}\n")

    def test_template_linked_after_installation(self):
        world = self.installed_world()
        os.rename(world.path(VARS_SH), world.path("moved.sh"))
        os.symlink(world.path("moved.sh"), world.path(VARS_SH))
        self.assert_link_refused(world, VARS_SH)

    def test_undo_of_template_linked_after_installation(self):
        # What the link points to is not this package's.
        world = self.installed_world()
        os.rename(world.path(VARS_SH), world.path("moved.sh"))
        os.symlink(world.path("moved.sh"), world.path(VARS_SH))
        world.undo()
        self.assertEqual(world.read("moved.sh"), "ndk='WORLD/ndk'\n\n")

    @unittest.skipUnless(directory_of_another_file_system(), "there is no second file system")
    def test_linked_directory_on_other_file_system(self):
        # A copy could not take a template's place in one step.
        other = tempfile.TemporaryDirectory(
            prefix="ndk_integrate_test.", dir=directory_of_another_file_system()
        )
        self.addCleanup(other.cleanup)
        world = World(self, small_tree())
        shutil.move(world.path(LINUX), os.path.join(other.name, "linux"))
        os.symlink(os.path.join(other.name, "linux"), world.path(LINUX))
        self.assert_refused(
            world, f"the template WORLD/{VARS_SH} is on another file system than WORLD/package/cc"
        )

    def test_linked_directories(self):
        # Only the template itself counts.
        world = World(self, small_tree())
        for name in ["package", "package/cc", LINUX]:
            os.rename(world.path(name), world.path(name) + ".real")
            os.symlink(os.path.basename(name) + ".real", world.path(name))
        self.assertEqual(world.install().code, 0)
        filled = {file: world.read(file) for file in TEMPLATES}
        self.assertEqual(
            filled, {file: package_filled()[file].removeprefix("644 ") for file in TEMPLATES}
        )
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)


class ShellSurprises(StagingTest):
    def message(self, shown):
        return (
            f"{NOT_DONE}the name of the NDK directory WORLD/{shown} holds a character that the "
            'shell would not leave alone (", $, `, \\ or a control character); make a link with a '
            "plain name to it (ln -s) and give that with --ndk\n"
        )

    def world_with_ndk(self, name):
        world = World(self, small_tree(script='printf "<%s>" "$@"'))
        os.rename(world.path("ndk"), world.path(name))
        return world

    def test_refused(self):
        for name, shown in SHELL_SURPRISES.items():
            for dry in [[], ["--dry-run"]]:
                with self.subTest(name=name, dry=dry):
                    world = self.world_with_ndk(name)
                    self.assert_outcome(
                        world.install("--ndk", world.path(name), *dry),
                        code=1,
                        out=NDK_LINES.replace("WORLD/ndk", f"WORLD/{shown}") + COMPONENT_LINE,
                        err=self.message(shown),
                    )

    def test_every_control_character(self):
        for code in [*range(1, 0x20), 0x7F]:
            with self.subTest(code):
                world = self.world_with_ndk(chr(code))
                outcome = world.install("--ndk", world.path(chr(code)))
                self.assertEqual((outcome.code, outcome.changes), (1, {}))
                self.assertIn("a character that the shell would not leave alone", outcome.err)

    def test_found_by_search(self):
        world = self.world_with_ndk("a$b")
        outcome = world.install("--set", "NDK_DEFAULT_SEARCH_PATH_LINUX=a$b", cwd=world.dir)
        self.assertEqual((outcome.code, outcome.err), (1, self.message("a$b")))
        self.assertEqual(outcome.changes, {})

    def test_in_the_file(self):
        world = self.world_with_ndk("a$b")
        world.write("installation.toml", installation(NDK_PATH="'a$b'"))
        outcome = world.install()
        self.assertEqual((outcome.code, outcome.err), (1, self.message("a$b")))
        self.assertEqual(outcome.changes, {})

    def test_installed_compiler(self):
        world = self.installed_world()
        os.rename(world.path("other ndk"), world.path("a`b"))
        before = world.tree(kept=True)
        outcome = world.install("--ndk", world.path("a`b"))
        self.assertEqual((outcome.code, outcome.err), (1, self.message("a`b")))
        self.assertEqual(world.tree(kept=True), before)

    def test_link_with_plain_name(self):
        # The way round that the message tells.
        for name in SHELL_SURPRISES:
            with self.subTest(name):
                world = self.world_with_ndk(name)
                os.symlink(name, world.path("plain"))
                outcome = world.install("--ndk", world.path("plain"))
                self.assertEqual(outcome.code, 0, outcome)
                self.assertIn("script printed: <WORLD/plain><--force>\n", outcome.out)
                self.assertEqual(outcome.changes, package_filled("WORLD/plain"))

    def test_without_integration(self):
        # No script, so no shell.
        world = self.world_with_ndk("a$b")
        outcome = world.install("--ndk", world.path("a$b"), DISABLED)
        self.assertEqual((outcome.code, outcome.changes), (0, package_filled(ndk="")))

    def test_harmless_names(self):
        for name in HARMLESS_NAMES:
            with self.subTest(name):
                world = self.world_with_ndk(name)
                outcome = world.install("--ndk", world.path(name))
                self.assertEqual(outcome.code, 0, outcome)
                self.assertIn(f"script printed: <WORLD/{name}><--force>\n", outcome.out)
                self.assertEqual(outcome.changes, package_filled(f"WORLD/{name}"))


# --- The script and the plug-in ---


class WhatTheScriptSees(StagingTest):
    def test_filled_toolchain_definitions(self):
        # They are in their places before it runs; the environment scripts come after it.
        script = f"cat x86_64-nox5.0.3.42/setup.mk {VARS_SH_FOR_SCRIPT}"
        world = World(self, small_tree(script=script))
        printed = [f"WORLD/{LINUX}", "5.0.3.42", "", "", "ndk='<NDK_DIR>'"]
        lines = "".join(f"script printed: {line}\n" for line in printed)
        self.assert_outcome(
            world.install(), out=BEFORE_SCRIPT_OUTPUT + lines + DONE_LINE, changed=package_filled()
        )

    def test_failing_script(self):
        world = World(self, small_tree(script="echo no room\nexit 7"))
        self.assert_outcome(
            world.install(),
            code=1,
            out=BEFORE_SCRIPT_OUTPUT + "script printed: no room\nscript exit status: 7\n",
            err=f"{NOT_DONE}the integration script failed with exit status 7: {COMMAND}\n",
            changed=package_filled(),
        )


class PluginThatThrows(StagingTest):
    """An exception in the middle of integrate_ndk."""

    def test_nothing_committed(self):
        world = World(self, small_tree())
        library = fake_plugin(
            os.path.join(world.top, "plugin", "plugin.so"),
            integrate_ndk=f"""
                extern "C" int integrate_ndk(session_t*) {{
                  const std::string copy = path("{world.path(VARS_SH)}");
                  if (copy.rfind("/dev/null", 0) == 0) return 0;  // only asked which files
                  file_move(copy, copy);
                  throw std::runtime_error("boom");
                }}""",
            check_if_ndk_integration_files_are_to_be_installed=SELECT_FIRST_COMPONENT,
        )
        self.assert_json(
            world.install("--plugin", library, DISABLED, "--json"),
            json_of_installation(
                outcome="failed",
                changed=False,
                ndk=None,
                release=None,
                files=[{"path": f"WORLD/{VARS_SH}", "placeholders": 0, "result": "failed"}],
                script=None,
                message="boom",
            ),
            code=1,
            changed={KEPT_HERE: "755 /"},
        )


# --- The command line ---


class CommandLine(EndToEndTest):
    def assert_wrong(self, outcome, message):
        err = f"{message}\nRun with --help for more information.\n"
        self.assert_outcome(outcome, code=2, err=err)

    def test_help(self):
        for command, options in {
            "install": ["--ndk DIR", "--set NAME=VALUE", "--dry-run", "--json"],
            "undo": ["--json"],
        }.items():
            with self.subTest(command):
                outcome = World(self).run(command, "--help")
                for text in ["INSTALLATION.toml", "--log FILE", "--plugin FILE", "-v", *options]:
                    self.assertIn(text, outcome.out)
                self.assert_outcome(outcome, out=outcome.out)

    def test_undo_takes_no_option_of_install(self):
        world = World(self, small_tree())
        for option in ["--dry-run", "--ndk=ndk", "--set=NDK_PATH=ndk"]:
            with self.subTest(option):
                self.assert_wrong(
                    world.undo(option), f"The following argument was not expected: {option}"
                )

    def test_undo_without_file(self):
        outcome = World(self).run("undo")
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (2, "", {}))

    def test_undo_of_missing_file(self):
        world = World(self, without(small_tree(), "installation.toml"))
        self.assert_outcome(
            world.undo(),
            code=2,
            err="ndk-integrate: cannot read WORLD/installation.toml: No such file or directory\n",
        )

    def test_option_without_value(self):
        world = World(self, small_tree())
        for option in ["--ndk", "--set"]:
            with self.subTest(option):
                self.assert_wrong(world.install(option), f"{option}: 1 required TEXT missing")


if __name__ == "__main__":
    unittest.main()

"""The scripts: nothing passes without having looked."""

import os
import platform
import pty
import re
import shutil
import subprocess
import unittest

from world import ROOT, World, script


class ScriptsTest(unittest.TestCase):
    def setUp(self):
        # As a checkout may lie: the path holds a blank, and there is no git.
        world = self.enterContext(World(name="source tree"))
        shutil.copytree(os.path.join(ROOT, "scripts"), world.path("scripts"))
        self.dir, self.write = world.dir, world.write

    def program(self, name, text):
        self.write(f"programs/{name}", script(text))

    def run_script(self, *command, **environment):
        """The exit code, and what was printed on either stream."""
        path = os.path.join(self.dir, "programs") + os.pathsep + os.environ["PATH"]
        done = subprocess.run(
            command,
            cwd=self.dir,
            env={**os.environ, "PATH": path, **environment},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        return done.returncode, done.stdout


class Style(ScriptsTest):
    def test_no_files(self):
        for room in ("ndk_utils", "console_host", "host_check"):
            os.mkdir(os.path.join(self.dir, room))
        for style, files in [("format", "C++ files"), ("tidy", "C++ sources")]:
            with self.subTest(style):
                code, printed = self.run_script("scripts/style", style)
                self.assertEqual(
                    (code, printed), (1, f"scripts/style: found no {files} to look at\n")
                )

    def test_files_of_builds_do_not_count(self):
        self.write("build/release/generated.cpp", "int  one;\n")
        self.write("build-other/generated.cpp", "int  one;\n")
        code, printed = self.run_script("scripts/style", "format")
        self.assertEqual((code, printed), (1, "scripts/style: found no C++ files to look at\n"))

    def test_every_file_is_looked_at(self):
        self.write("one room/build/one.cpp", "")
        self.write("two.h", "")
        self.program("clang-format-14", 'for file; do echo "$file"; done')
        code, printed = self.run_script("scripts/style", "format")
        self.assertEqual(
            (code, sorted(printed.splitlines())),
            (0, ["--Werror", "--dry-run", "./one room/build/one.cpp", "./two.h", "told: 2 files"]),
        )

    def test_complaint(self):
        self.write("one.cpp", "")
        self.program("clang-format-14", "echo a complaint; exit 1")
        code, printed = self.run_script("scripts/style", "format")
        self.assertNotIn(code, (0, 77))
        self.assertIn("a complaint", printed)


class Steps(ScriptsTest):
    def steps(self, *steps, **environment):
        script = ". scripts/steps.sh\ndebian() { echo \"$DEBIAN\"; }\n" + "\n".join(steps)
        self.write("run", script + "\nend_steps\n")
        code, printed = self.run_script("sh", "run", **environment)
        return code, printed, printed.splitlines()[-1]

    def test_passed(self):
        code, printed, last = self.steps("step quiet echo nothing of interest")
        self.assertEqual((code, last), (0, "1 passed, 0 failed"))
        self.assertNotIn("nothing of interest", printed)

    def test_failed(self):
        code, printed, last = self.steps(
            "step one sh -c 'echo the reason; exit 3'", "step two true"
        )
        self.assertEqual((code, last), (1, "1 passed, 1 failed"))
        self.assertIn("the reason", printed)

    def test_skipped(self):
        step = "step one sh -c 'echo told: the reason; exit 77'"
        for debian, ci, expected in [
            ("13", "true", (0, "0 passed, 0 failed, 1 skipped")),
            ("12", "", (0, "0 passed, 0 failed, 1 skipped")),
            ("12", "true", (1, "0 passed, 1 failed")),
        ]:
            with self.subTest(debian=debian, ci=ci):
                code, printed, last = self.steps(step, DEBIAN=debian, CI=ci)
                self.assertEqual((code, last), expected)
                self.assertIn("the reason", printed)

    def test_nothing_is_left(self):
        temporary = os.path.join(self.dir, "temporary")
        os.mkdir(temporary)
        self.steps("step one true", "step two false", TMPDIR=temporary)
        self.assertEqual(os.listdir(temporary), [])


@unittest.skipUnless("Debian" in platform.freedesktop_os_release()["NAME"], "only Debian installs")
class Setup(ScriptsTest):
    """On a machine that has nothing of what the demo needs; sudo only keeps a record."""

    QUESTION = "Install these packages with sudo? [Y/n] "
    TOOLS = "cat date dirname env fold grep mktemp rm sed sh sleep"

    def setUp(self):
        super().setUp()
        for tool in self.TOOLS.split():
            found = shutil.which(tool)
            self.program(tool, f'exec {found} "$@"')
        self.user(1000)
        self.sudo('echo "$*" >>record')

    def user(self, number):
        self.program("id", f"echo {number}")

    def sudo(self, script):
        self.program("sudo", script)

    def run_setup(self, *options, typed=None):
        """What was printed, and what was run as root. `typed` at a terminal, if not None."""
        command = ["/bin/sh", "scripts/setup", *options, "demo"]
        how = {"cwd": self.dir, "env": {"PATH": os.path.join(self.dir, "programs"), "TERM": "dumb"}}
        if typed is None:
            done = subprocess.run(
                command, **how, stdin=subprocess.DEVNULL, capture_output=True, check=False
            )
            printed = done.stderr
        else:
            ours, terminal = pty.openpty()
            os.write(ours, typed.encode())
            subprocess.run(
                command, **how, stdin=terminal, stdout=terminal, stderr=terminal, check=False
            )
            os.close(terminal)
            printed = b""
            while block := self.read(ours):
                printed += block
            os.close(ours)
        record = os.path.join(self.dir, "record")
        if not os.path.exists(record):
            return printed.decode(), []
        with open(record, encoding="utf-8") as file:
            return printed.decode(), re.findall("apt-get (?:-o [^ ]* )?([a-z]*)", file.read())

    @staticmethod
    def read(terminal):
        try:
            return os.read(terminal, 4096)
        except OSError:  # all is read, and the program has ended
            return b""

    def test_terminal(self):
        installed = ["update", "install"]
        for typed, run in [("\n", installed), ("y\n", installed), ("n\n", [])]:
            with self.subTest(typed):
                self.write("record", "")
                printed, was_run = self.run_setup(typed=typed)
                self.assertRegex(printed, r"(?s)to be installed.* g\+\+ cmake .*\[Y/n\]")
                self.assertEqual(was_run, run)

    def test_terminal_and_yes(self):
        printed, run = self.run_setup("--yes", typed="")
        self.assertNotIn(self.QUESTION, printed)
        self.assertIn(" g++ cmake ", printed)
        self.assertEqual(run, ["update", "install"])

    def test_no_terminal(self):
        printed, run = self.run_setup()
        self.assertIn(" g++ cmake ", printed)
        self.assertEqual(run, ["update", "install"])

    def test_no_terminal_and_sudo_wants_password(self):
        self.sudo("exit 1")
        printed, run = self.run_setup()
        self.assertIn("as root run:\n  apt-get install --no-install-recommends g++ cmake ", printed)
        self.assertEqual(run, [])

    def test_root(self):
        self.user(0)
        self.sudo("exit 1")
        self.program("apt-get", 'echo "apt-get $*" >>record')
        printed, run = self.run_setup(typed="")
        self.assertNotIn(self.QUESTION, printed)
        self.assertIn(" g++ cmake ", printed)
        self.assertEqual(run, ["update", "install"])


if __name__ == "__main__":
    unittest.main()

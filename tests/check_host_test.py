"""End-to-end tests of `ndk-integrate check-host`."""

import os
import re
import subprocess
import tempfile
import unittest

PROGRAM = os.environ["NDK_INTEGRATE"]


def run(*arguments):
    done = subprocess.run(
        [PROGRAM, "check-host", *arguments], capture_output=True, text=True, check=False
    )
    return done.returncode, done.stdout, done.stderr


class CheckHost(unittest.TestCase):
    maxDiff = None

    def test_this_host_keeps_the_contract(self):
        with tempfile.TemporaryDirectory() as directory:
            code, out, err = run("--log", os.path.join(directory, "log"))
        lines = [line for line in out.splitlines() if line.startswith("HOST_CHECK: ")]
        names = [line.split(": ")[1] for line in lines[::2]]
        self.assertGreater(len(names), 40)
        self.assertEqual(lines[::2], [f"HOST_CHECK: {name}: checking" for name in names])
        for name, verdict in zip(names, lines[1::2]):
            self.assertRegex(verdict, rf"\AHOST_CHECK: {re.escape(name)}: (ok\Z|skipped: )")
        skipped = [line for line in lines if ": skipped: " in line]
        self.assertLessEqual(len(skipped), 2 if os.geteuid() == 0 else 0, skipped)
        self.assertEqual((code, out.splitlines()[-1], err), (0, "host check: 0 violations", ""))

    def test_quiet(self):
        self.assertEqual(run("-q"), (0, "host check: 0 violations\n", ""))

    def test_violations(self):
        with tempfile.TemporaryDirectory() as directory:
            library = self.build(
                directory,
                'extern "C" int check_host(session_t*) { print_log("told: %s", "100%"); return 2; }',
            )
            expected = (1, "told: 100%\nhost check: 2 violations\n", "")
            self.assertEqual(run("--library", library), expected)

    def test_a_host_that_dies(self):
        for how, told in [
            ("std::raise(SIGSEGV)", "by signal 11 (Segmentation fault)"),
            ("std::abort()", "by signal 6 (Aborted)"),
            ("std::exit(0)", "with exit status 0, before the check was done"),
        ]:
            with self.subTest(how=how), tempfile.TemporaryDirectory() as directory:
                library = self.build(
                    directory,
                    "#include <csignal>\n#include <cstdlib>\n"
                    'extern "C" int check_host(session_t*) {'
                    'print_log("HOST_CHECK: one: checking"); print_log("HOST_CHECK: one: ok");'
                    'print_log("HOST_CHECK: two: checking"); ' + how + "; return 0; }",
                )
                code, out, err = run("-q", "--library", library)
                expected = f"ndk-integrate: the host died at the check two, {told}\n"
                self.assertEqual((code, out, err), (1, "", expected))

    def test_no_library(self):
        code, out, err = run("--library", "/not/there.so")
        self.assertEqual((code, out), (3, ""))
        self.assertRegex(err, r"\Andk-integrate: cannot load the host check /not/there\.so: .*\n\Z")

    def test_another_library(self):
        with tempfile.TemporaryDirectory() as directory:
            library = self.build(directory, "")
            err = (
                f"ndk-integrate: cannot use the host check {library}: "
                "it has no function check_host\n"
            )
            self.assertEqual(run("--library", library), (3, "", err))

    def build(self, directory, source):
        """A shared library of `source`."""
        library = os.path.join(directory, "library.so")
        root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        command = [os.environ.get("CXX", "c++"), "-std=c++17", "-shared", "-fPIC"]
        subprocess.run(
            [*command, "-I", root, "-x", "c++", "-", "-o", library],
            input='#include "host/host.h"\n' + source,
            text=True,
            check=True,
        )
        return library


if __name__ == "__main__":
    unittest.main()

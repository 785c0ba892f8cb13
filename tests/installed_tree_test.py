"""cmake --install: what lands under the prefix, and that it works there."""

import os
import shutil
import subprocess
import tempfile
import unittest

from ndk_integrate_world import LIBRARY, EndToEndTest, example_world

BUILD_DIR = os.environ["BUILD_DIR"]
HEADERS = ["host/host.h", "ndk_utils/ndk_utils.h"]


class InstalledTree(EndToEndTest):
    @classmethod
    def setUpClass(cls):
        os.umask(0o022)
        top = tempfile.TemporaryDirectory(prefix="installed_tree_test.")
        cls.addClassCleanup(top.cleanup)
        cls.prefix = os.path.join(top.name, "a prefix")
        # Where a packager's staging directory is set, it would go before the prefix.
        environment = {name: value for name, value in os.environ.items() if name != "DESTDIR"}
        command = ["cmake", "--install", BUILD_DIR, "--prefix", cls.prefix]
        subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, check=True)

    def test_files(self):
        found = {}
        for above, dirs, files in os.walk(self.prefix):
            for name in dirs + files:
                path = os.path.join(above, name)
                if not os.path.isdir(path):
                    kind = "program" if os.access(path, os.X_OK) else "file"
                    found[os.path.relpath(path, self.prefix)] = kind
        for library in (LIBRARY, "libhost_check.so"):
            found[f"lib/{library}"] = "library"  # executable or not, as the system has it
        self.assertEqual(
            found,
            {
                "bin/ndk-integrate": "program",
                f"lib/{LIBRARY}": "library",
                "include/host/host.h": "file",
                "include/host_check/host_check.h": "file",
                "include/ndk_utils/ndk_utils.h": "file",
                "lib/libhost_check.so": "library",
                "share/man/man1/ndk-integrate.1": "file",
            },
        )

    def test_headers(self):
        for header in HEADERS:
            with self.subTest(header):
                done = subprocess.run(
                    [
                        os.environ.get("CXX", "c++"),
                        "-std=c++17",
                        "-Wall",
                        "-Wextra",
                        "-Wpedantic",
                        "-Werror",
                        "-fsyntax-only",
                        "-I",
                        os.path.join(self.prefix, "include"),
                        "-x",
                        "c++",
                        "-",
                    ],
                    input=f"#include <{header}>\n",
                    cwd=self.prefix,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.STDOUT,
                    text=True,
                    check=False,
                )
                self.assertEqual((done.returncode, done.stdout), (0, ""))

    def assert_installs_example(self, prefix):
        world = example_world(self)
        outcome = world.install(program=os.path.join(prefix, "bin/ndk-integrate"))
        self.assertEqual((outcome.code, outcome.err), (0, ""))
        self.assertEqual(
            outcome.out.splitlines()[-1],
            "done: the compiler is integrated into WORLD/ndk/android-ndk-r11c",
        )
        compiler = "WORLD/package/compiler/compilers_and_libraries_2005.3.42/linux"
        definition = "ndk/android-ndk-r11c/build/core/toolchains/x86_64-nox5.0.3.42/setup.mk"
        self.assertIn(f"\n{compiler}\n", world.read(definition))

    def test_program(self):
        self.assert_installs_example(self.prefix)

    def test_moved_prefix(self):
        with tempfile.TemporaryDirectory(prefix="installed_tree_test.") as top:
            moved = os.path.join(top, "moved")
            shutil.copytree(self.prefix, os.path.join(top, "copy"), symlinks=True)
            os.rename(os.path.join(top, "copy"), moved)
            self.assert_installs_example(moved)

    def test_library_not_there(self):
        with tempfile.TemporaryDirectory(prefix="installed_tree_test.") as top:
            copy = os.path.join(top, "copy")
            shutil.copytree(self.prefix, copy, symlinks=True)
            os.remove(os.path.join(copy, "lib", LIBRARY))
            outcome = example_world(self).install(program=os.path.join(copy, "bin/ndk-integrate"))
            self.assert_outcome(
                outcome,
                code=3,
                err=f"ndk-integrate: cannot load the plug-in {LIBRARY}: {LIBRARY}: "
                "cannot open shared object file: No such file or directory\n",
            )


if __name__ == "__main__":
    unittest.main()

"""cmake --install: what lands under the prefix, and that it works there."""

import os
import shutil
import subprocess
import tempfile
import unittest

from end_to_end import EndToEndTest
from examples import ExampleWorld
from messages import Install, no_plugin
from plugins import CXX
from world import LIBRARY

BUILD_DIR = os.environ["BUILD_DIR"]
HEADERS = ["host/host.h", "host_check/host_check.h", "ndk_utils/ndk_utils.h"]
INCLUDE = "include/ndk_utils-1"


class InstalledTree(EndToEndTest):
    @classmethod
    def setUpClass(cls):
        os.umask(0o022)
        top = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="installed_tree_test."))
        cls.prefix = os.path.join(top, "a prefix")
        # Where a packager's staging directory is set, it would go before the prefix.
        environment = {name: value for name, value in os.environ.items() if name != "DESTDIR"}
        command = ["cmake", "--install", BUILD_DIR, "--prefix", cls.prefix]
        subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, check=True)

    def test_files(self):
        libraries = {f"lib/{LIBRARY}": "library", "lib/libhost_check.so": "library"}
        found = {}
        for above, dirs, files in os.walk(self.prefix):
            for name in dirs + files:
                path = os.path.join(above, name)
                if not os.path.isdir(path):
                    name = os.path.relpath(path, self.prefix)
                    kind = "program" if os.access(path, os.X_OK) else "file"
                    found[name] = libraries.get(name, kind)  # executable as the system has it
        self.assertEqual(
            found,
            {
                **libraries,
                "bin/ndk-integrate": "program",
                **{f"{INCLUDE}/{header}": "file" for header in HEADERS},
                "lib/cmake/ndk_utils-1/ndk_utilsConfig.cmake": "file",
                "lib/cmake/ndk_utils-1/ndk_utilsConfigVersion.cmake": "file",
                "lib/pkgconfig/ndk-utils-host.pc": "file",
                "share/bash-completion/completions/ndk-integrate": "file",
                "share/fish/vendor_completions.d/ndk-integrate.fish": "file",
                "share/man/man1/ndk-integrate.1": "file",
                "share/ndk-integrate/ndk-integrate.schema.json": "file",
                "share/ndk_utils-1/exports.list": "file",
                "share/zsh/site-functions/_ndk-integrate": "file",
            },
        )

    def test_headers(self):
        command = [CXX, "-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only"]
        command += ["-I", os.path.join(self.prefix, INCLUDE), "-x", "c++", "-"]
        for header in HEADERS:
            with self.subTest(header):
                done = subprocess.run(
                    command,
                    input=f"#include <{header}>\n",
                    cwd=self.prefix,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.STDOUT,
                    text=True,
                    check=False,
                )
                self.assertEqual((done.returncode, done.stdout), (0, ""))

    def install_example(self, prefix):
        world = self.enterContext(ExampleWorld())
        return world, world.install(program=os.path.join(prefix, "bin/ndk-integrate"))

    def test_program(self):
        top = self.enterContext(tempfile.TemporaryDirectory(prefix="installed_tree_test."))
        moved = os.path.join(top, "moved")
        shutil.copytree(self.prefix, os.path.join(top, "copy"), symlinks=True)
        os.rename(os.path.join(top, "copy"), moved)
        for prefix in [self.prefix, moved]:
            with self.subTest(prefix):
                world, outcome = self.install_example(prefix)
                self.assertEqual((outcome.code, outcome.err), (0, ""))
                done = Install(ndk="WORLD/ndk/android-ndk-r11c").result()
                self.assertEqual(outcome.out.splitlines(True)[-1], done)
                compiler = "WORLD/package/compiler/compilers_and_libraries_2005.3.42/linux"
                definition = "ndk/android-ndk-r11c/build/core/toolchains/x86_64-nox5.0.3.42/setup.mk"
                self.assertIn(f"\n{compiler}\n", world.read(definition))
        os.remove(os.path.join(moved, "lib", LIBRARY))
        self.assert_told(no_plugin(LIBRARY), self.install_example(moved)[1])


if __name__ == "__main__":
    unittest.main()

"""docs/packaging-a-compiler.md: the Makefile in it, with the sample compiler."""

import os
import re
import shutil
import subprocess
import unittest

from world import EXAMPLES, PROGRAM, ROOT, World

GUIDE = os.path.join(ROOT, "docs/packaging-a-compiler.md")
VARS = "opt/nox/compiler/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh"
DEFINITION = "ndk/android-ndk-r11c/build/core/toolchains/x86_64-nox5.0.3.42/setup.mk"


class PackagingGuide(unittest.TestCase):
    def setUp(self):
        """An unpacked archive as the guide has it, with the sample NDKs beside it."""
        self.world = self.enterContext(World())
        shutil.copytree(f"{EXAMPLES}/package/compiler", self.world.path("compiler"))
        shutil.copytree(f"{EXAMPLES}/ndk", self.world.path("ndk"))
        shutil.copy(f"{EXAMPLES}/installation.toml", self.world.path())
        with open(GUIDE, encoding="utf-8") as file:
            (makefile,) = re.findall("```make\n(.*?)```", file.read(), re.DOTALL)
        self.world.write("Makefile", makefile)

    def make(self, goal):
        path = os.path.dirname(PROGRAM) + os.pathsep + os.environ["PATH"]
        done = subprocess.run(
            ["make", goal, f"prefix={self.world.path('opt/nox')}"],
            cwd=self.world.path(),
            env={**os.environ, "PATH": path},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_makefile(self):
        before = self.world.snapshot()
        for goal in ("install", "install"):  # the second one over the first
            self.make(goal)
            self.assertIn('"WORLD/ndk/android-ndk-r11c"', self.world.read(VARS))
            self.assertIn("WORLD/opt/nox/compiler/", self.world.read(DEFINITION))
        self.make("uninstall")
        os.rmdir(self.world.path("opt"))
        self.assertEqual(self.world.snapshot(), before)

    def test_licence(self):
        """The packages say what the README says."""
        for file in (
            "README.md",
            "packaging/debian/copyright",
            "examples/debian_package/debian/copyright",
        ):
            with open(os.path.join(ROOT, file), encoding="utf-8") as text:
                self.assertIn("\nNo licence has been chosen for this project yet.\n", text.read())


if __name__ == "__main__":
    unittest.main()

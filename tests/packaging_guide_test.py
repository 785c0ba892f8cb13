"""docs/packaging-a-compiler.md: the Makefile in it, with the sample compiler."""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

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

    def next_version(self):
        """Makes the archive that of 5.0.4.43, whose definitions have other names."""
        for path in sorted(Path(self.world.path("compiler")).rglob("*3.42")):
            path.rename(str(path).replace("3.42", "4.43"))
        for file in ("compiler/android/toolchain_definitions.sh", "installation.toml"):
            text = self.world.read(file).replace("5.0.3", "5.0.4")
            self.world.write(file, text.replace(".42", ".43").replace('"42"', '"43"'))

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

    def test_over_an_older_version(self):
        toolchains = self.world.path("ndk/android-ndk-r11c/build/core/toolchains")
        before = sorted(os.listdir(toolchains))
        self.make("install")
        self.next_version()
        self.make("install")
        new = ["x86-nox5.0.4.43", "x86_64-nox5.0.4.43"]
        self.assertEqual(sorted(os.listdir(toolchains)), sorted(before + new))
        self.assertEqual(list(Path(self.world.path("opt/nox")).rglob("*3.42")), [])
        self.make("uninstall")
        self.assertEqual(sorted(os.listdir(toolchains)), before)

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

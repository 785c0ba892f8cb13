"""find_package and pkg-config: the minimal host is built against an installed tree that was moved,
with nothing else."""

import os
import shutil
import subprocess
import tempfile
import unittest

from examples import ExampleWorld
from plugins import CXX
from world import EXAMPLES, LIBRARY

BUILD_DIR = os.environ["BUILD_DIR"]
HOST = os.path.join(EXAMPLES, "minimal_host/main.cpp")

PROJECT = """\
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
find_package(ndk_utils {version} REQUIRED)
add_executable(host main.cpp)
target_link_libraries(host PRIVATE ndk_utils::host)
file(WRITE ${{CMAKE_BINARY_DIR}}/libraries "${{ndk_utils_PLUGIN}}\\n${{ndk_utils_HOST_CHECK}}\\n")
"""


def run(*command, directory=None, **environment):
    """The exit code, and what was printed on either stream."""
    done = subprocess.run(
        command,
        cwd=directory,
        env={**os.environ, **environment},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
    )
    return done.returncode, done.stdout


class BuildingAHost(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.top = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="building_a_host_test."))
        installed = os.path.join(cls.top, "installed")
        code, printed = run("cmake", "--install", BUILD_DIR, "--prefix", installed, DESTDIR="")
        assert code == 0, printed
        cls.prefix = os.path.join(cls.top, "moved to a directory")
        os.rename(installed, cls.prefix)
        cls.libraries = [
            os.path.join(cls.prefix, "lib", library) for library in (LIBRARY, "libhost_check.so")
        ]

    def assert_ok(self, *command, **how):
        code, printed = run(*command, **how)
        self.assertEqual(code, 0, printed)
        return printed

    def project(self, version):
        """A directory with the minimal host's source, and what configuring it gives."""
        directory = os.path.join(self.top, f"project of {version}")
        os.mkdir(directory)
        shutil.copy(HOST, directory)
        with open(os.path.join(directory, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write(PROJECT.format(version=version))
        configure = ["cmake", "-B", "build", f"-DCMAKE_CXX_COMPILER={CXX}"]
        return directory, run(*configure, f"-DCMAKE_PREFIX_PATH={self.prefix}", directory=directory)

    def assert_keeps_contract(self, host):
        """The host installs the example, and the host check finds nothing."""
        plugin, host_check = self.libraries
        with ExampleWorld() as world:
            self.assertIn("installed", self.assert_ok(host, plugin, world.dir))
        with ExampleWorld() as world:
            checked = self.assert_ok(host, host_check, world.dir)
        self.assertIn("HOST_CHECK: file-move-replaces: ok\n", checked)

    def test_find_package(self):
        directory, (code, printed) = self.project("1.0")
        self.assertEqual(code, 0, printed)
        self.assert_ok("cmake", "--build", "build", directory=directory)
        with open(os.path.join(directory, "build/libraries"), encoding="utf-8") as file:
            self.assertEqual(file.read().splitlines(), self.libraries)
        self.assert_keeps_contract(os.path.join(directory, "build/host"))

    def test_find_package_other_version(self):
        for version in ("2.0", "1.999"):
            with self.subTest(version):
                code, printed = self.project(version)[1]
                self.assertNotEqual(code, 0)
                self.assertIn(f'requested version "{version}"', printed)

    def test_pkg_config(self):
        search = {"PKG_CONFIG_PATH": os.path.join(self.prefix, "lib/pkgconfig")}
        for variable, library in zip(("plugin", "host_check"), self.libraries):
            ask = ["pkg-config", f"--variable={variable}", "ndk-utils-host"]
            said = self.assert_ok(*ask, **search)
            self.assertEqual(os.path.realpath(said.strip().replace("\\", "")), library)
        self.assert_ok("pkg-config", "--atleast-version=1.0", "ndk-utils-host", **search)
        host = os.path.join(self.top, "host of pkg-config")
        # pkg-config escapes blanks for a shell.
        build = "eval \"$CXX $CXXFLAGS -std=c++17 '$1' -o '$2' $(pkg-config --cflags --libs $3)\""
        self.assert_ok("sh", "-euc", build, "sh", HOST, host, "ndk-utils-host", **search)
        self.assert_keeps_contract(host)


if __name__ == "__main__":
    unittest.main()

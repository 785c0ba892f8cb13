"""Tests the sample NDKs and the sample compiler package in examples/, each test on a copy of them.

What an installer does to the package is imitated here, so these tests need neither the plug-in nor
a host.
"""

import os
import shutil
import unittest

from examples import NOX, PATH, R10, R11, R21, VERSION, ExampleTest, installed_lines

DEBIAN_PACKAGES = {"make": "make", "csh": "tcsh", "sh": "dash"}


def setUpModule():
    for program, package in DEBIAN_PACKAGES.items():
        if shutil.which(program, path=PATH) is None:
            raise RuntimeError(f"{program} is not there; install the Debian package {package}")


class IntegrationScript(ExampleTest):
    def assert_refuses(self, world, arguments, message):
        before = world.snapshot()
        told = world.call("./ndk_integration.sh", *arguments, cwd=world.android)
        self.assertEqual(told, (1, "", world.hidden(f"ndk_integration.sh: {message}\n")))
        self.assertEqual(world.snapshot(), before)

    def assert_installs(self, world, *arguments, ndk=R11):
        self.assertEqual(world.integrate(ndk, *arguments), (0, installed_lines(ndk), ""))

    def test_installs_both_definitions(self):
        world = self.filled()
        before = world.snapshot(world.ndk())
        self.assert_installs(world, "--force")
        after = world.snapshot(world.ndk())
        place = f"ndk/{R11}/build/core/toolchains"
        expected = {f"{place}/{name}": (0o755, None) for name in NOX}
        for name in NOX:
            for file in ["setup.mk", "config.mk"]:
                content = world.bytes(world.definition(name, file))
                expected[f"{place}/{name}/{file}"] = (0o644, content)
        self.assertEqual(after, {**before, **expected})

    def test_needs_no_force(self):
        # Where nothing is there, and for the same definitions.
        world = self.filled()
        self.assert_installs(world)
        self.assert_installs(world)

    def test_different_definition(self):
        # Of the second one, so that a refusal in the middle would show the first installed.
        world = self.filled()
        other = world.installed(NOX[1])
        world.write(other, "TOOLCHAIN_NAME := other\n")
        message = f"'{other}' is there already and differs; --force replaces it"
        self.assert_refuses(world, [world.ndk()], message)
        os.link(other, other + ".read")
        self.assert_installs(world, "--force")
        self.assertEqual(world.text(other), world.text(world.definition(NOX[1])))
        # Replaced as a whole, not written into: whoever has the old one open still reads all of it.
        self.assertEqual(world.text(other + ".read"), "TOOLCHAIN_NAME := other\n")

    def test_refuses_to_replace_a_directory(self):
        world = self.filled()
        directory = world.installed(NOX[1])
        os.makedirs(directory)
        message = f"'{directory}' is a directory; remove it first"
        self.assert_refuses(world, [world.ndk(), "--force"], message)

    def test_refuses_unfinished_packages(self):
        world = self.example()
        message = (
            f"'./{NOX[0]}/setup.mk' still holds placeholders;"
            " let the installer fill them in first"
        )
        self.assert_refuses(world, [world.ndk(), "--force"], message)
        world.fill_in()
        os.remove(world.definition(NOX[1]))
        message = f"cannot read './{NOX[1]}/setup.mk'; install the compiler package again"
        self.assert_refuses(world, [world.ndk(), "--force"], message)

    def test_refuses_what_is_not_an_ndk(self):
        world = self.filled()
        shutil.rmtree(world.ndk(R21) + "/toolchains")
        shutil.rmtree(world.ndk(R21) + "/build")
        for directory, what in [
            (world.ndk("missing"), "is not a directory; give the top directory of an Android NDK"),
            (world.linux, "is not an Android NDK: it has no ndk-build"),
            (world.ndk("android-ndk-r12b.part"), "is not a complete Android NDK: it has neither "
             "source.properties nor RELEASE.TXT"),
            (world.ndk(R21), "is not a complete Android NDK: it has neither "
             "build/core/toolchains nor toolchains"),
        ]:
            with self.subTest(directory):
                self.assert_refuses(world, [directory, "--force"], f"'{directory}' {what}")

    def test_refuses_bad_arguments(self):
        world = self.filled()
        usage = "usage: ndk_integration.sh NDK_DIR [--force]"
        for arguments, message in [
            ([], usage),
            ([world.ndk(), "--force", "--force"], usage),
            ([""], f"the NDK directory is empty; {usage}"),
            (["--force"], f"unknown option '--force' ('./--force' names a directory); {usage}"),
            ([world.ndk(), "--hard"], f"unknown argument '--hard'; {usage}"),
        ]:
            with self.subTest(arguments):
                self.assert_refuses(world, arguments, message)

    def test_accepts_an_ndk_before_r11(self):
        self.assert_installs(self.filled(), "--force", ndk=R10)

    def test_odd_names_of_its_own_directory(self):
        world = self.filled("it's \"odd\" $HOME `id` \\ * # \n")
        script = world.android + "/ndk_integration.sh"
        self.assertEqual(world.call(script, world.ndk()), (0, installed_lines(), ""))
        world = self.filled("-n")
        command = ["sh", "--", "-n/package/compiler/android/ndk_integration.sh", world.ndk()]
        self.assertEqual(world.call(*command), (0, installed_lines(), ""))


class ToolchainDefinition(ExampleTest):
    """What make reads from a definition that the script has installed into the NDK."""

    def make(self, world, toolchain, recipe):
        file = world.installed(toolchain)
        return world.call("make", "-s", "-f", file, "--eval", "print: ; @" + recipe)

    def test_integrated(self):
        variables = "$(TARGET_CC) $(TARGET_CXX) $(NOX_VERSION) $(TOOLCHAIN_NAME)"
        runs = [f"$(TARGET_{name}) $(TARGET_CFLAGS) --version" for name in ("CC", "CXX")]
        for name in ["plain", "with  a blank", "it's odd, $HOME $(x) # (y)"]:
            world = self.filled(name)
            self.assertEqual(world.integrate(R11, "--force"), (0, installed_lines(), ""))
            compilers = world.hidden(f"{world.linux}/bin/noxcc\n{world.linux}/bin/noxc++\n")
            for toolchain in NOX:
                with self.subTest(name, toolchain=toolchain):
                    self.assertEqual(
                        self.make(world, toolchain, f"printf '%s\\n' {variables}"),
                        (0, f"{compilers}{VERSION}\n{toolchain}\n", ""),
                    )
                    self.assertEqual(
                        self.make(world, toolchain, " && ".join(runs)),
                        (0, f"noxcc {VERSION}\nnoxc++ {VERSION}\n", ""),
                    )

    def test_placeholders(self):
        """Several of each, and a line with both."""
        for toolchain in NOX:
            world = self.example()
            found = [
                (line.count("{INSTALL_NOX_INSTALLDIR}"), line.count("{INSTALL_NOX_VERSION}"))
                for line in world.text(world.definition(toolchain)).splitlines()
                if "{INSTALL_NOX_" in line
            ]
            self.assertEqual(found, [(1, 1), (0, 1), (1, 0), (0, 1), (0, 1)])


class EnvironmentScript(ExampleTest):
    """What sh and csh print after they have sourced the environment scripts."""

    SHELLS = {
        "sh": ["sh", "-euc", '. "$SCRIPT"; printf "%s\\n" "${ANDROID_NDK-unset}" "$PATH"'],
        "csh": [
            "csh",
            "-fc",
            'source "$SCRIPT"; if (! $?ANDROID_NDK) setenv ANDROID_NDK unset;'
            ' printf "%s\\n" "$ANDROID_NDK" "$PATH"',
        ],
    }

    def assert_sourced(self, world, *expected, **environment):
        out = world.hidden("".join(line + "\n" for line in expected))
        for shell, command in self.SHELLS.items():
            with self.subTest(shell, world=world.dir):
                script = f"{world.linux}/bin/compilervars_arch.{shell}"
                self.assertEqual(world.call(*command, SCRIPT=script, **environment), (0, out, ""))

    def test_names(self):
        for name in ["plain", "with  a blank", "it's odd, (y) * # & ;"]:
            world = self.filled(name)
            self.assert_sourced(world, world.ndk(), f"{world.ndk()}:/usr/bin:/bin")

    def test_earlier_ndk_and_none(self):
        world = self.filled()
        path = f"{world.ndk()}:/usr/bin:/bin"
        self.assert_sourced(world, world.ndk(), path, ANDROID_NDK="/opt/other")
        disabled = self.example().fill_in("")
        self.assert_sourced(disabled, "unset", "/usr/bin:/bin")
        self.assert_sourced(disabled, "/opt/other", "/usr/bin:/bin", ANDROID_NDK="/opt/other")


if __name__ == "__main__":
    unittest.main()

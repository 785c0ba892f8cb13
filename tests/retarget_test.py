"""ndk-integrate install, end to end, again, for another NDK or with other session variables."""

import os
import unittest

from end_to_end import EndToEndTest
from examples import ExampleWorld
from messages import NDK, Install, did_you_mean, said
from world import (
    ANDROID, DISABLED, LINUX, OTHER_NDK, SCRIPT, VARS_CSH, VARS_SH, changes, filled,
    installation, script, small_tree,
)

# The toolchain definitions do not name the NDK.
NAME_THE_NDK = [VARS_SH, VARS_CSH]


class Repeat(EndToEndTest):
    def test_nothing_changes(self):
        world = self.installed_world()
        once = [world.touched(world.path(name)) for name in [ANDROID, LINUX]]
        again = Install(changed=False)
        self.assert_told(again, world.install(), world.install("--json"), kept=True)
        now = [world.touched(world.path(name)) for name in [ANDROID, LINUX]]
        self.assertEqual(now, once)

    def test_after_failure(self):
        world = self.small_world(runs="exit 7")
        self.assertEqual(world.install().code, 1)
        world.write(SCRIPT, script())
        self.assert_told(Install(changed=False), world.install())

    def test_other_ndk(self):
        for form in [[], ["--json"]]:
            world = self.installed_world()
            after = filled("WORLD/other ndk")
            self.assert_told(
                Install.other_ndk(former_ndk=NDK),
                world.install("--ndk", world.path("other ndk"), *form),
                changed={file: after[file] for file in NAME_THE_NDK},
            )

    def test_other_ndk_same_as_fresh(self):
        for options in [["--ndk", "other ndk"], [DISABLED]]:
            with self.subTest(options):
                fresh = self.world({**small_tree(), **OTHER_NDK})
                fresh.install(*options, cwd=fresh.dir)
                world = self.installed_world()
                world.install(*options, cwd=world.dir)
                self.assertEqual(world.tree(kept=False), fresh.tree(kept=False))

    def test_example(self):
        world = self.enterContext(ExampleWorld())
        before = world.tree()
        world.install()
        once = world.tree()
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.tree(), once)
        self.assertEqual(world.undo().code, 0)
        left = {name for name in changes(before, world.tree()) if not name.startswith("ndk/")}
        self.assertEqual(left, set())


class NdkOption(EndToEndTest):
    """--ndk DIR."""

    def fresh_world(self, **changed):
        return self.world({**small_tree(installation(**changed)), **OTHER_NDK})

    def test_relative_to_working_directory(self):
        for options in [
            ["--ndk", "other ndk"],
            ["--ndk=./other ndk"],
            ["--ndk", "other ndk", "--set", "NDK_PATH=ndk"],
            ["--set", "NDK_PATH=ndk", "--ndk", "other ndk"],
        ]:
            with self.subTest(options):
                world = self.fresh_world(NDK_PATH='"ndk"')
                self.assert_installs(world, *options, report=Install.other_ndk(), cwd=world.dir)
        world = self.fresh_world()
        report = Install.other_ndk(ndk="WORLD/other ndk")
        self.assert_installs(world, "--ndk", "../other ndk", report=report, cwd=world.path("ndk"))

    def test_before_the_file(self):
        world = self.fresh_world()
        options = ["--ndk", world.path("other ndk"), world.path("installation.toml")]
        changed = filled("WORLD/other ndk", first=True)
        self.assert_told(Install.other_ndk(), world.run("install", *options), changed=changed)

    def test_empty(self):
        # Not a request to search.
        outcome = self.fresh_world().install("--ndk", "")
        self.assert_outcome(outcome, code=2, err=said("--ndk: the directory's name is empty"))


class SetOption(EndToEndTest):
    """--set NAME=VALUE."""

    def assert_set(self, toml, *settings):
        world = self.small_world(toml)
        options = [word for setting in settings for word in ["--set", setting]]
        self.assert_installs(world, *options, cwd=world.dir)

    def test_each_variable(self):
        for name, value in {
            "NDK_PATH": "ndk",
            "NDK_DEFAULT_SEARCH_PATH_LINUX": "not there;ndk",
            "NDK_SUPPORTED_VERSIONS": "r10e;r11c",
            "NDK_COMPONENT_PATTERNS": "-none-;-ndk-",
            "NDK_INTEGRATION_ENABLED": "yes",
            "VORN_INSTALL_DIR": "package",
        }.items():
            for before in ['"something else"', None]:
                with self.subTest(name, before=before):
                    self.assert_set(installation(**{name: before}), f"{name}={value}")

    def test_last_counts(self):
        self.assert_set(installation(), "NDK_PATH=not there", "NDK_PATH=ndk")

    def test_equals_sign_in_value(self):
        world = self.small_world()
        os.rename(world.path("ndk"), world.path("n=d=k"))
        report = Install(ndk="WORLD/n=d=k")
        self.assert_installs(world, "--set", "NDK_PATH=n=d=k", report=report, cwd=world.dir)

    def test_wrong(self):
        expected = (
            "expected one of NDK_PATH, NDK_DEFAULT_SEARCH_PATH_LINUX, NDK_SUPPORTED_VERSIONS, "
            "NDK_INTEGRATION_ENABLED, NDK_COMPONENT_PATTERNS, VORN_INSTALL_DIR"
        )
        names = ["NDK_PATH_STATUS", "ndk_path", "NDK_COMPILER_VERSION", ""]
        wrong = {f"{name}=x": f"unknown session variable '{name}', {expected}" for name in names}
        wrong["ndk_path=x"] += did_you_mean("NDK_PATH")
        wrong.update({text: f"--set {text}: expected NAME=VALUE" for text in ["NDK_PATH", ""]})
        world = self.small_world()
        for setting, message in wrong.items():
            with self.subTest(setting):
                outcome = world.install("--set", setting)
                self.assert_outcome(outcome, code=2, err=said(message), kept=True)


if __name__ == "__main__":
    unittest.main()

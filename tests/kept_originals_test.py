"""What ndk-integrate keeps in .ndk-integrate, end to end, when somebody or something else got at it."""

import json
import os
import shutil
import subprocess
import unittest

from ndk_integrate_world import (
    COMPONENT,
    COMPONENT_LINE,
    KEPT_HERE,
    LINUX,
    NDK_LINES,
    SETUP_64,
    TEMPLATES,
    VARS_SH,
    World,
    installation,
    small_tree,
)
from staging_test import NOT_DONE, ORIGINALS, StagingTest, sha256

MANIFEST = KEPT_HERE + "/manifest.json"
KEPT_SH = f"{KEPT_HERE}/originals/{sha256(ORIGINALS[VARS_SH])}"


class KeptOriginals(StagingTest):
    def assert_both_refuse(self, world, message):
        self.assert_refused(world, message)
        self.assert_refused(world, message, undo=True)

    def assert_undone(self, world):
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)
        self.assertEqual(sorted(os.listdir(world.path(KEPT_HERE))), ["lock"])

    def test_manifest_missing(self):
        world = self.installed_world()
        os.remove(world.path(MANIFEST))
        self.assert_both_refuse(
            world,
            f"WORLD/{MANIFEST} is missing, which says whose originals are in "
            f"WORLD/{KEPT_HERE}/originals; put it back, or remove that directory to give the "
            "originals up",
        )

    def test_manifest_not_ordinary(self):
        world = self.installed_world()
        os.rename(world.path(MANIFEST), world.path("elsewhere"))
        os.symlink(world.path("elsewhere"), world.path(MANIFEST))
        self.assert_both_refuse(
            world,
            f"cannot use WORLD/{MANIFEST}: it is no ordinary file; "
            f"the originals are in WORLD/{KEPT_HERE}/originals",
        )

    def test_entry_that_leads_elsewhere(self):
        for entry, change in {
            "../victim": {},
            "/victim": {},
            "a/../../victim": {},
            "": {},
            "victim": {"original": "../../../victim"},
            "Victim": {"mode": "0o644"},
            "VICTIM": {"results": ["x"]},
        }.items():
            with self.subTest(entry, change=change):
                world = self.installed_world()
                world.write("package/victim", "precious\n")
                manifest = json.loads(world.read(MANIFEST))
                file = {
                    "original": sha256(ORIGINALS[VARS_SH]),
                    "mode": "644",
                    "results": [sha256("precious\n")],
                    "placeholders": [],
                }
                manifest["files"][entry] = {**file, **change}
                world.write(MANIFEST, json.dumps(manifest))
                self.assert_both_refuse(
                    world,
                    f"cannot use WORLD/{MANIFEST}: the entry of '{entry}' is damaged; "
                    f"the originals are in WORLD/{KEPT_HERE}/originals",
                )

    def test_original_damaged(self):
        world = self.installed_world()
        world.write(KEPT_SH, "junk\n")
        message = (
            f"the original of WORLD/{VARS_SH} that is kept as WORLD/{KEPT_SH} is damaged; "
            "reinstall the compiler package"
        )
        self.assert_refused(world, message, undo=True)
        world.write(VARS_SH, ORIGINALS[VARS_SH])
        self.assertEqual(world.undo().code, 0)

    def test_directory_that_comes_back(self):
        world = self.installed_world()
        bin_dir = world.path(LINUX + "/bin")
        os.rename(bin_dir, bin_dir + ".away")
        self.assertEqual(world.undo().code, 0)
        os.rename(bin_dir + ".away", bin_dir)
        self.assertNotEqual(world.read(VARS_SH), ORIGINALS[VARS_SH])
        self.assert_undone(world)

    def test_placeholder_that_the_old_version_lacked(self):
        world = World(self, small_tree(**{VARS_SH: "plain\n"}))
        self.assertEqual(world.install().code, 0)
        world.write(VARS_SH, "ndk='<NDK_DIR>' # second edition\n")
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk' # second edition\n\n")

    def test_mode_of_a_second_installation_of_the_same_bytes(self):
        world = self.installed_world()
        world.write(VARS_SH, ORIGINALS[VARS_SH])
        os.chmod(world.path(VARS_SH), 0o755)
        world.install()
        world.undo()
        self.assertEqual(os.stat(world.path(VARS_SH)).st_mode & 0o777, 0o755)

    def test_things_of_somebody_else(self):
        world = self.installed_world()
        world.write(KEPT_HERE + "/originals/mine/note", "mine\n")
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual(world.read(KEPT_HERE + "/originals/mine/note"), "mine\n")

    def test_lock_that_is_a_link(self):
        world = World(self, {**small_tree(), "precious": "precious\n"})
        os.mkdir(world.path(KEPT_HERE))
        os.symlink(world.path("precious"), world.path(KEPT_HERE + "/lock"))
        message = (
            f"cannot open the lock file WORLD/{KEPT_HERE}/lock: Too many levels of symbolic links"
        )
        self.assert_refused(world, message)
        self.assertEqual(world.read("precious"), "precious\n")

    def test_directory_that_is_a_link(self):
        world = World(self, {**small_tree(), "else/originals/note": "mine\n"})
        os.symlink(world.path("else"), world.path(KEPT_HERE))
        message = f"WORLD/{KEPT_HERE} is no directory; ndk-integrate keeps originals there"
        self.assert_refused(world, message)


@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
@unittest.skipIf("GCOV_ERROR_FILE" in os.environ, "a program that counts its lines is slow to trace")
class FailingDisk(StagingTest):
    """A system call that fails at one file."""

    def run_with(self, world, file, inject, *command):
        strace = ["env", "ASAN_OPTIONS=detect_leaks=0", "strace", "-qq", "-o", "/dev/null"]
        strace += ["-P", world.path(file), "-e", f"inject={inject}"]
        if subprocess.run([*strace, "true"], check=False).returncode != 0:
            self.skipTest("strace cannot trace here")
        return world.run(*command, world.path("installation.toml"), before=strace)

    def test_manifest_that_cannot_be_written(self):
        world = self.installed_world()
        shutil.copyfile(world.path(SETUP_64), world.path("before"))
        world.write(SETUP_64, "# second edition\n" + ORIGINALS[SETUP_64])
        outcome = self.run_with(world, MANIFEST + ".new", "write:error=ENOSPC", "install")
        self.assertEqual(outcome.code, 1, outcome)
        shutil.copyfile(world.path("before"), world.path(SETUP_64))
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)

    def test_manifest_that_cannot_be_removed(self):
        world = self.installed_world()
        last = KEPT_HERE + "/manifest.undone"
        self.run_with(world, last, "unlink,unlinkat:error=EIO", "undo")
        self.assertTrue(os.path.exists(world.path(last)))
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)

    def test_flush_that_fails_after_the_rename(self):
        world = World(self, small_tree())
        directory = os.path.dirname(SETUP_64)
        outcome = self.run_with(world, directory, "fsync:error=EIO", "install", "--json")
        self.assertEqual(json.loads(outcome.out)["changed"], True)
        self.assertEqual(json.loads(outcome.out)["outcome"], "failed")


class CompilerDirectory(StagingTest):
    def assert_no_root(self, install_dir, component, root):
        toml = installation(component, VORN_INSTALL_DIR=install_dir)
        world = World(self, small_tree(toml=toml))
        message = (
            "the compiler's directory, VORN_INSTALL_DIR followed by the component's subdir, is "
            f"'{root}'; expected an absolute one below /"
        )
        self.assert_refused(world, message)
        self.assert_refused(world, message, undo=True)

    def test_root_of_the_file_system(self):
        self.assert_no_root('"/"', COMPONENT.replace('"/cc"', '""'), "/")

    def test_not_absolute(self):
        self.assert_no_root('""', COMPONENT.replace('"/cc"', '"cc"'), "cc")


if __name__ == "__main__":
    unittest.main()

"""ndk-integrate undo, end to end: the compiler's files are as they were before."""

import os
import shutil
import unittest

from end_to_end import EndToEndTest
from messages import (
    LOG_OF_CHOICE, NDK, NOTHING_TO_UNDO, NO_COMPILER, UNDONE, Undo, cannot_read_installation, log,
    not_expected, not_undone, said,
)
from world import (
    ANDROID, DISABLED, LINUX, ORIGINALS, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH,
    World, filled, installation, restored, undone, without,
)


class UndoTest(EndToEndTest):
    def assert_undone(self, world, *options, report=None, changed=None, log="", left=()):
        changed = restored() if changed is None else changed
        changed = changed if left else {**changed, STORE: "removed"}
        self.assert_told(report or Undo(), world.undo(*options), changed=changed, log=log)
        found = os.path.isdir(world.path(STORE)) and os.listdir(world.path(STORE))
        self.assertEqual(sorted(found or []), sorted(left))
        self.assertEqual(found is not False, bool(left), "the directory itself")


class UndoneInstallation(UndoTest):
    def test_lines_and_json(self):
        self.assert_undone(self.installed_world())
        self.assert_undone(self.installed_world(), "--json")

    def test_quiet(self):
        outcome = self.installed_world().undo("-q")
        self.assert_outcome(outcome, out=Undo().result(), changed=undone())

    def test_same_tree_as_before(self):
        world = self.small_world()
        before = world.tree()
        world.install()
        world.undo()
        self.assertEqual(world.tree(kept=False), before)

    def test_forms_of_text(self):
        for text in ["", "no line end", "\n\n\n", "a\r\nb\r\n", b"caf\xe9\x00\n", "<NDK_DIR>"]:
            with self.subTest(text):
                world = self.small_world(**dict.fromkeys(TEMPLATES, text))
                before = world.read_all()
                world.install()
                self.assertNotEqual(world.read_all(), before)
                world.undo()
                self.assertEqual(world.read_all(), before)

    def test_after_other_ndk(self):
        world = self.installed_world()
        world.install("--ndk", world.path("other ndk"))
        world.install(DISABLED)
        self.assert_undone(world, report=Undo(ndk=""))

    def test_after_failed_script(self):
        world = self.small_world(runs="exit 7")
        world.install()
        self.assert_undone(world)

    def test_work_of_script_stays(self):
        world = self.small_world(runs='echo mine > "$1/made"')
        world.install()
        self.assert_undone(world)
        self.assertEqual(world.read("ndk/made"), "mine\n")

    def test_ndk_gone(self):
        world = self.installed_world()
        shutil.rmtree(world.path("ndk"))
        warning = said(f"warning: the NDK {NDK} is gone, so nothing is taken out of it")
        changed = {**restored(), STORE: "removed"}
        self.assert_outcome(world.undo(), out=Undo(ndk="").out(), err=warning, changed=changed)

    def test_log(self):
        # The plug-in's own part, which an installer would call.
        text = LOG_OF_CHOICE + log("unintegrate_ndk() NOT IMPLEMENTED")
        self.assert_undone(self.installed_world(), "-v", log=text)

    def test_install_again(self):
        world = self.installed_world()
        once = world.tree()
        world.undo()
        self.assert_installs(world)
        self.assertEqual(world.tree(), once)

    def test_edited_original_forgotten(self):
        # After it anything is an original again.
        world = self.installed_world()
        world.undo()
        world.append(VARS_SH, "export MINE=1\n")
        edited = {VARS_SH: "644 ndk='WORLD/ndk'\nexport MINE=1\n\n"}
        self.assert_installs(world, changed={**filled(first=True), **edited})


class NothingToUndo(UndoTest):
    def test_nothing_recorded(self):
        done = self.installed_world()
        done.undo()
        for world in [self.small_world(), done]:
            self.assert_refused(world, NOTHING_TO_UNDO, World.undo)

    def test_no_compiler(self):
        world = self.small_world(installation(""))
        report = not_undone(NO_COMPILER.format("no component's id holds one of -ndk-"))
        self.assert_refused(world, report, World.undo)

    def test_originals_already(self):
        original = Undo(dict.fromkeys(TEMPLATES, "original"))
        for form in [[], ["--json"]]:
            world = self.installed_world()
            world.write_all(ORIGINALS)
            self.assert_undone(world, *form, report=original, changed={})

    def test_one_original_already(self):
        world = self.installed_world()
        world.write(VARS_CSH, ORIGINALS[VARS_CSH])
        report = Undo({**Undo().files, VARS_CSH: "original"})
        self.assert_undone(world, report=report, changed=without(restored(), VARS_CSH))


class MissingFiles(UndoTest):
    def test_file(self):
        world = self.installed_world()
        os.remove(world.path(VARS_SH))
        self.assert_undone(world)

    def test_mode_of_file(self):
        world = self.small_world(**{VARS_SH: (0o750, ORIGINALS[VARS_SH])})
        world.install()
        os.remove(world.path(VARS_SH))
        self.assert_undone(world, changed={**restored(), VARS_SH: f"750 {ORIGINALS[VARS_SH]}"})

    def test_directory(self):
        # What is in it stays kept, for a directory that comes back, as a disk does.
        gone = Undo({**Undo().files, VARS_SH: "gone", VARS_CSH: "gone"})
        kept = ["manifest.json", "originals"]
        back = Undo(dict.fromkeys([VARS_SH, VARS_CSH], "restored"), ndk="")
        for form in [[], ["--json"]]:
            world = self.installed_world()
            os.rename(world.path(LINUX + "/bin"), world.path("away"))
            changed = restored(SETUP_64, SETUP_32)
            self.assert_undone(world, *form, report=gone, changed=changed, left=kept)
            os.rename(world.path("away"), world.path(LINUX + "/bin"))
            self.assert_undone(world, *form, report=back, changed=restored(VARS_SH, VARS_CSH))

    def test_all_directories(self):
        world = self.installed_world()
        for name in ANDROID, LINUX:
            shutil.rmtree(world.path(name))
        for ndk in [NDK, ""]:
            report = Undo(dict.fromkeys(TEMPLATES, "gone"), ndk=ndk)
            self.assert_told(report, world.undo())
            status = world.run("status", world.path("installation.toml"), "--json").json()
            self.assertEqual(status["outcome"], "not-installed")


class CommandLine(EndToEndTest):
    def test_set(self):
        world = self.small_world(installation(VORN_INSTALL_DIR='"elsewhere"'))
        here = f"--set=VORN_INSTALL_DIR={world.path('package')}"
        self.assertEqual(world.install(here).code, 0)
        self.assertEqual(world.undo(here).changes, undone())

    def test_contents_in_dry_run(self):
        world = self.installed_world()
        now = {file: world.read(file) for file in TEMPLATES}
        files = world.undo("--dry-run", "--json").json()["files"]
        for when, contents in [("before", now), ("after", ORIGINALS)]:
            told = {file["path"]: file[when] for file in files}
            self.assertEqual(told, {f"WORLD/{file}": text for file, text in contents.items()})

    def test_dry_run(self):
        world = self.installed_world()
        world.write(VARS_CSH, ORIGINALS[VARS_CSH])
        report = Undo({**Undo().files, VARS_CSH: "original"}, dry=True)
        told = [world.undo("--dry-run", *form) for form in [[], ["--json"]]]
        self.assert_told(report, *told, kept=True)


class Force(EndToEndTest):
    def test_file_that_is_not_known(self):
        world = self.installed_world()
        for file in ["nowhere", SETUP_64 + ".edited"]:
            outcome = world.undo("--force", world.path(file))
            what = "this is not a file that an installation changed, as undo names them"
            err = said(f"--force WORLD/{file}: {what}")
            self.assert_outcome(outcome, code=2, err=err, kept=True)


if __name__ == "__main__":
    unittest.main()

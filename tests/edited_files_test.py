"""ndk-integrate install and undo, end to end, on files that others changed since: a person, or a
package put over an installed one."""

import os
import shutil
import unittest

from end_to_end import EndToEndTest
from messages import (
    EDITED_JUST_NOW, NOT_FILLED_IN, Install, Undo, edited, kept_original, not_done, not_undone,
    refused, stands_against,
)
from plugins import filling_plugin
from world import (
    ANDROID, COMPONENT, DISABLED, ORIGINALS, SCRIPT, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH,
    VARS_SH, World, filled, installation, undone, script,
)

class EditedTest(EndToEndTest):
    def assert_edit_refused(self, world, file=VARS_SH):
        self.assert_refused(world, stands_against(edited(file)))
        self.assert_refused(world, not_undone(edited(file)), World.undo)

    def install_with(self, world, does, *options):
        """Installs with a plug-in that fills in one file."""
        env = {"FILE": world.path(VARS_SH), "DOES": does}
        return world.install("--plugin", filling_plugin(world), DISABLED, *options, env=env)


class Edit(EditedTest):
    def test_each_file(self):
        for file in TEMPLATES:
            with self.subTest(file):
                world = self.installed_world()
                world.append(file, "# mine\n")
                self.assert_edit_refused(world, file)

    def test_other_ndk(self):
        world = self.installed_world()
        world.append(VARS_SH, "# mine\n")
        report = Install.other_ndk(
            files={}, failed=edited(VARS_SH), problem=True, changed=False
        )
        self.assert_refused(world, report, options=["--ndk", world.path("other ndk")])

    def test_emptied_file(self):
        world = self.installed_world()
        world.write(VARS_SH, "")
        self.assert_edit_refused(world)

    def test_result_of_an_earlier_installation(self):
        # Nothing that this program put there is an edit, but it was forgotten that it did.
        world = self.installed_world()
        earlier = world.bytes(VARS_SH)
        world.install("--ndk", world.path("other ndk"))
        world.write(VARS_SH, earlier)
        self.assert_edit_refused(world)

    def test_given_up(self):
        # As the message says.
        world = self.installed_world()
        world.append(VARS_SH, "# mine\n")
        shutil.copyfile(world.path(kept_original(VARS_SH)), world.path(VARS_SH))
        self.assert_told(Install(), world.install(), changed={VARS_SH: filled()[VARS_SH]})

    def test_taken_back(self):
        world = self.installed_world()
        ours = world.bytes(VARS_SH)
        world.append(VARS_SH, "# mine\n")
        world.install()
        world.write(VARS_SH, ours)
        self.assert_told(Install(), world.install())

    def test_before_first_installation(self):
        # It is part of the original.
        world = self.small_world(**{VARS_SH: ORIGINALS[VARS_SH] + "# mine\n"})
        world.install()
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk'\n# mine\n\n")
        self.assertEqual(world.undo().changes[VARS_SH], "644 ndk='<NDK_DIR>'\n# mine\n")

    def test_while_script_runs(self):
        # The environment scripts are worked on after the integration script.
        world = self.installed_world()
        world.write(SCRIPT, script(f"echo '# mine' >> {os.path.relpath(VARS_SH, ANDROID)}"))
        outcome = world.install()
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk'\n\n# mine\n")
        self.assertEqual((outcome.code, outcome.err), (1, not_done(edited(VARS_SH))))

    def test_while_plugin_works(self):
        world = self.small_world()
        outcome = self.install_with(world, "edit")
        expected = not_done(EDITED_JUST_NOW.format(VARS_SH))
        self.assertEqual((outcome.code, outcome.err), (1, expected))
        self.assertEqual(world.read(VARS_SH), ORIGINALS[VARS_SH] + "# mine\n")

    def test_plugin_that_throws(self):
        # In the middle of integrate_ndk: nothing is committed.
        report = refused("boom", ndk="", enabled=False)
        self.assert_told(report, self.install_with(self.small_world(), "throw"), kept=True)
        outcome = self.install_with(self.small_world(), "throw later")
        report.files = {VARS_SH: "failed"}
        self.assert_told(report, outcome, changed={STORE: "700 /"})

    def test_plugin_that_loses_a_letter(self):
        # Every line end is there.
        report = stands_against(NOT_FILLED_IN.format(VARS_SH), ndk="", enabled=False)
        outcome = self.install_with(self.small_world(), "lose a letter")
        self.assert_told(report, outcome, kept=True)


class ReinstalledPackage(EditedTest):
    second = {file: "# second edition\n" + text for file, text in ORIGINALS.items()}

    def second_filled(self):
        return {
            file: entry.replace("644 ", "644 # second edition\n", 1)
            for file, entry in filled().items()
        }

    def reinstalled_world(self, texts):
        world = self.installed_world()
        self.once = world.tree()
        world.write_all(texts)
        return world

    def test_same_package(self):
        for form in [[], ["--json"]]:
            world = self.reinstalled_world(ORIGINALS)
            self.assert_told(Install(), world.install(*form), changed=filled())
            self.assertEqual(world.tree(), self.once)

    def test_becomes_new_original(self):
        world = self.reinstalled_world(self.second)
        self.assert_told(Install(), world.install(), changed=self.second_filled())
        self.assert_told(Install(), world.install())
        back = {**{file: "644 " + text for file, text in self.second.items()}, STORE: "removed"}
        self.assert_told(Undo(), world.undo(), changed=back)

    def test_one_file(self):
        for text, result in [
            (self.second[VARS_SH], self.second_filled()[VARS_SH]),
            ("ndk='<NDK_DIR>' # third\n", "644 ndk='WORLD/ndk' # third\n\n"),
        ]:
            world = self.reinstalled_world({VARS_SH: text})
            self.assert_told(Install(), world.install(), changed={VARS_SH: result})

    def test_one_placeholder_of_two(self):
        world = self.reinstalled_world({SETUP_64: "{INSTALL_NOX_VERSION}\n"})
        outcome = world.install()
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(outcome.changes, {SETUP_64: "644 5.0.3.42\n\n\n"})

    def test_placeholder_that_the_old_version_lacked(self):
        world = self.small_world(**{VARS_SH: "plain\n"})
        self.assertEqual(world.install().code, 0)
        world.write(VARS_SH, "ndk='<NDK_DIR>' # second edition\n")
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.read(VARS_SH), "ndk='WORLD/ndk' # second edition\n\n")

    def test_undone(self):
        # The reinstalled files stay: they are the package's own.
        world = self.reinstalled_world(self.second)
        report = Undo(dict.fromkeys(TEMPLATES, "original"))
        self.assert_told(report, world.undo("--json"), changed={STORE: "removed"})

    def test_other_file_edited(self):
        world = self.reinstalled_world(self.second)
        world.write(VARS_SH, "ndk='WORLD/ndk'\n\n# mine\n".replace("WORLD", world.dir))
        self.assert_edit_refused(world)

    def test_without_placeholders(self):
        # Nobody can tell it from an edit.
        self.assert_edit_refused(self.reinstalled_world({VARS_SH: "# third edition\n"}))

    def test_new_mode(self):
        for texts in [self.second, ORIGINALS]:
            world = self.reinstalled_world(texts)
            world.chmod(VARS_SH, 0o755)
            world.install()
            self.assertEqual(world.undo().changes[VARS_SH], "755 " + texts[VARS_SH])


class NewPackageVersion(EndToEndTest):
    """Another version of the compiler in the same directory: 5.1.3 has toolchain definitions of its
    own, and its environment scripts in the places of those of 5.0.3."""

    new = {file: file.replace("5.0.3", "5.1.3") for file in [SETUP_64, SETUP_32]}
    scripts = [VARS_SH, VARS_CSH]
    report = Install(version="5.1.3", files=dict(zip([*new.values(), *scripts], [2, 2, 1, 1])))

    def upgraded_world(self, old_version_removed):
        world = self.installed_world()
        world.write("installation.toml", installation(COMPONENT.replace("5.0.3", "5.1.3")))
        for old, new in self.new.items():
            world.write(new, ORIGINALS[old])
            if old_version_removed:
                shutil.rmtree(os.path.dirname(world.path(old)))
        world.write_all({file: "# 5.1.3\n" + ORIGINALS[file] for file in self.scripts})
        return world

    def test_install(self):
        changed = {
            self.new.get(file, file): entry.replace("\n5.0.3.42", "\n5.1.3.42")
            for file, entry in filled().items()
        }
        for file in self.scripts:
            changed[file] = changed[file].replace("644 ", "644 # 5.1.3\n")
        for removed in [True, False]:
            with self.subTest(removed):
                world = self.upgraded_world(removed)
                self.assert_told(self.report, world.install(), changed=changed)
                self.assert_told(self.report, world.install())

    def test_undo(self):
        # The environment scripts stay as long as they are the other version's too.
        new = {file: "644 " + ORIGINALS[SETUP_64] for file in self.new.values()}
        scripts = {file: f"644 # 5.1.3\n{ORIGINALS[file]}" for file in self.scripts}
        for removed in [True, False]:
            with self.subTest(removed):
                world = self.upgraded_world(removed)
                world.install()
                told = {**dict.fromkeys(new, "restored"), **dict.fromkeys(scripts, "shared")}
                for form in [["--dry-run"], ["--dry-run", "--json"], ["--json"]]:
                    report = Undo(told, dry="--dry-run" in form)
                    changed = {} if report.dry else new
                    self.assert_told(report, world.undo(*form), changed=changed)
                world.write("installation.toml", installation())
                told = dict.fromkeys(self.new, "gone" if removed else "restored")
                report = Undo({**told, **dict.fromkeys(scripts, "restored")})
                old = {} if removed else undone(*self.new)
                changed = {**scripts, **old}
                self.assert_told(report, world.undo(), changed=changed)


if __name__ == "__main__":
    unittest.main()

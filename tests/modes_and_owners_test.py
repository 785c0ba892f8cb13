"""The modes and owners of the files that ndk-integrate install and undo work on, end to end, and
both run by an ordinary user."""

import os
import stat
import unittest

from end_to_end import EndToEndTest
from messages import Install, Undo, cannot, kept_original
from world import (
    LINUX, NOBODY, ORIGINALS, OTHER_NDK, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH, changes,
    filled, restored, undone,
)

MODES = {SETUP_64: 0o600, SETUP_32: 0o444, VARS_SH: 0o4755, VARS_CSH: 0o664}


def with_modes(changed, modes):
    return {
        file: entry.replace("644", f"{modes[file]:o}", 1) if file in modes else entry
        for file, entry in changed.items()
    }


class ModesTest(EndToEndTest):
    def world_with(self, modes):
        return self.small_world(
            **{file: (mode, ORIGINALS[file]) for file, mode in modes.items()}, **OTHER_NDK
        )


class Modes(ModesTest):
    def test_kept(self):
        world = self.world_with(MODES)
        changed = with_modes(filled(first=True), MODES)
        self.assert_told(Install(), world.install(), changed=changed)
        self.assert_told(Undo(), world.undo(), changed=with_modes(undone(), MODES))

    def test_kept_under_a_strict_umask(self):
        world = self.world_with(MODES)
        strict = {"before": ["sh", "-c", 'umask 077; exec "$@"', "sh"]}
        changed = {**with_modes(filled(), MODES), STORE: "700 /"}
        self.assert_told(Install(), world.install(**strict), changed=changed)
        self.assert_told(Undo(), world.undo(**strict), changed=with_modes(undone(), MODES))

    def test_kept_for_an_ordinary_user(self):
        modes = {**MODES, VARS_SH: 0o755}  # a new owner takes the set-user-ID bit away
        world = self.world_with(modes)
        dry = world.install("--dry-run", unprivileged=True)
        self.assertEqual((dry.code, dry.err, dry.changes, dry.kept), (0, "", {}, {}), dry)
        changed = with_modes(filled(first=True), modes)
        self.assert_told(Install(), world.install(unprivileged=True), changed=changed)
        again = world.install(unprivileged=True)
        self.assert_told(Install(changed=False), again, kept=True)
        changed = with_modes(undone(), modes)
        self.assert_told(Undo(), world.undo(unprivileged=True), changed=changed)

    def test_changed_mode_is_no_edit(self):
        world = self.installed_world()
        world.chmod(VARS_SH, 0o600)
        self.assert_told(Install(), world.install())
        outcome = world.install("--ndk", world.path("other ndk"))
        self.assertEqual(outcome.changes[VARS_SH], "600 ndk='WORLD/other ndk'\n\n")

    def test_changed_mode_undone(self):
        world = self.world_with(MODES)
        world.install()
        for file in TEMPLATES:
            world.chmod(file, 0o640)
        self.assert_told(Undo(), world.undo(), changed=with_modes(undone(), MODES))

    def test_original_of_a_secret_file(self):
        # Nobody may read more of it than before.
        world = self.world_with({VARS_SH: 0o600})
        world.install()
        mode = os.stat(world.path(kept_original(VARS_SH))).st_mode
        self.assertEqual(stat.S_IMODE(mode) & 0o077, 0)

    def test_hard_link(self):
        # A file is replaced, not written into.
        world = self.small_world()
        os.link(world.path(VARS_SH), world.path("second name"))
        world.install()
        self.assertEqual(world.read("second name"), ORIGINALS[VARS_SH])


class Owners(ModesTest):
    @unittest.skipUnless(os.geteuid() == 0, "only root may give files away")
    def test_kept(self):
        world = self.world_with(MODES)
        world.give_to_nobody()
        for i, (file, mode) in enumerate(MODES.items()):
            os.chown(world.path(file), NOBODY, 2000 + i)
            world.chmod(file, mode)
        # What root writes in somebody's tree never runs as that user.
        owners = {
            file: (NOBODY, 2000 + i, mode & 0o1777) for i, (file, mode) in enumerate(MODES.items())
        }
        for step in [world.install, world.install, world.undo, world.install]:
            self.assertEqual(step().code, 0)
            status = {file: os.stat(world.path(file)) for file in TEMPLATES}
            found = {
                file: (one.st_uid, one.st_gid, stat.S_IMODE(one.st_mode))
                for file, one in status.items()
            }
            self.assertEqual(found, owners)


class OrdinaryUser(EndToEndTest):
    """One who owns nothing but the world."""

    def test_undo_without_permission(self):
        world = self.installed_world()
        world.chmod(LINUX + "/bin", 0o555)
        before = world.tree(kept=False)
        self.assert_told(
            Undo(dict.fromkeys([SETUP_32, SETUP_64], "restored"), cannot("replace", VARS_CSH)),
            world.undo(unprivileged=True),
            changed=restored(SETUP_32, SETUP_64),
        )
        world.chmod(LINUX + "/bin", 0o755)
        self.assertEqual(world.undo(unprivileged=True).code, 0)
        self.assertEqual(
            changes(before, world.tree(kept=False)), {**undone(), LINUX + "/bin": "755 /"}
        )


if __name__ == "__main__":
    unittest.main()

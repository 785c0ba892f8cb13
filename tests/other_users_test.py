"""Root at work in a tree that belongs to a user, who does what he can to be let in; and what one user
may do to another's tree. Runs only where it can be root."""

import hashlib
import json
import os
import shlex
import stat
import unittest

from hooked import EXCHANGE, run
from strace import needs_usual_build
from world import (
    AS_NOBODY, CC, KEPT_ORIGINALS, LIBRARY, MANIFEST, NOBODY, ORIGINALS, SETUP_64, STORE, VARS_CSH, VARS_SH,
    World, filled, small_tree,
)

STRANGER = 65533
SECRET = "a secret of root's <NDK_DIR>\n"


def as_user(command, user=NOBODY):
    return f"setpriv --reuid={user} --regid={user} --clear-groups sh -c {shlex.quote(command)}"


@unittest.skipUnless(os.geteuid() == 0, "only root can be at work in somebody else's tree")
class UsersTree(unittest.TestCase):
    maxDiff = None

    def world(self, installed=False):
        world = self.enterContext(World(small_tree()))
        self.program = world.give_to_nobody()
        for above, dirs, files in os.walk(world.path("ndk")):
            for name in [".", *dirs, *files]:
                os.chown(os.path.join(above, name), 0, 0)
        if installed:
            self.assertEqual(self.run_as(world, "install").code, 0)
        # A directory and a file of root's, where the user has no business.
        roots = os.path.join(world.top, "roots")
        os.mkdir(roots, 0o700)
        world.secret = os.path.join(roots, "secret")
        with open(world.secret, "w", encoding="utf-8") as file:
            file.write(SECRET)
        os.chmod(world.secret, 0o600)
        world.roots = world.touched(roots)
        return world

    def world_with_secret_template(self):
        """One in which root has filled in a template that only root may read."""
        world = self.world()
        world.write(VARS_SH, SECRET)
        world.chmod(VARS_SH, 0o600)
        os.chown(world.path(VARS_SH), 0, 0)
        self.assertEqual(self.run_as(world, "install").code, 0)
        return world

    def run_as(self, world, command, *hooks, user=0, options=()):
        if user:
            os.chown(world.path("ndk"), user, user)
        before = AS_NOBODY if user else []
        return run(world, command, *hooks, before=before, program=self.program, options=options)

    def assert_let_out(self, world):
        """Nothing of root's was changed or read, and nothing that runs as root was made."""
        self.assertEqual(world.touched(os.path.dirname(world.secret)), world.roots)
        for above, dirs, files in os.walk(world.dir):
            for name in dirs + files:
                path = os.path.join(above, name)
                status = os.lstat(path)
                self.assertEqual(status.st_mode & 0o6000, 0, path)
                is_users = status.st_uid == NOBODY or status.st_mode & 0o077
                if stat.S_ISREG(status.st_mode) and is_users:
                    with open(path, "rb") as file:
                        self.assertNotIn(b"a secret", file.read(), path)

    def owners(self, world):
        found = {}
        for above, dirs, files in os.walk(world.path(CC)):
            for name in dirs + files:
                path = os.path.join(above, name)
                found[os.path.relpath(path, world.dir)] = os.lstat(path).st_uid
        return found


class RootThenUser(UsersTree):
    def test_users_own_afterwards(self):
        world = self.world()
        outcome = self.run_as(world, "install")
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(set(self.owners(world).values()), {NOBODY})
        modes = {name: entry[0] for name, entry in world.snapshot().items() if STORE in name}
        self.assertEqual({modes.pop(STORE), modes.pop(KEPT_ORIGINALS)}, {0o700})
        self.assertEqual(set(modes.values()), {0o600})
        for command in ["install", "undo"]:
            outcome = self.run_as(world, command, user=NOBODY)
            self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(world.read_all(), {n: t.encode() for n, t in ORIGINALS.items()})

    def test_undo_by_root(self):
        world = self.world()
        os.chown(world.path("ndk"), NOBODY, NOBODY)
        self.assertEqual(self.run_as(world, "install", user=NOBODY).code, 0)
        self.assertEqual(self.run_as(world, "undo").code, 0)
        self.assertEqual(set(self.owners(world).values()), {NOBODY})

    def test_secret_template_of_roots(self):
        # It stays root's, in every copy.
        world = self.world_with_secret_template()
        self.assert_let_out(world)
        self.assertEqual(self.run_as(world, "undo").code, 0)
        self.assert_let_out(world)

    def test_template_of_a_stranger(self):
        world = self.world()
        os.chown(world.path(VARS_SH), STRANGER, STRANGER)
        outcome = self.run_as(world, "install")
        self.assertEqual(outcome.code, 1)
        self.assertIn(f"WORLD/{VARS_SH} belongs to user {STRANGER}", outcome.err)

    def test_store_of_a_stranger(self):
        for part in [STORE, KEPT_ORIGINALS, MANIFEST]:
            for command in ["install", "undo"]:
                with self.subTest(part, command=command):
                    world = self.world(installed=True)
                    os.chown(world.path(part), STRANGER, STRANGER)
                    before = world.touched(world.path(CC))
                    outcome = self.run_as(world, command)
                    self.assertEqual(outcome.code, 1)
                    self.assertIn(f"WORLD/{part} belongs to user {STRANGER}", outcome.err)
                    self.assertEqual(world.touched(world.path(CC)), before)


class UsersManifest(UsersTree):
    def forge(self, world, path, mode="4755", result=None):
        """The user's own manifest says that a file is ours, and had an original of the user's."""
        with open(world.path(MANIFEST), encoding="utf-8") as file:
            manifest = json.load(file)
        entry = manifest["files"].pop("compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
        entry["mode"] = mode
        if result:
            entry["results"] = [result]
        manifest["files"][path] = entry
        with open(world.path(MANIFEST), "w", encoding="utf-8") as file:
            json.dump(manifest, file)

    def test_link_and_set_uid(self):
        for path, link in [("out/made", "-> ../../../roots"), ("out", "-> ../../../roots/secret"),
                           ("../../../roots/made", None), ("out/../made", None)]:
            for command in ["undo", "install"]:
                with self.subTest(path, command=command):
                    world = self.world(installed=True)
                    self.forge(world, path)
                    if link:
                        world.write(f"{CC}/{path.split('/')[0]}", link)
                    self.run_as(world, command)
                    self.assert_let_out(world)

    def test_secret_original_of_roots(self):
        # It stays root's where the file is gone, and where the user's own is said to be the result.
        for is_forged in [False, True]:
            for command in ["undo", "install"]:
                with self.subTest(command, is_forged=is_forged):
                    world = self.world_with_secret_template()
                    os.remove(world.path(VARS_SH))
                    if is_forged:
                        world.write(VARS_SH, "mine\n")
                        os.chown(world.path(VARS_SH), NOBODY, NOBODY)
                        self.forge(world, VARS_SH[len(CC) + 1 :], "644",
                                   hashlib.sha256(b"mine\n").hexdigest())
                    self.run_as(world, command)
                    self.assert_let_out(world)
                    if command == "undo":
                        self.assertEqual(world.read(VARS_SH), SECRET)

    def test_set_uid_of_another_user(self):
        # A user at work in another's tree, too, makes nothing that runs as himself.
        world = self.world(installed=True)
        os.remove(world.path(VARS_SH))
        self.forge(world, "bin")
        for above, dirs, files in os.walk(world.path(CC)):
            for name in [".", *dirs, *files]:
                path = os.path.join(above, name)
                os.lchown(path, STRANGER, STRANGER)
                os.chmod(path, os.stat(path).st_mode | 0o077)
        outcome = self.run_as(world, "undo", user=NOBODY)
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(os.stat(world.path(CC + "/bin")).st_mode & 0o7777, 0o755)

    def test_force_of_a_strangers_file(self):
        # He does not get the original that takes its place.
        for owner in [NOBODY, 0]:
            world = self.world(installed=True)
            for above, dirs, files in os.walk(world.path(CC)):
                for name in [".", *dirs, *files]:
                    os.lchown(os.path.join(above, name), owner, owner)
            os.chown(world.path(VARS_SH), STRANGER, STRANGER)
            outcome = self.run_as(world, "undo", options=["--force", world.path(VARS_SH)])
            self.assertEqual(outcome.code, 0, outcome)
            self.assertEqual(os.stat(world.path(VARS_SH)).st_uid, owner)

    def test_set_uid_in_own_tree(self):
        world = self.world(installed=True)
        os.remove(world.path(VARS_SH))
        self.forge(world, "bin")
        self.assertEqual(self.run_as(world, "undo").code, 0)
        self.assert_let_out(world)
        self.assertEqual(set(self.owners(world).values()), {NOBODY})

    def test_file_of_roots_in_his_tree(self):
        # Its bytes become the user's: so must the file.
        world = self.world(installed=True)
        os.chown(world.path(VARS_SH), 0, 0)
        os.chmod(world.path(VARS_SH), 0o4755)
        self.forge(world, VARS_SH[len(CC) + 1 :])
        self.assertEqual(self.run_as(world, "undo").code, 0)
        self.assert_let_out(world)
        self.assertEqual(set(self.owners(world).values()), {NOBODY})

    def test_originals_that_are_links_pipes_and_devices(self):
        for target in ["-> /dev/zero", "-> ../../../../roots/secret", None]:
            with self.subTest(target):
                world = self.world(installed=True)
                for name in os.listdir(world.path(KEPT_ORIGINALS)):
                    path = f"{KEPT_ORIGINALS}/{name}"
                    os.remove(world.path(path))
                    if target:
                        world.write(path, target)
                    else:
                        os.mkfifo(world.path(path))
                outcome = self.run_as(world, "undo")
                self.assertEqual(outcome.code, 1)
                self.assertIn("is missing or damaged", outcome.err)
                self.assert_let_out(world)


class Swaps(UsersTree):
    def test_staging_directory(self):
        # Swapped right after it was made, for one of the user's in which a link waits.
        for command, number in [("install", 2), ("install", 3), ("undo", 2)]:
            with self.subTest(command, number=number):
                world = self.world(installed=command == "undo")
                store = world.path(STORE)
                if command == "install":  # so that the store is the user's
                    os.mkdir(store, 0o700)
                    os.chown(store, NOBODY, NOBODY)
                links = " ".join(f"ln -s {world.secret} $d/{n};" for n in
                                 ["000000", "000000.tmp", "000001.tmp", "0"])
                swap = f"d=$(echo {store}/staged-*); mv $d {store}/x; mkdir -m 777 $d; {links}"
                outcome = self.run_as(world, command, f"mkdirat {number} after {as_user(swap)}")
                self.assertEqual(outcome.code, 1, outcome)
                self.assert_let_out(world)

    def test_staging_directory_at_work(self):
        # It may be moved, and stays what it is.
        world = self.world()
        store = world.path(STORE)
        os.mkdir(store, 0o700)
        os.chown(store, NOBODY, NOBODY)
        swap = (f"d=$(echo {store}/staged-*); mv $d {store}/x; mkdir -m 777 $d; "
                f"ln -s {world.secret} $d/000000.tmp; ln -s {world.secret} $d/000001.tmp")
        self.run_as(world, "install", f"renameat 3 before {as_user(swap)}")
        self.assert_let_out(world)

    def test_directory_of_originals(self):
        # Swapped for the staging directory, which must not be given away: links would wait there.
        for number in range(2, 12):
            world = self.world()
            store = world.path(STORE)
            swap = f"d=$(echo {store}/staged-*); mv {store}/originals {store}/x; mv $d {store}/originals"
            links = f"ln -s {world.secret} {store}/originals/000000.tmp || true"
            self.run_as(world, "install", f"mkdirat 4 after {as_user(swap)}",
                        f"fsync {number} before {as_user(links)}")
            self.assert_let_out(world)

    def test_template(self):
        # At each moment at which a file is opened.
        for number in range(1, 40):
            world = self.world()
            name = world.path(SETUP_64)
            self.run_as(world, "install", f"openat {number} before " +
                        as_user(f"mv -T {name} {name}.x; ln -s {world.secret} {name}"))
            self.assert_let_out(world)

    def test_directory_of_template(self):
        name = os.path.dirname(SETUP_64)
        for moment in ["flock 1 after", "renameat 2 before", EXCHANGE.format(1, "before", "")]:
            world = self.world()
            path = world.path(name)
            world.write("trap/setup.mk", "-> " + world.secret)
            self.run_as(world, "install", f"{moment} " + as_user(
                f"mv {path} {path}.x; ln -s {world.path('trap')} {path}"))
            self.assert_let_out(world)

    def test_store(self):
        # A link in its place: judged before anything is touched behind it.
        for command in ["install", "undo"]:
            world = self.world()
            os.symlink(os.path.dirname(world.secret), world.path(STORE))
            outcome = self.run_as(world, command)
            self.assertEqual(outcome.code, 1)
            self.assertIn("is not a directory", outcome.err)
            self.assert_let_out(world)
        world = self.world()
        swap = f"rmdir {world.path(STORE)}; ln -s {os.path.dirname(world.secret)} {world.path(STORE)}"
        self.run_as(world, "install", f"mkdirat 1 after {swap}")
        self.assert_let_out(world)


class Strangers(UsersTree):
    def test_copies_and_lock(self):
        # A secret template cannot be read through its copy, nor the lock be held by others.
        world = self.world()
        os.chmod(world.path(VARS_SH), 0o600)
        staged = f"{world.path(STORE)}/staged-*/*"
        look = as_user(f"cat {staged} || flock -n {world.path(STORE)} true", STRANGER)
        for moment in ["renameat 3 before", EXCHANGE.format(1, "before", "")]:
            outcome = self.run_as(world, "install", f"{moment} ! {look}")
            self.assertEqual(outcome.code, 0, outcome)

    @needs_usual_build
    def test_no_proc(self):
        # Without /proc, names are used where root or the caller owns the tree.
        hidden = ["unshare", "--mount", "sh", "-c", 'umount -l /proc && exec "$@"', "sh"]
        world = self.world()
        # Nor can the program then tell where it lies, and with it the plug-in.
        plugin = [f"--plugin={os.path.join(os.path.dirname(self.program), LIBRARY)}"]
        how = {"program": self.program, "before": hidden, "options": plugin}
        outcome = run(world, "install", **how)
        if "unshare" in outcome.err or "umount" in outcome.err:
            self.skipTest("no mount name spaces here")
        self.assertEqual(outcome.code, 1)
        self.assertIn("there is no /proc/self/fd here", outcome.err)
        for above, dirs, files in os.walk(world.dir):
            for name in [".", *dirs, *files]:
                os.chown(os.path.join(above, name), 0, 0)
        outcome = run(world, "install", **how)
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(world.tree()[VARS_CSH], filled()[VARS_CSH])

    def test_attributes(self):
        world = self.world()
        acl = bytes.fromhex("02000000" "01000600ffffffff" "0200060001000000" "04000400ffffffff"
                            "10000600ffffffff" "20000400ffffffff")
        path = world.path(VARS_SH)
        wanted = {"user.note": b"mine", "trusted.note": b"root's"}
        try:
            for name, value in wanted.items():
                os.setxattr(path, name, value)
            os.setxattr(path, "system.posix_acl_access", acl)
            wanted["system.posix_acl_access"] = acl
        except OSError:
            self.skipTest("this file system keeps no attributes")
        mode = os.stat(path).st_mode
        for command in ["install", "undo"]:
            self.assertEqual(self.run_as(world, command).code, 0)
            self.assertEqual({name: os.getxattr(path, name) for name in os.listxattr(path)}, wanted)
            self.assertEqual(os.stat(path).st_mode, mode)


if __name__ == "__main__":
    unittest.main()

"""What ndk-integrate keeps in .ndk-integrate below the compiler's directory, end to end, also when
somebody or something else got at it."""

import json
import os
import re
import unittest

from end_to_end import EndToEndTest
from messages import (
    BAD_ENTRY, BAD_MANIFEST, BAD_ROOT, MANIFEST_MISSING, MANIFEST_NOT_ORDINARY, NEWER_MANIFEST,
    NOT_DONE, STORE_NOT_A_DIRECTORY, kept_original, not_undone, original_damaged, refused,
    sha256,
)
from strace import needs_plain_program, needs_strace
from world import (
    CC, COMPONENT, KEPT_ORIGINALS, MANIFEST, NO_LEAK_SEARCH, ORIGINALS, SETUP_64, STORE,
    TEMPLATES, VARS_SH, World, installation, restored, small_tree,
)

KEPT_SH = kept_original(VARS_SH)


class KeptFiles(EndToEndTest):
    def test_names(self):
        world = self.installed_world()
        names = sorted(os.listdir(world.path(STORE)))
        self.assertEqual(names, ["manifest.json", "originals"])

    def test_manifest(self):
        world = self.installed_world()
        expected = {}
        for file, text in ORIGINALS.items():
            placeholders = ["<NDK_DIR>"]
            if file.endswith("setup.mk"):
                placeholders = ["{INSTALL_NOX_INSTALLDIR}", "{INSTALL_NOX_VERSION}"]
            result = world.bytes(file).decode()
            filled = {sha256(line) for line in result.split("\n") if line}
            expected[os.path.relpath(file, CC)] = {
                "original": sha256(text),
                "mode": "644",
                "results": [sha256(result)],
                "placeholders": placeholders,
                "filled": sorted(filled),
                "installations": ["5.0.3.42"],
            }
        manifest = world.manifest()
        time = manifest["installations"]["5.0.3.42"].pop("time")
        self.assertRegex(time, r"\A\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\Z")
        record = {"ndk": world.path("ndk"), "release": "r11c", "component": "nox-ndk-5"}
        installations = {"5.0.3.42": {**record, "finished": True}}
        expected = {"schema": 1, "installations": installations, "files": expected}
        self.assertEqual(manifest, expected)

    def test_originals(self):
        # The two toolchain definitions are the same, and kept once. Those of an earlier package
        # are forgotten.
        world = self.installed_world()
        for begin in ["", "second edition\n"]:
            texts = {file: begin + text for file, text in ORIGINALS.items()}
            world.write_all(texts if begin else {})
            world.install()
            names = os.listdir(world.path(KEPT_ORIGINALS))
            found = {name: world.read(f"{KEPT_ORIGINALS}/{name}") for name in names}
            self.assertEqual(found, {sha256(text): text for text in texts.values()})

    def test_leftovers_of_killed_run(self):
        world = self.installed_world()
        once = world.tree()
        leftovers = ["staged/0", "manifest.json.new", f"originals/{64 * 'a'}.new", "lock"]
        world.write_all({f"{STORE}/{name}": "half\n" for name in leftovers})
        world.install()
        self.assertEqual(world.tree(), once)

    def test_things_of_somebody_else(self):
        world = self.installed_world()
        note = KEPT_ORIGINALS + "/mine/note"
        world.write(note, "mine\n")
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual(world.read(note), "mine\n")


class DamagedManifest(EndToEndTest):
    def test_not_readable_as_one(self):
        for text in ["", "no JSON\n", "[]", "{}", '{"schema":1}', '{"schema":1,"files":{"a":{}}}']:
            with self.subTest(text):
                world = self.installed_world()
                world.write(MANIFEST, text)
                begin, end = map(re.escape, BAD_MANIFEST.split("{}"))
                for outcome in [world.install(), world.install("--dry-run"), world.undo()]:
                    self.assertRegex(outcome.err, rf"\A{NOT_DONE}{begin}[^\n]+{end}\n\Z")
                    self.assertEqual((outcome.code, outcome.changes, outcome.kept), (1, {}, {}))

    def test_newer(self):
        world = self.installed_world()
        world.write(MANIFEST, '{"schema":2}')
        self.assert_both_refuse(world, NEWER_MANIFEST)

    def test_not_ordinary(self):
        world = self.installed_world()
        os.rename(world.path(MANIFEST), world.path("elsewhere"))
        world.write(MANIFEST, f"-> {world.path('elsewhere')}")
        self.assert_both_refuse(world, MANIFEST_NOT_ORDINARY)

    def test_missing(self):
        world = self.installed_world()
        os.remove(world.path(MANIFEST))
        self.assert_both_refuse(world, MANIFEST_MISSING)

    def test_damaged_entry(self):
        # Also one that would lead to a file out of the compiler's directory.
        good = {"original": sha256(ORIGINALS[VARS_SH]), "mode": "644", "placeholders": []}
        good["results"] = [sha256("precious\n")]
        for path, changed in [
            ("../victim", {}),
            ("/victim", {}),
            ("a/../../victim", {}),
            ("", {}),
            ("victim", {"original": "../../../victim"}),
            ("victim", {"original": "../lock"}),
            ("victim", {"original": 64 * "g"}),
            ("victim", {"mode": "abc"}),
            ("victim", {"mode": "0o644"}),
            ("victim", {"mode": ""}),
            ("victim", {"results": ["x"]}),
        ]:
            with self.subTest(path=path, changed=changed):
                world = self.installed_world()
                world.write("package/victim", "precious\n")
                manifest = json.loads(world.read(MANIFEST))
                manifest["files"][path] = {**good, **changed}
                world.write(MANIFEST, json.dumps(manifest))
                self.assert_both_refuse(world, BAD_ENTRY.format(path))


class DamagedOriginal(EndToEndTest):
    def test_damaged(self):
        for text in ["", "junk\n", ORIGINALS[VARS_SH] + "more\n"]:
            with self.subTest(text):
                world = self.installed_world()
                world.write(KEPT_SH, text)
                self.assert_refused(world, not_undone(original_damaged(VARS_SH)), World.undo)
                outcome = world.install()
                self.assertEqual((outcome.code, outcome.changes, outcome.kept), (1, {}, {}))
                self.assertEqual(outcome.err, f"{NOT_DONE}{original_damaged(VARS_SH)}\n")
                # What the message says helps.
                world.write(VARS_SH, ORIGINALS[VARS_SH])
                self.assertEqual(world.undo().code, 0)

    def test_missing(self):
        world = self.installed_world()
        os.remove(world.path(KEPT_SH))
        self.assert_refused(world, not_undone(original_damaged(VARS_SH)), World.undo)


class OddDirectory(EndToEndTest):
    def test_not_a_directory(self):
        for tree in [
            {STORE: "a file\n"},
            {"else/originals/note": "mine\n", STORE: "-> ../../else"},
            {STORE + "/originals": "a file\n"},
        ]:
            with self.subTest(tree):
                world = self.small_world(**tree)
                message = STORE_NOT_A_DIRECTORY
                if STORE not in tree:
                    message = message.replace(f"{STORE} ", f"{KEPT_ORIGINALS} ")
                if STORE not in tree:
                    world.chmod(STORE, 0o700)
                self.assert_refused(world, refused(message))


class CompilerDirectory(EndToEndTest):
    def test_bad_root(self):
        for install_dir, subdir, root in [('"/"', '""', "/"), ('""', '"cc"', "cc")]:
            with self.subTest(root):
                component = COMPONENT.replace('"/cc"', subdir)
                toml = installation(component, VORN_INSTALL_DIR=install_dir)
                self.assert_both_refuse(self.world(small_tree(toml)), BAD_ROOT.format(root))


@needs_strace
@needs_plain_program
class FailingDisk(EndToEndTest):
    """A system call that fails at one file."""

    def run_with(self, world, file, inject, *command):
        # By its whole name, by descriptor, or by its name in an open directory.
        paths = ["-P", world.path(file), "-P", os.path.basename(file)]
        strace = ["strace", "-qq", "-o", "/dev/null", *paths]
        strace += ["-e", f"inject={inject}"]
        toml = world.path("installation.toml")
        return world.run(*command, toml, before=strace, env=NO_LEAK_SEARCH)

    def assert_recovers(self, world):
        self.assertEqual(world.install().code, 0)
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)

    def test_manifest_that_cannot_be_written(self):
        world = self.installed_world()
        before = world.bytes(SETUP_64)
        world.write(SETUP_64, "# second edition\n" + ORIGINALS[SETUP_64])
        outcome = self.run_with(world, MANIFEST + ".new", "write:error=ENOSPC", "install")
        self.assertEqual(outcome.code, 1, outcome)
        world.write(SETUP_64, before)
        self.assert_recovers(world)

    def test_manifest_that_cannot_be_removed(self):
        world = self.installed_world()
        last = STORE + "/manifest.undone"
        outcome = self.run_with(world, last, "unlink,unlinkat:error=EIO", "undo")
        self.assertTrue(os.path.exists(world.path(last)))
        self.assertEqual(outcome.changes, restored())
        self.assert_recovers(world)

    def test_flush_that_fails_after_the_rename(self):
        world = self.small_world()
        directory = os.path.dirname(SETUP_64)
        outcome = self.run_with(world, directory, "fsync:error=EIO", "install", "--json")
        told = outcome.json()
        self.assertEqual((told["changed"], told["outcome"]), (True, "failed"), outcome)


if __name__ == "__main__":
    unittest.main()

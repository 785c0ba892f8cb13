"""What install and undo are given to read, and what they make of odd names, modes and files."""

import json
import os
import shutil
import stat
import subprocess
import unittest

from hooked import NO_OPENAT2, run
from world import (
    CC, COMPONENT, KEPT_ORIGINALS, LINUX, MANIFEST, ORIGINALS, PIPE, SETUP_64, STORE, TEMPLATES,
    VARS_CSH, VARS_SH, World, filled, installation, small_tree,
)


class HostileInput(unittest.TestCase):
    maxDiff = None

    def world(self, installed=False, **changes):
        world = self.enterContext(World(small_tree(**changes)))
        if installed:
            self.assertEqual(run(world, "install").code, 0)
        return world

    def assert_refused(self, world, command, word, code=1, **how):
        before = world.snapshot()
        outcome = run(world, command, **how)
        self.assertEqual(outcome.code, code, outcome)
        self.assertIn(word, outcome.err)
        self.assertEqual(world.snapshot(), before)
        return outcome

    def assert_undone(self, world):
        self.assertEqual(run(world, "undo").code, 0)
        self.assertEqual(world.read_all(), {name: text.encode() for name, text in ORIGINALS.items()})
        self.assertFalse(os.path.exists(world.path(STORE)))


class Manifests(HostileInput):
    def test_damaged(self):
        for files in ["null", "[]", '""', "7"]:
            for command in ["undo", "install"]:
                world = self.world(installed=True)
                world.write(MANIFEST, '{"schema": 1, "files": ' + files + "}")
                self.assert_refused(world, command, f"cannot use WORLD/{MANIFEST}: 'files' is not an object")


class Installations(HostileInput):
    def test_names_that_lead_elsewhere(self):
        rows = [("package_number", "42", "42/../../../elsewhere"), ("version", "5.0.3", "5.0.3/.."),
                ("subdir", "/cc", "/cc/../cc"), ("subdir", "/cc", "/./cc"), ("version", "5.0.3", ".")]
        for key, old, new in rows:
            with self.subTest(key, new=new):
                toml = COMPONENT.replace(f'{key} = "{old}"', f'{key} = "{new}"')
                world = self.world(toml=installation(toml))
                self.assert_refused(world, "install", f"{key} is '{new}'", code=2)

    def test_toml_that_is_too_deep_or_large(self):
        deep = ".".join(["a"] * 150000)
        text = installation()
        for toml in [f'{deep} = 1\n', f'x = """a""""\n{deep} = 1\n', f"x = '''a''''\n{deep} = 1\n",
                     f'x = {{y = """\n"""", {deep} = "a"}}\n', f'x = "\\\\"\n{deep} = 1\n',
                     f"x = '\\'\n{deep} = 1\n", f'x = """a"""""\n[{deep}]\n']:
            world = self.world(toml=toml + text)
            self.assert_refused(world, "install", "not valid TOML", code=2)
        self.assert_refused(self.world(toml="#" * (1 << 20) + "\n" + text), "install", "larger than", code=2)
        dots = "." * 5000
        world = self.world(toml=f"# {dots}\n" + installation(NDK_PATH=f'"ndk"  # {dots}'))
        self.assertEqual(run(world, "install").code, 0)
        # A quote that is escaped does not end a text.
        world = self.world(toml=installation(NDK_SUPPORTED_VERSIONS=f'"r11c;\\"{dots}"'))
        self.assertEqual(run(world, "install").code, 0)

    def test_two_versions(self):
        # Each installation knows its own files.
        second = {name.replace("5.0.3.42", "6.0.0.1").replace("2005.3.42", "2006.0.1"): text
                  for name, text in ORIGINALS.items()}
        world = self.world(installed=True, **second)
        first = world.read("installation.toml")
        world.write("installation.toml", first.replace("5.0.3", "6.0.0").replace('"42"', '"1"'))
        self.assertEqual(run(world, "install").code, 0)
        self.assertEqual(run(world, "undo").code, 0)
        self.assertIn("no installation of 6.0.0.1 is recorded", run(world, "status").out)
        self.assertEqual(world.read_all(second), {n: t.encode() for n, t in second.items()})
        self.assertEqual(world.tree()[VARS_SH], filled()[VARS_SH])
        world.write("installation.toml", first)
        self.assert_undone(world)


class OddFiles(HostileInput):
    def test_in_the_place_of_results(self):
        kinds = {"link to the result": "-> ../there", "dangling link": "-> nowhere", "pipe": PIPE}
        for kind, content in kinds.items():
            with self.subTest(kind):
                world = self.world(installed=True)
                shutil.copy(world.path(SETUP_64), os.path.dirname(os.path.dirname(world.path(SETUP_64))) + "/there")
                os.remove(world.path(SETUP_64))
                world.write(SETUP_64, content)
                what = "is not an ordinary file" if content is PIPE else "is a link"
                self.assert_refused(world, "undo", f"WORLD/{SETUP_64} {what}")
                self.assert_refused(world, "install", f"the template WORLD/{SETUP_64} {what}")
                force = [f"--force={world.path(SETUP_64)}"]
                self.assertEqual(run(world, "undo", options=force).code, 0)
                self.assertEqual(world.read(SETUP_64), ORIGINALS[SETUP_64])
                beside = os.lstat(world.path(SETUP_64 + ".edited")).st_mode
                self.assertFalse(stat.S_ISREG(beside))

    def test_edits_that_mention_placeholders(self):
        for edit in ["{0}# see <NDK_DIR>\n", "# <NDK_DIR>\n{0}", "{0}ndk='<NDK_DIR>'\n", "<NDK_DIR>\n"]:
            with self.subTest(edit):
                world = self.world(installed=True)
                text = edit.format(world.bytes(VARS_SH).decode())
                world.write(VARS_SH, text)
                for command in ["undo", "install"]:
                    self.assert_refused(world, command, f"WORLD/{VARS_SH} was changed by someone else since")
                outcome = run(world, "undo", options=["--force", world.path(VARS_SH), "--json"])
                self.assertEqual(outcome.code, 0)
                kept = [file.get("kept_as") for file in json.loads(outcome.out)["files"]]
                self.assertIn(f"WORLD/{VARS_SH}.edited", kept)
                self.assertEqual(world.bytes(VARS_SH + ".edited").decode(), text)
                self.assertEqual(world.read(VARS_SH), ORIGINALS[VARS_SH])

    def test_force_of_a_file_that_is_not_ours(self):
        world = self.world(installed=True)
        self.assert_refused(world, "undo", "is not a file that an installation changed", code=2,
                            options=["--force", world.path("ndk/ndk-build")])

    def test_reinstalled(self):
        world = self.world(installed=True)
        world.write(VARS_SH, "# second edition\nndk='<NDK_DIR>'\n")
        self.assertEqual(run(world, "install").code, 0)
        self.assertEqual(run(world, "undo").code, 0)
        self.assertEqual(world.read(VARS_SH), "# second edition\nndk='<NDK_DIR>'\n")

    def test_linked_directory_inside(self):
        world = self.world()
        for linked in [os.path.dirname(VARS_SH), LINUX]:
            path = world.path(linked)
            os.rename(path, path + ".there")
            os.symlink(path + ".there", path)
            for strace in [[], NO_OPENAT2]:
                self.assert_refused(world, "install", "is a link or lies behind one", strace=strace)
            os.remove(path)
            os.rename(path + ".there", path)

    def test_link_to_the_root(self):
        world = self.world(toml=installation(VORN_INSTALL_DIR='"linked"'))
        os.symlink("package", world.path("linked"))
        self.assertEqual(run(world, "install").code, 0)
        self.assert_undone(world)


class Modes(HostileInput):
    def test_store_that_others_may_enter(self):
        # As an older program made it.
        world = self.world(installed=True)
        world.chmod(STORE, 0o755)
        self.assertEqual(run(world, "install").code, 0)
        self.assertEqual(world.snapshot()[STORE][0], 0o700)

    def test_umask_that_masks_the_owners_bits(self):
        for umask in ["0777", "0700", "0277"]:
            for user in ["", "nobody"]:
                with self.subTest(umask, user=user):
                    world = self.world()
                    before = ["sh", "-c", f'umask {umask}; exec "$@"', "sh"]
                    program = None
                    if user and os.geteuid() == 0:
                        program = world.give_to_nobody()
                        before += ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
                    how = {"before": before, **({"program": program} if program else {})}
                    for command in ["install", "install", "undo"]:
                        outcome = run(world, command, **how)
                        self.assertEqual(outcome.code, 0, outcome)
                    self.assertEqual(world.read_all(), {n: t.encode() for n, t in ORIGINALS.items()})

    @unittest.skipUnless(os.geteuid() == 0, "needs another user")
    def test_directory_without_read_permission(self):
        # Told in the rehearsal, not after a rename.
        world = self.world()
        program = world.give_to_nobody()
        world.chmod(os.path.dirname(SETUP_64), 0o311)
        before = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
        outcome = run(world, "install", program=program, before=before)
        self.assertEqual(outcome.code, 1)
        self.assertIn(f"cannot open the directory WORLD/{os.path.dirname(SETUP_64)}", outcome.err)
        self.assertEqual(world.read(VARS_SH), ORIGINALS[VARS_SH])


class ShellNames(HostileInput):
    def test_name_that_cannot_be_recorded(self):
        world = self.world()
        name = os.fsencode(world.path("ndk")) + b"\xff"
        os.rename(world.path("ndk"), name)
        self.assert_refused(world, "install", "is not UTF-8", options=["--ndk", name])

    def test_quotes_and_exclamation_marks_in_real_shells(self):
        for name in ["plain", "it's", "a!b", "a b"]:
            for quote in ["'", '"']:
                with self.subTest(name, quote=quote):
                    vars_ = {VARS_SH: f"ndk={quote}<NDK_DIR>{quote}\n",
                             VARS_CSH: f"set ndk = {quote}<NDK_DIR>{quote}\n"}
                    world = self.world(**vars_)
                    os.rename(world.path("ndk"), world.path(name))
                    outcome = run(world, "install", options=["--ndk", world.path(name)])
                    self.assertEqual(outcome.code, 0, outcome)
                    for shell, file in [("sh", VARS_SH), ("csh", VARS_CSH)]:
                        if not shutil.which(shell):
                            self.skipTest(f"no {shell} here")
                        source = "." if shell == "sh" else "source"
                        line = f'{source} "{world.path(file)}"\necho "[$ndk]"\n'
                        flags = [] if shell == "sh" else ["-f"]
                        done = subprocess.run([shell, *flags], input=line.encode(), check=False,
                                              capture_output=True)
                        works = f"[{world.path(name)}]\n".encode() in done.stdout
                        warned = f"warning: WORLD/{file} fails" in outcome.err
                        self.assertEqual(works, not warned, (done, outcome.err))


if __name__ == "__main__":
    unittest.main()

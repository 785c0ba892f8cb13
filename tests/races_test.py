"""What others do to the compiler's files while ndk-integrate is at work, at the decisive moments: no
edit is lost, and none is claimed to be ours."""

import os
import re
import shlex
import shutil
import unittest

from hooked import EXCHANGE, NO_EXCHANGE, NO_OPENAT2, run
from world import (
    CC, ORIGINALS, OTHER_NDK, PROGRAM, SETUP_32, SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH,
    World, filled, small_tree,
)

MINE = "mine, without a placeholder\n"


def edit_in(world, file, text=MINE, by_rename=False):
    """A shell command that edits a file of a world."""
    name = shlex.quote(world.path(file))
    way = f"> {name}.x && mv {name}.x {name}" if by_rename else f"> {name}"
    return f"echo {shlex.quote(text[:-1])} {way}"


class Races(unittest.TestCase):
    maxDiff = None

    def world(self, installed=False, **how):
        world = self.enterContext(World(small_tree(**how)))
        if installed:
            self.assertEqual(world.install().code, 0)
        return world

    def assert_stopped(self, outcome, *words):
        self.assertEqual(outcome.code, 1, outcome)
        for word in words:
            self.assertIn(word, outcome.err)

    def assert_no_leftovers(self, world):
        names = os.listdir(world.path(STORE)) if os.path.exists(world.path(STORE)) else []
        self.assertLessEqual(set(names), {"manifest.json", "originals"})

    def assert_original(self, world, *edited):
        self.assertEqual(
            {name: world.read(name) for name in TEMPLATES if name not in edited},
            {name: text for name, text in ORIGINALS.items() if name not in edited},
        )

    def assert_comes_back(self, world, *edited):
        """undo gives up edits where it must, and then everything is as it was."""
        forced = [f"--force={world.path(name)}" for name in edited]
        outcome = run(world, "undo", options=forced)
        self.assertEqual(outcome.code, 0, outcome)
        self.assert_original(world)
        self.assertFalse(os.path.exists(world.path(STORE)))


class Edits(Races):
    def test_before_exchange(self):
        for by_rename in [False, True]:
            for number, file in [(1, SETUP_64), (2, SETUP_32), (3, VARS_SH), (4, VARS_CSH)]:
                for strace in [[], NO_OPENAT2]:
                    with self.subTest(file, by_rename=by_rename, strace=strace):
                        world = self.world()
                        hook = EXCHANGE.format(number, "before", edit_in(world, file, MINE, by_rename))
                        outcome = run(world, "install", hook, strace=strace)
                        self.assert_stopped(
                            outcome, f"WORLD/{file} was changed by someone else just now; it is left"
                        )
                        self.assertEqual(world.read(file), MINE)
                        self.assert_no_leftovers(world)
                        self.assert_comes_back(world, file)
                        self.assertEqual(world.read(file + ".edited"), MINE)

    def test_before_the_first_exchange(self):
        # Of the second file, when both have their copies: neither is put in its place.
        world = self.world()
        outcome = run(world, "install", f"rename 10 after {edit_in(world, SETUP_32)}")
        self.assert_stopped(outcome, f"WORLD/{SETUP_32} was changed by someone else just now")
        self.assert_original(world, SETUP_32)

    def test_before_exchange_of_undo(self):
        for by_rename in [False, True]:
            with self.subTest(by_rename=by_rename):
                world = self.world(installed=True)
                hook = EXCHANGE.format(2, "before", edit_in(world, SETUP_64, MINE, by_rename))
                outcome = run(world, "undo", hook)
                self.assert_stopped(outcome, f"WORLD/{SETUP_64} was changed by someone else just now")
                self.assertEqual(world.read(SETUP_64), MINE)
                self.assert_no_leftovers(world)
                self.assert_comes_back(world, SETUP_64)

    def test_open_for_writing_before_exchange(self):
        # Truncated and not yet written to when it was taken for the template.
        world = self.world()
        with open(world.path(VARS_SH), "w", encoding="utf-8") as file:
            outcome = run(world, "install")
            self.assert_stopped(outcome, f"WORLD/{VARS_SH} is open for writing by someone else; it is left")
            file.write(MINE)
        self.assertEqual(world.read(VARS_SH), MINE)

    def test_changed_again_before_it_goes_back(self):
        # The later edit stays in its place, the earlier is kept beside and named.
        world = self.world()
        outcome = run(
            world, "install",
            EXCHANGE.format(1, "before", edit_in(world, SETUP_64, "first\n", True)),
            EXCHANGE.format(2, "before", edit_in(world, SETUP_64, "second\n", True)),
        )
        self.assert_stopped(outcome, f"kept as WORLD/{SETUP_64}.edited")
        self.assertEqual(world.read(SETUP_64), "second\n")
        self.assertEqual(world.read(SETUP_64 + ".edited"), "first\n")
        self.assert_no_leftovers(world)

    def test_our_result_edited_before_it_comes_back(self):
        world = self.world()
        outcome = run(
            world, "install",
            EXCHANGE.format(1, "before", edit_in(world, SETUP_64, "first\n", True)),
            EXCHANGE.format(2, "before", edit_in(world, SETUP_64, "second\n", False)),
        )
        self.assert_stopped(outcome)
        self.assertEqual(
            sorted([world.read(SETUP_64), world.read(SETUP_64 + ".edited")]), ["first\n", "second\n"]
        )

    def test_removed_before_exchange(self):
        world = self.world()
        outcome = run(world, "install", EXCHANGE.format(1, "before", f"rm {world.path(SETUP_64)}"))
        self.assert_stopped(outcome, f"WORLD/{SETUP_64} was changed by someone else just now")
        self.assertFalse(os.path.exists(world.path(SETUP_64)))
        self.assert_comes_back(world)

    def test_replaced_by_odd_files_before_exchange(self):
        for make in ["mkfifo {0}", "ln -s /dev/zero {0}", "mkdir {0}"]:
            with self.subTest(make):
                world = self.world()
                path = world.path(SETUP_64)
                hook = EXCHANGE.format(1, "before", f"rm {path} && {make.format(path)}")
                self.assert_stopped(run(world, "install", hook), "just now; it is left as it is")
                self.assertFalse(os.path.isfile(path))

    def test_made_where_one_was_missing(self):
        # undo puts a missing file back, but not over one that came meanwhile.
        world = self.world(installed=True)
        os.remove(world.path(VARS_SH))
        hook = EXCHANGE.format(4, "before", edit_in(world, VARS_SH))
        self.assert_stopped(run(world, "undo", hook), "was changed by someone else just now")
        self.assertEqual(world.read(VARS_SH), MINE)

    def test_after_exchange_of_undo(self):
        # All files are looked at once more before an original is dropped.
        world = self.world(installed=True)
        outcome = run(world, "undo", EXCHANGE.format(4, "after", edit_in(world, SETUP_32)))
        self.assert_stopped(outcome, f"WORLD/{SETUP_32} was changed by someone else just now")
        self.assert_comes_back(world, SETUP_32)

    def test_killed_with_an_edit_in_hand(self):
        # It is kept beside and named by the next run, whatever that is.
        for command, next_command in [("install", "install"), ("install", "undo"), ("undo", "undo")]:
            with self.subTest(command, next=next_command):
                world = self.world(installed=command == "undo")
                hooks = [
                    EXCHANGE.format(1, "before", edit_in(world, SETUP_64, by_rename=True)),
                    EXCHANGE.format(1, "after", "kill -9 $PPID"),
                ]
                if command == "undo":  # in the order of their names
                    hooks = [hook.replace(" 1 ", " 2 ") for hook in hooks]
                self.assertEqual(run(world, command, *hooks).code, -9)
                outcome = run(world, next_command)
                self.assertEqual(outcome.code, 0, outcome)
                self.assertIn(f"is kept as WORLD/{SETUP_64}.edited", outcome.err)
                self.assertEqual(world.read(SETUP_64 + ".edited"), MINE)
                self.assert_no_leftovers(world)

    def test_killed_with_our_own_in_hand(self):
        # Nobody's edit: it goes without a word.
        for command in ["install", "undo"]:
            world = self.world(installed=command == "undo")
            run(world, command, EXCHANGE.format(2, "after", "kill -9 $PPID"))
            outcome = run(world, "undo")
            self.assertEqual((outcome.code, outcome.err), (0, ""))
            self.assert_original(world)
            self.assertFalse(os.path.exists(world.path(STORE)))

    def test_where_files_cannot_be_exchanged(self):
        # The look is just before the rename.
        world = self.world()
        self.assertEqual(run(world, "install", strace=NO_EXCHANGE).code, 0)
        self.assertEqual(world.tree()[VARS_SH], filled()[VARS_SH])
        os.remove(world.path(VARS_CSH))
        outcome = run(world, "undo", strace=NO_EXCHANGE)
        self.assertEqual(outcome.code, 0, outcome)
        self.assert_original(world)
        hook = EXCHANGE.format(1, "before", edit_in(world, SETUP_64))
        self.assert_stopped(run(world, "install", hook, strace=NO_EXCHANGE), "just now")
        self.assertEqual(world.read(SETUP_64), MINE)

    def test_given_up_where_files_cannot_be_exchanged(self):
        world = self.world(installed=True)
        world.write(VARS_SH, MINE)
        force = f"--force={world.path(VARS_SH)}"
        outcome = run(world, "undo", strace=NO_EXCHANGE, options=[force])
        self.assertEqual(outcome.code, 0, outcome)
        self.assertEqual(world.read(VARS_SH + ".edited"), MINE)
        self.assert_original(world)


    def test_kept_and_named_when_more_goes_wrong(self):
        # Without exchange another file comes in between; with it the directory cannot be flushed.
        for strace, when, why in [
            (NO_EXCHANGE, 6, "was changed by someone else just now"),
            (["-e", "trace=fsync", "-e", "inject=fsync:error=EIO:when=10"], 99, "cannot flush"),
        ]:
            world = self.world(installed=True)
            world.write(VARS_SH, MINE)
            hook = EXCHANGE.format(when, "before", edit_in(world, VARS_SH, "later\n"))
            force = f"--force={world.path(VARS_SH)}"
            outcome = run(world, "undo", hook, strace=strace, options=[force])
            self.assert_stopped(outcome, why, f"is kept as WORLD/{VARS_SH}.edited")
            self.assertEqual(world.read(VARS_SH + ".edited"), MINE)


class Flushes(Races):
    def test_each_place_after_its_last_rename(self):
        edit = EXCHANGE.format(1, "before", "{edit}")
        force = "--force={file}"
        for command, hooks, strace, options, code in [
            ("install", [], [], [], 0),
            ("undo", [], [], [], 0),  # of a file that is missing, too
            ("install", [], NO_EXCHANGE[2:], [], 0),
            ("undo", [], NO_EXCHANGE[2:], [force], 0),
            ("undo", [], [], [force], 0),
            ("install", [edit], [], [], 1),  # and back
        ]:
            with self.subTest(command, hooks=hooks, strace=strace, options=options):
                world = self.world(installed=command == "undo")
                if options:
                    world.write(VARS_SH, MINE)
                elif command == "undo":
                    os.remove(world.path(VARS_SH))
                trace = os.path.join(world.top, "trace")
                calls = ["-o", trace, "-y", "-e", "trace=renameat,renameat2,linkat,fsync", *strace]
                hooks = [hook.format(edit=edit_in(world, SETUP_64)) for hook in hooks]
                options = [option.format(file=world.path(VARS_SH)) for option in options]
                outcome = run(world, command, *hooks, strace=calls, options=options)
                self.assertEqual(outcome.code, code, outcome)
                self.assertEqual(self.unflushed(trace), set())

    def unflushed(self, trace):
        """The directories whose entries changed after they were last flushed; but what is in the
        staging directory is thrown away."""
        directories = set()
        with open(trace, encoding="utf-8") as lines:
            for line in lines:
                names = re.findall(r"\d+<([^>]*)>", line)
                if line.rstrip().endswith(" = 0") and "fsync(" in line:
                    directories.discard(names[0])
                elif line.rstrip().endswith(" = 0"):
                    directories.update(name for name in names if "/staged-" not in name)
        return directories


class Lock(Races):
    def test_second_run_at_any_moment(self):
        world = self.world()
        second = f"{PROGRAM} undo {world.path('installation.toml')}"
        for moment in ["flock 1 after", "fsync 9 after", "renameat2 2 after"]:
            said = world.path("../said")
            hook = f"{moment} rm -f {world.path(STORE)}/lock; {second} 2> {said}; test $? = 1"
            outcome = run(world, "install", hook)
            self.assertEqual(outcome.code, 0, outcome)
            with open(said, encoding="utf-8") as file:
                self.assertIn("another ndk-integrate is at work", file.read())
            self.assert_comes_back(world)

    def test_removed_between_opening_and_locking(self):
        # It is taken again when it is another.
        world = self.world()
        outcome = run(world, "install", f"flock 1 before rmdir {world.path(STORE)}")
        self.assertEqual(outcome.code, 0, outcome)
        self.assert_comes_back(world)

    def test_made_by_one_and_locked_by_another(self):
        # Who comes second leaves it to who is at work.
        world = self.world()
        store, held, gate = (world.path(name) for name in [STORE, "held", "gate"])
        os.mkfifo(held)
        os.mkfifo(gate)
        other = f"flock {store} sh -c ': > {held}; cat {gate}' > /dev/null 2>&1 & : < {held}"
        outcome = run(world, "install", f"flock 1 before {other}")
        self.assert_stopped(outcome, "another ndk-integrate is at work", f"holds WORLD/{STORE}")
        self.assertTrue(os.path.isdir(store))
        with open(gate, "wb"):
            pass

    def test_moved_away_while_one_is_at_work(self):
        world = self.world()
        hook = f"fsync 5 before mv {world.path(STORE)} {world.path('elsewhere')}"
        outcome = run(world, "install", hook)
        self.assert_stopped(outcome, "was moved or removed while ndk-integrate is at work")
        self.assert_original(world)


class ScriptAtWork(Races):
    def test_own_template_edited(self):
        # The script edits a file that was filled in for it: told at once, and undo can go on.
        setup = "x86_64-nox5.0.3.42/setup.mk"
        world = self.world(runs=f"echo '# by the script' >> {setup}")
        outcome = run(world, "install")
        self.assertEqual(outcome.code, 0, outcome)
        self.assertIn(f"warning: WORLD/{SETUP_64} was changed by someone else after", outcome.err)
        self.assert_stopped(run(world, "undo"), f"--force WORLD/{SETUP_64}")
        self.assert_comes_back(world, SETUP_64)
        self.assertIn("# by the script\n", world.read(SETUP_64 + ".edited"))

    def test_earlier_result_put_back(self):
        # By another run, say: it is known still, so undo needs no force.
        world = self.world(installed=True, **OTHER_NDK)
        earlier, path = world.path("earlier"), world.path(VARS_SH)
        shutil.copy(path, earlier)
        outcome = run(world, "install", EXCHANGE.format(2, "after", f"cp {earlier} {path}"),
                      options=["--ndk", world.path("other ndk")])
        self.assertIn(f"warning: WORLD/{VARS_SH} was changed by someone else after", outcome.err)
        self.assert_comes_back(world)

    def test_template_becomes_a_pipe(self):
        world = self.world(runs=f"rm ../{VARS_SH[len(CC) + 1:]} && mkfifo ../{VARS_SH[len(CC) + 1:]}")
        self.assert_stopped(run(world, "install"), f"the template WORLD/{VARS_SH} is not an ordinary")

    def test_background_child(self):
        # One keeps the output open, another writes to it without an end.
        world = self.world(runs="echo begun\n(while :; do :; done) &\necho $! > ../pid\nyes &\n")
        try:
            outcome = run(world, "install")
            self.assertEqual(outcome.code, 0, outcome)
            self.assertTrue("script printed: begun\n" in outcome.out)
        finally:
            os.kill(int(world.read(CC + "/pid")), 9)


if __name__ == "__main__":
    unittest.main()

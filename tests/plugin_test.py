"""Which plug-in ndk-integrate loads, end to end, and what it does where one cannot be used or
throws."""

import os
import unittest

from end_to_end import EndToEndTest
from messages import NOT_DONE, Install, no_plugin, refused
from plugins import FAKE_PLUGIN, fake_plugin, shared_library, throwing_plugin
from world import LIBRARY, filled

PLUGIN = "TOP/plugin/plugin.so"


class PluginFile(EndToEndTest):
    """--plugin FILE."""

    def assert_not_loadable(self, world, file, report):
        outcomes = [world.install("--plugin", file, *form) for form in [[], ["--json"]]]
        self.assert_told(report, *outcomes, kept=True)

    def test_real_one(self):
        world = self.small_world()
        program = world.copy_program(library_dir="plugin")
        directory = os.path.join(world.top, "plugin")
        library = os.path.join(directory, LIBRARY)
        changed = filled(first=True)
        outcome = world.install("--plugin", library, program=program)
        self.assert_told(Install(), outcome, changed=changed)
        # Also by its name in the working directory.
        outcome = world.install("--plugin", LIBRARY, program=program, cwd=directory)
        self.assert_told(Install(), outcome)

    def test_not_a_library(self):
        world = self.small_world()
        for name, report in [
            ("no.so", no_plugin("WORLD/no.so")),
            ("installation.toml", no_plugin("WORLD/installation.toml", "invalid ELF header")),
            ("ndk", no_plugin("WORLD/ndk", "cannot read file data: Is a directory")),
        ]:
            with self.subTest(name):
                self.assert_not_loadable(world, world.path(name), report)

    def test_log_not_made(self):
        world = self.small_world()
        outcome = world.install("--plugin", world.path("no.so"), "--log", world.path("install.log"))
        self.assert_told(no_plugin("WORLD/no.so"), outcome, kept=True)

    def test_other_library(self):
        world = self.small_world()
        library = shared_library(world.top + "/plugin/plugin.so", "int answer = 42;\n")
        self.assert_not_loadable(world, library, no_plugin(PLUGIN, function="detect_ndk"))

    def test_each_function_missing(self):
        world = self.small_world()
        for name in FAKE_PLUGIN:
            with self.subTest(name):
                outcome = world.install("--plugin", fake_plugin(world, leave_out=name))
                self.assertRegex(outcome.err, rf"function \w*{name}\w*\n\Z")
                report = no_plugin(PLUGIN, function=outcome.err.split()[-1])
                self.assert_told(report, outcome, kept=True)

    def test_undefined_symbol(self):
        world = self.small_world()
        text = 'extern "C" int nobody_defines_this(); extern "C" int detect_ndk(session_t*) '
        library = fake_plugin(world, detect_ndk=text + "{ return nobody_defines_this(); }")
        report = no_plugin(PLUGIN, "undefined symbol: nobody_defines_this")
        self.assert_not_loadable(world, library, report)


class ThrowingPlugin(EndToEndTest):
    """An exception that leaves the plug-in ends the command."""

    def thrown(self, what):
        world = self.small_world()
        options = ["--plugin", throwing_plugin(world)]
        return [world.install(*options, *form, env={"THROWN": what}) for form in [[], ["--json"]]]

    def test_with_a_text(self):
        for what, text in [("boom", "boom"), ("a type of its own", "own boom")]:
            with self.subTest(what):
                report = refused(text, ndk="", component="")
                self.assert_told(report, *self.thrown(what), kept=True)

    def test_control_characters_in_text(self):
        lines, in_json = self.thrown("two\nlines")
        self.assert_outcome(lines, code=1, err=f"{NOT_DONE}two\\nlines\n", kept=True)
        self.assert_told(refused("two\nlines", ndk="", component=""), in_json, kept=True)

    def test_a_number(self):
        lines, in_json = self.thrown("a number")
        message = in_json.json()["message"]
        self.assertRegex(message, r"\A[^\n]+\Z")
        report = refused(message, ndk="", component="")
        self.assert_told(report, lines, in_json, kept=True)


class PluginWithoutVerdict(EndToEndTest):
    def test_check(self):
        world = self.small_world()
        outcome = world.run("check", world.path("ndk"), "--plugin", fake_plugin(world))
        err = f"{NOT_DONE}the plug-in gave no verdict on WORLD/ndk\n"
        self.assert_outcome(outcome, code=1, err=err, kept=True)


class Places(EndToEndTest):
    """Where the plug-in is looked for without --plugin."""

    def world_with(self, *places):
        """A program in TOP/bin, and in each place a plug-in that names its place when called."""
        world = self.small_world()
        self.program = world.copy_program()
        for place in places:
            throwing_plugin(world, f"{place}/{LIBRARY}")
        return world

    def assert_loaded_from(self, place, world):
        env = {"LD_LIBRARY_PATH": os.path.join(world.top, "loader"), "THROWN": "place"}
        outcome = world.install(program=self.program, env=env)
        self.assert_outcome(outcome, code=1, err=f"{NOT_DONE}from {place}\n", kept=True)

    def test_order(self):
        self.assert_loaded_from("bin", self.world_with("bin", "lib", "loader"))
        self.assert_loaded_from("lib", self.world_with("lib", "loader"))
        self.assert_loaded_from("loader", self.world_with("loader"))

    def test_program_behind_a_link(self):
        world = self.world_with("bin", "elsewhere")
        link = os.path.join(world.top, "elsewhere", "ndk-integrate")
        os.symlink(self.program, link)
        self.program = link
        self.assert_loaded_from("bin", world)

    def test_nowhere(self):
        world = self.world_with()
        for command in [["install", world.path("installation.toml")], ["check", world.path("ndk")]]:
            outcome = world.run(*command, program=self.program)
            self.assert_told(no_plugin(LIBRARY), outcome, kept=True)

    def test_not_loadable_beside_the_program(self):
        world = self.world_with("lib")
        world.write("../bin/" + LIBRARY, "no library\n" * 100)
        outcome = world.install(program=self.program)
        self.assert_told(no_plugin(f"TOP/bin/{LIBRARY}", "invalid ELF header"), outcome, kept=True)

    def test_lib_not_searchable(self):
        world = self.world_with("lib")
        os.chmod(os.path.join(world.top, "lib"), 0)
        outcome = world.install(program=self.program, unprivileged=True)
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (3, "", {}))
        self.assertRegex(outcome.err, r"\Andk-integrate: cannot load the plug-in [^\n]+\n\Z")


if __name__ == "__main__":
    unittest.main()

"""ndk-integrate install knows before it touches, end to end: all problems are named, nothing is
changed, no script runs. And what it warns of."""

import json
import os
import unittest

from end_to_end import EndToEndTest
from messages import (
    IS_LINK, MISLEADING, NONE_GOOD, NOTHING_ASKS, NOT_FILLED_IN, NOT_ORDINARY, NOT_WRITABLE,
    SCRIPT_MISSING, TEMPLATE_MISSING, edited, not_done, refused, said,
)
from plugins import SELECT_FIRST_COMPONENT, fake_plugin
from world import (
    ANDROID, COMPONENT, DISABLED, LINUX, MANIFEST, ORIGINALS, OTHER_NDK, SCRIPT, SETUP_32, SETUP_64,
    STORE, TEMPLATES, VARS_CSH, VARS_SH, installation, small_tree, without,
)

OPTIONAL = "--optional"
RUNS = "touch it-ran"


def problems(*texts):
    lines = "".join(said(f"problem: {text}") for text in texts)
    return lines + not_done(f"{len(texts)} problems, and nothing was changed")


class Problems(EndToEndTest):
    def assert_problems(self, world, *texts, options=(), **how):
        """All of them are named, for people and for programs, and nothing is changed."""
        told = world.install(*options, **how)
        steps = refused("").steps()
        self.assert_outcome(told, 1, steps, problems(*texts), kept=True)
        found = world.install("--json", *options, **how)
        self.assert_outcome(found, 1, found.out, kept=True)
        self.assertEqual(found.json()["problems"], list(map(world.hidden, texts)), found)
        self.assertEqual((found.json()["changed"], found.json()["files"]), (False, []))

    def test_all_at_once(self):
        tree = small_tree(runs=RUNS)
        tree.update({SETUP_32: "-> elsewhere", VARS_SH + "/": "", SCRIPT: (0o644, "")})
        world = self.world(without(tree, SETUP_64, VARS_SH))
        self.assert_problems(
            world, TEMPLATE_MISSING.format(SETUP_64), IS_LINK.format(SETUP_32), NOT_ORDINARY.format(VARS_SH),
            SCRIPT_MISSING,
        )

    def test_edited_and_missing(self):
        world = self.installed_world(runs=RUNS)
        world.append(VARS_SH, "mine\n")
        os.remove(world.path(SETUP_64))
        self.assert_problems(world, edited(VARS_SH), TEMPLATE_MISSING.format(SETUP_64))

    def test_directories_that_may_not_be_written(self):
        tree = small_tree(runs=RUNS, **{f"{LINUX}/bin/": (0o555, ""), ANDROID + "/": (0o555, "")})
        world = self.world(tree)
        texts = [NOT_WRITABLE.format(LINUX + "/bin"), SCRIPT_MISSING]
        world.chmod(SCRIPT, 0o644)
        self.assert_problems(world, *texts, unprivileged=True)

    def test_nothing_is_left_of_the_store(self):
        world = self.world(without(small_tree(runs=RUNS), SETUP_64))
        world.install()
        self.assertFalse(os.path.exists(world.path(STORE)))

    def test_log(self):
        """The lines of the rehearsal, with the real names."""
        world = self.world(without(small_tree(runs=RUNS), SETUP_64))
        told = world.install("-v").err
        cannot_open = f"ERROR: patch_text_file: cannot open input stream of file WORLD/{SETUP_64}\n"
        self.assertEqual(told.count(cannot_open), 2, told)
        self.assertEqual(told.count("integrate_ndk()\n"), 1, told)


class WrongVersion(EndToEndTest):
    """Exit code 2, with the line, and nothing else happens."""

    def test_of_the_compiler(self):
        what = {
            "version": "expected three numbers joined by dots, such as \"5.0.3\"",
            "package_number": "expected a number, such as \"42\"",
            "subdir": "expected one without '..' as a part: it would leave the compiler's directory",
        }
        for key, value, line in [
            ("version", "v7.1.0", 10), ("version", "7.1", 10), ("version", "1.2.3.4", 10),
            ("version", "", 10), ("version", "1..2", 10), ("version", "1.2.3 ", 10),
            ("version", "1.2.9999999999", 10), ("package_number", "", 11),
            ("package_number", "42/../../../elsewhere", 11), ("package_number", "4x", 11),
            ("subdir", "/../cc", 12),
        ]:
            with self.subTest(key=key, value=value):
                component = "".join(
                    f'{key} = "{value}"\n' if text.startswith(key) else text
                    for text in COMPONENT.splitlines(keepends=True)
                )
                world = self.small_world(installation(component))
                message = f"WORLD/installation.toml:{line}: {key} is '{value}', {what[key]}"
                for command in ["install", "undo", "status"]:
                    outcome = world.run(command, world.path("installation.toml"))
                    self.assert_outcome(outcome, 2, err=said(message), kept=True)

    def test_of_another_component(self):
        other = COMPONENT.replace("nox-ndk-5", "nox-docs").replace("5.0.3", "latest")
        world = self.small_world(installation(other + COMPONENT))
        self.assertEqual(world.install().code, 0)


class Warnings(EndToEndTest):
    def test_warnings(self):
        for case, options, tree, warning in [
            ("no placeholder", [], {VARS_SH: "nothing\n"},
             f"no placeholder was found in the template WORLD/{VARS_SH}; nothing is filled in there"),
            ("another file's placeholder", [], {VARS_SH: "<NDK_DIR> {INSTALL_NOX_VERSION}\n"},
             f"WORLD/{VARS_SH} still holds {{INSTALL_NOX_VERSION}} afterwards, which nothing fills "
             "in there"),
            ("a misspelt placeholder", [], {SETUP_64: ORIGINALS[SETUP_64] + "{INSTALL_NOX_X"},
             f"WORLD/{SETUP_64} still holds {{INSTALL_ afterwards, which nothing fills in there"),
            ("Yes", ["--set=NDK_INTEGRATION_ENABLED=Yes"], {}, MISLEADING.format("Yes")),
            ("true", ["--set=NDK_INTEGRATION_ENABLED=true"], {}, MISLEADING.format("true")),
            ("a blank in the path", ["--ndk", "world/other ndk"], OTHER_NDK,
             "the path of the NDK, WORLD/other ndk, holds a blank, which ndk-build refuses"),
        ]:
            for dry in [["--dry-run"], []]:
                with self.subTest(case, dry=dry):
                    world = self.world({**small_tree(), **tree})
                    told = world.install(*options, *dry)
                    self.assertEqual((told.code, told.err), (0, said(f"warning: {warning}")), told)
                    found = world.install("--json", *options, *dry)
                    self.assertEqual(found.json()["warnings"], [warning], found)
                    self.assertEqual(found.err, "")

    def test_none(self):
        for value in ["", "no", "No", "false", "off", "0"]:
            with self.subTest(value):
                told = self.small_world().install(f"--set=NDK_INTEGRATION_ENABLED={value}")
                self.assertEqual((told.code, told.err), (0, ""))


class NothingToDo(EndToEndTest):
    """Exit code 4: nothing to do here, nothing was changed."""

    def assert_nothing_to_do(self, world, outcome, message, *options, lines=""):
        told = world.install(*options)
        self.assertEqual((told.code, told.changes), (4, {}), told)
        self.assertEqual(told.err, lines + said(f"nothing to do here: {message}"))
        found = world.install("--json", *options)
        self.assertEqual((found.code, found.json()["outcome"]), (4, outcome))
        self.assertEqual(found.json()["message"], message)
        accepted = world.install(OPTIONAL, *options)
        self.assertEqual((accepted.code, accepted.changes), (0, {}))
        last = f"nothing to do here, which --optional allows: {message}\n"
        self.assertEqual(accepted.out.splitlines(keepends=True)[-1], last)
        self.assertEqual(world.install(OPTIONAL, "--json", *options).code, 0)

    def test_no_ndk(self):
        tree = {"empty/": "", "old/ndk-build": "", "old/RELEASE.TXT": "r10e\n"}
        world = self.world({**small_tree(), **tree})
        world.write("installation.toml", installation(
            NDK_DEFAULT_SEARCH_PATH_LINUX='["none", "empty", "old"]'
        ))
        self.assert_nothing_to_do(
            world, "no-ndk",
            NONE_GOOD.format(3),
            lines=said("WORLD/none: no such directory")
            + said("WORLD/empty: has neither ndk-build nor ndk-build.cmd")
            + said("WORLD/old: an NDK from before r11 (RELEASE.TXT says r10e): it has no "
                   "source.properties, so its release cannot be read"),
        )
        reasons = [one["reason"] for one in world.install("--json").json()["candidates"]]
        self.assertEqual(reasons, ["missing", "no-launcher", "pre-r11"])

    def test_no_directory(self):
        self.assert_nothing_to_do(
            self.small_world(), "no-ndk",
            "no NDK was found: NDK_DEFAULT_SEARCH_PATH_LINUX names no directory",
            "--set=NDK_DEFAULT_SEARCH_PATH_LINUX=",
        )

    def test_no_component(self):
        for components, options, why in [
            (COMPONENT, ["--set=NDK_COMPONENT_PATTERNS=;"],
             "NDK_COMPONENT_PATTERNS names no pattern"),
            (COMPONENT, ["--set=NDK_COMPONENT_PATTERNS=-NDK-;y"],
             "no component's id holds one of -NDK-;y"),
            ("", [], "no component's id holds one of -ndk-"),
            (COMPONENT + "selected = false\n", [],
             "nox-ndk-5 is not selected (selected = false)"),
            (COMPONENT + "install_condition = false\n", [],
             "nox-ndk-5 is not to be installed here (install_condition = false)"),
        ]:
            with self.subTest(why):
                world = self.small_world(installation(components))
                message = f"{NOTHING_ASKS}: {why}"
                self.assert_nothing_to_do(world, "not-selected", message, *options)

    def test_bad_ndk_that_was_named(self):
        world = self.small_world()
        for options in [["--ndk", world.path("none")], [f"--set=NDK_PATH={world.path('none')}"]]:
            told = world.install(OPTIONAL, *options)
            why = "NDK_PATH is WORLD/none, which cannot be used: no such directory"
            self.assert_outcome(told, 1, err=not_done(why), kept=True)

    def test_system_that_fails(self):
        world = self.world({**without(small_tree(), "ndk/ndk-build"), "loop": "-> loop"})
        told = world.install(OPTIONAL, f"--set=NDK_DEFAULT_SEARCH_PATH_LINUX={world.path('loop')}")
        why = "no NDK was found: WORLD/loop: cannot be read: too many levels of symbolic links"
        self.assert_outcome(told, 1, err=not_done(why), kept=True)


class WrongUsage(EndToEndTest):
    def test_json(self):
        world = self.small_world("[session]\nX = 1\n")
        for command in [
            ["install"], ["undo", "--json", "--x"], ["status", world.path("none"), "--json"],
            ["install", world.path("installation.toml"), "--json"], ["nonsense", "--json"],
        ]:
            with self.subTest(command):
                told = world.run(*command, *([] if "--json" in command else ["--json"]))
                self.assertEqual((told.code, told.changes), (2, {}), told)
                self.assertEqual(told.json()["outcome"], "wrong-usage")
                self.assertEqual(told.err, said(world.hidden(told.json()["message"])))

    def test_plugin_that_is_missing(self):
        world = self.small_world()
        told = world.install("--json", "--plugin", world.path("none.so"))
        self.assertEqual((told.code, told.json()["outcome"]), (3, "no-plugin"), told)


class WholeCopy(EndToEndTest):
    # Patches as the plug-in does, and then loses a letter of the first line: every line end is there.
    LOSES_A_LETTER = """
#include <fstream>
extern "C" int integrate_ndk(session_t* session) {
  const std::string file = path(get_toolchains_path(session) + "/x86-nox5.0.3.42/setup.mk");
  std::ifstream in(file);
  std::string text;
  for (std::string line; !in.fail(); ) {
    line.clear();
    std::getline(in, line);
    text += replaceAllSubstrings(line, "{INSTALL_NOX_VERSION}", "5") + "\\n";
  }
  std::ofstream(file + ".tmp") << text.substr(1);
  file_move(file + ".tmp", file);
  return 0;
}"""

    def test_letter_lost(self):
        world = self.small_world(toml=installation(NDK_INTEGRATION_ENABLED='"no"'))
        queries = """
std::string get_toolchains_path(session_t* s) {
  return path(env_get_string(s, "VORN_INSTALL_DIR") + env_get_string(s, "NDK_COMPILER_SUBDIR") +
              "/android");
}"""
        plugin = fake_plugin(
            world,
            get_toolchains_path=queries,
            check_if_ndk_integration_files_are_to_be_installed=SELECT_FIRST_COMPONENT,
            integrate_ndk=self.LOSES_A_LETTER,
        )
        told = world.install("--plugin", plugin, "-q")
        why = NOT_FILLED_IN.format(SETUP_32)
        self.assert_outcome(told, 1, err=not_done(why), kept=True)


class Status(EndToEndTest):
    def assert_status(self, world, outcome, files=None, options=(), **expected):
        command = ["status", world.path("installation.toml"), *options]
        told, found = world.run(*command), world.run(*command, "--json")
        self.assertEqual((told.code, told.err, told.changes, told.kept), (0, "", {}, {}), told)
        object = found.json()
        self.assertEqual(object["outcome"], outcome, found)
        self.assertEqual(
            {file["path"]: file["state"] for file in object["files"]},
            {f"WORLD/{file}": state for file, state in (files or {}).items()},
        )
        self.assertEqual({key: object[key] for key in expected}, expected)
        return told.out

    def test_nothing_installed(self):
        out = self.assert_status(self.small_world(), "not-installed", ndk=None, time=None)
        self.assertEqual(out, f"no installation of 5.0.3.42 is recorded in WORLD/{STORE}\n")

    def test_installed(self):
        out = self.assert_status(
            self.installed_world(), "installed", dict.fromkeys(TEMPLATES, "result"),
            ndk="WORLD/ndk", release="r11c", component="nox-ndk-5", version="5.0.3.42",
        )
        lines = ["5.0.3.42 is installed", "component: nox-ndk-5", "NDK: WORLD/ndk", "release: r11c"]
        self.assertEqual(out.splitlines()[:4], lines)
        self.assertRegex(out.splitlines()[4], r"^since: \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertEqual(
            out.splitlines()[5:], [f"WORLD/{file}: filled in" for file in sorted(TEMPLATES)]
        )

    def test_without_ndk(self):
        world = self.installed_world(DISABLED)
        files = dict.fromkeys(TEMPLATES, "result")
        self.assert_status(world, "installed", files, ndk=None, release=None)

    def test_files(self):
        world = self.installed_world()
        world.append(SETUP_64, "mine\n")
        world.write(SETUP_32, ORIGINALS[SETUP_32])
        os.remove(world.path(VARS_SH))
        states = dict(zip(TEMPLATES, ["edited", "original", "missing", "result"]))
        self.assert_status(world, "installed", states)

    def test_script_that_failed(self):
        world = self.small_world(runs="exit 1")
        world.install()
        self.assert_status(world, "unfinished", dict.fromkeys(TEMPLATES, "result"))

    def test_after_undo(self):
        world = self.installed_world()
        world.undo()
        self.assert_status(world, "not-installed")

    def test_older_manifest(self):
        """Made by a program that kept no installations."""
        world = self.installed_world()
        manifest = world.manifest()
        del manifest["installations"]
        for file in manifest["files"].values():
            del file["installations"]
        world.write(MANIFEST, json.dumps(manifest))
        self.assert_status(world, "installed", dict.fromkeys(TEMPLATES, "result"), ndk=None)
        self.assertEqual(world.undo().code, 0)


class TwoVersions(EndToEndTest):
    """In one directory; each installation knows its own files."""

    other = COMPONENT.replace("nox-ndk-5", "nox-ndk-6").replace("5.0.3", "5.1.3")

    def test_each_undone_by_itself(self):
        new = {SETUP_64: SETUP_64.replace("5.0.3", "5.1.3"), SETUP_32: SETUP_32.replace("5.0.3", "5.1.3")}
        world = self.small_world(**{file: ORIGINALS[old] for old, file in new.items()})
        before = world.tree()
        self.assertEqual(world.install().code, 0)
        world.write("installation.toml", installation(self.other))
        self.assertEqual(world.install().code, 0)
        undone = {file["path"]: file["result"] for file in world.undo("--json").json()["files"]}
        self.assertEqual(undone, {
            **{f"WORLD/{file}": "restored" for file in new.values()},
            **{f"WORLD/{file}": "shared" for file in [VARS_SH, VARS_CSH]},
        })
        world.write("installation.toml", installation())
        undone = {file["path"]: file["result"] for file in world.undo("--json").json()["files"]}
        self.assertEqual(undone, {f"WORLD/{file}": "restored" for file in TEMPLATES})
        self.assertEqual(world.tree(), before)


if __name__ == "__main__":
    unittest.main()

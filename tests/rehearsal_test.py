"""ndk-integrate install knows before it touches, end to end: all problems are named, nothing is
changed, no script runs. And what it warns of."""

import json
import os
import shutil
import unittest

from end_to_end import EndToEndTest
from messages import (
    BLANK, IS_LINK, MISLEADING, NDK, NDK_NOT_WRITABLE, NONE_GOOD, NOTHING_ASKS, NOT_ORDINARY,
    DIRECTORY_IS_LINK, NOT_WRITABLE, ON_OTHER_FILE_SYSTEM, SCRIPT_MISSING, TEMPLATE_MISSING, Stopped, bad_ndk, cannot,
    edited, judgement, no_ndk, not_done, problems, refused, said, stands_against,
)
from world import (
    ANDROID, CC, COMPONENT, DISABLED, LINUX, MANIFEST, ORIGINALS, OTHER_NDK, SCRIPT, SETUP_32,
    SETUP_64, STORE, TEMPLATES, VARS_CSH, VARS_SH, component_with, filled, installation,
    small_tree, without,
)

OPTIONAL = "--optional"
RUNS = "touch it-ran"


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
            world, TEMPLATE_MISSING.format(SETUP_64), IS_LINK.format(SETUP_32),
            NOT_ORDINARY.format(VARS_SH), SCRIPT_MISSING,
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


class Links(EndToEndTest):
    def test_link_without_integration(self):
        world = self.world({**without(small_tree(), VARS_SH), "target": "<NDK_DIR>\n"})
        world.write(VARS_SH, f"-> {world.path('target')}")
        report = stands_against(IS_LINK.format(VARS_SH), enabled=False)
        self.assert_refused(world, report, options=[DISABLED])

    def test_link_made_after_installation(self):
        world = self.installed_world()
        os.rename(world.path(VARS_SH), world.path("moved.sh"))
        world.write(VARS_SH, f"-> {world.path('moved.sh')}")
        self.assert_refused(world, stands_against(IS_LINK.format(VARS_SH)))
        # What the link points to is not this package's.
        world.undo()
        self.assertEqual(world.read("moved.sh"), "ndk='WORLD/ndk'\n\n")

    def test_linked_directory(self):
        # In the compiler's directory no link is followed, wherever it leads.
        for target in ["linux.real", "../../elsewhere"]:
            with self.subTest(target):
                world = self.small_world()
                os.rename(world.path(LINUX), world.path(os.path.join(os.path.dirname(LINUX), target)))
                world.write(LINUX, f"-> {target}")
                self.assert_refused(world, stands_against(DIRECTORY_IS_LINK.format(LINUX + "/bin")))

    @unittest.skipUnless(os.geteuid() == 0, "only root may mount")
    def test_other_file_system(self):
        # A copy could not take a template's place in one step.
        mount = 'cd "$0" && cp -a bin ../saved && mount -t tmpfs none bin && cp -a ../saved/. bin'
        mounting = ["unshare", "-m", "sh", "-c", mount + ' && rm -r ../saved && exec "$@"']
        world = self.small_world()
        outcome = world.install("-q", before=[*mounting, world.path(LINUX)])
        texts = [ON_OTHER_FILE_SYSTEM.format(file) for file in [VARS_SH, VARS_CSH]]
        self.assert_outcome(outcome, 1, err=problems(*texts), kept=True)

    def test_linked_root(self):
        world = self.small_world()
        for name in ["package", CC]:
            os.rename(world.path(name), world.path(name) + ".real")
            world.write(name, f"-> {os.path.basename(name)}.real")
        self.assertEqual(world.install().code, 0)
        self.assertEqual({file: "644 " + world.read(file) for file in TEMPLATES}, filled())
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)


class WrongVersion(EndToEndTest):
    """Exit code 2, with the line, and nothing else happens."""

    def test_of_the_compiler(self):
        what = {
            "version": "expected three numbers joined by dots, such as \"5.0.3\"",
            "package_number": "expected a number, such as \"42\"",
            "subdir": "expected one without '..' as a part: it would leave the compiler's "
            "directory",
        }
        for key, value, line in [
            ("version", "v7.1.0", 10), ("version", "7.1", 10), ("version", "1.2.3.4", 10),
            ("version", "", 10), ("version", "1..2", 10), ("version", "1.2.3 ", 10),
            ("version", "1.2.9999999999", 10), ("package_number", "", 11),
            ("package_number", "42/../../../elsewhere", 11), ("package_number", "4x", 11),
            ("subdir", "/../cc", 12),
        ]:
            with self.subTest(key=key, value=value):
                component = component_with(key, f'"{value}"')
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
             f"no placeholder was found in the template WORLD/{VARS_SH}; nothing is filled in "
             "there"),
            ("another file's placeholder", [], {VARS_SH: "<NDK_DIR> {INSTALL_NOX_VERSION}\n"},
             f"WORLD/{VARS_SH} still holds {{INSTALL_NOX_VERSION}} afterwards, which nothing fills "
             "in there"),
            ("a misspelt placeholder", [], {SETUP_64: ORIGINALS[SETUP_64] + "{INSTALL_NOX_X"},
             f"WORLD/{SETUP_64} still holds {{INSTALL_ afterwards, which nothing fills in there"),
            ("Yes", ["--set=NDK_INTEGRATION_ENABLED=Yes"], {}, MISLEADING.format("Yes")),
            ("true", ["--set=NDK_INTEGRATION_ENABLED=true"], {}, MISLEADING.format("true")),
            ("a blank in the path", ["--ndk", "world/other ndk"], OTHER_NDK,
             BLANK.format("WORLD/other ndk")),
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
        tree = small_tree(installation(NDK_PATH='"ndk"', NDK_SUPPORTED_VERSIONS='"r10e;r21e"'))
        other = "r11c (11.2.2725575) is not among r10e, r21e"
        for changed, *judged in [
            (without(tree, "ndk/ndk-build"), "nok", "no-launcher",
             "has neither ndk-build nor ndk-build.cmd"),
            (tree, "unsupported", "unsupported-release", other),
            ({**tree, "ndk/": (0o555, "")}, "notwritable", "not-writable", NDK_NOT_WRITABLE),
        ]:
            with self.subTest(judged):
                report = no_ndk(bad_ndk(judged[-1]), candidates=[judgement(NDK, *judged)])
                user = {"unprivileged": "not-writable" in judged}
                self.assert_refused(self.world(changed), report, options=[OPTIONAL], **user)
        world = self.small_world()
        report = no_ndk(bad_ndk("no such directory", "WORLD/none"))
        outcome = world.install(OPTIONAL, "--ndk", world.path("none"))
        self.assert_told(report, outcome, kept=True)

    def test_system_that_fails(self):
        world = self.world({**without(small_tree(), "ndk/ndk-build"), "loop": "-> loop"})
        told = world.install(OPTIONAL, f"--set=NDK_DEFAULT_SEARCH_PATH_LINUX={world.path('loop')}")
        why = "no NDK was found: WORLD/loop: cannot be read: too many levels of symbolic links"
        self.assert_outcome(told, 1, err=not_done(why), kept=True)


class WrongUsage(EndToEndTest):
    def test_both_forms(self):
        world = self.small_world("[session]\nX = 1\n")
        variables = "NDK_PATH, NDK_DEFAULT_SEARCH_PATH_LINUX, NDK_SUPPORTED_VERSIONS, "
        variables += "NDK_INTEGRATION_ENABLED, NDK_COMPONENT_PATTERNS, VORN_INSTALL_DIR"
        wrong = f"unknown key 'X' in [session], expected one of {variables}"
        not_there = cannot("read", "none", "No such file or directory")
        for command, message in [
            (["install"], "INSTALLATION.toml is missing; see ndk-integrate install --help"),
            (["undo", "a", "--x"],
             "unknown option '--x'; see ndk-integrate undo --help"),
            (["status", world.path("none")], not_there),
            (["install", world.path("installation.toml")], f"WORLD/installation.toml:2: {wrong}"),
            (["nonsense"], "unknown command 'nonsense'; see ndk-integrate --help"),
        ]:
            with self.subTest(command):
                told = [world.run(*command, *form) for form in [[], ["--json"]]]
                self.assert_told(Stopped(message), *told, kept=True)


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
        self.assert_status(world, "incomplete", states)
        world.write(SETUP_32, ORIGINALS[SETUP_32] + "other edition\n")
        world.write(VARS_SH, "mine\n")
        states = dict(zip(TEMPLATES, ["edited", "reinstalled", "edited", "result"]))
        out = self.assert_status(world, "incomplete", states)
        self.assertEqual(
            out.splitlines()[0],
            "5.0.3.42 was installed, but it is not whole any more (files missing or not filled in: 1 of "
            "4); install it again, where the compiler package is whole, or undo it",
        )

    def test_edited_files_are_installed(self):
        world = self.installed_world()
        world.append(SETUP_64, "mine\n")
        states = dict(zip(TEMPLATES, ["edited", *["result"] * 3]))
        self.assert_status(world, "installed", states)

    def test_compiler_that_was_removed(self):
        world = self.installed_world()
        for name in ANDROID, LINUX:
            shutil.rmtree(world.path(name))
        self.assert_status(world, "incomplete", dict.fromkeys(TEMPLATES, "missing"), ndk="WORLD/ndk")

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


if __name__ == "__main__":
    unittest.main()

"""ndk-integrate install, end to end: the real program and the real plug-in on real files."""

import os
import unittest

from end_to_end import EndToEndTest
from examples import ExampleWorld
from messages import (
    ALL_IN_PLACE, BLANK, LOG_NOT_WHOLE, LOG_OF_CHOICE, MISLEADING, TEMPLATE_MISSING, Install, bad_ndk,
    begin_of_run, cannot_open_log, disabled, log, log_of_good_ndk, log_of_install, log_of_ndk,
    log_of_script, log_of_search, stands_against, told_log,
)
from world import (
    COMPONENT, DISABLED, KEPT, SCRIPT, TEMPLATES, VARS_CSH, VARS_SH, filled, installation,
    small_tree, without,
)

TOOLCHAINS = ["x86_64-nox5.0.3.42", "x86-nox5.0.3.42"]


def with_ndk(**changes):
    """An installation.toml for an NDK that is known beforehand."""
    return installation(**{"NDK_DEFAULT_SEARCH_PATH_LINUX": None, "NDK_PATH": '"ndk"', **changes})


class ExampleInstallation(EndToEndTest):
    """The example, once in an ordinary place and once where every path holds a blank."""

    name = "world"
    moves = []
    warnings = []
    ndk = "ndk/android-ndk-r11c"
    android = "package/compiler/android"
    linux = "package/compiler/compilers_and_libraries_2005.3.42/linux"

    def test_outcome(self):
        world = self.enterContext(ExampleWorld(self.name))
        toml = world.read("installation.toml")
        for old, new, quoted, quoted_new in self.moves:
            os.rename(world.path(old), world.path(new))
            toml = toml.replace(quoted, quoted_new)
        world.write("installation.toml", toml)
        expected = {f"{os.path.dirname(self.android)}/{KEPT}": "700 /"}
        definitions = [f"{self.android}/{name}/setup.mk" for name in TOOLCHAINS]
        scripts = [f"{self.linux}/bin/compilervars_arch.{shell}" for shell in ["sh", "csh"]]
        before = world.tree()
        for name, file in zip(TOOLCHAINS, definitions):
            text = before[file].replace("{INSTALL_NOX_INSTALLDIR}", f"WORLD/{self.linux}")
            expected[file] = text.replace("{INSTALL_NOX_VERSION}", "5.0.3.42") + "\n\n"
            installed = f"{self.ndk}/build/core/toolchains/{name}"
            expected[installed] = "755 /"
            expected[f"{installed}/setup.mk"] = expected[file]
            expected[f"{installed}/config.mk"] = before[f"{self.android}/{name}/config.mk"]
        for file in scripts:
            expected[file] = before[file].replace("<NDK_DIR>", f"WORLD/{self.ndk}") + "\n"
        installed = f"installed WORLD/{self.ndk}/build/core/toolchains"
        printed = [f"{installed}/{name}\n" for name in TOOLCHAINS]
        report = Install(
            ndk=f"WORLD/{self.ndk}",
            component="nox-ndk-compiler-5.0.3",
            warnings=self.warnings,
            files=dict(zip([*definitions, *scripts], [6, 6, 1, 1])),
            printed="".join(printed),
        )
        self.assert_told(report, world.install(), changed=expected)


class ExampleInstallationWithBlanks(ExampleInstallation):
    name = "a world  with blanks"
    moves = [
        ("ndk/android-ndk-r11c", "ndk/android ndk r11c",
         '"ndk/android-ndk-r11c"', '"the NDK/android ndk r11c"'),
        ("package/compiler", "package/a compiler", '"/compiler"', '"/a compiler"'),
        ("ndk", "the NDK", "", ""),
        ("package", "the package", '"package"', '"the package"'),
    ]
    ndk = "the NDK/android ndk r11c"
    warnings = [BLANK.format(f"WORLD/{ndk}")]
    android = "the package/a compiler/android"
    linux = "the package/a compiler/compilers_and_libraries_2005.3.42/linux"


class WholeInstallation(EndToEndTest):
    def test_lines_and_json(self):
        worlds = [self.small_world(), self.small_world(), self.small_world()]
        outcomes = [
            worlds[0].install(), worlds[1].install("--json"), worlds[2].install("--json", "-q")
        ]
        self.assert_told(Install(), *outcomes, changed=filled(first=True))

    def test_quiet(self):
        outcome = self.small_world().install("-q")
        self.assert_outcome(outcome, out=Install().result(), changed=filled(first=True))

    def test_relative_file(self):
        world = self.small_world()
        outcome = world.run("install", "installation.toml", cwd=world.dir)
        self.assert_told(Install(), outcome, changed=filled(first=True))

    def test_leftover_tmp_file(self):
        # Files are patched elsewhere, so this one is in nobody's way.
        leftovers = {VARS_SH + ".tmp": "left by an earlier run\n"}
        for leftover in [leftovers, *({f"{file}.tmp/": ""} for file in TEMPLATES)]:
            with self.subTest(leftover):
                self.assert_installs(self.world({**small_tree(), **leftover}))

    def test_linked_installation_file(self):
        link = {"real/i.toml": installation(), "installation.toml": "-> real/i.toml"}
        self.assert_installs(self.world({**small_tree(), **link}))


class GoodNdk(EndToEndTest):
    """What is told where none is good: rehearsal_test.py."""

    def test_preset(self):
        no_launcher = without(small_tree(with_ndk()), "ndk/ndk-build")
        for tree in [
            small_tree(with_ndk()),
            {**no_launcher, "ndk/ndk-build.cmd": ""},
            small_tree(with_ndk(NDK_DEFAULT_SEARCH_PATH_LINUX='"other"')),
        ]:
            self.assert_installs(self.world(tree))

    def test_not_writable_passed_over(self):
        tree = small_tree(installation(NDK_DEFAULT_SEARCH_PATH_LINUX='["first", "ndk"]'))
        properties = "Pkg.Revision = 11.2.2725575\n"
        tree.update({"first/ndk-build": "", "first/source.properties": properties})
        world = self.world({**tree, "first/": (0o555, "")})
        self.assert_installs(world, unprivileged=True)


class IntegrationDisabled(EndToEndTest):
    def test_values(self):
        for value in ['"no"', '"Yes"', '"yes "', '""', "[]", None]:
            with self.subTest(value):
                world = self.small_world(installation(NDK_INTEGRATION_ENABLED=value))
                misleading = [MISLEADING.format(value.strip('"'))] if "es" in str(value) else []
                self.assert_installs(world, report=disabled(warnings=misleading))

    def test_no_usable_ndk(self):
        off = {"NDK_INTEGRATION_ENABLED": '"no"'}
        other = {"ndk/source.properties": "Pkg.Revision = 21.4.7075529\n"}
        none = small_tree(installation(NDK_DEFAULT_SEARCH_PATH_LINUX=None, **off))
        preset = {**small_tree(with_ndk(**off)), **other}
        not_asked = bad_ndk("r21e (21.4.7075529) is not among r11b, r11c")
        not_there = bad_ndk("no such directory", "TOP/none")
        for case, tree, options, warnings in [
            ("none found", none, [], []),
            ("preset", preset, [], [not_asked]),
            ("--ndk", none, ["--ndk", "none"], [not_there]),
        ]:
            with self.subTest(case):
                changed = filled("", first=True)
                outcomes = [self.world(tree).install(*options, *form) for form in [[], ["--json"]]]
                self.assert_told(disabled(ndk="", warnings=warnings), *outcomes, changed=changed)

    def test_no_script(self):
        world = self.world(without(small_tree(), SCRIPT))
        self.assert_installs(world, DISABLED, report=disabled())

    def test_log(self):
        text = log_of_search() + LOG_OF_CHOICE
        text += log("integrate_ndk()", "integrate_ndk(): integration disabled")
        world = self.small_world(installation(NDK_INTEGRATION_ENABLED='"no"'))
        self.assert_installs(world, "-v", report=disabled(), log=text)


class ComponentSelection(EndToEndTest):
    def test_first_of_several(self):
        other = COMPONENT.replace("nox-ndk-5", "ndk-free").replace("5.0.3", "9.9.9")
        last = COMPONENT.replace("nox-ndk-5", "last-ndk-one").replace("5.0.3", "8.8.8")
        self.assert_installs(self.small_world(installation(other + COMPONENT + last)))


class InstallationLog(EndToEndTest):
    def test_on_standard_error(self):
        for form in [[], ["--json"]]:
            self.assert_installs(self.small_world(), "-v", *form, log=log_of_install())

    def test_in_a_file(self):
        options = ["installation.toml", "--log", "install.log"]
        for before, log in [([], ""), (["-v"], log_of_install())]:
            world = self.small_world()
            outcome = world.run(*before, "install", *options, cwd=world.dir)
            del outcome.changes["install.log"]
            self.assert_told(Install(), outcome, changed=filled(first=True), log=log)
            run = begin_of_run(" ".join(["PROGRAM", *before, "install", *options]))
            self.assertMultiLineEqual(told_log(world), run + log_of_install())

    def test_command_line(self):
        world = self.world()
        world.run("--log", "install.log", "check", "", "it's\n a %s", cwd=world.dir)
        self.assertFalse(os.path.exists(world.path("install.log")))
        world.run("--log", "install.log", "check", "it's\n a %s", cwd=world.dir)
        run = begin_of_run(r"PROGRAM --log install.log check 'it'\''s\n a %s'")
        self.assertEqual(told_log(world).splitlines(True)[0], run)

    def test_appended(self):
        world = self.world({**small_tree(), "install.log": "an older line\n"})
        world.install("--log", world.path("install.log"))
        world.install("--log", world.path("install.log"))
        run = begin_of_run("PROGRAM install WORLD/installation.toml --log WORLD/install.log")
        expected = "an older line\n" + (run + log_of_install()) * 2
        self.assertMultiLineEqual(told_log(world), expected)

    def test_several_candidates(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX='["a", "b", "c", "ndk"]')
        world = self.world({
            **small_tree(toml),
            "a/ndk-build": "",
            "b/ndk-build": "",
            "b/source.properties": "Pkg.Revision=11\n",
            "c/ndk-build": "",
            "c/source.properties": "Pkg.Revision = 21.4.7075529\r\n",
        })
        unsupported = (
            "is_ndk_version_supported(): '{}' version is not supported, supported versions are "
            "'r11b;r11c'. Returning false"
        )
        a = log_of_ndk(
            "WORLD/a", "is_ndk_dir(): could not found file: source.properties, returning false"
        )
        b = log_of_ndk(
            "WORLD/b",
            ALL_IN_PLACE,
            "get_version(): detected full revision: '11'",
            "get_version(): ERROR! source.properties contains version in unknown format",
            unsupported.format("r-1"),
        )
        c = log_of_ndk(
            "WORLD/c",
            ALL_IN_PLACE,
            "get_version(): detected full revision: '21.4.7075529'",
            "get_version(): detected version is 'r21e''",
            unsupported.format("r21e"),
        )
        search = log_of_search(("WORLD/a", a), ("WORLD/b", b), ("WORLD/c", c))
        self.assert_installs(world, "-v", log=search + LOG_OF_CHOICE + log_of_script())

    def test_of_preset_ndk(self):
        world = self.small_world()
        text = log_of_good_ndk() + LOG_OF_CHOICE + log_of_script()
        self.assert_installs(world, "--ndk", world.path("ndk"), "-v", log=text)

    def test_missing_template(self):
        world = self.world(without(small_tree(), VARS_CSH))
        error = f"ERROR: patch_text_file: cannot open input stream of file WORLD/{VARS_CSH}\n"
        report = stands_against(TEMPLATE_MISSING.format(VARS_CSH))
        self.assert_told(report, world.install("-v"), log=log_of_install("") + error, kept=True)

    def test_not_to_be_opened(self):
        world = self.small_world()
        for name, err in [
            ("not there/install.log", cannot_open_log("WORLD/not there/install.log")),
            ("", cannot_open_log("WORLD", "Is a directory")),
        ]:
            outcome = world.install("--log", world.path(name))
            self.assert_outcome(outcome, code=2, err=err, kept=True)

    def test_full_disk(self):
        outcome = self.small_world().install("--log", "/dev/full")
        out = Install().out()
        self.assert_outcome(outcome, out=out, err=LOG_NOT_WHOLE, changed=filled(first=True))


if __name__ == "__main__":
    unittest.main()

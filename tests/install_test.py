"""ndk-integrate install, end to end: the real program and the real plug-in on real files."""

import os
import subprocess
import unittest

from ndk_integrate_world import (
    BEFORE_SCRIPT_OUTPUT,
    COMPONENT,
    COMPONENT_LINE,
    DONE_LINE,
    FAKE_PLUGIN,
    FILLED_LINES,
    KEPT,
    KEPT_HERE,
    LIBRARY,
    LINUX,
    NDK_LINES,
    SCRIPT,
    SCRIPT_LINE,
    SETUP_32,
    SETUP_64,
    VARS_CSH,
    VARS_SH,
    WHOLE_INSTALLATION,
    EndToEndTest,
    World,
    example_world,
    fake_plugin,
    installation,
    log_text,
    package_filled,
    setup_filled,
    shared_library,
    small_tree,
    throwing_plugin,
    without,
)

NDK = "ndk/android-ndk-r11c"
EXAMPLE_LINUX = "package/compiler/compilers_and_libraries_2005.3.42/linux"
TOOLCHAINS = ["x86_64-nox5.0.3.42", "x86-nox5.0.3.42"]
NOT_DONE = "ndk-integrate: not done: "

NOTHING_SELECTED = (
    NOT_DONE
    + "no selected component asks for the NDK integration: none has one of -ndk- in its id\n"
)


def output_of(*command, **how):
    return subprocess.run(
        command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=True, **how
    ).stdout


def with_ndk(**changes):
    """An installation.toml for an NDK that is known beforehand."""
    return installation(NDK_DEFAULT_SEARCH_PATH_LINUX=None, NDK_PATH='"ndk"', **changes)


def script_lines(*lines):
    return "".join(f"script printed: {line}\n" for line in lines)


class ExampleInstallation(EndToEndTest):
    """The example, once in an ordinary place and once where every path holds a blank."""

    @classmethod
    def setUpClass(cls):
        # One installation, and many tests that only look at what it left behind.
        cls.world = cls.example()
        cls.before = cls.world.tree()
        cls.outcome = cls.world.install()

    @classmethod
    def example(cls):
        return example_world(cls)

    ndk = NDK
    linux = EXAMPLE_LINUX
    android = "package/compiler/android"

    def test_outcome(self):
        compiler = f"WORLD/{self.linux}"
        expected = {f"{os.path.dirname(self.android)}/{KEPT}": "755 /"}
        for name in TOOLCHAINS:
            file = f"{self.android}/{name}/setup.mk"
            filled = self.before[file].replace("{INSTALL_NOX_INSTALLDIR}", compiler)
            expected[file] = filled.replace("{INSTALL_NOX_VERSION}", "5.0.3.42") + "\n\n"
            installed = f"{self.ndk}/build/core/toolchains/{name}"
            expected[installed] = "755 /"
            expected[f"{installed}/setup.mk"] = expected[file]
            expected[f"{installed}/config.mk"] = self.before[f"{self.android}/{name}/config.mk"]
        for shell in ["sh", "csh"]:
            file = f"{self.linux}/bin/compilervars_arch.{shell}"
            expected[file] = self.before[file].replace("<NDK_DIR>", f"WORLD/{self.ndk}") + "\n"
        out = f"""\
NDK: WORLD/{self.ndk}
release: r11c (11.2.2725575)
component: nox-ndk-compiler-5.0.3 (version 5.0.3, package number 42)
filled in: WORLD/{self.android}/x86_64-nox5.0.3.42/setup.mk (6 placeholders)
filled in: WORLD/{self.android}/x86-nox5.0.3.42/setup.mk (6 placeholders)
filled in: WORLD/{self.linux}/bin/compilervars_arch.sh (1 placeholder)
filled in: WORLD/{self.linux}/bin/compilervars_arch.csh (1 placeholder)
script: ./ndk_integration.sh "WORLD/{self.ndk}" --force
script printed: installed WORLD/{self.ndk}/build/core/toolchains/x86_64-nox5.0.3.42
script printed: installed WORLD/{self.ndk}/build/core/toolchains/x86-nox5.0.3.42
done: the compiler is integrated into WORLD/{self.ndk}
"""
        self.assert_outcome(self.outcome, out=out, changed=expected)

    def test_make(self):
        for name in TOOLCHAINS:
            with self.subTest(name):
                makefile = (
                    "include setup.mk\n"
                    "$(info $(NOX_INSTALLDIR)/bin)\n"
                    "$(info $(NOX_VERSION))\n"
                    "all:\n\t@$(TARGET_CC) --version\n\t@$(TARGET_CXX) --version\n"
                )
                printed = output_of(
                    "make",
                    "--no-print-directory",
                    "-f",
                    "-",
                    cwd=self.world.path(f"{self.ndk}/build/core/toolchains/{name}"),
                    input=makefile,
                )
                self.assertEqual(
                    self.world.hidden(printed),
                    f"WORLD/{self.linux}/bin\n5.0.3.42\nnoxcc 5.0.3.42\nnoxc++ 5.0.3.42\n",
                )

    def test_sh(self):
        file = self.world.path(f"{self.linux}/bin/compilervars_arch.sh")
        script = '. "$1"; echo "$ANDROID_NDK"; command -v ndk-build'
        printed = output_of("sh", "-c", script, "sh", file)
        self.assertEqual(
            self.world.hidden(printed), f"WORLD/{self.ndk}\nWORLD/{self.ndk}/ndk-build\n"
        )

    def test_csh(self):
        file = self.world.path(f"{self.linux}/bin/compilervars_arch.csh")
        printed = output_of(
            "csh",
            "-f",
            "-c",
            'source "$VARS"; echo "$ANDROID_NDK"; which ndk-build',
            env={**os.environ, "VARS": file},
        )
        self.assertEqual(
            self.world.hidden(printed), f"WORLD/{self.ndk}\nWORLD/{self.ndk}/ndk-build\n"
        )


class ExampleInstallationWithBlanks(ExampleInstallation):
    ndk = "the NDK/android ndk r11c"
    android = "the package/a compiler/android"
    linux = "the package/a compiler/compilers_and_libraries_2005.3.42/linux"

    @classmethod
    def example(cls):
        world = example_world(cls, name="a world  with blanks")
        os.rename(world.path(NDK), world.path("ndk/android ndk r11c"))
        os.rename(world.path("package/compiler"), world.path("package/a compiler"))
        os.rename(world.path("ndk"), world.path("the NDK"))
        os.rename(world.path("package"), world.path("the package"))
        toml = world.read("installation.toml")
        for old, new in [
            ('"ndk/android-ndk-r11c"', '"the NDK/android ndk r11c"'),
            ('"/compiler"', '"/a compiler"'),
            ('"package"', '"the package"'),
        ]:
            assert old in toml, old
            toml = toml.replace(old, new)
        world.write("installation.toml", toml)
        return world


class WholeInstallation(EndToEndTest):
    def test_absolute_file(self):
        world = World(self, small_tree())
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_relative_file(self):
        world = World(self, small_tree())
        outcome = world.run("install", "installation.toml", cwd=world.dir)
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=package_filled())

    def test_relative_file_elsewhere(self):
        world = World(self, {**small_tree(), "elsewhere/": ""})
        outcome = world.run(
            "install", "../../world/./installation.toml", cwd=world.path("elsewhere")
        )
        here = "WORLD/elsewhere/../../world/."
        out = WHOLE_INSTALLATION.replace("WORLD", here)
        changed = package_filled(f"{here}/ndk")
        for file in [SETUP_64, SETUP_32]:
            changed[file] = changed[file].replace("WORLD", here)
        self.assert_outcome(outcome, out=out, changed=changed)

    def test_second_run(self):
        world = World(self, small_tree())
        world.install()
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION)

    def test_modes_kept(self):
        world = World(self, small_tree())
        changed = package_filled()
        modes = {SETUP_64: "600", SETUP_32: "444", VARS_SH: "755", VARS_CSH: "664"}
        for file, mode in modes.items():
            os.chmod(world.path(file), int(mode, 8))
            changed[file] = mode + changed[file].removeprefix("644")
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=changed)

    def test_leftover_tmp_file(self):
        # Files are patched elsewhere, so this one is in nobody's way.
        world = World(self, {**small_tree(), VARS_SH + ".tmp": "left by an earlier run\n"})
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_leftover_tmp_directory(self):
        for file in [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]:
            with self.subTest(file):
                world = World(self, {**small_tree(), f"{file}.tmp/": ""})
                self.assert_outcome(
                    world.install(), out=WHOLE_INSTALLATION, changed=package_filled()
                )

    def test_linked_installation_file(self):
        world = World(self, {**without(small_tree(), "installation.toml"), "real/": ""})
        world.write("real/i.toml", installation())
        os.symlink("real/i.toml", world.path("installation.toml"))
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())


class NdkPreset(EndToEndTest):
    """NDK_PATH known beforehand."""

    def assert_stops(self, world, why, **how):
        err = f"{NOT_DONE}NDK_PATH is WORLD/ndk, but {why}; -v shows what was found there\n"
        self.assert_outcome(world.install(**how), code=1, err=err)

    def test_good(self):
        world = World(self, small_tree(toml=with_ndk()))
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_windows_launcher_only(self):
        tree = without(small_tree(toml=with_ndk()), "ndk/ndk-build")
        world = World(self, {**tree, "ndk/ndk-build.cmd": ""})
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_search_path_ignored(self):
        toml = installation(NDK_PATH='"ndk"', NDK_DEFAULT_SEARCH_PATH_LINUX='"other"')
        world = World(self, small_tree(toml=toml))
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_no_ndk(self):
        world = World(self, without(small_tree(toml=with_ndk()), "ndk/ndk-build"))
        self.assert_stops(world, "it is no NDK directory")

    def test_missing_directory(self):
        tree = without(small_tree(toml=with_ndk()), "ndk/ndk-build", "ndk/source.properties")
        self.assert_stops(World(self, tree), "it is no NDK directory")

    def test_unsupported_release(self):
        world = World(self, small_tree(toml=with_ndk(NDK_SUPPORTED_VERSIONS='["r10e", "r21e"]')))
        self.assert_stops(world, "its release is not among NDK_SUPPORTED_VERSIONS")

    def test_unknown_release(self):
        world = World(self, small_tree(toml=with_ndk()))
        world.write("ndk/source.properties", "Pkg.Revision=11\n")
        self.assert_stops(world, "its release is not among NDK_SUPPORTED_VERSIONS")

    def test_not_writable(self):
        world = World(self, small_tree(toml=with_ndk()))
        os.chmod(world.path("ndk"), 0o555)
        self.assert_stops(
            world, "it is an NDK, but you may not write there", unprivileged=True
        )


class NdkSearched(EndToEndTest):
    """NDK_PATH found by a search."""

    def test_none(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX='["not there", "package"]')
        err = (
            f"{NOT_DONE}no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX "
            "(WORLD/not there;WORLD/package) is a writable NDK of a supported release (r11b;r11c); "
            "-v shows what was found in each\n"
        )
        self.assert_outcome(World(self, small_tree(toml=toml)).install(), code=1, err=err)

    def test_not_writable_passed_over(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX='["first", "ndk"]')
        world = World(self, small_tree(toml=toml))
        world.write("first/ndk-build", "")
        world.write("first/source.properties", "Pkg.Revision = 11.2.2725575\n")
        os.chmod(world.path("first"), 0o555)
        self.assert_outcome(
            world.install(unprivileged=True), out=WHOLE_INSTALLATION, changed=package_filled()
        )

    def test_empty_list(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX="[]", NDK_SUPPORTED_VERSIONS='"r11c"')
        outcome = World(self, small_tree(toml=toml)).install()
        err = (
            f"{NOT_DONE}no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX "
            "() is a writable NDK of a supported release (r11c); -v shows what was found in each\n"
        )
        self.assert_outcome(outcome, code=1, err=err)


class IntegrationDisabled(EndToEndTest):
    done = "done: the compiler is installed without NDK integration\n"

    def test_values(self):
        for value in ['"no"', '"Yes"', '"yes "', '""', "[]", None]:
            with self.subTest(value):
                world = World(self, small_tree(toml=installation(NDK_INTEGRATION_ENABLED=value)))
                out = NDK_LINES + COMPONENT_LINE + FILLED_LINES + self.done
                self.assert_outcome(world.install(), out=out, changed=package_filled(ndk=""))

    def test_no_ndk_found(self):
        toml = installation(NDK_INTEGRATION_ENABLED='"no"', NDK_DEFAULT_SEARCH_PATH_LINUX=None)
        out = (
            "NDK: none, and none needed: integration is disabled\n"
            + COMPONENT_LINE
            + FILLED_LINES
            + self.done
        )
        self.assert_outcome(
            World(self, small_tree(toml=toml)).install(), out=out, changed=package_filled(ndk="")
        )

    def test_preset_ndk_unusable(self):
        world = World(self, small_tree(toml=with_ndk(NDK_INTEGRATION_ENABLED='"no"')))
        world.write("ndk/source.properties", "Pkg.Revision = 21.4.7075529\n")
        out = (
            "NDK: none, and none needed: integration is disabled\n"
            + COMPONENT_LINE
            + FILLED_LINES
            + self.done
        )
        self.assert_outcome(world.install(), out=out, changed=package_filled(ndk=""))

    def test_no_script(self):
        tree = without(small_tree(toml=installation(NDK_INTEGRATION_ENABLED='"no"')), SCRIPT)
        out = NDK_LINES + COMPONENT_LINE + FILLED_LINES + self.done
        self.assert_outcome(World(self, tree).install(), out=out, changed=package_filled(ndk=""))

    def test_log(self):
        world = World(self, small_tree(toml=installation(NDK_INTEGRATION_ENABLED='"no"')))
        begin = log_text().partition("NDK_INTEGRATION: integrate_ndk(): ")[0]
        self.assert_outcome(
            world.install("-v"),
            out=NDK_LINES + COMPONENT_LINE + FILLED_LINES + self.done,
            err=begin + "NDK_INTEGRATION: integrate_ndk(): integration disabled\n",
            changed=package_filled(ndk=""),
        )


class ComponentSelection(EndToEndTest):
    def test_nothing_selected(self):
        for case, components in {
            "no component": "",
            "not selected": COMPONENT + "selected = false\n",
            "not to be installed": COMPONENT + "install_condition = false\n",
            "selected only": COMPONENT + "install_condition = false\nselected = true\n",
            "to be installed only": COMPONENT + "install_condition = true\nselected = false\n",
            "other letter case": COMPONENT.replace("-ndk-", "-NDK-"),
        }.items():
            with self.subTest(case):
                world = World(self, small_tree(toml=installation(components)))
                self.assert_outcome(world.install(), code=1, out=NDK_LINES, err=NOTHING_SELECTED)

    def test_nothing_selected_without_integration(self):
        toml = installation("", NDK_INTEGRATION_ENABLED='"no"')
        world = World(self, small_tree(toml=toml))
        self.assert_outcome(world.install(), code=1, out=NDK_LINES, err=NOTHING_SELECTED)

    def test_trailing_separator_in_patterns(self):
        toml = installation(COMPONENT.replace("-ndk-", "-"), NDK_COMPONENT_PATTERNS='"-ndk-;"')
        world = World(self, small_tree(toml=toml))
        err = NOTHING_SELECTED.replace("-ndk-", "-ndk-;")
        self.assert_outcome(world.install(), code=1, out=NDK_LINES, err=err)

    def test_first_of_several(self):
        other = COMPONENT.replace("nox-ndk-5", "ndk-free").replace("5.0.3", "9.9.9")
        last = COMPONENT.replace("nox-ndk-5", "last-ndk-one").replace("5.0.3", "8.8.8")
        world = World(self, small_tree(toml=installation(other + COMPONENT + last)))
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_version_of_two_numbers(self):
        toml = installation(COMPONENT.replace("5.0.3", "5.0"))
        linux = "package/cc/compilers_and_libraries_/linux"
        setup_64, setup_32 = (file.replace("5.0.3.42", "5.0.42") for file in (SETUP_64, SETUP_32))
        outcome = World(self, small_tree(toml=toml)).install()
        out = (
            NDK_LINES
            + f"""\
component: nox-ndk-5 (version 5.0, package number 42)
missing: WORLD/{setup_64}
missing: WORLD/{setup_32}
missing: WORLD/{linux}/bin/compilervars_arch.sh
missing: WORLD/{linux}/bin/compilervars_arch.csh
"""
            + SCRIPT_LINE
            + script_lines("ran with WORLD/ndk --force")
        )
        err = (
            f"{NOT_DONE}the template WORLD/{setup_64} is missing: "
            "is the compiler package installed there whole?\n"
        )
        self.assert_outcome(outcome, code=1, out=out, err=err, changed={KEPT_HERE: "755 /"})


class IntegrationScript(EndToEndTest):
    def run_script(self, script, *arguments, **how):
        self.world = World(self, small_tree(script=script))
        return self.world.install(*arguments, **how)

    could_not_run = " (is it there, beside the toolchain definitions, and executable?)"

    def assert_done(self, outcome, *lines):
        out = BEFORE_SCRIPT_OUTPUT + script_lines(*lines) + DONE_LINE
        self.assert_outcome(outcome, out=out, changed=package_filled())

    def assert_failed(self, outcome, status, *lines, changed=None, hint=""):
        self.assert_outcome(
            outcome,
            code=1,
            out=BEFORE_SCRIPT_OUTPUT + script_lines(*lines) + f"script exit status: {status}\n",
            err=f"{NOT_DONE}the integration script failed with exit status {status}{hint}: "
            './ndk_integration.sh "WORLD/ndk" --force\n',
            changed={**package_filled(), **(changed or {})},
        )

    def test_exit_status_7(self):
        self.assert_failed(self.run_script("echo no room\nexit 7"), 7, "no room")

    def test_silent(self):
        self.assert_done(self.run_script("exit 0"))

    def test_signal(self):
        # A shell says nothing about this signal.
        self.assert_failed(self.run_script("echo here\nkill -PIPE $$"), 141, "here")

    def test_missing(self):
        outcome = World(self, without(small_tree(), SCRIPT)).install()
        line = "/bin/sh: 1: ./ndk_integration.sh: not found"
        self.assert_failed(outcome, 127, line, hint=self.could_not_run)

    def test_not_executable(self):
        world = World(self, small_tree())
        os.chmod(world.path(SCRIPT), 0o644)
        line = "/bin/sh: 1: ./ndk_integration.sh: Permission denied"
        self.assert_failed(world.install(), 126, line, hint=self.could_not_run)

    def test_both_outputs_in_order(self):
        outcome = self.run_script("echo one\necho two >&2\necho three\nprintf 'four' >&2")
        self.assert_done(outcome, "one", "two", "three", "four")

    def test_empty_lines(self):
        outcome = self.run_script("printf '\\none\\n\\n\\ntwo\\n\\n'")
        self.assert_done(outcome, "", "one", "", "", "two", "")

    def test_standard_input_empty(self):
        self.assert_done(self.run_script("cat\necho end of input"), "end of input")

    def test_working_directory(self):
        self.assert_done(self.run_script("pwd"), "WORLD/package/cc/android")

    def test_one_megabyte(self):
        outcome = self.run_script("head -c 1000000 /dev/zero | tr '\\0' x")
        self.assert_done(outcome, "x" * 1000000)

    def test_control_characters(self):
        outcome = self.run_script(r"printf 'red \033[31m\r\n\ta\000b\177 caf\303\251\n'")
        self.assert_done(outcome, r"red \x1b[31m\r", r"\ta\x00b\x7f café")

    def test_control_characters_in_log(self):
        outcome = self.run_script(r"printf 'red \033[31m\r\n\tb\177 caf\303\251\n'", "-v")
        self.assert_outcome(
            outcome,
            out=BEFORE_SCRIPT_OUTPUT
            + script_lines(r"red \x1b[31m\r", r"\tb\x7f café")
            + DONE_LINE,
            err=log_text(r"red \x1b[31m\r\n\tb\x7f café\n"),
            changed=package_filled(),
        )

    def test_percent_signs_in_log(self):
        outcome = self.run_script("echo 100%s%n", "-v")
        self.assert_outcome(
            outcome,
            out=BEFORE_SCRIPT_OUTPUT + script_lines("100%s%n") + DONE_LINE,
            err=log_text("100%s%n\\n"),
            changed=package_filled(),
        )

    def test_log_file_not_inherited(self):
        script = 'for fd in /proc/$$/fd/*; do readlink "$fd"; done | grep the.log\nexit 0'
        outcome = self.run_script(script, "--log", "the.log")
        self.assert_done(outcome)

    def test_child_signals_ignored(self):
        # As under a parent that lets the system collect its children.
        outcome = self.run_script("exit 7", before=["env", "--ignore-signal=CHLD"])
        self.assert_failed(outcome, 7)


class Templates(EndToEndTest):
    @staticmethod
    def out_without(how, *files):
        """What a run prints in which some files were not filled in."""
        out = BEFORE_SCRIPT_OUTPUT + script_lines("ran with WORLD/ndk --force")
        for line in FILLED_LINES.splitlines():
            for file in files:
                if file + " " in line:
                    out = out.replace(line, f"{how}: WORLD/{file}")
        return out

    def assert_not_filled(self, outcome, file, how, why):
        self.assert_outcome(
            outcome,
            code=1,
            out=self.out_without(how, file),
            err=f"{NOT_DONE}the template WORLD/{file} {why}\n",
            changed=without(package_filled(), file),
        )

    missing = "is missing: is the compiler package installed there whole?"

    def test_each_missing(self):
        for file in [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]:
            with self.subTest(file):
                outcome = World(self, without(small_tree(), file)).install()
                self.assert_not_filled(outcome, file, "missing", self.missing)

    def test_directory_missing(self):
        tree = without(small_tree(), VARS_SH, VARS_CSH)
        outcome = World(self, tree).install()
        self.assert_outcome(
            outcome,
            code=1,
            out=self.out_without("missing", VARS_SH, VARS_CSH),
            err=f"{NOT_DONE}the template WORLD/{VARS_SH} {self.missing}\n",
            changed=without(package_filled(), VARS_SH, VARS_CSH),
        )

    def test_directory_in_place_of_template(self):
        for file in [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]:
            with self.subTest(file):
                world = World(self, {**without(small_tree(), file), file + "/inside": "text\n"})
                self.assert_outcome(
                    world.install(),
                    code=1,
                    out=NDK_LINES + COMPONENT_LINE,
                    err=f"{NOT_DONE}the template WORLD/{file} is no ordinary file\n",
                )

    def test_not_readable(self):
        # Ends the installation when its turn comes: there is nothing to work on a copy of.
        world = World(self, small_tree())
        os.chmod(world.path(VARS_SH), 0o200)
        outcome = world.install(unprivileged=True)
        out = self.out_without("failed", VARS_SH)
        not_reached = f"filled in: WORLD/{VARS_CSH} (1 placeholder)\n"
        self.assertIn(not_reached, out)
        self.assert_outcome(
            outcome,
            code=1,
            out=out.replace(not_reached, ""),
            err=f"{NOT_DONE}cannot read WORLD/{VARS_SH}: Permission denied\n",
            changed=without(package_filled(), VARS_SH, VARS_CSH),
        )

    def test_directory_not_writable(self):
        world = World(self, small_tree())
        os.chmod(world.path(LINUX + "/bin"), 0o555)
        outcome = world.install("-v", unprivileged=True)
        self.assert_outcome(
            outcome,
            code=1,
            out=self.out_without("failed", VARS_SH, VARS_CSH),
            err=log_text() + f"{NOT_DONE}cannot replace WORLD/{VARS_SH}: Permission denied\n",
            changed=without(package_filled(), VARS_SH, VARS_CSH),
        )

    def test_toolchains_directory_missing(self):
        # The script of the working directory, whoever put it there, is not the package's.
        tree = without(small_tree(), SETUP_64, SETUP_32, SCRIPT)
        world = World(self, {**tree, "here/ndk_integration.sh": "#!/bin/sh\ntouch it-ran\n"})
        outcome = world.install(cwd=world.path("here"))
        self.assertEqual(
            (outcome.code, outcome.changes),
            (1, without(package_filled(), SETUP_64, SETUP_32)),
        )


class InstallationLog(EndToEndTest):
    def test_on_standard_error(self):
        world = World(self, small_tree())
        self.assert_outcome(
            world.install("-v"), out=WHOLE_INSTALLATION, err=log_text(), changed=package_filled()
        )

    def test_in_a_file(self):
        world = World(self, small_tree())
        outcome = world.run(
            "install", "installation.toml", "--log", "install.log", cwd=world.dir
        )
        changed = {**package_filled(), "install.log": "644 " + log_text()}
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=changed)

    def test_options_before_command(self):
        world = World(self, small_tree())
        log = world.path("install.log")
        outcome = world.run("-v", "--log", log, "install", world.path("installation.toml"))
        changed = {**package_filled(), "install.log": "644 " + log_text()}
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, err=log_text(), changed=changed)

    def test_appended(self):
        world = World(self, small_tree())
        world.write("install.log", "an older line\n")
        log = world.path("install.log")
        world.install("--log", log)
        world.install("--log", log)
        self.assertMultiLineEqual(
            world.read("install.log"), "an older line\n" + log_text() + log_text()
        )

    def test_several_candidates(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX='["a", "b", "c", "ndk"]')
        world = World(
            self,
            {
                **small_tree(toml=toml),
                "a/ndk-build": "",
                "b/ndk-build": "",
                "b/source.properties": "Pkg.Revision=11\n",
                "c/ndk-build": "",
                "c/source.properties": "Pkg.Revision = 21.4.7075529\r\n",
            },
        )
        first, found = log_text().split("NDK_INTEGRATION: validate_ndk_path()\n")
        log = (
            first
            + """\
NDK_INTEGRATION: validate_ndk_path()
NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: WORLD/a
NDK_INTEGRATION: is_ndk_dir(): could not found file: source.properties, returning false
NDK_INTEGRATION: detect_ndk(): 'WORLD/a' is not valid NDK path
NDK_INTEGRATION: validate_ndk_path()
NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: WORLD/b
NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true
NDK_INTEGRATION: get_version(): detected full revision: '11'
NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format
NDK_INTEGRATION: is_ndk_version_supported(): 'r-1' version is not supported, supported versions are 'r11b;r11c'. Returning false
NDK_INTEGRATION: detect_ndk(): 'WORLD/b' is not valid NDK path
NDK_INTEGRATION: validate_ndk_path()
NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: WORLD/c
NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true
NDK_INTEGRATION: get_version(): detected full revision: '21.4.7075529'
NDK_INTEGRATION: get_version(): detected version is 'r21e''
NDK_INTEGRATION: is_ndk_version_supported(): 'r21e' version is not supported, supported versions are 'r11b;r11c'. Returning false
NDK_INTEGRATION: detect_ndk(): 'WORLD/c' is not valid NDK path
NDK_INTEGRATION: validate_ndk_path()
"""
            + found
        )
        self.assert_outcome(
            world.install("-v"), out=WHOLE_INSTALLATION, err=log, changed=package_filled()
        )

    def test_missing_template(self):
        world = World(self, without(small_tree(), VARS_CSH))
        world.install("--log", world.path("install.log"))
        self.assertMultiLineEqual(
            world.read("install.log"),
            log_text()
            + f"ERROR: patch_text_file: cannot open input stream of file WORLD/{VARS_CSH}\n",
        )

    def test_missing_directory(self):
        world = World(self, small_tree())
        self.assert_outcome(
            world.install("--log", world.path("not there/install.log")),
            code=2,
            err="ndk-integrate: cannot open the log file WORLD/not there/install.log: "
            "No such file or directory\n",
        )

    def test_directory(self):
        world = World(self, small_tree())
        self.assert_outcome(
            world.install("--log", world.dir),
            code=2,
            err="ndk-integrate: cannot open the log file WORLD: Is a directory\n",
        )

    def test_full_disk(self):
        world = World(self, small_tree())
        self.assert_outcome(
            world.install("--log", "/dev/full"),
            out=WHOLE_INSTALLATION,
            err="ndk-integrate: warning: the log file /dev/full could not be written whole\n",
            changed=package_filled(),
        )


class PluginFile(EndToEndTest):
    """--plugin FILE."""

    def assert_not_loadable(self, outcome, message):
        self.assert_outcome(outcome, code=3, err=f"ndk-integrate: {message}\n")

    def assert_not_done(self, outcome, message):
        self.assert_outcome(outcome, code=1, err=f"{NOT_DONE}{message}\n")

    def library(self, world, name="plugin.so"):
        return os.path.join(world.top, "plugin", name)

    def test_real_one(self):
        world = World(self, small_tree())
        program = world.copy_program(library_dir="plugin")
        outcome = world.install("--plugin", self.library(world, LIBRARY), program=program)
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=package_filled())

    def test_bare_name_in_working_directory(self):
        world = World(self, small_tree())
        program = world.copy_program(library_dir="plugin")
        toml = world.path("installation.toml")
        outcome = world.run(
            "install", toml, "--plugin", LIBRARY, program=program, cwd=world.top + "/plugin"
        )
        self.assert_outcome(outcome, out=WHOLE_INSTALLATION, changed=package_filled())

    def test_missing_file(self):
        world = World(self, small_tree())
        self.assert_not_loadable(
            world.install("--plugin", world.path("no.so")),
            "cannot load the plug-in WORLD/no.so: WORLD/no.so: cannot open shared object file: "
            "No such file or directory",
        )

    def test_text_file(self):
        world = World(self, small_tree())
        toml = world.path("installation.toml")
        self.assert_not_loadable(
            world.install("--plugin", toml),
            "cannot load the plug-in WORLD/installation.toml: WORLD/installation.toml: "
            "invalid ELF header",
        )

    def test_other_library(self):
        world = World(self, small_tree())
        library = shared_library(self.library(world), "int answer = 42;\n")
        self.assert_not_loadable(
            world.install("--plugin", library),
            "cannot use the plug-in TOP/plugin/plugin.so: it has no function detect_ndk",
        )

    def test_each_function_missing(self):
        for name in FAKE_PLUGIN:
            with self.subTest(name):
                world = World(self, small_tree())
                library = fake_plugin(self.library(world), leave_out=name)
                outcome = world.install("--plugin", library)
                self.assertRegex(
                    str(outcome),
                    r"\Aexit code 3\n--- standard output\n--- standard error\n"
                    r"ndk-integrate: cannot use the plug-in TOP/plugin/plugin\.so: it has no "
                    rf"function \w*{name}\w*\n--- changed\n\Z",
                )

    def test_undefined_symbol(self):
        world = World(self, small_tree())
        text = 'extern "C" int nobody_defines_this(); extern "C" int detect_ndk(session_t*) '
        library = fake_plugin(
            self.library(world), detect_ndk=text + "{ return nobody_defines_this(); }"
        )
        self.assert_not_loadable(
            world.install("--plugin", library),
            "cannot load the plug-in TOP/plugin/plugin.so: TOP/plugin/plugin.so: "
            "undefined symbol: nobody_defines_this",
        )

    def test_log_not_made(self):
        world = World(self, small_tree())
        outcome = world.install("--plugin", world.path("ndk"), "--log", world.path("install.log"))
        self.assert_not_loadable(
            outcome,
            "cannot load the plug-in WORLD/ndk: WORLD/ndk: cannot read file data: Is a directory",
        )

    def test_exception(self):
        world = World(self, small_tree())
        library = throwing_plugin(self.library(world), 'std::runtime_error("boom")')
        self.assert_not_done(world.install("--plugin", library), "boom")

    def test_exception_of_its_own_type(self):
        world = World(self, small_tree())
        library = throwing_plugin(
            self.library(world),
            "Boom()",
            "struct Boom : std::exception { const char* what() const noexcept override; };\n"
            'const char* Boom::what() const noexcept { return "own boom"; }',
        )
        self.assert_not_done(world.install("--plugin", library), "own boom")

    def test_exception_that_is_a_number(self):
        world = World(self, small_tree())
        outcome = world.install("--plugin", throwing_plugin(self.library(world), "42"))
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (1, "", {}))
        self.assertRegex(outcome.err, r"\Andk-integrate: not done: [^\n]+\n\Z")

    def test_exception_text_with_control_characters(self):
        world = World(self, small_tree())
        library = throwing_plugin(self.library(world), 'std::runtime_error("two\\nlines")')
        self.assert_not_done(world.install("--plugin", library), "two\\nlines")


class PluginPlaces(EndToEndTest):
    """Where the plug-in is looked for without --plugin."""

    def world_with(self, *places):
        """A program in TOP/bin, and in each place a plug-in that names its place when called."""
        world = World(self, small_tree())
        self.program = world.copy_program()
        for place in places:
            library = os.path.join(world.top, place, LIBRARY)
            throwing_plugin(library, f'std::runtime_error("from {place}")')
        return world

    def assert_loaded_from(self, place, world):
        env = {"LD_LIBRARY_PATH": os.path.join(world.top, "loader")}
        outcome = world.install(program=self.program, env=env)
        self.assert_outcome(outcome, code=1, err=f"{NOT_DONE}from {place}\n")

    def test_beside_the_program_first(self):
        self.assert_loaded_from("bin", self.world_with("bin", "lib", "loader"))

    def test_lib_second(self):
        self.assert_loaded_from("lib", self.world_with("lib", "loader"))

    def test_loader_last(self):
        self.assert_loaded_from("loader", self.world_with("loader"))

    def test_program_behind_a_link(self):
        world = self.world_with("bin", "elsewhere")
        link = os.path.join(world.top, "elsewhere", "ndk-integrate")
        os.symlink(self.program, link)
        self.program = link
        self.assert_loaded_from("bin", world)

    def test_nowhere(self):
        world = self.world_with()
        self.assert_outcome(
            world.install(program=self.program),
            code=3,
            err=f"ndk-integrate: cannot load the plug-in {LIBRARY}: {LIBRARY}: "
            "cannot open shared object file: No such file or directory\n",
        )

    def test_not_loadable_beside_the_program(self):
        world = self.world_with("lib")
        world.write("../bin/" + LIBRARY, "no library\n" * 100)
        self.assert_outcome(
            world.install(program=self.program),
            code=3,
            err=f"ndk-integrate: cannot load the plug-in TOP/bin/{LIBRARY}: TOP/bin/{LIBRARY}: "
            "invalid ELF header\n",
        )

    def test_lib_not_searchable(self):
        world = self.world_with("lib")
        os.chmod(os.path.join(world.top, "lib"), 0)
        outcome = world.install(program=self.program, unprivileged=True)
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (3, "", {}))
        self.assertRegex(outcome.err, r"\Andk-integrate: cannot load the plug-in [^\n]+\n\Z")


class CommandLine(EndToEndTest):
    def assert_wrong(self, outcome, message):
        err = f"{message}\nRun with --help for more information.\n"
        self.assert_outcome(outcome, code=2, err=err)

    def test_help(self):
        outcome = World(self).run("--help")
        for option in ["-h", "--help", "--version", "--log FILE", "--plugin FILE", "-v", "install"]:
            self.assertIn(option, outcome.out)
        self.assert_outcome(outcome, out=outcome.out)

    def test_help_of_install(self):
        outcome = World(self).run("install", "--help")
        for text in ["INSTALLATION.toml", "-h", "--help", "--log FILE", "--plugin FILE", "-v"]:
            self.assertIn(text, outcome.out)
        self.assert_outcome(outcome, out=outcome.out)

    def test_version(self):
        self.assert_outcome(World(self).run("--version"), out="ndk-integrate 1.0.0\n")

    def test_no_arguments(self):
        self.assert_wrong(World(self).run(), "A subcommand is required")

    def test_unknown_command(self):
        outcome = World(self).run("remove")
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (2, "", {}))
        self.assertIn("remove", outcome.err)

    def test_unknown_option(self):
        world = World(self, small_tree())
        self.assert_wrong(
            world.install("--force"), "The following argument was not expected: --force"
        )

    def test_no_installation_file(self):
        self.assert_wrong(World(self).run("install"), "INSTALLATION.toml is required")

    def test_two_installation_files(self):
        world = World(self, small_tree())
        self.assert_wrong(world.install("more"), "The following argument was not expected: more")

    def test_option_without_value(self):
        world = World(self, small_tree())
        for option in ["--log", "--plugin"]:
            with self.subTest(option):
                self.assert_wrong(world.install(option), f"{option}: 1 required TEXT missing")


if __name__ == "__main__":
    unittest.main()

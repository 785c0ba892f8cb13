"""Tests the sample NDKs and the sample compiler package in examples/, each test on a copy of them.

What an installer does to the package is imitated here, so these tests need neither the plug-in nor
a host.
"""

import os
import shutil
import subprocess
import tempfile
import tomllib
import unittest

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "examples")
VERSION = "5.0.3.42"
TOOLCHAINS = [f"x86_64-nox{VERSION}", f"x86-nox{VERSION}"]

DEBIAN_PACKAGES = {"make": "make", "csh": "tcsh", "sh": "dash"}

# Not the caller's environment: a make that runs these tests would pass its MAKEFLAGS on.
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C"}


def setUpModule():
    for program, package in DEBIAN_PACKAGES.items():
        if shutil.which(program, path=ENVIRONMENT["PATH"]) is None:
            raise RuntimeError(f"{program} is not there; install the Debian package {package}")


def read(file):
    with open(file, encoding="utf-8", newline="") as stream:
        return stream.read()


def write(file, text):
    with open(file, "w", encoding="utf-8", newline="") as stream:
        stream.write(text)


def run(*command, cwd=None, **environment):
    """The exit status, standard output and standard error of a command."""
    env = {**ENVIRONMENT, **environment}
    done = subprocess.run(
        command, cwd=cwd, env=env, stdin=subprocess.DEVNULL, capture_output=True, text=True
    )
    return done.returncode, done.stdout, done.stderr


def snapshot(directory):
    """Every file below a directory with its content."""
    return {
        os.path.join(parent, name): read(os.path.join(parent, name))
        for parent, _, names in os.walk(directory)
        for name in names
    }


class Tree:
    """A copy of examples/ in a directory of the given name."""

    def __init__(self, parent, name):
        self.root = os.path.join(parent, name)
        shutil.copytree(EXAMPLES, self.root)
        self.ndk = self.ndk_named("android-ndk-r11c")
        self.definitions = os.path.join(self.root, "package/compiler/android")
        self.compiler = os.path.join(
            self.root, "package/compiler/compilers_and_libraries_2005.3.42/linux"
        )

    def ndk_named(self, name):
        return os.path.join(self.root, "ndk", name)

    def definition(self, toolchain):
        return os.path.join(self.definitions, toolchain, "setup.mk")

    def place(self, ndk=None):
        """Where an NDK reads toolchain definitions."""
        since_r11 = os.path.join(ndk or self.ndk, "build/core/toolchains")
        return since_r11 if os.path.isdir(since_r11) else os.path.join(ndk, "toolchains")

    def installed(self, toolchain, ndk=None, file="setup.mk"):
        return os.path.join(self.place(ndk), toolchain, file)

    def environment_script(self, shell):
        return os.path.join(self.compiler, "bin", f"compilervars_arch.{shell}")

    def fill_in(self, ndk_dir):
        """Fills in the templates as an installer does: each pass adds an empty line."""
        for toolchain in TOOLCHAINS:
            definition = self.definition(toolchain)
            patch(definition, "{INSTALL_NOX_INSTALLDIR}", self.compiler)
            patch(definition, "{INSTALL_NOX_VERSION}", VERSION)
        for shell in "sh", "csh":
            patch(self.environment_script(shell), "<NDK_DIR>", ndk_dir)
        return self

    def integrate(self, *arguments):
        """Runs the integration script as an installer does, in its own directory."""
        return run("./ndk_integration.sh", *arguments, cwd=self.definitions)

    def install_lines(self, ndk=None):
        return "".join(f"installed {self.place(ndk)}/{name}\n" for name in TOOLCHAINS)


def patch(file, placeholder, value):
    text = read(file)
    assert text.endswith("\n") and placeholder in text, file
    write(file, text.replace(placeholder, value) + "\n")


class ExamplesTest(unittest.TestCase):
    maxDiff = None

    def tree(self, name="plain"):
        parent = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, parent)
        return Tree(parent, name)


class SampleNdk(ExamplesTest):
    def files(self, name):
        """The names in an NDK's top directory."""
        return sorted(os.listdir(os.path.join(EXAMPLES, "ndk", name)))

    def properties(self, name):
        return read(os.path.join(EXAMPLES, "ndk", name, "source.properties"))

    def test_each_is_there(self):
        self.assertEqual(
            sorted(os.listdir(os.path.join(EXAMPLES, "ndk"))),
            [
                "android-ndk-r10e",
                "android-ndk-r11c",
                "android-ndk-r12b.part",
                "android-ndk-r21e",
                "ndk-bundle",
            ],
        )

    def test_each_launcher_is_executable(self):
        for name in os.listdir(os.path.join(EXAMPLES, "ndk")):
            launcher = os.path.join(EXAMPLES, "ndk", name, "ndk-build")
            self.assertTrue(os.access(launcher, os.X_OK), launcher)

    def test_r11c(self):
        self.assertEqual(
            self.files("android-ndk-r11c"),
            ["build", "ndk-build", "source.properties", "toolchains"],
        )
        self.assertEqual(
            self.properties("android-ndk-r11c"),
            "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.2725575\n",
        )

    def test_r21e(self):
        self.assertEqual(
            self.files("android-ndk-r21e"), ["build", "ndk-build", "source.properties", "toolchains"]
        )
        self.assertEqual(
            self.properties("android-ndk-r21e"),
            "Pkg.Desc = Android NDK\nPkg.Revision = 21.4.7075529\n",
        )

    def test_properties_rewritten_by_an_old_sdk_manager(self):
        self.assertEqual(
            self.files("ndk-bundle"), ["build", "ndk-build", "source.properties", "toolchains"]
        )
        self.assertEqual(
            self.properties("ndk-bundle"),
            "### Android Tool: Source of this archive.\n"
            "#Tue Mar 22 11:04:54 EDT 2016\n"
            "Archive.HostBits=64\n"
            "Archive.HostOs=linux\n"
            "Pkg.Desc=Android NDK\n"
            "Pkg.Revision=11\n"
            "Pkg.SourceUrl=https\\://example.com/android/repository/repository-11.xml\n",
        )

    def test_r10e_has_no_properties(self):
        self.assertEqual(
            self.files("android-ndk-r10e"), ["RELEASE.TXT", "build", "ndk-build", "toolchains"]
        )
        self.assertEqual(
            read(os.path.join(EXAMPLES, "ndk/android-ndk-r10e/RELEASE.TXT")), "r10e (64-bit)\n"
        )

    def test_half_downloaded(self):
        self.assertEqual(self.files("android-ndk-r12b.part"), ["ndk-build"])


class InstallationToml(ExamplesTest):
    def setUp(self):
        with open(os.path.join(EXAMPLES, "installation.toml"), "rb") as stream:
            self.toml = tomllib.load(stream)

    def test_session(self):
        self.assertEqual(
            self.toml["session"],
            {
                "NDK_DEFAULT_SEARCH_PATH_LINUX": [
                    "ndk/android-ndk-r10e",
                    "ndk/android-ndk-r12b.part",
                    "ndk/ndk-bundle",
                    "ndk/android-ndk-r21e",
                    "ndk/android-ndk-r11c",
                ],
                "NDK_SUPPORTED_VERSIONS": ["r10e", "r11", "r11b", "r11c"],
                "NDK_COMPONENT_PATTERNS": ["-ndk-"],
                "NDK_INTEGRATION_ENABLED": "yes",
                "VORN_INSTALL_DIR": "package",
            },
        )

    def test_exactly_one_component_is_the_compiler(self):
        patterns = self.toml["session"]["NDK_COMPONENT_PATTERNS"]
        compilers = [
            component
            for component in self.toml["component"]
            if component.get("install_condition", True)
            and component.get("selected", True)
            and any(pattern in component["id"] for pattern in patterns)
        ]
        self.assertEqual(
            compilers,
            [
                {
                    "id": "nox-ndk-compiler-5.0.3",
                    "version": "5.0.3",
                    "package_number": "42",
                    "subdir": "/compiler",
                    "install_condition": True,
                    "selected": True,
                }
            ],
        )


class IntegrationScript(ExamplesTest):
    def assert_refuses(self, tree, arguments, message):
        before = snapshot(tree.root)
        self.assertEqual(
            tree.integrate(*arguments), (1, "", f"ndk_integration.sh: {message}\n")
        )
        self.assertEqual(snapshot(tree.root), before)

    def test_installs_both_definitions(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        before = snapshot(tree.ndk)
        self.assertEqual(tree.integrate(tree.ndk, "--force"), (0, tree.install_lines(), ""))
        expected = {
            tree.installed(name, file=file): read(os.path.join(tree.definitions, name, file))
            for name in TOOLCHAINS
            for file in ["setup.mk", "config.mk"]
        }
        self.assertEqual(snapshot(tree.ndk), {**before, **expected})

    def test_needs_no_force_where_nothing_is_there(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        self.assertEqual(tree.integrate(tree.ndk), (0, tree.install_lines(), ""))

    def test_needs_no_force_for_the_same_definitions(self):
        tree = self.tree()
        tree.fill_in(tree.ndk).integrate(tree.ndk)
        self.assertEqual(tree.integrate(tree.ndk), (0, tree.install_lines(), ""))

    def test_refuses_to_overwrite_a_different_definition(self):
        # Of the second one, so that a refusal in the middle would show the first installed.
        tree = self.tree()
        tree.fill_in(tree.ndk)
        other = tree.installed(TOOLCHAINS[1])
        os.mkdir(os.path.dirname(other))
        write(other, "TOOLCHAIN_NAME := other\n")
        self.assert_refuses(
            tree,
            [tree.ndk],
            f"'{other}' is there already and differs; --force replaces it",
        )

    def test_force_overwrites_a_different_definition(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        other = tree.installed(TOOLCHAINS[1])
        os.mkdir(os.path.dirname(other))
        write(other, "TOOLCHAIN_NAME := other\n")
        being_read = other + ".read"
        os.link(other, being_read)
        self.assertEqual(tree.integrate(tree.ndk, "--force"), (0, tree.install_lines(), ""))
        self.assertEqual(read(other), read(tree.definition(TOOLCHAINS[1])))
        # Replaced as a whole, not written into: whoever has the old one open still reads all of it.
        self.assertEqual(read(being_read), "TOOLCHAIN_NAME := other\n")

    def test_refuses_to_replace_a_directory(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        directory = tree.installed(TOOLCHAINS[1])
        os.makedirs(directory)
        self.assert_refuses(
            tree, [tree.ndk, "--force"], f"'{directory}' is a directory; remove it first"
        )

    def test_refuses_placeholders(self):
        tree = self.tree()
        self.assert_refuses(
            tree,
            [tree.ndk, "--force"],
            f"'./{TOOLCHAINS[0]}/setup.mk' still holds placeholders;"
            " let the installer fill them in first",
        )

    def test_refuses_a_package_with_one_definition(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        os.remove(tree.definition(TOOLCHAINS[1]))
        self.assert_refuses(
            tree,
            [tree.ndk, "--force"],
            f"cannot read './{TOOLCHAINS[1]}/setup.mk'; install the compiler package again",
        )

    def test_refuses_what_is_no_ndk(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        missing = tree.ndk_named("missing")
        partial = tree.ndk_named("android-ndk-r12b.part")
        without_toolchains = tree.ndk_named("android-ndk-r21e")
        shutil.rmtree(os.path.join(without_toolchains, "toolchains"))
        shutil.rmtree(os.path.join(without_toolchains, "build"))
        for directory, message in [
            (missing, f"'{missing}' is not a directory; give the top directory of an Android NDK"),
            (tree.compiler, f"'{tree.compiler}' is not an Android NDK: it has no ndk-build"),
            (
                partial,
                f"'{partial}' is not a complete Android NDK:"
                " it has neither source.properties nor RELEASE.TXT",
            ),
            (
                without_toolchains,
                f"'{without_toolchains}' is not a complete Android NDK:"
                " it has neither build/core/toolchains nor toolchains",
            ),
        ]:
            with self.subTest(directory):
                self.assert_refuses(tree, [directory, "--force"], message)

    def test_refuses_bad_arguments(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        usage = "usage: ndk_integration.sh NDK_DIR [--force]"
        for arguments, message in [
            ([], usage),
            ([tree.ndk, "--force", "--force"], usage),
            ([""], f"the NDK directory is empty; {usage}"),
            (["--force"], f"unknown option '--force' ('./--force' names a directory); {usage}"),
            ([tree.ndk, "--hard"], f"unknown argument '--hard'; {usage}"),
        ]:
            with self.subTest(arguments):
                self.assert_refuses(tree, arguments, message)

    def test_accepts_an_ndk_before_r11(self):
        tree = self.tree()
        ndk = tree.ndk_named("android-ndk-r10e")
        tree.fill_in(ndk)
        self.assertEqual(tree.integrate(ndk, "--force"), (0, tree.install_lines(ndk), ""))

    def test_odd_characters_in_every_path(self):
        tree = self.tree("it's \"odd\" $HOME `id` \\ * # \n")
        tree.fill_in(tree.ndk)
        script = os.path.join(tree.definitions, "ndk_integration.sh")
        self.assertEqual(run(script, tree.ndk), (0, tree.install_lines(), ""))

    def test_own_directory_that_looks_like_an_option(self):
        tree = self.tree("-n")
        tree.fill_in(tree.ndk)
        script = "-n/package/compiler/android/ndk_integration.sh"
        self.assertEqual(
            run("sh", "--", script, tree.ndk, cwd=os.path.dirname(tree.root)),
            (0, tree.install_lines(), ""),
        )


class ToolchainDefinition(ExamplesTest):
    """What make reads from a definition that the script has installed into the NDK."""

    def make(self, tree, toolchain, recipe):
        return run("make", "-s", "-f", tree.installed(toolchain), "--eval", "print: ; @" + recipe)

    def assert_integrated(self, tree):
        tree.fill_in(tree.ndk)
        self.assertEqual(tree.integrate(tree.ndk, "--force"), (0, tree.install_lines(), ""))
        for toolchain in TOOLCHAINS:
            self.assertEqual(
                self.make(
                    tree,
                    toolchain,
                    "printf '%s\\n' $(TARGET_CC) $(TARGET_CXX) $(NOX_VERSION) $(TOOLCHAIN_NAME)",
                ),
                (
                    0,
                    f"{tree.compiler}/bin/noxcc\n{tree.compiler}/bin/noxc++\n"
                    f"{VERSION}\n{toolchain}\n",
                    "",
                ),
            )
            self.assertEqual(
                self.make(
                    tree,
                    toolchain,
                    "$(TARGET_CC) $(TARGET_CFLAGS) --version"
                    " && $(TARGET_CXX) $(TARGET_CFLAGS) --version",
                ),
                (0, f"noxcc {VERSION}\nnoxc++ {VERSION}\n", ""),
            )

    def test_plain(self):
        self.assert_integrated(self.tree())

    def test_blank_in_every_path(self):
        self.assert_integrated(self.tree("with  a blank"))

    def test_odd_characters_in_every_path(self):
        self.assert_integrated(self.tree("it's odd, $HOME $(x) # (y)"))

    def test_placeholders(self):
        """Several of each, and a line with both."""
        for toolchain in TOOLCHAINS:
            lines = read(os.path.join(EXAMPLES, "package/compiler/android", toolchain, "setup.mk"))
            found = [
                (line.count("{INSTALL_NOX_INSTALLDIR}"), line.count("{INSTALL_NOX_VERSION}"))
                for line in lines.splitlines()
                if "{INSTALL_NOX_" in line
            ]
            self.assertEqual(found, [(1, 1), (0, 1), (1, 0), (0, 1), (0, 1)])


class EnvironmentScript(ExamplesTest):
    """What sh and csh print after they have sourced the environment scripts."""

    SHELLS = {
        "sh": ["sh", "-euc", '. "$SCRIPT"; printf "%s\\n" "${ANDROID_NDK-unset}" "$PATH"'],
        "csh": [
            "csh",
            "-fc",
            'source "$SCRIPT"; if (! $?ANDROID_NDK) setenv ANDROID_NDK unset;'
            ' printf "%s\\n" "$ANDROID_NDK" "$PATH"',
        ],
    }

    def sourced(self, tree, shell, **environment):
        script = tree.environment_script(shell)
        return run(*self.SHELLS[shell], SCRIPT=script, **environment)

    def assert_both(self, tree, expected, **environment):
        for shell in self.SHELLS:
            with self.subTest(shell):
                self.assertEqual(self.sourced(tree, shell, **environment), expected)

    def test_plain(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        self.assert_both(tree, (0, f"{tree.ndk}\n{tree.ndk}:/usr/bin:/bin\n", ""))

    def test_blank_in_every_path(self):
        tree = self.tree("with  a blank")
        tree.fill_in(tree.ndk)
        self.assert_both(tree, (0, f"{tree.ndk}\n{tree.ndk}:/usr/bin:/bin\n", ""))

    def test_odd_characters_in_every_path(self):
        tree = self.tree("it's odd, (y) * # & ;")
        tree.fill_in(tree.ndk)
        self.assert_both(tree, (0, f"{tree.ndk}\n{tree.ndk}:/usr/bin:/bin\n", ""))

    def test_replaces_an_earlier_ndk(self):
        tree = self.tree()
        tree.fill_in(tree.ndk)
        self.assert_both(
            tree, (0, f"{tree.ndk}\n{tree.ndk}:/usr/bin:/bin\n", ""), ANDROID_NDK="/opt/other"
        )

    def test_integration_disabled(self):
        tree = self.tree()
        tree.fill_in("")
        self.assert_both(tree, (0, "unset\n/usr/bin:/bin\n", ""))

    def test_integration_disabled_keeps_an_earlier_ndk(self):
        tree = self.tree()
        tree.fill_in("")
        self.assert_both(tree, (0, "/opt/other\n/usr/bin:/bin\n", ""), ANDROID_NDK="/opt/other")


if __name__ == "__main__":
    unittest.main()

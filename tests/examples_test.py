"""Tests the sample NDKs and the sample compiler package in examples/, each test on a copy of them.

What an installer does to the package is imitated here, so these tests need neither the plug-in nor
a host.
"""

import os
import shutil
import subprocess
import tempfile
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

    def installed(self, toolchain, ndk=None, file="setup.mk"):
        return os.path.join(self.place(ndk or self.ndk), toolchain, file)

    def place(self, ndk):
        """Where an NDK reads toolchain definitions."""
        since_r11 = os.path.join(ndk, "build/core/toolchains")
        return since_r11 if os.path.isdir(since_r11) else os.path.join(ndk, "toolchains")

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
        return "".join(f"installed {self.place(ndk or self.ndk)}/{name}\n" for name in TOOLCHAINS)


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

    def filled_tree(self, name="plain"):
        tree = self.tree(name)
        return tree.fill_in(tree.ndk)


class IntegrationScript(ExamplesTest):
    def assert_refuses(self, tree, arguments, message):
        before = snapshot(tree.root)
        self.assertEqual(tree.integrate(*arguments), (1, "", f"ndk_integration.sh: {message}\n"))
        self.assertEqual(snapshot(tree.root), before)

    def assert_installs(self, tree, *arguments):
        self.assertEqual(tree.integrate(*arguments), (0, tree.install_lines(arguments[0]), ""))

    def tree_with_other_definition(self):
        # Of the second one, so that a refusal in the middle would show the first installed.
        tree = self.filled_tree()
        other = tree.installed(TOOLCHAINS[1])
        os.mkdir(os.path.dirname(other))
        write(other, "TOOLCHAIN_NAME := other\n")
        return tree, other

    def test_installs_both_definitions(self):
        tree = self.filled_tree()
        before = snapshot(tree.ndk)
        self.assert_installs(tree, tree.ndk, "--force")
        expected = {
            tree.installed(name, file=file): read(os.path.join(tree.definitions, name, file))
            for name in TOOLCHAINS
            for file in ["setup.mk", "config.mk"]
        }
        self.assertEqual(snapshot(tree.ndk), {**before, **expected})

    def test_needs_no_force(self):
        # Where nothing is there, and for the same definitions.
        tree = self.filled_tree()
        self.assert_installs(tree, tree.ndk)
        self.assert_installs(tree, tree.ndk)

    def test_different_definition(self):
        # Of the second one, so that a refusal in the middle would show the first installed.
        tree = self.filled_tree()
        other = tree.installed(TOOLCHAINS[1])
        os.mkdir(os.path.dirname(other))
        write(other, "TOOLCHAIN_NAME := other\n")
        message = f"'{other}' is there already and differs; --force replaces it"
        self.assert_refuses(tree, [tree.ndk], message)
        os.link(other, other + ".read")
        self.assert_installs(tree, tree.ndk, "--force")
        self.assertEqual(read(other), read(tree.definition(TOOLCHAINS[1])))
        # Replaced as a whole, not written into: whoever has the old one open still reads all of it.
        self.assertEqual(read(other + ".read"), "TOOLCHAIN_NAME := other\n")

    def test_refuses_to_replace_a_directory(self):
        tree = self.filled_tree()
        directory = tree.installed(TOOLCHAINS[1])
        os.makedirs(directory)
        message = f"'{directory}' is a directory; remove it first"
        self.assert_refuses(tree, [tree.ndk, "--force"], message)

    def test_refuses_unfinished_packages(self):
        tree = self.tree()
        message = (
            f"'./{TOOLCHAINS[0]}/setup.mk' still holds placeholders;"
            " let the installer fill them in first"
        )
        self.assert_refuses(tree, [tree.ndk, "--force"], message)
        tree.fill_in(tree.ndk)
        os.remove(tree.definition(TOOLCHAINS[1]))
        message = f"cannot read './{TOOLCHAINS[1]}/setup.mk'; install the compiler package again"
        self.assert_refuses(tree, [tree.ndk, "--force"], message)

    def test_refuses_what_is_no_ndk(self):
        tree = self.filled_tree()
        missing = tree.ndk_named("missing")
        partial = tree.ndk_named("android-ndk-r12b.part")
        without_toolchains = tree.ndk_named("android-ndk-r21e")
        shutil.rmtree(os.path.join(without_toolchains, "toolchains"))
        shutil.rmtree(os.path.join(without_toolchains, "build"))
        for directory, what in [
            (missing, "is not a directory; give the top directory of an Android NDK"),
            (tree.compiler, "is not an Android NDK: it has no ndk-build"),
            (partial, "is not a complete Android NDK: it has neither source.properties nor "
             "RELEASE.TXT"),
            (without_toolchains, "is not a complete Android NDK: it has neither "
             "build/core/toolchains nor toolchains"),
        ]:
            with self.subTest(directory):
                self.assert_refuses(tree, [directory, "--force"], f"'{directory}' {what}")

    def test_refuses_bad_arguments(self):
        tree = self.filled_tree()
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
        self.assert_installs(tree.fill_in(ndk), ndk, "--force")

    def test_odd_names_of_its_own_directory(self):
        tree = self.filled_tree("it's \"odd\" $HOME `id` \\ * # \n")
        script = os.path.join(tree.definitions, "ndk_integration.sh")
        self.assertEqual(run(script, tree.ndk), (0, tree.install_lines(), ""))
        tree = self.filled_tree("-n")
        command = ["sh", "--", "-n/package/compiler/android/ndk_integration.sh", tree.ndk]
        above = os.path.dirname(tree.root)
        self.assertEqual(run(*command, cwd=above), (0, tree.install_lines(), ""))


class ToolchainDefinition(ExamplesTest):
    """What make reads from a definition that the script has installed into the NDK."""

    def make(self, tree, toolchain, recipe):
        return run("make", "-s", "-f", tree.installed(toolchain), "--eval", "print: ; @" + recipe)

    def test_integrated(self):
        variables = "$(TARGET_CC) $(TARGET_CXX) $(NOX_VERSION) $(TOOLCHAIN_NAME)"
        runs = [f"$(TARGET_{name}) $(TARGET_CFLAGS) --version" for name in ("CC", "CXX")]
        for name in ["plain", "with  a blank", "it's odd, $HOME $(x) # (y)"]:
            tree = self.filled_tree(name)
            self.assertEqual(tree.integrate(tree.ndk, "--force"), (0, tree.install_lines(), ""))
            for toolchain in TOOLCHAINS:
                with self.subTest(name, toolchain=toolchain):
                    compilers = f"{tree.compiler}/bin/noxcc\n{tree.compiler}/bin/noxc++\n"
                    self.assertEqual(
                        self.make(tree, toolchain, f"printf '%s\\n' {variables}"),
                        (0, f"{compilers}{VERSION}\n{toolchain}\n", ""),
                    )
                    self.assertEqual(
                        self.make(tree, toolchain, " && ".join(runs)),
                        (0, f"noxcc {VERSION}\nnoxc++ {VERSION}\n", ""),
                    )

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

    def assert_sourced(self, tree, *expected, **environment):
        out = "".join(line + "\n" for line in expected)
        for shell, command in self.SHELLS.items():
            with self.subTest(shell, root=tree.root):
                script = tree.environment_script(shell)
                self.assertEqual(run(*command, SCRIPT=script, **environment), (0, out, ""))

    def test_names(self):
        for name in ["plain", "with  a blank", "it's odd, (y) * # & ;"]:
            tree = self.filled_tree(name)
            self.assert_sourced(tree, tree.ndk, f"{tree.ndk}:/usr/bin:/bin")

    def test_earlier_ndk_and_none(self):
        tree = self.filled_tree()
        path = f"{tree.ndk}:/usr/bin:/bin"
        self.assert_sourced(tree, tree.ndk, path, ANDROID_NDK="/opt/other")
        disabled = self.tree().fill_in("")
        self.assert_sourced(disabled, "unset", "/usr/bin:/bin")
        self.assert_sourced(disabled, "/opt/other", "/usr/bin:/bin", ANDROID_NDK="/opt/other")


if __name__ == "__main__":
    unittest.main()

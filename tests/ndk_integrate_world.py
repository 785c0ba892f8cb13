"""Worlds for the end-to-end tests of ndk-integrate: a directory with an NDK, a compiler package and
an installation.toml, one run of the program in it, and everything that the run did as one text."""

import os
import shutil
import stat
import subprocess
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
EXAMPLES = os.path.join(ROOT, "examples")
PROGRAM = os.path.abspath(os.environ["NDK_INTEGRATE"])
LIBRARY = "libndk_utils.so.1n"
NOBODY = 65534

ANDROID = "package/cc/android"
LINUX = "package/cc/compilers_and_libraries_2005.3.42/linux"
SETUP_64 = ANDROID + "/x86_64-nox5.0.3.42/setup.mk"
SETUP_32 = ANDROID + "/x86-nox5.0.3.42/setup.mk"
SCRIPT = ANDROID + "/ndk_integration.sh"
VARS_SH = LINUX + "/bin/compilervars_arch.sh"
VARS_CSH = LINUX + "/bin/compilervars_arch.csh"
TEMPLATES = [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]  # in the order in which they are filled in
KEPT = ".ndk-integrate"  # the program's own directory in a compiler's
KEPT_HERE = "package/cc/" + KEPT

SESSION = {
    "NDK_DEFAULT_SEARCH_PATH_LINUX": '"ndk"',
    "NDK_SUPPORTED_VERSIONS": '"r11b;r11c"',
    "NDK_COMPONENT_PATTERNS": '"-ndk-"',
    "NDK_INTEGRATION_ENABLED": '"yes"',
    "VORN_INSTALL_DIR": '"package"',
}

COMPONENT = """\
[[component]]
id = "nox-ndk-5"
version = "5.0.3"
package_number = "42"
subdir = "/cc"
"""


def installation(components=COMPONENT, **changes):
    """An installation.toml: SESSION with changes in TOML, None leaving a variable out."""
    values = {**SESSION, **changes}
    lines = [f"{name} = {value}\n" for name, value in values.items() if value is not None]
    return "[session]\n" + "".join(lines) + "\n" + components


def small_tree(toml=None, script='echo "ran with $*"', **changes):
    """An r11c, and a compiler package whose files hold the placeholders and nothing else."""
    tree = {
        "installation.toml": installation() if toml is None else toml,
        "ndk/ndk-build": "",
        "ndk/source.properties": "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.2725575\n",
        SETUP_64: "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n",
        SETUP_32: "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n",
        SCRIPT: "#!/bin/sh\n" + script + "\n",
        VARS_SH: "ndk='<NDK_DIR>'\n",
        VARS_CSH: "set ndk = '<NDK_DIR>'\n",
    }
    return {**tree, **changes}


def without(tree, *names):
    return {name: content for name, content in tree.items() if name not in names}


# What a whole installation in the world of small_tree() does.
NDK_LINES = """\
NDK: WORLD/ndk
release: r11c (11.2.2725575)
"""
COMPONENT_LINE = """\
component: nox-ndk-5 (version 5.0.3, package number 42)
"""
FILLED_LINES = f"""\
filled in: WORLD/{SETUP_64} (2 placeholders)
filled in: WORLD/{SETUP_32} (2 placeholders)
filled in: WORLD/{VARS_SH} (1 placeholder)
filled in: WORLD/{VARS_CSH} (1 placeholder)
"""
SCRIPT_LINE = """\
script: ./ndk_integration.sh "WORLD/ndk" --force
"""
BEFORE_SCRIPT_OUTPUT = NDK_LINES + COMPONENT_LINE + FILLED_LINES + SCRIPT_LINE
DONE_LINE = """\
done: the compiler is integrated into WORLD/ndk
"""
WHOLE_INSTALLATION = (
    BEFORE_SCRIPT_OUTPUT + 'script printed: ran with WORLD/ndk --force\n' + DONE_LINE
)


def setup_filled():
    return f"644 WORLD/{LINUX}\n5.0.3.42\n\n\n"


def package_filled(ndk="WORLD/ndk"):
    return {
        SETUP_64: setup_filled(),
        SETUP_32: setup_filled(),
        VARS_SH: f"644 ndk='{ndk}'\n\n",
        VARS_CSH: f"644 set ndk = '{ndk}'\n\n",
        KEPT_HERE: "755 /",
    }


def log_text(outputs="ran with WORLD/ndk --force\\n"):
    """The log of a whole installation in the world of small_tree()."""
    return f"""\
NDK_INTEGRATION: detect_ndk()
NDK_INTEGRATION: validate_ndk_path()
NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: WORLD/ndk
NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true
NDK_INTEGRATION: get_version(): detected full revision: '11.2.2725575'
NDK_INTEGRATION: get_version(): detected version is 'r11c''
NDK_INTEGRATION: is_ndk_version_supported(): 'r11c' version is supported
NDK_INTEGRATION: detect_ndk(): found valid NDK: 'WORLD/ndk'
NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()
NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): Found pattern '-ndk-' in 'nox-ndk-5'
NDK_INTEGRATION: integrate_ndk()
NDK_INTEGRATION: integrate_ndk(): integration enabled, launching './ndk_integration.sh "WORLD/ndk" --force' script.
Output: '{outputs}'
"""


class World:
    """A directory that is gone after the test. A file whose text begins with "#!" is executable, a
    name that ends in "/" is a directory."""

    def __init__(self, test, tree=None, name="world"):
        os.umask(0o022)
        top = tempfile.TemporaryDirectory(prefix="ndk_integrate_test.")
        # One for a whole class of tests lives as long as they run.
        add_cleanup = test.addClassCleanup if isinstance(test, type) else test.addCleanup
        add_cleanup(top.cleanup)
        self.top = os.path.realpath(top.name)
        os.chmod(self.top, 0o755)
        self.dir = os.path.join(self.top, name)
        os.mkdir(self.dir)
        for file, content in (tree or {}).items():
            self.write(file, content)

    def path(self, name=""):
        return os.path.join(self.dir, name) if name else self.dir

    def write(self, name, content):
        if name.endswith("/"):
            os.makedirs(self.path(name))
            return
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        data = content if isinstance(content, bytes) else content.encode()
        with open(self.path(name), "wb") as file:
            file.write(data)
        os.chmod(self.path(name), 0o755 if data.startswith(b"#!") else 0o644)

    def read(self, name):
        try:
            with open(self.path(name), "rb") as file:
                return self.hidden(file.read().decode(errors="backslashreplace"))
        except PermissionError:
            return "(not readable)\n"

    def hidden(self, text):
        """The text with this world's directory, which differs from run to run, replaced."""
        return text.replace(self.dir, "WORLD").replace(self.top, "TOP")

    def tree(self, kept=False):
        """Every name below the directory with its mode and content, directories as "755 /". What is
        inside the program's own directories is left out unless `kept` is true."""
        entries = {}
        for above, dirs, files in os.walk(self.dir):
            if not kept and os.path.basename(above) == KEPT:
                dirs.clear()
                continue
            for name in dirs + files:
                path = os.path.join(above, name)
                inside = os.path.relpath(path, self.dir)
                status = os.lstat(path)
                mode = f"{stat.S_IMODE(status.st_mode):o} "
                if stat.S_ISLNK(status.st_mode):
                    entries[inside] = "-> " + self.hidden(os.readlink(path))
                elif stat.S_ISDIR(status.st_mode):
                    entries[inside] = mode + "/"
                elif stat.S_ISREG(status.st_mode):
                    entries[inside] = mode + self.read(inside)
                else:
                    entries[inside] = mode + "special"
        return entries

    def run(self, *arguments, program=None, cwd=None, env=None, before=(), unprivileged=False):
        """Runs the program once; what it did is an Outcome."""
        start = [*before, program or PROGRAM]
        if unprivileged and os.geteuid() == 0:
            start = self._as_nobody(program)
        tree_before = self.tree()
        done = subprocess.run(
            [*start, *arguments],
            cwd=cwd or self.top,
            env={**os.environ, "LC_ALL": "C", **(env or {})},
            input=b"nothing that a script should read\n",
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            timeout=120,
            check=False,
        )
        return Outcome(
            done.returncode,
            self.hidden(done.stdout.decode(errors="backslashreplace")),
            self.hidden(done.stderr.decode(errors="backslashreplace")),
            changes(tree_before, self.tree()),
        )

    def install(self, *arguments, **how):
        return self.run("install", self.path("installation.toml"), *arguments, **how)

    def undo(self, *arguments, **how):
        return self.run("undo", self.path("installation.toml"), *arguments, **how)

    def copy_program(self, library_dir=None):
        """Copies the program to TOP/bin, and the plug-in, if asked for, to TOP/library_dir."""
        program = os.path.join(self.top, "bin", "ndk-integrate")
        os.makedirs(os.path.dirname(program), exist_ok=True)
        shutil.copy(PROGRAM, program)
        if library_dir is not None:
            library = os.path.join(os.path.dirname(PROGRAM), LIBRARY)
            target = os.path.join(self.top, library_dir)
            os.makedirs(target, exist_ok=True)
            shutil.copy(library, target)
        return program

    def _as_nobody(self, program):
        """The start of a command: the program, run by a user who owns nothing but this world."""
        for above, dirs, files in os.walk(self.dir):
            for name in [".", *dirs, *files]:
                os.lchown(os.path.join(above, name), NOBODY, NOBODY)
        if program is None:  # the build tree need not be readable to others
            program = self.copy_program(library_dir="bin")
        return ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", program]


def example_world(test, name="world"):
    """A copy of examples/."""
    world = World(test, name=name)
    shutil.copytree(EXAMPLES, world.dir, dirs_exist_ok=True)
    return world


def changes(before, after):
    """What differs: the new mode and content of each name, "removed" for one that is gone."""
    differing = {name: entry for name, entry in after.items() if before.get(name) != entry}
    return {**differing, **{name: "removed" for name in before if name not in after}}


class Outcome:
    """Everything that one run of the program did."""

    def __init__(self, code, out, err, changed):
        self.code = code
        self.out = out
        self.err = err
        self.changes = changed

    def __str__(self):
        changed = "".join(f"{name}: {entry}\n" for name, entry in sorted(self.changes.items()))
        return (
            f"exit code {self.code}\n--- standard output\n{self.out}--- standard error\n{self.err}"
            f"--- changed\n{changed}"
        )


class EndToEndTest(unittest.TestCase):
    maxDiff = None

    def assert_outcome(self, outcome, code=0, out="", err="", changed=None):
        expected = Outcome(code, out, err, changed or {})
        self.assertMultiLineEqual(str(outcome), str(expected))


def shared_library(path, source):
    """Builds a shared library from C++ source, with this repository's headers at hand."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    compiler = os.environ.get("CXX", "c++")
    options = ["-std=c++17", "-shared", "-fPIC", "-I", ROOT, "-x", "c++", "-", "-o", path]
    subprocess.run([compiler, *options], input=source.encode(), check=True)
    return path


# A plug-in that does nothing, one definition a function that the program needs.
FAKE_PLUGIN = {
    "detect_ndk": 'extern "C" int detect_ndk(session_t*) { return 0; }',
    "validate_ndk_path": 'extern "C" int validate_ndk_path(session_t*) { return 0; }',
    "check_if_ndk_integration_files_are_to_be_installed": 'extern "C" int '
    "check_if_ndk_integration_files_are_to_be_installed(session_t*) { return 0; }",
    "integrate_ndk": 'extern "C" int integrate_ndk(session_t*) { return 0; }',
    "unintegrate_ndk": 'extern "C" int unintegrate_ndk(session_t*) { return 0; }',
    "get_version": "ndk_version_t get_version(const std::string&) { return {}; }",
    "ndk_version_string": "std::string ndk_version_string(ndk_version_t) { return {}; }",
}


def fake_plugin(path, leave_out=None, **replaced):
    """Builds a plug-in like FAKE_PLUGIN with functions replaced, or one left out."""
    functions = {**FAKE_PLUGIN, **replaced}
    lines = [text for name, text in functions.items() if name != leave_out]
    headers = "#include <stdexcept>\n#include <string>\n#include \"ndk_utils/ndk_utils.h\"\n"
    return shared_library(path, headers + "\n".join(lines) + "\n")


def throwing_plugin(path, thrown, declarations=""):
    text = f'{declarations}\nextern "C" int detect_ndk(session_t*) {{ throw {thrown}; }}'
    return fake_plugin(path, detect_ndk=text)

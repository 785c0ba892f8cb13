"""A world of a few bytes for tests that run ndk-integrate thousands of times: two NDKs, a compiler
package and an installation.toml. What is on the disk is a Tree, taken and put back as a whole."""

import os
import shutil
import stat
import subprocess
import sys
import tempfile

PROGRAM = os.path.abspath(os.environ["NDK_INTEGRATE"])

CC = "package/cc"
STORE = CC + "/.ndk-integrate"
LOCK = STORE + "/lock"
MANIFEST = STORE + "/manifest.json"
ANDROID = CC + "/android"
LINUX = CC + "/compilers_and_libraries_2005.3.42/linux"
SETUP_64 = ANDROID + "/x86_64-nox5.0.3.42/setup.mk"
SETUP_32 = ANDROID + "/x86-nox5.0.3.42/setup.mk"
SCRIPT = ANDROID + "/ndk_integration.sh"
VARS_SH = LINUX + "/bin/compilervars_arch.sh"
VARS_CSH = LINUX + "/bin/compilervars_arch.csh"
TEMPLATES = [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]  # in the order in which they are filled in
NDKS = ("ndk/", "other/")

INSTALLATION = b"""\
[session]
NDK_DEFAULT_SEARCH_PATH_LINUX = "ndk"
NDK_SUPPORTED_VERSIONS = "r11c"
NDK_COMPONENT_PATTERNS = "-ndk-"
NDK_INTEGRATION_ENABLED = "yes"
VORN_INSTALL_DIR = "package"

[[component]]
id = "nox-ndk-5"
version = "5.0.3"
package_number = "42"
subdir = "/cc"
"""

NDK_FILES = {"ndk-build": (0o644, b""), "source.properties": (0o644, b"Pkg.Revision = 11.2.1\n")}

# A Tree has an entry (mode, bytes) for each name, with None for the bytes of a directory.


def fresh_tree(templates, script):
    """The world before the first installation. `templates` has a (mode, bytes) for each template,
    `script` is the text of the integration script."""
    files = {
        "installation.toml": (0o644, INSTALLATION),
        SCRIPT: (0o755, b"#!/bin/sh\n" + script),
        **{ndk + name: entry for ndk in NDKS for name, entry in NDK_FILES.items()},
        **templates,
    }
    tree = {}
    for name in files:
        parts = name.split("/")
        for depth in range(1, len(parts)):
            tree["/".join(parts[:depth])] = (0o755, None)
    return {**tree, **files}


def versions(template, original, top, ndk="ndk"):
    """The bytes of a template in the world at `top`: its original, and what it is after each pass
    of the plug-in. The last one is the result."""
    version = b"5.0.3.42"
    if template in (SETUP_64, SETUP_32):
        passes = [(b"{INSTALL_NOX_INSTALLDIR}", f"{top}/{LINUX}".encode()),
                  (b"{INSTALL_NOX_VERSION}", version)]
    else:
        passes = [(b"<NDK_DIR>", f"{top}/{ndk}".encode())]
    texts = [original]
    for placeholder, value in passes:
        text = texts[-1].replace(placeholder, value)
        texts.append(text + (b"\n" if text.endswith(b"\n") or not text else b"\n\n"))
    return texts


def memory_directory():
    """Where files are in memory and flushing them takes no time; None where there is no such."""
    ram, enough = "/dev/shm", 64 << 20
    try:
        status = os.statvfs(ram)
    except OSError:
        return None
    has_space = status.f_bavail * status.f_frsize >= enough
    return ram if has_space and os.access(ram, os.W_OK | os.X_OK) else None


def say(text):
    print(text, file=sys.stderr, flush=True)


class SmallWorld:
    """A directory for trees. It is gone after the with statement."""

    def __init__(self, dir=None):
        self._temporary = tempfile.TemporaryDirectory(
            prefix="ndk_integrate_test.", dir=dir or memory_directory()
        )
        self.top = os.path.join(os.path.realpath(self._temporary.name), "world")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._temporary.cleanup()

    def path(self, name):
        return os.path.join(self.top, name)

    def put(self, tree):
        """Makes the directory hold this tree and nothing else."""
        shutil.rmtree(self.top, ignore_errors=True)
        os.mkdir(self.top)
        for name, (mode, data) in tree.items():
            if data is None:
                os.mkdir(self.path(name))
            else:
                with open(self.path(name), "wb") as file:
                    file.write(data)
            os.chmod(self.path(name), mode)

    def tree(self):
        """What the directory holds. Left out is the content of the lock file, process numbers."""
        tree = {}
        for above, dirs, files in os.walk(self.top):
            for name in dirs + files:
                path = os.path.join(above, name)
                inside = os.path.relpath(path, self.top)
                mode = os.lstat(path).st_mode
                data = None
                if stat.S_ISREG(mode):
                    data = b"" if inside == LOCK else self.read(inside)
                elif not stat.S_ISDIR(mode):
                    raise AssertionError(path + " is neither a file nor a directory")
                tree[inside] = (stat.S_IMODE(mode), data)
        return tree

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def command(self, command):
        """The command line of "undo", "install" or "install --OPTION...". The directory after
        --ndk is one of this world."""
        name, *options = command.split()
        if "--ndk" in options:
            value = options.index("--ndk") + 1
            options[value] = self.path(options[value])
        return [PROGRAM, name, self.path("installation.toml"), *options]

    def run(self, command, before=(), env=None):
        """Runs the program, with `before` in front of its command line."""
        return subprocess.run(
            [*before, *self.command(command)],
            env={**os.environ, "LC_ALL": "C", **(env or {})},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            timeout=120,
            check=False,
        )

    def after(self, tree, *commands):
        """The tree that commands make of `tree`."""
        self.put(tree)
        for command in commands:
            done = self.run(command)
            if done.returncode != 0:
                raise AssertionError(f"{command}: exit code {done.returncode}, {done.stderr}")
        return self.tree()


def outside_store(tree):
    return {name: entry for name, entry in tree.items() if not name.startswith(STORE)}


def differences(actual, expected):
    """What differs between two trees, for a person; "" when nothing does."""
    lines = []
    for name in sorted({*actual, *expected}):
        is_there, should_be = actual.get(name), expected.get(name)
        if is_there != should_be:
            lines.append(f"  {name}: is {text_of(is_there)}, should be {text_of(should_be)}\n")
    return "".join(lines)


def text_of(entry):
    if entry is None:
        return "missing"
    mode, data = entry
    return f"{mode:o} " + ("directory" if data is None else repr(data))

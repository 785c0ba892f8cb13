"""Worlds for the end-to-end tests of ndk-integrate: a directory with an NDK, a compiler package and
an installation.toml, runs of the program in it, and everything that a run did as one text."""

import copy
import json
import os
import re
import shutil
import stat
import subprocess
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
EXAMPLES = os.path.join(ROOT, "examples")
PROGRAM = os.path.abspath(os.environ["NDK_INTEGRATE"])
LIBRARY = "libndk_utils.so.1n"
NOBODY = 65534
AS_NOBODY = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
# No search for leaks: it cannot be made while a program is traced.
NO_LEAK_SEARCH = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}

CC = "package/cc"
ANDROID = CC + "/android"
LINUX = CC + "/compilers_and_libraries_2005.3.42/linux"
SETUP_64 = ANDROID + "/x86_64-nox5.0.3.42/setup.mk"
SETUP_32 = ANDROID + "/x86-nox5.0.3.42/setup.mk"
SCRIPT = ANDROID + "/ndk_integration.sh"
VARS_SH = LINUX + "/bin/compilervars_arch.sh"
VARS_CSH = LINUX + "/bin/compilervars_arch.csh"
TEMPLATES = [SETUP_64, SETUP_32, VARS_SH, VARS_CSH]  # in the order in which they are filled in

KEPT = ".ndk-integrate"  # the program's own directory in a compiler's
STORE = f"{CC}/{KEPT}"
MANIFEST = STORE + "/manifest.json"
KEPT_ORIGINALS = STORE + "/originals"

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
DISABLED = "--set=NDK_INTEGRATION_ENABLED=no"

ORIGINALS = {
    SETUP_64: "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n",
    SETUP_32: "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n",
    VARS_SH: "ndk='<NDK_DIR>'\n",
    VARS_CSH: "set ndk = '<NDK_DIR>'\n",
}
OTHER_NDK = {"other ndk/ndk-build": "", "other ndk/source.properties": "Pkg.Revision = 11.1.1\n"}
PIPE = object()  # in place of a file's content


def installation(components=COMPONENT, **changes):
    """An installation.toml: SESSION with changes in TOML, None leaving a variable out."""
    values = {**SESSION, **changes}
    lines = [f"{name} = {value}\n" for name, value in values.items() if value is not None]
    return "[session]\n" + "".join(lines) + "\n" + components


def component_with(key, value):
    """The component with another value of a key, or without it."""
    lines = COMPONENT.splitlines(keepends=True)
    other = f"{key} = {value}\n" if value is not None else ""
    return "".join(other if line.startswith(key) else line for line in lines)


def script(text='echo "ran with $*"'):
    return f"#!/bin/sh\n{text}\n"


def small_tree(toml=None, runs='echo "ran with $*"', **changes):
    """An r11c, and a compiler package whose files hold the placeholders and nothing else."""
    return {
        "installation.toml": installation() if toml is None else toml,
        "ndk/ndk-build": script(""),
        "ndk/source.properties": "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.2725575\n",
        SCRIPT: script(runs),
        **ORIGINALS,
        **changes,
    }


def without(tree, *names):
    return {name: content for name, content in tree.items() if name not in names}


def filled(ndk="WORLD/ndk", first=False):
    """The files of the small tree as an installation leaves them; `first` adds what the first one
    makes beside them."""
    setup = f"644 WORLD/{LINUX}\n5.0.3.42\n\n\n"
    files = {
        SETUP_64: setup,
        SETUP_32: setup,
        VARS_SH: f"644 ndk='{ndk}'\n\n",
        VARS_CSH: f"644 set ndk = '{ndk}'\n\n",
    }
    return {**files, STORE: "700 /"} if first else files


def restored(*files):
    """These files, or all, as undo leaves them."""
    return {file: "644 " + ORIGINALS[file] for file in files or TEMPLATES}


def undone(*files):
    """The same of an undo that leaves nothing behind."""
    return {**restored(*files), STORE: "removed"}


def memory_directory():
    """Where files are in memory and flushing them takes no time; None where there is no such."""
    ram, enough = "/dev/shm", 64 << 20
    try:
        status = os.statvfs(ram)
    except OSError:
        return None
    has_space = status.f_bavail * status.f_frsize >= enough
    is_usable = os.access(ram, os.W_OK | os.X_OK) and not status.f_flag & os.ST_NOEXEC
    return ram if has_space and is_usable else None


class World:
    """A directory that is gone after the with statement. In its tree a file whose text begins with
    "#!" is executable, a name that ends in "/" is a directory, a text that begins with "-> " makes
    a link, and (mode, content) gives a mode."""

    def __init__(self, tree=None, name="world", where=None):
        os.umask(0o022)
        self._temporary = tempfile.TemporaryDirectory(
            prefix="ndk_integrate_test.", dir=where or memory_directory()
        )
        self.top = os.path.realpath(self._temporary.name)
        os.chmod(self.top, 0o755)
        self.dir = os.path.join(self.top, name)
        os.mkdir(self.dir)
        self.write_all(tree or {})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._temporary.cleanup()

    def path(self, name=""):
        return os.path.join(self.dir, name) if name else self.dir

    def write_all(self, tree):
        modes = {}
        for name, content in tree.items():
            if isinstance(content, tuple):
                modes[name], content = content
            self.write(name, content)
        for name, mode in modes.items():  # at the end, for directories that nothing fits in then
            self.chmod(name, mode)

    def write(self, name, content):
        path = self.path(name)
        os.makedirs(path if name.endswith("/") else os.path.dirname(path), exist_ok=True)
        if name.endswith("/"):
            return
        if content is PIPE:
            os.mkfifo(path)
        elif isinstance(content, str) and content.startswith("-> "):
            os.symlink(content.removeprefix("-> "), path)
        else:
            data = content if isinstance(content, bytes) else content.encode()
            with open(path, "wb") as file:
                file.write(data)
            self.chmod(name, 0o755 if data.startswith(b"#!") else 0o644)

    def chmod(self, name, mode):
        os.chmod(self.path(name), mode)

    def append(self, name, text):
        with open(self.path(name), "a", encoding="utf-8") as file:
            file.write(text)

    def bytes(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def read(self, name):
        return self.hidden(self.bytes(name).decode(errors="backslashreplace"))

    def read_all(self, names=TEMPLATES):
        return {name: self.bytes(name) for name in names}

    def hidden(self, text):
        """The text with this world's directory, which differs from run to run, replaced."""
        return text.replace(self.dir, "WORLD").replace(self.top, "TOP")

    def snapshot(self, below=""):
        """What is below a directory of the world: (mode, bytes) of a file, (mode, None) of a directory, (mode,
        text) of anything else. The times in the manifest are left out."""
        tree = {}
        for above, dirs, files in os.walk(self.path(below)):
            for name in dirs + files:
                path = os.path.join(above, name)
                inside = path[len(self.dir) + 1 :]
                mode = os.lstat(path).st_mode
                data = "special"
                if stat.S_ISDIR(mode):
                    data = None
                elif stat.S_ISLNK(mode):
                    data = "-> " + os.readlink(path)
                elif stat.S_ISREG(mode):
                    data = "(not readable)\n"
                    if os.access(path, os.R_OK):
                        data = self.bytes(path)
                    if inside.endswith(f"{KEPT}/manifest.json"):
                        data = without_times(data)
                tree[inside] = (stat.S_IMODE(mode), data)
        return tree

    def tree(self, kept=True):
        """The same for people, as "644 text", or "755 /" for a directory. What is inside the
        program's own directories is left out where `kept` is false."""
        return {
            name: self.hidden(text_of(entry))
            for name, entry in self.snapshot().items()
            if kept or not is_kept(name)
        }

    def touched(self, directory, leave_out=None):
        """Everything about every file in a directory but who looked at it when."""
        entries = {}
        for above, dirs, files in os.walk(directory):
            dirs[:] = [name for name in dirs if os.path.join(above, name) != leave_out]
            for path in [above, *(os.path.join(above, name) for name in dirs + files)]:
                try:
                    status = os.lstat(path)
                except PermissionError:
                    continue  # in a directory made unreadable, which its own entry stands for
                entry = [status.st_mode, status.st_uid, status.st_gid, status.st_ino]
                entry += [status.st_nlink, status.st_size, status.st_mtime_ns, status.st_ctime_ns]
                if stat.S_ISREG(status.st_mode) and os.access(path, os.R_OK):
                    entry.append(self.bytes(path))
                entries[path] = entry
        return entries

    def start(self, *command, program=None, cwd=None, env=None, before=()):
        """Runs the program to its end, with `before` in front of its command line."""
        return subprocess.run(
            [*before, program or PROGRAM, *command],
            cwd=cwd or self.top,
            env={**os.environ, "LC_ALL": "C", **(env or {})},
            input=b"nothing that a script should read\n",
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            timeout=120,
            check=False,
        )

    def run(self, *command, program=None, before=(), unprivileged=False, **how):
        """Runs the program once; what it did is an Outcome."""
        if unprivileged and os.geteuid() == 0:
            program = self.give_to_nobody(program)
            before = [*before, *AS_NOBODY]
        tree = self.tree()
        done = self.start(*command, program=program, before=before, **how)
        return Outcome(
            done.returncode,
            self.hidden(done.stdout.decode(errors="backslashreplace")),
            self.hidden(done.stderr.decode(errors="backslashreplace")),
            changes(tree, self.tree()),
            is_json="--json" in command,
        )

    def install(self, *options, **how):
        return self.run("install", self.path("installation.toml"), *options, **how)

    def undo(self, *options, **how):
        return self.run("undo", self.path("installation.toml"), *options, **how)

    def manifest(self):
        return json.loads(self.bytes(MANIFEST))

    def copy_program(self, library_dir=None):
        """Copies the program to TOP/bin, and the plug-in, if asked for, to TOP/library_dir."""
        program = os.path.join(self.top, "bin", "ndk-integrate")
        if not os.path.exists(program):
            os.makedirs(os.path.dirname(program), exist_ok=True)
            shutil.copy(PROGRAM, program)
        if library_dir is not None:
            target = os.path.join(self.top, library_dir)
            os.makedirs(target, exist_ok=True)
            shutil.copy(os.path.join(os.path.dirname(PROGRAM), LIBRARY), target)
        return program

    def give_to_nobody(self, program=None):
        """Gives the world to a user who owns nothing else. Returns a program for that user, who
        need not be able to read the build tree."""
        for above, dirs, files in os.walk(self.dir):
            for name in [".", *dirs, *files]:
                os.lchown(os.path.join(above, name), NOBODY, NOBODY)
        return program or self.copy_program(library_dir="bin")


def without_times(manifest):
    return re.sub(rb'"time": "[^"]*"', b'"time": ""', manifest)


def is_kept(name):
    return f"/{KEPT}/" in name


def text_of(entry):
    if entry is None:
        return "missing"
    mode, data = entry
    if isinstance(data, str) and data.startswith("-> "):
        return data
    text = data.decode(errors="backslashreplace") if isinstance(data, bytes) else data or "/"
    return f"{mode:o} {text}"


def changes(before, after):
    """What differs: the new form of each name, "removed" for one that is gone."""
    differing = {name: entry for name, entry in after.items() if before.get(name) != entry}
    return {**differing, **{name: "removed" for name in before if name not in after}}


class Outcome:
    """Everything that one run of the program did. `kept` are the changes inside the program's own
    directory, None where they do not matter."""

    def __init__(self, code, out="", err="", changed=None, is_json=False):
        self.code = code
        self.out = out
        self.err = err
        changed = changed or {}
        self.changes = {name: entry for name, entry in changed.items() if not is_kept(name)}
        self.kept = {name: entry for name, entry in changed.items() if is_kept(name)}
        self.is_json = is_json

    def text(self, kept=True):
        changed = {**self.changes, **self.kept} if kept else self.changes
        lines = "".join(f"{name}: {entry}\n" for name, entry in sorted(changed.items()))
        return (
            f"exit code {self.code}\n--- standard output\n{self.out}--- standard error\n{self.err}"
            f"--- changed\n{lines}"
        )

    __str__ = text

    def json(self):
        """The object that it told, in one line; None when it did not."""
        try:
            return json.loads(self.out) if self.out.count("\n") == 1 else None
        except ValueError:
            return None

    def readable(self):
        """The same, with an object that takes one line of its own shown in many, without what the
        files of a dry run hold: that is long, and their diffs tell it."""
        same = copy.copy(self)
        told = self.json() if self.is_json else None
        if told:
            for file in told.get("files") or []:
                file.pop("before", None)
                file.pop("after", None)
            same.out = pretty(told)
        return same


def pretty(value):
    return json.dumps(value, indent=1, ensure_ascii=False, sort_keys=True) + "\n"

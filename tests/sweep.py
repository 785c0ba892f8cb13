"""What crash_test.py and full_disk_test.py have in common: thousands of runs in a world of a few
bytes, whose tree is taken and put back as a whole."""

import concurrent.futures
import os
import shutil
import sys
import tempfile
import unittest

from world import (
    LINUX, SCRIPT, SETUP_32, SETUP_64, STORE, TEMPLATES, World, installation,
    memory_directory, text_of,
)

NDKS = ("ndk/", "other/")


def say(text):
    print(text, file=sys.stderr, flush=True)


def outside_store(tree):
    return {name: entry for name, entry in tree.items() if not name.startswith(STORE)}


def differences(actual, expected):
    """What differs between two trees, for a person; "" when nothing does."""
    return "".join(
        f"  {name}: is {text_of(actual.get(name))!r}, should be {text_of(expected.get(name))!r}\n"
        for name in sorted({*actual, *expected})
        if actual.get(name) != expected.get(name)
    )


class QuickWorld(World):
    def put(self, tree):
        """Makes the directory hold this tree and nothing else."""
        shutil.rmtree(self.dir, ignore_errors=True)
        os.mkdir(self.dir)
        for name, (mode, data) in tree.items():
            if data is None:
                os.mkdir(self.path(name))
            else:
                with open(self.path(name), "wb") as file:
                    file.write(data)
            self.chmod(name, mode)

    def command(self, command, **how):
        """Runs "undo", "install" or "install --OPTION...". A directory after --ndk is one of this
        world."""
        name, *options = command.split()
        if "--ndk" in options:
            options[-1] = self.path(options[-1])
        return self.start(name, self.path("installation.toml"), *options, **how)

    def after(self, tree, *commands):
        """The tree that commands make of `tree`."""
        self.put(tree)
        for command in commands:
            done = self.command(command)
            if done.returncode != 0:
                raise AssertionError(f"{command}: {done}")
        return self.snapshot()


def fresh_tree(package, script):
    """The world before the first installation: two NDKs, a directory for temporary files, and a
    compiler package, of which `package` has a (mode, bytes) for each template."""
    ndk = {"ndk-build": "", "source.properties": "Pkg.Revision = 11.2.1\n"}
    files = {"tmp/": "", "installation.toml": installation(), SCRIPT: f"#!/bin/sh\n{script}"}
    files.update({above + name: text for above in NDKS for name, text in ndk.items()})
    with World({**files, **package}) as world:
        return world.snapshot()


def versions(template, original, world, ndk):
    """The bytes of a template: its original, and what it is after each pass of the plug-in. The
    last one is the result."""
    passes = [(b"<NDK_DIR>", world.path(ndk).encode())]
    if template in (SETUP_64, SETUP_32):
        passes = [(b"{INSTALL_NOX_INSTALLDIR}", world.path(LINUX).encode())]
        passes.append((b"{INSTALL_NOX_VERSION}", b"5.0.3.42"))
    texts = [original]
    for placeholder, value in passes:
        text = texts[-1].replace(placeholder, value)
        texts.append(text + (b"\n" if text.endswith(b"\n") or not text else b"\n\n"))
    return texts


class Case:
    """A command, the tree that it starts from, and the trees of runs that nothing disturbs."""

    def __init__(self, world, package, script, command, installed_before=False, newer=None):
        self.command = command
        self.before = fresh_tree(package, script)
        if installed_before:
            self.before = world.after(self.before, "install")
        self.originals = newer or package
        self.before.update(newer or {})
        self.after = world.after(self.before, command)
        self.is_dry_run = "--dry-run" in command
        self.install = "install" if self.is_dry_run or command == "undo" else command
        self.installed = world.after(self.after, self.install)
        self.undone = world.after(self.installed, "undo")
        ndk = "other" if "other" in command else "ndk"
        self.versions = {
            name: versions(name, data, world, ndk) for name, (_, data) in self.originals.items()
        }


class Sweep:
    """Runs of one case that something disturbs, and the runs that put everything right."""

    def __init__(self, name, world, case):
        self.name = name
        self.world = world
        self.case = case
        self.failures = []
        self.recovered = set()
        self._check_undisturbed()

    def fail(self, how, what):
        self.failures.append(f"{self.name}, {how}: {what}")

    def expect(self, how, actual, expected):
        if actual != expected:
            self.fail(how, "\n" + differences(actual, expected))

    def _check_undisturbed(self):
        """What all others are compared with has to be right itself."""
        case = self.case
        filled = {
            name: (mode, case.versions[name][-1]) for name, (mode, _) in case.originals.items()
        }
        installed = {name: case.installed.get(name) for name in TEMPLATES}
        self.expect("templates after install", installed, filled)
        undone = {name: case.undone.get(name) for name in TEMPLATES}
        self.expect("templates after undo", undone, case.originals)
        kept = sorted(name for name in case.undone if name.startswith(STORE))
        if kept:
            self.fail("undo", f"leaves {kept}")

    def recover(self, how, tree):
        """Runs the program again, in every way. What comes of the same tree is the same."""
        key = frozenset(tree.items())
        if key in self.recovered:
            return
        self.recovered.add(key)
        case = self.case
        self._run_again(how, tree, [case.install], case.installed)
        self._run_again(how, tree, ["undo"], self._undone(tree))
        self._run_again(how, tree, [case.install, "undo"], case.undone)

    def _undone(self, tree):
        """What undo makes of the tree. It does not change the NDK, whatever the script did there.
        Where nothing was done, it does nothing."""
        if STORE not in tree:
            return tree
        undone = self.case.undone
        elsewhere = {name: undone[name] for name in undone if not name.startswith(NDKS)}
        return {**elsewhere, **{name: tree[name] for name in tree if name.startswith(NDKS)}}

    def _run_again(self, how, tree, commands, expected):
        self.world.put(tree)
        for command in commands:
            done = self.world.command(command)
            if done.returncode != 0:
                self.fail(f"{how}, then {commands}", f"{command}: {done}")
        self.expect(f"{how}, then {commands}", self.world.snapshot(), expected)


class SweepTest(unittest.TestCase):
    """Sweeps of these cases, two at a time."""

    sweep = None  # runs the case of a name, and returns its Sweep
    cases = []

    @classmethod
    def setUpClass(cls):
        say(f"{cls.__name__}: files are in {memory_directory() or tempfile.gettempdir()}")
        pool = concurrent.futures.ThreadPoolExecutor(2)
        cls.addClassCleanup(pool.shutdown, cancel_futures=True)
        cls.sweeps = {name: pool.submit(cls.sweep, name) for name in cls.cases}

    def assert_survived(self, sweep):
        say(f"{sweep.name}: {sweep.summary}")
        shown = 5
        if sweep.failures:
            count = len(sweep.failures)
            first = "\n".join(sweep.failures[:shown])
            self.fail(f"{count} failures, of which these are the first:\n{first}")

    def assert_all_survived(self):
        for name in self.cases:
            with self.subTest(name):
                self.assert_survived(self.sweeps[name].result())

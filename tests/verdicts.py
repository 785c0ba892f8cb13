"""What ndk-integrate find and check tell about directories, and comparisons of both."""

import json

from end_to_end import EndToEndTest
from messages import said
from world import Outcome, World

LAUNCHER = {"ndk/ndk-build": ""}
NEVER = "10"  # seconds after which a run hangs; an ordinary one takes a few milliseconds


def properties(revision):
    return f"Pkg.Desc = Android NDK\nPkg.Revision = {revision}\n"


def ndk(revision="21.4.7075529", name="ndk", **changed):
    files = {f"{name}/ndk-build": "", f"{name}/source.properties": properties(revision)}
    return {**files, **changed}


def with_properties(text):
    return {**LAUNCHER, "ndk/source.properties": text}


def rewritten(revision="11"):
    """source.properties as an old SDK manager writes it."""
    return f"""\
### Android Tool: Source of this archive.
#Tue Mar 22 11:04:54 EDT 2016
Archive.HostBits=64
Archive.HostOs=linux
Pkg.Desc=Android NDK
Pkg.Revision={revision}
Pkg.SourceUrl=https\\://example.org/ndk.zip
"""


class Verdict:
    """What is told about one directory."""

    def __init__(self, status, reason, message, path, release=None, revision=None):
        self.ok = status == "ok"
        self.path = path
        self.message = message
        self.line = f"{path}: {message}\n"
        self.json = {
            "schema": 1,
            "path": path,
            "status": status,
            "reason": reason,
            "release": release,
            "revision": revision,
            "message": message,
        }


def ok(release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    return Verdict("ok", "ok", f"{release} ({revision})", path, release, revision)


def missing(path="WORLD/ndk"):
    return Verdict("nok", "missing", "no such directory", path)


def not_a_directory(path="WORLD/ndk"):
    return Verdict("nok", "not-a-directory", "is a file, not a directory", path)


def unreadable(why="permission denied", path="WORLD/ndk"):
    return Verdict("nok", "unreadable", f"cannot be read: {why}", path)


def pre_r11(release="r10e", path="WORLD/ndk"):
    message = (
        f"an NDK from before r11 (RELEASE.TXT says {release}): "
        "it has no source.properties, so its release cannot be read"
    )
    return Verdict("nok", "pre-r11", message, path)


def no_launcher(path="WORLD/ndk"):
    return Verdict("nok", "no-launcher", "has neither ndk-build nor ndk-build.cmd", path)


def no_source_properties(path="WORLD/ndk"):
    message = "has ndk-build but no source.properties: an incomplete download?"
    return Verdict("nok", "no-source-properties", message, path)


def not_writable(release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    message = "an NDK, but you may not write there: run as a user who may, or use a copy"
    return Verdict("notwritable", "not-writable", message, path, release, revision)


def update_unknown(revision="11", path="WORLD/ndk"):
    message = (
        f"Pkg.Revision is {revision} alone, so which update of r{revision} this is cannot be told "
        "(an old SDK manager rewrote the file)"
    )
    return Verdict("unsupported", "update-unknown", message, path, None, revision)


def unknown_revision(revision, says=None, path="WORLD/ndk"):
    says = says or f"it says '{revision}'"
    message = f"source.properties has no usable Pkg.Revision ({says})"
    return Verdict("unsupported", "unknown-revision", message, path, None, revision)


def unsupported(supported, release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    message = f"{release} ({revision}) is not among {supported}"
    return Verdict("unsupported", "unsupported-release", message, path, release, revision)


def json_line(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":")) + "\n"


def first_good(verdicts):
    return next((verdict.path for verdict in verdicts if verdict.ok), None)


def found_lines(verdicts):
    found = first_good(verdicts)
    end = f"NDK found: {found}\n" if found else ""
    return "".join(verdict.line for verdict in verdicts) + end


def found_json(verdicts):
    candidates = [verdict.json for verdict in verdicts]
    return json_line({"schema": 1, "ndk": first_good(verdicts), "candidates": candidates})


def not_found(count):
    directories = "1 directory" if count == 1 else f"{count} directories"
    return said(f"no NDK found: {directories} looked at, none is good")


class UntouchedWorld(World):
    """A world that notices every touch: also a file written anew with the same content."""

    def tree(self, kept=True):
        return self.touched(self.dir)

    def list(self, *names):
        return ";".join(self.path(name) for name in names)


class VerdictTest(EndToEndTest):
    def untouched(self, *trees):
        tree = {name: content for tree in trees for name, content in tree.items()}
        return self.enterContext(UntouchedWorld(tree))

    def assert_outcomes(self, *pairs):
        """Each pair is an outcome and the one expected."""
        found, expected = ("".join(str(one) for one in outcomes) for outcomes in zip(*pairs))
        self.assertMultiLineEqual(found, expected)

    def check(self, world, verdict, *options, path=None, **how):
        """What `check` tells and what it should, to people and to programs."""
        command = ["check", path or world.path("ndk"), *options]
        code = 0 if verdict.ok else 1
        yield world.run(*command, **how), Outcome(code, verdict.line)
        yield world.run(*command, "--json", **how), Outcome(code, json_line(verdict.json))

    def find(self, world, verdicts, *options, **how):
        """The same of `find`."""
        command = ["find", *options]
        code, err = 0, ""
        if first_good(verdicts) is None:
            code, err = 1, not_found(len(verdicts))
        yield world.run(*command, **how), Outcome(code, found_lines(verdicts), err)
        yield world.run(*command, "--json", **how), Outcome(code, found_json(verdicts))

    def assert_check(self, world, verdict, *options, **how):
        self.assert_outcomes(*self.check(world, verdict, *options, **how))

    def assert_find(self, world, verdicts, *options, **how):
        self.assert_outcomes(*self.find(world, verdicts, *options, **how))

    def assert_verdict(self, world, verdict, *options, path=None, **how):
        """Both commands tell `verdict` of a directory."""
        path = path or world.path("ndk")
        search = [f"--search={path}", *options]
        self.assert_outcomes(
            *self.check(world, verdict, *options, path=path, **how),
            *self.find(world, [verdict], *search, **how),
            *self.find(world, [verdict], *search, "--all", **how),
        )

    def assert_verdicts(self, rows, **how):
        """Each row is a tree, the verdict on its ndk, and options."""
        for name, (tree, verdict, *options) in rows.items():
            with self.subTest(name):
                self.assert_verdict(self.untouched(tree), verdict, *options, **how)

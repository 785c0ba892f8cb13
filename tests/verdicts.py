"""What ndk-integrate find and check tell about directories, and comparisons of both."""

import json
import os
import re

import jsonschema

from end_to_end import EndToEndTest
from messages import said
from world import ROOT, Outcome, World

with open(os.path.join(ROOT, "docs", "ndk-integrate.schema.json"), encoding="utf-8") as schema_file:
    SCHEMA = jsonschema.Draft7Validator(json.load(schema_file))

PROGRAM = "#!/bin/sh\n"  # as a file's content: one that is executable
LAUNCHER = {"ndk/ndk-build": PROGRAM}
NEVER = "10"  # seconds after which a run hangs; an ordinary one takes a few milliseconds


def properties(revision):
    return f"Pkg.Desc = Android NDK\nPkg.Revision = {revision}\n"


def ndk(revision="21.4.7075529", name="ndk", **changed):
    files = {f"{name}/ndk-build": PROGRAM, f"{name}/source.properties": properties(revision)}
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
        self.source = None  # where `find` says it comes from; None for what it was asked to search
        self.json = {
            "schema": 1,
            "path": path,
            "status": status,
            "reason": reason,
            "release": release,
            "revision": revision,
            "message": message,
            "source": None,
            "prerelease": bool(re.search("-[a-z]", revision or "")),
            "notes": [],
        }
        if self.json["prerelease"] and status != "nok":
            self.noted("beta", "a beta, not a release")

    @property
    def message(self):
        return self.json["message"]

    def noted(self, reason, message):
        self.json["notes"].append({"reason": reason, "message": message})
        return self

    def from_(self, source):
        self.source = source
        return self

    def json_of(self, command):
        searched = "--search" if command == "find" else "the command line"
        return {**self.json, "source": self.source or searched}

    def lines_of(self, command):
        release, revision = self.json["release"], self.json["revision"]
        more = []
        if (revision or release or "") not in self.message:
            more.append(f"{release} ({revision})" if release else revision)
        if command == "find":
            more.append(f"from {self.source or '--search'}")
        end = f" [{', '.join(more)}]" if more else ""
        notes = "".join(f"  note: {note['message']}\n" for note in self.json["notes"])
        return f"{self.path}: {self.message}{end}\n{notes}"

    @property
    def line(self):
        return self.lines_of("check")

    @property
    def check_json(self):
        return json_line(self.json_of("check"))


def ok(release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    return Verdict("ok", "ok", f"{release} ({revision})", path, release, revision)


def missing(path="WORLD/ndk", hint=""):
    return Verdict("nok", "missing", "no such directory" + hint, path)


def not_a_directory(path="WORLD/ndk", hint=""):
    return Verdict("nok", "not-a-directory", "is a file, not a directory" + hint, path)


def unreadable(why="permission denied", path="WORLD/ndk"):
    return Verdict("nok", "unreadable", f"cannot be read: {why}", path)


def pre_r11(release="r10e", path="WORLD/ndk"):
    message = (
        f"an NDK from before r11 (RELEASE.TXT says {release}): "
        "it has no source.properties, so its release cannot be read"
    )
    return Verdict("nok", "pre-r11", message, path, release)


def no_launcher(path="WORLD/ndk", *release):
    return Verdict("nok", "no-launcher", "has neither ndk-build nor ndk-build.cmd", path, *release)


def no_source_properties(path="WORLD/ndk", hint=""):
    message = "has ndk-build but no source.properties: an incomplete download?"
    return Verdict("nok", "no-source-properties", message + hint, path)


def parent_of_ndks(meant, path="WORLD/ndk"):
    message = f"holds NDKs but is not one itself; did you mean {meant}?"
    return Verdict("nok", "parent-of-ndks", message, path)


def blank_in_path(verdict):
    message = "its path holds a blank, with which ndk-build does not work: "
    return verdict.noted("blank-in-path", message + "move it, or make a link with another name")


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
    """A beta only where nothing else is good."""
    paths = [verdict.path for verdict in verdicts if verdict.ok and not verdict.json["prerelease"]]
    paths += [verdict.path for verdict in verdicts if verdict.ok]
    return paths[0] if paths else None


def found_lines(verdicts):
    found = first_good(verdicts)
    end = f"NDK found: {found}\n" if found else ""
    return "".join(verdict.lines_of("find") for verdict in verdicts) + end


def found_json(verdicts, warnings=(), nearest=None):
    return json_line({
        "schema": 1,
        "ndk": first_good(verdicts),
        "candidates": [verdict.json_of("find") for verdict in verdicts],
        "warnings": list(warnings),
        "nearest": nearest.path if nearest else None,
    })


def not_found(count, nearest=None):
    directories = "1 directory" if count == 1 else f"{count} directories"
    text = said(f"no NDK found: {directories} looked at, none is good")
    if nearest:
        release, revision = nearest.json["release"], nearest.json["revision"]
        known = f"{release} ({revision})" if release and revision else release or revision
        text += said(f"nearest to what was asked for: {nearest.path}, {known}")
    return text


def only_release(verdicts):
    """The one of these whose release can be told, as long as there is no other."""
    told = [
        one for one in verdicts
        if one.json["release"] or re.fullmatch("[0-9]{1,9}", one.json["revision"] or "")
    ]
    return told[0] if told else None


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
        yield self.valid(world.run(*command, "--json", **how)), Outcome(code, verdict.check_json)

    def find(self, world, verdicts, *options, nearest=None, **how):
        """The same of `find`. `nearest` is needed where several releases can be told in vain."""
        command = ["find", *options]
        code, err = 0, ""
        if first_good(verdicts) is None:
            nearest = nearest or only_release(verdicts)
            code, err = 1, not_found(len(verdicts), nearest)
        yield world.run(*command, **how), Outcome(code, found_lines(verdicts), err)
        text = found_json(verdicts, nearest=nearest)
        yield self.valid(world.run(*command, "--json", **how)), Outcome(code, text)

    def valid(self, outcome):
        """The outcome, whose object keeps to the schema that is installed."""
        SCHEMA.validate(json.loads(outcome.out))
        return outcome

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
            list(self.find(world, [verdict], *search, **how))[1],
        )

    def assert_verdicts(self, rows, **how):
        """Each row is a tree, the verdict on its ndk, and options."""
        for name, (tree, verdict, *options) in rows.items():
            with self.subTest(name):
                self.assert_verdict(self.untouched(tree), verdict, *options, **how)

"""ndk-integrate find and check, end to end: the real program and the real plug-in on real files."""

import json
import os
import shutil
import stat
import subprocess
import unittest

from ndk_integrate_world import EXAMPLES, LIBRARY, ROOT, EndToEndTest, World, fake_plugin, throwing_plugin

RELEASES = os.path.join(ROOT, "console_host", "ndk", "ndk-releases.tsv")
NEVER = "10"  # seconds after which a run hangs; an ordinary one takes a few milliseconds

LAUNCHER = {"ndk/ndk-build": ""}
UNKNOWN = "source.properties has no usable Pkg.Revision "


class FindWorld(World):
    """A world that notices every touch: also a file written anew with the same content."""

    def tree(self):
        entries = {}
        for above, dirs, files in os.walk(self.dir):
            for name in ["", *dirs, *files]:
                path = os.path.join(above, name)
                try:
                    entries[os.path.relpath(path, self.dir)] = self._entry(path)
                except PermissionError:
                    pass  # in a directory made unreadable, which its own entry stands for
        return entries

    def _entry(self, path):
        status = os.lstat(path)
        entry = [f"{status.st_mode:o}", status.st_ino, status.st_size, status.st_ctime_ns]
        if stat.S_ISREG(status.st_mode) and os.access(path, os.R_OK):
            with open(path, "rb") as file:
                entry.append(file.read())
        return entry

    def copy_program(self, library_dir=None):
        program = os.path.join(self.top, "bin", "ndk-integrate")
        return program if os.path.exists(program) else super().copy_program(library_dir)

    def link(self, name, target):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        os.symlink(target, self.path(name))

    def chmod(self, name, mode):
        os.chmod(self.path(name), mode)


def properties(revision):
    return f"Pkg.Desc = Android NDK\nPkg.Revision = {revision}\n"


def ndk(revision="21.4.7075529", name="ndk"):
    return {f"{name}/ndk-build": "", f"{name}/source.properties": properties(revision)}


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

    def __init__(self, status, reason, message, release=None, revision=None, path="WORLD/ndk"):
        self.path = path
        self.message = message
        self.json = {
            "schema": 1,
            "path": path,
            "status": status,
            "reason": reason,
            "release": release,
            "revision": revision,
            "message": message,
        }

    @property
    def ok(self):
        return self.json["status"] == "ok"

    @property
    def line(self):
        return f"{self.path}: {self.message}\n"


def ok(release, revision, path="WORLD/ndk"):
    return Verdict("ok", "ok", f"{release} ({revision})", release, revision, path)


def missing(path="WORLD/ndk"):
    return Verdict("nok", "missing", "no such directory", path=path)


def not_a_directory(path="WORLD/ndk"):
    return Verdict("nok", "not-a-directory", "is a file, not a directory", path=path)


def unreadable(why="permission denied", path="WORLD/ndk"):
    return Verdict("nok", "unreadable", f"cannot be read: {why}", path=path)


def pre_r11(release="r10e", path="WORLD/ndk"):
    message = (
        f"an NDK from before r11 (RELEASE.TXT says {release}): "
        "it has no source.properties, so its release cannot be read"
    )
    return Verdict("nok", "pre-r11", message, path=path)


def no_launcher(path="WORLD/ndk"):
    return Verdict("nok", "no-launcher", "has neither ndk-build nor ndk-build.cmd", path=path)


def no_source_properties(path="WORLD/ndk"):
    message = "has ndk-build but no source.properties: an incomplete download?"
    return Verdict("nok", "no-source-properties", message, path=path)


def not_writable(release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    message = "an NDK, but you may not write there: run as a user who may, or use a copy"
    return Verdict("notwritable", "not-writable", message, release, revision, path)


def update_unknown(revision="11", path="WORLD/ndk"):
    message = (
        f"Pkg.Revision is {revision} alone, so which update of r{revision} this is cannot be told "
        "(an old SDK manager rewrote the file)"
    )
    return Verdict("unsupported", "update-unknown", message, None, revision, path)


def unknown_revision(revision, says=None):
    says = says or f"it says '{revision}'"
    message = f"{UNKNOWN}({says})"
    return Verdict("unsupported", "unknown-revision", message, None, revision)


def unsupported(supported, release="r21e", revision="21.4.7075529", path="WORLD/ndk"):
    message = f"{release} ({revision}) is not among {supported}"
    return Verdict("unsupported", "unsupported-release", message, release, revision, path)


def json_line(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":")) + "\n"


def found_json(verdicts):
    found = [verdict.path for verdict in verdicts if verdict.ok]
    candidates = [verdict.json for verdict in verdicts]
    return json_line({"schema": 1, "ndk": found[0] if found else None, "candidates": candidates})


def not_found(count):
    directories = "1 directory" if count == 1 else f"{count} directories"
    return f"ndk-integrate: no NDK found: {directories} looked at, none is good\n"


class FindTest(EndToEndTest):
    def world(self, *trees):
        world = FindWorld(self)
        for tree in trees:
            for name, content in tree.items():
                world.write(name, content)
        return world

    def assert_check(self, world, verdict, *options, path=None, **how):
        """`check` tells `verdict`, to people and to programs."""
        code = 0 if verdict.ok else 1
        command = ["check", path or world.path("ndk"), *options]
        self.assert_outcome(world.run(*command, **how), code, verdict.line)
        self.assert_outcome(world.run(*command, "--json", **how), code, json_line(verdict.json))

    def assert_find(self, world, verdicts, *options, **how):
        """`find` tells `verdicts` and the first good one, to people and to programs."""
        found = [verdict.path for verdict in verdicts if verdict.ok]
        code = 0 if found else 1
        out = "".join(verdict.line for verdict in verdicts)
        out += f"NDK found: {found[0]}\n" if found else ""
        err = "" if found else not_found(len(verdicts))
        self.assert_outcome(world.run("find", *options, **how), code, out, err)
        text = found_json(verdicts)
        self.assert_outcome(world.run("find", *options, "--json", **how), code, text)

    def assert_verdict(self, world, verdict, *options, **how):
        """Both commands tell `verdict` of WORLD/ndk."""
        self.assert_check(world, verdict, *options, **how)
        search = ["--search", world.path("ndk"), *options]
        self.assert_find(world, [verdict], *search, **how)
        self.assert_find(world, [verdict], *search, "--all", **how)

    def assert_verdict_on(self, tree, verdict, *options, **how):
        self.assert_verdict(self.world(tree), verdict, *options, **how)


class Ok(FindTest):
    def test_launcher(self):
        self.assert_verdict_on(ndk(), ok("r21e", "21.4.7075529"))

    def test_windows_launcher(self):
        tree = {"ndk/ndk-build.cmd": "", "ndk/source.properties": properties("21.4.7075529")}
        self.assert_verdict_on(tree, ok("r21e", "21.4.7075529"))

    def test_link(self):
        world = self.world(ndk(name="real"))
        world.link("ndk", "real")
        self.assert_verdict(world, ok("r21e", "21.4.7075529"))

    def test_linked_files(self):
        world = self.world(ndk(name="real"), {"ndk/": ""})
        world.link("ndk/ndk-build", "../real/ndk-build")
        world.link("ndk/source.properties", "../real/source.properties")
        self.assert_verdict(world, ok("r21e", "21.4.7075529"))

    def test_release_txt_too(self):
        self.assert_verdict_on({**ndk(), "ndk/RELEASE.TXT": "r10e\n"}, ok("r21e", "21.4.7075529"))


class Missing(FindTest):
    def test_nothing_there(self):
        self.assert_verdict_on({}, missing())

    def test_dangling_link(self):
        world = self.world()
        world.link("ndk", "nowhere")
        self.assert_verdict(world, missing())

    def test_below_a_file(self):
        world = self.world({"file": ""})
        path = world.path("file/below")
        verdict = missing("WORLD/file/below")
        self.assert_check(world, verdict, path=path)
        self.assert_find(world, [verdict], "--search", path)


class NotADirectory(FindTest):
    def test_file(self):
        self.assert_verdict_on({"ndk": ""}, not_a_directory())

    def test_link_to_file(self):
        world = self.world({"file": ""})
        world.link("ndk", "file")
        self.assert_verdict(world, not_a_directory())

    def test_trailing_slash(self):
        world = self.world({"file": ""})
        verdict = not_a_directory("file/")
        self.assert_check(world, verdict, path="file/", cwd=world.dir)
        self.assert_find(world, [verdict], "--search", "file/", cwd=world.dir)


class Unreadable(FindTest):
    def test_directory(self):
        world = self.world(ndk())
        world.chmod("ndk", 0)
        self.assert_verdict(world, unreadable(), unprivileged=True)

    def test_directory_that_can_be_listed_only(self):
        world = self.world(ndk())
        world.chmod("ndk", 0o444)
        self.assert_verdict(world, unreadable(), unprivileged=True)

    def test_below_an_unreadable_directory(self):
        world = self.world(ndk(name="closed/ndk"))
        world.chmod("closed", 0)
        world.link("ndk", "closed/ndk")
        self.assert_verdict(world, unreadable(), unprivileged=True)

    def test_before_r11(self):
        world = self.world(LAUNCHER, {"ndk/RELEASE.TXT": "r10e\n"})
        world.chmod("ndk", 0)
        self.assert_verdict(world, unreadable(), unprivileged=True)

    def test_links_in_a_circle(self):
        world = self.world()
        world.link("ndk", "ndk")
        self.assert_verdict(world, unreadable("too many levels of symbolic links"))


class PreR11(FindTest):
    def test_release_txt(self):
        texts = {
            "r10e (64-bit)\n": "r10e",
            "r10e": "r10e",
            "r9d\r\n": "r9d",
            "r10\n": "r10",
            "r1\n": "r1",
        }
        for text, release in texts.items():
            with self.subTest(text):
                self.assert_verdict_on({**LAUNCHER, "ndk/RELEASE.TXT": text}, pre_r11(release))

    def test_no_launcher(self):
        self.assert_verdict_on({"ndk/RELEASE.TXT": "r10e (64-bit)\n"}, pre_r11())

    def test_source_properties_directory(self):
        tree = {"ndk/RELEASE.TXT": "r10e\n", "ndk/source.properties/": ""}
        self.assert_verdict_on(tree, pre_r11())

    def test_odd_release_txt(self):
        for text in ["", "r11c\n", "r0\n", "r100\n", "r10ee\n", "R10e\n", "10e\n", "an r10e\n"]:
            with self.subTest(text):
                tree = {**LAUNCHER, "ndk/RELEASE.TXT": text}
                self.assert_verdict_on(tree, no_source_properties())

    def test_odd_release_txt_and_no_launcher(self):
        self.assert_verdict_on({"ndk/RELEASE.TXT": "r11c\n"}, no_launcher())

    def test_release_txt_directory(self):
        self.assert_verdict_on({**LAUNCHER, "ndk/RELEASE.TXT/": ""}, no_source_properties())

    def test_release_txt_pipe(self):
        world = self.world(LAUNCHER)
        os.mkfifo(world.path("ndk/RELEASE.TXT"))
        self.assert_verdict(world, no_source_properties(), before=["timeout", NEVER])


class NoLauncher(FindTest):
    def test_empty_directory(self):
        self.assert_verdict_on({"ndk/": ""}, no_launcher())

    def test_source_properties_only(self):
        tree = {"ndk/source.properties": properties("21.4.7075529")}
        self.assert_verdict_on(tree, no_launcher())

    def test_source_properties_and_release_txt(self):
        tree = {"ndk/source.properties": properties("21.4.7075529"), "ndk/RELEASE.TXT": "r10e\n"}
        self.assert_verdict_on(tree, no_launcher())

    def test_launcher_directory(self):
        tree = {"ndk/ndk-build/": "", "ndk/source.properties": properties("21.4.7075529")}
        self.assert_verdict_on(tree, no_launcher())

    def test_dangling_launcher(self):
        world = self.world({"ndk/source.properties": properties("21.4.7075529")})
        world.link("ndk/ndk-build", "nowhere")
        self.assert_verdict(world, no_launcher())


class NoSourceProperties(FindTest):
    def test_launcher_only(self):
        self.assert_verdict_on(LAUNCHER, no_source_properties())

    def test_source_properties_directory(self):
        tree = {**LAUNCHER, "ndk/source.properties/": ""}
        self.assert_verdict_on(tree, no_source_properties())

    def test_dangling_source_properties(self):
        world = self.world(LAUNCHER)
        world.link("ndk/source.properties", "nowhere")
        self.assert_verdict(world, no_source_properties())

    def test_source_properties_pipe(self):
        world = self.world(LAUNCHER)
        os.mkfifo(world.path("ndk/source.properties"))
        self.assert_verdict(world, no_source_properties(), before=["timeout", NEVER])


class NotWritable(FindTest):
    def assert_not_writable(self, tree, verdict, *options):
        world = self.world(tree)
        world.chmod("ndk", 0o555)
        self.assert_verdict(world, verdict, *options, unprivileged=True)

    def test_good_ndk(self):
        self.assert_not_writable(ndk(), not_writable())

    def test_unsupported_release(self):
        self.assert_not_writable(ndk(), not_writable(), "--supported", "r10e;r11c")

    def test_update_unknown(self):
        self.assert_not_writable(ndk("11"), not_writable(None, "11"))

    def test_unknown_revision(self):
        self.assert_not_writable(ndk("x"), not_writable(None, "x"))

    def test_unreadable_source_properties(self):
        world = self.world(ndk())
        world.chmod("ndk/source.properties", 0)
        world.chmod("ndk", 0o555)
        self.assert_verdict(world, not_writable(None, None), unprivileged=True)

    def test_no_source_properties(self):
        self.assert_not_writable(LAUNCHER, no_source_properties())


class UpdateUnknown(FindTest):
    def test_rewritten_file(self):
        tree = {**LAUNCHER, "ndk/source.properties": rewritten()}
        self.assert_verdict_on(tree, update_unknown())

    def test_whatever_is_supported(self):
        self.assert_verdict_on(ndk("11"), update_unknown(), "--supported", "r11;r11b;r11c")

    def test_enormous_number(self):
        self.assert_verdict_on(ndk("9" * 30), update_unknown("9" * 30))


class UnknownRevision(FindTest):
    def assert_unknown(self, *revisions):
        for revision in revisions:
            with self.subTest(revision):
                self.assert_verdict_on(ndk(revision), unknown_revision(revision))

    def test_no_number(self):
        self.assert_unknown("x", "x.y", "x.4", "21.x", "-5.3", "21.-1", "11-beta1", "21e")

    def test_one_number(self):
        self.assert_unknown("11.", ".11", "11-beta1")

    def test_no_letter_for_the_update(self):
        self.assert_unknown("21.26", "21.26.1", "21.123", "21.159.7", "21.218", "21.255")

    def test_update_beyond_every_letter(self):
        # The letters begin anew there: 256 would be "a".
        self.assert_unknown("21.256.7", "21.257", "21.281.7075529")

    def test_update_that_would_be_a_digit(self):
        self.assert_unknown("21.207", "21.216.7075529")

    def test_enormous_update(self):
        self.assert_unknown("21." + "9" * 30, "21.4294967300")

    def test_enormous_release(self):
        self.assert_unknown("9" * 30 + ".1", "4294967317.4")

    def test_control_characters(self):
        world = self.world(ndk("\x1b[31mx\x7f\0"))
        out = rf"WORLD/ndk: {UNKNOWN}(it says '\x1b[31mx\x7f\x00')" + "\n"
        self.assert_outcome(world.run("check", world.path("ndk")), 1, out)
        verdict = unknown_revision("\x1b[31mx\x7f\0")
        outcome = world.run("check", world.path("ndk"), "--json")
        self.assert_outcome(outcome, 1, json_line(verdict.json))

    def test_nothing_said(self):
        verdict = unknown_revision(None, "it says nothing")
        texts = {
            "empty file": "",
            "empty value": "Pkg.Revision =\n",
            "no such line": "Pkg.Desc = Android NDK\nPkg.BaseRevision = 21.4.7075529\n",
            "commented out": "#Pkg.Revision = 21.4.7075529\n! Pkg.Revision = 21.4.7075529\n",
            "no separator": "Pkg.Revision 21.4.7075529\n",
            "other case": "pkg.revision = 21.4.7075529\n",
        }
        for name, text in texts.items():
            with self.subTest(name):
                self.assert_verdict_on({**LAUNCHER, "ndk/source.properties": text}, verdict)

    def test_unreadable_file(self):
        world = self.world(ndk())
        world.chmod("ndk/source.properties", 0)
        verdict = unknown_revision(None, "cannot be read: permission denied")
        self.assert_verdict(world, verdict, unprivileged=True)


class UnsupportedRelease(FindTest):
    def test_others(self):
        self.assert_verdict_on(ndk(), unsupported("r10e, r11c"), "--supported", "r10e;r11c")

    def test_other(self):
        self.assert_verdict_on(ndk(), unsupported("r21"), "--supported", "r21")

    def test_empty_entries(self):
        self.assert_verdict_on(ndk(), unsupported("r10e, r11c"), "--supported", ";r10e;;r11c;")

    def test_nearly_the_same(self):
        supported = unsupported("R21e,  r21e, 21e, r21e*, r21")
        self.assert_verdict_on(ndk(), supported, "--supported", "R21e; r21e;21e;r21e*;r21")

    def test_none(self):
        verdict = unsupported("the supported releases: there are none")
        self.assert_verdict_on(ndk(), verdict, "--supported", "")
        self.assert_verdict_on(ndk(), verdict, "--supported", ";")

    def test_one_of_several(self):
        supported = ["--supported", "r10e;r21e;r11c"]
        self.assert_verdict_on(ndk(), ok("r21e", "21.4.7075529"), *supported)

    def test_letter_left_out(self):
        verdict = unsupported("r11c", "r11", "11.0.2655954")
        self.assert_verdict_on(ndk("11.0.2655954"), verdict, "--supported", "r11c")

    def test_accepted_by_the_plugin(self):
        # Whatever makes the plug-in accept it is what it takes the release for.
        verdict = ok("r21e", "21.4 rc1")
        self.assert_verdict_on(ndk("21.4 rc1"), verdict, "--supported", "r21e")
        self.assert_verdict_on(ndk("x.y"), ok("r0", "x.y"), "--supported", "r0")


class Revisions(FindTest):
    def test_release(self):
        releases = {
            "11.2": "r11c",
            "11.0": "r11",
            "21.1.0": "r21b",
            "21.25.0": "r21z",
            "9.3.1": "r9d",
            "29.0.14033849-beta4": "r29",
            "29.1.14033849-rc1": "r29b",
            "29.0-beta1": "r29",
            "21.4.7075529.1": "r21e",
            "21.4." + "9" * 30: "r21e",
            "21.4.x": "r21e",
            "999999999.0": "r999999999",
        }
        for revision, release in releases.items():
            with self.subTest(revision):
                self.assert_verdict_on(ndk(revision), ok(release, revision))

    def assert_file(self, text, verdict):
        self.assert_verdict_on({**LAUNCHER, "ndk/source.properties": text}, verdict)

    def test_crlf(self):
        text = properties("21.4.7075529").replace("\n", "\r\n")
        self.assert_file(text, ok("r21e", "21.4.7075529"))

    def test_crlf_update_unknown(self):
        self.assert_file(rewritten().replace("\n", "\r\n"), update_unknown())

    def test_no_final_newline(self):
        self.assert_file("Pkg.Revision = 21.4.7075529", ok("r21e", "21.4.7075529"))

    def test_blanks(self):
        self.assert_file("\t Pkg.Revision\t=\t 21.4.7075529 \t\n", ok("r21e", "21.4.7075529"))

    def test_first_line_of_a_key_counts(self):
        text = properties("21.4.7075529") + "Pkg.Revision=11.2.2725575\n"
        self.assert_file(text, ok("r21e", "21.4.7075529"))

    def test_similar_keys(self):
        text = "Pkg.RevisionX = 1.1\nXPkg.Revision = 2.2\nPkg.BaseRevision = 3.3\n"
        self.assert_file(text + properties("21.4.7075529"), ok("r21e", "21.4.7075529"))

    def test_beta(self):
        text = (
            "Pkg.Desc = Android NDK\nPkg.Revision = 29.0.14033849-beta4\n"
            "Pkg.BaseRevision = 29.0.14033849\nPkg.ReleaseName = r29-beta4\n"
        )
        self.assert_file(text, ok("r29", "29.0.14033849-beta4"))

    def test_control_character(self):
        world = self.world(ndk("21.4.\x1b[31m"))
        outcome = world.run("check", world.path("ndk"))
        self.assert_outcome(outcome, 0, "WORLD/ndk: r21e (21.4.\\x1b[31m)\n")
        outcome = world.run("check", world.path("ndk"), "--json")
        self.assert_outcome(outcome, 0, json_line(ok("r21e", "21.4.\x1b[31m").json))
        outcome = world.run("find", "--search", world.path("ndk"))
        out = "WORLD/ndk: r21e (21.4.\\x1b[31m)\nNDK found: WORLD/ndk\n"
        self.assert_outcome(outcome, 0, out)

    def test_no_utf8(self):
        world = self.world(LAUNCHER, {"ndk/source.properties": b"Pkg.Revision = 21.4.\xff\xfe\n"})
        outcome = world.run("check", world.path("ndk"))
        self.assert_outcome(outcome, 0, "WORLD/ndk: r21e (21.4.\\xff\\xfe)\n")
        outcome = world.run("check", world.path("ndk"), "--json")
        self.assert_outcome(outcome, 0, json_line(ok("r21e", "21.4.\ufffd\ufffd").json))


def real_releases():
    with open(RELEASES, encoding="ascii") as file:
        return [line.split() for line in file if not line.startswith("#")]


def with_release_name(release, revision):
    return (
        properties(revision) + f"Pkg.BaseRevision = {revision}\nPkg.ReleaseName = {release}\n"
    )


class RealReleases(FindTest):
    def assert_form(self, source_properties):
        """Each release is told from `source_properties(release, revision)`."""
        world = self.world()
        verdicts = []
        for release, revision in real_releases():
            tree = ndk(revision, name=revision)
            tree[f"{revision}/source.properties"] = source_properties(release, revision)
            for name, content in tree.items():
                world.write(name, content)
            verdict = ok(release, revision, f"WORLD/{revision}")
            self.assert_check(world, verdict, path=world.path(revision))
            verdicts.append(verdict)
        self.assertEqual(len(verdicts), 12)
        search = ";".join(world.path(revision) for _, revision in real_releases())
        self.assert_find(world, verdicts, "--search", search, "--all")

    def test_own_form(self):
        self.assert_form(lambda release, revision: properties(revision))

    def test_form_with_release_name(self):
        self.assert_form(with_release_name)

    def test_rewritten_form(self):
        self.assert_form(lambda release, revision: rewritten(revision))

    def test_crlf(self):
        self.assert_form(lambda *row: with_release_name(*row).replace("\n", "\r\n"))

    def test_no_final_newline(self):
        self.assert_form(lambda release, revision: properties(revision)[:-1])

    def test_crlf_and_no_final_newline(self):
        self.assert_form(lambda *row: f"Pkg.Desc=Android NDK\r\nPkg.Revision={row[1]}")


GOOD = ok("r21e", "21.4.7075529", "WORLD/good")
OLDER = ok("r11c", "11.2.2725575", "WORLD/older")
HALF = no_source_properties("WORLD/half")


class Search(FindTest):
    def world(self, *trees):
        tree = {**ndk(name="good"), **ndk("11.2.2725575", name="older"), "half/ndk-build": ""}
        return super().world(tree, *trees)

    def list(self, world, *names):
        return ";".join(world.path(name) for name in names)

    def test_stops_at_the_first_good_one(self):
        world = self.world()
        search = self.list(world, "half", "gone", "good", "older", "half")
        self.assert_find(world, [HALF, missing("WORLD/gone"), GOOD], "--search", search)

    def test_all(self):
        world = self.world()
        search = self.list(world, "half", "older", "gone", "good", "half")
        verdicts = [HALF, OLDER, missing("WORLD/gone"), GOOD, HALF]
        self.assert_find(world, verdicts, "--search", search, "--all")

    def test_none_good(self):
        world = self.world({"file": ""})
        search = self.list(world, "half", "file", "gone")
        verdicts = [HALF, not_a_directory("WORLD/file"), missing("WORLD/gone")]
        self.assert_find(world, verdicts, "--search", search)
        self.assert_find(world, verdicts, "--search", search, "--all")

    def test_repeated(self):
        world = self.world()
        search = ["--search", self.list(world, "half", "gone"), "--search", world.path("older")]
        search += ["--search", world.path("good")]
        verdicts = [HALF, missing("WORLD/gone"), OLDER]
        self.assert_find(world, verdicts, *search)
        self.assert_find(world, [*verdicts, GOOD], *search, "--all")

    def test_same_directory_twice(self):
        world = self.world()
        search = self.list(world, "half", "half", "good", "good")
        self.assert_find(world, [HALF, HALF, GOOD], "--search", search)
        self.assert_find(world, [HALF, HALF, GOOD, GOOD], "--search", search, "--all")

    def test_empty_entries(self):
        world = self.world()
        search = [f"--search=;;{self.list(world, 'half')};;{self.list(world, 'good')};"]
        self.assert_find(world, [HALF, GOOD], *search, "--search", "", "--search", ";")

    def test_as_given(self):
        world = self.world()
        names = ["gone", "half/", "./half", "../world/half", "half//", ".", "good/"]
        reasons = [missing, *[no_source_properties] * 4, no_launcher]
        verdicts = [reason(name) for reason, name in zip(reasons, names)]
        verdicts.append(ok("r21e", "21.4.7075529", "good/"))
        search = ["--search", ";".join(names)]
        self.assert_find(world, verdicts, *search, cwd=world.dir)
        self.assert_find(world, verdicts, *search, "--all", cwd=world.dir)

    def test_names(self):
        for name in ["a blank", " ", "[good]", "[a,b]", "{}", "%%", "a=b", "-x", "'q'", '"', "é"]:
            with self.subTest(name):
                world = self.world(ndk(name=name))
                verdict = ok("r21e", "21.4.7075529", f"WORLD/{name}")
                self.assert_check(world, verdict, path=world.path(name))
                self.assert_find(world, [verdict], "--search", world.path(name))
                verdict = ok("r21e", "21.4.7075529", name)
                self.assert_find(world, [verdict], f"--search={name}", cwd=world.dir)

    def test_name_with_line_end(self):
        world = self.world(ndk(name="two\nlines\t\r\x1b"), {"two\nparts/": ""})
        search = ["--search", self.list(world, "two\nparts", "two\nlines\t\r\x1b")]
        good = "WORLD/two\\nlines\\t\\r\\x1b"
        out = f"WORLD/two\\nparts: {no_launcher().message}\n{good}: {GOOD.message}\n"
        out += f"NDK found: {good}\n"
        self.assert_outcome(world.run("find", *search), 0, out)
        verdicts = [no_launcher("WORLD/two\nparts")]
        verdicts.append(ok("r21e", "21.4.7075529", "WORLD/two\nlines\t\r\x1b"))
        self.assert_outcome(world.run("find", *search, "--json"), 0, found_json(verdicts))

    def test_name_that_is_no_utf8(self):
        world = self.world()
        name = os.path.join(os.fsencode(world.dir), b"\xff\xc3")
        os.rename(os.fsencode(world.path("good")), name)
        out = f"WORLD/\\xff\\xc3: {GOOD.message}\n"
        self.assert_outcome(world.run("check", name), 0, out)
        out += "NDK found: WORLD/\\xff\\xc3\n"
        self.assert_outcome(world.run("find", "--search", name), 0, out)
        verdict = ok("r21e", "21.4.7075529", "WORLD/\ufffd\ufffd")
        self.assert_outcome(world.run("check", name, "--json"), 0, json_line(verdict.json))
        for option in ["--json", "--all"]:
            outcome = world.run("find", "--search", name, "--json", option)
            self.assert_outcome(outcome, 0, found_json([verdict]))

    def test_name_with_semicolon(self):
        world = self.world(ndk(name="a;b"))
        verdict = ok("r21e", "21.4.7075529", "WORLD/a;b")
        self.assert_check(world, verdict, path=world.path("a;b"))
        self.assert_find(
            world, [missing("WORLD/a"), missing("b")], "--search", world.path("a;b")
        )

    def test_all_below_a_name_with_semicolon(self):
        world = self.world(ndk(name="a;b/ndk"))
        verdict = ok("r21e", "21.4.7075529", "ndk")
        self.assert_find(world, [verdict], "--search", "ndk", "--all", cwd=world.path("a;b"))

    def test_below_a_name_with_semicolon(self):
        world = self.world(ndk(name="a;b/ndk"))
        verdict = ok("r21e", "21.4.7075529", "ndk")
        self.assert_find(world, [verdict], "--search", "ndk", cwd=world.path("a;b"))

    def test_supported(self):
        world = self.world(ndk("11", name="bundle"))
        search = ["--search", self.list(world, "good", "bundle", "half", "older", "good")]
        verdicts = [
            unsupported("r10e, r11c", path="WORLD/good"),
            update_unknown(path="WORLD/bundle"),
            HALF,
            OLDER,
        ]
        self.assert_find(world, verdicts, *search, "--supported", "r10e;r11c")
        search += ["--all", "--supported", "r10e;r11c"]
        self.assert_find(world, [*verdicts, verdicts[0]], *search)

    def test_none_supported(self):
        world = self.world()
        search = ["--search", self.list(world, "good", "older"), "--supported", "r10d;r10e"]
        verdicts = [
            unsupported("r10d, r10e", path="WORLD/good"),
            unsupported("r10d, r10e", "r11c", "11.2.2725575", "WORLD/older"),
        ]
        self.assert_find(world, verdicts, *search)
        self.assert_find(world, verdicts, *search, "--all")


class Check(FindTest):
    def test_as_given(self):
        world = self.world(ndk())
        os.makedirs(world.path("other"))
        for path in ["../ndk", "./../ndk/", "..//ndk//", "../other/../ndk/."]:
            with self.subTest(path):
                verdict = ok("r21e", "21.4.7075529", path)
                self.assert_check(world, verdict, path=path, cwd=world.path("other"))
        self.assert_check(
            world, ok("r21e", "21.4.7075529", "."), path=".", cwd=world.path("ndk")
        )

    def test_name_with_leading_dash(self):
        world = self.world(ndk(name="-x"))
        outcome = world.run("check", "--json", "--", "-x", cwd=world.dir)
        self.assert_outcome(outcome, 0, json_line(ok("r21e", "21.4.7075529", "-x").json))

    def test_name_with_line_end(self):
        world = self.world({"a\nb/": ""})
        outcome = world.run("check", world.path("a\nb"))
        self.assert_outcome(outcome, 1, f"WORLD/a\\nb: {no_launcher().message}\n")
        outcome = world.run("check", world.path("a\nb"), "--json")
        self.assert_outcome(outcome, 1, json_line(no_launcher("WORLD/a\nb").json))

    def test_working_directory_that_is_gone(self):
        world = self.world(ndk())
        before = ["sh", "-c", 'mkdir gone && cd gone && rmdir ../gone && exec "$@"', "sh"]
        self.assert_check(world, ok("r21e", "21.4.7075529"), before=before)


class Examples(FindTest):
    def test_find_all(self):
        world = FindWorld(self)
        shutil.copytree(os.path.join(EXAMPLES, "ndk"), world.path("ndk"))
        names = ["android-ndk-r10e", "android-ndk-r12b.part", "ndk-bundle", "android-ndk-r21e"]
        names.append("android-ndk-r11c")
        search = ["--search", ";".join(world.path(f"ndk/{name}") for name in names)]
        supported = ["--supported", "r10e;r11c"]
        verdicts = [
            pre_r11(path="WORLD/ndk/android-ndk-r10e"),
            no_source_properties("WORLD/ndk/android-ndk-r12b.part"),
            update_unknown(path="WORLD/ndk/ndk-bundle"),
            unsupported("r10e, r11c", path="WORLD/ndk/android-ndk-r21e"),
            ok("r11c", "11.2.2725575", "WORLD/ndk/android-ndk-r11c"),
        ]
        self.assert_find(world, verdicts, *search, *supported, "--all")
        verdicts[3] = ok("r21e", "21.4.7075529", "WORLD/ndk/android-ndk-r21e")
        self.assert_find(world, verdicts, *search, "--all")
        self.assert_find(world, verdicts[:4], *search)


MACHINE_WIDE = ("/usr/lib/", "/usr/local/lib/", "/opt/")
MACHINE_WIDE_NDKS = [
    "/usr/lib/android-sdk",
    "/usr/lib/android-ndk",
    "/usr/local/lib/android",
    "/opt/android-sdk",
    "/opt/android-ndk",
]
VARIABLES = [
    "HOME",
    "ANDROID_NDK_HOME",
    "ANDROID_NDK_ROOT",
    "ANDROID_NDK",
    "ANDROID_NDK_LATEST_HOME",
    "ANDROID_HOME",
    "ANDROID_SDK_ROOT",
]


def environment(world, variables):
    """How to run a command with these of VARIABLES, directories of the world, and no other."""
    unset = [word for name in VARIABLES if name not in variables for word in ["-u", name]]
    values = {name: value and world.path(value) for name, value in variables.items()}
    return {"before": ["env", *unset], "env": values}


class DefaultSearch(FindTest):
    def assert_found(self, world, verdicts, **variables):
        """`find --all` tells `verdicts` in this order, not counting the machine's own NDKs."""
        outcome = world.run("find", "--all", **environment(world, variables))
        lines = outcome.out.splitlines(keepends=True)
        outcome.out = "".join(line for line in lines if not line.startswith(MACHINE_WIDE))
        found = next(verdict.path for verdict in verdicts if verdict.ok)
        out = "".join(verdict.line for verdict in verdicts) + f"NDK found: {found}\n"
        self.assert_outcome(outcome, 0, out)

    def test_order(self):
        places = {
            "ANDROID_NDK_HOME": ["ndk_home"],
            "ANDROID_NDK_ROOT": ["ndk_root"],
            "ANDROID_NDK": ["ndk"],
            "ANDROID_NDK_LATEST_HOME": ["latest"],
            "ANDROID_HOME": ["sdk", "ndk/a", "ndk-bundle"],
            "ANDROID_SDK_ROOT": ["sdk_root", "ndk/a", "ndk-bundle"],
            "HOME": ["home", "Android/Sdk/ndk/a", "Android/Sdk/ndk-bundle", "android-ndk-a"],
        }
        names = [
            "ndk_home",
            "ndk_root",
            "ndk",
            "latest",
            "sdk/ndk/a",
            "sdk_root/ndk/a",
            "home/Android/Sdk/ndk/a",
            "sdk/ndk-bundle",
            "sdk_root/ndk-bundle",
            "home/Android/Sdk/ndk-bundle",
            "home/android-ndk-a",
        ]
        # The order of the revisions is not the order of the places.
        revisions = {name: f"{20 + 7 * i % 11}.1" for i, name in enumerate(names)}
        world = self.world(*[ndk(revisions[name], name) for name in names])
        verdicts = [
            ok(f"r{revisions[name][:2]}b", revisions[name], f"WORLD/{name}") for name in names
        ]
        self.assert_found(world, verdicts, **{name: place[0] for name, place in places.items()})

    def test_first_good_one(self):
        world = self.world(
            {"half/ndk-build": ""},
            ndk(name="home/Android/Sdk/ndk/21.4.7075529"),
            ndk("11.2.2725575", "home/Android/Sdk/ndk/11.2.2725575"),
        )
        verdicts = [
            no_source_properties("WORLD/half"),
            ok("r21e", "21.4.7075529", "WORLD/home/Android/Sdk/ndk/21.4.7075529"),
        ]
        variables = {"HOME": "home", "ANDROID_NDK_ROOT": "half", "ANDROID_NDK": "gone"}
        self.assert_find(world, verdicts, **environment(world, variables))

    def test_newest_first(self):
        # Neither the names nor the texts of the revisions are in order.
        revisions = {
            "a": "9.3.1",
            "b": "10.0.1",
            "c": "21.4.7075529",
            "d": "21.4.10000000",
            "e": "21.10.1",
            "99.9.9": "8.0.1",
            "f": "29.0.14033849-beta4",
        }
        parent = "home/Android/Sdk/ndk/"
        world = self.world(*[ndk(revisions[name], parent + name) for name in revisions])
        order = [
            ("f", "r29"),
            ("e", "r21k"),
            ("d", "r21e"),
            ("c", "r21e"),
            ("b", "r10"),
            ("a", "r9d"),
            ("99.9.9", "r8"),
        ]
        verdicts = [
            ok(release, revisions[name], f"WORLD/{parent}{name}") for name, release in order
        ]
        self.assert_found(world, verdicts, HOME="home")

    def test_newest_first_in_each_place(self):
        world = self.world(
            ndk("9.0.1", "sdk/ndk/9.0.1"),
            ndk("21.0.1", "sdk/ndk/21.0.1"),
            ndk("10.0.1", "home/Android/Sdk/ndk/10.0.1"),
            ndk("29.0.1", "home/Android/Sdk/ndk/29.0.1"),
            ndk("9.0.2", "home/android-ndk-r9"),
            ndk("21.0.2", "home/android-ndk-r21"),
        )
        verdicts = [
            ok("r21", "21.0.1", "WORLD/sdk/ndk/21.0.1"),
            ok("r9", "9.0.1", "WORLD/sdk/ndk/9.0.1"),
            ok("r29", "29.0.1", "WORLD/home/Android/Sdk/ndk/29.0.1"),
            ok("r10", "10.0.1", "WORLD/home/Android/Sdk/ndk/10.0.1"),
            ok("r21", "21.0.2", "WORLD/home/android-ndk-r21"),
            ok("r9", "9.0.2", "WORLD/home/android-ndk-r9"),
        ]
        self.assert_found(world, verdicts, HOME="home", ANDROID_HOME="sdk")

    def test_same_revision_by_name(self):
        parent = "home/Android/Sdk/ndk/"
        names = ["a", "b", "c", "d", "e"]
        world = self.world(*[ndk("21.4.1", parent + name) for name in reversed(names)])
        verdicts = [ok("r21e", "21.4.1", f"WORLD/{parent}{name}") for name in names]
        self.assert_found(world, verdicts, HOME="home")

    def test_links_once(self):
        world = self.world(ndk(name="home/Android/Sdk/ndk/21.4.7075529"))
        real = world.path("home/Android/Sdk/ndk/21.4.7075529")
        world.link("ndk_home", real)
        world.link("home/Android/Sdk/ndk/latest", real)
        world.link("home/Android/Sdk/ndk-bundle", real)
        world.link("home/android-ndk-r21e", real)
        world.link("sdk", "home/Android/Sdk")
        verdict = ok("r21e", "21.4.7075529", "WORLD/home/Android/Sdk/ndk/21.4.7075529")
        self.assert_found(world, [verdict], HOME="home")
        verdict = ok("r21e", "21.4.7075529", "WORLD/sdk/ndk/21.4.7075529")
        self.assert_found(world, [verdict], HOME="home", ANDROID_HOME="sdk")
        verdict = ok("r21e", "21.4.7075529", "WORLD/ndk_home")
        variables = {"ANDROID_NDK_ROOT": "ndk_home", "ANDROID_NDK": "sdk/ndk/latest"}
        self.assert_found(world, [verdict], HOME="home", ANDROID_HOME="sdk", **variables)

    def test_stray_files(self):
        parent = "home/Android/Sdk/ndk/"
        world = self.world(
            ndk(name=parent + "21.4.7075529"),
            {
                parent + "wrap.sh": "#!/bin/sh\n",
                parent + ".installer/": "",
                "home/android-ndk-r21e-linux.zip": "",
                "home/Android/Sdk/ndk-bundle": "",
                "home/android-ndk/": "",
                "file": "",
            },
        )
        world.link(parent + "dangling", "nowhere")
        verdicts = [
            ok("r21e", "21.4.7075529", f"WORLD/{parent}21.4.7075529"),
            no_launcher(f"WORLD/{parent}.installer"),
        ]
        self.assert_found(world, verdicts, HOME="home", ANDROID_NDK="file")

    def test_half_downloaded(self):
        parent = "home/Android/Sdk/ndk/"
        world = self.world(
            {parent + "99.0.1/ndk-build": "", parent + "22.0.1/": "", parent + "30": ""},
            ndk("11", parent + "bundle"),
            ndk("x", parent + "x"),
            ndk("9.0.1", parent + "9.0.1"),
        )
        x = unknown_revision("x")
        x.path = f"WORLD/{parent}x"
        verdicts = [
            update_unknown(path=f"WORLD/{parent}bundle"),
            ok("r9", "9.0.1", f"WORLD/{parent}9.0.1"),
            x,
            no_launcher(f"WORLD/{parent}22.0.1"),
            no_source_properties(f"WORLD/{parent}99.0.1"),
        ]
        self.assert_found(world, verdicts, HOME="home")

    def test_pipe_for_source_properties(self):
        parent = "home/Android/Sdk/ndk/"
        world = self.world(ndk(name=parent + "good"), {parent + "pipe/ndk-build": ""})
        os.mkfifo(world.path(parent + "pipe/source.properties"))
        how = environment(world, {"HOME": "home"})
        how["before"] += ["timeout", NEVER]
        verdict = ok("r21e", "21.4.7075529", f"WORLD/{parent}good")
        self.assert_find(world, [verdict], **how)

    def test_empty_variables(self):
        world = self.world(ndk(name="home/android-ndk-r21e"))
        verdict = ok("r21e", "21.4.7075529", "WORLD/home/android-ndk-r21e")
        empty = {name: "" for name in VARIABLES}
        self.assert_found(world, [verdict], **{**empty, "HOME": "home"})

    def test_home_unset(self):
        world = self.world(ndk(name="sdk/ndk-bundle"), ndk(name="home/android-ndk-r21e"))
        verdict = ok("r21e", "21.4.7075529", "WORLD/sdk/ndk-bundle")
        self.assert_found(world, [verdict], ANDROID_SDK_ROOT="sdk")

    def test_unreadable_places(self):
        world = self.world(
            ndk(name="good"), ndk(name="sdk/ndk/a"), ndk(name="home/Android/Sdk/ndk/b")
        )
        world.chmod("sdk/ndk", 0)
        world.chmod("home/Android/Sdk/ndk/b", 0)
        variables = {"HOME": "home", "ANDROID_HOME": "sdk", "ANDROID_NDK_LATEST_HOME": "good"}
        world.run("--version", unprivileged=True)  # gives the world to that user
        how = environment(world, variables)
        if os.geteuid() == 0:
            how["before"] += ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
            how["program"] = world.copy_program()
        verdicts = [
            ok("r21e", "21.4.7075529", "WORLD/good"),
            unreadable(path="WORLD/sdk/ndk"),  # cannot be listed
            unreadable(path="WORLD/home/Android/Sdk/ndk/b"),
        ]
        outcome = world.run("find", "--all", "--json", **how)
        outcome.out = json_line(self.without_machine_wide(json.loads(outcome.out)))
        self.assert_outcome(outcome, 0, found_json(verdicts))

    def without_machine_wide(self, found):
        own = [one for one in found["candidates"] if not one["path"].startswith(MACHINE_WIDE)]
        return {**found, "candidates": own}

    @unittest.skipIf(
        any(map(os.path.exists, MACHINE_WIDE_NDKS)), "this machine has NDKs in the usual places"
    )
    def test_nothing_there(self):
        world = self.world({"home/": ""})
        err = (
            "ndk-integrate: no NDK found: no directory in any of the usual places; "
            "--search names others\n"
        )
        for variables in [{}, {"HOME": "home"}, {"HOME": "gone", "ANDROID_NDK": "gone"}]:
            for option in [[], ["--all"]]:
                how = environment(world, variables)
                self.assert_outcome(world.run("find", *option, **how), 1, "", err)
                outcome = world.run("find", "--json", *option, **how)
                self.assert_outcome(outcome, 1, found_json([]))


# Puts directories of the world in place of the machine's, for one command. The added /usr/lib is
# read-only.
OTHER_MACHINE = """
mount --bind opt /opt &&
mount --bind usr-local-lib /usr/local/lib &&
mount -t overlay overlay -o lowerdir=usr-lib:/usr/lib /usr/lib &&
exec "$@"
"""


class MachineWidePlaces(FindTest):
    def setUp(self):
        for name in ["/usr/lib/android-sdk", "/usr/lib/android-ndk"]:
            if os.path.exists(name):
                self.skipTest(f"this machine has a {name}")

    def assert_found(self, world, verdicts, **variables):
        for name in ["opt/", "usr-local-lib/", "usr-lib/"]:
            if not os.path.exists(world.path(name)):
                world.write(name, "")
        other_machine = ["unshare", "-rm", "sh", "-c", OTHER_MACHINE, "sh"]
        probe = subprocess.run(
            [*other_machine, "true"], cwd=world.dir, capture_output=True, check=False
        )
        if probe.returncode != 0:
            self.skipTest(f"mount namespaces cannot be used here: {probe.stderr.decode()}")
        how = environment(world, variables)
        how["before"] += other_machine
        self.assert_find(world, verdicts, "--all", cwd=world.dir, **how)

    def test_order(self):
        names = {
            "home/Android/Sdk/ndk/a": "WORLD/home/Android/Sdk/ndk/a",
            "usr-lib/android-sdk/ndk/a": "/usr/lib/android-sdk/ndk/a",
            "usr-local-lib/android/sdk/ndk/a": "/usr/local/lib/android/sdk/ndk/a",
            "opt/android-sdk/ndk/a": "/opt/android-sdk/ndk/a",
            "home/Android/Sdk/ndk-bundle": "WORLD/home/Android/Sdk/ndk-bundle",
            "usr-lib/android-sdk/ndk-bundle": "/usr/lib/android-sdk/ndk-bundle",
            "usr-local-lib/android/sdk/ndk-bundle": "/usr/local/lib/android/sdk/ndk-bundle",
            "opt/android-sdk/ndk-bundle": "/opt/android-sdk/ndk-bundle",
            "usr-lib/android-ndk": "/usr/lib/android-ndk",
            "opt/android-ndk": "/opt/android-ndk",
            "opt/android-ndk-a": "/opt/android-ndk-a",
            "home/android-ndk-a": "WORLD/home/android-ndk-a",
        }
        world = self.world(*[ndk(name=name) for name in names])
        verdicts = [
            not_writable(path=path)
            if path.startswith("/usr/lib/")
            else ok("r21e", "21.4.7075529", path)
            for path in names.values()
        ]
        self.assert_found(world, verdicts, HOME="home")

    def test_unpacked_archives(self):
        world = self.world(
            ndk("9.0.1", "opt/android-ndk-r9"),
            ndk("21.0.1", "opt/android-ndk-r21"),
            ndk("10.0.1", "opt/android-ndk-r10"),
            {"opt/android-ndk-r30.part/": "", "opt/android-ndk-r8.zip": "", "opt/other/": ""},
        )
        world.link("opt/android-ndk", "android-ndk-r10")
        verdicts = [
            ok("r10", "10.0.1", "/opt/android-ndk"),
            ok("r21", "21.0.1", "/opt/android-ndk-r21"),
            ok("r9", "9.0.1", "/opt/android-ndk-r9"),
            no_launcher("/opt/android-ndk-r30.part"),
        ]
        self.assert_found(world, verdicts)


def check_log(verdict_lines):
    return (
        "NDK_INTEGRATION: validate_ndk_path()\n"
        "NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: WORLD/ndk\n"
        + verdict_lines
    )


GOOD_LOG = check_log(
    "NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true\n"
    "NDK_INTEGRATION: get_version(): detected full revision: '21.4.7075529'\n"
    "NDK_INTEGRATION: get_version(): detected version is 'r21e''\n"
    "NDK_INTEGRATION: is_ndk_version_supported(): 'r21e' version is supported\n"
)
EMPTY_LOG = check_log(
    "NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, "
    "returning false\n"
)
# `find` in a world with an NDK, looking at it and then at a directory that is not reached.
FIND_LOG = (
    "NDK_INTEGRATION: detect_ndk()\n"
    + EMPTY_LOG.replace("WORLD/ndk", "WORLD/gone")
    + "NDK_INTEGRATION: detect_ndk(): 'WORLD/gone' is not valid NDK path\n"
    + GOOD_LOG
    + "NDK_INTEGRATION: detect_ndk(): found valid NDK: 'WORLD/ndk'\n"
)


class CommonOptions(FindTest):
    line = ok("r21e", "21.4.7075529").line

    def test_verbose_check(self):
        world = self.world(ndk())
        outcome = world.run("check", world.path("ndk"), "-v")
        self.assert_outcome(outcome, 0, self.line, GOOD_LOG)
        outcome = world.run("-v", "check", world.path("ndk"), "--json")
        out = json_line(ok("r21e", "21.4.7075529").json)
        self.assert_outcome(outcome, 0, out, GOOD_LOG)

    def test_verbose_find(self):
        world = self.world(ndk())
        search = f"{world.path('gone')};{world.path('ndk')};{world.path('behind')}"
        outcome = world.run("find", "--search", search, "-v")
        out = missing("WORLD/gone").line + self.line + "NDK found: WORLD/ndk\n"
        self.assert_outcome(outcome, 0, out, FIND_LOG)

    def test_verbose_line_end(self):
        world = self.world({"a\nb/": ""})
        outcome = world.run("check", world.path("a\nb"), "-v")
        out = f"WORLD/a\\nb: {no_launcher().message}\n"
        err = EMPTY_LOG.replace("WORLD/ndk", "WORLD/a\\nb")
        self.assert_outcome(outcome, 1, out, err)

    def test_log_file(self):
        world = self.world(ndk(), {"empty/": ""})
        log = os.path.join(world.top, "log")
        self.assert_outcome(world.run("check", world.path("ndk"), "--log", log), 0, self.line)
        outcome = world.run("--log", log, "check", world.path("empty"))
        self.assert_outcome(outcome, 1, no_launcher("WORLD/empty").line)
        search = f"{world.path('gone')};{world.path('ndk')}"
        outcome = world.run("find", "--search", search, "--log", log, "-q")
        self.assert_outcome(outcome, 0, "WORLD/ndk\n")
        expected = GOOD_LOG + EMPTY_LOG.replace("WORLD/ndk", "WORLD/empty") + FIND_LOG
        self.assertMultiLineEqual(world.read(log), expected)

    def test_log_file_on_a_full_disk(self):
        world = self.world(ndk())
        outcome = world.run("check", world.path("ndk"), "--log", "/dev/full")
        err = "ndk-integrate: warning: the log file /dev/full could not be written whole\n"
        self.assert_outcome(outcome, 0, self.line, err)

    def test_quiet_check(self):
        world = self.world(ndk(), {"empty/": ""})
        self.assert_outcome(world.run("check", world.path("ndk"), "-q"), 0, "")
        outcome = world.run("check", world.path("empty"), "-q")
        self.assert_outcome(outcome, 1, no_launcher("WORLD/empty").line)
        outcome = world.run("check", world.path("ndk"), "-q", "--json")
        self.assert_outcome(outcome, 0, json_line(ok("r21e", "21.4.7075529").json))

    def test_quiet_find(self):
        world = self.world(ndk(), {"empty/": ""})
        search = ["--search", f"{world.path('empty')};{world.path('ndk')}"]
        self.assert_outcome(world.run("find", *search, "-q"), 0, "WORLD/ndk\n")
        self.assert_outcome(world.run("-q", "find", *search, "--all"), 0, "WORLD/ndk\n")
        out = found_json([no_launcher("WORLD/empty"), ok("r21e", "21.4.7075529")])
        self.assert_outcome(world.run("find", *search, "-q", "--json"), 0, out)

    def test_quiet_find_in_vain(self):
        world = self.world()
        outcome = world.run("find", "--search", world.path("ndk"), "-q")
        err = "ndk-integrate: WORLD/ndk: no such directory\n" + not_found(1)
        self.assert_outcome(outcome, 1, "", err)

    def test_standard_output_full(self):
        world = self.world(ndk())
        full = ["sh", "-c", 'exec "$@" > /dev/full', "sh"]
        for command in [["check", world.path("ndk")], ["find", "--search", world.path("ndk")]]:
            for option in [[], ["--json"]]:
                with self.subTest(command[0], option=option):
                    outcome = world.run(*command, *option, before=full)
                    err = "ndk-integrate: cannot write to standard output\n"
                    self.assert_outcome(outcome, 1, "", err)

    def test_check_help(self):
        out = """\
Judge one directory
Usage: ndk-integrate check [OPTIONS] DIR

Positionals:
  DIR                         The directory

Options:
  -h,--help                   Print this help message and exit
  --supported LIST            Releases that are supported, as r10e;r11c; any readable one without this
  --json                      Print one JSON object
  --version                   Display program version information and exit
  --log FILE                  Append the installation log to FILE
  --plugin FILE               Load the plug-in from FILE
  -v                          Show the installation log on standard error
  -q                          Print the result and what went wrong, no steps

"""
        self.assert_outcome(self.world().run("check", "--help"), 0, out)

    def test_find_help(self):
        out = """\
Find an NDK, and tell why the others are not good
Usage: ndk-integrate find [OPTIONS]

Options:
  -h,--help                   Print this help message and exit
  --search DIR[;DIR...]       Look in these directories, in this order, instead of the usual places
  --supported LIST            Releases that are supported, as r10e;r11c; any readable one without this
  --all                       Judge every directory, not only up to the first good one
  --json                      Print one JSON object
  --version                   Display program version information and exit
  --log FILE                  Append the installation log to FILE
  --plugin FILE               Load the plug-in from FILE
  -v                          Show the installation log on standard error
  -q                          Print the result and what went wrong, no steps

"""
        self.assert_outcome(self.world().run("find", "--help"), 0, out)

    def test_help(self):
        outcome = self.world().run("--help")
        commands = [line.split()[0] for line in outcome.out.splitlines() if line.startswith("  ")]
        self.assertEqual((outcome.code, outcome.err), (0, ""))
        self.assertLessEqual({"find", "check", "--log", "--plugin", "-v", "-q"}, set(commands))

    def test_version(self):
        for command in [[], ["find"], ["check"]]:
            outcome = self.world().run(*command, "--version")
            self.assertRegex(outcome.out, r"\Andk-integrate \d+\.\d+\.\d+\n\Z")
            self.assertEqual((outcome.code, outcome.err), (0, ""))


class WrongUsage(FindTest):
    def assert_wrong(self, err, *arguments):
        self.assert_outcome(self.world().run(*arguments), 2, "", err)

    def assert_misunderstood(self, err, *arguments):
        self.assert_wrong(f"{err}\nRun with --help for more information.\n", *arguments)

    def test_no_command(self):
        self.assert_misunderstood("A subcommand is required")

    def test_no_directory(self):
        self.assert_misunderstood("DIR is required", "check")

    def test_empty_directory_name(self):
        self.assert_wrong("ndk-integrate: check: the directory's name is empty\n", "check", "")

    def test_two_directories(self):
        err = "The following argument was not expected: b"
        self.assert_misunderstood(err, "check", "a", "b")

    def test_search_names_nothing(self):
        err = "ndk-integrate: --search names no directory\n"
        self.assert_wrong(err, "find", "--search", "")
        self.assert_wrong(err, "find", "--search", ";", "--search", ";;", "--json")

    def test_search_without_value(self):
        self.assert_misunderstood("--search: 1 required TEXT missing", "find", "--search")

    def test_unknown_option(self):
        err = "The following argument was not expected: --al"
        self.assert_misunderstood(err, "find", "--al")

    def test_stray_argument(self):
        self.assert_misunderstood("The following argument was not expected: a", "find", "a")

    def test_option_of_the_other_command(self):
        err = "The following argument was not expected: --all"
        self.assert_misunderstood(err, "check", "a", "--all")

    def test_supported_twice(self):
        err = "--supported: At Most 1 required but received 2"
        self.assert_misunderstood(err, "check", "a", "--supported", "r9", "--supported", "r10")

    def test_log_file_that_cannot_be_opened(self):
        err = "ndk-integrate: cannot open the log file gone/log: No such file or directory\n"
        self.assert_wrong(err, "find", "--search", "a", "--log", "gone/log")
        self.assert_wrong(err, "check", "a", "--log", "gone/log")


def judging(status):
    return f"""
    extern "C" int validate_ndk_path(session_t* session) {{
        env_set_string(session, "NDK_PATH_STATUS", "{status}");
        return 0;
    }}"""


def versioned(major, minor, text):
    """A plug-in's two functions: one reads {major, minor} everywhere, the other calls it text."""
    version = f"{{{major}, {minor}}}"
    return {
        "get_version": f"ndk_version_t get_version(const std::string&) {{ return {version}; }}",
        "ndk_version_string": "std::string ndk_version_string(ndk_version_t version) { return "
        f'version.major == {major} && version.minor == {minor} ? "{text}" : "r0"; }}',
    }


FINDING = """
extern "C" int detect_ndk(session_t* session) {
    const std::string ndk = env_get_string(session, "NDK_DEFAULT_SEARCH_PATH_LINUX");
    env_set_string(session, std::string("NDK_PATH"), ndk.substr(0, ndk.find(';')));
    env_set_string(session, "NDK_PATH_STATUS", "ok");
    return 0;
}"""


class PlugIn(FindTest):
    def fake(self, world, **functions):
        return ["--plugin", fake_plugin(os.path.join(world.top, "fake.so"), **functions)]

    def test_own_release(self):
        world = self.world(ndk())
        functions = {"validate_ndk_path": judging("ok"), "detect_ndk": FINDING}
        fake = self.fake(world, **functions, **versioned(7, -7, "r77x"))
        self.assert_verdict(world, ok("r77x", "21.4.7075529"), *fake)

    def test_own_unsupported_release(self):
        world = self.world(ndk())
        judgement = judging("unsupported")
        fake = self.fake(world, validate_ndk_path=judgement, **versioned(7, 1, "r77x"))
        verdict = unsupported("r21e", "r77x")
        self.assert_check(world, verdict, *fake, "--supported", "r21e")

    def test_own_verdict(self):
        world = self.world(ndk())
        judgement = judging("notwritable")
        fake = self.fake(world, validate_ndk_path=judgement, **versioned(7, 1, "r77x"))
        self.assert_check(world, not_writable("r77x"), *fake)

    def test_exception(self):
        world = self.world(ndk())
        thrown = 'std::runtime_error("out of luck")'
        fake = throwing_plugin(os.path.join(world.top, "fake.so"), thrown)
        outcome = world.run("find", "--search", world.path("gone"), "--plugin", fake)
        self.assert_outcome(outcome, 1, "", "ndk-integrate: not done: out of luck\n")

    def test_missing(self):
        world = self.world(ndk())
        gone = os.path.join(world.top, "gone.so")
        err = (
            "ndk-integrate: cannot load the plug-in TOP/gone.so: TOP/gone.so: "
            "cannot open shared object file: No such file or directory\n"
        )
        for command in [["check", world.path("ndk")], ["find", "--search", world.path("ndk")]]:
            for option in [[], ["--json"]]:
                outcome = world.run(*command, *option, "--plugin", gone)
                self.assert_outcome(outcome, 3, "", err)

    def test_missing_beside_the_program(self):
        world = self.world(ndk())
        outcome = world.run("check", world.path("ndk"), program=world.copy_program())
        err = (
            f"ndk-integrate: cannot load the plug-in {LIBRARY}: {LIBRARY}: "
            "cannot open shared object file: No such file or directory\n"
        )
        self.assert_outcome(outcome, 3, "", err)

    def test_function_missing(self):
        world = self.world(ndk())
        for name in ["detect_ndk", "validate_ndk_path"]:
            fake = self.fake(world, leave_out=name)
            outcome = world.run("check", world.path("ndk"), *fake)
            err = (
                "ndk-integrate: cannot use the plug-in TOP/fake.so: "
                f"it has no function {name}\n"
            )
            self.assert_outcome(outcome, 3, "", err)


# What would change something: files opened to be written, and every other call that writes.
WRITING = (
    "O_WRONLY O_RDWR O_CREAT O_TRUNC O_TMPFILE creat( mkdir mknod rename link( linkat symlink "
    "unlink rmdir chmod chown truncate utime setxattr removexattr mount fallocate"
).split()


class NothingChanged(FindTest):
    """Each test here notices a change in its world; this one looks at every system call as well."""

    def test_system_calls(self):
        world = self.world(
            ndk(),
            ndk("11", "bundle"),
            ndk("x", "x"),
            {"old/RELEASE.TXT": "r10e\n", "half/ndk-build": "", "empty/": "", "file": ""},
            {"home/": "", "tmp/": ""},
        )
        trace = os.path.join(world.top, "trace")
        strace = ["strace", "-f", "-e", "trace=%file,%desc", "-o", trace]
        if "GCOV_ERROR_FILE" in os.environ:
            self.skipTest("a program that counts its lines writes files")
        if not shutil.which("strace") or subprocess.run([*strace, "true"], check=False).returncode:
            self.skipTest("strace cannot be used here")
        env = {"HOME": world.path("home"), "TMPDIR": world.path("tmp")}
        env["ASAN_OPTIONS"] = "detect_leaks=0"  # it cannot look for them while it is traced
        names = ["empty", "old", "half", "file", "gone", "bundle", "x", "ndk"]
        search = ["--search", ";".join(names)]
        commands = [["find", *search], ["find", *search, "--all", "--json"], ["find"]]
        commands += [["check", name] for name in names]
        for command in commands:
            with self.subTest(command):
                outcome = world.run(*command, before=strace, env=env, cwd=world.dir)
                self.assertEqual((outcome.changes, outcome.code in (0, 1)), ({}, True))
                with open(trace, encoding="utf-8", errors="replace") as file:
                    calls = file.readlines()
                self.assertGreater(len(calls), 10)
                writing = [call for call in calls if any(word in call for word in WRITING)]
                self.assertEqual([call for call in writing if "readlink" not in call], [])


if __name__ == "__main__":
    unittest.main()

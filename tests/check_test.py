"""ndk-integrate check and find, end to end, on one directory: what each verdict is given for."""

import os
import unittest

from verdicts import (
    LAUNCHER, NEVER, PROGRAM, VerdictTest, missing, ndk, no_launcher, no_source_properties,
    not_a_directory, not_writable, ok, pre_r11, properties, rewritten, unknown_revision, unreadable,
    unsupported, update_unknown, with_properties,
)
from world import PIPE, ROOT

RELEASES = os.path.join(ROOT, "console_host", "ndk", "ndk-releases.tsv")
REAL = ndk(name="real")
PROPERTIES = {"ndk/source.properties": properties("21.4.7075529")}
OLD = {"ndk/RELEASE.TXT": "r10e\n"}
DIRECTORY_OF_PROPERTIES = {"ndk/source.properties/": ""}


class Directory(VerdictTest):
    def test_ok(self):
        links = {
            "ndk/ndk-build": "-> ../real/ndk-build",
            "ndk/source.properties": "-> ../real/source.properties",
        }
        self.assert_verdicts({
            "launcher": (ndk(), ok()),
            "Windows launcher": ({"ndk/ndk-build.cmd": "", **PROPERTIES}, ok()),
            "link": ({**REAL, "ndk": "-> real"}, ok()),
            "linked files": ({**REAL, **links}, ok()),
            "RELEASE.TXT too": ({**ndk(), **OLD}, ok()),
        })

    def test_missing(self):
        self.assert_verdicts({
            "nothing there": ({}, missing()),
            "dangling link": ({"ndk": "-> nowhere"}, missing()),
        })
        world = self.untouched({"file": ""})
        path = world.path("file/below")
        self.assert_verdict(world, missing("WORLD/file/below"), path=path)

    def test_not_a_directory(self):
        self.assert_verdicts({
            "file": ({"ndk": ""}, not_a_directory()),
            "link to file": ({"file": "", "ndk": "-> file"}, not_a_directory()),
        })
        world = self.untouched({"file": ""})
        self.assert_verdict(world, not_a_directory("file/"), path="file/", cwd=world.dir)

    def test_unreadable(self):
        closed = {**ndk(name="closed/ndk"), "closed/": (0, ""), "ndk": "-> closed/ndk"}
        self.assert_verdicts(
            {
                "directory": ({**ndk(), "ndk/": (0, "")}, unreadable()),
                "directory that can be listed only": ({**ndk(), "ndk/": (0o444, "")}, unreadable()),
                "below an unreadable directory": (closed, unreadable()),
                "before r11": ({**LAUNCHER, **OLD, "ndk/": (0, "")}, unreadable()),
            },
            unprivileged=True,
        )
        circle = unreadable("too many levels of symbolic links")
        self.assert_verdicts({"links in a circle": ({"ndk": "-> ndk"}, circle)})

    def test_before_r11(self):
        texts = {
            "r10e (64-bit)\n": "r10e",
            "r10e": "r10e",
            "r9d\r\n": "r9d",
            "r10\n": "r10",
            "r1\n": "r1",
        }
        self.assert_verdicts({
            text: ({**LAUNCHER, "ndk/RELEASE.TXT": text}, pre_r11(release))
            for text, release in texts.items()
        })
        self.assert_verdicts({
            "no launcher": ({"ndk/RELEASE.TXT": "r10e (64-bit)\n"}, pre_r11()),
            "source.properties is a directory": ({**OLD, **DIRECTORY_OF_PROPERTIES}, pre_r11()),
        })

    def test_odd_release_txt(self):
        texts = ["", "r11c\n", "r0\n", "r100\n", "r10ee\n", "R10e\n", "10e\n", "an r10e\n"]
        self.assert_verdicts({
            text: ({**LAUNCHER, "ndk/RELEASE.TXT": text}, no_source_properties()) for text in texts
        })
        directory = {**LAUNCHER, "ndk/RELEASE.TXT/": ""}
        self.assert_verdicts({
            "no launcher": ({"ndk/RELEASE.TXT": "r11c\n"}, no_launcher()),
            "directory": (directory, no_source_properties()),
        })

    def test_no_launcher(self):
        half = no_launcher("WORLD/ndk", "r21e", "21.4.7075529")
        self.assert_verdicts({
            "empty directory": ({"ndk/": ""}, no_launcher()),
            "source.properties only": (PROPERTIES, half),
            "source.properties and RELEASE.TXT": ({**PROPERTIES, **OLD}, half),
            "directory": ({"ndk/ndk-build/": "", **PROPERTIES}, half),
            "dangling link": ({"ndk/ndk-build": "-> nowhere", **PROPERTIES}, half),
        })

    def test_no_source_properties(self):
        dangling = with_properties("-> nowhere")
        self.assert_verdicts({
            "launcher only": (LAUNCHER, no_source_properties()),
            "directory": ({**LAUNCHER, **DIRECTORY_OF_PROPERTIES}, no_source_properties()),
            "dangling link": (dangling, no_source_properties()),
        })

    def test_pipes(self):
        pipes = {
            "source.properties": (with_properties(PIPE), no_source_properties()),
            "RELEASE.TXT": ({**LAUNCHER, "ndk/RELEASE.TXT": PIPE}, no_source_properties()),
        }
        self.assert_verdicts(pipes, before=["timeout", NEVER])

    def test_not_writable(self):
        locked = {"ndk/": (0o555, "")}
        secret = {"ndk/source.properties": (0, properties("21.4.7075529"))}
        self.assert_verdicts(
            {
                "good": ({**ndk(), **locked}, not_writable()),
                "unsupported": ({**ndk(), **locked}, not_writable(), "--supported", "r10e;r11c"),
                "update unknown": ({**ndk("11"), **locked}, not_writable(None, "11")),
                "unknown revision": ({**ndk("x"), **locked}, not_writable(None, "x")),
                "unreadable file": ({**ndk(), **secret, **locked}, not_writable(None, None)),
                "no source.properties": ({**LAUNCHER, **locked}, no_source_properties()),
            },
            unprivileged=True,
        )


class Release(VerdictTest):
    def assert_files(self, verdict, *texts):
        self.assert_verdicts({text: (with_properties(text), verdict) for text in texts})

    def test_usable_revisions(self):
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
        self.assert_verdicts({
            revision: (ndk(revision), ok(release, revision))
            for revision, release in releases.items()
        })

    def test_update_unknown(self):
        supported = ["--supported", "r11;r11b;r11c"]
        self.assert_verdicts({
            "rewritten file": (with_properties(rewritten()), update_unknown()),
            "whatever is supported": (ndk("11"), update_unknown(), *supported),
            "enormous number": (ndk("9" * 30), update_unknown("9" * 30)),
        })

    def test_unknown_revisions(self):
        revisions = ["x", "x.y", "x.4", "21.x", "-5.3", "21.-1", "11-beta1", "21e", "11.", ".11"]
        # No letter for the update; beyond every letter, where they begin anew: 256 would be "a".
        revisions += ["21.26", "21.26.1", "21.123", "21.159.7", "21.218", "21.255"]
        revisions += ["21.256.7", "21.257", "21.281.7075529"]
        revisions += ["21.207", "21.216.7075529"]  # would be a digit
        revisions += ["21." + "9" * 30, "21.4294967300", "9" * 30 + ".1", "4294967317.4"]
        self.assert_verdicts({
            revision: (ndk(revision), unknown_revision(revision)) for revision in revisions
        })

    def test_no_revision(self):
        self.assert_files(
            unknown_revision(None, "it says nothing"),
            "",
            "Pkg.Revision =\n",
            "Pkg.Desc = Android NDK\nPkg.BaseRevision = 21.4.7075529\n",
            "#Pkg.Revision = 21.4.7075529\n! Pkg.Revision = 21.4.7075529\n",
            "Pkg.Revision 21.4.7075529\n",
            "pkg.revision = 21.4.7075529\n",
        )

    def test_unreadable_file(self):
        tree = ndk(**{"ndk/source.properties": (0, properties("21.4.7075529"))})
        verdict = unknown_revision(None, "cannot be read: permission denied")
        self.assert_verdicts({"unreadable": (tree, verdict)}, unprivileged=True)

    def test_forms_of_file(self):
        good = properties("21.4.7075529")
        self.assert_files(
            ok(),
            good.replace("\n", "\r\n"),
            "Pkg.Revision = 21.4.7075529",
            "\t Pkg.Revision\t=\t 21.4.7075529 \t\n",
            # The first line of a key counts.
            good + "Pkg.Revision=11.2.2725575\n",
            "Pkg.RevisionX = 1.1\nXPkg.Revision = 2.2\nPkg.BaseRevision = 3.3\n" + good,
        )
        self.assert_files(update_unknown(), rewritten().replace("\n", "\r\n"))
        self.assert_files(
            ok("r29", "29.0.14033849-beta4"),
            "Pkg.Desc = Android NDK\nPkg.Revision = 29.0.14033849-beta4\n"
            "Pkg.BaseRevision = 29.0.14033849\nPkg.ReleaseName = r29-beta4\n",
        )

    def test_odd_characters(self):
        for revision, shown, verdict in [
            (b"\x1b[31mx\x7f\0", r"\x1b[31mx\x7f\x00", unknown_revision("\x1b[31mx\x7f\0")),
            (b"21.4.\x1b[31m", r"21.4.\x1b[31m", ok("r21e", "21.4.\x1b[31m")),
            (b"21.4.\xff\xfe", r"21.4.\xff\xfe", ok("r21e", "21.4.\ufffdff\ufffdfe")),
        ]:
            with self.subTest(revision):
                world = self.untouched(with_properties(b"Pkg.Revision = " + revision + b"\n"))
                code = 0 if verdict.ok else 1
                line = ok("r21e", shown) if verdict.ok else unknown_revision(shown)
                command = ["check", world.path("ndk")]
                self.assert_outcome(world.run(*command), code, line.line)
                outcome = world.run(*command, "--json")
                self.assert_outcome(outcome, code, verdict.check_json)
                outcome = world.run("find", "--search", world.path("ndk"))
                self.assertEqual(outcome.out.splitlines(True)[0], line.lines_of("find"))

    def test_unsupported(self):
        none = unsupported("the supported releases: there are none")
        self.assert_verdicts({
            "others": (ndk(), unsupported("r10e, r11c"), "--supported", "r10e;r11c"),
            "other": (ndk(), unsupported("r21"), "--supported", "r21"),
            "empty entries": (ndk(), unsupported("r10e, r11c"), "--supported", ";r10e;;r11c;"),
            "none": (ndk(), none, "--supported", ""),
            "no entry": (ndk(), none, "--supported", ";"),
            "one of several": (ndk(), ok(), "--supported", "r10e;r21e;r11c"),
            "letter left out": (
                ndk("11.0.2655954"), unsupported("r11c", "r11", "11.0.2655954"),
                "--supported", "r11c",
            ),
            # Whatever makes the plug-in accept it is what it takes the release for.
            "accepted": (ndk("21.4 x"), ok("r21e", "21.4 x"), "--supported", "r21e"),
            "accepted zero": (ndk("x.y"), ok("r0", "x.y"), "--supported", "r0"),
        })


def real_releases():
    with open(RELEASES, encoding="ascii") as file:
        return [line.split() for line in file if not line.startswith("#")]


def with_release_name(release, revision):
    return properties(revision) + f"Pkg.BaseRevision = {revision}\nPkg.ReleaseName = {release}\n"


class RealReleases(VerdictTest):
    FORMS = {
        "own form": lambda release, revision: properties(revision),
        "with release name": with_release_name,
        "rewritten": lambda release, revision: rewritten(revision),
        "CR and LF": lambda *row: with_release_name(*row).replace("\n", "\r\n"),
        "no final line end": lambda release, revision: properties(revision)[:-1],
        "CR and LF and no final line end":
            lambda release, revision: f"Pkg.Desc=Android NDK\r\nPkg.Revision={revision}",
    }

    def test_forms(self):
        releases = real_releases()
        self.assertEqual(len(releases), 12)
        verdicts = [ok(release, revision, f"WORLD/{revision}") for release, revision in releases]
        for name, form in self.FORMS.items():
            with self.subTest(name):
                world = self.untouched(*({
                    f"{revision}/ndk-build": PROGRAM,
                    f"{revision}/source.properties": form(release, revision),
                } for release, revision in releases))
                search = world.list(*(revision for _, revision in releases))
                self.assert_outcomes(
                    *(pair for verdict, (_, revision) in zip(verdicts, releases)
                      for pair in self.check(world, verdict, path=world.path(revision))),
                    *self.find(world, verdicts, "--search", search, "--all"),
                )


class Name(VerdictTest):
    """How the directory is given."""

    def test_as_given(self):
        world = self.untouched(ndk(), {"other/": ""})
        for path in ["../ndk", "./../ndk/", "..//ndk//", "../other/../ndk/."]:
            with self.subTest(path):
                self.assert_check(world, ok(path=path), path=path, cwd=world.path("other"))
        self.assert_check(world, ok(path="."), path=".", cwd=world.path("ndk"))

    def test_leading_dash(self):
        world = self.untouched(ndk(name="-x"))
        outcome = world.run("check", "--json", "--", "-x", cwd=world.dir)
        self.assert_outcome(outcome, out=ok(path="-x").check_json)

    def test_working_directory_that_is_gone(self):
        world = self.untouched(ndk())
        before = ["sh", "-c", 'mkdir gone && cd gone && rmdir ../gone && exec "$@"', "sh"]
        self.assert_check(world, ok(), before=before)


if __name__ == "__main__":
    unittest.main()

"""ndk-integrate find, check and release, end to end: the questions of people who look for an NDK.
Each test is a small tree, a command and what it answers, as JSON that keeps to the schema."""

import hashlib
import json
import os
import subprocess
import unittest

from messages import said
from verdicts import LAUNCHER, SCHEMA, VerdictTest, ndk, properties, with_properties
from world import AS_NOBODY, NOBODY

NDK_VARIABLES = [
    "ANDROID_NDK_HOME", "ANDROID_NDK_ROOT", "ANDROID_NDK", "ANDROID_NDK_PATH",
    "ANDROID_NDK_LATEST_HOME", "NDK_HOME", "NDK_ROOT",
]
SDK_VARIABLES = ["ANDROID_HOME", "ANDROID_SDK_ROOT"]
R21E, R25C, R11C = "21.4.7075529", "25.2.9519653", "11.2.2725575"
MACHINE_WIDE = ("/usr/", "/opt/")


class AnswersTest(VerdictTest):
    def find(self, tree, *options, cwd=None, program=None, before=(), **variables):
        """What `find --json` says in a world where these variables alone are set."""
        world = self.world(tree) if isinstance(tree, dict) else tree
        unset = [word for name in [*NDK_VARIABLES, *SDK_VARIABLES, "HOME"] for word in ["-u", name]]
        values = {name: self.place(world, value) for name, value in variables.items()}
        settings = [f"{name}={value}" for name, value in values.items()]
        outcome = world.run(
            "find", "--json", *options, cwd=world.path(cwd or ""), program=program,
            before=["env", *unset, *settings, *before],
        )
        found = json.loads(outcome.out)
        SCHEMA.validate(found)
        if "candidates" in found:
            found["candidates"] = [
                one for one in found["candidates"] if not one["path"].startswith(MACHINE_WIDE)
            ]
        found["code"] = outcome.code
        return found

    @staticmethod
    def place(world, value):
        return value.removeprefix("./") if value.startswith("./") else world.path(value)

    def search(self, tree, *options, dirs="a b c", **how):
        """The same in these directories of the world."""
        world = self.world(tree) if isinstance(tree, dict) else tree
        dirs = ";".join(world.path(name) for name in dirs.split())
        return self.find(world, "--search", dirs, *options, **how)

    def assert_reasons(self, found, *expected):
        """Each is the end of a candidate's path, its reason and its source."""
        told = [(one["path"], one["reason"], one["source"]) for one in found["candidates"]]
        self.assertEqual(told, [(f"WORLD/{path}", *rest) for path, *rest in expected])


class Origin(AnswersTest):
    def test_sources(self):
        tree = {
            **ndk(name="a"), **ndk(name="sdk/ndk/1"), **ndk(name="sdk2/ndk-bundle"),
            **ndk(name="home/android-ndk-r21e"),
        }
        variables = {"NDK_ROOT": "a", "ANDROID_HOME": "sdk", "ANDROID_SDK_ROOT": "sdk2"}
        found = self.find(tree, "--all", HOME="home", **variables)
        self.assert_reasons(
            found, ("a", "ok", "NDK_ROOT"), ("sdk/ndk/1", "ok", "the SDK in ANDROID_HOME"),
            ("sdk2/ndk-bundle", "ok", "the SDK in ANDROID_SDK_ROOT"),
            ("home/android-ndk-r21e", "ok", "~/android-ndk-*"),
        )

    def test_set_but_bad(self):
        sdk = ndk(name="sdk/ndk/" + R21E)
        good = "WORLD/sdk/ndk/" + R21E
        for name, value, reason in [
            ("nowhere", "sdk/ndk/21.4.1", "missing"),
            ("file", "sdk/ndk/21.4.7075529/ndk-build", "not-a-directory"),
            ("far away", "far/away/from/any/ndk", "missing"),
            ("parent", "sdk/ndk", "parent-of-ndks"),
            ("SDK", "sdk", "parent-of-ndks"),
            ("inside", "sdk/ndk/21.4.7075529/toolchains", "no-launcher"),
            ("relative", "./sdk/ndk/21", "missing"),
        ]:
            with self.subTest(name):
                tree = {**sdk, "sdk/ndk/21.4.7075529/toolchains/": ""}
                found = self.find(tree, ANDROID_NDK_HOME=value, ANDROID_HOME="sdk")
                bad = found["candidates"][0]
                self.assertEqual((bad["reason"], bad["source"]), (reason, "ANDROID_NDK_HOME"))
                self.assertIn(f"did you mean {good}?", bad["message"])
                self.assertEqual(found["ndk"], good)

    def test_relative_but_good(self):
        found = self.find(ndk(), NDK_HOME="./ndk")
        notes = [(note["reason"], note["message"]) for note in found["candidates"][0]["notes"]]
        hint = "NDK_HOME holds a relative path, which each tool takes from its own working directory"
        self.assertEqual(notes, [("relative-path", f"{hint}; did you mean WORLD/ndk?")])

    def test_sdk_set_but_bad(self):
        found = self.find(ndk(name="ndks/1"), ANDROID_HOME="gone", ANDROID_SDK_ROOT="ndks")
        self.assert_reasons(
            found, ("gone", "missing", "the SDK in ANDROID_HOME"),
            ("ndks", "parent-of-ndks", "the SDK in ANDROID_SDK_ROOT"),
        )
        found = self.find({"sdk/platforms/": ""}, ANDROID_HOME="sdk")
        self.assertEqual(found["warnings"], ["the SDK in ANDROID_HOME, WORLD/sdk, holds no NDK"])

    def test_variables_that_differ(self):
        tree = {**ndk(name="a"), **ndk(name="b"), "c": "-> a"}
        differ = "the environment names different NDKs: "
        for variables, warnings in [
            ({"ANDROID_NDK_HOME": "a", "NDK_ROOT": "b"},
             [differ + "ANDROID_NDK_HOME is WORLD/a, NDK_ROOT is WORLD/b"]),
            ({"ANDROID_NDK_HOME": "a", "ANDROID_NDK_ROOT": "b", "NDK_ROOT": "a"},
             [differ + "ANDROID_NDK_HOME is WORLD/a, ANDROID_NDK_ROOT is WORLD/b, NDK_ROOT is WORLD/a"]),
            ({"ANDROID_NDK_HOME": "a", "ANDROID_NDK_LATEST_HOME": "b"}, []),
            ({"ANDROID_NDK_HOME": "a", "ANDROID_NDK_ROOT": "c"}, []),
            ({"ANDROID_NDK_HOME": "a", "ANDROID_NDK_ROOT": "gone"}, []),
        ]:
            self.assertEqual(self.find(tree, **variables)["warnings"], warnings)


class Asking(AnswersTest):
    RELEASES = {"a": "21.0.6113669", "b": R21E, "c": R25C, "d": "27.0.12077973", "e": "27.2.12479018"}

    def test_forms(self):
        world = self.world({
            path: text for name, revision in self.RELEASES.items()
            for path, text in ndk(revision, name).items()
        })
        for supported, taken in {
            "r21": "a", "R21E": "b", " 21e ": "b", "r21*": "ab", "r21..r25": "abc", "r21b..r25": "bc",
            "r21..r25b": "ab", "r21 .. r25": "abc", "r25+": "cde", "r27.*": "de", "27.*": "de",
            "27.0.*": "d", "27.0.12077973": "d", "27.0.1": "", "21.4": "b", "r10e;r21, r27c": "ae",
            "r21\tr25c": "ac", "r11;11..r20": "", "r22..R24": "",
        }.items():
            with self.subTest(supported):
                found = self.search(world, "--all", "--supported", supported, dirs="a b c d e")
                ok = [one["path"][-1] for one in found["candidates"] if one["status"] == "ok"]
                self.assertEqual("".join(ok), taken)
                reasons = {one["reason"] for one in found["candidates"]}
                self.assertLessEqual(reasons, {"ok", "unsupported-release"})
                first = self.search(world, "--supported", supported, dirs="a b c d e")
                self.assertEqual(first["ndk"], f"WORLD/{taken[0]}" if taken else None)
                self.assertEqual(len(first["candidates"]), "abcde".find(taken[0]) + 1 if taken else 5)

    def test_not_understood(self):
        world = self.world(ndk())
        for text, bad, column in [
            ("x", "x", 1), ("r10e;r2x1", "r2x1", 6), ("é r", "é", 1), ("r21, é", "é", 6),
            ("r21a", "r21a", 1), ("r21e*", "r21e*", 1), ("r25..r21", "r25..r21", 1), ("r21..", "r21..", 1),
            ("..r21", "..r21", 1), ("27.99", "27.99", 1), ("*", "*", 1), ("r+", "r+", 1), ("21.4.", "21.4.", 1),
        ]:
            for command in [["check", world.path("ndk")], ["find", "--search", world.path("ndk")]]:
                with self.subTest(text, command=command[0]):
                    outcome = world.run(*command, "--supported", text)
                    start = said(f"--supported: cannot understand '{bad}' in column {column} of '{text}'; ")
                    self.assertEqual((outcome.code, outcome.out), (2, ""))
                    self.assertIn(start.rstrip("\n"), outcome.err)


GRADLE = {"p/.git/": "", **ndk(name="sdk/ndk/" + R21E), **ndk(R25C, "sdk/ndk/" + R25C)}


class Project(AnswersTest):
    def pinned(self, tree, *options, cwd="p/app", **variables):
        return self.find({**GRADLE, "p/app/": "", **tree}, *options, cwd=cwd, ANDROID_HOME="sdk", **variables)

    def test_version(self):
        pin = f'"{R21E}"'
        for name, text in [
            ("p/build.gradle", f"android {{\n  ndkVersion {pin}\n}}\n"),
            ("p/build.gradle", f"android.ndkVersion = '{R21E}' // why\n"),
            ("p/build.gradle", f"// ndkVersion '1.1.1'\n/* ndkVersion '2.2.2'\n*/ ndkVersion({pin})"),
            ("p/build.gradle", f"def x = /it's \"/\nndkVersion {pin}; other 'y'"),
            ("p/app/build.gradle.kts", f"/* /* nested */ ndkVersion = \"1.1.1\" */\nndkVersion = {pin}\r\n"),
        ]:
            with self.subTest(text):
                found = self.pinned({name: text})
                source = f"ndkVersion in WORLD/{name}"
                self.assertEqual((found["ndk"], found["warnings"]), (f"WORLD/sdk/ndk/{R21E}", []))
                other = found["candidates"][0]
                self.assertEqual(other["reason"], "unsupported-release")
                self.assertEqual(other["message"], f"r25c ({R25C}) is not {R21E}, which {source} asks for")

    def test_directories(self):
        own = {**ndk(R11C, "own"), **ndk(R11C, "p/app/here")}
        for name, text, key, path in [
            ("p/local.properties", "# a\nndk.dir=WORLD/own\n", "ndk.dir", "own"),
            ("p/app/local.properties", "ndk.dir : here", "ndk.dir", "p/app/here"),
            ("p/build.gradle", "ndkPath 'WORLD/own'", "ndkPath", "own"),
            ("p/app/build.gradle.kts", 'ndkPath = "WORLD/own"', "ndkPath", "own"),
        ]:
            with self.subTest(text):
                world = self.world({**GRADLE, "p/app/": "", **own})
                world.write(name, text.replace("WORLD", world.dir))
                found = self.find(world, cwd="p/app", ANDROID_NDK_HOME=f"sdk/ndk/{R25C}")
                self.assert_reasons(found, (path, "ok", f"{key} in WORLD/{name}"))
        world = self.world({**GRADLE, **ndk(R11C, "other sdk/ndk/1")})
        escaped = world.path("other sdk").replace(" ", "\\ ")
        world.write("p/local.properties", f"sdk.dir={escaped}\n")
        found = self.find(world, cwd="p", ANDROID_HOME="sdk")
        source = "the SDK of sdk.dir in WORLD/p/local.properties"
        self.assert_reasons(found, ("other sdk/ndk/1", "ok", source))
        # Its revision is what is asked for, so --newest takes no other.
        world.write("p/app/local.properties", f"ndk.dir={world.path('other sdk/ndk/1')}\n")
        found = self.find(world, "--newest", cwd="p/app", ANDROID_HOME="sdk")
        self.assertEqual(found["ndk"], "WORLD/other sdk/ndk/1")
        world.write("p/app/local.properties", "ndk.dir=/gone\n")
        found = self.find(world, cwd="p/app", ANDROID_HOME="sdk")
        self.assertEqual(found["candidates"][0]["reason"], "missing")

    def test_where(self):
        pin = {"p/build.gradle": f"ndkVersion '{R21E}'"}
        nearer = {"p/app/build.gradle": f"ndkVersion '{R25C}'"}
        r21e, newest = f"WORLD/sdk/ndk/{R21E}", f"WORLD/sdk/ndk/{R25C}"
        for what, tree, cwd, options, ndk_found in [
            ("above", pin, "p/app", [], r21e),
            ("nearest", {**pin, **nearer}, "p/app", [], newest),
            ("above .git", {"build.gradle": pin["p/build.gradle"]}, "p/app", [], newest),
            ("without .git", {**pin, "p/.git": "-> gone", "q/a/": "", "q/build.gradle": pin["p/build.gradle"]},
             "q/a", [], newest),
            ("without .git, here", {"q/build.gradle": pin["p/build.gradle"]}, "q", [], r21e),
            ("--project", pin, "", ["--project", "p/app"], r21e),
            ("--no-project", pin, "p", ["--no-project"], newest),
            ("--supported", pin, "p", ["--supported", "r25c"], newest),
            ("--search", pin, "p", ["--search", f"../sdk/ndk/{R25C}"], f"../sdk/ndk/{R25C}"),
        ]:
            with self.subTest(what):
                tree = {name: text for name, text in tree.items() if not name.endswith(".git")}
                self.assertEqual(self.pinned(tree, *options, cwd=cwd)["ndk"], ndk_found)

    def test_passed_over(self):
        notes = {
            "ndkVersion rootProject.ext.ndk": "line 1: ndkVersion is not a plain text, so it is passed over",
            '\nndkVersion "21.${minor}"': "line 2: ndkVersion is not a plain text, so it is passed over",
            'ndkVersion = "21." + minor': "line 1: ndkVersion is not a plain text, so it is passed over",
        }
        for text, note in notes.items():
            with self.subTest(text):
                found = self.pinned({"p/build.gradle": text})
                self.assertEqual(found["warnings"], [f"WORLD/p/build.gradle: {note}"])
                self.assertEqual(found["ndk"], f"WORLD/sdk/ndk/{R25C}")
        malformed = {
            "build.gradle": [f"ndkVersion '{R21E}'\n/* no end", f"ndkVersion '{R21E}", "a\0b", "x = \"${{"],
            "local.properties": ["ndk.dir=\\u12", "a\0b"],
        }
        for name, texts in malformed.items():
            for text in texts:
                with self.subTest(text):
                    found = self.pinned({f"p/{name}": text})
                    self.assertEqual((found["code"], len(found["warnings"])), (0, 1))
                    self.assertIn(f"WORLD/p/{name} is passed over: ", found["warnings"][0])
        for tree in [{"p/build.gradle/": ""}, {"p/build.gradle": b"x" * (1 << 21)}]:
            self.assertEqual(len(self.pinned(tree)["warnings"]), 1)
        found = self.pinned({"p/build.gradle": "ndkVersion 'latest'"})
        self.assertIn("'latest' is not a revision", found["warnings"][0])

    @unittest.skipIf(os.geteuid() != 0, "only root gives files away")
    def test_somebody_elses(self):
        world = self.world({**GRADLE, "p/build.gradle": f"ndkVersion '{R21E}'"})
        os.chown(world.path("p/build.gradle"), NOBODY, NOBODY)
        found = self.find(world, cwd="p", ANDROID_HOME="sdk")
        why = "it belongs neither to you nor to root"
        self.assertEqual(found["warnings"], [f"WORLD/p/build.gradle is passed over: {why}"])
        self.assertEqual(found["ndk"], f"WORLD/sdk/ndk/{R25C}")
        os.chown(world.path("p/build.gradle"), 0, 0)
        how = {"program": world.copy_program(library_dir="bin"), "before": AS_NOBODY}
        found = self.find(world, "--read-only", cwd="p", ANDROID_HOME="sdk", **how)
        self.assertEqual((found["ndk"], found["warnings"]), (f"WORLD/sdk/ndk/{R21E}", []))


BETA = {"b/ndk-build": "#!", "b/source.properties": properties("29.0.14033849-beta4")}
THREE = {**ndk(R21E, "a"), **ndk("9.0.1", "c"), **BETA}


class Choosing(AnswersTest):
    def test_which(self):
        for options, dirs, taken in [
            ([], "a b c", "a"), ([], "c b a", "c"), ([], "b c", "c"), ([], "b", "b"),
            (["--newest"], "c b a", "a"), (["--newest", "--prerelease"], "c b a", "b"),
            (["--prerelease"], "b a", "b"), (["--supported", "r29+"], "a b c", "b"),
            (["--all"], "b c", "c"), (["--supported", "r29-beta4"], "a b", "b"),
        ]:
            with self.subTest(options, dirs=dirs):
                found = self.search(THREE, *options, dirs=dirs)
                self.assertEqual(found["ndk"], f"WORLD/{taken}")
                for one in found["candidates"]:
                    is_beta = one["path"] == "WORLD/b"
                    reasons = [note["reason"] for note in one["notes"]]
                    self.assertEqual((one["prerelease"], "beta" in reasons), (is_beta, is_beta))

    def test_nearest(self):
        tree = {**ndk("21.3.1", "a"), **ndk("25.0.1", "b"), "c/RELEASE.TXT": "r10e\n"}
        for supported, nearest in [("r21e", "a"), ("r24", "b"), ("r10d", "c"), ("r26+", "b"), ("r9..r20", "c")]:
            found = self.search(tree, "--supported", supported)
            self.assertEqual((found["ndk"], found["nearest"]), (None, f"WORLD/{nearest}"))
        self.assertIsNone(self.search({"a/": ""}, dirs="a")["nearest"])

    def test_format(self):
        world = self.world({**THREE, "d/": ""})
        search = ["find", "--search", ";".join(map(world.path, "dac"))]
        for options, out in [
            ([r"{path}\t{release}\t{revision}"], f"WORLD/a\tr21e\t{R21E}\n"),
            ([r"{{{reason}}} \\ {source}\n{status}"], "{ok} \\ --search\nok\n"),
            (["{path}|{release}|{reason}|{prerelease}", "--all"],
             "WORLD/d||no-launcher|false\nWORLD/a|r21e|ok|false\nWORLD/c|r9|ok|false\n"),
        ]:
            self.assert_outcome(world.run(*search, "--format", *options), out=out)
        outcome = world.run("find", "--search", world.path("d"), "--format", "{path}")
        self.assertEqual((outcome.code, outcome.out), (1, ""))
        for bad, column in [("{x}", 1), (r"a\q", 2), ("ab{path", 3), ("\\", 1)]:
            outcome = world.run(*search, "--format", bad)
            self.assertEqual((outcome.code, outcome.out), (2, ""))
            self.assertIn(f"in column {column} of '{bad}'", outcome.err)

    @unittest.skipIf(os.geteuid() != 0, "only root takes files from a user")
    def test_read_only(self):
        world = self.world(ndk(name="a"))
        how = {"program": world.copy_program(library_dir="bin"), "before": AS_NOBODY}
        found = self.search(world, dirs="a", **how)
        one = found["candidates"][0]
        self.assertEqual((one["status"], one["release"], found["nearest"]), ("notwritable", "r21e", "WORLD/a"))
        found = self.search(world, "--read-only", dirs="a", **how)
        reasons = [note["reason"] for note in found["candidates"][0]["notes"]]
        self.assertEqual((found["ndk"], reasons), ("WORLD/a", ["not-writable"]))
        found = self.search(world, "--read-only", "--supported", "r9", dirs="a", **how)
        self.assertEqual(found["candidates"][0]["reason"], "unsupported-release")


class Pinning(AnswersTest):
    def test_lock(self):
        world = self.world({**ndk(R21E, "a"), **ndk(R21E, "b"), **ndk("21.3.1", "c")})
        lock = world.path("ndk.lock")
        self.search(world, "--lock", lock, dirs="b")
        digest = hashlib.sha256(world.bytes("b/source.properties")).hexdigest()
        self.assertEqual(json.loads(world.bytes("ndk.lock")), {
            "schema": 1, "release": "r21e", "revision": R21E, "source_properties_sha256": digest,
        })
        world.write("a/source.properties", properties(R21E) + "more = here\n")
        found = self.search(world, "--locked", lock, dirs="a c b")
        self.assertEqual(found["ndk"], "WORLD/b")
        self.assertEqual(
            [(one["status"], one["reason"], one["message"]) for one in found["candidates"][:2]],
            [("nok", "locked-differs", f"not the NDK that is locked: {what}") for what in [
                "its source.properties has other bytes", "its release is r21d, not r21e"
            ]],
        )
        found = self.search(world, "--locked", lock, dirs="c")
        self.assertEqual((found["code"], found["nearest"]), (1, "WORLD/c"))

    def test_lock_after_a_kill(self):
        # It left its copy, and had the same process number.
        world = self.world(ndk(R21E, "a"))
        lock = world.path("ndk.lock")
        killed = ["sh", "-c", 'echo half > "$0.new-$$"; exec "$@"', lock]
        self.assertEqual(self.search(world, "--lock", lock, dirs="a", before=killed)["code"], 0)
        self.assertEqual(json.loads(world.bytes("ndk.lock"))["release"], "r21e")
        self.assertEqual(sorted(os.listdir(world.dir)), ["a", "ndk.lock"])

    def test_bad_lock(self):
        world = self.world({**ndk(name="a"), "x": "{}", "y": "no\n", "d/": ""})
        for file in ["gone", "x", "y", "d"]:
            self.assertEqual(self.search(world, "--locked", world.path(file))["code"], 2)
        self.assertEqual(self.search(world, "--lock", "l", "--locked", "l")["code"], 2)
        outcome = world.run("find", "--search", world.path("a"), "--lock", world.path("gone/lock"))
        self.assertEqual((outcome.code, outcome.out, outcome.changes), (1, "", {}))
        outcome = world.run("find", "--search", world.path("gone"), "--lock", world.path("lock"))
        self.assertEqual((outcome.code, outcome.changes), (1, {}))


class Converting(AnswersTest):
    def test_release(self):
        world = self.world()
        for given, out in {
            "r21e": "21.4 (21.4.7075529)", " R21E": "21.4 (21.4.7075529)", "21e": "21.4 (21.4.7075529)",
            "r21d": "21.3", "r11": "11.0 (11.0.2655954)", "r29-beta4": "29.0-beta4", R21E: "r21e",
            "21.4": "r21e", "21.0.1": "r21", "29.0.14033849-beta4": "r29-beta4",
        }.items():
            self.assert_outcome(world.run("release", given), out=out + "\n")
        outcome = world.run("release", "21.4", "--json")
        SCHEMA.validate(json.loads(outcome.out))
        self.assertEqual(json.loads(outcome.out)["revision"], R21E)
        for given in ["", "x", "r21a", "r", "21.26", "r21+", "21.4.", "r21e;r22", "99999999999"]:
            outcome = world.run("release", given)
            self.assertEqual((outcome.code, outcome.out), (2, ""))
            self.assertIn(f"cannot understand '{given}'", outcome.err)


class MoreThatIsWrong(AnswersTest):
    def check(self, tree, path="ndk", **how):
        world = self.world(tree)
        outcome = world.run("check", world.path(path), "--json", **how)
        judgement = json.loads(outcome.out)
        SCHEMA.validate(judgement)
        self.assertEqual(outcome.code, 0 if judgement["status"] == "ok" else 1)
        return judgement

    def test_notes(self):
        core, old = "ndk/build/core/toolchains/", "ndk/toolchains/"
        for what, tree, path, notes in [
            ("good", ndk(), "ndk", []),
            ("beta", BETA, "b", ["beta"]),
            ("name of a beta", with_properties(properties("29.0.1") + "Pkg.ReleaseName = r29-beta1\n"), "ndk", ["beta"]),
            ("blank", ndk(name="a b/ndk"), "a b/ndk", ["blank-in-path"]),
            ("launcher", {**ndk(), "ndk/ndk-build": ""}, "ndk", ["launcher-not-executable"]),
            ("half", {**ndk(), core + "x/config.mk": ""}, "ndk", ["half-installed-toolchain"]),
            ("half, old place", {**ndk(), old + "x/config.mk": ""}, "ndk", ["half-installed-toolchain"]),
            ("not read there", {**ndk(), core: "", old + "x/config.mk": ""}, "ndk", []),
            ("whole", {**ndk(), core + "x/config.mk": "", core + "x/setup.mk": ""}, "ndk", []),
            ("not seen", {**ndk(), core + "x/setup.mk": ""}, "ndk", []),
        ]:
            with self.subTest(what):
                judgement = self.check(tree, path)
                self.assertEqual(judgement["status"], "ok")
                self.assertEqual([note["reason"] for note in judgement["notes"]], notes)

    def test_toolchains_not_writable(self):
        for name in ["toolchains/", "build/core/toolchains/"]:
            judgement = self.check({**ndk(), f"ndk/{name}": (0o555, "")}, unprivileged=True)
            self.assertEqual([note["reason"] for note in judgement["notes"]], ["toolchains-not-writable"])

    def test_reasons(self):
        def other(name):
            return with_properties(f"Pkg.Desc = {name}\nPkg.Revision = {R21E}\n")
        for what, tree, status, reason, release in [
            ("other", other("Android SDK Platform-Tools"), "nok", "not-an-ndk", "r21e"),
            ("other, no launcher", {**other("CMake"), "ndk/ndk-build/": ""}, "nok", "not-an-ndk", "r21e"),
            ("similar", other("Android NDKs"), "nok", "not-an-ndk", "r21e"),
            ("own", other("Android NDK"), "ok", "ok", "r21e"),
            ("empty", other(""), "ok", "ok", "r21e"),
            ("absent", with_properties(f"Pkg.Revision = {R21E}\n"), "ok", "ok", "r21e"),
            ("interrupted", {"ndk/.installer/x": ""}, "nok", "interrupted-install", None),
            ("interrupted late", {"ndk/.installer": "", "ndk/source.properties": properties(R21E)},
             "nok", "interrupted-install", "r21e"),
            ("installed since", {**ndk(), "ndk/.installer/x": ""}, "ok", "ok", "r21e"),
            ("parent", ndk(name="ndk/21"), "nok", "parent-of-ndks", None),
            ("SDK", ndk(name="ndk/ndk/21"), "nok", "parent-of-ndks", None),
            ("before r11", {"ndk/RELEASE.TXT": "r10e"}, "nok", "pre-r11", "r10e"),
        ]:
            with self.subTest(what):
                if "ndk/ndk-build/" in tree:
                    tree = {name: text for name, text in tree.items() if name not in LAUNCHER}
                judgement = self.check(tree)
                told = (judgement["status"], judgement["reason"], judgement["release"])
                self.assertEqual(told, (status, reason, release))


class Names(AnswersTest):
    def test_escape(self):
        # Each U+FFFD of the JSON stands for the byte whose digits follow it.
        names = [b"\xff", "é\ufffd".encode(), b"\xed\xa0\x80\xc3", b"\\xff", b"a\xe2\x82"]
        world = self.world()
        for name in names:
            path = os.path.join(os.fsencode(world.dir), name)
            os.mkdir(path)
            told = subprocess.run(world_command(path), stdout=subprocess.PIPE, check=False).stdout
            escaped = json.loads(told.decode())["path"].encode().split("\ufffd".encode())
            self.assertEqual(
                b"".join([escaped[0], *(bytes.fromhex(part[:2].decode()) + part[2:] for part in escaped[1:])]), path
            )


def world_command(path):
    return [os.path.abspath(os.environ["NDK_INTEGRATE"]), "check", "--json", path]


if __name__ == "__main__":
    unittest.main()

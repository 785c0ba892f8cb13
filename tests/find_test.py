"""ndk-integrate find, end to end: where it looks, in which order, and what find and check tell with
the options that all commands share."""

import json
import os
import re
import shutil
import subprocess
import unittest

from messages import (
    LOG_NOT_WHOLE, log_of_good_ndk, log_of_ndk, log_of_search, said, told_log,
)
from plugins import fake_plugin
from strace import needs_plain_program, needs_strace, run_traced
from verdicts import (
    NEVER, VerdictTest, blank_in_path, found_json, found_lines, json_line, missing, ndk, no_launcher,
    no_source_properties, not_a_directory, not_found, not_writable, ok, parent_of_ndks,
    pre_r11, unknown_revision, unreadable, unsupported, update_unknown,
)
from world import AS_NOBODY, EXAMPLES, PIPE

GOOD = ok(path="WORLD/good")
OLDER = ok("r11c", "11.2.2725575", "WORLD/older")
HALF = no_source_properties("WORLD/half")
GONE = missing("WORLD/gone")


class Search(VerdictTest):
    """--search DIR[;DIR...]"""

    def three(self, *trees):
        tree = {**ndk(name="good"), **ndk("11.2.2725575", name="older"), "half/ndk-build": ""}
        return self.untouched(tree, *trees)

    def test_order(self):
        world = self.three({"file": ""})
        in_vain = [HALF, not_a_directory("WORLD/file"), GONE]
        repeated = ["--search", world.list("half", "gone"), "--search", world.path("older")]
        repeated += ["--search", world.path("good")]
        empty = [f"--search=;;{world.list('half')};;{world.list('good')};", "--search", ""]
        first_good = world.list("half", "gone", "good", "older", "half")
        every = world.list("half", "older", "gone", "good", "half")
        none_good = world.list("half", "file", "gone")
        twice = world.list("half", "half", "good", "good")
        for options, verdicts in [
            (["--search", first_good], [HALF, GONE, GOOD]),
            (["--search", every, "--all"], [HALF, OLDER, GONE, GOOD, HALF]),
            (["--search", none_good], in_vain),
            (["--search", none_good, "--all"], in_vain),
            (["--search", twice], [HALF, HALF, GOOD]),
            (["--search", twice, "--all"], [HALF, HALF, GOOD, GOOD]),
            (repeated, [HALF, GONE, OLDER]),
            ([*repeated, "--all"], [HALF, GONE, OLDER, GOOD]),
            ([*empty, "--search", ";"], [HALF, GOOD]),
        ]:
            with self.subTest(options):
                self.assert_find(world, verdicts, *options)

    def test_as_given(self):
        world = self.three()
        names = ["gone", "half/", "./half", "../world/half", "half//", ".", "good/"]
        verdicts = [missing("gone"), *map(no_source_properties, names[1:5])]
        verdicts += [parent_of_ndks("WORLD/good", "."), ok(path="good/")]
        search = ["--search", ";".join(names)]
        self.assert_find(world, verdicts, *search, cwd=world.dir)
        self.assert_find(world, verdicts, *search, "--all", cwd=world.dir)

    def test_names(self):
        for name in ["a blank", " ", "[good]", "[a,b]", "{}", "%%", "a=b", "-x", "'q'", '"', "é"]:
            with self.subTest(name):
                world = self.untouched(ndk(name=name))
                verdict, relative = ok(path=f"WORLD/{name}"), ok(path=name)
                if " " in name:
                    verdict, relative = (blank_in_path(one) for one in (verdict, relative))
                self.assert_check(world, verdict, path=world.path(name))
                self.assert_find(world, [verdict], "--search", world.path(name))
                self.assert_find(world, [relative], f"--search={name}", cwd=world.dir)

    def test_name_with_line_end(self):
        world = self.untouched(ndk(name="two\nlines\t\r\x1b"), {"two\nparts/": ""})
        search = ["--search", world.list("two\nparts", "two\nlines\t\r\x1b")]
        good_one = ok(path="WORLD/two\\nlines\\t\\r\\x1b")
        shown = [no_launcher("WORLD/two\\nparts"), blank_in_path(good_one)]
        self.assert_outcome(world.run("find", *search), out=found_lines(shown))
        good_one = ok(path="WORLD/two\nlines\t\r\x1b")
        verdicts = [no_launcher("WORLD/two\nparts"), blank_in_path(good_one)]
        self.assert_outcome(world.run("find", *search, "--json"), out=found_json(verdicts))

    def test_name_that_is_no_utf8(self):
        world = self.three()
        name = os.path.join(os.fsencode(world.dir), b"\xff\xc3")
        os.rename(os.fsencode(world.path("good")), name)
        shown = ok(path="WORLD/\\xff\\xc3")
        in_json = ok(path="WORLD/\ufffdff\ufffdc3")
        for command, out in [
            (["check", name], shown.line),
            (["check", name, "--json"], in_json.check_json),
            (["find", "--search", name], found_lines([shown])),
            (["find", "--search", name, "--json"], found_json([in_json])),
            (["find", "--search", name, "--json", "--all"], found_json([in_json])),
        ]:
            self.assert_outcome(world.run(*command), out=out)

    def test_name_with_semicolon(self):
        world = self.untouched(ndk(name="a;b"), ndk(name="c;d/ndk"))
        self.assert_check(world, ok(path="WORLD/a;b"), path=world.path("a;b"))
        parts = [missing("WORLD/a"), missing("b")]
        self.assert_find(world, parts, "--search", world.path("a;b"))
        for every in [[], ["--all"]]:
            search = ["--search", "ndk", *every]
            self.assert_find(world, [ok(path="ndk")], *search, cwd=world.path("c;d"))

    def test_supported(self):
        world = self.three(ndk("11", name="bundle"))
        some = ["--search", world.list("good", "bundle", "half", "older", "good")]
        some += ["--supported", "r10e;r11c"]
        other = unsupported("r10e, r11c", path="WORLD/good")
        verdicts = [other, update_unknown(path="WORLD/bundle"), HALF, OLDER]
        none = ["--search", world.list("good", "older"), "--supported", "r10d;r10e"]
        older = unsupported("r10d, r10e", "r11c", "11.2.2725575", "WORLD/older")
        for options, expected, *near in [
            (some, verdicts),
            ([*some, "--all"], [*verdicts, other]),
            (none, [unsupported("r10d, r10e", path="WORLD/good"), older], older),
            ([*none, "--all"], [unsupported("r10d, r10e", path="WORLD/good"), older], older),
        ]:
            self.assert_find(world, expected, *options, nearest=near[0] if near else None)

    def test_examples(self):
        world = self.untouched()
        shutil.copytree(os.path.join(EXAMPLES, "ndk"), world.path("ndk"))
        names = ["android-ndk-r10e", "android-ndk-r12b.part", "ndk-bundle", "android-ndk-r21e"]
        names.append("android-ndk-r11c")
        paths = [f"ndk/{name}" for name in names]
        search = ["--search", world.list(*paths)]
        r10e, r12b, bundle, r21e, r11c = (f"WORLD/{path}" for path in paths)
        verdicts = [
            pre_r11(path=r10e),
            no_source_properties(r12b),
            update_unknown(path=bundle),
            unsupported("r10e, r11c", path=r21e),
            ok("r11c", "11.2.2725575", r11c),
        ]
        self.assert_find(world, verdicts, *search, "--supported", "r10e;r11c", "--all")
        verdicts[3] = ok(path=r21e)
        self.assert_find(world, verdicts, *search, "--all")
        self.assert_find(world, verdicts[:4], *search)


# --- The usual places ---

MACHINE_WIDE = ("/usr/lib/", "/usr/local/lib/", "/opt/")
MACHINE_WIDE_NDKS = ["/usr/lib/android-sdk", "/usr/lib/android-ndk", "/usr/local/lib/android"]
MACHINE_WIDE_NDKS += ["/opt/android-sdk", "/opt/android-ndk"]
VARIABLES = ["HOME", "ANDROID_NDK_HOME", "ANDROID_NDK_ROOT", "ANDROID_NDK"]
VARIABLES += ["ANDROID_NDK_PATH", "ANDROID_NDK_LATEST_HOME", "NDK_HOME", "NDK_ROOT"]
VARIABLES += ["ANDROID_HOME", "ANDROID_SDK_ROOT"]
SOURCES = {
    "sdk/": "the SDK in ANDROID_HOME",
    "sdk_root/": "the SDK in ANDROID_SDK_ROOT",
    "home/Android/Sdk/": "the SDK in ~/Android/Sdk",
    "home/android-ndk-": "~/android-ndk-*",
    "ndk_home": "ANDROID_NDK_HOME",
    "ndk_root": "ANDROID_NDK_ROOT",
    "ndk_path": "ANDROID_NDK_PATH",
    "ndk": "ANDROID_NDK",
    "latest": "ANDROID_NDK_LATEST_HOME",
    "other_home": "NDK_HOME",
    "other_root": "NDK_ROOT",
}
SDK_NDKS = "home/Android/Sdk/ndk/"


def environment(world, variables):
    """How to run a command with these of VARIABLES, directories of the world, and no other."""
    unset = [word for name in VARIABLES if name not in variables for word in ["-u", name]]
    values = {name: value and world.path(value) for name, value in variables.items()}
    return {"before": ["env", *unset], "env": values}


def good(path, revision="21.4.7075529", release="r21e"):
    return ok(release, revision, f"WORLD/{path}").from_(source_of(path))


def source_of(path):
    """Where a directory of the world is expected to come from."""
    return next(source for start, source in SOURCES.items() if path.startswith(start))


def placed(verdict):
    """The verdict on a directory of the world in one of the usual places."""
    return verdict.from_(source_of(verdict.path.removeprefix("WORLD/")))


class DefaultSearch(VerdictTest):
    def assert_found(self, world, verdicts, err="", **variables):
        """`find --all` tells `verdicts` in this order, not counting the machine's own NDKs."""
        outcome = world.run("find", "--all", **environment(world, variables))
        lines = outcome.out.splitlines(keepends=True)
        outcome.out = "".join(line for line in lines if not line.startswith(MACHINE_WIDE))
        self.assert_outcome(outcome, out=found_lines(verdicts), err=err)

    def assert_found_releases(self, releases, err="", **variables):
        """NDKs, each with a revision and its release, are found in this order."""
        rows = releases.items()
        trees = [ndk(revision, path) for path, (revision, _) in sorted(rows)]
        verdicts = [good(path, revision, release) for path, (revision, release) in rows]
        self.assert_found(self.untouched(*trees), verdicts, err, **variables)

    def test_order(self):
        places = {
            "ANDROID_NDK_HOME": "ndk_home",
            "ANDROID_NDK_ROOT": "ndk_root",
            "ANDROID_NDK": "ndk",
            "ANDROID_NDK_PATH": "ndk_path",
            "ANDROID_NDK_LATEST_HOME": "latest",
            "NDK_HOME": "other_home",
            "NDK_ROOT": "other_root",
            "ANDROID_HOME": "sdk",
            "ANDROID_SDK_ROOT": "sdk_root",
            "HOME": "home",
        }
        variables = ["ndk_home", "ndk_root", "ndk", "ndk_path", "other_home", "other_root"]
        names = [*variables[:4], "latest", *variables[4:]]
        sdks = ["sdk", "sdk_root", "home/Android/Sdk"]
        names += [f"{sdk}/ndk/a" for sdk in sdks] + [f"{sdk}/ndk-bundle" for sdk in sdks]
        names.append("home/android-ndk-a")
        # The order of the revisions is not the order of the places.
        numbers = {name: 20 + 7 * i % 11 for i, name in enumerate(names)}
        releases = {name: (f"{number}.1", f"r{number}b") for name, number in numbers.items()}
        named = zip("_HOME _ROOT  _PATH".split(" "), variables)
        told = [f"ANDROID_NDK{end} is WORLD/{name}" for end, name in named]
        told += ["NDK_HOME is WORLD/other_home", "NDK_ROOT is WORLD/other_root"]
        differ = said("warning: the environment names different NDKs: " + ", ".join(told))
        self.assert_found_releases(releases, err=differ, **places)

    def test_first_good_one(self):
        world = self.untouched(
            {"half/ndk-build": ""},
            ndk(name=SDK_NDKS + "21.4.7075529"),
            ndk("11.2.2725575", SDK_NDKS + "11.2.2725575"),
        )
        hint = f"; did you mean WORLD/{SDK_NDKS}21.4.7075529?"
        verdicts = [
            no_source_properties("WORLD/half", hint).from_("ANDROID_NDK_ROOT"),
            missing("WORLD/gone", hint).from_("ANDROID_NDK"),
            good(SDK_NDKS + "21.4.7075529"),
        ]
        variables = {"HOME": "home", "ANDROID_NDK_ROOT": "half", "ANDROID_NDK": "gone"}
        self.assert_find(world, verdicts, **environment(world, variables))

    def test_newest_first(self):
        # Neither the names nor the texts of the revisions are in order.
        releases = {
            "f": ("29.0.14033849-beta4", "r29"),
            "e": ("21.10.1", "r21k"),
            "d": ("21.4.10000000", "r21e"),
            "c": ("21.4.7075529", "r21e"),
            "c2": ("21.4.7075529", "r21e"),  # the same by name
            "b": ("10.0.1", "r10"),
            "a": ("9.3.1", "r9d"),
            "99.9.9": ("8.0.1", "r8"),
        }
        releases = {SDK_NDKS + name: release for name, release in releases.items()}
        # In each place.
        releases = {"sdk/ndk/8": ("8.0.2", "r8"), "sdk/ndk/9": ("7.0.2", "r7"), **releases}
        releases["home/android-ndk-r9"] = ("9.0.2", "r9")
        releases["home/android-ndk-r10"] = ("8.1", "r8b")
        self.assert_found_releases(releases, HOME="home", ANDROID_HOME="sdk")

    def test_links_once(self):
        world = self.untouched(ndk(name=SDK_NDKS + "21.4.7075529"))
        links = ["ndk_home", SDK_NDKS + "latest", "home/Android/Sdk/ndk-bundle"]
        for link in [*links, "home/android-ndk-r21e"]:
            world.write(link, "-> " + world.path(SDK_NDKS + "21.4.7075529"))
        world.write("sdk", "-> home/Android/Sdk")
        variables = {"HOME": "home"}
        self.assert_found(world, [good(SDK_NDKS + "21.4.7075529")], **variables)
        variables["ANDROID_HOME"] = "sdk"
        self.assert_found(world, [good("sdk/ndk/21.4.7075529")], **variables)
        variables.update(ANDROID_NDK_ROOT="ndk_home", ANDROID_NDK="sdk/ndk/latest")
        verdict = ok(path="WORLD/ndk_home").from_("ANDROID_NDK_ROOT")
        self.assert_found(world, [verdict], **variables)

    def test_stray_files(self):
        stray = {
            SDK_NDKS + "wrap.sh": "#!/bin/sh\n",
            SDK_NDKS + ".installer/": "",
            SDK_NDKS + "dangling": "-> nowhere",
            "home/android-ndk-r21e-linux.zip": "",
            "home/Android/Sdk/ndk-bundle": "",
            "home/android-ndk/": "",
            "file": "",
        }
        world = self.untouched(ndk(name=SDK_NDKS + "21.4.7075529"), stray)
        verdicts = [
            not_a_directory("WORLD/file", f"; did you mean WORLD/{SDK_NDKS}21.4.7075529?")
            .from_("ANDROID_NDK"),
            good(SDK_NDKS + "21.4.7075529"),
            placed(no_launcher(f"WORLD/{SDK_NDKS}.installer")),
        ]
        self.assert_found(world, verdicts, HOME="home", ANDROID_NDK="file")

    def test_half_downloaded(self):
        world = self.untouched(
            {SDK_NDKS + "99.0.1/ndk-build": "", SDK_NDKS + "22.0.1/": "", SDK_NDKS + "30": ""},
            ndk("11", SDK_NDKS + "bundle"),
            ndk("x", SDK_NDKS + "x"),
            ndk("9.0.1", SDK_NDKS + "9.0.1"),
        )
        verdicts = [
            placed(update_unknown(path=f"WORLD/{SDK_NDKS}bundle")),
            good(SDK_NDKS + "9.0.1", "9.0.1", "r9"),
            placed(unknown_revision("x", path=f"WORLD/{SDK_NDKS}x")),
            placed(no_launcher(f"WORLD/{SDK_NDKS}22.0.1")),
            placed(no_source_properties(f"WORLD/{SDK_NDKS}99.0.1")),
        ]
        self.assert_found(world, verdicts, HOME="home")

    def test_pipe_for_source_properties(self):
        pipe = {SDK_NDKS + "pipe/ndk-build": "", SDK_NDKS + "pipe/source.properties": PIPE}
        world = self.untouched(ndk(name=SDK_NDKS + "good"), pipe)
        how = environment(world, {"HOME": "home"})
        how["before"] += ["timeout", NEVER]
        self.assert_find(world, [good(SDK_NDKS + "good")], **how)

    def test_variables_empty_or_unset(self):
        world = self.untouched(ndk(name="sdk/ndk-bundle"), ndk(name="home/android-ndk-r21e"))
        empty = {name: "" for name in VARIABLES}
        self.assert_found(world, [good("home/android-ndk-r21e")], **{**empty, "HOME": "home"})
        bundle = ok(path="WORLD/sdk/ndk-bundle").from_("the SDK in ANDROID_SDK_ROOT")
        self.assert_found(world, [bundle], ANDROID_SDK_ROOT="sdk")

    def test_unreadable_places(self):
        closed = {"sdk/ndk/": (0, ""), SDK_NDKS + "b/": (0, "")}
        world = self.untouched(
            ndk(name="good"), ndk(name="sdk/ndk/a"), ndk(name=SDK_NDKS + "b"), closed
        )
        variables = {"HOME": "home", "ANDROID_HOME": "sdk", "ANDROID_NDK_LATEST_HOME": "good"}
        how = environment(world, variables)
        if os.geteuid() == 0:  # not by unprivileged=True, for the sake of /opt and the like
            how["program"] = world.give_to_nobody()
            how["before"] += AS_NOBODY
        verdicts = [
            ok(path="WORLD/good").from_("ANDROID_NDK_LATEST_HOME"),
            placed(unreadable(path="WORLD/sdk/ndk")),  # cannot be listed
            placed(unreadable(path=f"WORLD/{SDK_NDKS}b")),
        ]
        outcome = world.run("find", "--all", "--json", **how)
        told = json.loads(outcome.out)
        told["candidates"] = [
            one for one in told["candidates"] if not one["path"].startswith(MACHINE_WIDE)
        ]
        outcome.out = json_line(told)
        self.assert_outcome(outcome, out=found_json(verdicts))

    @unittest.skipIf(
        any(map(os.path.exists, MACHINE_WIDE_NDKS)), "this machine has NDKs in the usual places"
    )
    def test_nothing_there(self):
        world = self.untouched({"home/": ""})
        err = said("no NDK found: no directory in any of the usual places; --search names others")
        for variables in [{}, {"HOME": "home"}, {"HOME": "gone"}]:
            for option in [[], ["--all"]]:
                how = environment(world, variables)
                self.assert_outcome(world.run("find", *option, **how), 1, err=err)
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


def place_of(path):
    """Where a directory of the other machine is expected to come from."""
    sdk = next((sdk for sdk in ["WORLD/home/Android/Sdk", *MACHINE_WIDE_NDKS[:1],
                                "/usr/local/lib/android/sdk", "/opt/android-sdk"]
                if path.startswith(sdk + "/")), None)
    if sdk:
        return "the SDK in " + sdk.replace("WORLD/home", "~")
    return re.sub("WORLD/home", "~", re.sub("android-ndk-.*", "android-ndk-*", path))


class MachineWidePlaces(VerdictTest):
    def setUp(self):
        for name in ["/usr/lib/android-sdk", "/usr/lib/android-ndk"]:
            if os.path.exists(name):
                self.skipTest(f"this machine has a {name}")

    def assert_found(self, verdicts, *trees, **variables):
        world = self.untouched({"opt/": "", "usr-local-lib/": "", "usr-lib/": ""}, *trees)
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
        verdicts = [
            (not_writable if path.startswith("/usr/lib/") else ok)(path=path).from_(place_of(path))
            for path in names.values()
        ]
        self.assert_found(verdicts, *(ndk(name=name) for name in names), HOME="home")

    def test_unpacked_archives(self):
        stray = {"opt/android-ndk-r30.part/": "", "opt/android-ndk-r8.zip": "", "opt/other/": ""}
        verdicts = [
            ok("r10", "10.0.1", "/opt/android-ndk").from_("/opt/android-ndk"),
            ok("r21", "21.0.1", "/opt/android-ndk-r21").from_("/opt/android-ndk-*"),
            ok("r9", "9.0.1", "/opt/android-ndk-r9").from_("/opt/android-ndk-*"),
            no_launcher("/opt/android-ndk-r30.part").from_("/opt/android-ndk-*"),
        ]
        self.assert_found(
            verdicts,
            ndk("9.0.1", "opt/android-ndk-r9"),
            ndk("21.0.1", "opt/android-ndk-r21"),
            ndk("10.0.1", "opt/android-ndk-r10"),
            {**stray, "opt/android-ndk": "-> android-ndk-r10"},
        )


# --- Options that all commands share ---


def empty_log(path):
    lacks = "is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false"
    return log_of_ndk(path, lacks)


GOOD_LOG = log_of_good_ndk(revision="21.4.7075529", release="r21e")
FIND_LOG = log_of_search(("WORLD/gone", empty_log("WORLD/gone")), good=GOOD_LOG)


class CommonOptions(VerdictTest):
    def assert_runs(self, world, rows):
        """Each row is a command and its outcome."""
        for command, *expected in rows:
            with self.subTest(command):
                self.assert_outcome(world.run(*command), *expected)

    def test_verbose(self):
        world = self.untouched(ndk(), {"a\nb/": ""})
        path = world.path("ndk")
        found = found_lines([GONE, ok()])
        line_end = no_launcher("WORLD/a\\nb").line
        self.assert_runs(world, [
            (["check", path, "-v"], 0, ok().line, GOOD_LOG),
            (["-v", "check", path, "--json"], 0, ok().check_json, GOOD_LOG),
            (["find", "--search", world.list("gone", "ndk", "behind"), "-v"], 0, found, FIND_LOG),
            (["check", world.path("a\nb"), "-v"], 1, line_end, empty_log("WORLD/a\\nb")),
        ])

    def test_log_file(self):
        world = self.untouched(ndk(), {"empty/": ""})
        log = os.path.join(world.top, "log")
        empty = no_launcher("WORLD/empty").line
        self.assert_runs(world, [
            (["check", world.path("ndk"), "--log", log], 0, ok().line),
            (["--log", log, "check", world.path("empty")], 1, empty),
            (["find", "--search", world.list("gone", "ndk"), "--log", log, "-q"], 0, "WORLD/ndk\n"),
            (["check", world.path("ndk"), "--log", "/dev/full"], 0, ok().line, LOG_NOT_WHOLE),
        ])
        expected = GOOD_LOG + empty_log("WORLD/empty") + FIND_LOG
        lines = told_log(world, log).splitlines(True)
        self.assertEqual(sum(line.startswith("TIME ") for line in lines), 3)
        told = "".join(line for line in lines if not line.startswith("TIME "))
        self.assertMultiLineEqual(told, expected)

    def test_quiet(self):
        world = self.untouched(ndk(), {"empty/": ""})
        empty = no_launcher("WORLD/empty")
        search = ["--search", world.list("empty", "ndk")]
        in_vain = said(f"WORLD/gone: {GONE.message} [from --search]") + not_found(1)
        self.assert_runs(world, [
            (["check", world.path("ndk"), "-q"], 0),
            (["check", world.path("empty"), "-q"], 1, empty.line),
            (["check", world.path("ndk"), "-q", "--json"], 0, ok().check_json),
            (["find", *search, "-q"], 0, "WORLD/ndk\n"),
            (["-q", "find", *search, "--all"], 0, "WORLD/ndk\n"),
            (["find", *search, "-q", "--json"], 0, found_json([empty, ok()])),
            (["find", "--search", world.path("gone"), "-q"], 1, "", in_vain),
        ])

    def test_standard_output_full(self):
        world = self.untouched(ndk())
        full = ["sh", "-c", 'exec "$@" > /dev/full', "sh"]
        for command in [["check", world.path("ndk")], ["find", "--search", world.path("ndk")]]:
            for form in [[], ["--json"]]:
                with self.subTest(command[0], form=form):
                    outcome = world.run(*command, *form, before=full)
                    err = said("cannot write to standard output")
                    self.assert_outcome(outcome, 1, err=err)


# A plug-in that gives the verdict STATUS, and calls a version of its own "r77x".
FAKE = {
    "validate_ndk_path": """
        extern "C" int validate_ndk_path(session_t* session) {
          env_set_string(session, "NDK_PATH_STATUS", std::getenv("STATUS"));
          return 0;
        }""",
    "detect_ndk": """
        extern "C" int detect_ndk(session_t* session) {
          const std::string ndk = env_get_string(session, "NDK_DEFAULT_SEARCH_PATH_LINUX");
          env_set_string(session, std::string("NDK_PATH"), ndk.substr(0, ndk.find(';')));
          env_set_string(session, "NDK_PATH_STATUS", "ok");
          return 0;
        }""",
    "get_version": "ndk_version_t get_version(const std::string&) { return {7, -7}; }",
    "ndk_version_string": """
        std::string ndk_version_string(ndk_version_t version) {
          return version.major == 7 && version.minor == -7 ? "r77x" : "r0";
        }""",
}


class PlugIn(VerdictTest):
    def test_own_verdict(self):
        world = self.untouched(ndk())
        fake = ["--plugin", fake_plugin(world, **FAKE)]
        self.assert_verdict(world, ok("r77x"), *fake, env={"STATUS": "ok"})
        for status, verdict, *options in [
            ("unsupported", unsupported("r21e", "r77x"), "--supported", "r21e"),
            ("notwritable", not_writable("r77x")),
        ]:
            self.assert_check(world, verdict, *fake, *options, env={"STATUS": status})


class NothingChanged(VerdictTest):
    """Each test here notices a change in its world; this one looks at every system call as well."""

    @needs_strace
    @needs_plain_program
    def test_system_calls(self):
        tree = {"old/RELEASE.TXT": "r10e\n", "half/ndk-build": "", "empty/": "", "file": ""}
        world = self.world({**ndk(), **ndk("11", "bundle"), **tree, "home/": "", "tmp/": ""})
        env = {"HOME": world.path("home"), "TMPDIR": world.path("tmp")}
        names = ["empty", "old", "half", "file", "gone", "bundle", "ndk"]
        search = ["--search", ";".join(names)]
        commands = [["find", *search], ["find", *search, "--all", "--json"], ["find"]]
        for command in [*commands, *(["check", name] for name in names)]:
            with self.subTest(command):
                outcome, changed, programs = run_traced(world, *command, env=env, cwd=world.dir)
                self.assertEqual((outcome.changes, outcome.code in (0, 1)), ({}, True))
                self.assertEqual((changed, programs), (set(), {"ndk-integrate"}))


if __name__ == "__main__":
    unittest.main()

"""The collection's modules, run by Ansible on this machine with the real program."""

import os
import runpy
import shutil
import sys
import unittest

from examples import ExampleWorld
from world import AS_NOBODY, NOBODY, PROGRAM

if shutil.which("ansible-playbook") is None:
    print("skipped: there is no ansible-playbook; scripts/test-fleet makes a place that has one", file=sys.stderr)
    sys.exit(77)

from ansible_modules import FLEET, OF_ANSIBLE, Modules, documented, modules, undocumented  # noqa: E402

CC = "package/compiler"
SETUP = f"{CC}/android/x86-nox5.0.3.42/setup.mk"
R11C = "ndk/android-ndk-r11c"
PLACED = f"{R11C}/build/core/toolchains/x86-nox5.0.3.42"


class ModulesTest(unittest.TestCase):
    def setUp(self):
        self.world = self.enterContext(ExampleWorld())
        self.modules = Modules(self.world.top)

    def run_module(self, module, *options, **arguments):
        """What the module returned, which is as it documents it."""
        returned = self.modules.run(module, *options, **arguments)
        _, promised = documented(module)
        own = {name: value for name, value in returned.items() if name not in OF_ANSIBLE}
        if "ansible_facts" in promised and "ansible_facts" in returned:
            own["ansible_facts"] = returned["ansible_facts"]
        if "msg" in promised and promised["msg"]["returned"] == "failure" and "msg" in own:
            self.assertTrue(returned["failed"])
        self.assertEqual(undocumented(own, promised), [], own)
        return returned

    def integration(self, *options, **arguments):
        toml = self.world.path("installation.toml")
        return self.run_module("ndk_integration", *options, installation=toml, **arguments)

    def assert_returned(self, returned, **expected):
        found = {name: returned.get(name) for name in expected}
        self.assertEqual(found, expected, returned)


class Integration(ModulesTest):
    def assert_idle(self, *options, **arguments):
        """The module says that nothing changes, and nothing is touched."""
        before = self.world.touched(self.world.dir)
        returned = self.integration(*options, **arguments)
        self.assertEqual(self.world.touched(self.world.dir), before)
        self.assertFalse(returned["changed"], returned)
        return returned

    def assert_checks(self, **arguments):
        """Check mode says what will be done, touches nothing, and shows the differences that are
        then made. Returns what the act returned."""
        before = self.world.touched(self.world.dir)
        said = self.integration("--check", "--diff", **arguments)
        self.assertEqual(self.world.touched(self.world.dir), before)
        files = {each["before_header"] for each in said["diff"]}
        contents = [
            {each["before_header"]: each["before"] for each in said["diff"]},
            {each["after_header"]: each["after"] for each in said["diff"]},
        ]
        self.assertEqual(contents[0], self.contents(files))
        done = self.integration(**arguments)
        self.assertEqual(contents[1], self.contents(files))
        same = ("changed", "outcome", "ndk", "release", "files")
        self.assert_returned(said, **{name: done[name] for name in same})
        self.assertNotIn("diff", done)
        self.assertEqual(len(files), 4)
        return done

    def contents(self, paths):
        found = {}
        for path in paths:
            with open(path, encoding="utf-8") as file:
                found[path] = file.read()
        return found

    def test_life(self):
        world, ndk = self.world, self.world.path(R11C)
        before = world.snapshot()
        done = self.assert_checks()
        self.assert_returned(
            done, changed=True, failed=False, outcome="integrated", ndk=ndk, release="r11c", rc=0,
            msg=f"the compiler is integrated into {ndk}", problems=[], removal=None, candidates=[],
        )
        self.assertEqual({each["result"] for each in done["files"]}, {"patched"})
        self.assertEqual(done["script"]["exit_status"], 0)
        self.assert_idle()
        self.assert_idle("--check", "--diff")

        proof = self.assert_idle(state="verified")
        self.assert_returned(
            proof, failed=False, outcome="verified", ndk=ndk, release="r11c",
            msg=f"2 toolchains work in {ndk}",
        )

        # Another NDK: the compiler leaves the former one.
        other = world.path("ndk/other")
        shutil.copytree(world.path(R11C), other)
        shutil.rmtree(f"{other}/build/core/toolchains/x86-nox5.0.3.42")
        shutil.rmtree(f"{other}/build/core/toolchains/x86_64-nox5.0.3.42")
        moved = self.integration(ndk=other)
        self.assert_returned(moved, changed=True, outcome="integrated", ndk=other, failed=False)
        self.assertEqual(moved["removal"]["ndk"], ndk)
        self.assertFalse(os.path.exists(world.path(PLACED)))
        self.assert_idle(ndk=other)

        gone = self.assert_checks(state="absent")
        self.assert_returned(gone, changed=True, outcome="undone", ndk=other, release="r11c")
        again = self.assert_idle(state="absent")
        self.assert_returned(again, outcome="nothing-to-undo", ndk=None, files=[], removal=None)
        shutil.rmtree(other)
        self.assertEqual(world.snapshot(), before)

    def test_ndk_that_lost_its_definitions(self):
        self.integration()
        os.remove(self.world.path(f"{PLACED}/config.mk"))
        self.assert_returned(self.integration("--check"), changed=True)
        self.assert_returned(self.integration(), changed=True, outcome="integrated")
        self.assertTrue(os.path.exists(self.world.path(f"{PLACED}/config.mk")))
        self.assert_idle()

    def test_without_ndk_integration(self):
        for changed in (True, False):
            done = self.integration(set={"NDK_INTEGRATION_ENABLED": "no"})
            self.assert_returned(done, changed=changed, outcome="disabled", failed=False)

    def test_values_of_set(self):
        """YAML makes a true of a yes without quotes; and a $ is not the target's."""
        for value, outcome in ((True, "integrated"), (False, "disabled")):
            done = self.integration("--check", set={"NDK_INTEGRATION_ENABLED": value})
            self.assert_returned(done, outcome=outcome)
        done = self.integration(set={"NDK_DEFAULT_SEARCH_PATH_LINUX": ["/no/$HOME", "/~"]})
        self.assertEqual([each["path"] for each in done["candidates"]], ["/no/$HOME", "/~"])

    def test_ndk_with_a_slash_at_its_end(self):
        self.integration()
        for options in ([], ["--check"]):
            self.assert_idle(*options, ndk=self.world.path(R11C) + "/")

    def test_edited_template(self):
        self.integration()
        self.world.append(SETUP, "# by hand\n")
        for options in ([], ["--check"]):
            for state in ("present", "absent"):
                with self.subTest(state=state, options=options):
                    done = self.assert_idle(*options, state=state)
                    self.assert_returned(done, failed=True, outcome="failed", rc=1)
                    self.assertIn(f"{self.world.path(SETUP)} was changed by someone", done["msg"])

    def test_all_problems(self):
        os.remove(self.world.path(SETUP))
        os.remove(self.world.path(f"{CC}/android/ndk_integration.sh"))
        done = self.assert_idle()
        self.assert_returned(done, failed=True, outcome="failed")
        self.assertEqual(len(done["problems"]), 2)
        for name in (SETUP, "ndk_integration.sh"):
            self.assertIn(name, done["msg"])

    def test_nothing_to_do(self):
        no_ndk = {"set": {"NDK_DEFAULT_SEARCH_PATH_LINUX": ["/nowhere", "/neither"]}}
        not_selected = {"set": {"NDK_COMPONENT_PATTERNS": "-none-"}}
        for arguments, outcome in [(no_ndk, "no-ndk"), (not_selected, "not-selected")]:
            for optional in (False, True):
                with self.subTest(outcome=outcome, optional=optional):
                    done = self.assert_idle(optional=optional, **arguments)
                    self.assert_returned(done, failed=not optional, outcome=outcome, rc=4)
        self.assertEqual(
            [each["path"] for each in self.integration(**no_ndk)["candidates"]],
            ["/nowhere", "/neither"],
        )

    def test_nothing_to_verify(self):
        for optional in (False, True):
            done = self.assert_idle(state="verified", optional=optional)
            self.assert_returned(done, failed=not optional, outcome="not-installed", toolchains=[])

    def test_toolchain_that_does_not_work(self):
        self.integration()
        self.world.append(f"{PLACED}/setup.mk", "# by hand\n")
        done = self.assert_idle(state="verified")
        self.assert_returned(done, failed=True, outcome="failed")
        self.assertIn("x86-nox5.0.3.42: differs: ", done["msg"])

    def test_script_that_fails(self):
        self.world.write(f"{CC}/android/ndk_integration.sh", "#!/bin/sh\necho no; exit 3\n")
        done = self.integration()
        self.assert_returned(done, failed=True, changed=True, outcome="failed", rc=1)
        self.assertEqual(done["script"]["exit_status"], 3)

    def test_wrong_usage(self):
        self.world.write("installation.toml", "[session\n")
        done = self.assert_idle()
        self.assert_returned(done, failed=True, outcome="wrong-usage", rc=2)
        self.assertIn("installation.toml", done["msg"])

    def test_no_program(self):
        for program in ("no-such-program", "/no/such/program"):
            done = self.modules.run(
                "ndk_integration", installation="/any", executable=program
            )
            self.assert_returned(done, failed=True)
            self.assertIn(program, done["msg"])


class Facts(ModulesTest):
    def facts(self, *options, **arguments):
        returned = self.run_module("ndk_facts", *options, **arguments)
        self.assert_returned(returned, failed=False, changed=False)
        return returned["ansible_facts"]["ndk_integrate"]

    def test_found(self):
        search = [self.world.path("ndk/ndk-bundle"), self.world.path(R11C)]
        for options in ([], ["--check"]):
            found = self.facts(*options, search=search)
            self.assertEqual(found["ndk"], self.world.path(R11C))
            verdicts = [(each["path"], each["reason"]) for each in found["candidates"]]
            self.assertEqual(verdicts, list(zip(search, ["update-unknown", "ok"])))

    def test_none(self):
        found = self.facts(search=[self.world.path(R11C)], supported="r21+")
        self.assertEqual((found["ndk"], found["nearest"]), (None, self.world.path(R11C)))
        self.assertEqual(found["candidates"][0]["reason"], "unsupported-release")

    def test_variables_are_asked(self):
        found = self.facts(variables={"ANDROID_NDK_HOME": self.world.path(R11C)})
        self.assertEqual(found["ndk"], self.world.path(R11C))

    def test_wrong_usage(self):
        returned = self.run_module("ndk_facts", supported="r")
        self.assert_returned(returned, failed=True, outcome="wrong-usage", rc=2)
        self.assertIn("--supported", returned["msg"])

    @unittest.skipUnless(os.geteuid() == 0, "only root can become another user")
    def test_without_root(self):
        home = os.path.join(self.world.top, "home")
        os.makedirs(home)
        os.chown(home, NOBODY, NOBODY)
        os.chmod(self.world.top, 0o777)
        # One that another user may run: what is installed, or a copy.
        is_installed = PROGRAM.startswith("/usr/")
        program = PROGRAM if is_installed else self.world.copy_program("bin")
        for read_only, reason in [(False, "not-writable"), (True, "ok")]:
            found = self.facts(
                search=[self.world.path(R11C)], read_only=read_only, executable=program,
                before=AS_NOBODY,
            )
            self.assertEqual(found["candidates"][0]["reason"], reason)


class Report(unittest.TestCase):
    def test_reason(self):
        path = os.path.join(FLEET, "plugins", "callback", "report.py")
        reason = runpy.run_path(path)["reason"]
        command = {"msg": "non-zero return code", "stderr": "E: no such package", "failed": True}
        copied, lost = {"changed": True}, {"msg": "no such file", "stderr": "", "failed": True}
        for told, why in (
            (lost, "no such file"),
            (command, "E: no such package"),
            ({"msg": "One or more items failed", "results": [copied, lost, command]},
             "no such file; E: no such package"),
            ({}, "no message"),
        ):
            self.assertEqual(reason(told), why)


class Documentation(unittest.TestCase):
    def test_validation_finds_what_is_wrong(self):
        promised = {
            "one": {"description": "A.", "returned": "always", "type": "str"},
            "two": {"description": "B.", "returned": "failure", "type": "list", "elements": "int"},
        }
        for values, wrong in [
            ({"one": "", "two": [1]}, []),
            ({}, ["one: always promised, and missing"]),
            ({"one": None}, ["one: null"]),
            ({"one": 1}, ["one: a int, not a str"]),
            ({"one": "", "two": [True]}, ["two[]: a bool, not a int"]),
            ({"one": "", "three": 3}, ["three: not documented"]),
        ]:
            self.assertEqual(undocumented(values, promised), wrong)

    def test_there_are_modules(self):
        self.assertEqual(sorted(modules()), ["ndk_facts", "ndk_integration"])


if __name__ == "__main__":
    unittest.main()

"""Tests of what ndk-integrate does in an NDK on copies of examples/: `verify` and each of its reasons,
`install --verify`, and taking the compiler out of an NDK again."""

import json
import os
import shutil
import unittest

from examples import NEW_PLACE, NOX, OLD_PLACE, PATH, R10, R11, R21, ExampleTest, ExampleWorld
from world import DISABLED, PROGRAM

LEFT_ASTRAY = {
    "NDK_TOOLCHAIN": "x", "APP_ABI": "mips", "APP_BUILD_SCRIPT": "/x", "NDK_PROJECT_PATH": "/x",
    "MAKEFLAGS": "n", "MAKELEVEL": "1", "MAKEFILES": "/x", "GNUMAKEFLAGS": "-n", "V": "0",
}


class VerifiedWorld(ExampleWorld):
    """A copy of examples/ with the program at hand."""

    def program(self, command, *arguments, **environment):
        """The exit code, and standard output and error in one."""
        file = self.path("installation.toml")
        code, out, err = self.call(PROGRAM, command, file, *arguments, **environment)
        return code, out + err

    def integrated(self, *arguments):
        code, out = self.program("install", *arguments)
        assert code == 0, out
        return self

    def json(self, command, *arguments, **environment):
        """The exit code, and the JSON object."""
        code, out = self.program(command, "--json", *arguments, **environment)
        return code, json.loads(out[out.index("{"):out.rindex("}") + 1])

    def results(self, *arguments, **environment):
        """What verify finds, by toolchain, and its exit code."""
        code, found = self.json("verify", *arguments, **environment)
        return code, {one["name"]: one["result"] for one in found["toolchains"]}

    def put(self, name, text):
        """Gives the first definition another file, in the package and in the NDK."""
        for file in self.definition(file=name), self.installed(file=name):
            self.write(file, text)

    def add_setup(self, text):
        self.put("setup.mk", self.text(self.definition()) + text)


class VerifyTest(ExampleTest):
    make_world = VerifiedWorld

    def installed(self, *arguments):
        return self.example().integrated(*arguments)


class Reasons(VerifyTest):
    """In each example one thing is wrong, and only that."""

    def assert_reason(self, example, reason, message, also=None, ndk=None):
        """The reason for the first toolchain, with part of its message; `also` is the other's."""
        arguments = ["--ndk", example.ndk(ndk)] if ndk else []
        code, found = example.json("verify", *arguments)
        results = {one["name"]: one["result"] for one in found["toolchains"]}
        self.assertEqual((code, results), (1, {NOX[0]: reason, NOX[1]: also or "works"}), found)
        self.assertIn(message, found["toolchains"][0]["message"])

    def test_not_placed(self):
        example = self.installed()
        shutil.move(f"{example.place()}/{NOX[0]}", example.place(place=OLD_PLACE))
        self.assert_reason(
            example, "not-placed",
            f"there is no WORLD/ndk/{R11}/{NEW_PLACE}/{NOX[0]}, where this NDK would read the "
            f"definition; it is in WORLD/ndk/{R11}/{OLD_PLACE}/{NOX[0]}, which this NDK does not read",
        )

    def test_not_placed_in_an_old_ndk(self):
        example = self.installed()
        example.integrate(R10)
        shutil.copytree(f"{example.place(R10)}/{NOX[0]}", f"{example.place(R10, NEW_PLACE)}/{NOX[0]}")
        shutil.rmtree(f"{example.place(R10)}/{NOX[0]}")
        self.assert_reason(
            example, "not-placed", f"it is in WORLD/ndk/{R10}/{NEW_PLACE}/{NOX[0]}", ndk=R10
        )

    def test_no_config(self):
        example = self.installed()
        os.remove(example.installed(file="config.mk"))
        self.assert_reason(example, "no-config", "has no config.mk, without which this NDK does not")

    def test_no_config_in_the_package_either(self):
        example = self.installed()
        for file in example.installed(file="config.mk"), example.definition(file="config.mk"):
            os.remove(file)
        self.assert_reason(example, "no-config", "; the package has none either: WORLD/package/")

    def test_no_abis(self):
        example = self.installed()
        example.put("config.mk", "TOOLCHAIN_ARCH := x86_64\n# TOOLCHAIN_ABIS := x86_64\n")
        self.assert_reason(
            example, "no-config", "does not set both TOOLCHAIN_ARCH and TOOLCHAIN_ABIS",
            also="build-failed",  # because no build with this NDK works
        )

    def test_no_setup(self):
        example = self.installed()
        os.remove(example.installed())
        self.assert_reason(
            example, "no-setup", "which breaks every build with this NDK", also="build-failed"
        )

    def test_differs(self):
        for file in "setup.mk", "config.mk":
            with self.subTest(file):
                example = self.installed()
                example.append(example.installed(file=file), "# mine\n")
                self.assert_reason(example, "differs", f"/{file} is not what the package has in ")

    def test_takes_over_default(self):
        for ndk, also in [(R11, True), (R10, True), (R21, False)]:
            with self.subTest(ndk):
                example = self.installed()
                example.integrate(ndk)
                own = "x86_64-clang" if ndk == R21 else "x86_64-4.9"
                os.rename(f"{example.place(ndk)}/{own}", f"{example.place(ndk)}/x86_64-zz-clang")
                if also:
                    self.assert_reason(
                        example, "takes-over-default",
                        f"{NOX[0]} sorts before x86_64-zz-clang, so this NDK takes it as "
                        "everybody's default for x86_64",
                        ndk=ndk,
                    )
                else:
                    self.assertEqual(example.results("--ndk", example.ndk(ndk))[0], 0)

    def test_build_failed(self):
        example = self.installed()
        example.add_setup("$(foreach n,1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21,"
                          "$(info line $(n).))\n$(error no licence)\n")
        self.assert_reason(
            example, "build-failed",
            "ndk-build did not build a C module for x86_64: exit status 2\nline 3.\nline 4.\n",
        )

    def test_build_failed_for_cxx_alone(self):
        example = self.installed()
        example.add_setup("TARGET_CXX := false\nTARGET_STRIP := true\n")
        self.assert_reason(example, "build-failed", "ndk-build did not build a C")

    def test_build_leaves_no_library(self):
        example = self.installed()
        example.add_setup("TARGET_STRIP := rm\n")
        example.write(example.top + "/bin/rm", '#!/bin/sh\nshift\nexec /bin/rm "$@"\n')
        code, found = example.json("verify", PATH=f"{example.top}/bin:{PATH}")
        self.assertEqual(code, 1)
        self.assertIn("a C module for x86_64: it left no /", found["toolchains"][0]["message"])

    def test_other_compiler(self):
        message = "ndk-build built a C module for x86_64, but with another compiler: no command names"
        for compiler in ["cc", f"{NOX[0]}", "beside"]:
            with self.subTest(compiler):
                example = self.installed()
                if compiler == "beside":  # a directory whose name begins alike
                    shutil.copytree(example.linux, example.linux + ".old")
                    setup = example.text(example.definition()).replace("/linux\n", "/linux.old\n")
                    example.put("setup.mk", setup)
                else:
                    own = f"$(NDK_ROOT)/{OLD_PLACE}/x86_64-4.9/prebuilt/linux-x86_64/bin"
                    gcc = own + "/x86_64-linux-android-gcc"
                    compilers = f"TARGET_CC := {gcc}\nTARGET_CXX := {gcc}\n"
                    example.add_setup(compilers + "TARGET_STRIP := :\n")
                self.assert_reason(example, "other-compiler", message)


class Works(VerifyTest):
    def assert_works(self, example, *arguments, **environment):
        self.assertEqual(
            example.results(*arguments, **environment), (0, dict.fromkeys(NOX, "works"))
        )

    def test_for_people(self):
        example = self.installed()
        code, out = example.program("verify")
        self.assertEqual(code, 0)
        lines = [line.partition(" (")[0] for line in out.splitlines()]
        self.assertEqual(sorted(lines), sorted([
            f"NDK: WORLD/ndk/{R11}",
            "release: r11c",
            *(f"{name}: building a {language} module for {name.split('-')[0]}"
              for name in NOX for language in ["C", "C++"]),
            *(f"{name}: works: C and C++ modules were built with it for {name.split('-')[0]}"
              for name in NOX),
            f"done: 2 toolchains work in WORLD/ndk/{R11}",
        ]))

    def test_json(self):
        example = self.installed()
        code, found = example.json("verify", "--no-build")
        place = f"WORLD/ndk/{R11}/{NEW_PLACE}"
        self.assertEqual((code, found), (0, {
            "schema": 1,
            "ndk": f"WORLD/ndk/{R11}",
            "release": "r11c",
            "toolchains": [
                {"name": name, "arch": name.split("-")[0], "abis": [name.split("-")[0]],
                 "result": "placed", "message": f"both files are in {place}/{name}", "seconds": 0}
                for name in NOX
            ],
        }))

    def test_in_each_sample(self):
        example = self.filled()
        for ndk, release in [(R10, "r10e"), (R11, "r11c"), (R21, "r21e"), ("ndk-bundle", None)]:
            with self.subTest(ndk):
                before = example.snapshot(example.ndk(ndk))
                example.integrate(ndk)
                integrated = example.snapshot(example.ndk(ndk))
                self.assert_works(example, "--ndk", example.ndk(ndk))
                self.assertEqual(example.json("verify", "--ndk", example.ndk(ndk))[1]["release"], release)
                self.assertEqual(example.snapshot(example.ndk(ndk)), integrated)
                example.remove(ndk)
                self.assertEqual(example.snapshot(example.ndk(ndk)), before)

    def test_compiler_in_an_odd_directory(self):
        example = self.example()
        example.replace("installation.toml", '"/compiler"', '"/it\'s a $(odd) # one"')
        os.rename(example.path("package/compiler"), example.path("package/it's a $(odd) # one"))
        self.assert_works(example.integrated())

    def test_package_reached_through_a_link(self):
        example = self.example()
        os.rename(example.path("package"), example.path("real"))
        os.symlink("real", example.path("package"))
        self.assert_works(example.integrated())

    def test_compiler_found_in_path(self):
        example = self.installed()
        example.add_setup("TARGET_CC := noxcc\nTARGET_CXX := noxc++\n")
        self.assert_works(example, PATH=f"{example.linux}/bin:{PATH}")

    def test_environment_that_would_lead_astray(self):
        self.assert_works(self.installed(), **LEFT_ASTRAY)

    def test_temporary_directory_with_a_blank(self):
        example = self.installed()
        os.mkdir(example.top + "/a blank")
        self.assert_works(example, TMPDIR=example.top + "/a blank")

    def test_keep(self):
        example = self.installed()
        self.assert_works(example, "--keep", "kept")
        for name in NOX:
            for language in "c", "cpp":
                abi = name.split("-")[0]
                project = f"{example.top}/kept/{name}/{abi}/{language}"
                self.assertTrue(os.path.isfile(f"{project}/libs/{abi}/libproof.so"))
                self.assertIn(b"/bin'/noxc", example.bytes(project + "/build.log"))
        self.assertEqual(example.program("verify", "--keep", "kept")[0], 2)
        self.assertEqual(example.program("verify", "--keep", "a blank")[0], 2)

    def test_nothing_installed(self):
        example = self.example()
        empty = {"schema": 1, "ndk": None, "release": None, "toolchains": []}
        self.assertEqual(example.json("verify"), (4, empty))
        self.assertEqual(example.program("verify", "--ndk", example.ndk())[0], 4)
        example.integrated(DISABLED)
        self.assertEqual(example.json("verify"), (4, empty))
        self.assertEqual(example.results("--ndk", example.ndk()), (1, dict.fromkeys(NOX, "not-placed")))

    def test_not_an_ndk(self):
        example = self.installed()
        for dir, message in [
            ("none", "there is no directory TOP/none"),
            (example.path("package"), "WORLD/package is not an NDK directory: it has no ndk-build"),
        ]:
            code, out = example.program("verify", "--ndk", dir)
            self.assertEqual((code, out), (1, f"ndk-integrate: not done: {message}\n"))

    def test_installed_by_another_installer(self):
        example = self.filled()
        example.integrate()
        self.assert_works(example)


class InstallVerify(VerifyTest):
    def test_works(self):
        code, report = self.example().json("install", "--verify")
        self.assertEqual((code, report["outcome"]), (0, "integrated"))
        self.assertEqual([one["result"] for one in report["verify"]["toolchains"]], ["works"] * 2)

    def test_fails(self):
        example = self.example()
        script = example.android + "/ndk_integration.sh"
        example.replace(script, "find_place ||", "place=$ndk/toolchains ||")
        code, out = example.program("install", "--verify")
        self.assertEqual(code, 1)
        self.assertIn(
            "not done: the compiler is integrated, but 2 of 2 toolchains do not work in WORLD/ndk/"
            f"{R11}; to take it back: ndk-integrate undo WORLD/installation.toml\n", out
        )
        code, report = example.json("install", "--verify")
        self.assertEqual((code, report["outcome"]), (1, "failed"))
        self.assertEqual([one["result"] for one in report["verify"]["toolchains"]], ["not-placed"] * 2)
        self.assertEqual(example.json("install")[1]["verify"], None)

    def test_nothing_to_verify(self):
        code, report = self.example().json("install", "--verify", DISABLED)
        self.assertEqual((code, report["outcome"], report["verify"]), (0, "disabled", None))

    def test_no_dry_run(self):
        self.assertEqual(self.example().program("install", "--verify", "--dry-run")[0], 2)


class TakingBack(VerifyTest):
    def second_ndk(self, example):
        shutil.copytree(example.ndk(), example.ndk("second"))
        return "--ndk=" + example.ndk("second")

    def test_whole_story(self):
        example = self.example()
        second = self.second_ndk(example)
        before = example.snapshot()
        example.integrated("--verify")
        self.assertEqual(example.build(R11, f"NDK_TOOLCHAIN={NOX[0]}")[0], 0)
        self.assertEqual(example.libraries(), ["x86_64: ELF 62"])
        example.integrated(second, "--verify")
        self.assertEqual(example.results("--ndk", example.ndk())[1], dict.fromkeys(NOX, "not-placed"))
        self.assertEqual(example.results(), (0, dict.fromkeys(NOX, "works")))
        self.assertEqual(example.program("undo")[0], 0)
        self.assertEqual(example.snapshot(), before)

    def test_which_ndk_is_taken_back(self):
        """After the act: whether the first NDK is as it was."""
        for what, act, is_as_before in [
            ("undo", ["undo"], True),
            ("undo --keep-ndk", ["undo", "--keep-ndk"], False),
            ("undo --dry-run", ["undo", "--dry-run"], False),
            ("another NDK", ["install", "second"], True),
            ("another NDK --keep-ndk", ["install", "second", "--keep-ndk"], False),
            ("another NDK --dry-run", ["install", "second", "--dry-run"], False),
            ("the same NDK", ["install"], False),
            ("the same NDK by another name", ["install", "link"], False),
            ("disabled", ["install", DISABLED], True),
        ]:
            with self.subTest(what):
                example = self.example()
                second = self.second_ndk(example)
                before = example.snapshot(example.ndk())
                example.integrated()
                os.symlink(R11, example.ndk("link"))
                names = {"second": second, "link": "--ndk=" + example.ndk("link")}
                code, out = example.program(*[names.get(one, one) for one in act])
                self.assertEqual(code, 0, out)
                self.assertEqual(example.snapshot(example.ndk()) == before, is_as_before, out)

    def test_report(self):
        example = self.installed()
        code, out = example.program("undo")
        self.assertEqual(code, 0)
        self.assertEqual(
            out.splitlines()[:2],
            [f'script: ./ndk_removal.sh "WORLD/ndk/{R11}"',
             f"script printed: removed WORLD/ndk/{R11}/{NEW_PLACE}/{NOX[0]}/config.mk"],
        )
        self.assertEqual(
            out.splitlines()[-1],
            "done: the compiler's files are put back, and its definitions are taken out of "
            f"WORLD/ndk/{R11}",
        )

    def test_no_removal_script(self):
        example = self.installed()
        os.remove(example.android + "/ndk_removal.sh")
        stays = ("the compiler package has no ndk_removal.sh, so what its integration script put into "
                 "the NDK stays: " + ", ".join(f"WORLD/ndk/{R11}/{NEW_PLACE}/{name}" for name in NOX))
        code, out = example.program("install", self.second_ndk(example))
        self.assertEqual(code, 0)
        self.assertIn(f"ndk-integrate: warning: {stays}\n", out)
        example.program("install")
        code, out = example.program("undo")
        self.assertEqual((code, out.splitlines()[-1]),
                         (0, f"done: the compiler's files are put back; {stays}"))

    def test_ndk_that_is_gone(self):
        for command in "undo", "install":
            with self.subTest(command):
                example = self.installed()
                os.rename(example.ndk(), example.ndk("gone"))
                arguments = ["--ndk=" + example.ndk("gone")] if command == "install" else []
                code, out = example.program(command, *arguments)
                self.assertEqual(code, 0)
                self.assertIn(f"ndk-integrate: warning: the NDK WORLD/ndk/{R11} is gone, so", out)

    @unittest.skipIf(os.geteuid() == 0 and not shutil.which("setpriv"), "needs setpriv")
    def test_ndk_that_may_not_be_written(self):
        example = self.installed()
        before = example.snapshot(example.ndk())
        example.chmod(example.place(), 0o555)
        outcome = example.undo(unprivileged=True)
        example.chmod(example.place(), 0o755)
        self.assertEqual(outcome.code, 0, outcome)
        warning = f"warning: you may not write in WORLD/ndk/{R11}/{NEW_PLACE}, so what"
        self.assertIn(warning, outcome.err)
        self.assertIn("{INSTALL_NOX_VERSION}", example.text(example.definition()))
        self.assertEqual(example.snapshot(example.ndk()), before)

    def test_removal_script_that_fails(self):
        example = self.installed()
        second = self.second_ndk(example)
        example.write(example.android + "/ndk_removal.sh", "#!/bin/sh\necho no\nexit 3\n")
        before = example.tree(kept=False)
        code, out = example.program("install", second)
        self.assertEqual((code, example.tree(kept=False)), (1, before))
        # What the script did before it failed cannot be known.
        self.assertIn("did not come to its end", example.program("status")[1])
        failed = f'the removal script failed with exit status 3: ./ndk_removal.sh "WORLD/ndk/{R11}"'
        self.assertIn(f"not done: the compiler is still integrated into WORLD/ndk/{R11}: {failed}; "
                      "--keep-ndk leaves that NDK alone\n", out)
        code, report = example.json("undo")
        self.assertEqual((code, report["outcome"], report["removal"]["script"]["exit_status"]),
                         (1, "failed", 3))
        self.assertEqual(report["message"], "the compiler's files are put back, but " + failed)
        self.assertIn("{INSTALL_NOX_VERSION}", example.text(example.definition()))

    def test_removal_script_that_cannot_run(self):
        example = self.installed()
        os.chmod(example.android + "/ndk_removal.sh", 0o644)
        before = example.snapshot()
        code, out = example.program("undo")
        self.assertEqual((code, example.snapshot()), (1, before))
        self.assertIn("ndk_removal.sh is not executable; make it so, or leave the NDK alone", out)
        self.assertEqual(example.program("undo", "--keep-ndk")[0], 0)


if __name__ == "__main__":
    unittest.main()

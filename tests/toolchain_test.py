"""Tests that the sample compiler builds in the sample NDKs: where each of them reads a toolchain
definition, what it refuses, and what the package's two scripts put there and take away."""

import glob
import itertools
import os
import shutil
import subprocess
import sys
import unittest

from examples import (
    NEW_PLACE, NOX, OLD_PLACE, PATH, PLACES, R10, R11, R21, ExampleTest, ExampleWorld,
    installed_lines,
)


class SampleNdk(ExampleTest):
    def test_the_model_is_the_same_in_each(self):
        world = self.example()
        for file in [
            "ndk-build",
            *(f"build/core/{name}.mk" for name in
              ["build-local", "build-shared-library", "clear-vars", "setup-abi"]),
        ]:
            texts = {world.bytes(f"{world.ndk(ndk)}/{file}") for ndk in PLACES}
            self.assertEqual(len(texts), 1, file)

    def test_builds_with_the_sample_compiler(self):
        x86_64, x86 = "x86_64: ELF 62", "x86: ELF 3"
        example = self.filled()
        for ndk in PLACES:
            self.assertEqual(example.integrate(ndk), (0, installed_lines(ndk), ""))
            for name, library in zip(NOX, [x86_64, x86]):
                with self.subTest(ndk=ndk, toolchain=name):
                    code, out = example.build(ndk, f"NDK_TOOLCHAIN={name}", "V=1")
                    self.assertEqual((code, example.libraries()), (0, [library]), out)
                    bin_quoted = "'WORLD/package/compiler/compilers_and_libraries_2005.3.42/linux/bin'"
                    target = f"-target {name.split('-')[0].replace('x86', 'i686', name == NOX[1])}-none-"
                    self.assertEqual(out.count(bin_quoted + "/noxcc "), 1, out)
                    self.assertEqual(out.count(bin_quoted + "/noxc++ "), 2, out)
                    self.assertEqual(out.count(target), 3 if ndk == R21 else 0, out)

    def test_everybodys_default_stays(self):
        example = self.filled()
        for ndk in PLACES:
            example.integrate(ndk)
            with self.subTest(ndk):
                code, out = example.build(ndk, "V=1")
                self.assertEqual((code, example.libraries()), (0, ["x86: empty", "x86_64: empty"]), out)
                self.assertNotIn("nox", out)

    def test_backend(self):
        example = self.filled()
        example.integrate()
        backend = example.top + "/backend"
        example.write(backend, '#!/bin/sh\necho "backend" "$@" >&2\nexec cc "$@"\n')
        code, out = example.build(R11, f"NDK_TOOLCHAIN={NOX[0]}", NOX_BACKEND=backend)
        self.assertEqual((code, out.count("backend ")), (0, 3), out)

    def test_compiler_in_an_odd_directory(self):
        example = self.example()
        os.rename(example.path("package"), example.path("it's $an $(odd) # package"))
        example.android = example.android.replace("/package/", "/it's $an $(odd) # package/")
        example.linux = example.linux.replace("/package/", "/it's $an $(odd) # package/")
        example.fill_in().integrate()
        code, out = example.build(R11, f"NDK_TOOLCHAIN={NOX[0]}")
        self.assertEqual((code, example.libraries()), (0, ["x86_64: ELF 62"]), out)

    def test_refusals(self):
        def in_a_blank(example):
            os.rename(example.ndk(), example.ndk() + " with a blank")
            return R11 + " with a blank"

        def without(file):
            return lambda example: os.remove(f"{example.place()}/{NOX[0]}/{file}")

        def in_the_old_place(example):
            shutil.move(f"{example.place()}/{NOX[0]}", example.place(place=OLD_PLACE))

        mine = f"NDK_TOOLCHAIN={NOX[0]}"
        unsupported = f"NDK_TOOLCHAIN is defined to the unsupported value {NOX[0]}"
        for what, arrange, variables, status, message in [
            ("as it is", None, [mine, "APP_ABI=x86_64"], 0, ""),
            ("no such toolchain", None, ["NDK_TOOLCHAIN=x"], 2, "the unsupported value x\n"),
            ("other place", in_the_old_place, [mine], 2, unsupported),
            ("setup.mk alone", without("config.mk"), [mine], 2, unsupported),
            ("config.mk alone", without("setup.mk"), [], 2, f"Toolchain {NOX[0]} lacks a setup.mk"),
            ("other ABI", None, [mine, "APP_ABI=x86"], 2,
             f"The selected toolchain ({NOX[0]}) does not support the x86 ABI"),
            ("blank", in_a_blank, [mine], 1, "Android NDK: this NDK cannot build from a directory"),
        ]:
            with self.subTest(what):
                example = self.filled()
                example.integrate()
                ndk = arrange and arrange(example) or R11
                code, out = example.build(ndk, *variables)
                self.assertEqual(code, status, out)
                self.assertIn(message, out)
                self.assertEqual("Android NDK: " in out, status != 0)

    def test_default_of_an_old_one_is_the_first_name(self):
        example = self.filled()
        example.integrate()
        example.integrate(R21)
        for ndk, name in [(R11, "x86_64-4.9"), (R21, "x86_64-clang")]:
            os.rename(f"{example.place(ndk)}/{name}", f"{example.place(ndk)}/x86_64-zz-clang")
            code, out = example.build(ndk, "APP_ABI=x86_64", "V=1")
            self.assertEqual((code, "/noxcc" in out), (0, ndk == R11), out)

    def test_abi_in_the_environment_does_not_count(self):
        example = self.example()
        self.assertEqual(example.build(R11, APP_ABI="mips")[0], 0)
        self.assertEqual(example.build(R11, "APP_ABI=mips")[0], 2)


class Scripts(ExampleTest):
    def test_removal_leaves_the_ndk_as_it_was(self):
        for ndk in PLACES:
            with self.subTest(ndk):
                example = self.filled()
                before = example.snapshot(example.ndk(ndk))
                example.integrate(ndk)
                self.assertNotEqual(example.snapshot(example.ndk(ndk)), before)
                place = f"WORLD/ndk/{ndk}/{PLACES[ndk]}"
                out = "".join(
                    f"removed {place}/{name}/{file}\n"
                    for name in NOX for file in ["config.mk", "setup.mk"]
                )
                self.assertEqual(example.remove(ndk), (0, out, ""))
                self.assertEqual(example.snapshot(example.ndk(ndk)), before)
                self.assertEqual(example.remove(ndk), (0, "", ""))

    def test_removal_leaves_what_was_changed(self):
        for file, stay in [
            ("config.mk", ["config.mk", "setup.mk"]),  # without its setup.mk it would break builds
            ("setup.mk", ["setup.mk"]),
            ("notes", ["notes"]),
        ]:
            with self.subTest(file):
                example = self.filled()
                example.integrate()
                example.append(example.installed(file=file), "# mine\n")
                code, *told = example.remove()
                self.assertEqual((code, "left " in "".join(told)), (0, file != "notes"), told)
                self.assertEqual(sorted(os.listdir(f"{example.place()}/{NOX[0]}")), stay)
                self.assertFalse(os.path.exists(f"{example.place()}/{NOX[1]}"))
                self.assertEqual(example.build()[0], 0)

    def test_removal_refuses(self):
        usage = "usage: ndk_removal.sh NDK_DIR"
        example = self.example()
        for arguments, message in [
            ([], usage),
            (["ndk", "--force"], usage),
            ([""], f"the NDK directory is empty; {usage}"),
            (["-x"], f"unknown option '-x' ('./-x' names a directory); {usage}"),
            (["no/ndk"], "'no/ndk' is not a directory; give the top directory of an Android NDK"),
        ]:
            self.assertEqual(
                example.call("./ndk_removal.sh", *arguments, cwd=example.android),
                (1, "", f"ndk_removal.sh: {message}\n"),
            )

    def test_removal_cannot_compare_with_a_template(self):
        example = self.filled()
        example.integrate()
        template = self.example().definition(NOX[1])
        shutil.copy(template, example.definition(NOX[1]))
        code, _, err = example.remove()
        self.assertEqual(code, 1)
        self.assertIn("holds placeholders, so what was put into", err)
        self.assertEqual(example.build()[0], 0)

    def test_refuses_a_name_that_would_become_the_default(self):
        for ndk, own, refused in [
            (R10, "x86_64-4.9", True), (R11, "x86_64-4.9", True), (R21, "x86_64-clang", False)
        ]:
            with self.subTest(ndk):
                example = self.filled()
                place = example.place(ndk)
                os.rename(f"{place}/{own}", f"{place}/x86_64-zz-clang")
                before = example.snapshot(example.ndk(ndk))
                code, _, err = example.integrate(ndk, "--force")
                self.assertEqual((code, example.snapshot(example.ndk(ndk)) == before), (refused, refused))
                self.assertEqual(
                    f"'{NOX[0]}' sorts before 'x86_64-zz-clang', so this NDK would take it as "
                    "everybody's default for x86_64" in err,
                    refused,
                )

    def test_definitions_put_into_the_wrong_place_do_not_mislead(self):
        example = self.filled()
        for name in NOX:
            shutil.copytree(f"{example.android}/{name}", example.place(R10, NEW_PLACE) + "/" + name)
        example.integrate(R10)
        self.assertEqual(example.build(R10, f"NDK_TOOLCHAIN={NOX[0]}")[0], 0)


# Runs the command that it is called as, and kills it and everything of its process group with it at
# one of its calls, if this is the command to kill.
SHIM = """\
#!/bin/sh
echo >>"$COUNT"
[ "$(wc -l <"$COUNT")" -eq "$VICTIM" ] || exec REAL "$@"
strace -qq -o "$COUNT.log" -e inject=CALLS:signal=KILL:when=$CALL REAL "$@"
grep -q 'killed by SIGKILL' "$COUNT.log" || : >"$COUNT.survived"
kill -KILL 0
"""
CALLS = "rename,renameat,renameat2,unlink,unlinkat,rmdir,mkdir,mkdirat,write,copy_file_range,fchmod"


class Killed(ExampleTest):
    """Kills a script at every call of every command that changes something in the NDK."""

    def shims(self, example):
        available = subprocess.run(
            ["strace", "-qq", "-e", "inject=write:signal=KILL:when=1", "true"],
            capture_output=True, check=False,
        )
        if available.returncode != 0:
            raise RuntimeError(f"strace cannot kill here: {available.stderr.decode()}")
        calls = ",".join("?" + call for call in CALLS.split(","))
        for command in "mkdir", "cp", "mv", "rm", "rmdir":
            text = SHIM.replace("REAL", shutil.which(command, path=PATH))
            example.write(f"{example.top}/shims/{command}", text.replace("CALLS", calls))
        return f"{example.top}/shims:{PATH}"

    def sweep(self, before, script):
        """Kills `script` everywhere. Afterwards the NDK builds, and the script ends well."""
        example = self.filled()
        before(example)
        fresh = example.top + "/fresh"
        shutil.copytree(example.ndk(), fresh)
        self.assertEqual(script(example)[0], 0)
        wanted = example.snapshot(example.ndk())
        path = self.shims(example)
        kills = 0
        for victim in itertools.count(1):
            for call in itertools.count(1):
                shutil.rmtree(example.ndk())
                shutil.copytree(fresh, example.ndk())
                for file in glob.glob(example.top + "/count*"):
                    os.remove(file)
                where = {"COUNT": example.top + "/count", "VICTIM": str(victim), "CALL": str(call)}
                if script(example, PATH=path, **where, before=["setsid", "--wait"])[0] == 0:
                    print(f"{kills} kills", file=sys.stderr)
                    self.assertGreater(kills, 10)
                    return
                kills += 1
                code, out = example.build(R11, "-n")
                self.assertEqual(code, 0, f"killed command {victim} at its call {call}\n{out}")
                self.assertEqual(script(example)[0], 0)
                self.assertEqual(example.snapshot(example.ndk()), wanted)
                if os.path.exists(example.top + "/count.survived"):
                    break  # it made fewer calls

    @staticmethod
    def script(name):
        def run(example, before=(), **environment):
            return example.call(
                *before, "sh", name, example.ndk(), *(["--force"] if "integ" in name else []),
                cwd=example.android, **environment,
            )
        return run

    def test_first_integration(self):
        self.sweep(lambda example: None, self.script("./ndk_integration.sh"))

    def test_integration_over_another(self):
        def another(example):
            example.integrate()
            for file in "setup.mk", "config.mk":
                example.append(example.installed(file=file), "# older\n")

        self.sweep(another, self.script("./ndk_integration.sh"))

    def test_removal(self):
        self.sweep(ExampleWorld.integrate, self.script("./ndk_removal.sh"))


if __name__ == "__main__":
    unittest.main()

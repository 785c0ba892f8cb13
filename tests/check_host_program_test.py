"""End-to-end tests of `ndk-integrate check-host --program`."""

import json
import os
import random
import subprocess
import tempfile
import unittest

PROGRAM = os.environ["NDK_INTEGRATE"]
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HOST = os.path.join(ROOT, "examples/minimal_host/main.cpp")
PLUGIN = os.path.join(os.path.dirname(PROGRAM), "libndk_utils.so.1n")
FUNCTIONS = 21
WITHOUT_STRINGS = 7  # whose names are the same with every string layout


def content_of(file):
    with open(file, "rb") as opened:
        return opened.read()


def check(program, *arguments):
    done = subprocess.run(
        [PROGRAM, "check-host", "--program", program, *arguments],
        capture_output=True,
        text=True,
        check=False,
        timeout=60,
    )
    return done.returncode, done.stdout, done.stderr


# A sanitizer's runtime ends the host before the loader says anything.
SANITIZED = b"__asan_init" in content_of(PLUGIN)


def has_libcxx():
    """Not every machine that runs this has clang++ and its library."""
    command = ["clang++", "-stdlib=libc++", "-x", "c++", "-", "-o", "/dev/null"]
    try:
        done = subprocess.run(command, input=b"int main() {}", capture_output=True, check=False)
    except FileNotFoundError:
        return False
    return done.returncode == 0


class CheckHostProgram(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)

    def path(self, name):
        return os.path.join(self.directory.name, name)

    def build(self, *options, name="host", source=None, compiler="g++"):
        """The minimal host, or `source`, built with these options."""
        source = content_of(HOST).decode() if source is None else source
        subprocess.run(
            [compiler, "-std=c++17", "-I", ROOT, "-x", "c++", "-", "-x", "none"]
            + ["-o", self.path(name), *options],
            input=source,
            text=True,
            check=True,
        )
        return self.path(name)

    def states(self, program):
        """The exit code, and how many functions are in which state."""
        code, out, err = check(program, "--json")
        self.assertEqual(err, "")
        told = json.loads(out)
        self.assertEqual(told["loads"], code == 0)
        states = {}
        for function in told["functions"]:
            states[function["status"]] = states.get(function["status"], 0) + 1
        return code, states

    def loader_says(self, program):
        """What the host prints when it loads the plug-in, after the plug-in's name."""
        done = subprocess.run(
            [program, PLUGIN, self.path("none")], capture_output=True, text=True, check=False
        )
        return done.stderr.strip().split(f"{PLUGIN}: ")[-1]

    def test_states(self):
        old = "-D_GLIBCXX_USE_CXX11_ABI=0"
        some = {"exported": WITHOUT_STRINGS}
        rest = FUNCTIONS - WITHOUT_STRINGS
        for options, compiler, states in [
            (["-rdynamic"], "g++", {"exported": FUNCTIONS}),
            (["-rdynamic", "-s", "-no-pie"], "g++", {"exported": FUNCTIONS}),
            ([], "g++", {"not-exported": FUNCTIONS}),
            (["-s"], "g++", {"missing-or-not-exported": FUNCTIONS}),
            (["-rdynamic", "-fvisibility=hidden"], "g++", {"hidden": FUNCTIONS}),
            (["-rdynamic", old], "g++", {**some, "old-string-layout": rest}),
            (["-rdynamic", "-s", old], "g++", {**some, "old-string-layout": rest}),
            (["-rdynamic", "-stdlib=libc++"], "clang++", {**some, "libcxx": rest}),
        ]:
            with self.subTest(options=options):
                if compiler == "clang++" and not has_libcxx():
                    self.skipTest("there is no clang++ with libc++")
                program = self.build(*options, compiler=compiler)
                self.assertEqual(
                    self.states(program), (0 if states == {"exported": FUNCTIONS} else 1, states)
                )
                if SANITIZED:
                    continue
                _, out, _ = check(program, "-q")
                says = self.loader_says(program)
                if "undefined symbol" in says:
                    self.assertEqual(out, f"the plug-in will not load; dlopen: {says}\n")
                else:
                    self.assertEqual(out, "the plug-in will load\n")

    def test_one_function(self):
        text = content_of(HOST).decode()
        for before, after, state in [
            ("int strtoint(const std::string& text)", "int strtoint_(const std::string& text)", "missing"),
            ("int strtoint(const std::string& text)", "int strtoint(std::string text)", "other-parameters"),
        ]:
            with self.subTest(state=state):
                source = text.replace('#include "host/host.h"', '#include "host/host.h"\n' + after + ";")
                program = self.build("-rdynamic", source=source.replace(before, after))
                self.assertEqual(self.states(program), (1, {"exported": FUNCTIONS - 1, state: 1}))
                _, out, _ = check(program)
                symbol = "_Z8strtointRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
                lines = [line for line in out.splitlines() if line.startswith("strtoint(")]
                self.assertEqual(len(lines), 1)
                self.assertIn(f"; dlopen: undefined symbol: {symbol}", lines[0])
                if not SANITIZED:
                    self.assertEqual(self.loader_says(program), f"undefined symbol: {symbol}")

    def test_services_in_a_library(self):
        self.build("-shared", "-fPIC", "-Dmain=host_main", name="libservices.so")
        source = "int host_main(int, char**); int main(int c, char** v) { return host_main(c, v); }"
        program = self.build(
            "-L", self.directory.name, "-lservices", "-Wl,-rpath,$ORIGIN", source=source
        )
        self.assertEqual(self.states(program), (0, {"exported": FUNCTIONS}))
        os.remove(self.path("libservices.so"))
        code, out, _ = check(program)
        self.assertEqual(code, 1)
        self.assertIn("not looked at: the program's library libservices.so", out)

    def test_static_program(self):
        code, out, _ = check(self.build("-static", source="int main() {}"))
        self.assertEqual(code, 1)
        self.assertIn("the program is linked statically", out)

    def test_another_machine(self):
        program = self.build("-rdynamic")
        with open(program, "r+b") as file:
            file.seek(18)  # e_machine
            file.write(b"\xb7\x00")
        code, out, _ = check(program)
        self.assertEqual(code, 1)
        self.assertIn("the program is for aarch64, the plug-in ", out)

    def test_no_program(self):
        good = content_of(self.build("-rdynamic"))
        for content, why in [
            (b"", "not an ELF program"),
            (b"#!/bin/sh\n", "not an ELF program"),
            (b"\x7fELF", "not an ELF program"),
            (good[: len(good) // 2], "a damaged ELF file, or one that is cut short"),
            (good[:100], "a damaged ELF file, or one that is cut short"),
        ]:
            file = self.path("file")
            with open(file, "wb") as out:
                out.write(content)
            with self.subTest(why=why, size=len(content)):
                self.assertEqual(check(file), (2, "", f"ndk-integrate: {file}: {why}\n"))
        for file, why in [
            ("/none", "cannot be read: no such file or directory"),
            ("/", "not a file"),
            ("", "cannot be read: no such file or directory"),
        ]:
            self.assertEqual(check(file), (2, "", f"ndk-integrate: {file}: {why}\n"))

    def test_wrong_plugin(self):
        code, out, err = check(self.build("-rdynamic"), "--plugin", HOST)
        self.assertEqual((code, out), (3, ""))
        self.assertEqual(
            err, f"ndk-integrate: cannot read the plug-in {HOST}: not an ELF program\n"
        )

    def test_damaged_files(self):
        """A damaged file is told or refused, never the end of the program."""
        good = content_of(self.build("-rdynamic", "-s"))
        seed = int(os.environ.get("SEED", random.randrange(1 << 30)))
        rng = random.Random(seed)
        for turn in range(60):
            content = bytearray(good)
            for _ in range(rng.choice([1, 4, 30])):
                # Mostly the headers, and the tables that follow them.
                content[rng.randrange(rng.choice([64, 1000, 8000]))] = rng.randrange(256)
            with open(self.path("damaged"), "wb") as file:
                file.write(content)
            code, _, err = check(self.path("damaged"))
            self.assertIn(code, (0, 1, 2), f"SEED={seed}, turn {turn}: {err}")


if __name__ == "__main__":
    unittest.main()

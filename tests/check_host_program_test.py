"""End-to-end tests of `ndk-integrate check-host --program`."""

import json
import os
import random
import resource
import struct
import subprocess
import tempfile
import unittest

from verdicts import SCHEMA

PROGRAM = os.environ["NDK_INTEGRATE"]
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HOST = os.path.join(ROOT, "examples/minimal_host/main.cpp")
PLUGIN = os.path.join(os.path.dirname(PROGRAM), "libndk_utils.so.1n")
FUNCTIONS = 21
WITHOUT_STRINGS = 7  # whose names are the same with every string layout


def content_of(file):
    with open(file, "rb") as opened:
        return opened.read()


def check(program, *arguments, **how):
    done = subprocess.run(
        [PROGRAM, "check-host", "--program", program, *arguments],
        capture_output=True,
        text=True,
        check=False,
        timeout=60,
        **how,
    )
    return done.returncode, done.stdout, done.stderr


def hostile_program(needed, symbols, rpath):
    """An ELF program that holds little and stands for much: `needed` libraries and `symbols`, which
    all have names out of one text of 1 MB, and as many directories to look in."""
    entries = [(1, i) for i in range(needed)] + [(15, 0)] * rpath
    text = (b"x:" if rpath else b"_Z4pathx") * ((1 << 20) // (2 if rpath else 8))
    dynsym = b"".join(struct.pack("<IBBHQQ", i % 4096 * 8, 0x12, 0, 1, 1, 1) for i in range(symbols))
    hash_table = struct.pack("<IIII", 1, symbols, 0, 0)
    headers = 64 + 3 * 56
    end = len(entries) * 16 + 6 * 16
    tables = [(5, text), (6, dynsym), (4, hash_table)]
    for tag, content in tables:
        entries.append((tag, headers + end))
        end += len(content)
    dynamic = b"".join(struct.pack("<QQ", *entry) for entry in [*entries, (10, len(text)), (0, 0), (0, 0)])
    contents = dynamic + b"".join(content for _, content in tables)

    def segment(kind, at, size):
        return struct.pack("<IIQQQQQQ", kind, 4, at, at, at, size, size, 1)

    return (
        b"\x7fELF\x02\x01\x01" + bytes(9)
        + struct.pack("<HHIQQQIHHHHHH", 3, 62, 1, 0, 64, 0, 0, 64, 56, 3, 64, 0, 0)
        + segment(1, 0, headers + len(contents)) + segment(2, headers, len(dynamic)) + segment(3, 0, 0)
        + contents
    )


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
        SCHEMA.validate(told)
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
        script = self.path("script")
        with open(script, "w", encoding="utf-8") as file:
            file.write("{ global: main; local: *; };")
        some = {"exported": WITHOUT_STRINGS}
        rest = FUNCTIONS - WITHOUT_STRINGS
        for options, compiler, states in [
            (["-rdynamic"], "g++", {"exported": FUNCTIONS}),
            (["-rdynamic", "-s", "-no-pie"], "g++", {"exported": FUNCTIONS}),
            ([], "g++", {"not-exported": FUNCTIONS}),
            (["-s"], "g++", {"missing-or-not-exported": FUNCTIONS}),
            (["-rdynamic", "-fvisibility=hidden"], "g++", {"hidden": FUNCTIONS}),
            (["-rdynamic", "-Wl,--version-script", script], "g++", {"hidden": FUNCTIONS}),
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
                if "old-string-layout" in states:
                    self.assertIn(
                        "string layout: build the host with libstdc++ and -D_GLIBCXX_USE_CXX11_ABI=1, or "
                        "take the plug-in that was built with libstdc++ and -D_GLIBCXX_USE_CXX11_ABI=0\n",
                        check(program)[1],
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
            ("int strtoint(const std::string& text)", "static int strtoint(const std::string& text)", "hidden"),
        ]:
            with self.subTest(state=state):
                # A static function cannot be the one that host/host.h declares.
                header = '#include "host/host.h"\n'
                inside = f"#define strtoint declared\n{header}#undef strtoint\n{after};\n"
                source = text.replace(before, after).replace(header, inside)
                program = self.build("-rdynamic", "-fkeep-static-functions", source=source)
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

    def assert_refused(self, file, why):
        err = f"ndk-integrate: {file}: {why}\n"
        self.assertEqual(check(file), (2, "", err))
        code, out, json_err = check(file, "--json")
        self.assertEqual((code, json_err), (2, err))
        SCHEMA.validate(json.loads(out))
        self.assertEqual(json.loads(out), {
            "schema": 1, "outcome": "wrong-usage", "changed": False, "message": f"{file}: {why}",
        })

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
                self.assert_refused(file, why)
        os.mkfifo(self.path("fifo"))
        library = self.build("-shared", "-fPIC", name="libhost.so")
        for file, why in [
            ("/none", "cannot be read: no such file or directory"),
            ("/", "not a file"),
            (self.path("fifo"), "not a file"),
            ("", "cannot be read: no such file or directory"),
            (library, "a shared library, not a program; name the program that is linked with it"),
            (self.build("-c", name="host.o"), "an object file, which is not linked yet"),
        ]:
            with self.subTest(file):
                self.assert_refused(file, why)

    def test_json_of_wrong_usage(self):
        for arguments in [["--json"], ["--json", "--program"], ["--json", "--program", "/", "more"]]:
            with self.subTest(arguments):
                done = subprocess.run(
                    [PROGRAM, "check-host", *arguments], capture_output=True, text=True, check=False
                )
                self.assertEqual(done.returncode, 2)
                told = json.loads(done.stdout)
                SCHEMA.validate(told)
                self.assertEqual((told["outcome"], done.stderr), ("wrong-usage", f"ndk-integrate: {told['message']}\n"))

    def test_wrong_plugin(self):
        program = self.build("-rdynamic")
        for plugin, told in [
            (HOST, f"cannot read the plug-in {HOST}: not an ELF program"),
            (program, f"cannot use the plug-in {program}: it has no function detect_ndk"),
        ]:
            code, out, err = check(program, "--plugin", plugin)
            self.assertEqual((code, out, err), (3, "", f"ndk-integrate: {told}\n"))

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

    def test_hostile_files(self):
        """What stands for terabytes is told or refused in little memory and time."""

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (20, 20))
            if not SANITIZED:  # a sanitizer needs terabytes of addresses
                resource.setrlimit(resource.RLIMIT_AS, (1 << 30, 1 << 30))

        for size in [(60000, 0, 0), (900, 0, 60000), (0, 40000, 0)]:
            with open(self.path("hostile"), "wb") as file:
                file.write(hostile_program(*size))
            with self.subTest(size):
                code, out, err = check(self.path("hostile"), preexec_fn=limit)
                self.assertIn(code, (1, 2), err)
                self.assertEqual(out == "", code == 2)


if __name__ == "__main__":
    unittest.main()

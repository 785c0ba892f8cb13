"""How fast ndk-integrate check and find are: check beside a CMake script that reads the same file,
and find over more and more candidate directories. Run by hand:

    NDK_INTEGRATE=build/release/bin/ndk-integrate python3 bench/find_bench.py

Exits with 1 when a limit is missed."""

import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time

PROGRAM = os.path.abspath(os.environ["NDK_INTEGRATE"])

CHECK_REPETITIONS = 101
CHECK_LIMIT = 0.3  # of the time of cmake -P

FIND_REPETITIONS = 15
COUNTS = [1000, 3000, 10000]
MEMORY_LIMIT = 64  # MiB, for 10,000 candidates
FIND_LIMIT = 1.5  # times as long for each of 10,000 candidates as for each of 1,000
DIRS_AN_OPTION = 500  # one argument must not grow without bound

SOURCE_PROPERTIES = "Pkg.Desc = Android NDK\nPkg.Revision = 21.4.7075529\n"
SCRIPT = """\
file(READ "${DIR}/source.properties" properties)
if(NOT properties MATCHES "Pkg\\\\.Revision *= *([0-9]+)\\\\.([0-9]+)")
  message(FATAL_ERROR "no revision")
endif()
message("${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
"""


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def make_ndk(path):
    write(os.path.join(path, "ndk-build"), "")
    write(os.path.join(path, "source.properties"), SOURCE_PROPERTIES)


def seconds(command, environment=None):
    """How long the command takes, which must succeed."""
    start = time.perf_counter()
    subprocess.run(
        command,
        env={**os.environ, **(environment or {})},
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        check=True,
    )
    return time.perf_counter() - start


def medians(runs, repetitions):
    """The median time of each of `runs`, taken in turn so that a slow moment hits all alike."""
    for run in runs:
        run()
    times = [[run() for run in runs] for _ in range(repetitions)]
    return [statistics.median(column) for column in zip(*times)]


def report(what, ratio, limit):
    good = ratio < limit
    print(f"{what}: {ratio:.3f} (limit {limit:.3f}) {'good' if good else 'MISSED'}")
    return good


def bench_check(top):
    ndk = os.path.join(top, "ndk")
    script = os.path.join(top, "read.cmake")
    make_ndk(ndk)
    write(script, SCRIPT)
    check, cmake = medians(
        [
            lambda: seconds([PROGRAM, "check", ndk]),
            lambda: seconds(["cmake", f"-DDIR={ndk}", "-P", script]),
        ],
        CHECK_REPETITIONS,
    )
    print(f"check {check * 1e3:.2f} ms, cmake -P {cmake * 1e3:.2f} ms")
    return report("check / cmake -P", check / cmake, CHECK_LIMIT)


def make_candidates(parent, count):
    """`count` directories, of all kinds of not good ones in turn, the last of them good."""
    names = [os.path.join(parent, f"{number:05}") for number in range(count)]
    for number, name in enumerate(names[:-1]):
        os.makedirs(name)
        if number % 4 >= 1:
            write(os.path.join(name, "ndk-build"), "")
        if number % 4 == 2:
            write(os.path.join(name, "RELEASE.TXT"), "r10e (64-bit)\n")
        if number % 4 == 3:
            write(os.path.join(name, "source.properties"), "Pkg.Revision=11\n")
    make_ndk(names[-1])
    return names


def search_options(names):
    options = []
    for begin in range(0, len(names), DIRS_AN_OPTION):
        options += ["--search", ";".join(names[begin : begin + DIRS_AN_OPTION])]
    return options


def bench_find(what, commands):
    """`commands` are pairs of a command and its environment, one for each of COUNTS."""
    runs = [
        lambda command=command, environment=environment: seconds(command, environment)
        for command, environment in commands
    ]
    each = []
    for count, time_taken in zip(COUNTS, medians(runs, FIND_REPETITIONS)):
        each.append(time_taken / count)
        print(f"{what}: {count} candidates {time_taken * 1e3:.1f} ms, {each[-1] * 1e6:.2f} us each")
    what = f"{what}: each of {COUNTS[-1]} / each of {COUNTS[0]}"
    return report(what, each[-1] / each[0], FIND_LIMIT)


def bench_finds(top):
    homes = [os.path.join(top, f"home{count}") for count in COUNTS]
    searches = [
        search_options(make_candidates(os.path.join(home, "Android/Sdk/ndk"), count))
        for home, count in zip(homes, COUNTS)
    ]
    good = [
        bench_find(what, [([PROGRAM, "find", *search, *options], {}) for search in searches])
        for what, options in {"find": [], "find --all": ["--all"], "find --json": ["--all", "--json"]}.items()
    ]
    # The usual places, with all the candidates side by side in one SDK.
    names = ("NDK_HOME", "NDK_ROOT", "NDK", "NDK_PATH", "NDK_LATEST_HOME", "HOME", "SDK_ROOT")
    nowhere = dict.fromkeys([*(f"ANDROID_{name}" for name in names), "NDK_HOME", "NDK_ROOT"], "")
    by_default = [([PROGRAM, "find", "--all"], {**nowhere, "HOME": home}) for home in homes]
    good.append(bench_find("find --all in an SDK", by_default))
    used = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
    good.append(report("find: memory in MiB", used, MEMORY_LIMIT))
    return all(good)


def main():
    with tempfile.TemporaryDirectory(prefix="find_bench.") as top:
        results = [bench_check(top), bench_finds(top)]
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())

"""What the tests that look at the program's system calls have in common."""

import os
import re
import shutil
import subprocess
import unittest

from world import NO_LEAK_SEARCH


def _why_not():
    """Why strace cannot do here what it is needed for; "" when it can."""
    if shutil.which("strace") is None:
        return "strace is not installed (scripts/setup installs it)"
    kill = ["strace", "-o", "/dev/null", "-e", "inject=exit_group:signal=KILL", "true"]
    done = subprocess.run(kill, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return "" if done.returncode == -9 else f"strace cannot trace here: {done.stdout.decode()}"


WHY_NOT = _why_not()
needs_strace = unittest.skipIf(WHY_NOT, WHY_NOT)
needs_plain_program = unittest.skipIf(
    "GCOV_ERROR_FILE" in os.environ, "a program that counts its lines writes files, and is slow"
)
BUILD_FLAGS = os.environ.get("BUILD_FLAGS", "")
needs_usual_build = unittest.skipIf(
    "sanitize" in BUILD_FLAGS or "coverage" in BUILD_FLAGS,
    "what watches a program takes memory, and needs /proc",
)

OPEN_TO_WRITE = re.compile(r"O_(WRONLY|RDWR|CREAT|TRUNC|TMPFILE)")
CHANGING_CALLS = re.compile(
    r"(creat|mkdir|mkdirat|mknod|mknodat|rmdir|unlink|unlinkat|rename|renameat|renameat2|link|"
    r"linkat|symlink|symlinkat|chmod|fchmod|fchmodat|fchmodat2|chown|lchown|fchown|fchownat|"
    r"truncate|ftruncate|fallocate|utime|utimes|utimensat|futimesat|setxattr|lsetxattr|fsetxattr|"
    r"removexattr|lremovexattr|fremovexattr|mount)\Z"
)


def paths_in(line):
    """The files in a call's arguments that have names, those relative to an open directory made
    absolute. strace ran with -y."""
    named = re.findall(r'(?:(?:AT_FDCWD|\d+)<([^>]*)>, )?"((?:[^"\\]|\\.)*)"', line)
    return [os.path.join(above, name) for above, name in named]


def file_in(line):
    """The file of a call's first argument, an open one; None where it is none."""
    found = re.match(r"\w+\(\d+<([^>]*)>", line)
    return found and found[1]


def opened_in(line):
    """The descriptor that a call made, with the name of its file."""
    return dict(re.findall(r" = (\d+)<([^>]*)>$", line))


def real_name(path, descriptors):
    """The name of a file that may be reached through an open directory."""
    return re.sub(r"\A/proc/self/fd/(\d+)", lambda at: descriptors.get(at[1], at[0]), path or "")


def run_traced(world, *command, env=None, **how):
    """The outcome of a run, the files that its processes change or try to, and the programs."""
    trace = os.path.join(world.top, "trace")
    names = "trace=%file,fchmod,fchown,ftruncate,fallocate,fsetxattr,fremovexattr"
    strace = ["strace", "-f", "-qq", "-y", "-s", "10000", "-o", trace, "-e", names]
    outcome = world.run(*command, before=strace, env={**NO_LEAK_SEARCH, **(env or {})}, **how)
    changed, programs, descriptors = set(), set(), {}
    with open(trace, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            call = re.match(r"\d+ +((\w+)\(.*)", line)
            if not call:
                continue
            line, name = call.groups()
            descriptors.update(opened_in(line))
            is_opened = name.startswith("open") and OPEN_TO_WRITE.search(line)
            if is_opened or CHANGING_CALLS.match(name):
                changed.update(real_name(path, descriptors) for path in paths_in(line) or [file_in(line)])
            elif name == "execve" and line.endswith(" = 0"):
                programs.add(os.path.basename(paths_in(line)[0]))
    return outcome, changed - {"/dev/null"}, programs

"""Runs of ndk-integrate that are stopped at one system call, where a command runs (call_hook.cpp)."""

import os

from world import NO_LEAK_SEARCH, PROGRAM

HOOK = os.environ.get("CALL_HOOK_LIBRARY", "")


def run(world, command, *hooks, strace=(), options=(), before=(), program=PROGRAM):
    """Runs the command with hooks, each "NAME N before|after COMMAND", and under strace with these
    options where there are some. What it did is an Outcome."""
    preload = f"{os.environ.get('SANITIZER_RUNTIME', '')} {HOOK}".strip()
    hooked = ["env", f"LD_PRELOAD={preload}", "CALL_HOOK=" + "\n".join(hooks)] if hooks else []
    traced = ["strace", "-f", "-qqq", "-o", "/dev/null", *strace] if strace else []
    file = world.path("installation.toml")
    return world.run(
        command, file, *options, program=program, before=[*before, *traced, *hooked],
        env=NO_LEAK_SEARCH if strace else {},
    )


EXCHANGE = "renameat2 {} {} {}"  # the exchanges of files
# File systems that cannot exchange files, and kernels without openat2.
NO_EXCHANGE = ["-e", "trace=renameat2", "-e", "inject=renameat2:error=EINVAL"]
NO_OPENAT2 = ["-e", "trace=openat2", "-e", "inject=openat2:error=ENOSYS"]

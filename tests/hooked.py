"""Runs of ndk-integrate that are stopped at one system call, where a command runs (call_hook.cpp)."""

import os
import subprocess

from world import PROGRAM, Outcome, changes

HOOK = os.environ.get("CALL_HOOK_LIBRARY", "")


def run(world, command, *hooks, strace=(), options=(), before=(), program=PROGRAM):
    """Runs the command with hooks, each "NAME N before|after COMMAND", and under strace with these
    options where there are some. What it did is an Outcome."""
    tree = world.tree()
    env = {**os.environ, "LC_ALL": "C"}
    preload = f"{os.environ.get('SANITIZER_RUNTIME', '')} {HOOK}".strip()
    hooked = ["env", f"LD_PRELOAD={preload}", "CALL_HOOK=" + "\n".join(hooks)] if hooks else []
    traced = ["strace", "-f", "-qqq", "-o", "/dev/null", *strace] if strace else []
    done = subprocess.run(
        [*before, *traced, *hooked, program, command, world.path("installation.toml"), *options],
        cwd=world.top, env=env, stdin=subprocess.DEVNULL, capture_output=True, timeout=120,
        check=False,
    )
    text = [world.hidden(part.decode(errors="backslashreplace")) for part in (done.stdout, done.stderr)]
    return Outcome(done.returncode, *text, changes(tree, world.tree()), is_json="--json" in options)


EXCHANGE = "renameat2 {} {} {}"  # the exchanges of files
# File systems that cannot exchange files, and kernels without openat2.
NO_EXCHANGE = ["-e", "trace=renameat2", "-e", "inject=renameat2:error=EINVAL"]
NO_OPENAT2 = ["-e", "trace=openat2", "-e", "inject=openat2:error=ENOSYS"]

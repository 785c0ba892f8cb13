"""Edits at random moments, 1,000 of them, while install and undo are at work: none is lost, and none is
claimed to be ours. SEED repeats a draw."""

import os
import random
import subprocess
import sys
import time
import unittest

from world import CC, ORIGINALS, PROGRAM, STORE, TEMPLATES, World, filled, small_tree

EDITS = 1000
SEED = int(os.environ.get("SEED", random.randrange(1 << 32)))


class RandomEdits(unittest.TestCase):
    def test_none_lost(self):
        draw = random.Random(SEED)
        moment = 0.05
        done = 0
        with World(small_tree()) as world:
            while done < EDITS:
                command = draw.choice(["install", "undo"])
                self.reset(world, command)
                edits = {name: f"edit {done + i}\n" for i, name in enumerate(TEMPLATES)}
                begin = time.perf_counter()
                result, last = self.run_with(world, command, edits, draw, moment)
                moment = 0.9 * moment + 0.1 * (time.perf_counter() - begin)
                with self.subTest(command, number=done, SEED=SEED):
                    self.check(world, command, edits, result, last)
                done += len(edits)

    def reset(self, world, command):
        subprocess.run(["rm", "-rf", world.path("package")], check=True)
        world.write_all(small_tree())
        if command == "undo":
            self.assertEqual(world.start("install", world.path("installation.toml")).returncode, 0)

    def run_with(self, world, command, edits, draw, length):
        """The exit code, and the files that were edited before the program had ended."""
        plan = [(draw.random() * length, name, draw.random() < 0.5) for name in edits]
        run = subprocess.Popen([PROGRAM, command, world.path("installation.toml")],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        begin = time.perf_counter()
        during = set()
        for moment, name, by_rename in sorted(plan):
            while time.perf_counter() - begin < moment:
                pass
            if run.poll() is None:
                during.add(name)
            path = world.path(name)
            target = path + ".mine" if by_rename else path
            with open(target, "w", encoding="utf-8") as file:
                file.write(edits[name])
            if by_rename:
                os.rename(target, path)
        err = run.communicate()[1].decode()
        return (run.returncode, err), during

    def check(self, world, command, edits, result, during):
        code, err = result
        self.assertIn(code, [0, 1], err)
        everything = {name: data for name, (_, data) in world.snapshot().items() if data}
        expected = filled() if command == "install" else {n: "644 " + t for n, t in ORIGINALS.items()}
        for name, text in edits.items():
            here = [path for path, data in everything.items()
                    if isinstance(data, bytes) and text.encode() in data and
                    (path.startswith(name) or path.startswith(STORE))]
            self.assertTrue(here, f"the edit of {name} is lost: {code} {err}")
            # What is not in its place was named, or was a template when it came.
            if name not in here and code == 0:
                self.assertIn(".edited", err)
        for name in TEMPLATES:
            if code == 0 and name not in during and not world.read(name).startswith("edit"):
                self.assertEqual(world.tree()[name], expected[name])
        staged = [name for name in everything if f"{CC}/.ndk-integrate/staged" in name]
        self.assertEqual(staged, [])


if __name__ == "__main__":
    print(f"SEED={SEED}", file=sys.stderr)
    unittest.main()

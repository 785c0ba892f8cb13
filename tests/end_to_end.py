"""What all end-to-end tests of ndk-integrate have in common: comparisons of all that a run did."""

import dataclasses
import unittest

from messages import Install, not_undone, refused
from world import OTHER_NDK, Outcome, World, filled, pretty, small_tree


class EndToEndTest(unittest.TestCase):
    maxDiff = None

    def world(self, tree=None, **how):
        return self.enterContext(World(tree, **how))

    def small_world(self, *arguments, **changes):
        return self.world(small_tree(*arguments, **changes))

    def installed_world(self, *options, **how):
        """A world in which the compiler is integrated."""
        world = self.world({**small_tree(**how), **OTHER_NDK})
        outcome = world.install(*options)
        self.assertEqual(outcome.code, 0, outcome)
        return world

    def assert_outcome(self, outcome, code=0, out="", err="", changed=None, kept=False):
        """Nothing but this happened. What happened inside the program's own directory counts where
        `kept` is true."""
        expected = Outcome(code, out, err, changed)
        self.assertMultiLineEqual(outcome.text(kept), expected.text(kept))

    def assert_told(self, report, *outcomes, changed=None, log="", kept=False):
        """Each outcome is that of a run that tells `report`, which stands in messages.py. It is
        told in lines or, where that was asked for, as one JSON object in one line."""
        found, expected = "", ""
        for outcome in outcomes:
            out = pretty(report.json()) if outcome.is_json else report.out()
            err = report.err_of_json() if outcome.is_json else report.err()
            expected += Outcome(report.code, out, log + err, changed).text(kept)
            found += outcome.readable().text(kept)
        self.assertMultiLineEqual(found, expected)

    def assert_installs(self, world, *options, report=None, changed=None, log="", **how):
        """The first installation in a small tree tells `report`, and fills in every file."""
        report = report or Install()
        if changed is None:
            changed = filled(report.ndk if report.enabled else "", first=True)
        self.assert_told(report, world.install(*options, **how), changed=changed, log=log)

    def assert_refused(self, world, report, command=World.install, options=(), dry=True, **how):
        """The command is not done, says why in both forms, and changes nothing at all. So does a
        dry run, which shows more where a problem stands against it, and needs no lock: `dry` is
        false there."""
        for run in [[], ["--dry-run"]] if dry and not report.problem else [[]]:
            outcomes = [command(world, *options, *run, *form, **how) for form in [[], ["--json"]]]
            told = dataclasses.replace(report, dry=bool(run))
            self.assert_told(told, *outcomes, kept=True)

    def assert_both_refuse(self, world, message, **how):
        self.assert_refused(world, refused(message), **how)
        self.assert_refused(world, not_undone(message), World.undo, **how)

"""ndk-integrate install, end to end, where a template is missing, is no ordinary file or may not be
read or replaced."""

import os
import shutil
import tempfile
import unittest

from end_to_end import EndToEndTest
from messages import (
    IS_LINK, NOT_ORDINARY, NOT_WRITABLE, ON_OTHER_FILE_SYSTEM, TEMPLATE_MISSING, cannot,
    stands_against,
)
from world import (
    CC, DISABLED, LINUX, ORIGINALS, TEMPLATES, VARS_CSH, VARS_SH, filled, memory_directory,
    small_tree, without,
)


class Missing(EndToEndTest):
    def test_missing(self):
        for file in TEMPLATES:
            with self.subTest(file):
                report = stands_against(TEMPLATE_MISSING.format(file))
                self.assert_refused(self.world(without(small_tree(), file)), report)

    def test_missing_and_quiet(self):
        report = stands_against(TEMPLATE_MISSING.format(VARS_SH))
        outcome = self.world(without(small_tree(), VARS_SH)).install("-q")
        self.assert_outcome(outcome, code=1, err=report.err(), kept=True)


class NotPermitted(EndToEndTest):
    def test_not_readable(self):
        world = self.small_world(**{VARS_SH: (0o200, ORIGINALS[VARS_SH])})
        report = stands_against(cannot("read", VARS_SH))
        self.assert_refused(world, report, unprivileged=True)

    def test_directory_not_writable(self):
        world = self.small_world(**{LINUX + "/bin/": (0o555, "")})
        report = stands_against(NOT_WRITABLE.format(LINUX + "/bin"))
        self.assert_refused(world, report, unprivileged=True)


class NotOrdinary(EndToEndTest):
    def assert_odd(self, world, message, *options):
        """Refused; nothing changes."""
        report = stands_against(message, enabled=DISABLED not in options)
        self.assert_refused(world, report, options=options)

    def test_directory(self):
        for file in TEMPLATES:
            for inside in ["/", "/inside"]:
                with self.subTest(file + inside):
                    world = self.world({**without(small_tree(), file), file + inside: ""})
                    self.assert_odd(world, NOT_ORDINARY.format(file))

    def test_link(self):
        for name in TEMPLATES:
            for target in ["target", "nowhere", "dir", "/dev/null"]:
                with self.subTest(name=name, target=target):
                    world = self.small_world(**{"target": "<NDK_DIR>\n", "dir/": "", name: ""})
                    os.remove(world.path(name))
                    world.write(name, f"-> {world.path(target)}")
                    self.assert_odd(world, IS_LINK.format(name))

    def test_link_without_integration(self):
        world = self.world({**without(small_tree(), VARS_SH), "target": "<NDK_DIR>\n"})
        world.write(VARS_SH, f"-> {world.path('target')}")
        self.assert_odd(world, IS_LINK.format(VARS_SH), DISABLED)

    def test_link_made_after_installation(self):
        world = self.installed_world()
        os.rename(world.path(VARS_SH), world.path("moved.sh"))
        world.write(VARS_SH, f"-> {world.path('moved.sh')}")
        self.assert_odd(world, IS_LINK.format(VARS_SH))
        # What the link points to is not this package's.
        world.undo()
        self.assertEqual(world.read("moved.sh"), "ndk='WORLD/ndk'\n\n")

    def test_linked_directory_on_other_file_system(self):
        # A copy could not take a template's place in one step.
        here = tempfile.gettempdir()
        if memory_directory() is None or os.stat(memory_directory()).st_dev == os.stat(here).st_dev:
            self.skipTest("there is no second file system")
        other = self.enterContext(tempfile.TemporaryDirectory(prefix="ndk_integrate_test."))
        world = self.world(small_tree(), where=memory_directory())
        shutil.move(world.path(LINUX), other)
        world.write(LINUX, f"-> {other}/linux")
        self.assert_odd(world, ON_OTHER_FILE_SYSTEM.format(VARS_SH))

    def test_linked_directories(self):
        # Only the template itself counts.
        world = self.small_world()
        for name in ["package", CC, LINUX]:
            os.rename(world.path(name), world.path(name) + ".real")
            world.write(name, f"-> {os.path.basename(name)}.real")
        self.assertEqual(world.install().code, 0)
        self.assertEqual({file: "644 " + world.read(file) for file in TEMPLATES}, filled())
        self.assertEqual(world.undo().code, 0)
        self.assertEqual({file: world.read(file) for file in TEMPLATES}, ORIGINALS)


if __name__ == "__main__":
    unittest.main()

"""End-to-end tests of `ndk-integrate check-host`."""

import os
import re
import unittest

from end_to_end import EndToEndTest
from messages import no_plugin, said
from plugins import shared_library

TOLD = 'extern "C" int check_host(session_t*) { print_log("told: %s", "100%"); return 2; }'
DIES = """
#include <csignal>
#include <cstdlib>
extern "C" int check_host(session_t*) {
  print_log("HOST_CHECK: one: checking");
  print_log("HOST_CHECK: one: ok");
  print_log("HOST_CHECK: two: checking");
  HOW;
  return 0;
}
"""


class CheckHost(EndToEndTest):
    def check(self, *options):
        return self.world().run("check-host", *options)

    def check_with(self, source, *options):
        """With a host check of its own."""
        world = self.world()
        library = os.path.join(world.top, "library.so")
        shared_library(library, '#include "host/host.h"\n' + source)
        # A sanitizer would catch the signal and say so in its own words.
        uncaught = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":handle_segv=0"}
        return world.run("check-host", "--library", library, *options, env=uncaught)

    def test_this_host_keeps_the_contract(self):
        world = self.world()
        outcome = world.run("check-host", "--log", os.path.join(world.top, "log"))
        lines = [line for line in outcome.out.splitlines() if line.startswith("HOST_CHECK: ")]
        names = [line.split(": ")[1] for line in lines[::2]]
        self.assertGreater(len(names), 40)
        self.assertEqual(lines[::2], [f"HOST_CHECK: {name}: checking" for name in names])
        for name, verdict in zip(names, lines[1::2]):
            self.assertRegex(verdict, rf"\AHOST_CHECK: {re.escape(name)}: (ok\Z|skipped: )")
        skipped = [line for line in lines if ": skipped: " in line]
        self.assertLessEqual(len(skipped), 2 if os.geteuid() == 0 else 0, skipped)
        self.assertEqual(outcome.out.splitlines()[-1], "host check: 0 violations")
        self.assert_outcome(outcome, out=outcome.out)

    def test_quiet(self):
        self.assert_outcome(self.check("-q"), out="host check: 0 violations\n")

    def test_violations(self):
        out = "told: 100%\nhost check: 2 violations\n"
        self.assert_outcome(self.check_with(TOLD), code=1, out=out)

    def test_a_host_that_dies(self):
        for how, told in [
            ("std::raise(SIGSEGV)", "by signal 11 (Segmentation fault)"),
            ("std::abort()", "by signal 6 (Aborted)"),
            ("std::exit(0)", "with exit status 0, before the check was done"),
        ]:
            with self.subTest(how):
                outcome = self.check_with(DIES.replace("HOW", how), "-q")
                self.assert_outcome(
                    outcome, code=1, err=said(f"the host died at the check two, {told}")
                )

    def test_no_library(self):
        outcome = self.check("--library", "/not/there.so")
        self.assertRegex(outcome.err, r"\A[^\n]*cannot load the host check /not/there\.so: .*\n\Z")
        self.assert_outcome(outcome, code=3, err=outcome.err)

    def test_another_library(self):
        report = no_plugin("TOP/library.so", function="check_host", what="host check")
        self.assert_told(report, self.check_with(""))


if __name__ == "__main__":
    unittest.main()

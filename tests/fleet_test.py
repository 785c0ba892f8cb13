"""The sample playbook, run over ssh on machines that scripts/test-fleet makes: each scenario is one
run, and a comparison of everything on every machine."""

import json
import os
import resource
import shutil
import subprocess
import sys
import time
import unittest

from fleet_hosts import ROOT, Fleet, copy_example, differences, read, recap

COUNT = int(os.environ["FLEET_HOSTS"])
TREES = os.environ["FLEET_TREES"].split(":")
COLLECTION = "/root/collections/ansible_collections/ndk_utils/integrate"
R11C, OTHER = "/opt/android-ndk-r11c", "/opt/android-ndk-other"
PLACED = "/build/core/toolchains/x86-nox5.0.3.42"
CC = "/opt/nox/compiler"
SETUP = f"{CC}/android/x86-nox5.0.3.42/setup.mk"
TEMPLATES = {
    f"{CC}/android/x86_64-nox5.0.3.42/setup.mk".lstrip("/"),
    SETUP.lstrip("/"),
    f"{CC}/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh".lstrip("/"),
    f"{CC}/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh".lstrip("/"),
}
# What installing and removing any package leaves.
OF_PACKAGES = {
    "var/lib/dpkg", "var/cache", "var/log", "var/lib/apt", "etc/ld.so.cache",
}
ALL_AT_ONCE = {"serial: 10%": "serial: 100%", "max_fail_percentage: 20": "max_fail_percentage: 100"}


def prepare(host):
    """A build machine: two NDKs, and the compiler's files."""
    copy_example("ndk/android-ndk-r11c", host.path(R11C))
    copy_example("ndk/android-ndk-r11c", host.path(OTHER))
    copy_example("package", host.path("/opt/nox"))


class Run:
    """What one run of the playbook did."""

    def __init__(self, done, report, seconds, work, used):
        self.code = done.returncode
        self.output = done.stdout
        self.counts = recap(done.stdout)
        self.report = report
        self.seconds = seconds
        self.work = work  # seconds of the controller's processors
        self.used = used  # bytes over the network, by host

    def results(self):
        return {each["host"]: each["result"] for each in self.report["hosts"]}


class FleetTest(unittest.TestCase):
    maxDiff = 4000

    @classmethod
    def setUpClass(cls):
        cls.measured = []
        cls.fleet = cls.enterClassContext(
            Fleet(os.environ["FLEET_WORK"], TREES, os.environ["FLEET_CONTROLLER"], COUNT, prepare)
        )
        cls.hosts = cls.fleet.hosts
        cls.names = {host.name for host in cls.hosts}
        controller = cls.fleet.controller
        shutil.copytree(
            os.path.join(ROOT, "fleet"), controller.path(COLLECTION), symlinks=True,
            ignore=shutil.ignore_patterns("__pycache__"),
        )
        os.makedirs(controller.path("/root/packages"))
        for name in os.listdir(os.environ["FLEET_PACKAGES"]):
            if name.endswith(".deb"):
                source = os.path.join(os.environ["FLEET_PACKAGES"], name)
                shutil.copy(source, controller.path(f"/root/packages/{name}"))
        # The sample inventory, for these machines.
        sample = controller.read(f"{COLLECTION}/playbooks/inventory/build_machines.yml")
        machines = "".join(
            f"    {host.name}: {{ansible_host: {host.address}}}\n" for host in cls.hosts
        )
        own = sample.replace("    build1.example:\n    build2.example:\n", machines)
        own = own.replace("packages_directory: packages", "packages_directory: /root/packages")
        assert machines in own and "/root/packages" in own
        controller.write("/root/inventory/machines.yml", own)
        cls.before = {host.name: host.snapshot() for host in cls.hosts}

    @classmethod
    def tearDownClass(cls):
        # Of each run how long it took, and for one host the bytes over the network and the work of
        # the controller's processors.
        print()
        for name, run in cls.measured:
            used = sum(run.used.values()) / COUNT / 1024
            work = run.work / COUNT
            print(f"told: {name} {run.seconds:.1f} s, {used:.0f} KiB, {work:.2f} s;")

    # --- Acts ---

    def play(self, *options, playbook="integrate", changes=None, user="root", **variables):
        """Runs the playbook; `changes` replace texts of the sample."""
        controller = self.fleet.controller
        text = controller.read(f"{COLLECTION}/playbooks/{playbook}.yml")
        for old, new in (ALL_AT_ONCE if changes is None else changes).items():
            assert old in text or playbook != "integrate"
            text = text.replace(old, new)
        controller.write("/root/playbook.yml", text)
        report = controller.path("/root/report.json")
        if os.path.exists(report):
            os.remove(report)
        before = {host.name: host.bytes_so_far() for host in self.hosts}
        began, worked = time.monotonic(), work_of_children()
        done = self.fleet.on_controller(
            "ansible-playbook", "-i", "inventory", "playbook.yml", *options,
            "-e", json.dumps({"ansible_user": user, **variables}),
            variables={
                "ANSIBLE_CONFIG": f"{COLLECTION}/playbooks/ansible.cfg",
                "ANSIBLE_COLLECTIONS_PATH": "/root/collections",
                "NDK_INTEGRATE_REPORT": "/root/report.json",
                "ANSIBLE_NOCOLOR": "1",
            },
        )
        seconds, work = time.monotonic() - began, work_of_children() - worked
        print(f"\n=== {self.id()} {options} {variables}\n{done.stdout}", file=sys.stderr)
        told = json.loads(controller.read("/root/report.json")) if os.path.exists(report) else None
        used = {host.name: host.bytes_so_far() - before[host.name] for host in self.hosts}
        return Run(done, told, seconds, work, used)

    def measure(self, name, run):
        self.measured.append((name, run))

    def snapshots(self):
        return {host.name: host.snapshot() for host in self.hosts}

    def apply(self, **variables):
        """Every machine is as the playbook wants it."""
        run = self.play(**variables)
        self.assert_well(run)
        return run

    def take_back(self):
        run = self.play(compiler_state="absent")
        self.assertEqual(run.code, 0, run.output)
        return run

    # --- What is compared ---

    def assert_well(self, run, result="verified", ndk=R11C):
        self.assertEqual(run.code, 0, run.output)
        self.assertEqual(run.results(), dict.fromkeys(self.names, result), run.output)
        told = {(each["ndk"], each["release"]) for each in run.report["hosts"]}
        self.assertEqual(told, {(ndk, "r11c" if ndk else None)}, run.output)

    def assert_changed(self, run, changed):
        self.assertEqual(
            {name: run.counts[name]["changed"] > 0 for name in self.names},
            dict.fromkeys(self.names, changed),
            run.output,
        )

    def assert_same(self, before, left_out=(), hosts=None):
        """Nothing differs, on any of the machines."""
        for host in self.hosts if hosts is None else hosts:
            was, now = (without(tree, left_out) for tree in (before[host.name], host.snapshot()))
            self.assertEqual(differences(was, now), {}, host.name)

    def told_of(self, run, host):
        return next(each for each in run.report["hosts"] if each["host"] == host.name)

    def others(self, host):
        return [each for each in self.hosts if each is not host]

    # --- Scenarios, in the order of a life ---

    def test_1_life(self):
        # A check on machines that have nothing of it yet.
        run = self.play("--check", "--diff")
        self.measure("check", run)
        self.assertEqual(run.code, 0, run.output)
        self.assertEqual(run.results(), dict.fromkeys(self.names, "would be set up"), run.output)
        self.assert_same(self.before)

        run = self.apply()
        self.measure("apply", run)
        self.assert_changed(run, True)
        integrated = self.snapshots()

        run = self.apply()
        self.measure("apply again", run)
        for name in self.names:
            self.assertEqual(run.counts[name]["changed"], 0, run.output)
        self.assert_same(integrated)
        self.assert_well(self.play("--tags", "verify"))

        # Another NDK: the check tells what is then done, and does nothing.
        run = self.play("--check", "--diff", compiler_ndk=OTHER)
        self.assertEqual(run.code, 0, run.output)
        self.assertEqual(run.results(), dict.fromkeys(self.names, "would be integrated"))
        self.assertIn(f'+nox_ndk_dir="{OTHER}"', run.output)
        self.assert_same(integrated)
        run = self.play(compiler_ndk=OTHER)
        self.measure("re-target", run)
        self.assert_well(run, ndk=OTHER)
        self.assert_changed(run, True)
        for host in self.hosts:
            placed = [ndk for ndk in (R11C, OTHER) if os.path.exists(host.path(ndk + PLACED))]
            self.assertEqual(placed, [OTHER])

        # All of it is taken back.
        there = self.snapshots()
        run = self.play("--check", "--diff", compiler_state="absent")
        self.assertEqual(run.results(), dict.fromkeys(self.names, "would be undone"), run.output)
        self.assert_same(there)
        run = self.take_back()
        self.measure("absent", run)
        self.assertEqual(run.results(), dict.fromkeys(self.names, "undone"), run.output)
        self.assert_same(self.before, OF_PACKAGES)
        run = self.take_back()
        for name in self.names:
            self.assertEqual(run.counts[name]["changed"], 0, run.output)

    def test_2_edited_template(self):
        self.apply()
        host = self.hosts[-1]
        text = host.read(SETUP)
        host.write(SETUP, text + "# by hand\n")
        before = self.snapshots()
        run = self.play()
        self.assertEqual(run.code, 2, run.output)
        told = self.told_of(run, host)
        self.assertEqual((told["result"], told["changed"]), ("failed", False))
        self.assertIn(f"{SETUP} was changed by someone else", told["message"])
        for other in self.others(host):
            self.assertEqual(self.told_of(run, other)["result"], "verified")
        self.assert_same(before)
        host.write(SETUP, text)

    def test_3_no_ndk(self):
        host = self.hosts[0]
        self.take_back()
        for ndk in (R11C, OTHER):
            os.rename(host.path(ndk), host.path(ndk + ".away"))
        run = self.play()
        self.assertEqual(run.code, 2, run.output)
        told = self.told_of(run, host)
        self.assertEqual((told["result"], told["ndk"]), ("failed", None))
        self.assertIn("no NDK was found", told["message"])
        for other in self.others(host):
            self.assertEqual(self.told_of(run, other)["result"], "verified")
        run = self.play(compiler_optional=True)
        self.assertEqual((run.code, self.told_of(run, host)["result"]), (0, "no-ndk"), run.output)
        for ndk in (R11C, OTHER):
            os.rename(host.path(ndk + ".away"), host.path(ndk))

    def test_4_machine_that_goes_away(self):
        host = self.hosts[-1]
        self.take_back()
        script = f"{CC}/android/ndk_integration.sh"
        text = host.read(script)
        host.write(script, "#!/bin/sh\nkill -TERM 1\nsleep 60\n", 0o755)
        run = self.play()
        host.wait()
        self.assertNotEqual(run.code, 0)
        told = self.told_of(run, host)
        self.assertEqual((told["result"], told["verified"]), ("unreachable", False))
        for other in self.others(host):
            self.assertEqual(self.told_of(run, other)["result"], "verified", run.output)
        # It comes back as it was left, and the next run puts it right.
        host.write(script, text, 0o755)
        self.fleet.start(host)
        self.assert_well(self.apply())
        self.take_back()
        self.assert_same(self.before, OF_PACKAGES)

    def test_5_batches(self):
        # As the sample has it: one of ten machines first. Where that fails, no other is touched.
        host = self.hosts[0]
        self.take_back()
        os.rename(host.path(SETUP), host.path(SETUP + ".away"))
        before = self.snapshots()
        run = self.play(changes={})
        self.assertEqual(run.code, 2, run.output)
        self.assertEqual(self.told_of(run, host)["result"], "failed")
        self.assertIn(SETUP, self.told_of(run, host)["message"])
        for other in self.others(host):
            self.assertEqual(self.told_of(run, other)["result"], "not reached")
        self.assert_same(before, hosts=self.others(host))
        os.rename(host.path(SETUP + ".away"), host.path(SETUP))
        self.assert_well(self.play(changes={}))

    def test_6_facts_without_root(self):
        self.take_back()
        run = self.play(playbook="facts", user="builder")
        without_program = dict.fromkeys(self.names, "failed")
        self.assertEqual(run.results(), without_program, run.output)
        self.apply()
        before = self.snapshots()
        run = self.play(playbook="facts", user="builder")
        self.assert_well(run, "found", OTHER)
        self.assertEqual(run.output.count("r11c (11.2.2725575)"), 2 * COUNT, run.output)
        self.assert_same(before)

    def test_7_repository(self):
        """The packages from a repository instead of the controller's directory."""
        self.take_back()
        for host in self.hosts:
            to = host.path("/srv/packages")
            os.makedirs(to)
            for name in os.listdir(self.fleet.controller.path("/root/packages")):
                shutil.copy(self.fleet.controller.path(f"/root/packages/{name}"), to)
            with open(f"{to}/Packages", "wb") as file:
                file.write(packages_index(to))
        line = "deb [trusted=yes] file:/srv/packages ./"
        before = self.snapshots()
        how = {"compiler_packages_directory": "", "compiler_repository": line}
        self.assert_well(self.play(**how))
        run = self.play(**how)
        for name in self.names:
            self.assertEqual(run.counts[name]["changed"], 0, run.output)
        self.play(compiler_state="absent", **how)
        self.assert_same(before, OF_PACKAGES)

    def test_8_no_way_out(self):
        for machine in [*self.hosts, self.fleet.controller]:
            table = read(f"/proc/{machine.first_process()}/net/route").splitlines()[1:]
            routes = [line.split()[:2] for line in table]
            self.assertEqual(routes, [["eth0", "000200C0"]], machine.name)


def without(tree, left_out):
    """The tree without these names and what is in them."""
    beginnings = tuple(name + "/" for name in left_out)
    return {
        name: entry
        for name, entry in tree.items()
        if name not in left_out and not name.startswith(beginnings)
    }


def work_of_children():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def packages_index(directory):
    return subprocess.run(
        ["dpkg-scanpackages", "."], cwd=directory, stdout=subprocess.PIPE, check=True,
        stderr=subprocess.DEVNULL,
    ).stdout


if __name__ == "__main__":
    unittest.main()

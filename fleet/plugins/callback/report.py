"""At the end of a playbook tells of every machine which NDK the compiler is in and whether it works."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
name: report
type: aggregate
short_description: Tells of every machine which NDK the compiler is in, and whether it works or why not
description:
  - Prints a table at the end of the playbook, with a line for every machine of its plays, also for those that failed,
    went away, or were not reached because a batch before theirs ended the play.
  - Writes the same to a JSON file, if one is named.
requirements:
  - It is enabled, with C(callbacks_enabled = ndk_utils.integrate.report) in C(ansible.cfg).
options:
  file:
    description: The JSON file on the controller. None is written without it.
    type: str
    default: ""
    env:
      - name: NDK_INTEGRATE_REPORT
    ini:
      - section: callback_report
        key: file
"""

import json
import os

from ansible.plugins.callback import CallbackBase

INTEGRATION, FACTS = "ndk_integration", "ndk_facts"
COLUMNS = ("host", "ndk", "release", "result")


class Machine:
    """What became of one machine."""

    def __init__(self, host):
        self.host = host
        self.ndk = None
        self.release = None
        self.is_verified = False
        self.has_changed = False
        self.result = "not reached"
        self.message = "the play ended before it came to this machine"

    def tell(self, result, message):
        self.result = result
        self.message = message

    def take(self, told, is_check):
        """Takes what the module returned when it was done."""
        self.ndk = told.get("ndk")
        self.release = told.get("release")
        self.is_verified = told["outcome"] == "verified"
        would = "would be " if is_check and told.get("changed") else ""
        self.tell(would + told["outcome"], told.get("msg", ""))

    def take_facts(self, found):
        """Takes what is known of the NDKs there."""
        self.ndk = found["ndk"]
        for candidate in found["candidates"]:
            if candidate["path"] == self.ndk:
                self.release = candidate["release"]
        if self.ndk:
            self.tell("found", "")
        else:
            reasons = ["{path}: {message}".format(**each) for each in found["candidates"]]
            self.tell("no-ndk", "; ".join(reasons) or "no directory was looked at")

    def as_dict(self):
        return {
            "host": self.host,
            "ndk": self.ndk,
            "release": self.release,
            "verified": self.is_verified,
            "changed": self.has_changed,
            "result": self.result,
            "message": self.message,
        }

    def row(self):
        is_well = self.result in ("verified", "integrated", "undone", "nothing-to-undo", "found")
        why = "" if is_well else ": " + " ".join(self.message.split())
        return (self.host, self.ndk or "-", self.release or "-", self.result + why)


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "aggregate"
    CALLBACK_NAME = "ndk_utils.integrate.report"
    CALLBACK_NEEDS_ENABLED = True

    def __init__(self, *arguments, **named):
        super().__init__(*arguments, **named)
        self.machines = {}
        self.is_check = False

    def v2_playbook_on_play_start(self, play):
        variables = play.get_variable_manager().get_vars(play=play)
        self.is_check = variables["ansible_check_mode"]
        for host in variables["ansible_play_hosts_all"]:
            self.machines.setdefault(host, Machine(host))

    def v2_runner_on_ok(self, result):
        machine = self._machine(result)
        told = result._result
        machine.has_changed = machine.has_changed or bool(told.get("changed"))
        if is_of(INTEGRATION, result) and "outcome" in told:
            machine.take(told, self.is_check)
        elif is_of(FACTS, result):
            machine.take_facts(told["ansible_facts"]["ndk_integrate"])
        elif self.is_check and told.get("changed") and machine.result == "nothing done":
            machine.tell("would be set up", "what the integration needs is not there yet")

    def v2_runner_on_skipped(self, result):
        self._machine(result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        machine = self._machine(result)
        told = result._result
        if ignore_errors:
            return
        machine.has_changed = machine.has_changed or bool(told.get("changed"))
        if is_of(INTEGRATION, result):
            machine.ndk = told.get("ndk")
            machine.release = told.get("release")
        machine.is_verified = False
        machine.tell("failed", "{0}: {1}".format(result._task.name, reason(told)))

    def v2_runner_on_unreachable(self, result):
        machine = self._machine(result)
        machine.is_verified = False
        machine.tell(
            "unreachable",
            "{0}: {1}".format(result._task.name, result._result.get("msg", "no message")),
        )

    def v2_playbook_on_stats(self, stats):
        machines = [self.machines[host] for host in sorted(self.machines)]
        if not machines:
            return
        self._display.display("\nREPORT")
        for line in table([COLUMNS] + [machine.row() for machine in machines]):
            self._display.display(line)
        path = self.get_option("file")
        if path:
            write_json(path, {"schema": 1, "hosts": [machine.as_dict() for machine in machines]})

    def _machine(self, result):
        machine = self.machines.setdefault(result._host.get_name(), Machine(result._host.get_name()))
        if machine.result == "not reached":
            machine.tell("nothing done", "no step came to the integration")
        return machine


def is_of(module, result):
    return result._task.action.split(".")[-1] == module


def reason(told):
    """Why a step failed. Of a loop Ansible itself says only that an item failed, and of a command
    that its exit code is not 0."""
    failed = [reason(each) for each in told.get("results") or [] if each.get("failed")]
    return "; ".join(failed) or told.get("stderr") or told.get("msg") or "no message"


def table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(COLUMNS) - 1)]
    form = "".join("{%d:<%d}  " % (column, width) for column, width in enumerate(widths))
    return [(form + "{%d}" % len(widths)).format(*row) for row in rows]


def write_json(path, value):
    """Replaces the file in one step."""
    new = path + ".new"
    with open(new, "w") as file:
        json.dump(value, file, indent=1)
        file.write("\n")
    os.rename(new, path)

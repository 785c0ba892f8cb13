"""Runs ndk-integrate on the target and takes its JSON."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json

EXECUTABLE = dict(type="path", default="ndk-integrate")

DONE = 0
NOTHING_TO_DO = 4


class Answer:
    """What one run of the program answered: its exit code, the object that it printed, with nothing
    in it where it printed none, and what it says went wrong."""

    def __init__(self, code, told, complaint):
        self.code = code
        self.told = told
        self.message = told.get("message") or complaint or "ndk-integrate said nothing"

    def get(self, name):
        return self.told.get(name)


def ask(module, command, *options):
    """Runs `ndk-integrate command options --json`. Ends the module where the program cannot be run,
    does not understand the options or the installation file, or cannot load its plug-in."""
    program = module.get_bin_path(module.params["executable"], required=True)
    # What is told is told as it is: a $ in a value is no variable of the target's.
    code, output, complaints = module.run_command(
        [program, command, *options, "--json"],
        environ_update={"LC_ALL": "C"},
        expand_user_and_vars=False,
    )
    told = json_object(output)
    complaint = complaints.strip().replace("ndk-integrate: ", "")
    answer = Answer(code, told, complaint)
    if told.get("outcome") in ("wrong-usage", "no-plugin") or code not in (0, 1, NOTHING_TO_DO):
        module.fail_json(msg=answer.message, outcome=told.get("outcome", "failed"), rc=code)
    return answer


def json_object(text):
    try:
        value = json.loads(text)
    except ValueError:
        return {}
    return value if isinstance(value, dict) else {}

#!/usr/bin/python
"""A compiler package's integration into an Android NDK, as a state of a machine."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: ndk_integration
short_description: Integrates a compiler package into an Android NDK, verifies it or takes it back
description:
  - Runs C(ndk-integrate --json) on the target and tells what it answers.
  - An integration that stands already, for the same NDK and with its toolchain definitions in
    their place, is left alone.
  - Whatever stands against an integration, such as a file that somebody edited, is named, and then
    nothing is changed.
options:
  installation:
    description:
      - The C(installation.toml) on the target.
    type: path
    required: true
  ndk:
    description:
      - The NDK to integrate into, or to verify, instead of the one that the file leads to.
      - Does not matter where C(state=absent), which goes by what is recorded.
    type: path
  set:
    description:
      - Session variables that override those of the file, by their names.
      - A list becomes a text with C(;) between its items.
      - True and false, which YAML makes of a C(yes) and a C(no) without quotes, become C(yes) and C(no) again.
    type: dict
    default: {}
  state:
    description:
      - With C(present) the compiler is integrated into the NDK.
      - With C(absent) it is taken out of the NDK again, and its files are as they were.
      - With C(verified) the NDK builds with the compiler, or the module fails. It changes nothing.
    type: str
    choices: [present, absent, verified]
    default: present
  optional:
    description:
      - Where there is nothing to do, because no NDK can be used, no component asks for the
        integration, or nothing is there to be verified, that is no failure.
    type: bool
    default: false
  executable:
    description:
      - The program on the target, by its name or its path.
    type: path
    default: ndk-integrate
attributes:
  check_mode:
    description: The program makes a dry run, on copies and without a script.
    support: full
  diff_mode:
    description: Each file of the compiler that changes, before and after. Not the files of the NDK.
    support: full
notes:
  - The user must be allowed to write in the compiler's directory and in the NDK.
"""

EXAMPLES = r"""
- name: Integrate the compiler
  ndk_utils.integrate.ndk_integration:
    installation: /etc/ndk-integrate.toml

- name: Direct it to another NDK
  ndk_utils.integrate.ndk_integration:
    installation: /etc/ndk-integrate.toml
    ndk: /opt/android-ndk-r12b
    set:
      NDK_SUPPORTED_VERSIONS: [r11c, r12b]

- name: Prove that the NDK builds with it
  ndk_utils.integrate.ndk_integration:
    installation: /etc/ndk-integrate.toml
    state: verified

- name: Take it back
  ndk_utils.integrate.ndk_integration:
    installation: /etc/ndk-integrate.toml
    state: absent
"""

RETURN = r"""
outcome:
  description:
    - What became of it.
    - With C(state=present) one of C(integrated), C(disabled), C(not-selected), C(no-ndk) and C(failed).
    - With C(state=absent) one of C(undone), C(nothing-to-undo) and C(failed).
    - With C(state=verified) one of C(verified), C(not-installed) and C(failed).
    - Also C(wrong-usage) and C(no-plugin), with which the program could do nothing.
  returned: always
  type: str
  sample: integrated
msg:
  description: The same in a sentence. Where it failed, all that stands against it.
  returned: always
  type: str
  sample: the compiler is integrated into /opt/android-ndk-r11c
rc:
  description: The exit code of the program's last run.
  returned: always
  type: int
  sample: 0
ndk:
  description: The NDK that the compiler is integrated into, that was verified, or that it is taken out of; or null.
  returned: when the program understood what it was told
  type: str
  sample: /opt/android-ndk-r11c
release:
  description: The release of that NDK, or null.
  returned: when the program understood what it was told
  type: str
  sample: r11c
component:
  description: The component that is the compiler, or null.
  returned: with C(state=present), when the program understood what it was told
  type: str
  sample: nox-ndk-compiler-5.0.3
candidates:
  description: Where no NDK can be used, the verdict on each directory, as in M(ndk_utils.integrate.ndk_facts).
  returned: with C(state=present), when the program understood what it was told
  type: list
  elements: dict
  sample: []
files:
  description: The files of the compiler.
  returned: with C(state=present) or C(state=absent), when the program understood what it was told
  type: list
  elements: dict
  contains:
    path:
      description: The file.
      returned: always
      type: str
      sample: /opt/nox/compiler/android/x86-nox5.0.3.42/setup.mk
    result:
      description:
        - C(patched), C(missing) or C(failed).
        - With C(state=absent) C(restored), C(original), C(gone) or C(shared).
      returned: always
      type: str
      sample: patched
    placeholders:
      description: How many placeholders the original has.
      returned: with C(state=present)
      type: int
      sample: 6
script:
  description: The package's integration script, or null. In check mode it did not run.
  returned: with C(state=present), when the program understood what it was told
  type: dict
  contains: &script
    command:
      description: The command line.
      returned: always
      type: str
      sample: ./ndk_integration.sh "/opt/android-ndk-r11c" --force
    exit_status:
      description: Its exit status, or null where it did not run.
      returned: always
      type: int
      sample: 0
    output:
      description: What it printed.
      returned: always
      type: str
      sample: ""
removal:
  description: What was done about an NDK that the compiler was integrated into before, or null.
  returned: with C(state=present) or C(state=absent), when the program understood what it was told
  type: dict
  contains:
    ndk:
      description: That NDK.
      returned: always
      type: str
      sample: /opt/android-ndk-r11b
    script:
      description: The package's removal script, or null.
      returned: always
      type: dict
      contains: *script
    left:
      description: Why the NDK was left as it is, or null.
      returned: always
      type: str
      sample: null
problems:
  description: All that stands against the integration, each in a sentence.
  returned: with C(state=present), when the program understood what it was told
  type: list
  elements: str
  sample: []
toolchains:
  description: The result for each toolchain definition of the compiler.
  returned: with C(state=verified), when the program understood what it was told
  type: list
  elements: dict
  contains:
    name:
      description: Its name.
      returned: always
      type: str
      sample: x86-nox5.0.3.42
    arch:
      description: Its architecture, or null.
      returned: always
      type: str
      sample: x86
    abis:
      description: The ABIs that were built for.
      returned: always
      type: list
      elements: str
      sample: [x86]
    result:
      description: C(works), or in one word why not.
      returned: always
      type: str
      sample: works
    message:
      description: The same in a sentence, and where a build failed its last lines.
      returned: always
      type: str
      sample: C and C++ modules were built with it for x86
    seconds:
      description: How long the builds took.
      returned: always
      type: float
      sample: 0.4
diff:
  description: Each file that changes, before and after.
  returned: in diff mode, when the compiler is or would be integrated or taken back
  type: list
  elements: dict
  contains:
    before_header:
      description: The file.
      returned: always
      type: str
      sample: /opt/nox/compiler/android/x86-nox5.0.3.42/setup.mk
    after_header:
      description: The file.
      returned: always
      type: str
      sample: /opt/nox/compiler/android/x86-nox5.0.3.42/setup.mk
    before:
      description: What it holds before.
      returned: always
      type: str
    after:
      description: What it holds after.
      returned: always
      type: str
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ndk_utils.integrate.plugins.module_utils.program import (
    DONE,
    EXECUTABLE,
    NOTHING_TO_DO,
    ask,
)


def settings(module):
    """The options for C(set)."""
    options = []
    for name, value in sorted(module.params["set"].items()):
        options += ["--set", name + "=" + text_of(value)]
    return options


def text_of(value):
    if isinstance(value, bool):
        return "yes" if value else "no"
    return ";".join(str(item) for item in value) if isinstance(value, list) else str(value)


def ndk_option(module):
    return ["--ndk", module.params["ndk"]] if module.params["ndk"] else []


def ask_about(module, command, *options):
    return ask(module, command, module.params["installation"], *options, *settings(module))


def finish(module, answer, changed, results):
    """Ends the module: well, if the program said that it is done."""
    for warning in answer.get("warnings") or []:
        module.warn(warning)
    results = dict(results, changed=changed, rc=answer.code)
    if answer.code == DONE or answer.code == NOTHING_TO_DO and module.params["optional"]:
        module.exit_json(failed=False, **results)  # Ansible would take any other rc for a failure
    module.fail_json(**results)


def differences(module, plan):
    """What diff mode shows of a dry run."""
    if not module._diff:
        return {}
    return {
        "diff": [
            dict(
                before_header=file["path"],
                after_header=file["path"],
                before=file["before"],
                after=file["after"],
            )
            for file in plan.get("files")
            if file.get("before") != file.get("after")
        ]
    }


def without_contents(files):
    """The files of a dry run without what they hold, which only diff mode is to show."""
    shown = ("path", "result", "placeholders")
    return [{name: file[name] for name in shown if name in file} for file in files]


# --- present ---


def standing(module):
    """What stands on the machine: whether an installation came to its end, for which NDK, and where
    its toolchain definitions are."""
    status = ask_about(module, "status")
    if status.get("outcome") == "not-installed":
        return ("not-installed", None, [])
    placed = []
    if status.get("ndk"):
        proof = ask_about(module, "verify", "--no-build")
        placed = [(each["name"], each["result"]) for each in proof.get("toolchains") or []]
    return (status.get("outcome"), status.get("ndk"), placed)


def stands_as_planned(stands, plan):
    """Whether an installation would change nothing, in the compiler's files or in the NDK."""
    outcome, ndk, placed = stands
    if outcome != "installed" or plan.get("changed") or plan.get("removal"):
        return False
    if plan.get("outcome") == "disabled":
        return ndk is None
    # The plan names the NDK as it was told, the record without a slash at the end.
    is_there = ndk is not None and ndk == (plan.get("ndk") or "").rstrip("/")
    return is_there and all(result == "placed" for _name, result in placed)


def results_of_install(answer):
    told = answer.told
    names = ("outcome", "ndk", "release", "component", "candidates", "script", "removal", "problems")
    results = {name: told.get(name) for name in names}
    results["files"] = without_contents(told.get("files") or [])
    results["msg"] = "; ".join(told.get("problems") or []) or answer.message
    return results


def integrate(module):
    stands = standing(module)
    plan = ask_about(module, "install", "--dry-run", *ndk_option(module))
    results = results_of_install(plan)
    if plan.code != DONE:
        finish(module, plan, False, results)
    as_planned = stands_as_planned(stands, plan)
    results.update(differences(module, plan))
    if as_planned or module.check_mode:
        finish(module, plan, not as_planned, results)
    answer = ask_about(module, "install", *ndk_option(module))
    results.update(results_of_install(answer))
    finish(module, answer, bool(answer.get("changed")) or standing(module) != stands, results)


# --- absent ---


def take_back(module):
    status = ask_about(module, "status")
    plan = ask_about(module, "undo", "--dry-run")
    answer = plan
    if not module.check_mode and plan.get("outcome") == "undone":
        answer = ask_about(module, "undo")
    results = {
        "outcome": answer.get("outcome"),
        "msg": answer.message,
        "ndk": status.get("ndk"),
        "release": status.get("release"),
        "files": without_contents(answer.get("files") or []),
        "removal": answer.get("removal"),
    }
    if plan.code == DONE:
        results.update(differences(module, plan))
    # What is recorded of the installation goes even where each file is as it was already.
    changed = answer.get("outcome") == "undone" or bool(answer.get("changed"))
    finish(module, answer, changed, results)


# --- verified ---


def verify(module):
    answer = ask_about(module, "verify", *ndk_option(module))
    outcome = {DONE: "verified", NOTHING_TO_DO: "not-installed"}.get(answer.code, "failed")
    toolchains = answer.get("toolchains") or []
    good = "works" if outcome == "verified" else None
    reasons = [
        "{name}: {result}: {message}".format(**toolchain)
        for toolchain in toolchains
        if toolchain["result"] != "works"
    ]
    message = "; ".join(reasons) or answer.message
    if good:
        message = "{0} toolchains work in {1}".format(len(toolchains), answer.get("ndk"))
    results = {
        "outcome": outcome,
        "msg": message,
        "ndk": answer.get("ndk"),
        "release": answer.get("release"),
        "toolchains": toolchains,
    }
    finish(module, answer, False, results)


def main():
    module = AnsibleModule(
        argument_spec=dict(
            installation=dict(type="path", required=True),
            ndk=dict(type="path"),
            set=dict(type="dict", default={}),
            state=dict(type="str", choices=["present", "absent", "verified"], default="present"),
            optional=dict(type="bool", default=False),
            executable=EXECUTABLE,
        ),
        supports_check_mode=True,
    )
    states = {"present": integrate, "absent": take_back, "verified": verify}
    states[module.params["state"]](module)


if __name__ == "__main__":
    main()

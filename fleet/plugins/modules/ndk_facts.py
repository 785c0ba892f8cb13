#!/usr/bin/python
"""What ndk-integrate find says of the NDKs of a machine, as facts."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: ndk_facts
short_description: Tells which Android NDKs are on a machine
description:
  - Runs C(ndk-integrate find --all --json) and gives what it says as facts.
  - Changes nothing, and needs no root.
  - That no NDK is found is no failure. The facts say so, and why each directory is not good.
options:
  search:
    description:
      - Directories to look in, best place first.
      - Without it the usual places are looked at, and the environment variables that name an NDK.
    type: list
    elements: path
    default: []
  supported:
    description:
      - Releases that are asked for, as C(r10e;r11c), C(r21*), C(r21..r25), C(r21+) or C(27.0.12077973).
      - Without it any release that can be read is good.
    type: str
  read_only:
    description:
      - Accept an NDK that the user may not write to.
    type: bool
    default: false
  executable:
    description:
      - The program on the target, by its name or its path.
    type: path
    default: ndk-integrate
attributes:
  check_mode:
    description: The module changes nothing, so it does the same in check mode.
    support: full
  diff_mode:
    description: There is never a difference.
    support: none
notes:
  - Projects are not asked what they pin.
"""

EXAMPLES = r"""
- name: Ask which NDKs there are
  ndk_utils.integrate.ndk_facts:
    supported: r21..r25
    read_only: true

- name: Show the first good one
  ansible.builtin.debug:
    msg: "{{ ndk_integrate.ndk or 'no NDK' }}"
"""

RETURN = r"""
ansible_facts:
  description: The facts.
  returned: success
  type: dict
  contains:
    ndk_integrate:
      description: What C(ndk-integrate find --all --json) printed.
      returned: always
      type: dict
      contains:
        schema:
          description: The version of the form of these facts.
          returned: always
          type: int
          sample: 1
        ndk:
          description: The path of the NDK found, or null.
          returned: always
          type: str
          sample: /opt/android-ndk-r11c
        candidates:
          description: The verdict on each directory that was looked at.
          returned: always
          type: list
          elements: dict
          contains:
            schema:
              description: The version of the form of this object.
              returned: always
              type: int
              sample: 1
            path:
              description: The directory.
              returned: always
              type: str
              sample: /opt/android-ndk-r11c
            status:
              description: One of C(ok), C(nok), C(notwritable) and C(unsupported).
              returned: always
              type: str
              sample: ok
            reason:
              description: Why, in one word.
              returned: always
              type: str
              sample: ok
            release:
              description: The release, or null.
              returned: always
              type: str
              sample: r11c
            revision:
              description: The revision, or null.
              returned: always
              type: str
              sample: 11.2.2725575
            message:
              description: Why, in a sentence.
              returned: always
              type: str
              sample: r11c (11.2.2725575)
            source:
              description: Where the directory comes from.
              returned: always
              type: str
              sample: from ANDROID_NDK_HOME
            prerelease:
              description: Whether it is a beta or the like.
              returned: always
              type: bool
              sample: false
            notes:
              description: What rejects nothing, each with C(reason) and C(message).
              returned: always
              type: list
              elements: dict
              sample: []
        warnings:
          description: What looks wrong in the environment.
          returned: always
          type: list
          elements: str
          sample: []
        nearest:
          description: Where none was found, the path of the one nearest to what was asked for, or null.
          returned: always
          type: str
          sample: /opt/android-ndk-r21e
msg:
  description: What went wrong.
  returned: failure
  type: str
outcome:
  description: How it failed, as the program says.
  returned: failure
  type: str
  sample: wrong-usage
rc:
  description: The program's exit code.
  returned: failure
  type: int
  sample: 2
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ndk_utils.integrate.plugins.module_utils.program import EXECUTABLE, ask


def main():
    module = AnsibleModule(
        argument_spec=dict(
            search=dict(type="list", elements="path", default=[]),
            supported=dict(type="str"),
            read_only=dict(type="bool", default=False),
            executable=EXECUTABLE,
        ),
        supports_check_mode=True,
    )
    options = ["--all", "--no-project"]
    for directory in module.params["search"]:
        options += ["--search", directory]
    if module.params["supported"] is not None:
        options += ["--supported", module.params["supported"]]
    if module.params["read_only"]:
        options.append("--read-only")
    answer = ask(module, "find", *options)
    if "candidates" not in answer.told:
        module.fail_json(msg=answer.message, outcome="failed", rc=answer.code)
    module.exit_json(changed=False, ansible_facts={"ndk_integrate": answer.told})


if __name__ == "__main__":
    main()

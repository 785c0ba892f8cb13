"""Runs of the collection's modules by Ansible, on this machine, and what a module documents."""

import glob
import json
import os
import shutil
import subprocess

import yaml

from world import PROGRAM, ROOT

FLEET = os.path.join(ROOT, "fleet")
COLLECTION = "ndk_utils.integrate"

PLAYBOOK = """\
- name: One module
  hosts: localhost
  gather_facts: false
  tasks:
    - name: The act
      {module}: "{{{{ arguments }}}}"
      register: done
      ignore_errors: true
      environment: "{{{{ variables }}}}"
    - name: What it returned
      ansible.builtin.copy:
        content: "{{{{ done | to_json }}}}"
        dest: "{{{{ returned }}}}"
        mode: "0600"
      check_mode: false
      diff: false
"""
# What Ansible itself adds to a result.
OF_ANSIBLE = {
    "changed", "failed", "invocation", "warnings", "deprecations", "exception", "ansible_facts",
    "_ansible_no_log",
}


def install_collection(directory):
    """Puts the collection where Ansible finds it, below the directory, for every user."""
    to = os.path.join(directory, "ansible_collections", "ndk_utils", "integrate")
    shutil.copytree(FLEET, to, ignore=shutil.ignore_patterns("__pycache__"))
    return directory


class Modules:
    """Runs modules; what is needed for that lies in `directory`."""

    def __init__(self, directory):
        self.directory = directory
        self.collections = install_collection(os.path.join(directory, "collections"))

    def run(self, module, *options, variables=None, before=(), **arguments):
        """What the module returned. The options are those of ansible-playbook; `before` stands in
        front of its command line."""
        playbook = os.path.join(self.directory, module + ".yml")
        returned = os.path.join(self.directory, "returned.json")
        with open(playbook, "w", encoding="utf-8") as file:
            file.write(PLAYBOOK.format(module=f"{COLLECTION}.{module}"))
        arguments = {"executable": PROGRAM, **arguments}
        extra = {"arguments": arguments, "variables": variables or {}, "returned": returned}
        home = os.path.join(self.directory, "home")
        done = subprocess.run(
            [*before, "ansible-playbook", "-i", "localhost,", "-c", "local", playbook, *options,
             "-e", json.dumps(extra)],
            env={
                **os.environ,
                "HOME": home,
                "LC_ALL": "C.UTF-8",
                "ANSIBLE_HOME": os.path.join(home, "ansible"),
                "ANSIBLE_LOCAL_TEMP": os.path.join(home, "local"),
                "ANSIBLE_REMOTE_TEMP": os.path.join(home, "remote"),
                "ANSIBLE_COLLECTIONS_PATH": self.collections,
                "ANSIBLE_PYTHON_INTERPRETER": "/usr/bin/python3",
                "ANSIBLE_NOCOLOR": "1",
            },
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=120,
            check=False,
        )
        if done.returncode != 0:
            raise AssertionError(f"ansible-playbook: {done.returncode}\n{done.stdout}")
        with open(returned, encoding="utf-8") as file:
            return json.load(file)


def documented(module):
    """The DOCUMENTATION and the RETURN of a module."""
    with open(os.path.join(FLEET, "plugins", "modules", module + ".py"), encoding="utf-8") as file:
        text = file.read()
    blocks = [text.split(f'{name} = r"""\n')[1].split('\n"""')[0] for name in ("DOCUMENTATION", "RETURN")]
    return [yaml.safe_load(block) for block in blocks]


TYPES = {"str": str, "int": int, "float": (int, float), "bool": bool, "list": list, "dict": dict}


def undocumented(values, documentation, where=""):
    """What of the values is not as their documentation says, each in a line: one that it does not
    name, one of another type, and one that it promises always and that is not there."""
    wrong = [f"{where}{name}: not documented" for name in values.keys() - documentation.keys()]
    for name, said in documentation.items():
        if name not in values:
            if said["returned"] == "always":
                wrong.append(f"{where}{name}: always promised, and missing")
            continue
        wrong += unlike(values[name], said, f"{where}{name}")
    return wrong


def unlike(value, said, where):
    if value is None:
        says_null = "null" in json.dumps(said["description"])
        return [] if says_null else [f"{where}: null"]
    is_right = isinstance(value, TYPES[said["type"]])
    if not is_right or (isinstance(value, bool) and said["type"] != "bool"):
        return [f"{where}: a {type(value).__name__}, not a {said['type']}"]
    if said["type"] == "list":
        elements = {"type": said["elements"], "description": "", "contains": said.get("contains")}
        return [line for each in value for line in unlike(each, elements, f"{where}[]")]
    if said["type"] == "dict" and said.get("contains"):
        return undocumented(value, said["contains"], f"{where}.")
    return []


def modules():
    return [os.path.basename(path)[:-3] for path in glob.glob(f"{FLEET}/plugins/modules/*.py")]

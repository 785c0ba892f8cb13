"""What ndk-integrate makes of installation.toml: its messages for a wrong one, and the values that
reach the plug-in from a good one, as its log tells them."""

import os
import unittest

from ndk_integrate_world import (
    ANDROID,
    COMPONENT,
    COMPONENT_LINE,
    LINUX,
    NDK_LINES,
    WHOLE_INSTALLATION,
    EndToEndTest,
    World,
    installation,
    package_filled,
    small_tree,
    without,
)

VARIABLES = (
    "NDK_PATH, NDK_DEFAULT_SEARCH_PATH_LINUX, NDK_SUPPORTED_VERSIONS, NDK_INTEGRATION_ENABLED, "
    "NDK_COMPONENT_PATTERNS, VORN_INSTALL_DIR"
)
COMPONENT_KEYS = "id, version, package_number, subdir, install_condition, selected"
NEEDED_KEYS = "id, version, package_number and subdir"
NOT_DONE = "ndk-integrate: not done: "

# One value of each TOML type, and how a message calls it.
TYPES = {
    "{ a = 1 }": "a table",
    '["a"]': "an array",
    '"a"': "a text",
    "7": "an integer",
    "1.5": "a floating-point number",
    "true": "a boolean",
    "2016-03-22": "a date or time",
    "11:04:54": "a date or time",
    "2016-03-22T11:04:54Z": "a date or time",
}


class WrongInstallation(EndToEndTest):
    """Each is one file, one run, one message, and nothing touched."""

    def run_with(self, toml):
        return World(self, small_tree(toml=toml)).install()

    def assert_wrong(self, toml, line, message):
        err = f"ndk-integrate: WORLD/installation.toml:{line}: {message}\n"
        with self.subTest(toml):
            self.assert_outcome(self.run_with(toml), code=2, err=err)

    def assert_bad_toml(self, toml, line):
        """The library that reads TOML has its own words for what it expected."""
        with self.subTest(toml[:80]):
            outcome = self.run_with(toml)
            begin = f"ndk-integrate: WORLD/installation.toml:{line}: not valid TOML: "
            self.assertEqual(outcome.err[: len(begin)], begin)
            self.assertRegex(outcome.err[len(begin) :], r"\A[^\x00-\x1f\x7f]+\n\Z")
            self.assert_outcome(outcome, code=2, err=outcome.err)


class BadToml(WrongInstallation):
    def test_syntax(self):
        self.assert_bad_toml("no key and value\n", 1)
        self.assert_bad_toml("[session\n", 1)
        self.assert_bad_toml('[session]\n\nNDK_PATH = "no end\n', 3)
        self.assert_bad_toml("[session]\nNDK_PATH =\n", 2)
        self.assert_bad_toml("[session]\nNDK_PATH = 'a' 'b'\n", 2)
        self.assert_bad_toml("[session]\r\n\r\nNDK_PATH = no text\r\n", 3)
        self.assert_bad_toml('[session]\nNDK_PATH = "\\x"\n', 2)

    def test_no_end_of_array(self):
        self.assert_bad_toml('[session]\nNDK_PATH = [\n  "a",\n  "b"\n', 4)

    def test_key_twice(self):
        self.assert_bad_toml('[session]\nNDK_PATH = "a"\nNDK_PATH = "b"\n', 3)
        self.assert_bad_toml('[session]\nNDK_PATH = "a"\n"NDK_PATH" = "b"\n', 3)
        self.assert_bad_toml("[session]\n[session]\n", 2)
        self.assert_bad_toml('[[component]]\nid = "a"\nid = "b"\n', 3)

    def test_table_and_array(self):
        self.assert_bad_toml("[component]\n[[component]]\n", 2)

    def test_control_character(self):
        self.assert_bad_toml('[session]\nNDK_PATH = "a\x07b"\n', 2)
        self.assert_bad_toml('[session]\nNDK_PATH = "a\x00b"\n', 2)

    def test_control_character_in_key_twice(self):
        self.assert_bad_toml('[session]\n"a\\u001bb" = 1\n"a\\u001bb" = 1\n', 3)

    def test_invalid_utf_8(self):
        for toml in [b'[session]\nNDK_PATH = "caf\xe9"\n', b"[session]\n# caf\xe9\n"]:
            self.assert_bad_toml(toml, 2)

    def test_deep_array(self):
        self.assert_bad_toml("\nsession = " + "[" * 100000, 2)

    def test_deep_key(self):
        self.assert_bad_toml("\n" + ".".join(["a"] * 100000) + " = 1\n", 2)

    def test_deep_table(self):
        self.assert_bad_toml("\n[" + ".".join(["a"] * 100000) + "]\n", 2)


class UnknownKey(WrongInstallation):
    def test_at_top_level(self):
        expected = "expected [session] or [[component]]"
        for toml, line, key in [
            ("title = 1\n", 1, "title"),
            (installation() + "\n[extra]\na = 1\n", 14, "extra"),
            ("[Session]\n", 1, "Session"),
            ("\n[[components]]\n", 2, "components"),
            ("a.b = 1\n", 1, "a"),
            ('"" = 1\n', 1, ""),
            ('"two\\nlines\\u001b" = 1\n', 1, r"two\nlines\x1b"),
        ]:
            self.assert_wrong(toml, line, f"unknown key '{key}', {expected}")

    def test_in_session(self):
        for key, name in [
            ("ndk_path", "ndk_path"),
            ("NDK_PATH_STATUS", "NDK_PATH_STATUS"),
            ("'NDK_PATH '", "NDK_PATH "),
            ('"two\\nlines"', r"two\nlines"),
        ]:
            message = f"unknown key '{name}' in [session], expected one of {VARIABLES}"
            self.assert_wrong(f"[session]\n\n{key} = 'a'\n", 3, message)

    def test_in_component(self):
        for key, name in [("Id", "Id"), ("name", "name"), ('"a\\tb"', r"a\tb")]:
            message = f"unknown key '{name}' in a [[component]], expected one of {COMPONENT_KEYS}"
            self.assert_wrong(COMPONENT + f"{key} = 'a'\n", 6, message)

    def test_in_second_component(self):
        message = f"unknown key 'size' in a [[component]], expected one of {COMPONENT_KEYS}"
        self.assert_wrong(COMPONENT + "\n" + COMPONENT + "size = 1\n", 12, message)

    def test_table_in_component(self):
        message = f"unknown key 'more' in a [[component]], expected one of {COMPONENT_KEYS}"
        self.assert_wrong(COMPONENT + "[component.more]\na = 1\n", 6, message)


class WrongType(WrongInstallation):
    def test_session(self):
        for value, kind in TYPES.items():
            if kind != "a table":
                message = f"'session' is {kind}, expected a table [session]"
                self.assert_wrong(f"session = {value}\n", 1, message)

    def test_session_twice(self):
        message = "'session' is an array, expected a table [session]"
        self.assert_wrong("\n[[session]]\n[[session]]\n", 2, message)

    def test_component(self):
        for value, kind in TYPES.items():
            if kind != "an array":
                message = f"'component' is {kind}, expected tables [[component]]"
                self.assert_wrong(f"component = {value}\n", 1, message)

    def test_component_table(self):
        message = "'component' is a table, expected tables [[component]]"
        self.assert_wrong("\n[component]\nid = 'a'\n", 2, message)

    def test_element_of_component(self):
        for value, kind in TYPES.items():
            if kind != "a table":
                message = f"'component' holds {kind}, expected tables [[component]]"
                self.assert_wrong(f"component = [\n  {value}\n]\n", 2, message)

    def test_session_variables(self):
        for name in VARIABLES.split(", "):
            for value, kind in TYPES.items():
                if kind not in ("a text", "an array"):
                    message = f"{name} is {kind}, expected a text or an array of texts"
                    self.assert_wrong(f"[session]\n{name} = {value}\n", 2, message)

    def test_elements_of_session_variables(self):
        for name in VARIABLES.split(", "):
            for value, kind in TYPES.items():
                if kind != "a text":
                    message = f"an element of {name} is {kind}, expected a text"
                    self.assert_wrong(f"[session]\n{name} = [\n  'a',\n  {value}\n]\n", 4, message)

    def test_component_texts(self):
        lines = COMPONENT.splitlines(keepends=True)
        for number, name in enumerate(NEEDED_KEYS.replace(" and", ",").split(", "), start=1):
            for value, kind in TYPES.items():
                if kind != "a text":
                    toml = "".join([*lines[:number], f"{name} = {value}\n", *lines[number + 1 :]])
                    self.assert_wrong(toml, number + 1, f"{name} is {kind}, expected a text")

    def test_component_booleans(self):
        for name in ["install_condition", "selected"]:
            for value, kind in [*TYPES.items(), ('"true"', "a text"), ("1", "an integer")]:
                if kind != "a boolean":
                    message = f"{name} is {kind}, expected true or false"
                    self.assert_wrong(COMPONENT + f"{name} = {value}\n", 6, message)


class WrongText(WrongInstallation):
    def test_nul(self):
        for name in VARIABLES.split(", "):
            message = f"{name} holds a NUL character, expected a text without one"
            self.assert_wrong(f'[session]\n{name} = "a\\u0000b"\n', 2, message)
            message = f"an element of {name} holds a NUL character, expected a text without one"
            self.assert_wrong(f'[session]\n{name} = ["a", "\\u0000"]\n', 2, message)

    def test_nul_in_component(self):
        lines = COMPONENT.splitlines(keepends=True)
        for number, name in enumerate(NEEDED_KEYS.replace(" and", ",").split(", "), start=1):
            toml = "".join([*lines[:number], f'{name} = "\\u0000"\n', *lines[number + 1 :]])
            message = f"{name} holds a NUL character, expected a text without one"
            self.assert_wrong(toml, number + 1, message)

    def test_separator_in_element(self):
        for name in VARIABLES.split(", "):
            for element in ["b;c", ";", "b;"]:
                message = (
                    f"an element of {name} holds ';', expected one entry: '{element}' would become "
                    "several"
                )
                self.assert_wrong(f'[session]\n{name} = [\n"a",\n"{element}"]\n', 4, message)

    def test_separator_and_control_character_in_element(self):
        message = (
            "an element of NDK_PATH holds ';', expected one entry: 'a\\n;' would become several"
        )
        self.assert_wrong('[session]\nNDK_PATH = ["a\\n;"]\n', 2, message)


class IncompleteComponent(WrongInstallation):
    def test_each_key(self):
        lines = COMPONENT.splitlines(keepends=True)
        for number, name in enumerate(NEEDED_KEYS.replace(" and", ",").split(", "), start=1):
            toml = "\n\n" + "".join([*lines[:number], *lines[number + 1 :]])
            message = f"a [[component]] without '{name}', expected {NEEDED_KEYS}"
            self.assert_wrong(toml, 3, message)

    def test_empty_component(self):
        message = f"a [[component]] without 'id', expected {NEEDED_KEYS}"
        self.assert_wrong("[[component]]\n", 1, message)
        self.assert_wrong("component = [{}]\n", 1, message)

    def test_second_component(self):
        message = f"a [[component]] without 'id', expected {NEEDED_KEYS}"
        self.assert_wrong(COMPONENT + "\n[[component]]\nversion = '1'\n", 7, message)


class UnreadableFile(EndToEndTest):
    def assert_unreadable(self, outcome, name, why):
        self.assert_outcome(outcome, code=2, err=f"ndk-integrate: cannot read {name}: {why}\n")

    def test_missing(self):
        world = World(self, without(small_tree(), "installation.toml"))
        self.assert_unreadable(
            world.install(), "WORLD/installation.toml", "No such file or directory"
        )

    def test_missing_relative(self):
        world = World(self, small_tree())
        outcome = world.run("install", "other.toml", cwd=world.dir)
        self.assert_unreadable(outcome, "other.toml", "No such file or directory")

    def test_directory(self):
        world = World(self, small_tree())
        self.assert_unreadable(
            world.run("install", world.path("ndk")), "WORLD/ndk", "Is a directory"
        )

    def test_file_in_place_of_directory(self):
        world = World(self, small_tree())
        name = world.path("installation.toml/more.toml")
        outcome = world.run("install", name)
        self.assert_unreadable(outcome, "WORLD/installation.toml/more.toml", "Not a directory")

    def test_not_permitted(self):
        world = World(self, small_tree())
        os.chmod(world.path("installation.toml"), 0)
        outcome = world.install(unprivileged=True)
        self.assert_unreadable(outcome, "WORLD/installation.toml", "Permission denied")

    def test_dangling_link(self):
        world = World(self, without(small_tree(), "installation.toml"))
        os.symlink("nowhere", world.path("installation.toml"))
        self.assert_unreadable(
            world.install(), "WORLD/installation.toml", "No such file or directory"
        )

    def test_control_characters_in_name(self):
        world = World(self, small_tree())
        outcome = world.run("install", "two\nlines\x1b", cwd=world.dir)
        self.assert_unreadable(outcome, r"two\nlines\x1b", "No such file or directory")


class GoodInstallation(EndToEndTest):
    """Each ends in a whole installation."""

    def assert_installs(self, toml, name="world"):
        with self.subTest(toml):
            world = World(self, small_tree(toml=toml), name=name)
            self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())

    def test_array_or_text(self):
        self.assert_installs(installation(NDK_SUPPORTED_VERSIONS='"r11b;r11c"'))
        self.assert_installs(installation(NDK_SUPPORTED_VERSIONS='["r11b", "r11c"]'))
        self.assert_installs(installation(NDK_COMPONENT_PATTERNS='"-none-;-ndk-"'))
        self.assert_installs(installation(NDK_COMPONENT_PATTERNS='["-none-", "-ndk-"]'))
        self.assert_installs(installation(NDK_INTEGRATION_ENABLED='["yes"]'))

    def test_forms_of_text(self):
        for text in ['"r11c"', "'r11c'", '"""\nr11c"""', "'''\nr11c'''", r'"r11\u0063"']:
            self.assert_installs(installation(NDK_SUPPORTED_VERSIONS=text))

    def test_forms_of_file(self):
        toml = installation()
        self.assert_installs(toml.rstrip("\n"))
        self.assert_installs(toml.replace("\n", "\r\n"))
        self.assert_installs("\ufeff" + toml)
        self.assert_installs("# café\n" + toml.replace("[session]\n", "[session] # here\n"))

    def test_forms_of_component(self):
        inline = (
            'component = [{id = "nox-ndk-5", version = "5.0.3", package_number = "42", '
            'subdir = "/cc"}]\n'
        )
        self.assert_installs(inline + installation(""))
        session = installation("").replace("[session]\n", "").strip()
        dotted = "".join(f"session.{line}\n" for line in session.splitlines())
        self.assert_installs(dotted + COMPONENT)

    def test_booleans(self):
        for line in ["", "selected = true\n", "install_condition = true\n"]:
            self.assert_installs(installation(COMPONENT + line))

    def test_several_components(self):
        skipped = COMPONENT.replace("5.0.3", "1.1.1")
        self.assert_installs(
            installation(
                skipped.replace("-ndk-", "-")
                + skipped
                + "selected = false\n"
                + skipped
                + "install_condition = false\n"
                + COMPONENT
                + skipped
            )
        )

    def test_blank_in_every_path(self):
        self.assert_installs(installation(), name="a world  with blanks")

    def test_separator_in_world_name(self):
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX=None, NDK_PATH='"ndk"')
        self.assert_installs(toml, name="a;b")

    def test_unicode_in_world_name(self):
        self.assert_installs(installation(), name="café")


class Directories(EndToEndTest):
    """Relative ones are taken from the file's own directory, absolute ones stay as they are."""

    # What the file says, and what reaches the plug-in.
    forms = {
        '"ndk"': "WORLD/ndk",
        '"./ndk"': "WORLD/ndk",
        '"ndk/"': "WORLD/ndk/",
        '"a b/../ndk"': "WORLD/a b/../ndk",
        '"../ndk"': "WORLD/../ndk",
        '"."': "WORLD",
        '"~/ndk"': "WORLD/~/ndk",
        '"/not there/ndk"': "/not there/ndk",
        '"/not there//./ndk/"': "/not there//./ndk/",
        '["ndk"]': "WORLD/ndk",
        '["/not there/ndk"]': "/not there/ndk",
    }

    def reaches_plugin(self, name, value):
        """The value of a variable as the message about a useless NDK shows it."""
        toml = installation(**{"NDK_DEFAULT_SEARCH_PATH_LINUX": None, name: value})
        world = World(self, without(small_tree(toml=toml), "ndk/ndk-build"))
        outcome = world.install(cwd="/")
        if name == "NDK_PATH":
            begin = NOT_DONE + "NDK_PATH is "
            end = ", but it is no NDK directory; -v shows what was found there\n"
        else:
            begin = (
                NOT_DONE
                + "no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX ("
            )
            end = (
                ") is a writable NDK of a supported release (r11b;r11c); "
                "-v shows what was found in each\n"
            )
        value = outcome.err[len(begin) : -len(end)]
        self.assert_outcome(outcome, code=1, err=begin + value + end)
        return value

    def test_search_path(self):
        for value, expected in {
            **self.forms,
            '"ndk;/a;b"': "WORLD/ndk;/a;WORLD/b",
            '["ndk", "/a", "b"]': "WORLD/ndk;/a;WORLD/b",
            '";ndk;;/a;"': ";WORLD/ndk;;/a;",
            '["", "ndk"]': ";WORLD/ndk",
        }.items():
            with self.subTest(value):
                found = self.reaches_plugin("NDK_DEFAULT_SEARCH_PATH_LINUX", value)
                self.assertEqual(found, expected)

    def test_ndk_path(self):
        for value, expected in self.forms.items():
            with self.subTest(value):
                self.assertEqual(self.reaches_plugin("NDK_PATH", value), expected)

    def test_ndk_path_with_separator(self):
        # No list: a directory whose name holds ";".
        for value, expected in {'"/ndk;5"': "/ndk;5", '"ndk;5"': "WORLD/ndk;5"}.items():
            with self.subTest(value):
                self.assertEqual(self.reaches_plugin("NDK_PATH", value), expected)

    def test_install_dir(self):
        for value, expected in {
            '"not package"': "WORLD/not package",
            '"./not package//"': "WORLD/not package",
            '"."': "WORLD",
            '"/not there"': "/not there",
            '""': "",
        }.items():
            with self.subTest(value):
                toml = installation(VORN_INSTALL_DIR=value, NDK_INTEGRATION_ENABLED='"no"')
                outcome = World(self, small_tree(toml=toml)).install(cwd="/")
                err = (
                    f"{NOT_DONE}the compiler package is not installed: "
                    f"there is no directory {expected}/cc "
                    "(VORN_INSTALL_DIR followed by the component's subdir)\n"
                )
                self.assert_outcome(outcome, code=1, out=NDK_LINES + COMPONENT_LINE, err=err)

    def test_install_dir_with_doubled_separators(self):
        toml = installation(VORN_INSTALL_DIR='"./package//"')
        world = World(self, small_tree(toml=toml))
        self.assert_outcome(
            world.install(cwd="/"), out=WHOLE_INSTALLATION, changed=package_filled()
        )

    def test_file_elsewhere(self):
        toml = installation(
            NDK_DEFAULT_SEARCH_PATH_LINUX='["../ndk"]', VORN_INSTALL_DIR='"../package"'
        )
        world = World(self, {**small_tree(), "settings/i.toml": toml})
        outcome = world.run("install", "settings/i.toml", cwd=world.dir)
        self.assert_outcome(
            outcome,
            out=WHOLE_INSTALLATION.replace("WORLD/", "WORLD/settings/../"),
            changed={
                file: entry.replace("WORLD/", "WORLD/settings/../")
                for file, entry in package_filled().items()
            },
        )


class SparseInstallation(EndToEndTest):
    """What is left out reads as "": such a file is no error, but it asks for nothing."""

    none_needed = "NDK: none, and none needed: integration is disabled\n"

    def assert_stops(self, toml, out, patterns):
        why = f"none has one of {patterns} in its id"
        if not patterns:
            why = "NDK_COMPONENT_PATTERNS is empty"
        err = f"{NOT_DONE}no selected component asks for the NDK integration: {why}\n"
        with self.subTest(toml):
            outcome = World(self, small_tree(toml=toml)).install()
            self.assert_outcome(outcome, code=1, out=out, err=err)

    def test_empty(self):
        for toml in ["", "\n\n", "# nothing\n", "[session]\n", "component = []\n"]:
            self.assert_stops(toml, self.none_needed, "")

    def test_no_session(self):
        self.assert_stops(COMPONENT, self.none_needed, "")

    def test_no_patterns(self):
        self.assert_stops(installation(NDK_COMPONENT_PATTERNS=None), NDK_LINES, "")

    def test_empty_component_texts(self):
        keys = ["id", "version", "package_number", "subdir"]
        component = "[[component]]\n" + "".join(f"{key} = ''\n" for key in keys)
        self.assert_stops(installation(component), NDK_LINES, "-ndk-")

    def test_no_subdir_text(self):
        toml = installation(COMPONENT.replace('"/cc"', '""'), VORN_INSTALL_DIR='"package/cc"')
        world = World(self, small_tree(toml=toml))
        self.assertIn(ANDROID, world.tree())
        self.assertIn(LINUX, world.tree())
        self.assert_outcome(world.install(), out=WHOLE_INSTALLATION, changed=package_filled())


if __name__ == "__main__":
    unittest.main()

"""What ndk-integrate makes of installation.toml: its messages for a wrong one, and the values that
reach the plug-in from a good one, as its log tells them."""

import itertools
import unittest

from end_to_end import EndToEndTest
from messages import (
    NO_NDK, NO_PACKAGE, Install, bad_ndk, cannot_read_installation, no_ndk, no_ndk_found,
    not_selected, refused, said,
)
from world import COMPONENT, DISABLED, filled, installation, small_tree, without

VARIABLES = [
    "NDK_PATH", "NDK_DEFAULT_SEARCH_PATH_LINUX", "NDK_SUPPORTED_VERSIONS",
    "NDK_INTEGRATION_ENABLED", "NDK_COMPONENT_PATTERNS", "VORN_INSTALL_DIR",
]
NEEDED_KEYS = ["id", "version", "package_number", "subdir"]
BOOLEANS = ["install_condition", "selected"]
COMPONENT_LINES = COMPONENT.splitlines(keepends=True)

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


def all_but(*kinds):
    return [(value, kind) for value, kind in TYPES.items() if kind not in kinds]


class WrongInstallation(EndToEndTest):
    """Each is one file, one run, one message, and nothing touched."""

    def setUp(self):
        self.here = self.small_world()

    def run_with(self, toml):
        self.here.write("installation.toml", toml)
        return self.here.install()

    def assert_wrong(self, *rows):
        """Each row is a file, the line in it, and what is wrong there."""
        for toml, line, message in rows:
            with self.subTest(toml):
                err = said(f"WORLD/installation.toml:{line}: {message}")
                self.assert_outcome(self.run_with(toml), code=2, err=err, kept=True)

    def test_bad_toml(self):
        deep = ".".join(["a"] * 100000)
        for toml, line in [
            ("no key and value\n", 1),
            ("[session\n", 1),
            ('[session]\n\nNDK_PATH = "no end\n', 3),
            ("[session]\nNDK_PATH =\n", 2),
            ("[session]\nNDK_PATH = 'a' 'b'\n", 2),
            ("[session]\r\n\r\nNDK_PATH = no text\r\n", 3),
            ('[session]\nNDK_PATH = "\\x"\n', 2),
            ('[session]\nNDK_PATH = [\n  "a",\n  "b"\n', 4),
            ('[session]\nNDK_PATH = "a"\nNDK_PATH = "b"\n', 3),
            ('[session]\nNDK_PATH = "a"\n"NDK_PATH" = "b"\n', 3),
            ("[session]\n[session]\n", 2),
            ('[[component]]\nid = "a"\nid = "b"\n', 3),
            ("[component]\n[[component]]\n", 2),
            ('[session]\nNDK_PATH = "a\x07b"\n', 2),
            ('[session]\nNDK_PATH = "a\x00b"\n', 2),
            ('[session]\n"a\\u001bb" = 1\n"a\\u001bb" = 1\n', 3),
            (b'[session]\nNDK_PATH = "caf\xe9"\n', 2),
            (b"[session]\n# caf\xe9\n", 2),
            ("\nsession = " + "[" * 100000, 2),
            (f"\n{deep} = 1\n", 2),
            (f"\n[{deep}]\n", 2),
        ]:
            with self.subTest(toml[:80]):
                # The library that reads TOML has its own words for what it expected.
                outcome = self.run_with(toml)
                begin = said(f"WORLD/installation.toml:{line}: not valid TOML: ").rstrip("\n")
                self.assertEqual(outcome.err[: len(begin)], begin)
                self.assertRegex(outcome.err[len(begin) :], r"\A[^\x00-\x1f\x7f]+\n\Z")
                self.assert_outcome(outcome, code=2, err=outcome.err, kept=True)

    def test_unknown_key_at_top_level(self):
        self.assert_wrong(*(
            (toml, line, f"unknown key '{key}', expected [session] or [[component]]")
            for toml, line, key in [
                ("title = 1\n", 1, "title"),
                (installation() + "\n[extra]\na = 1\n", 14, "extra"),
                ("[Session]\n", 1, "Session"),
                ("\n[[components]]\n", 2, "components"),
                ("a.b = 1\n", 1, "a"),
                ('"" = 1\n', 1, ""),
                ('"two\\nlines\\u001b" = 1\n', 1, r"two\nlines\x1b"),
            ]
        ))

    def test_unknown_key_in_session(self):
        expected = f"in [session], expected one of {', '.join(VARIABLES)}"
        self.assert_wrong(*(
            (f"[session]\n\n{key} = 'a'\n", 3, f"unknown key '{name}' {expected}")
            for key, name in [
                ("ndk_path", "ndk_path"),
                ("NDK_PATH_STATUS", "NDK_PATH_STATUS"),
                ("'NDK_PATH '", "NDK_PATH "),
                ('"two\\nlines"', r"two\nlines"),
            ]
        ))

    def test_unknown_key_in_component(self):
        expected = f"in a [[component]], expected one of {', '.join(NEEDED_KEYS + BOOLEANS)}"
        self.assert_wrong(*(
            (COMPONENT + text, line, f"unknown key '{name}' {expected}")
            for text, line, name in [
                ("Id = 'a'\n", 6, "Id"),
                ("name = 'a'\n", 6, "name"),
                ('"a\\tb" = \'a\'\n', 6, r"a\tb"),
                (f"\n{COMPONENT}size = 1\n", 12, "size"),
                ("[component.more]\na = 1\n", 6, "more"),
            ]
        ))

    def test_type_of_session(self):
        expected = "expected a table [session]"
        self.assert_wrong(
            *(
                (f"session = {value}\n", 1, f"'session' is {kind}, {expected}")
                for value, kind in all_but("a table")
            ),
            ("\n[[session]]\n[[session]]\n", 2, f"'session' is an array, {expected}"),
        )

    def test_type_of_component(self):
        expected = "expected tables [[component]]"
        self.assert_wrong(
            *(
                (f"component = {value}\n", 1, f"'component' is {kind}, {expected}")
                for value, kind in all_but("an array")
            ),
            ("\n[component]\nid = 'a'\n", 2, f"'component' is a table, {expected}"),
            *(
                (f"component = [\n  {value}\n]\n", 2, f"'component' holds {kind}, {expected}")
                for value, kind in all_but("a table")
            ),
        )

    def test_type_of_session_variable(self):
        for name in VARIABLES:
            expected = "expected a text or an array of texts"
            self.assert_wrong(
                *(
                    (f"[session]\n{name} = {value}\n", 2, f"{name} is {kind}, {expected}")
                    for value, kind in all_but("a text", "an array")
                ),
                *(
                    (f"[session]\n{name} = [\n  'a',\n  {value}\n]\n", 4,
                     f"an element of {name} is {kind}, expected a text")
                    for value, kind in all_but("a text")
                ),
            )

    def test_type_in_component(self):
        for number, name in enumerate(NEEDED_KEYS, start=1):
            before, after = COMPONENT_LINES[:number], COMPONENT_LINES[number + 1 :]
            self.assert_wrong(*(
                ("".join([*before, f"{name} = {value}\n", *after]), number + 1,
                 f"{name} is {kind}, expected a text")
                for value, kind in all_but("a text")
            ))
        values = [*all_but("a boolean"), ('"true"', "a text"), ("1", "an integer")]
        self.assert_wrong(*(
            (COMPONENT + f"{name} = {value}\n", 6, f"{name} is {kind}, expected true or false")
            for name, (value, kind) in itertools.product(BOOLEANS, values)
        ))

    def test_nul(self):
        why = "holds a NUL character, expected a text without one"
        for name in VARIABLES:
            self.assert_wrong(
                (f'[session]\n{name} = "a\\u0000b"\n', 2, f"{name} {why}"),
                (f'[session]\n{name} = ["a", "\\u0000"]\n', 2, f"an element of {name} {why}"),
            )
        for number, name in enumerate(NEEDED_KEYS, start=1):
            before, after = COMPONENT_LINES[:number], COMPONENT_LINES[number + 1 :]
            toml = "".join([*before, f'{name} = "\\u0000"\n', *after])
            self.assert_wrong((toml, number + 1, f"{name} {why}"))

    def test_separator_in_element(self):
        why = "holds ';', expected one entry: '{}' would become several"
        self.assert_wrong(
            *(
                (f'[session]\n{name} = [\n"a",\n"{element}"]\n', 4,
                 f"an element of {name} {why.format(element)}")
                for name, element in itertools.product(VARIABLES, ["b;c", ";", "b;"])
            ),
            ('[session]\nNDK_PATH = ["a\\n;"]\n', 2,
             f"an element of NDK_PATH {why}".format("a\\n;")),
        )

    def test_incomplete_component(self):
        expected = "expected id, version, package_number and subdir"
        for number, name in enumerate(NEEDED_KEYS, start=1):
            toml = "\n\n" + "".join(COMPONENT_LINES[:number] + COMPONENT_LINES[number + 1 :])
            self.assert_wrong((toml, 3, f"a [[component]] without '{name}', {expected}"))
        self.assert_wrong(*(
            (toml, line, f"a [[component]] without 'id', {expected}")
            for toml, line in [
                ("[[component]]\n", 1),
                ("component = [{}]\n", 1),
                (COMPONENT + "\n[[component]]\nversion = '1'\n", 7),
            ]
        ))

    def test_relative_directory_below_a_name_with_separator(self):
        message = (
            "a relative directory in NDK_DEFAULT_SEARCH_PATH_LINUX, expected absolute ones: the "
            "name of this file's own directory holds ';', which separates the entries of the list"
        )
        outcome = self.world(small_tree(), name="a;b").install()
        self.assert_outcome(outcome, code=2, err=said(f"WORLD/installation.toml:2: {message}"))


class UnreadableFile(EndToEndTest):
    def test_messages(self):
        no_such = "No such file or directory"
        for name, why in {
            "other.toml": no_such,
            "ndk": "Is a directory",
            "installation.toml/more.toml": "Not a directory",
            "dangling": no_such,
            "two\nlines\x1b": no_such,
        }.items():
            with self.subTest(name):
                world = self.small_world(dangling="-> nowhere")
                shown = name.replace("\n", "\\n").replace("\x1b", "\\x1b")
                for given, told in [(name, shown), (world.path(name), f"WORLD/{shown}")]:
                    outcome = world.run("install", given, cwd=world.dir)
                    err = cannot_read_installation(told, why)
                    self.assert_outcome(outcome, code=2, err=err, kept=True)

    def test_not_permitted(self):
        world = self.small_world(**{"installation.toml": (0, "")})
        err = cannot_read_installation(why="Permission denied")
        self.assert_outcome(world.install(unprivileged=True), code=2, err=err, kept=True)

    def test_json(self):
        outcome = self.small_world("[session]\nNDK_PATH = 1\n").install("--json")
        message = "NDK_PATH is an integer, expected a text or an array of texts"
        self.assert_outcome(outcome, code=2, err=said(f"WORLD/installation.toml:2: {message}"))


class GoodInstallation(EndToEndTest):
    """Each ends in a whole installation."""

    def assert_good(self, *tomls, name="world"):
        for toml in tomls:
            with self.subTest(toml):
                self.assert_installs(self.world(small_tree(toml), name=name))

    def test_array_or_text(self):
        self.assert_good(
            installation(NDK_SUPPORTED_VERSIONS='"r11b;r11c"'),
            installation(NDK_SUPPORTED_VERSIONS='["r11b", "r11c"]'),
            installation(NDK_COMPONENT_PATTERNS='"-none-;-ndk-"'),
            installation(NDK_COMPONENT_PATTERNS='["-none-", "-ndk-"]'),
            installation(NDK_INTEGRATION_ENABLED='["yes"]'),
        )

    def test_forms_of_text(self):
        for text in ['"r11c"', "'r11c'", '"""\nr11c"""', "'''\nr11c'''", r'"r11\u0063"']:
            self.assert_good(installation(NDK_SUPPORTED_VERSIONS=text))

    def test_forms_of_file(self):
        toml = installation()
        self.assert_good(
            toml.rstrip("\n"),
            toml.replace("\n", "\r\n"),
            "\ufeff" + toml,
            "# café\n" + toml.replace("[session]\n", "[session] # here\n"),
        )

    def test_forms_of_component(self):
        inline = 'id = "nox-ndk-5", version = "5.0.3", package_number = "42", subdir = "/cc"'
        session = installation("").replace("[session]\n", "").strip()
        dotted = "".join(f"session.{line}\n" for line in session.splitlines())
        texts = ["", "selected = true\n", "install_condition = true\n"]
        self.assert_good(
            f"component = [{{{inline}}}]\n" + installation(""),
            dotted + COMPONENT,
            *(installation(COMPONENT + text) for text in texts),
        )

    def test_several_components(self):
        skipped = COMPONENT.replace("5.0.3", "1.1.1")
        others = [skipped.replace("-ndk-", "-"), skipped + "selected = false\n"]
        others.append(skipped + "install_condition = false\n")
        self.assert_good(installation("".join(others) + COMPONENT + skipped))

    def test_names_of_world(self):
        self.assert_good(installation(), name="a world  with blanks")
        self.assert_good(installation(), name="café")
        toml = installation(NDK_DEFAULT_SEARCH_PATH_LINUX=None, NDK_PATH='"ndk"')
        self.assert_good(toml, name="a;b")

    def test_no_subdir_text(self):
        component = COMPONENT.replace('"/cc"', '""')
        self.assert_good(installation(component, VORN_INSTALL_DIR='"package/cc"'))

    def test_install_dir_with_doubled_separators(self):
        toml = installation(VORN_INSTALL_DIR='"./package//"')
        self.assert_installs(self.small_world(toml), cwd="/")


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

    def assert_reaches(self, values, name, report):
        """Each value is told as it reaches the plug-in, where there is no usable NDK."""
        for value, expected in values.items():
            with self.subTest(name, value=value):
                toml = installation(**{"NDK_DEFAULT_SEARCH_PATH_LINUX": None, name: value})
                world = self.world(without(small_tree(toml), "ndk/ndk-build"))
                self.assert_told(report(expected), world.install(cwd="/"), kept=True)

    def test_search_path(self):
        lists = {
            '"ndk;/a;b"': "WORLD/ndk;/a;WORLD/b",
            '["ndk", "/a", "b"]': "WORLD/ndk;/a;WORLD/b",
            '";ndk;;/a;"': ";WORLD/ndk;;/a;",
            '["", "ndk"]': ";WORLD/ndk",
        }
        self.assert_reaches(
            {**self.forms, **lists},
            "NDK_DEFAULT_SEARCH_PATH_LINUX",
            lambda value: no_ndk(no_ndk_found(value)),
        )

    def test_ndk_path(self):
        # No list: a directory whose name may hold ";".
        names = {'"/ndk;5"': "/ndk;5", '"ndk;5"': "WORLD/ndk;5"}
        self.assert_reaches(
            {**self.forms, **names}, "NDK_PATH", lambda value: no_ndk(bad_ndk(NO_NDK, value))
        )

    def test_install_dir(self):
        for value, expected in {
            '"not package"': "WORLD/not package",
            '"./not package//"': "WORLD/not package",
            '"."': "WORLD",
            '"/not there"': "/not there",
            '""': "",
        }.items():
            with self.subTest(value):
                world = self.small_world(installation(VORN_INSTALL_DIR=value))
                outcome = world.install(DISABLED, cwd="/")
                self.assert_told(refused(NO_PACKAGE.format(f"{expected}/cc")), outcome, kept=True)

    def test_file_elsewhere(self):
        dirs = {"NDK_DEFAULT_SEARCH_PATH_LINUX": '["../ndk"]', "VORN_INSTALL_DIR": '"../package"'}
        world = self.small_world(**{"settings/i.toml": installation(**dirs)})
        outcome = world.run("install", "settings/i.toml", cwd=world.dir)
        here = "WORLD/settings/../"
        changed = {
            file: entry.replace("WORLD/", here) for file, entry in filled(first=True).items()
        }
        out = Install().out().replace("WORLD/", here)
        self.assert_outcome(outcome, out=out, changed=changed)


class SparseInstallation(EndToEndTest):
    """What is left out reads as "": such a file is no error, but it asks for nothing."""

    def test_nothing_selected(self):
        empty = "[[component]]\n" + "".join(f"{key} = ''\n" for key in NEEDED_KEYS)
        none_needed = not_selected("", ndk="", enabled=False)
        for toml, report in [
            *((toml, none_needed) for toml in ["", "\n\n", "# nothing\n", "[session]\n"]),
            ("component = []\n", none_needed),
            (COMPONENT, none_needed),
            (installation(NDK_COMPONENT_PATTERNS=None), not_selected("")),
            (installation(empty), not_selected()),
        ]:
            with self.subTest(toml):
                self.assert_told(report, self.small_world(toml).install(), kept=True)


if __name__ == "__main__":
    unittest.main()

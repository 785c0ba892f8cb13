"""What ndk-integrate makes of installation.toml: its messages for a wrong one, and the values that
reach the plug-in from a good one, as its log tells them."""

import unittest

from end_to_end import EndToEndTest
from messages import (
    BLANK, NO_PACKAGE, Install, cannot_read_installation, did_you_mean, not_selected, refused, said,
)
from world import COMPONENT, DISABLED, component_with, filled, installation, small_tree, without

VARIABLES = [
    "NDK_PATH", "NDK_DEFAULT_SEARCH_PATH_LINUX", "NDK_SUPPORTED_VERSIONS",
    "NDK_INTEGRATION_ENABLED", "NDK_COMPONENT_PATTERNS", "VORN_INSTALL_DIR",
]
NEEDED_KEYS = ["id", "version", "package_number", "subdir"]
BOOLEANS = ["install_condition", "selected"]

# One value of each TOML type, and how a message calls it.
TYPES = {
    "{ a = 1 }": "a table",
    '["a"]': "an array",
    '"a"': "a text",
    "7": "an integer",
    "1.5": "a floating-point number",
    "true": "a boolean",
    "2016-03-22": "a date or time",
}


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
            ("no key and value\n", 1), ("[session\n", 1), ("[session]\n[session]\n", 2),
            ('[session]\n\nNDK_PATH = "no end\n', 3), ("[session]\nNDK_PATH =\n", 2),
            ("[session]\r\n\r\nNDK_PATH = no text\r\n", 3),
            ('[session]\nNDK_PATH = [\n  "a",\n  "b"\n', 4),
            ('[session]\nNDK_PATH = "a"\n"NDK_PATH" = "b"\n', 3),
            ('[[component]]\nid = "a"\nid = "b"\n', 3), ("[component]\n[[component]]\n", 2),
            ('[session]\nNDK_PATH = "a\x07b"\n', 2), ('[session]\nNDK_PATH = "a\x00b"\n', 2),
            ('[session]\n"a\\u001bb" = 1\n"a\\u001bb" = 1\n', 3), (b"[session]\n# caf\xe9\n", 2),
            ("\nsession = " + "[" * 100000, 2), (f"\n{deep} = 1\n", 2), (f"\n[{deep}]\n", 2),
        ]:
            with self.subTest(toml[:80]):
                # The library that reads TOML has its own words for what it expected.
                outcome = self.run_with(toml)
                begin = said(f"WORLD/installation.toml:{line}: not valid TOML: ").rstrip("\n")
                self.assertEqual(outcome.err[: len(begin)], begin)
                self.assertRegex(outcome.err[len(begin) :], r"\A[^\x00-\x1f\x7f]+\n\Z")
                self.assert_outcome(outcome, code=2, err=outcome.err, kept=True)

    def test_unknown_keys(self):
        top = ", expected [session] or [[component]]"
        session = f" in [session], expected one of {', '.join(VARIABLES)}"
        component = f" in a [[component]], expected one of {', '.join(NEEDED_KEYS + BOOLEANS)}"
        self.assert_wrong(*(
            (toml, line, f"unknown key '{key}'{expected}{did_you_mean(*meant)}")
            for toml, line, key, expected, *meant in [
                (installation() + "\n[extra]\na = 1\n", 14, "extra", top),
                ("[Session]\n", 1, "Session", top, "session"),
                ("\n[[components]]\n", 2, "components", top, "component"),
                ("a.b = 1\n", 1, "a", top),
                ('"two\\nlines\\u001b" = 1\n', 1, r"two\nlines\x1b", top),
                ("[session]\n\nndk_path = 'a'\n", 3, "ndk_path", session, "NDK_PATH"),
                ("[session]\nSTATUS = 'a'\n", 2, "STATUS", session),
                ("[session]\n'NDK_PATH ' = 'a'\n", 2, "NDK_PATH ", session, "NDK_PATH"),
                ("[session]\nVORN_INSTALDIR = 'a'\n", 2, "VORN_INSTALDIR", session,
                 "VORN_INSTALL_DIR"),
                (f"{COMPONENT}Id = 'a'\n", 6, "Id", component, "id"),
                (COMPONENT.replace("package_number", "package_nr"), 4, "package_nr", component,
                 "package_number"),
                (f"{COMPONENT}\n{COMPONENT}size = 1\n", 12, "size", component),
                (f"{COMPONENT}[component.more]\na = 1\n", 6, "more", component),
            ]
        ))

    def test_missing_install_dir(self):
        wanted = "VORN_INSTALL_DIR is missing in [session], expected the directory that the components "
        wanted += "are installed below"
        self.assert_wrong(
            ("\n" + installation(VORN_INSTALL_DIR=None), 2, wanted),
            ("\n" + COMPONENT, 1, wanted),
        )
        # No NDK is looked for before.
        self.here.write("ndk/ndk-build", "")
        self.assertEqual(self.run_with(installation(VORN_INSTALL_DIR=None)).code, 2)
        for command in ["undo", "status", "verify"]:
            outcome = self.here.run(command, self.here.path("installation.toml"))
            err = said(f"WORLD/installation.toml:1: {wanted}")
            self.assert_outcome(outcome, code=2, err=err, kept=True)

    def test_types_of_tables(self):
        session, component = "expected a table [session]", "expected tables [[component]]"
        self.assert_wrong(
            ("\n[[session]]\n[[session]]\n", 2, f"'session' is an array, {session}"),
            ("\n[component]\nid = 'a'\n", 2, f"'component' is a table, {component}"),
        )
        for value, kind in TYPES.items():
            if kind != "a table":
                self.assert_wrong(
                    (f"session = {value}\n", 1, f"'session' is {kind}, {session}"),
                    (f"component = [\n {value}\n]\n", 2, f"'component' holds {kind}, {component}"),
                )
            if kind != "an array":
                self.assert_wrong(
                    (f"component = {value}\n", 1, f"'component' is {kind}, {component}")
                )

    def test_types_of_values(self):
        for value, kind in TYPES.items():
            for name in VARIABLES:
                start = f"[session]\n{name} = "
                if kind not in ("a text", "an array"):
                    message = f"{name} is {kind}, expected a text or an array of texts"
                    self.assert_wrong((start + value, 2, message))
                if kind != "a text":
                    message = f"an element of {name} is {kind}, expected a text"
                    self.assert_wrong((f"{start}[\n  'a',\n  {value}\n]\n", 4, message))
            for line, name in enumerate(NEEDED_KEYS, start=2):
                if kind != "a text":
                    message = f"{name} is {kind}, expected a text"
                    self.assert_wrong((component_with(name, value), line, message))
            for name in BOOLEANS:
                if kind != "a boolean":
                    message = f"{name} is {kind}, expected true or false"
                    self.assert_wrong((f"{COMPONENT}{name} = {value}\n", 6, message))

    def test_nul_and_separator(self):
        nul = "holds a NUL character, expected a text without one"
        several = "holds ';', expected one entry: '{}' would become several"
        for name in VARIABLES:
            element = f"an element of {name} "
            self.assert_wrong(
                (f'[session]\n{name} = "a\\u0000b"\n', 2, f"{name} {nul}"),
                (f'[session]\n{name} = ["a", "\\u0000"]\n', 2, element + nul),
                (f"[session]\n{name} = ['a',\n'b;c']\n", 3, element + several.format("b;c")),
                (f'[session]\n{name} = ["a\\n;"]\n', 2, element + several.format("a\\n;")),
            )
        for line, name in enumerate(NEEDED_KEYS, start=2):
            self.assert_wrong((component_with(name, '"\\u0000"'), line, f"{name} {nul}"))

    def test_incomplete_component(self):
        expected = "expected id, version, package_number and subdir"
        self.assert_wrong(
            *(
                ("\n\n" + component_with(name, None), 3,
                 f"a [[component]] without '{name}', {expected}")
                for name in NEEDED_KEYS
            ),
            ("component = [{}]\n", 1, f"a [[component]] without 'id', {expected}"),
            (f"{COMPONENT}\n[[component]]\nversion = '1'\n", 7,
             f"a [[component]] without 'id', {expected}"),
        )

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
            "installation.toml/more.toml": "Not a directory",
            "dangling": no_such,
            "two\nlines\x1b": no_such,
            "ndk": "",
        }.items():
            with self.subTest(name):
                world = self.small_world(dangling="-> nowhere")
                shown = name.replace("\n", "\\n").replace("\x1b", "\\x1b")
                for given, told in [(name, shown), (world.path(name), f"WORLD/{shown}")]:
                    outcome = world.run("install", given, cwd=world.dir)
                    err = cannot_read_installation(told, why)
                    err = err if why else said(f"{told} is not an ordinary file")
                    self.assert_outcome(outcome, code=2, err=err, kept=True)

    def test_not_permitted(self):
        world = self.small_world(**{"installation.toml": (0, "")})
        err = cannot_read_installation(why="Permission denied")
        self.assert_outcome(world.install(unprivileged=True), code=2, err=err, kept=True)


class GoodInstallation(EndToEndTest):
    """Each ends in a whole installation."""

    def assert_good(self, *tomls, name="world", **told):
        for toml in tomls:
            with self.subTest(toml):
                world = self.world(small_tree(toml), name=name)
                self.assert_installs(world, report=Install(**told))

    def test_array_or_text(self):
        self.assert_good(
            installation(NDK_SUPPORTED_VERSIONS='["r11b", "r11c"]'),
            installation(NDK_COMPONENT_PATTERNS='"-none-;-ndk-"'),
            installation(NDK_COMPONENT_PATTERNS='["-none-", "-ndk-"]'),
            installation(NDK_INTEGRATION_ENABLED='["yes"]'),
            installation(NDK_SUPPORTED_VERSIONS='"""\nr11\\u0063"""'),
        )

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
        blank = [BLANK.format("WORLD/ndk")]
        self.assert_good(installation(), name="a world  with blanks", warnings=blank)
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
        '"a b/../ndk"': "WORLD/ndk",
        '"../ndk"': "TOP/ndk",
        '"/../not there/./gone/..//ndk/"': "/not there/ndk",
        '"/.."': "/",
        '"."': "WORLD",
        '"~/ndk"': "WORLD/~/ndk",
        '"/not there/ndk"': "/not there/ndk",
        '"/not there//./ndk/"': "/not there//./ndk/",
        '["ndk"]': "WORLD/ndk",
        '["/not there/ndk"]': "/not there/ndk",
    }

    def assert_looked_at(self, name, values):
        """For each value these are the directories that are judged, where none is an NDK."""
        for value, dirs in values.items():
            with self.subTest(name, value=value):
                toml = installation(**{"NDK_DEFAULT_SEARCH_PATH_LINUX": None, name: value})
                world = self.world(without(small_tree(toml), "ndk/ndk-build"))
                told = world.install("--json", cwd="/")
                found = ";".join(one["path"] for one in told.json()["candidates"])
                self.assertEqual((world.hidden(found), told.changes, told.kept), (dirs, {}, {}))

    def test_search_path(self):
        self.assert_looked_at("NDK_DEFAULT_SEARCH_PATH_LINUX", {
            **self.forms,
            '"ndk;/a;b"': "WORLD/ndk;/a;WORLD/b",
            '["ndk", "/a", "b"]': "WORLD/ndk;/a;WORLD/b",
            '";ndk;;/a;"': "WORLD/ndk;/a",
            '["", "ndk"]': "WORLD/ndk",
        })

    def test_ndk_path(self):
        # No list: a directory whose name may hold ";".
        names = {'"/ndk;5"': "/ndk;5", '"ndk;5"': "WORLD/ndk;5"}
        self.assert_looked_at("NDK_PATH", {**self.forms, **names})

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
                report = refused(NO_PACKAGE.format(f"{expected}/cc"), enabled=False)
                self.assert_refused(world, report, options=[DISABLED], cwd="/")

    def test_file_elsewhere(self):
        dirs = {"NDK_DEFAULT_SEARCH_PATH_LINUX": '["../ndk"]', "VORN_INSTALL_DIR": '"../package"'}
        world = self.small_world(**{"settings/i.toml": installation(**dirs)})
        outcome = world.run("install", "settings/i.toml", cwd=world.dir)
        self.assert_told(Install(), outcome, changed=filled(first=True))

    def test_parent_of_the_working_directory(self):
        for setting in ["..", "../../package/cc/.."]:
            world = self.small_world(**{"package/here/": ""})
            outcome = world.install(f"--set=VORN_INSTALL_DIR={setting}", cwd=world.path("package/here"))
            self.assert_told(Install(), outcome, changed=filled(first=True))

    def test_parent_behind_a_link(self):
        # The link's target is in another directory than the link.
        toml = installation(VORN_INSTALL_DIR='"links/to/../package"')
        world = self.small_world(toml, **{"links/to": "-> ../ndk", "links/package/": ""})
        self.assert_installs(world)


class SparseInstallation(EndToEndTest):
    """What is left out reads as "": such a file is not an error, but it asks for nothing."""

    def test_nothing_selected(self):
        empty = "[[component]]\n" + "".join(f"{key} = ''\n" for key in NEEDED_KEYS)
        none_needed = not_selected("", ndk="", enabled=False)
        for toml, report in [
            *((toml, none_needed) for toml in ["", "\n\n", "# nothing\n", "[session]\n"]),
            ("component = []\n", none_needed),
            (installation(NDK_COMPONENT_PATTERNS=None), not_selected("")),
            (installation(empty), not_selected()),
        ]:
            with self.subTest(toml):
                self.assert_told(report, self.small_world(toml).install(), kept=True)


if __name__ == "__main__":
    unittest.main()

"""What ndk-integrate says. Each text that tests expect stands here once."""

import dataclasses
import hashlib
import re

from world import ANDROID, KEPT_ORIGINALS, MANIFEST, ORIGINALS, PROGRAM, STORE, TEMPLATES

NOT_DONE = "ndk-integrate: not done: "
DRY = "dry run, nothing is changed; after an installation"
NDK = "WORLD/ndk"


def said(message):
    return f"ndk-integrate: {message}\n"


def not_done(message):
    return f"{NOT_DONE}{message}\n"


SEVERAL = "{} problems, and nothing was changed"


def problems(*texts):
    """What stands on standard error where several problems stand against an installation."""
    lines = "".join(said(f"problem: {text}") for text in texts)
    return lines + not_done(SEVERAL.format(len(texts)))


def sha256(text):
    return hashlib.sha256(text.encode()).hexdigest()


# --- The NDK and the component. A "{}" stands for the file, the directory or the like ---

NDK_NOT_WRITABLE = "an NDK, but you may not write there: run as a user who may, or use a copy"
NOTHING_ASKS = "no selected component asks for the NDK integration"
NO_COMPILER = f"which compiler is meant cannot be told, because {NOTHING_ASKS}: {{}}"
SHELL_SURPRISE = (
    "the name of the NDK directory {} holds a character that the shell would not leave alone "
    '(", $, `, \\ or a control character); make a link with a plain name to it (ln -s) and give '
    "that with --ndk"
)


NONE_GOOD = (
    "no NDK was found: none of the {} directories in NDK_DEFAULT_SEARCH_PATH_LINUX can be used"
)


def bad_ndk(why, ndk=NDK):
    return f"NDK_PATH is {ndk}, which cannot be used: {why}"


def nothing_selected(patterns="-ndk-"):
    why = f"no component's id holds one of {patterns}"
    return f"{NOTHING_ASKS}: {why if patterns else 'NDK_COMPONENT_PATTERNS names no pattern'}"


MISLEADING = (
    "NDK_INTEGRATION_ENABLED is '{}', which leaves the integration disabled: only 'yes', in small "
    "letters and without blanks, enables it"
)


BLANK = "the path of the NDK, {}, holds a blank, which ndk-build refuses"
OTHER = {"ndk": "WORLD/other ndk", "release": "r11b", "revision": "11.1.1"}


def judgement(path, status, reason, message, known=True, source="NDK_PATH"):
    """A directory that was judged, as JSON; its release, where that is known, is the small tree's."""
    return {
        "schema": 1,
        "path": path,
        "status": status,
        "reason": reason,
        "release": "r11c" if known else None,
        "revision": "11.2.2725575" if known else None,
        "message": message,
        "source": source,
        "prerelease": False,
        "notes": [],
    }


# --- The compiler package and what is kept of it ---

NO_PACKAGE = (
    "the compiler package is not installed: there is no directory {} "
    "(VORN_INSTALL_DIR followed by the component's subdir)"
)
BAD_ROOT = (
    "the compiler's directory, VORN_INSTALL_DIR followed by the component's subdir, is '{}'; "
    "expected an absolute one below /"
)
TEMPLATE_MISSING = (
    "the template WORLD/{} is missing: is the compiler package installed there whole?"
)
NOT_ORDINARY = "the template WORLD/{} is not an ordinary file"
ON_OTHER_FILE_SYSTEM = "the template WORLD/{} is on another file system than WORLD/package/cc"
DIRECTORY_IS_LINK = (
    "WORLD/{} is a link or lies behind one, or is outside WORLD/package/cc; no link is followed "
    "there, put an ordinary directory in its place"
)
IS_LINK = (
    "the template WORLD/{} is a link, which filling it in would replace or write through; put an "
    "ordinary file there"
)
NOT_FILLED_IN = "the template WORLD/{} could not be filled in; -v shows more"
NOT_WRITABLE = "you may not write in WORLD/{}"
EDITED_JUST_NOW = "WORLD/{} was changed by someone else just now; it is left as it is"
SCRIPT_MISSING = (
    f"the integration script ./ndk_integration.sh is missing or not executable in WORLD/{ANDROID}"
)
STORE_NOT_A_DIRECTORY = f"WORLD/{STORE} is not a directory; ndk-integrate keeps originals there"
MANIFEST_MISSING = (
    f"WORLD/{MANIFEST} is missing, which says whose originals are in WORLD/{KEPT_ORIGINALS}; "
    "put it back, or remove that directory to give the originals up"
)
BAD_MANIFEST = f"cannot use WORLD/{MANIFEST}: {{}}; the originals are in WORLD/{KEPT_ORIGINALS}"
NEWER_MANIFEST = BAD_MANIFEST.format("it was written by a newer ndk-integrate")
MANIFEST_NOT_ORDINARY = BAD_MANIFEST.format("it is not an ordinary file")
BAD_ENTRY = BAD_MANIFEST.format("the entry of '{}' is damaged")
NOTHING_RECORDED = f"no installation of 5.0.3.42 is recorded in WORLD/{STORE}"
NOT_TAKEN_OUT = (
    "the compiler package has no ndk_removal.sh, so what its integration script put into the NDK "
    "stays in {}"
)
PUT_BACK = "the compiler's files are put back"
UNDONE = f"{PUT_BACK}; {NOT_TAKEN_OUT.format(NDK)}"
LOCKED = (
    f"another ndk-integrate is at work on this compiler ({{}} holds WORLD/{STORE}); "
    "wait until it is done"
)


def not_taken_out(ndk):
    """What is done about an NDK where the package has no script for it, as JSON."""
    return {"ndk": ndk, "script": None, "left": NOT_TAKEN_OUT.format(ndk)}


def cannot(do, file, why="Permission denied"):
    return f"cannot {do} WORLD/{file}: {why}"


def kept_original(file):
    return f"{KEPT_ORIGINALS}/{sha256(ORIGINALS[file])}"


def edited(file):
    return (
        f"WORLD/{file} was changed by someone else since ndk-integrate wrote it, so it is left as "
        "it is, and so is everything else; to give that change up, put its original there: "
        f"cat WORLD/{kept_original(file)} > WORLD/{file}, or undo with --force WORLD/{file}, which "
        "keeps the change beside it"
    )


def original_damaged(file):
    return (
        f"the original of WORLD/{file} that is kept as WORLD/{kept_original(file)} is missing or "
        "damaged; reinstall the compiler package"
    )


def command(ndk=NDK):
    return f'./ndk_integration.sh "{ndk}" --force'


def script_failed(status, ndk=NDK):
    could_not_run = " (is it there, beside the toolchain definitions, and executable?)"
    hint = could_not_run if status in (126, 127) else ""
    return f"the integration script failed with exit status {status}{hint}: {command(ndk)}"


# --- The program ---

LOG_NOT_WHOLE = said("warning: the log file /dev/full could not be written whole")
NOT_FOUND = "cannot open shared object file: No such file or directory"


def misunderstood(what, command=""):
    return said(f"{what}; see ndk-integrate {command}{' ' if command else ''}--help")


def did_you_mean(name=None):
    return f" (did you mean '{name}'?)" if name else ""


def not_expected(argument, command=""):
    what = "unknown option" if argument.startswith("-") else "unexpected argument"
    return misunderstood(f"{what} '{argument}'", command)


def value_missing(option, command=""):
    return misunderstood(f"{option} needs a value", command)


def cannot_open_log(file, why="No such file or directory"):
    return said(f"cannot open the log file {file}: {why}")


def cannot_read_installation(file="WORLD/installation.toml", why="No such file or directory"):
    return said(f"cannot read {file}: {why}")


# --- What install and undo tell ---


class Told:
    """What a command tells, in lines and as JSON."""

    failed = ""  # why
    problem = False  # whether that stood against the installation before it began

    @property
    def code(self):
        return 1 if self.failed else 0

    def err(self):
        return not_done(self.failed) if self.failed else ""

    def err_of_json(self):
        return ""


@dataclasses.dataclass
class Stopped(Told):
    """Of a command that does not even begin."""

    message: str
    code: int = 2

    def out(self):
        return ""

    def err(self):
        return said(self.message)

    err_of_json = err

    def json(self):
        outcome = {2: "wrong-usage", 3: "no-plugin"}[self.code]
        return {"schema": 1, "outcome": outcome, "changed": False, "message": self.message}


def no_plugin(file, why=None, function=None, what="plug-in"):
    """A library cannot be loaded, or lacks a function."""
    if function:
        return Stopped(f"cannot use the {what} {file}: it has no function {function}", 3)
    return Stopped(f"cannot load the {what} {file}: {file}: {why or NOT_FOUND}", 3)


@dataclasses.dataclass
class Install(Told):
    """What `install` tells; the defaults tell a whole installation in the small tree."""

    ndk: str = NDK  # "" where none is found
    release: str = "r11c"
    revision: str = "11.2.2725575"
    component: str = "nox-ndk-5"
    version: str = "5.0.3"
    # Of each file the number of placeholders, or "missing" or "failed".
    files: dict = dataclasses.field(default_factory=lambda: dict(zip(TEMPLATES, [2, 2, 1, 1])))
    enabled: bool = True
    printed: str = None
    status: int = 0
    diffs: list = None  # of a dry run
    changed: bool = True
    failed: str = ""  # why
    outcome: str = "failed"  # in that case
    nothing_to_do: bool = False  # in that case
    problem: bool = False  # whether that stood against the installation before it began
    candidates: tuple = ()
    warnings: tuple = ()
    dry: bool = False
    former_ndk: str = ""  # that the compiler was integrated into before

    @classmethod
    def other_ndk(cls, **how):
        """The same for the other NDK, which has a blank in its path."""
        how = {**OTHER, **how}
        return cls(warnings=[BLANK.format(how["ndk"])], **how)

    @property
    def code(self):
        return 4 if self.nothing_to_do else super().code

    def err(self):
        """What stands on standard error; candidates are told only where there are several."""
        warnings = "".join(said(f"warning: {warning}") for warning in self._warnings())
        end = said(f"nothing to do here: {self.failed}") if self.nothing_to_do else super().err()
        return warnings + end

    def _warnings(self):
        former = [NOT_TAKEN_OUT.format(self.former_ndk)] if self.former_ndk else []
        return [*self.warnings, *former]

    def _ran(self):
        return self.enabled and self.files != {} and self.diffs is None

    def _printed(self):
        return f"ran with {self.ndk} --force\n" if self.printed is None else self.printed

    def _result(self):
        how = f"integrated into {self.ndk}" if self.enabled else "installed without NDK integration"
        return f"the compiler is {how}"

    def _file_line(self, file, found):
        if not isinstance(found, int):
            return f"{found}: WORLD/{file}"
        verb = "filled in" if self.diffs is None else "would fill in"
        return f"{verb}: WORLD/{file} ({found} placeholder{'' if found == 1 else 's'})"

    def steps(self):
        """All lines but that of the result."""
        lines = []
        if self.ndk:
            lines = [f"NDK: {self.ndk}", f"release: {self.release} ({self.revision})"]
        elif not self.enabled:
            lines = ["NDK: none, and none needed: integration is disabled"]
        if self.component:
            what = f"{self.component} (version {self.version}, package number 42)"
            lines.append(f"component: {what}")
        if self._ran():  # told while it runs
            lines.append(f"script: {command(self.ndk)}")
            lines += [f"script printed: {line}" for line in self._printed().splitlines()]
        lines += [self._file_line(file, found) for file, found in self.files.items()]
        if self._ran() and self.status:
            lines.append(f"script exit status: {self.status}")
        if self.enabled and self.files and self.diffs is not None:
            lines.append(f"would run: {command(self.ndk)}")
        return "".join(line + "\n" for line in lines)

    def result(self):
        if self.failed:
            return ""
        return f"{'done' if self.diffs is None else DRY}: {self._result()}\n"

    def out(self):
        diffs = "" if self.failed else "".join(self.diffs or [])
        return self.steps() + diffs + self.result()

    def json(self):
        done = "integrated" if self.enabled else "disabled"
        dry = self.dry or self.diffs is not None
        ran = {
            "command": command(self.ndk),
            "exit_status": None if dry else self.status,
            "output": "" if dry else self._printed(),
        }
        return {
            "schema": 1,
            "outcome": self.outcome if self.failed else done,
            "dry_run": dry,
            "changed": self.changed,
            "ndk": self.ndk or None,
            "release": self.release if self.ndk else None,
            "component": self.component or None,
            "candidates": list(self.candidates),
            "files": self._json_of_files(),
            "script": ran if self.enabled and self.files != {} else None,
            "removal": not_taken_out(self.former_ndk) if self.former_ndk else None,
            "verify": None,
            "problems": [self.failed] if self.problem else [],
            "warnings": self._warnings(),
            "message": self.failed or self._result(),
        }

    def _json_of_files(self):
        placeholders = Install.__dataclass_fields__["files"].default_factory()
        objects = []
        diffs = iter(self.diffs or [])
        for file, found in self.files.items():
            objects.append({
                "path": f"WORLD/{file}",
                "placeholders": placeholders[file] if isinstance(found, int) else 0,
                "result": "patched" if isinstance(found, int) else found,
            })
            if self.diffs is not None:
                objects[-1]["diff"] = next(diffs) if isinstance(found, int) else ""
        return objects


def with_files(**found):
    """The files of an installation, some of them not filled in."""
    return {**Install().files, **found}


def disabled(**how):
    return Install(enabled=False, **how)


def refused(message, **how):
    """An installation that ends before it works on a file."""
    return Install(**{"failed": message, "changed": False, "files": {}, **how})


def stands_against(message, **how):
    """A problem, which ends an installation before it works on a file."""
    return refused(message, problem=True, **how)


def no_ndk(message, **how):
    return refused(message, **{"ndk": "", "component": "", "outcome": "no-ndk", **how})


def not_selected(patterns="-ndk-", **how):
    message = nothing_selected(patterns)
    how = {"component": "", "outcome": "not-selected", "nothing_to_do": True, **how}
    return refused(message, **how)


@dataclasses.dataclass
class Undo(Told):
    """What `undo` tells; the defaults tell that every file is put back."""

    # Of each file "restored", "original", "gone" or "shared".
    files: dict = dataclasses.field(default_factory=lambda: dict.fromkeys(TEMPLATES, "restored"))
    failed: str = ""  # why
    outcome: str = "undone"
    dry: bool = False
    ndk: str = NDK  # "" where the compiler was installed for none

    LINES = {
        "restored": "put back",
        "original": "was the original already",
        "gone": "not put back, its directory is gone (its original stays kept)",
        "shared": "stays, another version of the compiler uses it",
    }

    def _message(self):
        if self.failed or self.outcome == "nothing-to-undo":
            return self.failed or NOTHING_RECORDED
        results = list(self.files.values())
        reasons = {"directory gone": "gone", "used by another version": "shared"}
        left = {why: results.count(one) for why, one in reasons.items() if one in results}
        back = PUT_BACK
        if left:
            whys = ", ".join(f"{why}: {count}" for why, count in left.items())
            count = len(results) - sum(left.values())
            back = f"{count} of {len(results)} files of the compiler are put back ({whys})"
        return f"{back}; {NOT_TAKEN_OUT.format(self.ndk)}" if self.ndk else back

    def result(self):
        done = "dry run, nothing is changed; after an undo" if self.dry else "done"
        word = done if self.outcome == "undone" else "nothing to undo"
        return "" if self.failed else f"{word}: {self._message()}\n"

    def out(self):
        lines = {**self.LINES, **({"restored": "would put back"} if self.dry else {})}
        told = sorted(self.files.items())
        told = [f"{lines[result]}: WORLD/{file}\n" for file, result in told]
        return "".join(told) + self.result()

    def json(self):
        return {
            "schema": 1,
            "outcome": "failed" if self.failed else self.outcome,
            "dry_run": self.dry,
            "changed": "restored" in self.files.values(),
            "removal": not_taken_out(self.ndk) if self.files and self.ndk else None,
            "files": [
                {"path": f"WORLD/{file}", "result": self.files[file]} for file in sorted(self.files)
            ],
            "warnings": [],
            "message": self._message(),
        }


NOTHING_TO_UNDO = Undo(files={}, outcome="nothing-to-undo")


def not_undone(message):
    return Undo(files={}, failed=message)


# --- The log ---

def begin_of_run(command):
    """The line that a run begins with in the log."""
    return f"TIME ndk-integrate 1.0.0: {command}\n"


def told_log(world, name="install.log"):
    """The log, without what differs from run to run."""
    text = world.read(name).replace(PROGRAM, "PROGRAM")
    return re.sub(r"(?m)^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ ", "TIME ", text)


LOOKS_FOR_COMPONENT = "NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()"
LOG_OF_CHOICE = (
    f"{LOOKS_FOR_COMPONENT}\n{LOOKS_FOR_COMPONENT}: Found pattern '-ndk-' in 'nox-ndk-5'\n"
)
ALL_IN_PLACE = "is_ndk_dir(): all required files are in place, returning true"


def log(*lines):
    return "".join(f"NDK_INTEGRATION: {line}\n" for line in lines)


def log_of_ndk(ndk, *lines):
    """The log of the plug-in's look at one directory."""
    looks = f"is_ndk_dir(): Verifying the following directory: {ndk}"
    return log("validate_ndk_path()", looks, *lines)


def log_of_good_ndk(ndk=NDK, revision="11.2.2725575", release="r11c"):
    return log_of_ndk(
        ndk,
        ALL_IN_PLACE,
        f"get_version(): detected full revision: '{revision}'",
        f"get_version(): detected version is '{release}''",
        f"is_ndk_version_supported(): '{release}' version is supported",
    )


def log_of_search(*rejected, good=None):
    """The log of a search: the logs of looks at directories, each with its directory, and that of
    the good one."""
    told = "".join(
        looks + log(f"detect_ndk(): '{ndk}' is not valid NDK path") for ndk, looks in rejected
    )
    good = good or log_of_good_ndk()
    return log("detect_ndk()") + told + good + log(f"detect_ndk(): found valid NDK: '{NDK}'")


def log_of_script(output="ran with WORLD/ndk --force\\n"):
    launches = f"integrate_ndk(): integration enabled, launching '{command()}' script."
    return log("integrate_ndk()", launches) + f"Output: '{output}'\n"


def log_of_install(output="ran with WORLD/ndk --force\\n"):
    return log_of_search() + LOG_OF_CHOICE + log_of_script(output)

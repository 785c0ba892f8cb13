"""The worlds of the tests on examples/: a copy of it, and what an installer and its user do there."""

import glob
import os
import shutil
import subprocess
import unittest

from world import EXAMPLES, World

VERSION = "5.0.3.42"
NOX = [f"x86_64-nox{VERSION}", f"x86-nox{VERSION}"]
R10, R11, R11_BUNDLE, R21 = (
    "android-ndk-r10e", "android-ndk-r11c", "ndk-bundle", "android-ndk-r21e"
)
OLD_PLACE, NEW_PLACE = "toolchains", "build/core/toolchains"
PLACES = {R10: OLD_PLACE, R11: NEW_PLACE, R11_BUNDLE: NEW_PLACE, R21: NEW_PLACE}
APPLICATION = {
    "Android.mk": """\
LOCAL_PATH := $(call my-dir)
include $(CLEAR_VARS)
LOCAL_MODULE := app
LOCAL_SRC_FILES := one.c two.cpp
include $(BUILD_SHARED_LIBRARY)
""",
    "one.c": "int one(int number) { return number + 1; }\n",
    "two.cpp": 'extern "C" int one(int);\nint two() { return one(1); }\n',
}
PATH = "/usr/bin:/bin"


class ExampleWorld(World):
    """A copy of examples/, whatever the modes of this checkout are. Its paths are absolute."""

    def __init__(self, name="world"):
        super().__init__(name=name)
        shutil.copytree(EXAMPLES, self.dir, dirs_exist_ok=True)
        for file, (mode, _) in self.snapshot().items():
            self.chmod(file, mode & 0o755)
        self.android = self.path("package/compiler/android")
        self.linux = self.path("package/compiler/compilers_and_libraries_2005.3.42/linux")

    def ndk(self, name=R11):
        return os.path.join(self.path("ndk"), name)

    def place(self, name=R11, place=None):
        """Where an NDK reads toolchain definitions."""
        return f"{self.ndk(name)}/{place or PLACES[name]}"

    def definition(self, toolchain=NOX[0], file="setup.mk"):
        return f"{self.android}/{toolchain}/{file}"

    def installed(self, toolchain=NOX[0], file="setup.mk", ndk=R11, place=None):
        return f"{self.place(ndk, place)}/{toolchain}/{file}"

    def text(self, name):
        return self.bytes(name).decode()

    def replace(self, name, old, new):
        self.write(name, self.text(name).replace(old, new))

    def fill_in(self, ndk=None):
        """Fills in the templates as an installer does: each pass adds an empty line."""
        values = [
            *((self.definition(name), "{INSTALL_NOX_INSTALLDIR}", self.linux) for name in NOX),
            *((self.definition(name), "{INSTALL_NOX_VERSION}", VERSION) for name in NOX),
            *((f"{self.linux}/bin/compilervars_arch.{shell}", "<NDK_DIR>",
               self.ndk() if ndk is None else ndk) for shell in ["sh", "csh"]),
        ]
        for file, placeholder, value in values:
            text = self.text(file)
            assert text.endswith("\n") and placeholder in text, file
            self.write(file, text.replace(placeholder, value) + "\n")
        return self

    def call(self, *command, cwd=None, **environment):
        """The exit status of a command, its standard output and its standard error. It does not get
        the caller's environment: a make that runs the tests would pass its MAKEFLAGS on."""
        done = subprocess.run(
            command, cwd=cwd or self.top, env={"PATH": PATH, "LC_ALL": "C", **environment},
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, check=False,
        )
        return done.returncode, self.hidden(done.stdout), self.hidden(done.stderr)

    def integrate(self, ndk=R11, *arguments, script="./ndk_integration.sh", **environment):
        """Runs a script of the package as an installer does, in its own directory."""
        return self.call(script, self.ndk(ndk), *arguments, cwd=self.android, **environment)

    def remove(self, ndk=R11, **environment):
        return self.integrate(ndk, script="./ndk_removal.sh", **environment)

    def build(self, ndk=R11, *variables, **environment):
        """Builds an application from scratch: the exit status, and all that was printed."""
        app = os.path.join(self.top, "app")
        shutil.rmtree(app, ignore_errors=True)
        self.write_all({f"{app}/jni/{name}": text for name, text in APPLICATION.items()})
        project = f"NDK_PROJECT_PATH={app}"
        code, out, err = self.call(self.ndk(ndk) + "/ndk-build", project, *variables, **environment)
        return code, out + err

    def libraries(self):
        """The libraries that a build left, as "x86_64: ELF 62": the ABI and the ELF's machine. Those
        of the sample NDKs' own compilers, which only pretend, are empty."""
        found = []
        for file in glob.glob(os.path.join(glob.escape(self.top), "app/libs/*/libapp.so")):
            library = self.bytes(file)
            kind = f"ELF {library[18]}" if library else "empty"
            found.append(f"{os.path.basename(os.path.dirname(file))}: {kind}")
        return sorted(found)


def installed_lines(ndk=R11):
    """What the integration script prints."""
    return "".join(f"installed WORLD/ndk/{ndk}/{PLACES[ndk]}/{name}\n" for name in NOX)


class ExampleTest(unittest.TestCase):
    maxDiff = None
    make_world = ExampleWorld

    def example(self, name="world"):
        return self.enterContext(self.make_world(name))

    def filled(self, name="world"):
        return self.example(name).fill_in()

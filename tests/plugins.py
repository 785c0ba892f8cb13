"""Plug-ins for the end-to-end tests of ndk-integrate, built from a few lines of C++."""

import atexit
import functools
import os
import subprocess
import tempfile

from world import ROOT

CXX = os.environ.get("CXX", "c++")
HEADERS = """\
#include <cstdlib>
#include <stdexcept>
#include <string>
#include "ndk_utils/ndk_utils.h"
"""

# A plug-in that does nothing, one definition a function that the program needs.
FAKE_PLUGIN = {
    "detect_ndk": 'extern "C" int detect_ndk(session_t*) { return 0; }',
    "validate_ndk_path": 'extern "C" int validate_ndk_path(session_t*) { return 0; }',
    "check_if_ndk_integration_files_are_to_be_installed": 'extern "C" int '
    "check_if_ndk_integration_files_are_to_be_installed(session_t*) { return 0; }",
    "integrate_ndk": 'extern "C" int integrate_ndk(session_t*) { return 0; }',
    "unintegrate_ndk": 'extern "C" int unintegrate_ndk(session_t*) { return 0; }',
    "get_version": "ndk_version_t get_version(const std::string&) { return {}; }",
    "ndk_version_string": "std::string ndk_version_string(ndk_version_t) { return {}; }",
    "get_toolchains_path": "std::string get_toolchains_path(session_t*) { return {}; }",
    "get_compiler_path": "std::string get_compiler_path(session_t*) { return {}; }",
    "get_compiler_full_version": "std::string get_compiler_full_version(session_t*) { return {}; }",
}

# Throws what the variable THROWN says; with "place", the name of the directory it was loaded from.
THROWING = """
#include <dlfcn.h>
struct Boom : std::exception { const char* what() const noexcept override; };
const char* Boom::what() const noexcept { return "own boom"; }
extern "C" int detect_ndk(session_t*) {
  const std::string thrown = std::getenv("THROWN");
  if (thrown == "a number") throw 42;
  if (thrown == "a type of its own") throw Boom();
  if (thrown != "place") throw std::runtime_error(thrown);
  Dl_info info;
  dladdr(reinterpret_cast<void*>(&detect_ndk), &info);
  char* const real = realpath(info.dli_fname, nullptr);
  const std::string file = real;
  std::free(real);
  const std::string dir = file.substr(0, file.rfind('/'));
  throw std::runtime_error("from " + dir.substr(dir.rfind('/') + 1));
}"""

SELECT_FIRST_COMPONENT = """
extern "C" int check_if_ndk_integration_files_are_to_be_installed(session_t* session) {
  const std::string subdir = session->tsd.components()[0]->subdir();
  env_set_string(session, "NDK_INTEGRATION_INSTALL_DETECTED", "yes");
  env_set_string(session, std::string("NDK_COMPILER_SUBDIR"), subdir);
  return 0;
}"""

# Fills in the file FILE, and goes wrong as DOES says: in run 1, which is the rehearsal, or in 2.
FILL_IN_ONE = """
#include <fstream>
extern "C" int integrate_ndk(session_t*) {
  static int runs = 0;
  const std::string does = std::getenv("DOES") + std::string(" in ") + std::to_string(++runs);
  const std::string file = std::getenv("FILE");
  const std::string copy = path(file);
  std::ifstream in(copy);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    text += replaceAllSubstrings(line, "<NDK_DIR>", "x") + "\\n";
  }
  std::ofstream(copy + ".tmp") << text.substr(does == "lose a letter in 1" ? 1 : 0);
  file_move(copy + ".tmp", copy);
  if (does == "throw in 1" || does == "throw later in 2") throw std::runtime_error("boom");
  if (does == "edit in 2") std::ofstream(file, std::ios::app) << "# mine\\n";
  return 0;
}"""


@functools.cache
def _directory():
    directory = tempfile.TemporaryDirectory(prefix="ndk_integrate_test.")
    atexit.register(directory.cleanup)
    return directory.name


@functools.cache
def _compiled(source):
    """The object file of C++ source, with this repository's headers at hand."""
    file = tempfile.mkstemp(suffix=".o", dir=_directory())[1]
    options = ["-std=c++17", "-fPIC", "-I", ROOT, "-x", "c++", "-c", "-", "-o", file]
    subprocess.run([CXX, *options], input=source.encode(), check=True)
    return file


def shared_library(path, source, leave_out=None):
    """Builds a shared library from C++ source, one function of it left out."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    code = _compiled(source)
    if leave_out:
        hide = [f"--localize-symbol={name}" for name in (leave_out, f"_Z*{leave_out}*")]
        subprocess.run(["objcopy", "--wildcard", *hide, code, path + ".o"], check=True)
        code = path + ".o"
    subprocess.run([CXX, "-shared", code, "-o", path], check=True)
    return path


def fake_plugin(world, leave_out=None, path="plugin/plugin.so", **replaced):
    """Builds a plug-in like FAKE_PLUGIN beside the world, with functions replaced, or one left
    out."""
    functions = {**FAKE_PLUGIN, **replaced}
    source = HEADERS + "\n".join(functions.values()) + "\n"
    return shared_library(os.path.join(world.top, path), source, leave_out)


def throwing_plugin(world, path="plugin/plugin.so"):
    return fake_plugin(world, path=path, detect_ndk=THROWING)


def filling_plugin(world):
    return fake_plugin(
        world,
        integrate_ndk=FILL_IN_ONE,
        check_if_ndk_integration_files_are_to_be_installed=SELECT_FIRST_COMPONENT,
    )

#include "console_host/ndk/toolchain_build.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "console_host/base/directory.h"
#include "console_host/base/files.h"
#include "console_host/base/interruption.h"
#include "console_host/base/paths.h"
#include "console_host/base/process.h"
#include "console_host/base/shell_words.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kTimeLimit(120);  // of one build
constexpr std::size_t kLastLines = 20;           // of a build that failed

// A module to build.
struct Module {
  const char* language;
  const char* file;
  const char* text;
};

constexpr std::array<Module, 2> kModules{{
    {"C", "proof.c", "int proof(int number) { return number + 1; }\n"},
    {"C++", "proof.cpp",
     "namespace {\n"
     "template <typename T> T next(T value) { return value + 1; }\n"
     "}\n"
     "extern \"C\" int proof(int number) { return next(number); }\n"},
}};

void write_text(const std::string& file, const std::string& text) {
  constexpr mode_t kReadable = 0644;
  const std::size_t slash = file.rfind('/');
  const File made = Directory(file.substr(0, slash)).make_file(file.substr(slash + 1), file);
  made.write(text, file);
  made.set_mode(kReadable);
}

void write_project(const std::string& project, const Module& module) {
  fs::create_directories(project + "/jni");
  write_text(project + "/jni/" + module.file, module.text);
  write_text(project + "/jni/Android.mk", std::string("LOCAL_PATH := $(call my-dir)\n"
                                                      "include $(CLEAR_VARS)\n"
                                                      "LOCAL_MODULE := proof\n"
                                                      "LOCAL_SRC_FILES := ") +
                                              module.file +
                                              "\n"
                                              "include $(BUILD_SHARED_LIBRARY)\n");
}

// This program's environment without what a build system, or a shell that it runs in, would take
// for instructions.
std::vector<std::string> clean_environment() {
  constexpr std::array<const char*, 8> prefixes{"NDK_",  "APP_",       "LOCAL_", "TARGET_",
                                                "HOST_", "TOOLCHAIN_", "LLVM_",  "MAKE"};
  constexpr std::array<const char*, 11> names{
      "MFLAGS=", "GNUMAKEFLAGS=", "V=",        "SYSROOT=",      "BASH_ENV=",       "ENV=",
      "CDPATH=", "SHELLOPTS=",    "BASHOPTS=", "GREP_OPTIONS=", "POSIXLY_CORRECT="};
  std::vector<std::string> clean;
  for (const std::string& variable : environment()) {
    const auto begins = [&](const char* beginning) { return begins_with(variable, beginning); };
    if (std::none_of(prefixes.begin(), prefixes.end(), begins) &&
        std::none_of(names.begin(), names.end(), begins)) {
      clean.push_back(variable);
    }
  }
  // Releases from r16 on run Python scripts of their own, which would leave caches in the NDK.
  clean.emplace_back("PYTHONDONTWRITEBYTECODE=1");
  return clean;
}

ProcessResult run_ndk_build(const BuildRequest& request, const Toolchain& toolchain,
                            const std::string& abi, const std::string& project) {
  ProcessOptions options;
  options.working_directory = project;
  options.environment = clean_environment();
  options.time_limit = kTimeLimit;
  return run_process(
      {request.ndk + "/ndk-build", "NDK_PROJECT_PATH=" + project,
       "APP_BUILD_SCRIPT=" + project + "/jni/Android.mk", "NDK_TOOLCHAIN=" + toolchain.name,
       "APP_ABI=" + abi, "APP_PLATFORM=android-21", "APP_STL=none", "V=1"},
      options);
}

std::vector<std::string> last_lines(const std::string& output) {
  std::vector<std::string> lines = split(output, "\n");
  if (lines.size() > kLastLines) {
    lines.erase(lines.begin(), lines.end() - kLastLines);
  }
  return lines;
}

// How a build that did not leave its library ended; "" of one that did.
std::string why_failed(const ProcessResult& build, const std::string& library) {
  if (build.is_timed_out) {
    return "it was ended after " + std::to_string(kTimeLimit.count()) + " s";
  }
  if (build.exit_status != 0) {
    return "exit status " + std::to_string(build.exit_status);
  }
  return is_ordinary_file(library) ? "" : "it left no " + library;
}

// Builds `module` for `abi`, and enters what is wrong with that in `proof`.
void prove_build(const BuildRequest& request, const std::string& abi, const Module& module,
                 ToolchainProof& proof) {
  const std::string project = request.projects + "/" + proof.toolchain.name + "/" + abi + "/" +
                              (module.language == std::string("C") ? "c" : "cpp");
  write_project(project, module);
  const ProcessResult build = run_ndk_build(request, proof.toolchain, abi, project);
  write_text(project + "/build.log", build.output);
  throw_if_interrupted();
  const std::string what = std::string("a ") + module.language + " module for " + abi;
  const std::string failure = why_failed(build, project + "/libs/" + abi + "/libproof.so");
  if (!failure.empty()) {
    proof.result = ToolchainResult::kBuildFailed;
    proof.message = "ndk-build did not build " + what + ": " + failure;
    proof.last_lines = last_lines(build.output);
  } else if (!uses_compiler(build.output, project, request.compiler)) {
    proof.result = ToolchainResult::kOtherCompiler;
    proof.message = "ndk-build built " + what +
                    ", but with another compiler: no command names a "
                    "file in " +
                    request.compiler;
  }
}

// `path` with links followed; "" where it leads nowhere.
std::string real_path(const std::string& path) {
  std::error_code none;
  return fs::canonical(path, none).string();
}

// The program `name` in the directories of PATH; "" where it is not.
std::string program_in_path(const std::string& name) {
  const char* path = std::getenv("PATH");
  for (const std::string& dir : split(path == nullptr ? "" : path, ":")) {
    if (is_ordinary_file(dir + "/" + name)) {
      return dir + "/" + name;
    }
  }
  return "";
}

// The lines of `output`, with one that is continued by a backslash at its end made one.
std::vector<std::string> command_lines(const std::string& output) {
  std::vector<std::string> lines;
  std::istringstream input(output);
  bool goes_on = false;
  for (std::string line; std::getline(input, line);) {
    const bool ends_here = line.empty() || line.back() != '\\';
    if (!ends_here) {
      line.back() = ' ';
    }
    if (goes_on) {
      lines.back() += line;
    } else {
      lines.push_back(line);
    }
    goes_on = !ends_here;
  }
  return lines;
}

}  // namespace

bool uses_compiler(const std::string& output, const std::string& project,
                   const std::string& compiler) {
  const std::string root = real_path(compiler);
  const auto is_inside = [&](const std::string& file) {
    const std::string real = real_path(file);
    return !root.empty() && is_ordinary_file(real) && is_below(real, root);
  };
  for (const std::string& line : command_lines(output)) {
    const std::vector<std::string> words = shell_words(line);
    const bool names_file = std::any_of(words.begin(), words.end(), [&](const std::string& word) {
      return !word.empty() && is_inside(absolute_path(project, word));
    });
    const bool is_in_path = !words.empty() && words[0].find('/') == std::string::npos;
    if (names_file || (is_in_path && is_inside(program_in_path(words[0])))) {
      return true;
    }
  }
  return false;
}

void prove_builds(const BuildRequest& request, ToolchainProof& proof,
                  const std::function<void(const std::string&)>& progress) {
  const auto begin = std::chrono::steady_clock::now();
  for (const std::string& abi : proof.toolchain.abis) {
    for (const Module& module : kModules) {
      if (proof.is_good()) {
        progress(proof.toolchain.name + ": building a " + module.language + " module for " + abi);
        prove_build(request, abi, module, proof);
      }
    }
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  constexpr double kDigits = 1000;
  proof.seconds = std::round(took.count() * kDigits) / kDigits;
  if (proof.is_good()) {
    proof.result = ToolchainResult::kWorks;
    proof.message = "C and C++ modules were built with it for " + join(proof.toolchain.abis, ", ");
  }
}

}  // namespace ndk_integrate

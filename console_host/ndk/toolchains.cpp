#include "console_host/ndk/toolchains.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <sstream>

#include "console_host/base/file.h"
#include "console_host/base/files.h"
#include "console_host/base/text.h"
#include "console_host/ndk/ndk_facts.h"

namespace ndk_integrate {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSetup = "/setup.mk";
constexpr const char* kConfig = "/config.mk";

// From r11 on, and before. The older one is there afterwards too, with the NDK's own binaries.
constexpr const char* kNewPlace = "/build/core/toolchains";
constexpr const char* kOldPlace = "/toolchains";

// The names in the directory `dir`, sorted.
std::vector<std::string> names_in(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code none;
  for (fs::directory_iterator entry(dir, none), end; entry != end; entry.increment(none)) {
    names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// What the makefile `text` sets the variable `name` to, with nothing expanded; "" where it does
// not.
std::string make_variable(const std::string& text, const std::string& name) {
  std::string value;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    for (std::string next; !line.empty() && line.back() == '\\' && std::getline(lines, next);) {
      line.back() = ' ';
      line += next;
    }
    line = line.substr(0, line.find('#'));
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) {
      continue;
    }
    const std::size_t end = line.find_first_of(":+?=");
    if (trimmed(line.substr(0, end)) == name) {
      const std::string assigned = trimmed(line.substr(equals + 1));
      value = line[end] == '+' ? value + " " + assigned : assigned;
    }
  }
  return trimmed(value);
}

// The content of `file`; "" where there is no ordinary file.
std::string content_of(const std::string& file) {
  return is_ordinary_file(file) ? read_whole_file(file) : "";
}

Toolchain read_toolchain(const std::string& definitions, const std::string& name) {
  Toolchain toolchain;
  toolchain.name = name;
  toolchain.definition = definitions + "/" + name;
  const std::string config = content_of(toolchain.definition + kConfig);
  toolchain.arch = make_variable(config, "TOOLCHAIN_ARCH");
  std::istringstream abis(make_variable(config, "TOOLCHAIN_ABIS"));
  for (std::string abi; abis >> abi;) {
    toolchain.abis.push_back(abi);
  }
  toolchain.is_filled_in =
      content_of(toolchain.definition + kSetup).find("{INSTALL_NOX_") == std::string::npos;
  return toolchain;
}

bool is_one_of(const std::string& name, const std::vector<Toolchain>& toolchains) {
  return std::any_of(toolchains.begin(), toolchains.end(),
                     [&](const Toolchain& toolchain) { return toolchain.name == name; });
}

// True when the directory `place` holds something, and nothing but `toolchains`.
bool holds_only(const std::string& place, const std::vector<Toolchain>& toolchains) {
  const std::vector<std::string> names = names_in(place);
  return !names.empty() && std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    return is_one_of(name, toolchains) || !is_directory(place + "/" + name);
  });
}

// The toolchains that the NDK finds in `place`, besides `toolchains`.
std::vector<std::string> others_in(const std::string& place,
                                   const std::vector<Toolchain>& toolchains) {
  std::vector<std::string> others;
  for (const std::string& name : names_in(place)) {
    if (!is_one_of(name, toolchains) && is_ordinary_file(place + "/" + name + kConfig)) {
      others.push_back(name);
    }
  }
  return others;
}

// Whether the NDK takes the first name of an architecture as its default, as releases up to r12b
// do. One whose release cannot be read may be such a one.
bool takes_first_name(const std::string& ndk) {
  constexpr int kFirstThatDoesNot = 13;
  constexpr std::size_t kMostDigits = 9;
  const std::vector<std::string> pieces = split(read_revision(ndk), ".");
  return pieces.empty() || !is_number(pieces[0]) || pieces[0].size() > kMostDigits ||
         std::stoi(pieces[0]) < kFirstThatDoesNot;
}

// The toolchain whose place as the default of its architecture `toolchain` takes over; "" when
// none.
std::string displaced_default(const std::string& ndk, const std::string& place,
                              const Toolchain& toolchain, const std::vector<Toolchain>& all) {
  if (!takes_first_name(ndk)) {
    return "";
  }
  for (const std::string& name : others_in(place, all)) {
    const std::string config = read_whole_file(place + "/" + name + kConfig);
    if (make_variable(config, "TOOLCHAIN_ARCH") == toolchain.arch) {
      return toolchain.name < name ? name : "";
    }
  }
  return "";
}

std::string why_not_placed(const std::string& ndk, const std::string& place,
                           const Toolchain& toolchain) {
  if (place.empty()) {
    return ndk +
           " has neither build/core/toolchains nor toolchains, where an NDK reads definitions";
  }
  std::string why =
      "there is no " + place + "/" + toolchain.name + ", where this NDK would read the definition";
  for (const char* other : {kNewPlace, kOldPlace}) {
    const std::string found = ndk + other + "/" + toolchain.name;
    if (ndk + other != place &&
        (is_ordinary_file(found + kSetup) || is_ordinary_file(found + kConfig))) {
      why += "; it is in " + found + ", which this NDK does not read";
    }
  }
  return why;
}

// The file of the definition in `installed` that is not as the package has it; "" when both are.
std::string differing_file(const std::string& installed, const Toolchain& toolchain) {
  for (const char* file : {kSetup, kConfig}) {
    if (!is_ordinary_file(toolchain.definition + file) ||
        read_whole_file(installed + file) != read_whole_file(toolchain.definition + file)) {
      return file;
    }
  }
  return "";
}

}  // namespace

const char* word_of(ToolchainResult result) {
  switch (result) {
    case ToolchainResult::kWorks:
      return "works";
    case ToolchainResult::kPlaced:
      return "placed";
    case ToolchainResult::kNotPlaced:
      return "not-placed";
    case ToolchainResult::kNoConfig:
      return "no-config";
    case ToolchainResult::kNoSetup:
      return "no-setup";
    case ToolchainResult::kDiffers:
      return "differs";
    case ToolchainResult::kTakesOverDefault:
      return "takes-over-default";
    case ToolchainResult::kBuildFailed:
      return "build-failed";
    default:
      return "other-compiler";
  }
}

std::vector<Toolchain> toolchains_in(const std::string& definitions, const std::string& version) {
  const std::array<std::string, 2> fixed_names{"x86_64-nox" + version, "x86-nox" + version};
  std::vector<Toolchain> toolchains;
  for (const std::string& name : fixed_names) {
    if (is_ordinary_file(definitions + "/" + name + kSetup)) {
      toolchains.push_back(read_toolchain(definitions, name));
    }
  }
  for (const std::string& name : names_in(definitions)) {
    if (is_ordinary_file(definitions + "/" + name + kSetup) && !is_one_of(name, toolchains)) {
      const Toolchain toolchain = read_toolchain(definitions, name);
      if (toolchain.is_filled_in) {  // else it is another version's
        toolchains.push_back(toolchain);
      }
    }
  }
  return toolchains;
}

std::string toolchain_place(const std::string& ndk, const std::vector<Toolchain>& toolchains) {
  const bool is_new =
      is_directory(ndk + kNewPlace) &&
      (!holds_only(ndk + kNewPlace, toolchains) || others_in(ndk + kOldPlace, toolchains).empty());
  const std::string place = ndk + (is_new ? kNewPlace : kOldPlace);
  return is_directory(place) ? place : "";
}

ToolchainProof prove_placed(const std::string& ndk, const Toolchain& toolchain,
                            const std::vector<Toolchain>& all) {
  const auto proof = [&](ToolchainResult result, const std::string& message) {
    return ToolchainProof{toolchain, result, message, {}, 0};
  };
  const std::string place = toolchain_place(ndk, all);
  const std::string installed = place + "/" + toolchain.name;
  const bool has_setup = !place.empty() && is_ordinary_file(installed + kSetup);
  const bool has_config = !place.empty() && is_ordinary_file(installed + kConfig);
  if (!has_setup && !has_config) {
    return proof(ToolchainResult::kNotPlaced, why_not_placed(ndk, place, toolchain));
  }
  if (!has_setup) {
    return proof(ToolchainResult::kNoSetup,
                 installed +
                     " has a config.mk and no setup.mk, which breaks every build with this "
                     "NDK: install again, or remove " +
                     installed + kConfig);
  }
  if (!has_config) {
    return proof(ToolchainResult::kNoConfig,
                 installed + " has no config.mk, without which this NDK does not see it" +
                     (is_ordinary_file(toolchain.definition + kConfig)
                          ? ""
                          : "; the package has none either: " + toolchain.definition + kConfig));
  }
  if (const std::string file = differing_file(installed, toolchain); !file.empty()) {
    return proof(ToolchainResult::kDiffers, installed + file + " is not what the package has in " +
                                                toolchain.definition + file);
  }
  if (toolchain.arch.empty() || toolchain.abis.empty()) {
    return proof(ToolchainResult::kNoConfig, installed + kConfig +
                                                 " does not set both TOOLCHAIN_ARCH and "
                                                 "TOOLCHAIN_ABIS");
  }
  if (const std::string displaced = displaced_default(ndk, place, toolchain, all);
      !displaced.empty()) {
    return proof(ToolchainResult::kTakesOverDefault,
                 toolchain.name + " sorts before " + displaced +
                     ", so this NDK takes it as everybody's default for " + toolchain.arch);
  }
  return proof(ToolchainResult::kPlaced, "both files are in " + installed);
}

}  // namespace ndk_integrate

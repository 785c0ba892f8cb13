#include "console_host/commands/check_host_program.h"

#include <algorithm>
#include <set>

#include "console_host/base/elf_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/shared_library.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/host_program.h"

namespace ndk_integrate {

namespace {

// How a state is called in JSON, what it means, and what to do about it whatever the plug-in is.
struct StateTexts {
  const char* name;
  const char* meaning;
  const char* remedy;
};

StateTexts texts_of(Export state) {
  switch (state) {
    case Export::kExported:
      return {"exported", "exported", ""};
    case Export::kMissing:
      return {"missing", "missing", "define what is missing, as host/host.h declares it"};
    case Export::kMissingOrNotExported:
      return {
          "missing-or-not-exported", "missing, or not exported",
          "the program is stripped, so it cannot be told what is missing from what is not "
          "exported: define it, link with -rdynamic, and look at a program that is not stripped"};
    case Export::kNotExported:
      return {"not-exported", "there, but not in the dynamic table",
              "link the host with -rdynamic, or with a dynamic list that names the function"};
    case Export::kHidden:
      return {
          "hidden", "there, but with hidden visibility, or local",
          "compile the function without -fvisibility=hidden and not as static, or give it "
          "__attribute__((visibility(\"default\"))); keep it out of --exclude-libs and of what a "
          "version script calls local; and link with -rdynamic"};
    case Export::kOldStrings:
      return {"old-string-layout", "there, but with the old string layout", ""};
    case Export::kPresentStrings:
      return {"present-string-layout", "there, but with the present string layout", ""};
    case Export::kLibcxx:
      return {"libcxx", "there, but with the strings of libc++", ""};
    case Export::kOtherParameters:
      return {"other-parameters", "there, but with other parameters or C linkage",
              "include host/host.h where the function is defined, and define what it declares"};
  }
  return {"", "", ""};
}

// What a file is built with that has these strings; "" where `state` tells of none.
std::string build_of(Export state) {
  switch (state) {
    case Export::kOldStrings:
      return "libstdc++ and -D_GLIBCXX_USE_CXX11_ABI=0";
    case Export::kPresentStrings:
      return "libstdc++ and -D_GLIBCXX_USE_CXX11_ABI=1";
    case Export::kLibcxx:
      return "libc++ (clang++ -stdlib=libc++)";
    default:
      return "";
  }
}

std::string remedy_for(Export state, Export plugin_strings) {
  return build_of(state).empty()
             ? texts_of(state).remedy
             : "build the host with " + build_of(plugin_strings) +
                   ", or take the plug-in that was built with " + build_of(state);
}

ElfFile read_program(const std::string& file) {
  try {
    ElfFile program = read_elf_file(file);
    if (!program.is_program) {
      throw NotElfError(
          file + ": a shared library, not a program; name the program that is linked with it");
    }
    return program;
  } catch (const NotElfError& error) {
    throw UsageError(error.what());
  }
}

ElfFile read_plugin(const std::string& file) {
  const std::string found = find_library("libndk_utils.so.1n", file);
  if (found.find('/') == std::string::npos) {
    throw PluginError("cannot find the plug-in " + found + "; name it with --plugin");
  }
  try {
    ElfFile plugin = read_elf_file(found);
    const auto& symbols = plugin.dynamic_symbols;
    if (std::none_of(symbols.begin(), symbols.end(), [](const ElfSymbol& symbol) {
          return symbol.defined && symbol.name == "detect_ndk";
        })) {
      throw PluginError("cannot use the plug-in " + found + ": it has no function detect_ndk");
    }
    return plugin;
  } catch (const NotElfError& error) {
    throw PluginError(std::string("cannot read the plug-in ") + error.what());
  }
}

// What is said of the whole program besides its functions.
std::vector<std::string> remarks(const ElfFile& program, const ElfFile& plugin,
                                 const HostProgram& result) {
  std::vector<std::string> remarks;
  if (!program.fits(plugin)) {
    remarks.push_back("the program is for " + program.machine_name() + ", the plug-in " +
                      plugin.file.string() + " for " + plugin.machine_name() +
                      "; take the plug-in of the program's machine");
  }
  if (program.is_static_program()) {
    remarks.emplace_back(
        "the program is linked statically, so nothing that it has is exported; link it "
        "dynamically");
  }
  for (const std::string& library : result.not_found) {
    remarks.push_back("not looked at: the program's library " + library +
                      ", which is not where the loader looks, or is for another machine");
  }
  std::set<std::string> remedies;
  for (const ContractFunction& function : result.functions) {
    const std::string remedy = remedy_for(function.state, result.plugin_strings);
    if (!remedy.empty() && remedies.insert(remedy).second) {
      remarks.push_back(std::string("where a function is ") + texts_of(function.state).meaning +
                        ": " + remedy);
    }
  }
  return remarks;
}

std::string summary(const HostProgram& result) {
  return result.dlopen_error.empty() ? "the plug-in will load"
                                     : "the plug-in will not load; dlopen: " + result.dlopen_error;
}

std::string undefined(const ContractFunction& function) {
  return function.state == Export::kExported ? "" : "undefined symbol: " + function.symbol;
}

void print_json(const ElfFile& program, const ElfFile& plugin, const HostProgram& result) {
  const auto text_or_null = [](const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
  };
  Json functions = Json::array();
  for (const ContractFunction& function : result.functions) {
    functions.push_back({{"name", function.name},
                         {"symbol", function.symbol},
                         {"status", texts_of(function.state).name},
                         {"found_in", text_or_null(function.found_in)},
                         {"found_as", text_or_null(function.found_as)},
                         {"dlopen_error", text_or_null(undefined(function))}});
  }
  say_json({{"schema", 1},
            {"program", program.file.string()},
            {"machine", program.machine_name()},
            {"plugin", plugin.file.string()},
            {"plugin_machine", plugin.machine_name()},
            {"loads", result.dlopen_error.empty()},
            {"dlopen_error", text_or_null(result.dlopen_error)},
            {"functions", functions},
            {"remarks", remarks(program, plugin, result)},
            {"message", summary(result)}});
}

void print_text(const ElfFile& program, const ElfFile& plugin, const HostProgram& result) {
  for (const ContractFunction& function : result.functions) {
    std::string line = function.name + ": " + texts_of(function.state).meaning;
    if (!function.found_in.empty() && function.found_in != program.file) {
      line += " (in " + function.found_in + ")";
    }
    if (function.state != Export::kExported) {
      line += "; dlopen: " + undefined(function);
    }
    say(line);
  }
  for (const std::string& remark : remarks(program, plugin, result)) {
    say(remark);
  }
  say_always(summary(result));
}

}  // namespace

ExitCode check_host_program(const HostProgramOptions& options, const std::string& plugin_file) {
  const ElfFile program = read_program(options.program.value_or(""));
  const ElfFile plugin = read_plugin(plugin_file);
  const HostProgram result = judge_host_program(program, plugin);
  if (options.json) {
    print_json(program, plugin, result);
  } else {
    print_text(program, plugin, result);
  }
  return result.dlopen_error.empty() ? kDone : kNotDone;
}

}  // namespace ndk_integrate

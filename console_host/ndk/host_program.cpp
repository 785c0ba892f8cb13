#include "console_host/ndk/host_program.h"

#include <cxxabi.h>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

enum class Strings { kOld, kPresent, kLibcxx };

// `symbol` as people write it, whatever the string layout: "path(std::string)". As it is, where it
// is not a name of C++, or is longer than any of the contract: a few hundred bytes can stand for
// more text than there is memory.
std::string plain_name(const std::string& symbol) {
  constexpr std::size_t kLongest = 128;
  if (symbol.size() > kLongest) {
    return symbol;
  }
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
  std::string name = demangled ? demangled.get() : symbol;
  name = replace_all(name, "[abi:cxx11]", "").text;
  for (const char* space : {"__cxx11::", "__1::", "__ndk1::"}) {
    name = replace_all(name, std::string("std::") + space, "std::").text;
  }
  return replace_all(name, "std::basic_string<char, std::char_traits<char>, std::allocator<char> >",
                     "std::string")
      .text;
}

std::string without_parameters(const std::string& plain) {
  return plain.substr(0, plain.find('('));
}

// The name that a function gets where it is static: "_ZL4path..." for "_Z4path...".
std::string as_static(const std::string& symbol) {
  return begins_with(symbol, "_Z") ? "_ZL" + symbol.substr(2) : symbol;
}

// The layout that `symbol` tells by itself; where its parameters hold no string, libc++'s name is
// the old one.
Strings strings_of(const std::string& symbol) {
  if (symbol.find("NSt3__1") != std::string::npos ||
      symbol.find("NSt6__ndk1") != std::string::npos) {
    return Strings::kLibcxx;
  }
  if (symbol.find("cxx11") != std::string::npos) {
    return Strings::kPresent;
  }
  return Strings::kOld;
}

Export state_of(Strings strings) {
  switch (strings) {
    case Strings::kPresent:
      return Export::kPresentStrings;
    case Strings::kLibcxx:
      return Export::kLibcxx;
    default:
      return Export::kOldStrings;
  }
}

// The layout of a file that has these symbols.
Strings strings_of(const std::set<std::string>& symbols) {
  for (const Strings layout : {Strings::kLibcxx, Strings::kPresent}) {
    if (std::any_of(symbols.begin(), symbols.end(),
                    [&](const std::string& symbol) { return strings_of(symbol) == layout; })) {
      return layout;
    }
  }
  return Strings::kOld;
}

// The names of host/host.h, without parameters.
bool is_of_the_contract(const std::string& plain) {
  constexpr std::array<const char*, 13> kFunctions{
      "env_get_string", "env_set_string",       "print_log",         "error",       "path",
      "file_exists",    "is_writable",          "file_move",         "splitString", "strtoint",
      "inttostr",       "replaceAllSubstrings", "get_command_output"};
  const std::string name = without_parameters(plain);
  return std::find(kFunctions.begin(), kFunctions.end(), name) != kFunctions.end() ||
         begins_with(name, "Component::") || begins_with(name, "TSD::") ||
         begins_with(name, "IniDb::");
}

bool loader_finds(const ElfSymbol& symbol) {
  return symbol.defined && !symbol.local && !symbol.hidden && !symbol.superseded;
}

// A function that a file has, by its plain name.
struct Candidate {
  const ElfSymbol* symbol;
  const ElfFile* file;
  bool in_dynamic_table;
};

class Judge {
 public:
  Judge(const ElfFile& program, const std::vector<ElfFile>& libraries,
        std::set<std::string> contract)
      : program_(program), contract_(std::move(contract)) {
    add(program);
    for (const ElfFile& library : libraries) {
      add(library);
    }
  }

  ContractFunction judge(const std::string& symbol) const {
    ContractFunction function{plain_name(symbol), symbol, Export::kMissing, "", ""};
    if (const Candidate* exact = find_exactly(function)) {
      function.found_in = exact->file->file.string();
      function.state = exported_or_why_not(*exact);
    } else if (const Candidate* other = find_by(function.name, plain_)) {
      tell(*other, state_of(is_libcxx_ ? Strings::kLibcxx : strings_of(other->symbol->name)),
           function);
    } else if (const Candidate* namesake =
                   find_by(without_parameters(function.name), by_bare_name_)) {
      tell(*namesake, Export::kOtherParameters, function);
    } else if (!program_.has_symbol_table) {
      function.state = Export::kMissingOrNotExported;
    }
    return function;
  }

 private:
  using Candidates = std::multimap<std::string, Candidate>;

  void add(const ElfFile& file) {
    add(file, file.dynamic_symbols, !file.is_static_program());
    add(file, file.all_symbols, false);
  }

  void add(const ElfFile& file, const std::vector<ElfSymbol>& symbols, bool dynamic) {
    for (const ElfSymbol& symbol : symbols) {
      if (!symbol.defined || symbol.name.find('.') != std::string::npos) {  // "f.cold" is part of f
        continue;
      }
      const std::string plain = plain_name(symbol.name);
      if (!is_of_the_contract(plain)) {
        continue;
      }
      const Candidate candidate{&symbol, &file, dynamic};
      plain_.emplace(plain, candidate);
      // Another overload is not the function with other parameters, and what C calls `error` is not
      // the contract's.
      const bool is_mangled = plain != symbol.name;
      if (contract_.count(symbol.name) == 0 &&
          (is_mangled || (&file == &program_ && symbol.function))) {
        by_bare_name_.emplace(without_parameters(plain), candidate);
      }
      is_libcxx_ = is_libcxx_ || strings_of(symbol.name) == Strings::kLibcxx;
    }
  }

  // One that the loader finds before one that it does not.
  const Candidate* find_exactly(const ContractFunction& function) const {
    const Candidate* found = nullptr;
    const auto [begin, end] = plain_.equal_range(function.name);
    for (auto it = begin; it != end; ++it) {
      const Candidate& candidate = it->second;
      if (candidate.symbol->name != function.symbol &&
          candidate.symbol->name != as_static(function.symbol)) {
        continue;
      }
      if (candidate.in_dynamic_table && loader_finds(*candidate.symbol)) {
        return &candidate;
      }
      if (found == nullptr || candidate.symbol->hidden) {
        found = &candidate;
      }
    }
    return found;
  }

  static const Candidate* find_by(const std::string& name, const Candidates& candidates) {
    const auto found = candidates.find(name);
    return found == candidates.end() ? nullptr : &found->second;
  }

  static Export exported_or_why_not(const Candidate& candidate) {
    if (candidate.in_dynamic_table && loader_finds(*candidate.symbol)) {
      return Export::kExported;
    }
    // The linker makes what is hidden in an executable local.
    return candidate.symbol->hidden || candidate.symbol->local ? Export::kHidden
                                                               : Export::kNotExported;
  }

  static void tell(const Candidate& candidate, Export state, ContractFunction& function) {
    function.state = state;
    function.found_in = candidate.file->file.string();
    function.found_as = candidate.symbol->name;
  }

  const ElfFile& program_;
  std::set<std::string> contract_;  // as the plug-in is linked with it
  Candidates plain_;
  Candidates by_bare_name_;
  bool is_libcxx_ = false;
};

// The first of the plug-in's names that the loader cannot bind.
std::string first_undefined(const std::vector<ContractFunction>& functions, const ElfFile& plugin) {
  std::vector<std::string> names = plugin.relocated_names;
  for (const ContractFunction& function : functions) {
    names.push_back(function.symbol);
  }
  for (const std::string& name : names) {
    for (const ContractFunction& function : functions) {
      if (function.symbol == name && function.state != Export::kExported) {
        return "undefined symbol: " + name;
      }
    }
  }
  return "";
}

std::string dlopen_error(const ElfFile& program, const ElfFile& plugin,
                         const std::vector<ContractFunction>& functions) {
  if (program.bits != plugin.bits) {
    return "wrong ELF class: ELFCLASS" + std::to_string(plugin.bits);
  }
  if (!plugin.fits(program)) {
    return "cannot open shared object file: No such file or directory";
  }
  return first_undefined(functions, plugin);
}

}  // namespace

HostProgram judge_host_program(const ElfFile& program, const ElfFile& plugin) {
  HostProgram result;
  const std::vector<ElfFile> libraries = linked_libraries(program, result.not_found);
  std::set<std::string> contract;
  for (const ElfSymbol& symbol : plugin.dynamic_symbols) {
    if (symbol.required && !symbol.versioned && is_of_the_contract(plain_name(symbol.name))) {
      contract.insert(symbol.name);
    }
  }
  result.plugin_strings = state_of(strings_of(contract));
  const Judge judge(program, libraries, contract);
  for (const std::string& symbol : contract) {
    result.functions.push_back(judge.judge(symbol));
  }
  std::sort(result.functions.begin(), result.functions.end(),
            [](const auto& one, const auto& other) { return one.name < other.name; });
  result.dlopen_error = dlopen_error(program, plugin, result.functions);
  return result;
}

}  // namespace ndk_integrate

// Which of the contract's functions a host's program gives the plug-in, told from the two files.
#ifndef CONSOLE_HOST_NDK_HOST_PROGRAM_H
#define CONSOLE_HOST_NDK_HOST_PROGRAM_H

#include <string>
#include <vector>

#include "console_host/base/elf_file.h"

namespace ndk_integrate {

enum class Export {
  kExported,
  kMissing,
  kMissingOrNotExported,  // a stripped program, of which only what it exports can be seen
  kNotExported,           // there, but not in the dynamic table
  kHidden,                // there, but with hidden visibility, static or made local by the linker
  kOldStrings,            // there, but with the other string layout: the old one,
  kPresentStrings,        // the present one
  kLibcxx,                // or libc++'s
  kOtherParameters,       // a function of that name takes something else
};

struct ContractFunction {
  std::string name;    // as people write it: "file_exists(std::string const&, bool)"
  std::string symbol;  // the name that the plug-in is linked with
  Export state = Export::kMissing;
  std::string found_in;  // the file that has it, "" where none has
  std::string found_as;  // where it is there with another layout or other parameters: that symbol
};

struct HostProgram {
  std::vector<ContractFunction> functions;          // those that the plug-in needs, sorted by name
  Export plugin_strings = Export::kPresentStrings;  // the layout that the plug-in has
  std::vector<std::string> not_found;  // libraries of the program that could not be looked at
  std::string dlopen_error;  // what follows when the program loads the plug-in; "" when it loads
};

// What the plug-in, read from `plugin`, finds in `program` and the libraries that it is linked
// with.
HostProgram judge_host_program(const ElfFile& program, const ElfFile& plugin);

}  // namespace ndk_integrate

#endif

// What an ELF file says of itself, read without running it.
#ifndef CONSOLE_HOST_BASE_ELF_FILE_H
#define CONSOLE_HOST_BASE_ELF_FILE_H

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace ndk_integrate {

// The file cannot be read, or is not an ELF program or shared library, or not a whole one.
class NotElfError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct ElfSymbol {
  std::string name;         // as the compiler mangled it; at most 1000 bytes
  bool defined = false;     // in this file
  bool required = false;    // not defined, and not weak
  bool versioned = false;   // with a version of its own, or required of another library
  bool local = false;       // of the file alone, as `static` makes it
  bool hidden = false;      // with hidden or internal visibility
  bool superseded = false;  // an older version of its name, which a plain reference does not get
  bool function = false;
};

struct ElfFile {
  std::filesystem::path file;
  int bits = 0;     // 32 or 64
  int machine = 0;  // EM_..., from <elf.h>
  bool little_endian = true;
  bool has_interpreter = false;   // the loader starts it: a program that is linked dynamically
  bool is_dynamic = false;        // it has a dynamic section
  bool is_program = false;        // not a shared library
  bool has_symbol_table = false;  // the full one, which strip removes

  std::vector<ElfSymbol> dynamic_symbols;  // what the loader sees
  std::vector<ElfSymbol> all_symbols;      // the full table
  // The names that relocations refer to, each once, in the order in which the loader meets them.
  std::vector<std::string> relocated_names;
  std::vector<std::string> needed;   // the libraries that it is linked with, by name
  std::vector<std::string> rpath;    // where these are looked for, before and
  std::vector<std::string> runpath;  // after LD_LIBRARY_PATH; with $ORIGIN and the like put in

  // The machine as people call it, such as "x86_64" or "32-bit ARM".
  std::string machine_name() const;
  // A program that the loader does not start, and that it therefore does not see.
  bool is_static_program() const { return is_program && !has_interpreter; }
  // Whether one process can hold both files.
  bool fits(const ElfFile& other) const;
};

// Throws NotElfError.
ElfFile read_elf_file(const std::filesystem::path& file);

// The libraries that `program` is linked with, and theirs, in the order in which the loader looks
// into them. Those that it would not find, or that cannot be read, are named in `not_found`.
std::vector<ElfFile> linked_libraries(const ElfFile& program, std::vector<std::string>& not_found);

}  // namespace ndk_integrate

#endif

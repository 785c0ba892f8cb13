#include "console_host/base/elf_file.h"

#include <elf.h>
#include <fcntl.h>
#include <gelf.h>
#include <glob.h>
#include <libelf.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "console_host/base/errors.h"
#include "console_host/base/file_descriptor.h"

namespace fs = std::filesystem;

namespace ndk_integrate {

namespace {

struct ElfCloser {
  void operator()(Elf* elf) const { elf_end(elf); }
};
using ElfHandle = std::unique_ptr<Elf, ElfCloser>;

// More is damage, not a program.
constexpr std::size_t kMostSymbols = 10'000'000;
constexpr std::size_t kMostLibraries = 1000;
constexpr std::size_t kMostDirectories = 1000;
constexpr std::size_t kLongestName =
    1000;  // of a symbol or a library; of a longer one the beginning

// Reads one file. What the loader uses is found as the loader finds it, through the dynamic
// segment; only the full symbol table is looked up in the section headers, which may be missing.
class Reader {
 public:
  explicit Reader(const fs::path& file)
      : descriptor_(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    result_.file = file;
    elf_ = opened();
  }

  ElfFile read() {
    read_header();
    read_segments();
    read_dynamic_section();
    read_dynamic_symbols();
    read_relocations();
    read_symbol_table();
    return std::move(result_);
  }

 private:
  [[noreturn]] void refuse(const std::string& why) const {
    throw NotElfError(result_.file.string() + ": " + why);
  }
  [[noreturn]] void refuse_as_damaged() const {
    refuse("a damaged ELF file, or one that is cut short");
  }

  ElfHandle opened() {
    struct stat status {};
    if (!descriptor_.is_open() || fstat(descriptor_.number(), &status) != 0) {
      refuse("cannot be read: " + system_error_text(errno));
    }
    if (!S_ISREG(status.st_mode)) {
      refuse("not a file");
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    elf_version(EV_CURRENT);
    ElfHandle elf(elf_begin(descriptor_.number(), ELF_C_READ, nullptr));
    if (!elf || elf_kind(elf.get()) != ELF_K_ELF) {
      refuse("not an ELF program");
    }
    return elf;
  }

  void read_header() {
    GElf_Ehdr header{};
    if (gelf_getehdr(elf_.get(), &header) == nullptr) {
      refuse_as_damaged();
    }
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
      refuse(header.e_type == ET_REL ? "an object file, which is not linked yet"
                                     : "neither a program nor a shared library");
    }
    result_.bits = header.e_ident[EI_CLASS] == ELFCLASS64 ? 64 : 32;
    result_.little_endian = header.e_ident[EI_DATA] == ELFDATA2LSB;
    result_.machine = header.e_machine;
    result_.is_program = header.e_type == ET_EXEC;
    if (header.e_shoff != 0 &&
        !lies_in_file(header.e_shoff, std::uint64_t{header.e_shnum} * header.e_shentsize)) {
      refuse_as_damaged();
    }
  }

  bool lies_in_file(std::uint64_t offset, std::uint64_t size) const {
    return offset <= size_ && size <= size_ - offset;
  }

  void read_segments() {
    std::size_t count = 0;
    if (elf_getphdrnum(elf_.get(), &count) != 0 || count == 0) {
      refuse_as_damaged();
    }
    for (std::size_t i = 0; i < count; ++i) {
      GElf_Phdr segment{};
      if (gelf_getphdr(elf_.get(), static_cast<int>(i), &segment) == nullptr) {
        refuse_as_damaged();
      }
      const bool is_read =
          segment.p_type == PT_LOAD || segment.p_type == PT_DYNAMIC || segment.p_type == PT_INTERP;
      if (is_read && !lies_in_file(segment.p_offset, segment.p_filesz)) {
        refuse_as_damaged();
      }
      if (segment.p_type == PT_LOAD) {
        loaded_.push_back(segment);
      } else if (segment.p_type == PT_DYNAMIC) {
        dynamic_ = segment;
      } else if (segment.p_type == PT_INTERP) {
        result_.has_interpreter = true;
        result_.is_program = true;
      }
    }
    if (loaded_.empty()) {
      refuse_as_damaged();
    }
  }

  // What lies at `address` once the file is loaded, at most `size` bytes of it.
  Elf_Data* at(std::uint64_t address, std::uint64_t size, Elf_Type type) const {
    for (const GElf_Phdr& segment : loaded_) {
      if (address >= segment.p_vaddr && address - segment.p_vaddr < segment.p_filesz) {
        const std::uint64_t skipped = address - segment.p_vaddr;
        return elf_getdata_rawchunk(elf_.get(),
                                    static_cast<std::int64_t>(segment.p_offset + skipped),
                                    std::min(size, segment.p_filesz - skipped), type);
      }
    }
    return nullptr;
  }

  std::size_t entry_size(Elf_Type type) const {
    return gelf_fsize(elf_.get(), type, 1, EV_CURRENT);
  }

  // The text that begins at `offset` of the table of names, at most `longest` bytes of it; "" when
  // it is not in there.
  static std::string text_in(const Elf_Data* names, std::uint64_t offset,
                             std::size_t longest = kLongestName) {
    if (names == nullptr || names->d_buf == nullptr || offset >= names->d_size) {
      return "";
    }
    const char* begin = static_cast<const char*>(names->d_buf) + offset;
    return {begin, strnlen(begin, std::min(names->d_size - offset, longest))};
  }

  void read_dynamic_section() {
    if (!dynamic_) {
      return;
    }
    const Elf_Data* data = elf_getdata_rawchunk(
        elf_.get(), static_cast<std::int64_t>(dynamic_->p_offset), dynamic_->p_filesz, ELF_T_DYN);
    if (data == nullptr) {
      refuse_as_damaged();
    }
    result_.is_dynamic = true;
    std::vector<std::uint64_t> needed;
    GElf_Dyn entry{};
    for (int i = 0; gelf_getdyn(const_cast<Elf_Data*>(data), i, &entry) != nullptr; ++i) {
      if (entry.d_tag == DT_NULL) {
        break;
      }
      tags_[entry.d_tag] = entry.d_un.d_val;
      if (entry.d_tag == DT_NEEDED) {
        needed.push_back(entry.d_un.d_val);
      }
    }
    if (needed.size() > kMostLibraries) {
      refuse_as_damaged();
    }
    names_ = at(tag(DT_STRTAB), tag(DT_STRSZ), ELF_T_BYTE);
    for (const std::uint64_t name : needed) {
      result_.needed.push_back(text_in(names_, name));
    }
    result_.runpath = directories(DT_RUNPATH);
    if (tags_.count(DT_RUNPATH) == 0) {
      result_.rpath = directories(DT_RPATH);
    }
    if ((tag(DT_FLAGS_1) & DF_1_PIE) != 0) {
      result_.is_program = true;
    }
  }

  std::uint64_t tag(std::int64_t name) const {
    const auto found = tags_.find(name);
    return found == tags_.end() ? 0 : found->second;
  }

  // The directories of the list that `name` tells, DT_RPATH or DT_RUNPATH.
  std::vector<std::string> directories(std::int64_t name) const {
    std::vector<std::string> result;
    if (tags_.count(name) == 0) {
      return result;
    }
    const std::string origin = fs::weakly_canonical(result_.file).parent_path().string();
    std::istringstream in(text_in(names_, tag(name), SIZE_MAX));
    for (std::string directory;
         result.size() < kMostDirectories && std::getline(in, directory, ':');) {
      for (const auto& [token, value] :
           std::map<std::string, std::string>{{"$ORIGIN", origin},
                                              {"${ORIGIN}", origin},
                                              {"$LIB", result_.bits == 64 ? "lib64" : "lib"},
                                              {"${LIB}", result_.bits == 64 ? "lib64" : "lib"}}) {
        const std::size_t begin = directory.find(token);
        if (begin != std::string::npos) {
          directory.replace(begin, token.size(), value);
        }
      }
      result.push_back(directory.empty() ? "." : directory);
    }
    return result;
  }

  // How many dynamic symbols there are, which only the hash tables tell.
  std::size_t dynamic_symbol_count() const {
    const Elf_Data* table = at(tag(DT_HASH), 8, ELF_T_WORD);
    if (tag(DT_HASH) != 0 && table != nullptr) {
      return table->d_size < 8 ? 0 : static_cast<const std::uint32_t*>(table->d_buf)[1];
    }
    return tag(DT_GNU_HASH) == 0 ? 0 : count_in_gnu_hash_table(tag(DT_GNU_HASH));
  }

  // The highest symbol that a bucket begins with, and from there to the end of its chain.
  std::size_t count_in_gnu_hash_table(std::uint64_t address) const {
    const Elf_Data* header = at(address, 16, ELF_T_WORD);
    if (header == nullptr || header->d_size < 16) {
      return 0;
    }
    const auto* word = static_cast<const std::uint32_t*>(header->d_buf);
    const std::uint64_t buckets = word[0];
    const std::uint64_t first = word[1];
    const std::uint64_t bucket_address =
        address + 16 + std::uint64_t{word[2]} * (static_cast<unsigned>(result_.bits) / 8U);
    const Elf_Data* table = at(bucket_address, buckets * 4, ELF_T_WORD);
    if (table == nullptr || table->d_size < buckets * 4) {
      return 0;
    }
    const auto* begin = static_cast<const std::uint32_t*>(table->d_buf);
    std::uint64_t last = buckets == 0 ? 0 : *std::max_element(begin, begin + buckets);
    if (last < first) {
      return first;
    }
    const std::uint64_t chains = bucket_address + buckets * 4;
    const Elf_Data* chain = at(chains + (last - first) * 4, kMostSymbols * 4, ELF_T_WORD);
    if (chain == nullptr) {
      return 0;
    }
    const auto* link = static_cast<const std::uint32_t*>(chain->d_buf);
    for (std::size_t i = 0; i < chain->d_size / 4 && (link[i] & 1U) == 0; ++i) {
      ++last;
    }
    return last + 1;
  }

  static ElfSymbol symbol_of(const GElf_Sym& entry, const std::string& name) {
    ElfSymbol symbol;
    symbol.name = name;
    const unsigned bind = GELF_ST_BIND(entry.st_info);
    const unsigned type = GELF_ST_TYPE(entry.st_info);
    const unsigned visibility = GELF_ST_VISIBILITY(entry.st_other);
    symbol.defined = entry.st_shndx != SHN_UNDEF;
    symbol.required = !symbol.defined && bind != STB_WEAK;
    symbol.local = bind == STB_LOCAL;
    symbol.hidden = visibility == STV_HIDDEN || visibility == STV_INTERNAL;
    symbol.function = type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE;
    return symbol;
  }

  void read_dynamic_symbols() {
    const std::size_t count = std::min(dynamic_symbol_count(), kMostSymbols);
    Elf_Data* table =
        count == 0 ? nullptr : at(tag(DT_SYMTAB), count * entry_size(ELF_T_SYM), ELF_T_SYM);
    if (table == nullptr) {
      return;
    }
    const Elf_Data* versions =
        tag(DT_VERSYM) == 0 ? nullptr : at(tag(DT_VERSYM), count * 2, ELF_T_HALF);
    GElf_Sym entry{};
    for (std::size_t i = 0; i < count; ++i) {
      if (gelf_getsym(table, static_cast<int>(i), &entry) == nullptr) {
        refuse_as_damaged();
      }
      ElfSymbol symbol = symbol_of(entry, text_in(names_, entry.st_name));
      if (versions != nullptr && (i + 1) * 2 <= versions->d_size) {
        const unsigned version = static_cast<const std::uint16_t*>(versions->d_buf)[i];
        constexpr unsigned kNotTheNewest = 0x8000;
        constexpr unsigned kFirstOfItsOwn = 2;
        const unsigned number = version & ~kNotTheNewest;
        symbol.versioned = number >= kFirstOfItsOwn;
        // The loader gives a plain reference the first version, or else the newest one.
        symbol.superseded = (version & kNotTheNewest) != 0 && number > kFirstOfItsOwn;
      }
      result_.dynamic_symbols.push_back(std::move(symbol));
    }
  }

  void read_relocations() {
    add_relocated_names(tag(DT_REL), tag(DT_RELSZ), false);
    add_relocated_names(tag(DT_RELA), tag(DT_RELASZ), true);
    add_relocated_names(tag(DT_JMPREL), tag(DT_PLTRELSZ), tag(DT_PLTREL) == DT_RELA);
  }

  void add_relocated_names(std::uint64_t address, std::uint64_t size, bool with_addends) {
    Elf_Data* table =
        size == 0 ? nullptr : at(address, size, with_addends ? ELF_T_RELA : ELF_T_REL);
    if (table == nullptr) {
      return;
    }
    is_relocated_.resize(result_.dynamic_symbols.size());
    for (int i = 0;; ++i) {
      GElf_Rela with{};
      GElf_Rel without{};
      if (with_addends ? gelf_getrela(table, i, &with) == nullptr
                       : gelf_getrel(table, i, &without) == nullptr) {
        return;
      }
      const std::size_t symbol = GELF_R_SYM(with_addends ? with.r_info : without.r_info);
      if (symbol != 0 && symbol < is_relocated_.size() && !is_relocated_[symbol]) {
        is_relocated_[symbol] = true;
        result_.relocated_names.push_back(result_.dynamic_symbols[symbol].name);
      }
    }
  }

  // A file has at most one.
  void read_symbol_table() {
    Elf_Scn* section = nullptr;
    GElf_Shdr header{};
    do {
      section = elf_nextscn(elf_.get(), section);
      if (section == nullptr) {
        return;
      }
    } while (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_SYMTAB);
    result_.has_symbol_table = true;
    Elf_Data* table = elf_getdata(section, nullptr);
    const Elf_Data* names = elf_getdata(elf_getscn(elf_.get(), header.sh_link), nullptr);
    GElf_Sym entry{};
    for (int i = 0; table != nullptr && gelf_getsym(table, i, &entry) != nullptr; ++i) {
      result_.all_symbols.push_back(symbol_of(entry, text_in(names, entry.st_name)));
    }
  }

  FileDescriptor descriptor_;
  ElfFile result_;
  std::uint64_t size_ = 0;
  ElfHandle elf_;
  std::vector<GElf_Phdr> loaded_;
  std::optional<GElf_Phdr> dynamic_;
  std::map<std::int64_t, std::uint64_t> tags_;
  const Elf_Data* names_ = nullptr;
  std::vector<bool> is_relocated_;
};

// The directories of the loader's configuration `file` and of those that it includes.
void add_configured_directories(const fs::path& file, std::vector<std::string>& directories,
                                int depth = 0) {
  constexpr int kDeepest = 8;
  std::ifstream in(file);
  for (std::string line; depth < kDeepest && std::getline(in, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string word;
    words >> word;
    if (word.rfind('/', 0) == 0) {
      directories.push_back(word);
    }
    for (std::string pattern; word == "include" && words >> pattern;) {
      glob_t found{};
      if (glob((file.parent_path() / pattern).c_str(), 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) {
          add_configured_directories(found.gl_pathv[i], directories, depth + 1);
        }
      }
      globfree(&found);
    }
  }
}

std::vector<std::string> usual_library_directories() {
  std::vector<std::string> directories;
  add_configured_directories("/etc/ld.so.conf", directories);
  for (const char* usual : {"/lib64", "/usr/lib64", "/lib", "/usr/lib"}) {
    directories.emplace_back(usual);
  }
  return directories;
}

// Where the loader looks for what `library` is linked with.
std::vector<std::string> search_path(const ElfFile& program, const ElfFile& library) {
  std::vector<std::string> directories = library.rpath;
  if (library.runpath.empty()) {
    directories.insert(directories.end(), program.rpath.begin(), program.rpath.end());
  }
  if (const char* set = std::getenv("LD_LIBRARY_PATH"); set != nullptr) {
    std::istringstream in(set);
    for (std::string directory; std::getline(in, directory, ':');) {
      directories.push_back(directory.empty() ? "." : directory);
    }
  }
  directories.insert(directories.end(), library.runpath.begin(), library.runpath.end());
  static const std::vector<std::string> usual = usual_library_directories();
  directories.insert(directories.end(), usual.begin(), usual.end());
  return directories;
}

std::optional<ElfFile> read_if_it_fits(const fs::path& file, const ElfFile& program) {
  try {
    ElfFile library = read_elf_file(file);
    if (library.fits(program)) {
      return library;
    }
  } catch (const NotElfError&) {  // the loader goes on, too
  }
  return std::nullopt;
}

std::optional<ElfFile> find_needed(const std::string& name, const ElfFile& program,
                                   const ElfFile& library) {
  if (name.find('/') != std::string::npos) {
    return read_if_it_fits(name, program);
  }
  for (const std::string& directory : search_path(program, library)) {
    if (std::optional<ElfFile> found = read_if_it_fits(fs::path(directory) / name, program)) {
      return found;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string ElfFile::machine_name() const {
  switch (machine) {
    case EM_X86_64:
      return bits == 64 ? "x86_64" : "x86_64 with 32-bit addresses";
    case EM_386:
      return "i386";
    case EM_AARCH64:
      return "aarch64";
    case EM_ARM:
      return "32-bit ARM";
    case EM_RISCV:
      return bits == 64 ? "64-bit RISC-V" : "32-bit RISC-V";
    default:
      return "machine number " + std::to_string(machine) + ", " + std::to_string(bits) + "-bit";
  }
}

bool ElfFile::fits(const ElfFile& other) const {
  return machine == other.machine && bits == other.bits && little_endian == other.little_endian;
}

ElfFile read_elf_file(const fs::path& file) { return Reader(file).read(); }

std::vector<ElfFile> linked_libraries(const ElfFile& program, std::vector<std::string>& not_found) {
  std::vector<ElfFile> libraries;
  std::set<std::string> seen;
  const auto add_needed_by = [&](const ElfFile& file) {
    for (const std::string& name : file.needed) {
      if (!seen.insert(name).second) {
        continue;
      }
      if (std::optional<ElfFile> library = find_needed(name, program, file)) {
        libraries.push_back(std::move(*library));
      } else {
        not_found.push_back(name);
      }
    }
  };
  add_needed_by(program);
  // NOLINTNEXTLINE(modernize-loop-convert): the list grows
  for (std::size_t i = 0; i < libraries.size(); ++i) {
    const ElfFile library = libraries[i];  // a copy, because its place in the list may move
    add_needed_by(library);
  }
  return libraries;
}

}  // namespace ndk_integrate

// The shared library as a file: what it exports, what it needs, and how it is linked.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/plugin.h"

#if defined(__SANITIZE_ADDRESS__)
#define SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SANITIZED 1
#endif
#endif

namespace {

using Lines = std::vector<std::string>;

#ifdef SANITIZED
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// What `tool`, run on the library, prints, line by line.
Lines output_of(const std::string& tool) {
  const std::string command = "LC_ALL=C " + tool + " '" NDK_UTILS_LIBRARY "'";
  FILE* pipe = popen(command.c_str(), "r");
  std::string text;
  char buffer[4096];
  for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    text.append(buffer, size);
  }
  EXPECT_EQ(pclose(pipe), 0) << command << " failed; it is part of binutils";

  // The standard libraries' own spellings of their string types, written as people write it, and
  // without the mark of names that only return one.
  for (const char* spelling :
       {"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >",
        "std::basic_string<char, std::char_traits<char>, std::allocator<char> >",
        "std::__1::basic_string<char, std::__1::char_traits<char>, std::__1::allocator<char> >"}) {
    replace_all(text, spelling, "std::string");
  }
  replace_all(text, "[abi:cxx11]", "");
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string text_of(Lines lines) {
  std::sort(lines.begin(), lines.end());
  std::string text = "\n";
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

bool begins_with(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Symbols by name, as nm tells them: a letter for the kind (U undefined, w and v weak undefined),
// the name and, behind "@", the version.
struct Symbol {
  char kind;
  std::string name;
  std::string version;
};

std::vector<Symbol> symbols(const std::string& which) {
  std::vector<Symbol> result;
  for (const std::string& line : output_of("nm -D --demangle --with-symbol-versions " + which)) {
    // An address, where there is one, goes first: two digits or blanks a byte.
    constexpr std::size_t kind = 2 * sizeof(void*) + 1;
    const std::string name = line.substr(kind + 2);
    const std::size_t at = name.find('@');
    result.push_back(
        {line[kind], name.substr(0, at), at == std::string::npos ? "" : name.substr(at)});
  }
  return result;
}

// Versions that the C and C++ libraries give their symbols.
bool of_runtime_library(const Symbol& symbol) {
  for (const char* library : {"GLIBC_", "GLIBCXX_", "CXXABI_", "GCC_"}) {
    if (begins_with(symbol.version, std::string("@") + library) ||
        begins_with(symbol.version, std::string("@@") + library)) {
      return true;
    }
  }
#ifdef _LIBCPP_VERSION
  // libc++ gives its symbols no versions; they are known by their names.
  for (const char* mark : {"std::__1::", "operator delete", "operator new", "__cxa_", "__gxx_",
                           " for std::", "__cxxabiv1::"}) {
    if (holds(symbol.name, mark)) {
      return true;
    }
  }
  if (begins_with(symbol.name, "std::") || begins_with(symbol.name, "_Unwind_")) {
    return true;
  }
#endif
  // Weak hooks that every shared object has.
  return symbol.kind == 'w' &&
         (symbol.name == "__gmon_start__" || begins_with(symbol.name, "_ITM_"));
}

// The values of the dynamic section's entries of one type, such as NEEDED.
Lines dynamic_entries(const std::string& type) {
  Lines values;
  for (const std::string& line : output_of("readelf --dynamic --wide")) {
    if (holds(line, "(" + type + ")")) {
      const std::size_t begin = line.find_first_not_of(' ', line.find(')') + 1);
      values.push_back(begin == std::string::npos ? "" : line.substr(begin));
    }
  }
  return values;
}

// The program header of one type, such as GNU_STACK.
std::string program_header(const std::string& type) {
  for (const std::string& line : output_of("readelf --program-headers --wide")) {
    if (begins_with(line, "  " + type + " ")) {
      return line;
    }
  }
  return "none";
}

}  // namespace

TEST(PluginBinary, Exports) {
  Lines names;
  for (const Symbol& symbol : symbols("--defined-only")) {
    names.push_back(std::string(1, symbol.kind) + " " + symbol.name + symbol.version);
  }

  EXPECT_EQ(text_of(names), R"names(
T check_if_ndk_integration_files_are_to_be_installed
T detect_ndk
T get_compiler_full_version(session_t*)
T get_compiler_package_number(session_t*)
T get_compiler_path(session_t*)
T get_compiler_version(session_t*)
T get_toolchains_path(session_t*)
T get_version(std::string const&)
T integrate_ndk
T is_ndk_dir(std::string const&)
T is_ndk_version_supported(ndk_version_t, std::string const&)
T ndk_version_string(ndk_version_t)
T patch_text_file(std::string const&, std::string const&, std::string const&)
T unintegrate_ndk
T validate_ndk_path
)names");
}

// Undefined are the host's services, all of them, and nothing else that a runtime library does not
// have.
TEST(PluginBinary, UndefinedNames) {
  if (sanitized) {
    GTEST_SKIP()
        << "a sanitizer takes the C library's names over, without versions to tell them by";
  }
  Lines names;
  for (const Symbol& symbol : symbols("--undefined-only")) {
    if (!of_runtime_library(symbol)) {
      names.push_back(std::string(1, symbol.kind) + " " + symbol.name + symbol.version);
    }
  }

  EXPECT_EQ(text_of(names), R"names(
U Component::getSelected()
U Component::installCondition()
U Component::subdir()
U IniDb::IniDb(std::string, std::string, std::string)
U IniDb::value(std::string)
U IniDb::~IniDb()
U TSD::components()
U env_get_string(session_t*, char const*)
U env_set_string(session_t*, char const*, char const*)
U env_set_string(session_t*, std::string const&, std::string const&)
U error(char const*, ...)
U file_exists(std::string const&, bool)
U file_move(std::string, std::string)
U get_command_output(std::string, int*, bool, std::string)
U inttostr(long long)
U is_writable(std::string)
U path(std::string)
U print_log(char const*, ...)
U replaceAllSubstrings(std::string const&, std::string const&, std::string const&)
U splitString(std::string const&, std::string const&, bool)
U strtoint(std::string const&)
)names");
}

TEST(PluginBinary, NeededLibraries) {
  for (const std::string& library : dynamic_entries("NEEDED")) {
    const std::string name = library.substr(library.find('[') + 1);
    const bool runtime =
        begins_with(name, "libstdc++.so.6]") || begins_with(name, "libgcc_s.so.1]") ||
        begins_with(name, "libc.so.6]") || begins_with(name, "libm.so.6]") ||
        begins_with(name, "ld-linux") || begins_with(name, "libc++.so.1]") ||
        begins_with(name, "libc++abi.so.1]") || begins_with(name, "libunwind.so.1]");
    const bool sanitizer =
        sanitized && (begins_with(name, "libasan.so") || begins_with(name, "libubsan.so"));
    EXPECT_TRUE(runtime || sanitizer) << library;
  }
}

// The oldest C and C++ libraries that the plug-in loads with. aarch64 begins with GLIBC_2.17.
TEST(PluginBinary, FloorOfSymbolVersions) {
  if (sanitized) {
    GTEST_SKIP() << "a sanitizer's own runtime decides";
  }
#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
  const std::vector<int> libstdcxx{3, 4, 11};
#else
  const std::vector<int> libstdcxx{3, 4, 21};
#endif
#ifdef __aarch64__
  const std::vector<int> glibc{2, 17};
#else
  const std::vector<int> glibc{2, 14};
#endif
  const std::map<std::string, std::vector<int>> floor{
      {"GLIBC", glibc}, {"GLIBCXX", libstdcxx}, {"CXXABI", {1, 3, 9}}, {"GCC", {3, 0}}};

  const std::regex version("Name: ([A-Z]+)_([0-9.]+)");
  int versions = 0;
  for (const std::string& line : output_of("readelf --version-info --wide")) {
    std::smatch found;
    if (!std::regex_search(line, found, version)) {
      continue;
    }
    ++versions;
    std::vector<int> numbers;
    std::istringstream in(found[2]);
    for (std::string number; std::getline(in, number, '.');) {
      numbers.push_back(std::stoi(number));
    }
    ASSERT_EQ(floor.count(found[1]), 1U) << line;
    EXPECT_LE(numbers, floor.at(found[1])) << line;
  }
  EXPECT_GT(versions, 0);
}

TEST(PluginBinary, Soname) {
  EXPECT_EQ(dynamic_entries("SONAME"), Lines{"Library soname: [libndk_utils.so.1n]"});
}

TEST(PluginBinary, ImmediateBinding) {
  EXPECT_TRUE(holds(text_of(dynamic_entries("FLAGS")), "BIND_NOW"));
  EXPECT_TRUE(holds(text_of(dynamic_entries("FLAGS_1")), "NOW"));
}

// With immediate binding, the header alone makes the whole table read-only.
TEST(PluginBinary, ReadOnlyRelocations) { EXPECT_NE(program_header("GNU_RELRO"), "none"); }

TEST(PluginBinary, StackNotExecutable) {
  EXPECT_TRUE(holds(program_header("GNU_STACK"), " RW ")) << program_header("GNU_STACK");
}

TEST(PluginBinary, NoSearchPathOfItsOwn) {
  EXPECT_EQ(dynamic_entries("RPATH"), Lines{});
  EXPECT_EQ(dynamic_entries("RUNPATH"), Lines{});
}

TEST(PluginBinary, NoTextRelocations) {
  EXPECT_EQ(dynamic_entries("TEXTREL"), Lines{});
  EXPECT_FALSE(holds(text_of(dynamic_entries("FLAGS")), "TEXTREL"));
}

// The shared library as a file: what it exports, what it needs, and how it is linked.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/plugin.h"
#include "tests/texts.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace {

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

// What `tool`, run on the library, prints, line by line.
Lines output_of(const std::string& tool) {
  const ShellResult result = shell("LC_ALL=C " + tool + " '" NDK_UTILS_LIBRARY "'");
  EXPECT_EQ(result.exit_status, 0) << tool << " failed; it is part of binutils";
  // The standard libraries' own spellings of their string types, written as people write it, and
  // without the mark of names that only return one.
  std::string text = replaced(result.output, "[abi:cxx11]", "");
  for (const char* spelling :
       {"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >",
        "std::basic_string<char, std::char_traits<char>, std::allocator<char> >",
        "std::__1::basic_string<char, std::__1::char_traits<char>, std::__1::allocator<char> >"}) {
    text = replaced(text, spelling, "std::string");
  }
  return lines_of(text);
}

std::string text_of(Lines lines) {
  std::sort(lines.begin(), lines.end());
  std::string text = "\n";
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

template <typename Matches>
bool any_of(const Lines& texts, const Matches& matches) {
  return std::any_of(texts.begin(), texts.end(), matches);
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

// What the C and C++ libraries have.
bool of_runtime_library(const Symbol& symbol) {
  const auto name_begins = [&](const std::string& start) {
    return begins_with(symbol.name, start);
  };
  if (any_of({"@GLIBC_", "@GLIBCXX_", "@CXXABI_", "@GCC_"}, [&](const std::string& version) {
        return begins_with(replaced(symbol.version, "@@", "@"), version);
      })) {
    return true;
  }
#ifdef _LIBCPP_VERSION
  // libc++ gives its symbols no versions; they are known by their names.
  if (any_of({"std::", "_Unwind_"}, name_begins) ||
      any_of({"std::__1::", "operator delete", "operator new", "__cxa_", "__gxx_",
              " for std::", "__cxxabiv1::"},
             [&](const std::string& mark) { return holds(symbol.name, mark); })) {
    return true;
  }
#endif
  // Weak hooks that every shared object has.
  return symbol.kind == 'w' && any_of({"__gmon_start__", "_ITM_"}, name_begins);
}

// The symbols that `nm -D` shows with this option and that fulfil the condition.
template <typename Condition>
std::string names(const std::string& which, const Condition& condition) {
  Lines lines;
  for (const Symbol& symbol : symbols(which)) {
    if (condition(symbol)) {
      lines.push_back(std::string(1, symbol.kind) + " " + symbol.name + symbol.version);
    }
  }
  return text_of(lines);
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
  EXPECT_EQ(names("--defined-only", [](const Symbol&) { return true; }), R"names(
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
  const auto of_host = [](const Symbol& symbol) { return !of_runtime_library(symbol); };
  EXPECT_EQ(names("--undefined-only", of_host), R"names(
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
  Lines runtime = {"libstdc++.so.6]", "libgcc_s.so.1]", "libc.so.6]",      "libm.so.6]",
                   "ld-linux",        "libc++.so.1]",   "libc++abi.so.1]", "libunwind.so.1]"};
  if (sanitized) {
    runtime.insert(runtime.end(), {"libasan.so", "libubsan.so"});
  }
  for (const std::string& library : dynamic_entries("NEEDED")) {
    const std::string name = library.substr(library.find('[') + 1);
    EXPECT_TRUE(any_of(runtime, [&](const auto& known) { return begins_with(name, known); }))
        << library;
  }
}

// The oldest C and C++ libraries that the plug-in loads with. aarch64 begins with GLIBC_2.17.
TEST(PluginBinary, FloorOfSymbolVersions) {
  if (sanitized) {
    GTEST_SKIP() << "a sanitizer's own runtime decides";
  }
#ifdef COUNTS_LINES
  GTEST_SKIP() << "what counts the lines decides";
#endif
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

TEST(PluginBinary, NeitherSearchPathNorTextRelocations) {
  for (const char* type : {"RPATH", "RUNPATH", "TEXTREL"}) {
    EXPECT_EQ(dynamic_entries(type), Lines{}) << type;
  }
  EXPECT_FALSE(holds(text_of(dynamic_entries("FLAGS")), "TEXTREL"));
}

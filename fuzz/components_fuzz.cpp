// Any components and patterns, through check_if_ndk_integration_files_are_to_be_installed.
// Input: a byte of choices, then PATTERNS| and for each component a digit (1: its condition holds,
// 2: it is selected, 3: both) and ID|VERSION|PACKAGE NUMBER|SUBDIR|.
#include "fuzz/expect.h"
#include "fuzz/fuzz_host.h"
#include "ndk_utils/ndk_utils.h"

namespace {

std::string logged(const std::string& text) {
  return "log: NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()" + text;
}

struct Candidate {
  bool condition;
  bool selected;
  std::string id;
  std::string version;
  std::string package_number;
  std::string subdir;
};

std::vector<Candidate> candidates(Input& input) {
  std::vector<Candidate> result;
  while (!input.empty()) {
    Candidate candidate;
    const std::uint8_t digit = input.byte();
    candidate.condition = (digit & 1U) != 0;
    candidate.selected = (digit & 2U) != 0;
    candidate.id = input.text();
    candidate.version = input.text();
    candidate.package_number = input.text();
    candidate.subdir = input.text();
    result.push_back(candidate);
  }
  return result;
}

// `number` + 2000 in 32 bits.
long long library_year(long long number) {
  const long long sum = number + 2000;
  return sum > INT32_MAX ? sum - (1LL << 32) : sum;
}

// True when `candidate` may match; `record` gets the questions that this takes.
bool counts(const Candidate& candidate, std::vector<std::string>& record) {
  record.push_back("installCondition: " + candidate.id);
  if (candidate.condition) {
    record.push_back("getSelected: " + candidate.id);
  }
  return candidate.condition && candidate.selected;
}

// What is said and set once `pattern` is found in `compiler`.
void record_match(const FuzzHost& host, const Candidate& compiler, const std::string& pattern,
                  std::vector<std::string>& record) {
  record.push_back(
      logged(": Found pattern '" + as_printed(pattern) + "' in '" + as_printed(compiler.id) + "'"));
  record.emplace_back("set: NDK_INTEGRATION_INSTALL_DETECTED=yes");
  record.push_back("set: NDK_COMPILER_VERSION=" + compiler.version);
  record.push_back("set: NDK_COMPILER_PACKAGE_NUMBER=" + compiler.package_number);
  record.push_back("set: NDK_COMPILER_SUBDIR=" + compiler.subdir);
  const std::vector<std::string> numbers = host.pieces(compiler.version, ".");
  if (numbers.size() != 3) {
    record.push_back(
        logged(": compiler version is in unexpected format, could not convert it to CnL version!"));
    return;
  }
  const std::string year = std::to_string(library_year(host.number(numbers.at(0))));
  const std::string update = std::to_string(host.number(numbers.at(2)));
  record.push_back("set: NDK_CNL_VERSION_FULL=" + year + "." + update + "." +
                   compiler.package_number);
  record.push_back("set: NDK_CNL_VERSION_MAJOR=" + year);
}

// Everything that is to happen: the first candidate that counts and holds a pattern decides, by the
// first pattern that it holds.
std::vector<std::string> description(const FuzzHost& host, const std::string& patterns,
                                     const std::vector<Candidate>& all) {
  std::vector<std::string> record = {logged(""), "set: NDK_INTEGRATION_INSTALL_DETECTED=no"};
  for (const Candidate& candidate : all) {
    if (!counts(candidate, record)) {
      continue;
    }
    for (const std::string& pattern : host.pieces(patterns, ";")) {
      if (candidate.id.find(pattern) != std::string::npos) {
        record_match(host, candidate, pattern, record);
        return record;
      }
    }
  }
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  FuzzHost host(input.byte());
  const std::string patterns = input.text();
  host.variables["NDK_COMPONENT_PATTERNS"] = patterns;
  const std::vector<Candidate> all = candidates(input);
  for (const Candidate& candidate : all) {
    host.add_component(candidate.id, candidate.version, candidate.package_number, candidate.subdir,
                       candidate.condition, candidate.selected);
  }

  const int result = check_if_ndk_integration_files_are_to_be_installed(&host.session);

  expect(result == 0, "the entry point returns 0");
  expect_same("check_if_ndk_integration_files_are_to_be_installed",
              description(host, patterns, all), host.record);
  return 0;
}

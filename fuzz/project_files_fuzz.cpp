// Any bytes as a project's local.properties and build.gradle.
// Input: a byte that says which (P: local.properties, G: build.gradle, else build.gradle.kts), then
// the file.
#include "console_host/ndk/project_files.h"

#include "fuzz/expect.h"
#include "fuzz/input.h"

namespace {

using namespace ndk_integrate;  // NOLINT(google-build-using-namespace): this file is the program

ProjectFile read(std::uint8_t which, const std::string& text) {
  if (which == 'P') {
    return read_local_properties(text);
  }
  return read_build_gradle(text, which == 'G' ? GradleLanguage::kGroovy : GradleLanguage::kKotlin);
}

// True for the keys that the file of this kind may set.
bool is_key_of(std::uint8_t which, const std::string& key) {
  return which == 'P' ? key == "ndk.dir" || key == "sdk.dir"
                      : key == "ndkVersion" || key == "ndkPath";
}

// The lines in which the rules that hold for every file are broken.
std::vector<std::string> broken_rules(std::uint8_t which, const std::string& text,
                                      const ProjectFile& file) {
  std::vector<std::string> broken;
  for (const auto& [key, value] : file.values) {
    if (!is_key_of(which, key)) {
      broken.push_back("a key that is none: " + key);
    }
    if (value.size() > 3 * text.size()) {
      broken.push_back("a value that is longer than the file: " + value);
    }
  }
  if (!file.malformed.empty() && !(file.values.empty() && file.notes.empty())) {
    broken.emplace_back("something was taken from a malformed file");
  }
  // What follows a comment's end is read as if the comment were not there.
  if (which != 'P' && file.malformed.empty()) {
    const ProjectFile again = read(which, "/* ndkVersion '1' */" + text);
    if (again.values != file.values && text.compare(0, 3, "\xef\xbb\xbf") != 0) {
      broken.emplace_back("a comment in front changes what is read");
    }
  }
  return broken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t which = input.byte();
  const std::string text = input.rest();
  const ProjectFile file = read(which, text);
  expect_same("the rules", {}, broken_rules(which, text, file));
  return 0;
}

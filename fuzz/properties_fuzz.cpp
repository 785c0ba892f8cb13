// Any bytes as source.properties, read by get_version.
// Input: a byte of choices (its highest bit: there is no such file), then the file.
#include "fuzz/expect.h"
#include "fuzz/fuzz_host.h"
#include "fuzz/release_text.h"

namespace {

// A directory that path changes where it collapses slashes: only file_exists gets the changed form.
std::string ndk_dir() { return "/android//ndk/"; }

std::string logged(const std::string& text) {
  return "log: NDK_INTEGRATION: get_version(): " + text;
}

struct Outcome {
  ndk_version_t version;
  std::vector<std::string> record;
};

Outcome without_file() {
  return {{-1, -1},
          {logged("ERROR! Could not find source.properties file in '" + ndk_dir() + "'")}};
}

Outcome with_file(const FuzzHost& host, const std::string& content) {
  const std::string revision = host.property(content, "Pkg.Revision ", "=");
  Outcome result{{-1, -1},
                 {"open: " + ndk_dir() + " source.properties =", "value: Pkg.Revision ",
                  logged("detected full revision: '" + as_printed(revision) + "'")}};
  const std::vector<std::string> numbers = host.pieces(revision, ".");
  if (numbers.size() < 2) {
    result.record.push_back(logged("ERROR! source.properties contains version in unknown format"));
  } else {
    result.version = {host.number(numbers.at(0)), host.number(numbers.at(1))};
    result.record.push_back(
        logged("detected version is '" + as_printed(release_text(result.version)) + "''"));
  }
  result.record.emplace_back("close");
  return result;
}

// What happened as lines, the version last.
std::vector<std::string> lines(ndk_version_t version, std::vector<std::string> record) {
  record.push_back("returned: " + std::to_string(version.major) + ", " +
                   std::to_string(version.minor));
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t choices = input.byte();
  const bool there = choices < 128;
  const std::string content = input.rest();
  FuzzHost host(choices);
  if (there) {
    host.add_file(ndk_dir() + "/source.properties", content);
  }

  const ndk_version_t version = get_version(ndk_dir());

  const Outcome expected = there ? with_file(host, content) : without_file();
  expect_same("get_version", lines(expected.version, expected.record), lines(version, host.record));
  return 0;
}

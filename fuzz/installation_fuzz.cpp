// A whole installation on a host whose services answer, answer wrongly and throw as the input says.
// Input: a byte of choices (64: integration enabled, 128: NDK_PATH is set), then a byte for each
// call of a service: see FuzzHost::disturbances. Where the input ends, all goes well.
#include <algorithm>
#include <array>

#include "fuzz/expect.h"
#include "fuzz/fuzz_host.h"
#include "ndk_utils/ndk_utils.h"
#include "tests/temporary_directory.h"

namespace {

struct EntryPoint {
  int (*function)(session_t*);
  const char* first_line;
};

constexpr std::array<EntryPoint, 5> entry_points = {
    {{detect_ndk, "log: NDK_INTEGRATION: detect_ndk()"},
     {validate_ndk_path, "log: NDK_INTEGRATION: validate_ndk_path()"},
     {check_if_ndk_integration_files_are_to_be_installed,
      "log: NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()"},
     {integrate_ndk, "log: NDK_INTEGRATION: integrate_ndk()"},
     {unintegrate_ndk, "log: NDK_INTEGRATION: unintegrate_ndk() NOT IMPLEMENTED"}}};

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

// NDKs are looked at through the host only, and their names are such that nothing can be there.
// Every other name becomes one in `directory`. So whatever the input says, no other file is
// touched.
std::string confined(const std::string& path, const std::string& directory) {
  if (begins_with(path, "/dev/null/")) {
    return path;
  }
  return directory + "/" + path.substr(path.rfind('/') + 1);
}

void write_templates(const TemporaryDirectory& directory) {
  std::filesystem::create_directory(directory.path() + "/android");
  directory.write("/setup.mk", "{INSTALL_NOX_INSTALLDIR}\n{INSTALL_NOX_VERSION}\n");
  directory.write("/compilervars_arch.sh", "<NDK_DIR>\n");
  directory.write("/compilervars_arch.csh", "<NDK_DIR>\n");
}

void add_ndk(FuzzHost& host, const std::string& dir, const std::string& revision) {
  host.add_file(dir + "/ndk-build", "");
  host.add_file(dir + "/source.properties", "Pkg.Revision = " + revision + "\n");
}

void set_up(FuzzHost& host, bool enabled, bool path_is_set) {
  add_ndk(host, "/dev/null/unreadable", "11");
  add_ndk(host, "/dev/null/100% good", "11.2.2725575");
  host.variables = {
      {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/dev/null/none;/dev/null/unreadable;/dev/null/100% good"},
      {"NDK_SUPPORTED_VERSIONS", "r10e;r11c"},
      {"NDK_COMPONENT_PATTERNS", "-ndk-;-android-"},
      {"NDK_INTEGRATION_ENABLED", enabled ? "yes" : "no"},
      {"NDK_PATH", path_is_set ? "/dev/null/100% good" : ""},
      {"VORN_INSTALL_DIR", "/opt"}};
  host.add_component("not-ndk-here", "1.0.1", "1", "/a", false, true);
  host.add_component("compiler-android-x86", "5.0.3", "42", "/vorn", true, true);
}

bool is_of_a_known_form(const std::string& line) {
  const auto forms = {"log: NDK_INTEGRATION: ",
                      "log: Output: '",
                      "set: NDK_",
                      "error: patch_text_file: cannot open ",
                      "run: ./ndk_integration.sh \"",
                      "move: ",
                      "open: ",
                      "value: Pkg.Revision ",
                      "close",
                      "installCondition: ",
                      "getSelected: "};
  return std::any_of(forms.begin(), forms.end(),
                     [&line](const char* form) { return begins_with(line, form); });
}

// Calls one entry point, which either returns 0 or lets pass what a service threw.
void run(const EntryPoint& entry_point, FuzzHost& host) {
  const std::size_t first = host.record.size();
  const std::size_t failures = host.failures;
  const std::size_t descriptors = open_descriptors();
  try {
    expect(entry_point.function(&host.session) == 0, "an entry point returns 0");
    expect(host.failures == failures, "what a service throws arrives");
  } catch (const HostFailure& failure) {
    expect(failure.call == host.calls, "no service is called after one threw");
  }
  expect(host.live_readers == 0, "every reader is destroyed");
  expect(open_descriptors() == descriptors, "no file is left open");
  expect(host.record.size() > first && host.record[first] == entry_point.first_line,
         "an entry point first logs its name");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t choices = input.byte();
  const WorkingDirectoryKept working_directory_kept;
  const TemporaryDirectory directory;
  write_templates(directory);
  FuzzHost host(choices);
  host.confined = [&directory](const std::string& path) {
    return confined(path, directory.path());
  };
  set_up(host, (choices & 64U) != 0, (choices & 128U) != 0);
  host.disturbances = &input;

  for (const EntryPoint& entry_point : entry_points) {
    run(entry_point, host);
  }

  for (const std::string& line : host.record) {
    expect(is_of_a_known_form(line), "every line and variable is one of the plug-in's");
  }
  return 0;
}

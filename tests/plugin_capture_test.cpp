// A host that happens to export functions of the plug-in's own names, all of them that the plug-in
// calls itself. The test of a whole installation runs in this program too: its record holds no
// captured call.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"

static void note_capture(const std::string& function) {
  RecordingHost::current().note("CAPTURED: " + function);
}

int validate_ndk_path(session_t* /*session*/) {
  note_capture("validate_ndk_path");
  return 0;
}

bool is_ndk_dir(const std::string& /*dir*/) {
  note_capture("is_ndk_dir");
  return false;
}

ndk_version_t get_version(const std::string& /*ndk_dir*/) {
  note_capture("get_version");
  return {};
}

std::string ndk_version_string(ndk_version_t /*version*/) {
  note_capture("ndk_version_string");
  return {};
}

bool is_ndk_version_supported(ndk_version_t /*version*/, const std::string& /*supported*/) {
  note_capture("is_ndk_version_supported");
  return false;
}

void patch_text_file(const std::string& /*file*/, const std::string& /*from*/,
                     const std::string& /*to*/) {
  note_capture("patch_text_file");
}

std::string get_toolchains_path(session_t* /*session*/) {
  note_capture("get_toolchains_path");
  return {};
}

std::string get_compiler_path(session_t* /*session*/) {
  note_capture("get_compiler_path");
  return {};
}

std::string get_compiler_full_version(session_t* /*session*/) {
  note_capture("get_compiler_full_version");
  return {};
}

std::string get_compiler_version(session_t* /*session*/) {
  note_capture("get_compiler_version");
  return {};
}

std::string get_compiler_package_number(session_t* /*session*/) {
  note_capture("get_compiler_package_number");
  return {};
}

// True when the loader finds `function` here by its name, before it finds the plug-in's.
template <typename Function>
static bool exported(Function* function) {
  void* address = reinterpret_cast<void*>(function);
  Dl_info found{};
  return dladdr(address, &found) != 0 && found.dli_sname != nullptr &&
         dlsym(RTLD_DEFAULT, found.dli_sname) == address;
}

TEST(PluginCapture, NamesAreExportedHere) {
  EXPECT_TRUE(exported(validate_ndk_path));
  EXPECT_TRUE(exported(is_ndk_dir));
  EXPECT_TRUE(exported(get_version));
  EXPECT_TRUE(exported(ndk_version_string));
  EXPECT_TRUE(exported(is_ndk_version_supported));
  EXPECT_TRUE(exported(patch_text_file));
  EXPECT_TRUE(exported(get_toolchains_path));
  EXPECT_TRUE(exported(get_compiler_path));
  EXPECT_TRUE(exported(get_compiler_full_version));
  EXPECT_TRUE(exported(get_compiler_version));
  EXPECT_TRUE(exported(get_compiler_package_number));
}

// A host that happens to export functions of the plug-in's own names, all of them that the plug-in
// calls itself. The test of a whole installation runs in this program too: its record holds no
// captured call.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"

template <typename Result>
static Result captured(const char* function) {
  RecordingHost::current().note(std::string("CAPTURED: ") + function);
  return Result();
}

int validate_ndk_path(session_t* /*session*/) { return captured<int>(__func__); }
bool is_ndk_dir(const std::string& /*dir*/) { return captured<bool>(__func__); }
ndk_version_t get_version(const std::string& /*ndk_dir*/) {
  return captured<ndk_version_t>(__func__);
}
std::string ndk_version_string(ndk_version_t /*version*/) {
  return captured<std::string>(__func__);
}
bool is_ndk_version_supported(ndk_version_t /*version*/, const std::string& /*supported*/) {
  return captured<bool>(__func__);
}
void patch_text_file(const std::string& /*file*/, const std::string& /*from*/,
                     const std::string& /*to*/) {
  return captured<void>(__func__);
}
std::string get_toolchains_path(session_t* /*session*/) { return captured<std::string>(__func__); }
std::string get_compiler_path(session_t* /*session*/) { return captured<std::string>(__func__); }
std::string get_compiler_full_version(session_t* /*session*/) {
  return captured<std::string>(__func__);
}
std::string get_compiler_version(session_t* /*session*/) { return captured<std::string>(__func__); }
std::string get_compiler_package_number(session_t* /*session*/) {
  return captured<std::string>(__func__);
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

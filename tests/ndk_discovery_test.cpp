#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"

// --- is_ndk_dir ---

TEST(IsNdkDir, LauncherAndProperties) {
  RecordingHost host;
  host.files = {{"/ndk/ndk-build", ""}, {"/ndk/source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, BothLaunchers) {
  RecordingHost host;
  host.files = {{"/ndk/ndk-build", ""}, {"/ndk/ndk-build.cmd", ""}, {"/ndk/source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, WindowsLauncherOnly) {
  RecordingHost host;
  host.files = {{"/ndk/ndk-build.cmd", ""}, {"/ndk/source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/ndk-build.cmd")
file_exists("/ndk/ndk-build.cmd", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, NoLauncher) {
  RecordingHost host;
  host.files = {{"/ndk/source.properties", ""}};

  EXPECT_FALSE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/ndk-build.cmd")
file_exists("/ndk/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
)calls");
}

TEST(IsNdkDir, LauncherWithoutProperties) {
  RecordingHost host;
  host.files = {{"/ndk/ndk-build", ""}};

  EXPECT_FALSE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found file: source.properties, returning false")
)calls");
}

TEST(IsNdkDir, WindowsLauncherWithoutProperties) {
  RecordingHost host;
  host.files = {{"/ndk/ndk-build.cmd", ""}};

  EXPECT_FALSE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/ndk-build.cmd")
file_exists("/ndk/ndk-build.cmd", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found file: source.properties, returning false")
)calls");
}

TEST(IsNdkDir, TrailingSlash) {
  RecordingHost host;
  host.files = {{"/ndk//ndk-build", ""}, {"/ndk//source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir("/ndk/"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk/")
path("/ndk//ndk-build")
file_exists("/ndk//ndk-build", false)
path("/ndk//source.properties")
file_exists("/ndk//source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, EmptyDirectoryIsTheRoot) {
  RecordingHost host;
  host.files = {{"/ndk-build.cmd", ""}, {"/source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir(""));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "")
path("/ndk-build")
file_exists("/ndk-build", false)
path("/ndk-build.cmd")
file_exists("/ndk-build.cmd", false)
path("/source.properties")
file_exists("/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, NormalisedNames) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "/real" + p; };
  host.files = {{"/real/ndk/ndk-build.cmd", ""}, {"/real/ndk/source.properties", ""}};

  EXPECT_TRUE(is_ndk_dir("/ndk"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/real/ndk/ndk-build", false)
path("/ndk/ndk-build.cmd")
file_exists("/real/ndk/ndk-build.cmd", false)
path("/ndk/source.properties")
file_exists("/real/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls");
}

TEST(IsNdkDir, AnyNonZeroAnswerMeansThere) {
  for (const int yes : {256, 65536, -1}) {
    RecordingHost host;
    host.exists = yes;
    host.files = {{"/ndk/ndk-build", ""}, {"/ndk/source.properties", ""}};

    EXPECT_TRUE(is_ndk_dir("/ndk")) << yes;

    EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
)calls") << yes;
  }
}

TEST(IsNdkDir, PercentSignsAndBlanks) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_dir("/my %s%n"));

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/my %s%n")
path("/my %s%n/ndk-build")
file_exists("/my %s%n/ndk-build", false)
path("/my %s%n/ndk-build.cmd")
file_exists("/my %s%n/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
)calls");
}

// --- validate_ndk_path ---

using Variables = std::map<std::string, std::string>;

TEST(ValidateNdkPath, SupportedNdk) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2.4");
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r10e;r11c"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/ndk")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2.4")
splitString("11.2.4", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
splitString("r10e;r11c", ";", false)
inttostr(11)
inttostr(11)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r11c")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", "/ndk"},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_SUPPORTED_VERSIONS", "r10e;r11c"}}));
}

TEST(ValidateNdkPath, NoNdk) {
  RecordingHost host;
  host.variables = {{"NDK_PATH", "/home"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/home")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/home")
path("/home/ndk-build")
file_exists("/home/ndk-build", false)
path("/home/ndk-build.cmd")
file_exists("/home/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
)calls");
}

TEST(ValidateNdkPath, NotWritable) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2.4");
  host.writable["/ndk"] = 0;
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/ndk")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
env_set_string[chars]("NDK_PATH_STATUS", "notwritable")
)calls");
}

TEST(ValidateNdkPath, UnsupportedRelease) {
  RecordingHost host;
  host.add_ndk("/ndk", "21.4.7075529");
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r10e;r11c"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/ndk")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "21.4.7075529")
splitString("21.4.7075529", ".", false)
strtoint("21")
strtoint("4")
inttostr(21)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r21e")
~IniDb()
splitString("r10e;r11c", ";", false)
inttostr(21)
inttostr(21)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r21e", "r10e;r11c")
env_set_string[chars]("NDK_PATH_STATUS", "unsupported")
)calls");
}

TEST(ValidateNdkPath, UnreadableRelease) {
  RecordingHost host;
  host.add_ndk("/ndk", "11");
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r11"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/ndk")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11")
splitString("11", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
splitString("r11", ";", false)
inttostr(-1)
inttostr(-1)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r-1", "r11")
env_set_string[chars]("NDK_PATH_STATUS", "unsupported")
)calls");
}

TEST(ValidateNdkPath, UnreadableReleaseThatTheListHolds) {
  RecordingHost host;
  host.add_ndk("/ndk", "");
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r-1"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", "/ndk"},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_SUPPORTED_VERSIONS", "r-1"}}));
}

TEST(ValidateNdkPath, EmptyPath) {
  RecordingHost host;

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "")
path("/ndk-build")
file_exists("/ndk-build", false)
path("/ndk-build.cmd")
file_exists("/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
)calls");
}

TEST(ValidateNdkPath, NormalisedPathIsUsedAndNotWrittenBack) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return p == "/ndk/" ? "/ndk" : p; };
  host.add_ndk("/ndk", "11.2.4");
  host.variables = {{"NDK_PATH", "/ndk/"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(validate_ndk_path(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/ndk/")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2.4")
splitString("11.2.4", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
splitString("r11c", ";", false)
inttostr(11)
inttostr(11)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r11c")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", "/ndk/"},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_SUPPORTED_VERSIONS", "r11c"}}));
}

// A host whose truth values have no bit in the low byte, or all bits, says true as well.
TEST(ValidateNdkPath, AnyNonZeroAnswerMeansWritable) {
  for (const int yes : {256, 65536, -1}) {
    RecordingHost host;
    host.add_ndk("/ndk", "11.2.4");
    host.writable["/ndk"] = yes;
    host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

    EXPECT_EQ(validate_ndk_path(&host.session), 0);

    EXPECT_EQ(host.variables["NDK_PATH_STATUS"], "ok") << yes;
  }
}

// --- detect_ndk ---

TEST(DetectNdk, PresetPath) {
  RecordingHost host;
  host.variables = {{"NDK_PATH", "/does/not/exist %s"},
                    {"NDK_PATH_STATUS", "nok"},
                    {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/ndk"}};
  const Variables before = host.variables;

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
print_log("NDK_INTEGRATION: detect_ndk(): NDK_PATH is already set to '%s', exiting", "/does/not/exist %s")
)calls");
  EXPECT_EQ(host.variables, before);
}

TEST(DetectNdk, PresetBlank) {
  RecordingHost host;
  host.variables = {{"NDK_PATH", " "}, {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/ndk"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
print_log("NDK_INTEGRATION: detect_ndk(): NDK_PATH is already set to '%s', exiting", " ")
)calls");
}

TEST(DetectNdk, SecondOfThreeCandidates) {
  RecordingHost host;
  host.add_ndk("/b", "10.4");
  host.add_ndk("/c", "10.4");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a;/b;/c"},
                    {"NDK_SUPPORTED_VERSIONS", "r10e"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString("/a;/b;/c", ";", false)
env_set_string[strings]("NDK_PATH", "/a")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/a")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/a")
path("/a/ndk-build")
file_exists("/a/ndk-build", false)
path("/a/ndk-build.cmd")
file_exists("/a/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", "/a")
env_set_string[chars]("NDK_PATH", "")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_set_string[strings]("NDK_PATH", "/b")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/b")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/b")
path("/b/ndk-build")
file_exists("/b/ndk-build", false)
path("/b/source.properties")
file_exists("/b/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/b")
path("/b/source.properties")
file_exists("/b/source.properties", false)
IniDb("/b", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "10.4")
splitString("10.4", ".", false)
strtoint("10")
strtoint("4")
inttostr(10)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r10e")
~IniDb()
splitString("r10e", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r10e")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): found valid NDK: '%s'", "/b")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", "/b"},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a;/b;/c"},
                                       {"NDK_SUPPORTED_VERSIONS", "r10e"}}));
}

TEST(DetectNdk, NoCandidateQualifies) {
  RecordingHost host;
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_PATH_STATUS", "nok"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString("/a", ";", false)
env_set_string[strings]("NDK_PATH", "/a")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/a")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/a")
path("/a/ndk-build")
file_exists("/a/ndk-build", false)
path("/a/ndk-build.cmd")
file_exists("/a/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", "/a")
env_set_string[chars]("NDK_PATH", "")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", ""},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"},
                                       {"NDK_SUPPORTED_VERSIONS", ""}}));
}

TEST(DetectNdk, NotWritableCandidate) {
  RecordingHost host;
  host.add_ndk("/a", "11.2.4");
  host.writable["/a"] = 0;
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString("/a", ";", false)
env_set_string[strings]("NDK_PATH", "/a")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/a")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/a")
path("/a/ndk-build")
file_exists("/a/ndk-build", false)
path("/a/source.properties")
file_exists("/a/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/a")
env_set_string[chars]("NDK_PATH_STATUS", "notwritable")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", "/a")
env_set_string[chars]("NDK_PATH", "")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", ""},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"},
                                       {"NDK_SUPPORTED_VERSIONS", "r11c"}}));
}

TEST(DetectNdk, UnsupportedCandidate) {
  RecordingHost host;
  host.add_ndk("/a", "11.2.4");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r10e"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", ""},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"},
                                       {"NDK_SUPPORTED_VERSIONS", "r10e"}}));
}

TEST(DetectNdk, NoCandidates) {
  RecordingHost host;
  host.variables = {{"NDK_PATH_STATUS", "unsupported"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString("", ";", false)
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", ""},
                                       {"NDK_PATH_STATUS", "unsupported"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", ""}}));
}

TEST(DetectNdk, EmptyPieceIsACandidate) {
  RecordingHost host;
  host.keep_empty_pieces = true;
  host.add_ndk("/b", "11.0");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", ";/b"}, {"NDK_SUPPORTED_VERSIONS", "r11"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString(";/b", ";", false)
env_set_string[strings]("NDK_PATH", "")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "")
path("/ndk-build")
file_exists("/ndk-build", false)
path("/ndk-build.cmd")
file_exists("/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", "")
env_set_string[chars]("NDK_PATH", "")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_set_string[strings]("NDK_PATH", "/b")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/b")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/b")
path("/b/ndk-build")
file_exists("/b/ndk-build", false)
path("/b/source.properties")
file_exists("/b/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/b")
path("/b/source.properties")
file_exists("/b/source.properties", false)
IniDb("/b", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.0")
splitString("11.0", ".", false)
strtoint("11")
strtoint("0")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11")
~IniDb()
splitString("r11", ";", false)
inttostr(11)
inttostr(11)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r11")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): found valid NDK: '%s'", "/b")
)calls");
}

TEST(DetectNdk, CandidateStaysAsSplit) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return p == " /my %sndk/ " ? "/ndk" : p; };
  host.add_ndk("/ndk", "11.2.4");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", " /my %sndk/ "},
                    {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString(" /my %sndk/ ", ";", false)
env_set_string[strings]("NDK_PATH", " /my %sndk/ ")
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path(" /my %sndk/ ")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/ndk/ndk-build", false)
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true")
is_writable("/ndk")
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2.4")
splitString("11.2.4", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
splitString("r11c", ";", false)
inttostr(11)
inttostr(11)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r11c")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): found valid NDK: '%s'", " /my %sndk/ ")
)calls");
  EXPECT_EQ(host.variables["NDK_PATH"], " /my %sndk/ ");
}

TEST(DetectNdk, SearchAfterAFailedSearch) {
  RecordingHost host;
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};
  EXPECT_EQ(detect_ndk(&host.session), 0);
  const std::vector<std::string> first_search = host.calls;
  host.calls.clear();

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.calls, first_search);
}

TEST(DetectNdk, SearchAfterAFind) {
  RecordingHost host;
  host.add_ndk("/a", "11.2.4");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};
  EXPECT_EQ(detect_ndk(&host.session), 0);
  host.calls.clear();

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
print_log("NDK_INTEGRATION: detect_ndk(): NDK_PATH is already set to '%s', exiting", "/a")
)calls");
}

TEST(DetectNdk, ThrowingHost) {
  RecordingHost host;
  host.fail_at(2, "env_get_string");

  EXPECT_THROW(detect_ndk(&host.session), HostFailure);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
)calls");
}

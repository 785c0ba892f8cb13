// The lines that the transcripts of the other tests are joined of, spelled out.
#include "tests/transcripts.h"

#include <gtest/gtest.h>

TEST(Transcripts, Quotation) {
  EXPECT_EQ(calls("f", {"", "a \"b\" \\ %s", std::string("\n\r\t\x7f\xff\0", 6)}),
            R"(f("", "a \"b\" \\ %s", "\n\r\x09\x7f\xff\x00"))"
            "\n");
}

TEST(Transcripts, LookingAtADirectory) {
  EXPECT_EQ(looks_at("/ndk", kNdk | kWindowsLauncher), looks_at("/ndk", kNdk));
  EXPECT_EQ("\n" + looks_at("/ndk", kWindowsLauncher, "/real"), R"calls(
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/ndk")
path("/ndk/ndk-build")
file_exists("/real/ndk/ndk-build", false)
path("/ndk/ndk-build.cmd")
file_exists("/real/ndk/ndk-build.cmd", false)
path("/ndk/source.properties")
file_exists("/real/ndk/source.properties", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found file: source.properties, returning false")
)calls");
}

TEST(Transcripts, Judgements) {
  EXPECT_EQ("\n" + judges_no_ndk("/none") + judges_read_only("/ndk"), R"calls(
print_log("NDK_INTEGRATION: validate_ndk_path()")
env_get_string("NDK_PATH")
path("/none")
env_get_string("NDK_SUPPORTED_VERSIONS")
print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", "/none")
path("/none/ndk-build")
file_exists("/none/ndk-build", false)
path("/none/ndk-build.cmd")
file_exists("/none/ndk-build.cmd", false)
print_log("NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false")
env_set_string[chars]("NDK_PATH_STATUS", "nok")
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
  EXPECT_EQ("\n" + reads_release("/ndk", "11", "", "/real") +
                reads_release("/ndk", "-1.0.4", "r-1") + finds_supported("r-1", "r1;r-1"),
            R"calls(
path("/ndk/source.properties")
file_exists("/real/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11")
splitString("11", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "-1.0.4")
splitString("-1.0.4", ".", false)
strtoint("-1")
strtoint("0")
inttostr(-1)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r-1")
~IniDb()
splitString("r1;r-1", ";", false)
inttostr(-1)
inttostr(-1)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r-1")
)calls");
  EXPECT_EQ("\n" + finds_unsupported("r11c", "r1"), R"calls(
splitString("r1", ";", false)
inttostr(11)
inttostr(11)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r11c", "r1")
)calls");
  const std::string begins = begins_to_judge("/a", "/a", kNdk) + calls("is_writable", {"/a"});
  EXPECT_EQ(judges_good("/a", "1.0.4", "r1", "r1"), begins + reads_release("/a", "1.0.4", "r1") +
                                                        finds_supported("r1", "r1") +
                                                        sets("NDK_PATH_STATUS", "ok"));
  EXPECT_EQ(judges_unsupported("/a", "11", "", "r1"), begins + reads_release("/a", "11", "") +
                                                          finds_unsupported("r-1", "r1") +
                                                          sets("NDK_PATH_STATUS", "unsupported"));
}

TEST(Transcripts, Search) {
  EXPECT_EQ("\n" + begins_search("/a;/b") + rejects("/a", "(judgement of a)\n") +
                takes("/b", "(judgement of b)\n") + keeps_preset("/b"),
            R"calls(
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
env_get_string("NDK_DEFAULT_SEARCH_PATH_LINUX")
splitString("/a;/b", ";", false)
env_set_string[strings]("NDK_PATH", "/a")
(judgement of a)
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", "/a")
env_set_string[chars]("NDK_PATH", "")
env_set_string[chars]("NDK_PATH_STATUS", "ok")
env_set_string[strings]("NDK_PATH", "/b")
(judgement of b)
env_get_string("NDK_PATH_STATUS")
print_log("NDK_INTEGRATION: detect_ndk(): found valid NDK: '%s'", "/b")
print_log("NDK_INTEGRATION: detect_ndk()")
env_get_string("NDK_PATH")
print_log("NDK_INTEGRATION: detect_ndk(): NDK_PATH is already set to '%s', exiting", "/b")
)calls");
}

TEST(Transcripts, Selection) {
  EXPECT_EQ("\n" + begins_selection("-ndk-;x") + passes_over("a") + asks_selected("b") +
                asks_selected("x-ndk-y") +
                records_compiler("-ndk-", "x-ndk-y", "5.0.3", "42", "/vorn") +
                records_libraries("5.0.3", "42", "2005", "3") + rejects_version(),
            R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("-ndk-;x", ";", false)
TSD::components()
Component::installCondition("a")
Component::installCondition("b")
Component::getSelected("b")
Component::installCondition("x-ndk-y")
Component::getSelected("x-ndk-y")
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): Found pattern '%s' in '%s'", "-ndk-", "x-ndk-y")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "yes")
env_set_string[strings]("NDK_COMPILER_VERSION", "5.0.3")
env_set_string[strings]("NDK_COMPILER_PACKAGE_NUMBER", "42")
Component::subdir("x-ndk-y")
env_set_string[strings]("NDK_COMPILER_SUBDIR", "/vorn")
splitString("5.0.3", ".", false)
strtoint("5")
strtoint("3")
inttostr(2005)
inttostr(3)
inttostr(2005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2005.3.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2005")
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): compiler version is in unexpected format, could not convert it to CnL version!")
)calls");
}

TEST(Transcripts, Integration) {
  EXPECT_EQ("\n" + begins_integration("/opt", "1.2") +
                fills_in_definitions("/setup.mk", "64 ", "/cc", "5") +
                runs_script("/opt/android", "/ndk/", "/ndk", "done\n") + runs_no_script() +
                fills_in_script("/vars.sh", "NDK=<NDK_DIR>", "/ndk") + cannot_open("input", "/f"),
            R"calls(
print_log("NDK_INTEGRATION: integrate_ndk()")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("/opt/android")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("/opt/compilers_and_libraries_1.2/linux")
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
path("/setup.mk")
replaceAllSubstrings("64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}", "{INSTALL_NOX_INSTALLDIR}", "/cc")
replaceAllSubstrings("", "{INSTALL_NOX_INSTALLDIR}", "/cc")
file_move("/setup.mk.tmp", "/setup.mk")
path("/setup.mk")
replaceAllSubstrings("64 /cc {INSTALL_NOX_VERSION}", "{INSTALL_NOX_VERSION}", "5")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "5")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "5")
file_move("/setup.mk.tmp", "/setup.mk")
env_get_string("NDK_PATH")
path("/ndk/")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/ndk\" --force")
chdir("/opt/android")
get_command_output("./ndk_integration.sh \"/ndk\" --force", null, true, "")
print_log("Output: '%s'", "done\n")
print_log("NDK_INTEGRATION: integrate_ndk(): integration disabled")
path("/vars.sh")
replaceAllSubstrings("NDK=<NDK_DIR>", "<NDK_DIR>", "/ndk")
replaceAllSubstrings("", "<NDK_DIR>", "/ndk")
file_move("/vars.sh.tmp", "/vars.sh")
error("patch_text_file: cannot open input stream of file %s", "/f")
)calls");
}

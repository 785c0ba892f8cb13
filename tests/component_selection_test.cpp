#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"

using Variables = std::map<std::string, std::string>;

static int decide(RecordingHost& host) {
  return check_if_ndk_integration_files_are_to_be_installed(&host.session);
}

TEST(ComponentSelection, MatchingComponent) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "-ndk-";
  host.add_component("x-ndk-y", "5.0.3", "42", "/vorn");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("-ndk-", ";", false)
TSD::components()
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
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_COMPONENT_PATTERNS", "-ndk-"},
                                       {"NDK_INTEGRATION_INSTALL_DETECTED", "yes"},
                                       {"NDK_COMPILER_VERSION", "5.0.3"},
                                       {"NDK_COMPILER_PACKAGE_NUMBER", "42"},
                                       {"NDK_COMPILER_SUBDIR", "/vorn"},
                                       {"NDK_CNL_VERSION_FULL", "2005.3.42"},
                                       {"NDK_CNL_VERSION_MAJOR", "2005"}}));
}

TEST(ComponentSelection, NoneBothInstallableAndSelected) {
  RecordingHost host;
  host.variables = {{"NDK_COMPONENT_PATTERNS", "ndk"}, {"NDK_COMPILER_VERSION", "1.2.3"}};
  host.add_component("ndk-1", "5.0.3", "42", "/a", false, true);
  host.add_component("ndk-2", "5.0.3", "42", "/a", true, false);
  host.add_component("ndk-3", "5.0.3", "42", "/a", false, false);

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("ndk", ";", false)
TSD::components()
Component::installCondition("ndk-1")
Component::installCondition("ndk-2")
Component::getSelected("ndk-2")
Component::installCondition("ndk-3")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_COMPONENT_PATTERNS", "ndk"},
                                       {"NDK_COMPILER_VERSION", "1.2.3"},
                                       {"NDK_INTEGRATION_INSTALL_DETECTED", "no"}}));
}

TEST(ComponentSelection, FirstOfTwoMatchingComponents) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
  host.add_component("other", "1.1.1", "1", "/other");
  host.add_component("ndk-first", "5.0.3", "42", "/first");
  host.add_component("ndk-second", "6.0.4", "43", "/second");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("ndk", ";", false)
TSD::components()
Component::installCondition("other")
Component::getSelected("other")
Component::installCondition("ndk-first")
Component::getSelected("ndk-first")
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): Found pattern '%s' in '%s'", "ndk", "ndk-first")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "yes")
env_set_string[strings]("NDK_COMPILER_VERSION", "5.0.3")
env_set_string[strings]("NDK_COMPILER_PACKAGE_NUMBER", "42")
Component::subdir("ndk-first")
env_set_string[strings]("NDK_COMPILER_SUBDIR", "/first")
splitString("5.0.3", ".", false)
strtoint("5")
strtoint("3")
inttostr(2005)
inttostr(3)
inttostr(2005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2005.3.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2005")
)calls");
}

// What is logged when a component matches.
static std::string found_line(const RecordingHost& host) {
  for (const std::string& line : host.calls) {
    if (line.find("Found pattern") != std::string::npos) {
      return line.substr(line.find("\", \"") + 3);
    }
  }
  return "none";
}

TEST(ComponentSelection, FirstPatternOfTheListIsNamed) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "none;y-%s;x-";
  host.add_component("x-y-%s", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(found_line(host), R"("y-%s", "x-y-%s"))");
}

TEST(ComponentSelection, EmptyPatternMatchesEverything) {
  RecordingHost host;
  host.keep_empty_pieces = true;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk;;x";
  host.add_component("any", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(found_line(host), R"("", "any"))");
}

TEST(ComponentSelection, NoPatterns) {
  RecordingHost host;
  host.add_component("any", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("", ";", false)
TSD::components()
Component::installCondition("any")
Component::getSelected("any")
)calls");
}

TEST(ComponentSelection, NoComponents) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("ndk", ";", false)
TSD::components()
)calls");
}

TEST(ComponentSelection, CaseSensitiveSubstring) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
  host.add_component("X-NDK-Y", "1.0.0", "1", "");
  host.add_component("x-ndk-y", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(found_line(host), R"("ndk", "x-ndk-y"))");
}

TEST(ComponentSelection, SubstringAtTheEndsAndWhole) {
  for (const char* id : {"ndk-y", "x-ndk", "ndk"}) {
    RecordingHost host;
    host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
    host.add_component(id, "5.0.3", "42", "");

    EXPECT_EQ(decide(host), 0);

    EXPECT_EQ(found_line(host), std::string(R"("ndk", ")") + id + "\")");
  }
}

TEST(ComponentSelection, NoWildcards) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "n*k;n.k;ndk?;*";
  host.add_component("x-ndk-y", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(found_line(host), "none");
}

// The patterns belong to the id: neither of the other texts is searched.
TEST(ComponentSelection, PatternInOtherTexts) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
  host.add_component("x", "ndk", "ndk", "ndk");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(found_line(host), "none");
}

// --- The version of the compiler's libraries ---

// The calls from the split of the version on.
static std::string record_of_version(const std::string& version, const std::string& package) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
  host.add_component("ndk", version, package, "");
  EXPECT_EQ(decide(host), 0);
  host.calls.erase(host.calls.begin(), host.calls.begin() + 13);
  return host.record();
}

TEST(CnlVersion, MiddleNumberIsNotUsed) {
  EXPECT_EQ(record_of_version("5.1.3", "42"), R"calls(
splitString("5.1.3", ".", false)
strtoint("5")
strtoint("3")
inttostr(2005)
inttostr(3)
inttostr(2005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2005.3.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2005")
)calls");
}

TEST(CnlVersion, TwoThousandIsAlwaysAdded) {
  EXPECT_EQ(record_of_version("2005.0.3", "42"), R"calls(
splitString("2005.0.3", ".", false)
strtoint("2005")
strtoint("3")
inttostr(4005)
inttostr(3)
inttostr(4005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "4005.3.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "4005")
)calls");
}

TEST(CnlVersion, EmptyPackageNumber) {
  EXPECT_EQ(record_of_version("5.0.3", ""), R"calls(
splitString("5.0.3", ".", false)
strtoint("5")
strtoint("3")
inttostr(2005)
inttostr(3)
inttostr(2005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2005.3.")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2005")
)calls");
}

TEST(CnlVersion, PackageNumberAsItStands) {
  EXPECT_EQ(record_of_version("5.0.3", " 042%s.b "), R"calls(
splitString("5.0.3", ".", false)
strtoint("5")
strtoint("3")
inttostr(2005)
inttostr(3)
inttostr(2005)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2005.3. 042%s.b ")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2005")
)calls");
}

TEST(CnlVersion, NoNumbers) {
  EXPECT_EQ(record_of_version("x.y.z", "42"), R"calls(
splitString("x.y.z", ".", false)
strtoint("x")
strtoint("z")
inttostr(2000)
inttostr(0)
inttostr(2000)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2000.0.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2000")
)calls");
}

TEST(CnlVersion, NegativeNumbers) {
  EXPECT_EQ(record_of_version("-2001.0.-3", "42"), R"calls(
splitString("-2001.0.-3", ".", false)
strtoint("-2001")
strtoint("-3")
inttostr(-1)
inttostr(-3)
inttostr(-1)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "-1.-3.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "-1")
)calls");
}

TEST(CnlVersion, SumWrapsAt32Bits) {
  EXPECT_EQ(record_of_version("2147483647.0.2147483647", "42"), R"calls(
splitString("2147483647.0.2147483647", ".", false)
strtoint("2147483647")
strtoint("2147483647")
inttostr(-2147481649)
inttostr(2147483647)
inttostr(-2147481649)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "-2147481649.2147483647.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "-2147481649")
)calls");
}

TEST(CnlVersion, LastSumThatDoesNotWrap) {
  EXPECT_EQ(record_of_version("2147481647.0.-2147483648", "42"), R"calls(
splitString("2147481647.0.-2147483648", ".", false)
strtoint("2147481647")
strtoint("-2147483648")
inttostr(2147483647)
inttostr(-2147483648)
inttostr(2147483647)
env_set_string[strings]("NDK_CNL_VERSION_FULL", "2147483647.-2147483648.42")
env_set_string[strings]("NDK_CNL_VERSION_MAJOR", "2147483647")
)calls");
}

// The decision and the compiler are recorded before the version is looked at, and a later
// component does not make up for it.
static void expect_unexpected_format(const std::string& version) {
  RecordingHost host;
  host.variables = {{"NDK_COMPONENT_PATTERNS", "ndk"}, {"NDK_CNL_VERSION_FULL", "old"}};
  host.add_component("ndk", version, "42", "/vorn");
  host.add_component("ndk-later", "5.0.3", "42", "/later");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "no")
env_get_string("NDK_COMPONENT_PATTERNS")
splitString("ndk", ";", false)
TSD::components()
Component::installCondition("ndk")
Component::getSelected("ndk")
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): Found pattern '%s' in '%s'", "ndk", "ndk")
env_set_string[chars]("NDK_INTEGRATION_INSTALL_DETECTED", "yes")
env_set_string[strings]("NDK_COMPILER_VERSION", ")calls" +
                               version + R"calls(")
env_set_string[strings]("NDK_COMPILER_PACKAGE_NUMBER", "42")
Component::subdir("ndk")
env_set_string[strings]("NDK_COMPILER_SUBDIR", "/vorn")
splitString(")calls" + version +
                               R"calls(", ".", false)
print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): compiler version is in unexpected format, could not convert it to CnL version!")
)calls");
  EXPECT_EQ(host.variables, (Variables{{"NDK_COMPONENT_PATTERNS", "ndk"},
                                       {"NDK_INTEGRATION_INSTALL_DETECTED", "yes"},
                                       {"NDK_COMPILER_VERSION", version},
                                       {"NDK_COMPILER_PACKAGE_NUMBER", "42"},
                                       {"NDK_COMPILER_SUBDIR", "/vorn"},
                                       {"NDK_CNL_VERSION_FULL", "old"}}));
}

TEST(CnlVersion, TwoNumbers) { expect_unexpected_format("5.0"); }

TEST(CnlVersion, FourNumbers) { expect_unexpected_format("5.0.3.1"); }

TEST(CnlVersion, OneNumber) { expect_unexpected_format("5"); }

TEST(CnlVersion, EmptyVersion) { expect_unexpected_format(""); }

// --- One call after another ---

TEST(ComponentSelection, ChangedSelection) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";
  host.add_component("ndk", "5.0.3", "42", "/vorn");
  EXPECT_EQ(decide(host), 0);
  host.variables["NDK_COMPONENT_PATTERNS"] = "none";

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.variables, (Variables{{"NDK_COMPONENT_PATTERNS", "none"},
                                       {"NDK_INTEGRATION_INSTALL_DETECTED", "no"},
                                       {"NDK_COMPILER_VERSION", "5.0.3"},
                                       {"NDK_COMPILER_PACKAGE_NUMBER", "42"},
                                       {"NDK_COMPILER_SUBDIR", "/vorn"},
                                       {"NDK_CNL_VERSION_FULL", "2005.3.42"},
                                       {"NDK_CNL_VERSION_MAJOR", "2005"}}));
}

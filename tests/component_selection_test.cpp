#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"
#include "tests/transcripts.h"

using Variables = std::map<std::string, std::string>;

static int decide(RecordingHost& host) {
  return check_if_ndk_integration_files_are_to_be_installed(&host.session);
}

TEST(ComponentSelection, MatchingComponent) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "-ndk-";
  host.add_component("x-ndk-y", "5.0.3", "42", "/vorn");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), "\n" + begins_selection("-ndk-") + asks_selected("x-ndk-y") +
                               records_compiler("-ndk-", "x-ndk-y", "5.0.3", "42", "/vorn") +
                               records_libraries("5.0.3", "42", "2005", "3"));
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

  EXPECT_EQ(host.record(), "\n" + begins_selection("ndk") + passes_over("ndk-1") +
                               asks_selected("ndk-2") + passes_over("ndk-3"));
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

  EXPECT_EQ(host.record(), "\n" + begins_selection("ndk") + asks_selected("other") +
                               asks_selected("ndk-first") +
                               records_compiler("ndk", "ndk-first", "5.0.3", "42", "/first") +
                               records_libraries("5.0.3", "42", "2005", "3"));
}

TEST(ComponentSelection, NoComponents) {
  RecordingHost host;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk";

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), "\n" + begins_selection("ndk"));
}

// One component, installable and selected.
TEST(ComponentSelection, Patterns) {
  struct Row {
    const char* name;
    std::string patterns;
    std::string id;
    const char* matching;  // the pattern that the log names, or null
  };
  const std::vector<Row> rows = {
      {"first of the list that occurs", "none;y-%s;x-", "x-y-%s", "y-%s"},
      {"no patterns", "", "any", nullptr},
      {"other letter case", "ndk", "X-NDK-Y", nullptr},
      {"inside", "ndk", "x-ndk-y", "ndk"},
      {"at the beginning", "ndk", "ndk-y", "ndk"},
      {"at the end", "ndk", "x-ndk", "ndk"},
      {"whole", "ndk", "ndk", "ndk"},
      {"no wildcards", "n*k;n.k;ndk?;*", "x-ndk-y", nullptr},
      // The patterns belong to the id: none of the other texts is searched.
      {"in other texts", "5.0.3;42;vorn", "x", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.variables["NDK_COMPONENT_PATTERNS"] = row.patterns;
    host.add_component(row.id, "5.0.3", "42", "/vorn");

    EXPECT_EQ(decide(host), 0);

    const std::string matched =
        row.matching == nullptr ? ""
                                : records_compiler(row.matching, row.id, "5.0.3", "42", "/vorn") +
                                      records_libraries("5.0.3", "42", "2005", "3");
    EXPECT_EQ(host.record(),
              "\n" + begins_selection(row.patterns) + asks_selected(row.id) + matched);
  }
}

TEST(ComponentSelection, EmptyPatternMatchesEverything) {
  RecordingHost host;
  host.keep_empty_pieces = true;
  host.variables["NDK_COMPONENT_PATTERNS"] = "ndk;;x";
  host.add_component("any", "5.0.3", "42", "");

  EXPECT_EQ(decide(host), 0);

  EXPECT_EQ(host.record(), "\n" + begins_selection("ndk;;x") + asks_selected("any") +
                               records_compiler("", "any", "5.0.3", "42", "") +
                               records_libraries("5.0.3", "42", "2005", "3"));
}

// --- The version of the compiler's libraries ---

// The decision and the compiler are recorded before the version is looked at, and a later
// component does not make up for one in an unexpected format.
TEST(CnlVersion, Versions) {
  struct Row {
    const char* name;
    std::string version;
    std::string package_number;
    std::string major;  // "" for a version in an unexpected format
    std::string minor;
  };
  const std::vector<Row> rows = {
      {"middle number is not used", "5.1.3", "42", "2005", "3"},
      {"2000 is always added", "2005.0.3", "42", "4005", "3"},
      {"empty package number", "5.0.3", "", "2005", "3"},
      {"package number as it stands", "5.0.3", " 042%s.b ", "2005", "3"},
      {"no numbers", "x.y.z", "42", "2000", "0"},
      {"negative numbers", "-2001.0.-3", "42", "-1", "-3"},
      {"sum wraps at 32 bits", "2147483647.0.2147483647", "42", "-2147481649", "2147483647"},
      {"last sum that does not wrap", "2147481647.0.-2147483648", "42", "2147483647",
       "-2147483648"},
      {"two numbers", "5.0", "42", "", ""},
      {"four numbers", "5.0.3.1", "42", "", ""},
      {"one number", "5", "42", "", ""},
      {"empty version", "", "42", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.variables = {{"NDK_COMPONENT_PATTERNS", "ndk"}, {"NDK_CNL_VERSION_FULL", "old"}};
    host.add_component("ndk", row.version, row.package_number, "/vorn");
    host.add_component("ndk-later", "5.0.3", "42", "/later");

    EXPECT_EQ(decide(host), 0);

    Variables variables = {
        {"NDK_COMPONENT_PATTERNS", "ndk"},     {"NDK_INTEGRATION_INSTALL_DETECTED", "yes"},
        {"NDK_COMPILER_VERSION", row.version}, {"NDK_COMPILER_PACKAGE_NUMBER", row.package_number},
        {"NDK_COMPILER_SUBDIR", "/vorn"},      {"NDK_CNL_VERSION_FULL", "old"}};
    if (!row.major.empty()) {
      variables["NDK_CNL_VERSION_FULL"] = row.major + "." + row.minor + "." + row.package_number;
      variables["NDK_CNL_VERSION_MAJOR"] = row.major;
    }
    EXPECT_EQ(host.record(),
              "\n" + begins_selection("ndk") + asks_selected("ndk") +
                  records_compiler("ndk", "ndk", row.version, row.package_number, "/vorn") +
                  (row.major.empty()
                       ? rejects_version()
                       : records_libraries(row.version, row.package_number, row.major, row.minor)));
    EXPECT_EQ(host.variables, variables);
  }
}

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

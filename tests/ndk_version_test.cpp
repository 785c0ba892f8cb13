#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <ostream>
#include <type_traits>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"

static_assert(std::is_same_v<decltype(ndk_version_t::major), std::int32_t>);
static_assert(std::is_same_v<decltype(ndk_version_t::minor), std::int32_t>);
static_assert(offsetof(ndk_version_t, major) == 0 && offsetof(ndk_version_t, minor) == 4);
static_assert(sizeof(ndk_version_t) == 8 && std::is_trivial_v<ndk_version_t>);

static bool operator==(ndk_version_t a, ndk_version_t b) {
  return a.major == b.major && a.minor == b.minor;
}

static std::ostream& operator<<(std::ostream& out, ndk_version_t version) {
  return out << "{" << version.major << ", " << version.minor << "}";
}

constexpr ndk_version_t UNKNOWN{-1, -1};

// --- get_version ---

TEST(GetVersion, ThreeNumbers) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2.4");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 2}));

  EXPECT_EQ(host.record(), R"calls(
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
)calls");
}

TEST(GetVersion, TwoNumbers) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 2}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2")
splitString("11.2", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
)calls");
}

TEST(GetVersion, FirstIssueOfARelease) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.0.4");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 0}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.0.4")
splitString("11.0.4", ".", false)
strtoint("11")
strtoint("0")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11")
~IniDb()
)calls");
}

TEST(GetVersion, OneNumber) {
  RecordingHost host;
  host.add_ndk("/ndk", "11");

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11")
splitString("11", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
)calls");
}

TEST(GetVersion, EmptyRevision) {
  RecordingHost host;
  host.add_ndk("/ndk", "");

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "")
splitString("", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
)calls");
}

TEST(GetVersion, EmptyRevisionWhereEmptyPiecesAreKept) {
  RecordingHost host;
  host.keep_empty_pieces = true;
  host.add_ndk("/ndk", "");

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "")
splitString("", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
)calls");
}

// The recording host compares keys as they stand, and here no blank is before "=".
TEST(GetVersion, MissingKey) {
  RecordingHost host;
  host.files["/ndk/source.properties"] = "Pkg.Desc = Android NDK\nPkg.Revision=11.2.4\n";

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "")
splitString("", ".", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format")
~IniDb()
)calls");
}

TEST(GetVersion, MissingFile) {
  RecordingHost host;

  EXPECT_EQ(get_version("/ndk 100%s"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk 100%s/source.properties")
file_exists("/ndk 100%s/source.properties", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! Could not find source.properties file in '%s'", "/ndk 100%s")
)calls");
}

TEST(GetVersion, AnyNonZeroAnswerMeansThere) {
  for (const int yes : {256, 65536, -1}) {
    RecordingHost host;
    host.exists = yes;
    host.add_ndk("/ndk", "11.2.4");

    EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 2})) << yes;
  }
}

TEST(GetVersion, TrailingSlash) {
  RecordingHost host;
  host.add_ndk("/ndk/", "11.2.4");

  EXPECT_EQ(get_version("/ndk/"), (ndk_version_t{11, 2}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk//source.properties")
file_exists("/ndk//source.properties", false)
IniDb("/ndk/", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2.4")
splitString("11.2.4", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
)calls");
}

TEST(GetVersion, ReaderGetsTheDirectoryAsPassed) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "/real" + p; };
  host.files = {{"/real/ndk/source.properties", ""},
                {"/ndk/source.properties", "Pkg.Revision = 11.2.4\n"}};

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 2}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/real/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "11.2.4")
splitString("11.2.4", ".", false)
strtoint("11")
strtoint("2")
inttostr(11)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r11c")
~IniDb()
)calls");
}

TEST(GetVersion, MissingFileIsNamedByTheDirectoryAsPassed) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "/real" + p; };

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/real/ndk/source.properties", false)
print_log("NDK_INTEGRATION: get_version(): ERROR! Could not find source.properties file in '%s'", "/ndk")
)calls");
}

TEST(GetVersion, PiecesAsTheyStand) {
  RecordingHost host;
  host.add_ndk("/ndk", "x% . 2 .rc%s ");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{0, 2}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "x% . 2 .rc%s ")
splitString("x% . 2 .rc%s ", ".", false)
strtoint("x% ")
strtoint(" 2 ")
inttostr(0)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r0c")
~IniDb()
)calls");
}

TEST(GetVersion, UncheckedNumbers) {
  RecordingHost host;
  host.add_ndk("/ndk", "2147483647.-2147483648");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{std::numeric_limits<std::int32_t>::max(),
                                                std::numeric_limits<std::int32_t>::min()}));

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", "2147483647.-2147483648")
splitString("2147483647.-2147483648", ".", false)
strtoint("2147483647")
strtoint("-2147483648")
inttostr(2147483647)
print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r2147483647")
~IniDb()
)calls");
}

// The text ends at the character 0 in the log, and nowhere else.
TEST(GetVersion, LetterOfCodeZero) {
  RecordingHost host;
  host.add_ndk("/ndk", "10.159");

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{10, 159}));

  EXPECT_EQ(host.calls[9],
            R"(print_log("NDK_INTEGRATION: get_version(): detected version is '%s''", "r10"))");
}

TEST(GetVersion, ReaderDestroyedWhenTheHostThrows) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2.4");
  host.fail_at(1, "IniDb::value");

  EXPECT_THROW(get_version("/ndk"), HostFailure);

  EXPECT_EQ(host.record(), R"calls(
path("/ndk/source.properties")
file_exists("/ndk/source.properties", false)
IniDb("/ndk", "source.properties", "=")
IniDb::value("Pkg.Revision ")
~IniDb()
)calls");
  EXPECT_EQ(host.live_readers, 0U);
}

// --- ndk_version_string ---

struct VersionText {
  ndk_version_t version;
  std::string text;
};

static void expect_texts(const std::vector<VersionText>& expected) {
  for (const auto& [version, text] : expected) {
    RecordingHost host;
    EXPECT_EQ(ndk_version_string(version), text) << version;
    EXPECT_EQ(host.record(), "\ninttostr(" + std::to_string(version.major) + ")\n");
  }
}

TEST(NdkVersionString, UpdateZeroHasNoLetter) {
  expect_texts({{{10, 0}, "r10"}, {{0, 0}, "r0"}, {{21, 0}, "r21"}});
}

TEST(NdkVersionString, UpdateOneIsB) {
  expect_texts({{{10, 1}, "r10b"}, {{10, 2}, "r10c"}, {{10, 4}, "r10e"}, {{10, 25}, "r10z"}});
}

TEST(NdkVersionString, NegativeUpdateHasNoLetter) {
  expect_texts(
      {{{5, -3}, "r5"}, {{5, -1}, "r5"}, {{5, std::numeric_limits<std::int32_t>::min()}, "r5"}});
}

TEST(NdkVersionString, UnknownRelease) { expect_texts({{UNKNOWN, "r-1"}}); }

TEST(NdkVersionString, CharactersAfterZ) {
  expect_texts({{{10, 26}, "r10{"}, {{10, 27}, "r10|"}, {{10, 158}, "r10\xff"}});
}

TEST(NdkVersionString, LetterWrapsAtEightBits) {
  expect_texts({{{10, 159}, std::string("r10\0", 4)},
                {{10, 160}, "r10\x01"},
                {{10, 256}, "r10a"},
                {{10, 257}, "r10b"},
                {{10, std::numeric_limits<std::int32_t>::max()}, "r10`"}});
}

TEST(NdkVersionString, ReleaseIsWidenedWithItsSign) {
  expect_texts({{{std::numeric_limits<std::int32_t>::max(), 1}, "r2147483647b"},
                {{std::numeric_limits<std::int32_t>::min(), 1}, "r-2147483648b"}});
}

// --- is_ndk_version_supported ---

TEST(IsNdkVersionSupported, ReleaseInTheList) {
  RecordingHost host;

  EXPECT_TRUE(is_ndk_version_supported({10, 4}, "r10d;r10e"));

  EXPECT_EQ(host.record(), R"calls(
splitString("r10d;r10e", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r10e")
)calls");
}

TEST(IsNdkVersionSupported, ReleaseNotInTheList) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 0}, "r10d;r10e"));

  EXPECT_EQ(host.record(), R"calls(
splitString("r10d;r10e", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r10", "r10d;r10e")
)calls");
}

TEST(IsNdkVersionSupported, EmptyList) {
  for (const bool keep : {false, true}) {
    RecordingHost host;
    host.keep_empty_pieces = keep;

    EXPECT_FALSE(is_ndk_version_supported({10, 4}, ""));

    EXPECT_EQ(host.record(), R"calls(
splitString("", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r10e", "")
)calls");
  }
}

TEST(IsNdkVersionSupported, EmptyEntries) {
  RecordingHost host;
  host.keep_empty_pieces = true;

  EXPECT_TRUE(is_ndk_version_supported({10, 4}, ";r10d;;r10e;"));
  EXPECT_FALSE(is_ndk_version_supported({10, 1}, ";r10d;;r10e;"));

  EXPECT_EQ(host.record(), R"calls(
splitString(";r10d;;r10e;", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r10e")
splitString(";r10d;;r10e;", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r10b", ";r10d;;r10e;")
)calls");
}

TEST(IsNdkVersionSupported, UnknownRelease) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported(UNKNOWN, "r1;r11c"));
  EXPECT_TRUE(is_ndk_version_supported(UNKNOWN, "r11c;r-1"));

  EXPECT_EQ(host.record(), R"calls(
splitString("r1;r11c", ";", false)
inttostr(-1)
inttostr(-1)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r-1", "r1;r11c")
splitString("r11c;r-1", ";", false)
inttostr(-1)
inttostr(-1)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported", "r-1")
)calls");
}

TEST(IsNdkVersionSupported, WholeTextOnly) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 0}, "r10b;r100;r1"));
  EXPECT_FALSE(is_ndk_version_supported({10, 1}, "r10;r10bb;10b"));
}

TEST(IsNdkVersionSupported, UpperCaseEntry) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 4}, "R10E;R10e;r10E"));
}

TEST(IsNdkVersionSupported, BlankAroundAnEntry) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 4}, "r10d; r10e;r10e "));
}

TEST(IsNdkVersionSupported, OrderAndDuplicates) {
  for (const char* list : {"r10e;r10d", "r10d;r10e", "r10e;r10e"}) {
    RecordingHost host;

    EXPECT_TRUE(is_ndk_version_supported({10, 4}, list)) << list;
  }
}

// A release text that holds the character 0 is longer than what the list shows of it.
TEST(IsNdkVersionSupported, LetterOfCodeZero) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 159}, "r10"));
  EXPECT_TRUE(is_ndk_version_supported({10, 159}, std::string("r10\0", 4)));
}

TEST(IsNdkVersionSupported, PercentSigns) {
  RecordingHost host;

  EXPECT_FALSE(is_ndk_version_supported({10, 4}, "%s%n;%d"));

  EXPECT_EQ(host.record(), R"calls(
splitString("%s%n;%d", ";", false)
inttostr(10)
inttostr(10)
print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false", "r10e", "%s%n;%d")
)calls");
}

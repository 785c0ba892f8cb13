// The releases that someone asks for, beyond what the tests of the command line see.
#include "console_host/ndk/asked_releases.h"

#include <gtest/gtest.h>

#include "console_host/ndk/release_numbers.h"

namespace ndk_integrate {

namespace {

TEST(EntriesThatNeverMatch, EachWithWhatWasMeant) {
  const std::string never = "can never match a release, which the plug-in writes as r21e: ";
  const std::vector<std::string> expected = {"'R21E' " + never + "did you mean r21e?",
                                             "' r21e' " + never + "did you mean r21e?",
                                             "'21e' " + never + "did you mean r21e?",
                                             "'r021' " + never + "did you mean r21?",
                                             "'r21a' " + never + "each entry is one release",
                                             "'r21*' " + never + "each entry is one release",
                                             "'27.0.1' " + never + "each entry is one release"};
  EXPECT_EQ(entries_that_never_match("R21E; r21e;21e;r021;r21a;r21*;27.0.1"), expected);
}

TEST(EntriesThatNeverMatch, NoneThatMay) {
  EXPECT_TRUE(entries_that_never_match(";r10e;;r11;r21z;r0;r-1;").empty());
}

TEST(AskedReleases, PluginListHasSingleReleasesAndThoseThatAreThere) {
  const AskedReleases asked("", "r10e;r21..r25;27.0.12077973;r10e");
  EXPECT_EQ(asked.plugin_list({"r11", "r22b", "r25c", "r26", "r27"}), "r10e;r22b;r25c;r27");
}

TEST(AskedReleases, BetaIsOneOfItsOwn) {
  const AskedReleases asked("", "r29-beta4");
  EXPECT_TRUE(asked.accept("r29", "29.0.14033849-beta4"));
  EXPECT_FALSE(asked.accept("r29", "29.0.13846066-beta3"));
  EXPECT_FALSE(asked.accept("r29", "29.0.14206865"));
}

TEST(ParseRelease, AsLongAsANumberFits) {
  EXPECT_EQ(parse_release("r999999999")->number, 999999999);
  EXPECT_FALSE(parse_release("r1000000000"));
}

TEST(Sortable, NumbersNotTexts) {
  for (const auto& [older, newer] :
       {std::pair("27.0.9", "27.0.10"), std::pair("27.0.010", "27.0.11"),
        std::pair("9.1.0", "10.0.0"), std::pair("27.0.1-beta2", "27.0.1"),
        std::pair("27.0.1-beta2", "27.0.1-beta10")}) {
    EXPECT_LT(sortable(older), sortable(newer)) << older << " " << newer;
  }
  EXPECT_EQ(sortable("027.0.01"), sortable("27.0.1"));
}

}  // namespace

}  // namespace ndk_integrate

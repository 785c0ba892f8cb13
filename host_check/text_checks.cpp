// Checks of the text services.
#include <optional>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace host_check {

namespace {

using Texts = std::vector<std::string>;

void expect_pieces(const std::string& text, const std::string& separator, const Texts& expected) {
  expect("splitString(" + quoted(text) + ", " + quoted(separator) + ", false)", expected,
         splitString(text, separator, false));
}

void expect_replaced(const std::string& text, const std::string& from, const std::string& to,
                     const std::string& expected) {
  expect("replaceAllSubstrings(" + quoted(text) + ", " + quoted(from) + ", " + quoted(to) + ")",
         expected, replaceAllSubstrings(text, from, to));
}

void expect_number(const std::string& text, int expected) {
  expect("strtoint(" + quoted(text) + ")", expected, strtoint(text));
}

void expect_decimals(long long value, const std::string& expected) {
  expect("inttostr(" + std::to_string(value) + ")", expected, inttostr(value));
}

}  // namespace

std::vector<Check> text_checks() {
  return {
      {"split-order",
       "splitString gives every piece between the separators, equal ones too, in the order of the text.",
       {},
       [](session_t* /*session*/) {
         expect_pieces("r21e;r10e;r11c;r10e", ";", {"r21e", "r10e", "r11c", "r10e"});
       }},
      {"split-version",
       "splitString gives exactly three pieces for a version of three numbers, such as 5.0.3.",
       {"split-order"},
       [](session_t* /*session*/) {
         expect_pieces("5.0.3", ".", {"5", "0", "3"});
         expect_pieces("11.2.2725575", ".", {"11", "2", "2725575"});
       }},
      {"split-inner-blanks",
       "splitString leaves the blanks inside a piece alone and does not split there.",
       {"split-order"},
       [](session_t* /*session*/) {
         expect_pieces("/opt/my ndk;/home/a  b/ndk", ";", {"/opt/my ndk", "/home/a  b/ndk"});
       }},
      {"split-without-separator",
       "splitString gives the whole text as its only piece when the separator does not occur.",
       {"split-version"},
       [](session_t* /*session*/) {
         expect_pieces("/opt/ndk", ";", {"/opt/ndk"});
         expect_pieces("11", ".", {"11"});
       }},
      {"split-empty-text",
       "splitString takes the empty text, for which it gives one empty piece or none.",
       {},
       [](session_t* /*session*/) {
         const Texts pieces = splitString("", ".", false);
         if (pieces.size() > 1) {
           throw Violated(R"(splitString("", ".", false) should give at most one piece)",
                          "it gave " + quoted(pieces));
         }
       }},
      {"replace-every-occurrence",
       "replaceAllSubstrings replaces every occurrence, several on one line and side by side.",
       {},
       [](session_t* /*session*/) {
         expect_replaced("<NDK_DIR>:<NDK_DIR><NDK_DIR>/bin", "<NDK_DIR>", "/opt/ndk",
                         "/opt/ndk:/opt/ndk/opt/ndk/bin");
       }},
      {"replace-with-nothing",
       "replaceAllSubstrings deletes what is to be replaced by \"\".",
       {},
       [](session_t* /*session*/) { expect_replaced("NDK=<NDK_DIR>;", "<NDK_DIR>", "", "NDK=;"); }},
      {"replace-literally",
       "replaceAllSubstrings takes both texts as they are: no pattern, no escape, no $& means anything.",
       {},
       [](session_t* /*session*/) {
         expect_replaced("DIR={INSTALL_NOX_INSTALLDIR}", "{INSTALL_NOX_INSTALLDIR}",
                         R"(/opt/$&/\1/&/%s)", R"(DIR=/opt/$&/\1/&/%s)");
       }},
      // A host that looks for the pattern in what it has just put in comes to no end.
      {"replace-own-pattern",
       "replaceAllSubstrings takes a replacement that holds the pattern itself, and does not replace inside it.",
       {"replace-every-occurrence"},
       [](session_t* /*session*/) {
         const std::string call =
             R"(replaceAllSubstrings("<NDK_DIR>;<NDK_DIR>", "<NDK_DIR>", "/opt/<NDK_DIR>/ndk"))";
         const std::optional<std::string> result = in_one_second([] {
           return replaceAllSubstrings("<NDK_DIR>;<NDK_DIR>", "<NDK_DIR>", "/opt/<NDK_DIR>/ndk");
         });
         if (!result) {
           throw Violated(call + " should return", "it did not within a second's work");
         }
         expect(call, "/opt/<NDK_DIR>/ndk;/opt/<NDK_DIR>/ndk", *result);
       }},
      {"replace-other-bytes",
       "replaceAllSubstrings leaves every other byte of the line as it is, carriage returns, NULs and bytes that are not ASCII included.",
       {},
       [](session_t* /*session*/) {
         expect_replaced("", "<NDK_DIR>", "/opt/ndk", "");
         expect_replaced("\t nothing to replace \r", "<NDK_DIR>", "/opt/ndk",
                         "\t nothing to replace \r");
         std::string bytes;
         for (int code = 0; code < 256; ++code) {
           if (code != '\n') {
             bytes += static_cast<char>(code);
           }
         }
         expect_replaced(bytes + "<NDK_DIR>" + bytes, "<NDK_DIR>", "/opt/ndk",
                         bytes + "/opt/ndk" + bytes);
       }},
      {"strtoint-decimals",
       "strtoint reads decimal numbers from 0 to 2147483647.",
       {},
       [](session_t* /*session*/) {
         expect_number("0", 0);
         expect_number("3", 3);
         expect_number("11", 11);
         expect_number("2725575", 2725575);
         expect_number("2147483647", 2147483647);
       }},
      {"strtoint-leading-zeros",
       "strtoint reads a number with a leading zero as decimal, not as octal.",
       {"strtoint-decimals"},
       [](session_t* /*session*/) {
         expect_number("03", 3);
         expect_number("010", 10);
       }},
      {"strtoint-negative",
       "strtoint reads negative numbers.",
       {"strtoint-decimals"},
       [](session_t* /*session*/) {
         expect_number("-1", -1);
         expect_number("-2725575", -2725575);
       }},
      {"strtoint-no-number",
       "strtoint returns, whatever it gives, for text that is not a number, or a number too large.",
       {},
       [](session_t* /*session*/) {
         for (const char* text : {"", " ", "abc", "-", "beta4", "0x", "99999999999999999999"}) {
           expect_return("strtoint(" + quoted(std::string(text)) + ")", [text] { strtoint(text); });
         }
       }},
      {"inttostr-decimals",
       "inttostr writes numbers from 0 to 2147483647 in plain decimal digits.",
       {},
       [](session_t* /*session*/) {
         expect_decimals(0, "0");
         expect_decimals(3, "3");
         expect_decimals(11, "11");
         expect_decimals(2005, "2005");
         expect_decimals(2147483647, "2147483647");
       }},
      {"inttostr-negative",
       "inttostr writes negative numbers with a minus sign.",
       {"inttostr-decimals"},
       [](session_t* /*session*/) {
         expect_decimals(-1, "-1");
         expect_decimals(-2147483648LL, "-2147483648");
       }},
  };
}

}  // namespace host_check

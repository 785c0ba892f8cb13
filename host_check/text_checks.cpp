// Checks of the text services.
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/verdict.h"

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

void split_order(session_t* /*session*/) {
  expect_pieces("r21e;r10e;r11c;r10e", ";", {"r21e", "r10e", "r11c", "r10e"});
}

void split_version(session_t* /*session*/) {
  expect_pieces("5.0.3", ".", {"5", "0", "3"});
  expect_pieces("11.2.2725575", ".", {"11", "2", "2725575"});
}

void split_inner_blanks(session_t* /*session*/) {
  expect_pieces("/opt/my ndk;/home/a  b/ndk", ";", {"/opt/my ndk", "/home/a  b/ndk"});
}

void split_without_separator(session_t* /*session*/) {
  expect_pieces("/opt/ndk", ";", {"/opt/ndk"});
  expect_pieces("11", ".", {"11"});
}

void split_empty_text(session_t* /*session*/) {
  const Texts pieces = splitString("", ".", false);
  if (pieces.size() > 1) {
    throw Violated(R"(splitString("", ".", false) should give at most one piece)",
                   "it gave " + quoted(pieces));
  }
}

void replace_every_occurrence(session_t* /*session*/) {
  expect_replaced("<NDK_DIR>:<NDK_DIR><NDK_DIR>/bin", "<NDK_DIR>", "/opt/ndk",
                  "/opt/ndk:/opt/ndk/opt/ndk/bin");
}

void replace_with_nothing(session_t* /*session*/) {
  expect_replaced("NDK=<NDK_DIR>;", "<NDK_DIR>", "", "NDK=;");
}

void replace_literally(session_t* /*session*/) {
  expect_replaced("DIR={INSTALL_NOX_INSTALLDIR}", "{INSTALL_NOX_INSTALLDIR}", R"(/opt/$&/\1/&/%s)",
                  R"(DIR=/opt/$&/\1/&/%s)");
}

void replace_other_bytes(session_t* /*session*/) {
  expect_replaced("", "<NDK_DIR>", "/opt/ndk", "");
  expect_replaced("\t nothing to replace \r", "<NDK_DIR>", "/opt/ndk", "\t nothing to replace \r");
  std::string bytes;
  for (int code = 0; code < 256; ++code) {
    if (code != '\n') {
      bytes += static_cast<char>(code);
    }
  }
  expect_replaced(bytes + "<NDK_DIR>" + bytes, "<NDK_DIR>", "/opt/ndk", bytes + "/opt/ndk" + bytes);
}

void strtoint_decimals(session_t* /*session*/) {
  expect_number("0", 0);
  expect_number("3", 3);
  expect_number("11", 11);
  expect_number("2725575", 2725575);
  expect_number("2147483647", 2147483647);
}

void strtoint_leading_zeros(session_t* /*session*/) {
  expect_number("03", 3);
  expect_number("010", 10);
}

void strtoint_negative(session_t* /*session*/) {
  expect_number("-1", -1);
  expect_number("-2725575", -2725575);
}

void inttostr_decimals(session_t* /*session*/) {
  expect_decimals(0, "0");
  expect_decimals(3, "3");
  expect_decimals(11, "11");
  expect_decimals(2005, "2005");
  expect_decimals(2147483647, "2147483647");
}

void inttostr_negative(session_t* /*session*/) {
  expect_decimals(-1, "-1");
  expect_decimals(-2147483648LL, "-2147483648");
}

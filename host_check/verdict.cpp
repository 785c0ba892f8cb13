#include "host_check/verdict.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace host_check {

namespace {

constexpr std::size_t kLongText = 200;
constexpr std::size_t kBeginning = 60;
constexpr std::size_t kManyTexts = 8;

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (code >= 0x20 && code < 0x7f) {
      result += c;
    } else {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned>(code));
      result += escape.data();
    }
  }
  return result;
}

// The one form of all violations, with values written as people write them.
void expect_written(const std::string& call, bool kept, const std::string& expected,
                    const std::string& came) {
  if (!kept) {
    throw Violated(call + " should give " + expected, "it gave " + came);
  }
}

}  // namespace

Violated::Violated(const std::string& expected, const std::string& came)
    : std::runtime_error(expected + ", " + came) {}

std::string quoted(const std::string& text) {
  if (text.size() <= kLongText) {
    return '"' + escaped(text) + '"';
  }
  return '"' + escaped(text.substr(0, kBeginning)) + "\"... (" + std::to_string(text.size()) +
         " bytes)";
}

std::string quoted(const std::vector<std::string>& texts) {
  std::string list;
  for (std::size_t i = 0; i < texts.size() && i < kManyTexts; ++i) {
    list += (i == 0 ? "" : ", ") + quoted(texts[i]);
  }
  if (texts.size() > kManyTexts) {
    list += "... (" + std::to_string(texts.size()) + " texts)";
  }
  return '[' + list + ']';
}

void expect_return(const std::string& call, const std::function<void()>& run) {
  try {
    run();
  } catch (const std::exception& exception) {
    throw Violated(call + " should return", "an exception came: " + quoted(exception.what()));
  } catch (...) {
    throw Violated(call + " should return", "an exception came that is not a std::exception");
  }
}

void expect(const std::string& call, const std::string& expected, const std::string& came) {
  expect_written(call, came == expected, quoted(expected), quoted(came));
}

void expect(const std::string& call, long long expected, long long came) {
  expect_written(call, came == expected, std::to_string(expected), std::to_string(came));
}

void expect(const std::string& call, const std::vector<std::string>& expected,
            const std::vector<std::string>& came) {
  expect_written(call, came == expected, quoted(expected), quoted(came));
}

}  // namespace host_check

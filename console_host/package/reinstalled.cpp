#include "console_host/package/reinstalled.h"

#include <algorithm>
#include <vector>

#include "console_host/base/hash.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// A line of the original that holds a placeholder, and what stands before the first and behind the
// last of them.
struct PlaceholderLine {
  std::string text;
  std::string before;
  std::string behind;

  // The placeholders with the characters next to them: a line end where there is none.
  std::string core() const {
    const std::string line = "\n" + text + "\n";
    return line.substr(before.size(), line.size() - before.size() - behind.size());
  }
};

std::vector<PlaceholderLine> lines_with(const std::set<std::string>& placeholders,
                                        const std::string& text) {
  std::vector<PlaceholderLine> lines;
  for (const std::string& line : split(text, "\n")) {
    std::size_t begin = std::string::npos;
    std::size_t end = 0;
    for (const std::string& placeholder : placeholders) {
      if (const std::size_t first = line.find(placeholder);
          !placeholder.empty() && first != std::string::npos) {
        begin = std::min(begin, first);
        end = std::max(end, line.rfind(placeholder) + placeholder.size());
      }
    }
    if (begin != std::string::npos) {
      lines.push_back({line, line.substr(0, begin), line.substr(end)});
    }
  }
  return lines;
}

// True when `line` holds the placeholders of an original's line as that does, whatever else it
// says.
bool holds(const std::string& line, const PlaceholderLine& original) {
  return ("\n" + line + "\n").find(original.core()) != std::string::npos;
}

bool could_come_of(const PlaceholderLine& original, const std::string& line) {
  const std::size_t length = original.before.size() + original.behind.size();
  return length > 0 && line != original.text && line.size() >= length &&
         line.compare(0, original.before.size(), original.before) == 0 &&
         line.compare(line.size() - original.behind.size(), std::string::npos, original.behind) ==
             0;
}

}  // namespace

std::set<std::string> filled_lines(const std::string& original, const std::string& result) {
  const std::vector<std::string> before = split(original, "\n");
  const std::set<std::string> known(before.begin(), before.end());
  std::set<std::string> filled;
  for (const std::string& line : split(result, "\n")) {
    if (known.count(line) == 0) {
      filled.insert(sha256(line));
    }
  }
  return filled;
}

bool is_reinstalled(const std::string& bytes, const std::string& original,
                    const std::set<std::string>& placeholders,
                    const std::set<std::string>& filled) {
  const std::vector<PlaceholderLine> wanted = lines_with(placeholders, original);
  const std::vector<std::string> lines = split(bytes, "\n");
  const auto is_of_template = [&](const std::string& line) {
    return std::any_of(wanted.begin(), wanted.end(),
                       [&](const PlaceholderLine& one) { return holds(line, one); });
  };
  const auto is_of_result = [&](const std::string& line) {
    return filled.count(sha256(line)) != 0 ||
           (!is_of_template(line) &&
            std::any_of(wanted.begin(), wanted.end(),
                        [&](const PlaceholderLine& one) { return could_come_of(one, line); }));
  };
  if (std::any_of(lines.begin(), lines.end(), is_of_result)) {
    return false;
  }
  if (wanted.empty()) {  // what was made of it has the same lines
    const std::vector<std::string> ours = split(original, "\n");
    return !lines_with(placeholders, bytes).empty() &&
           std::find_first_of(lines.begin(), lines.end(), ours.begin(), ours.end()) == lines.end();
  }
  return std::any_of(lines.begin(), lines.end(), is_of_template);
}

}  // namespace ndk_integrate

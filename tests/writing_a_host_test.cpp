// What docs/writing-a-host.md tells: the tables are complete, and the minimal host does what the
// text says.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "tests/temporary_directory.h"

namespace fs = std::filesystem;

namespace {

std::string content_of(const fs::path& file) {
  std::ifstream in(file);
  if (!in) {
    throw std::runtime_error("cannot open " + file.string());
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

using Lines = std::vector<std::string>;

// The rows of the table under this heading of the document, without the table's own two lines.
Lines table_under(const std::string& heading) {
  std::ifstream in(SOURCE_DIR "/docs/writing-a-host.md");
  std::string line;
  while (std::getline(in, line) && line != "## " + heading) {
  }
  Lines rows;
  while (std::getline(in, line) && line.rfind("## ", 0) != 0) {
    if (line.rfind("| `", 0) == 0) {
      rows.push_back(line);
    }
  }
  return rows;
}

// A block of the document between lines of three backquotes.
std::string block_that_begins_with(const std::string& start) {
  const std::string text = content_of(SOURCE_DIR "/docs/writing-a-host.md");
  const std::size_t begin = text.find("```\n" + start) + 4;
  return text.substr(begin, text.find("```", begin) - begin);
}

// The texts of every print_log and error in `source`.
Lines messages_in(const std::string& source) {
  const std::regex call("\\b(?:print_log|error)\\(\\s*\"([^\"]*)\"");
  Lines messages;
  for (std::sregex_iterator at(source.begin(), source.end(), call), end; at != end; ++at) {
    messages.push_back((*at)[1]);
  }
  return messages;
}

// The minimal host on a copy of the examples.
struct MinimalHost {
  TemporaryDirectory directory;
  int exit_status = -1;

  MinimalHost() {
    const char* examples = std::getenv("EXAMPLES_DIR");
    fs::copy(examples == nullptr ? SOURCE_DIR "/examples" : examples, directory.path(),
             fs::copy_options::recursive);
  }

  // What it prints when it loads `library`.
  std::string output_with(const std::string& library) {
    const std::string command =
        std::string("'" MINIMAL_HOST "' '") + library + "' '" + directory.path() + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t size; (size = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
      output.append(buffer.data(), size);
    }
    exit_status = WEXITSTATUS(pclose(pipe));
    return directory.hidden_in(output);
  }
};

std::string lines_that_hold(const std::string& text, const std::string& part) {
  std::string lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.find(part) != std::string::npos) {
      lines += line + "\n";
    }
  }
  return lines;
}

}  // namespace

TEST(WritingAHost, TableOfChecks) {
  Lines rows;
  for (const host_check::Check& check : host_check::checks()) {
    rows.push_back("| `" + std::string(check.name) + "` | " + check.description + " |");
  }

  EXPECT_EQ(table_under("Checking your host"), rows);
}

TEST(WritingAHost, TableOfLogLines) {
  Lines documented;
  for (const std::string& row : table_under("What each log line means")) {
    documented.push_back(row.substr(3, row.find("` | ") - 3));
  }
  Lines messages;
  for (const auto& file : fs::directory_iterator(SOURCE_DIR "/ndk_utils")) {
    if (file.path().extension() == ".cpp") {
      const Lines more = messages_in(content_of(file.path()));
      messages.insert(messages.end(), more.begin(), more.end());
    }
  }
  std::sort(documented.begin(), documented.end());
  std::sort(messages.begin(), messages.end());

  EXPECT_EQ(documented, messages);
}

// The log that the document shows.
TEST(MinimalHost, Installation) {
  MinimalHost host;

  const std::string output = host.output_with(NDK_UTILS_LIBRARY);

  EXPECT_EQ(std::regex_replace(output, std::regex("DIR"), "/tmp/example"),
            block_that_begins_with("NDK_INTEGRATION: detect_ndk()\n"));
  EXPECT_EQ(host.exit_status, 0);
}

TEST(MinimalHost, NoSuchLibrary) {
  MinimalHost host;

  const std::string output = host.output_with("/none.so");

  EXPECT_EQ(output,
            "minimal_host: /none.so: cannot open shared object file: No such file or directory\n");
  EXPECT_EQ(host.exit_status, 1);
}

TEST(MinimalHost, HostCheck) {
  MinimalHost host;

  const std::string output = host.output_with(HOST_CHECK_LIBRARY);

  EXPECT_EQ(lines_that_hold(output, ": violated: "), "");
  EXPECT_EQ(host.exit_status, 0);
}

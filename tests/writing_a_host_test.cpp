// What docs/writing-a-host.md tells: the tables are complete, and the minimal host does what the
// text says.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "tests/temporary_directory.h"
#include "tests/texts.h"

namespace fs = std::filesystem;

namespace {

const std::string kDocument = content_of(SOURCE_DIR "/docs/writing-a-host.md");

// The rows of the table under this heading of the document, without the table's own two lines.
Lines table_under(const std::string& heading) {
  const std::string start = "\n## " + heading + "\n";
  const std::size_t begin = kDocument.find(start) + start.size();
  Lines rows;
  for (const std::string& line :
       lines_of(kDocument.substr(begin, kDocument.find("\n## ", begin) - begin))) {
    if (begins_with(line, "| `")) {
      rows.push_back(line);
    }
  }
  return rows;
}

// A block of the document between lines of three backquotes.
std::string block_that_begins_with(const std::string& start) {
  const std::size_t begin = kDocument.find("```\n" + start) + 4;
  return kDocument.substr(begin, kDocument.find("```", begin) - begin);
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
    const ShellResult host =
        shell("'" MINIMAL_HOST "' '" + library + "' '" + directory.path() + "' 2>&1");
    exit_status = host.exit_status;
    return directory.hidden_in(host.output);
  }
};

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

  EXPECT_EQ(replaced(output, "DIR", "/tmp/example"),
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

  EXPECT_FALSE(holds(output, ": violated: ")) << output;
  EXPECT_EQ(host.exit_status, 0);
}

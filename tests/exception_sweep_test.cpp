// A whole installation with each of its host calls throwing in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "tests/whole_installation.h"

namespace {

// The open file descriptors, each with what it is open on.
std::set<std::string> open_files() {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone);
    // Without the one that the loop itself reads from.
    if (target.rfind("/proc/", 0) != 0) {
      files.insert(entry.path().filename().string() + " " + target);
    }
  }
  return files;
}

bool can_fail(const std::string& call) {
  return call != "~IniDb()" && call.rfind("chdir(", 0) != 0;
}

// The calls of an installation whose `n`-th call that can fail throws, told from the calls of one
// in which none does: they end there, and a reader that is open is still destroyed.
std::vector<std::string> cut_short(const std::vector<std::string>& complete, std::size_t n) {
  std::vector<std::string> calls;
  bool reader_open = false;
  for (const std::string& call : complete) {
    calls.push_back(call);
    if (can_fail(call) && --n == 0) {
      break;
    }
    reader_open = call.rfind("IniDb(", 0) == 0 || (reader_open && call != "~IniDb()");
  }
  if (reader_open) {
    calls.emplace_back("~IniDb()");
  }
  return calls;
}

}  // namespace

TEST(ExceptionSweep, EveryHostCallThrows) {
  const Plugin entry_points = plugin();
  std::vector<std::string> complete;
  {
    WholeInstallation installation;
    installation.run(entry_points);
    complete = installation.calls();
  }
  const auto failures =
      static_cast<std::size_t>(std::count_if(complete.begin(), complete.end(), can_fail));
  ASSERT_GT(failures, 100U);

  for (std::size_t n = 1; n <= failures; ++n) {
    WholeInstallation installation;
    installation.host.fail_at(n);
    const std::set<std::string> files_before = open_files();

    EXPECT_THROW(installation.run(entry_points), HostFailure) << "call " << n;

    EXPECT_EQ(installation.calls(), cut_short(complete, n)) << "call " << n;
    EXPECT_EQ(installation.host.live_readers, 0U) << "call " << n;
    EXPECT_EQ(open_files(), files_before) << "call " << n;
  }

  WholeInstallation installation;
  installation.host.fail_at(failures + 1);
  EXPECT_NO_THROW(installation.run(entry_points));
  EXPECT_EQ(installation.calls(), complete);
}

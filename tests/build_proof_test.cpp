// The parts of the console host that tell from what a build printed which compiler ran, and that
// end a build which takes too long.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "console_host/base/process.h"
#include "console_host/base/shell_words.h"
#include "console_host/ndk/toolchain_build.h"
#include "tests/temporary_directory.h"

namespace {

using ndk_integrate::ProcessOptions;
using ndk_integrate::ProcessResult;
using ndk_integrate::run_process;
using ndk_integrate::shell_words;
using ndk_integrate::uses_compiler;
using Words = std::vector<std::string>;

TEST(ShellWords, EachForm) {
  EXPECT_EQ(shell_words(""), Words{});
  EXPECT_EQ(shell_words("  cc -c  a.c\t"), (Words{"cc", "-c", "a.c"}));
  EXPECT_EQ(shell_words("'/a b/bin'/cc \"c d\"e"), (Words{"/a b/bin/cc", "c de"}));
  EXPECT_EQ(shell_words(R"('it'\''s' a\ b "\"\$\n")"), (Words{"it's", "a b", R"("$\n)"}));
  EXPECT_EQ(shell_words("'' x\"\""), (Words{"", "x"}));
  EXPECT_EQ(shell_words("a;b&&c|(d)>e"), (Words{"a", "b", "c", "d", "e"}));
  EXPECT_EQ(shell_words("a 'b c"), (Words{"a", "b c"}));
  EXPECT_EQ(shell_words("a\\"), (Words{"a\\"}));
}

TEST(UsesCompiler, EachForm) {
  const TemporaryDirectory top;
  const std::string project = top.path() + "/project";
  const std::string compiler = top.path() + "/the compiler";
  for (const std::string& dir : {project, compiler + "/bin", compiler + "-old"}) {
    std::filesystem::create_directories(dir);
  }
  for (const std::string& file : {compiler + "/bin/cc", compiler + "-old/cc", project + "/own"}) {
    std::ofstream(file) << "\n";
  }
  std::filesystem::create_directory_symlink(compiler, project + "/link");
  std::filesystem::create_symlink(compiler + "/bin/cc", project + "/cc");
  std::filesystem::create_symlink(project + "/own", compiler + "/bin/outside");
  const auto uses = [&](const std::string& output) {
    return uses_compiler(output, project, compiler);
  };
  EXPECT_TRUE(uses("'" + compiler + "/bin'/cc -c a.c"));
  EXPECT_TRUE(uses("Compile: a.c\nccache \"" + compiler + "/bin/cc\" -c a.c\ncp a b\n"));
  EXPECT_TRUE(uses("x && \\\n  link/bin/cc"));
  EXPECT_TRUE(uses("./cc"));
  EXPECT_TRUE(uses("../'the compiler'/bin/cc"));
  EXPECT_FALSE(uses(""));
  EXPECT_FALSE(uses(compiler + "/bin/cc"));              // two words
  EXPECT_FALSE(uses("'" + compiler + "/bin'"));          // a directory
  EXPECT_FALSE(uses("'" + compiler + "/bin/none'"));     // not there
  EXPECT_FALSE(uses("'" + compiler + "-old/cc'"));       // begins alike
  EXPECT_FALSE(uses("'" + compiler + "/bin/outside'"));  // leads elsewhere
  EXPECT_FALSE(uses("'-I" + compiler + "/bin/cc'"));     // an option
}

TEST(RunProcess, Options) {
  const TemporaryDirectory top;
  ProcessOptions options;
  options.working_directory = top.path();
  options.environment = std::vector<std::string>{"ONE=1"};
  const ProcessResult result =
      run_process({"/bin/sh", "-c", "pwd; echo $ONE$HOME; exit 3"}, options);
  EXPECT_EQ(result.output, top.path() + "\n1\n");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_FALSE(result.is_timed_out);
}

// A process that never ends by itself, whether or not it keeps its output, and what it started.
TEST(RunProcess, TimeLimit) {
  ProcessOptions options;
  options.time_limit = std::chrono::milliseconds(1);
  for (const char* command : {"tail -f /dev/null", "tail -f /dev/null & wait",
                              "exec tail -f /dev/null >/dev/null 2>&1"}) {
    const ProcessResult result = run_process({"/bin/sh", "-c", command}, options);
    EXPECT_TRUE(result.is_timed_out) << command;
    EXPECT_EQ(result.exit_status, 128 + 9) << command;
  }
}

TEST(RunProcess, WithinTimeLimit) {
  ProcessOptions options;
  options.time_limit = std::chrono::hours(1);
  const ProcessResult result = run_process({"/bin/sh", "-c", "echo done"}, options);
  EXPECT_EQ(result.output, "done\n");
  EXPECT_FALSE(result.is_timed_out);
}

}  // namespace

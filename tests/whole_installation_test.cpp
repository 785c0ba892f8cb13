#include "tests/whole_installation.h"

#include <gtest/gtest.h>

#include "tests/transcripts.h"

TEST(WholeInstallation, Calls) {
  WholeInstallation installation;

  installation.run(plugin());

  const std::string list = "r10e;r11c";
  const std::string toolchains = "DIR/opt/vorn/android";
  const std::string compiler = "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux";
  const std::string good = judges_good("/good", "11.2.2725575", "r11c", list);
  EXPECT_EQ(
      installation.directory.hidden_in(installation.host.record()),
      "\n" + begins_search("/none;/read-only;/unreadable;/newer;/good") +
          rejects("/none", judges_no_ndk("/none")) +
          rejects("/read-only", judges_read_only("/read-only")) +
          rejects("/unreadable", judges_unsupported("/unreadable", "11", "", list)) +
          rejects("/newer", judges_unsupported("/newer", "21.4.7075529", "r21e", list)) +
          takes("/good", good) + good +

          begins_selection("-ndk-;-android-") + passes_over("not-ndk-here") +
          asks_selected("not-ndk-wanted") + asks_selected("plain") +
          asks_selected("compiler-android-x86") +
          records_compiler("-android-", "compiler-android-x86", "5.0.3", "42", "/vorn") +
          records_libraries("5.0.3", "42", "2005", "3") +

          begins_integration("DIR/opt/vorn", "2005.3.42") +
          fills_in_definitions(toolchains + "/x86_64-nox5.0.3.42/setup.mk", "", compiler,
                               "5.0.3.42") +
          fills_in_definitions(toolchains + "/x86-nox5.0.3.42/setup.mk", "", compiler, "5.0.3.42") +
          gets("NDK_INTEGRATION_ENABLED") + runs_script(toolchains, "/good", "/good", "done\n") +
          fills_in_script(compiler + "/bin/compilervars_arch.sh", "<NDK_DIR>", "/good") +
          fills_in_script(compiler + "/bin/compilervars_arch.csh", "<NDK_DIR>", "/good") +

          logs("unintegrate_ndk() NOT IMPLEMENTED"));
}

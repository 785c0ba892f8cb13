// A whole installation: five candidates of which the last is a good NDK, five components of which
// the last asks for the integration, and a compiler with all its templates on disk.
#ifndef TESTS_WHOLE_INSTALLATION_H
#define TESTS_WHOLE_INSTALLATION_H

#include <string>
#include <vector>

#include "tests/plugin.h"
#include "tests/recording_host.h"
#include "tests/temporary_directory.h"

struct WholeInstallation {
  WorkingDirectoryKept working_directory_kept;
  TemporaryDirectory directory;
  RecordingHost host;

  WholeInstallation() {
    host.add_ndk("/read-only", "11.2.4");
    host.writable["/read-only"] = 0;
    host.add_ndk("/unreadable", "11");
    host.add_ndk("/newer", "21.4.7075529");
    host.add_ndk("/good", "11.2.2725575");
    host.variables = {
        {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/none;/read-only;/unreadable;/newer;/good"},
        {"NDK_SUPPORTED_VERSIONS", "r10e;r11c"},
        {"NDK_COMPONENT_PATTERNS", "-ndk-;-android-"},
        {"NDK_INTEGRATION_ENABLED", "yes"},
        {"VORN_INSTALL_DIR", directory.path() + "/opt"}};
    host.command_output = "done\n";

    host.add_component("not-ndk-here", "1.0.1", "1", "/a", false, true);
    host.add_component("not-ndk-wanted", "1.0.1", "1", "/a", true, false);
    host.add_component("plain", "1.0.1", "1", "/a");
    host.add_component("compiler-android-x86", "5.0.3", "42", "/vorn");
    host.add_component("other-ndk-tools", "1.0.1", "1", "/a");

    const std::string toolchain = "{INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n";
    directory.write("/opt/vorn/android/x86_64-nox5.0.3.42/setup.mk", toolchain);
    directory.write("/opt/vorn/android/x86-nox5.0.3.42/setup.mk", toolchain);
    const std::string bin = "/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin";
    directory.write(bin + "/compilervars_arch.sh", "<NDK_DIR>\n");
    directory.write(bin + "/compilervars_arch.csh", "<NDK_DIR>\n");
  }

  // What an installer calls, in its order; on removal, the last.
  void run(const Plugin& plugin) {
    plugin.detect_ndk(&host.session);
    plugin.validate_ndk_path(&host.session);
    plugin.check_if_ndk_integration_files_are_to_be_installed(&host.session);
    plugin.integrate_ndk(&host.session);
    plugin.unintegrate_ndk(&host.session);
  }

  // The calls so far, without the directory's name, which differs from run to run.
  std::vector<std::string> calls() const {
    std::vector<std::string> result;
    for (const std::string& call : host.calls) {
      result.push_back(directory.hidden_in(call));
    }
    return result;
  }
};

#endif

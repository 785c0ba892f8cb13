// The installed compiler that an installation is about, as the session and the plug-in name it.
#ifndef CONSOLE_HOST_PACKAGE_COMPILER_H
#define CONSOLE_HOST_PACKAGE_COMPILER_H

#include <optional>
#include <string>

#include "console_host/ndk/plugin.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

struct Compiler {
  std::string root;        // its directory: VORN_INSTALL_DIR followed by the component's subdir
  std::string version;     // the full one, such as "5.0.3.42"
  std::string toolchains;  // the directory of its toolchain definitions, in `root`
  std::string libraries;   // the directory of its version, in `root`
  std::string ndk;         // the NDK's directory, "" without one
};

// The compiler of `session`, in which a component was taken for it. Paths are absolute and in their
// normal form. Throws std::runtime_error when the root would not be a directory below "/".
Compiler compiler_of(const Plugin& plugin, Session& session);

// Asks the plug-in which component is the compiler's, and returns that compiler. Throws
// std::runtime_error when no component is, and what require_version() and compiler_of() throw.
Compiler selected_compiler(const Plugin& plugin, Session& session);

// Why the plug-in took no component for the compiler.
std::string why_not_selected(const Session& session);

// True when NDK_INTEGRATION_ENABLED asks for the integration, by the one word that the plug-in
// takes for it.
bool is_integration_enabled(const Session& session);

// A problem with NDK_INTEGRATION_ENABLED: it reads as if it enabled the integration, and does not.
std::optional<std::string> misleading_enabled_value(const Session& session);

// Why the shell would not take the NDK's directory, put between double quotes, as it stands.
std::optional<std::string> shell_surprise(const std::string& ndk_dir);

// Throws UsageError, with the line of the installation.toml, when the version, the package number
// or the sub-directory of the component that was taken for the compiler is not one. Does nothing
// where none was.
void require_version(const Session& session);

}  // namespace ndk_integrate

#endif

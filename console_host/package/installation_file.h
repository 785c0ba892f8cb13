// installation.toml: what an installer would know of one installation.
#ifndef CONSOLE_HOST_PACKAGE_INSTALLATION_FILE_H
#define CONSOLE_HOST_PACKAGE_INSTALLATION_FILE_H

#include <string>

#include "console_host/services/session.h"

namespace ndk_integrate {

// Reads the installation.toml named `file`. Its relative directories are made absolute, from the
// file's own directory. Throws UsageError, with file, line and what was expected, when the file is
// missing or something in it is wrong.
Installation read_installation(const std::string& file);

// Sets the session variable `name`, one of those that the file may set, to `value`. Relative
// directories are made absolute, from the working directory. Throws UsageError when there is no
// such variable.
void override_session(Installation& installation, const std::string& name,
                      const std::string& value);

// Throws UsageError, with file and line, when the directory that components are installed below is
// neither in the file nor on the command line.
void require_complete(const Installation& installation);

}  // namespace ndk_integrate

#endif

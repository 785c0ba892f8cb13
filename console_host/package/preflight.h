// What is looked at before the compiler's files are touched.
#ifndef CONSOLE_HOST_PACKAGE_PREFLIGHT_H
#define CONSOLE_HOST_PACKAGE_PREFLIGHT_H

#include <string>

#include "console_host/ndk/plugin.h"
#include "console_host/package/store.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

// The directory of the installed compiler that the session's variables name. Throws std::runtime_error when they name
// none below "/".
std::string compiler_root(const Session& session);

// Throws std::runtime_error when the shell would not take the NDK's directory, put between double
// quotes, as it stands.
void refuse_shell_surprises(const std::string& ndk_dir);

// Throws std::runtime_error when one of the files below `root` that integrate_ndk would patch is no
// ordinary file, is a link, or lies elsewhere. Asks the plug-in which these are, with a run of integrate_ndk that can
// open nothing.
void refuse_odd_files(const Plugin& plugin, Session& session, const std::string& root);

// Throws std::runtime_error that names a file which somebody else changed since an installation
// wrote it.
void refuse_edited_files(const Store& store);

}  // namespace ndk_integrate

#endif

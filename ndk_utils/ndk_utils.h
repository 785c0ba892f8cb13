// The plug-in libndk_utils.so.1n: the fifteen functions it exports. What a host gives it, and the
// order in which a host calls it, is in host/host.h.
#ifndef NDK_UTILS_NDK_UTILS_H
#define NDK_UTILS_NDK_UTILS_H

#include <cstdint>
#include <string>

#include "host/host.h"

// An NDK release as the first two numbers of the property Pkg.Revision: {21, 4} is r21e. No field is
// range-checked.
struct ndk_version_t {
  std::int32_t major;  // the release number
  std::int32_t minor;  // the update within the release, 0 for its first issue
};

// --- Entry points, looked up by a host by their names. All return 0, whatever happened. ---

extern "C" {

// Leaves the first good directory of NDK_DEFAULT_SEARCH_PATH_LINUX in NDK_PATH, or "" when none is
// good. Does nothing when NDK_PATH is set already. Where directories were tried, NDK_PATH_STATUS is
// "ok" in the end, even when none is good; where NDK_PATH was set, or the list is empty, it is as it
// was.
int detect_ndk(session_t* session);

// Judges the directory NDK_PATH against NDK_SUPPORTED_VERSIONS and leaves the verdict in
// NDK_PATH_STATUS: "nok" (no NDK), "notwritable", "unsupported" (its release is not in the list) or
// "ok".
int validate_ndk_path(session_t* session);

// Leaves "yes" in NDK_INTEGRATION_INSTALL_DETECTED when a selected component's identifier holds one
// of NDK_COMPONENT_PATTERNS, and records that component as the compiler in NDK_COMPILER_VERSION,
// NDK_COMPILER_PACKAGE_NUMBER, NDK_COMPILER_SUBDIR, NDK_CNL_VERSION_FULL and NDK_CNL_VERSION_MAJOR;
// "no" otherwise.
int check_if_ndk_integration_files_are_to_be_installed(session_t* session);

// Fills in the compiler's toolchain definitions and environment scripts and, where
// NDK_INTEGRATION_ENABLED is "yes", runs its integration script on the NDK in NDK_PATH. The working
// directory then stays at the toolchains directory.
int integrate_ndk(session_t* session);

// Logs that it is not implemented.
int unintegrate_ndk(session_t* session);

}  // extern "C"

// --- NDK discovery ---

// True when `dir` holds a launcher (ndk-build or ndk-build.cmd) and source.properties.
bool is_ndk_dir(const std::string& dir);

// --- NDK releases ---

// The release of the NDK whose top directory is `ndk_dir`, read from its source.properties; {-1,
// -1} when that cannot be told, which the log explains.
ndk_version_t get_version(const std::string& ndk_dir);

// The text form of a release: "r21" for {21, 0}, "r21b" for {21, 1}, "r21e" for {21, 4}.
std::string ndk_version_string(ndk_version_t version);

// True when the text form of `version` is an entry of `supported`, a list separated by ";".
bool is_ndk_version_supported(ndk_version_t version, const std::string& supported);

// --- Compiler integration ---

// Replaces `from` by `to` in every line of `file`, by way of a copy named `file` + ".tmp" that is
// moved over the file. Each pass adds an empty line at the end. A file that cannot be opened is
// reported through error() and left alone.
void patch_text_file(const std::string& file, const std::string& from, const std::string& to);

// The directory that holds the compiler's toolchain definitions and its integration script.
std::string get_toolchains_path(session_t* session);

// The compiler's own directory.
std::string get_compiler_path(session_t* session);

// The compiler's version and package number, joined by ".".
std::string get_compiler_full_version(session_t* session);

// The compiler's version.
std::string get_compiler_version(session_t* session);

// The compiler's package number.
std::string get_compiler_package_number(session_t* session);

#endif

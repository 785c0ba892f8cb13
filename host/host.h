// The contract between an installer (the host) and the plug-in libndk_utils.so.1n: everything that
// a host gives the plug-in. Declarations only; each host defines all of them in a binary of its own
// and exports them by these names (an executable does so with -rdynamic or a dynamic list). The
// plug-in leaves them undefined, and the loader binds them when the host loads the plug-in.
//
// Conventions that hold throughout
//
//  1. Strings are byte strings without an encoding. They cross the boundary as std::string, by
//     value or by const reference, or as C strings that are never null. Host and plug-in are
//     therefore built against the same standard library, with the same setting of its string
//     layout.
//  2. Lists inside one session variable are separated by ";".
//  3. Truth values that are int are true when they are not zero; any other value but zero, 256 or
//     -1 say, means true.
//  4. Threads: the host calls one entry point at a time, on one thread, and the services below are
//     called on that thread, before the entry point returns. The plug-in starts no thread and takes
//     no lock.
//  5. Ownership: a string, vector or IniDb that the plug-in receives or makes is the plug-in's, and
//     is released before the entry point returns. Component objects stay the host's, and so does
//     everything host_data points to.
//  6. Errors: entry points return 0 whatever happened. Outcomes are session variables, files and
//     log lines.
//  7. Exceptions: the plug-in catches none. What a service throws arrives in the host, at its call
//     of the entry point, with everything that the plug-in had opened or allocated released.
//  8. Layout: host and plug-in are separate binaries, so the members below, their order and their
//     types are fixed. host_data is the host's, to hang its own state on; the plug-in never reads
//     or writes it. Return types belong to the layout, too: the linker does not see them, so a host
//     that declares `bool file_exists` links, and is then read wrongly. Including this file where
//     the functions are defined lets the compiler see it.
//
// The conversation, in the order of an installation
//
//  1. The host loads the plug-in and looks up its five entry points, each `extern "C" int
//     name(session_t*)`.
//  2. The host sets, as far as it knows them, NDK_PATH, NDK_DEFAULT_SEARCH_PATH_LINUX,
//     NDK_SUPPORTED_VERSIONS, NDK_COMPONENT_PATTERNS, NDK_INTEGRATION_ENABLED and VORN_INSTALL_DIR.
//     A variable that is not set reads as "".
//  3. The host calls detect_ndk, which tries the directories of NDK_DEFAULT_SEARCH_PATH_LINUX and
//     leaves the first good one in NDK_PATH, or "" there. Where NDK_PATH is known beforehand the
//     host calls validate_ndk_path instead, which leaves "ok", "nok", "notwritable" or
//     "unsupported" in NDK_PATH_STATUS.
//  4. When the user has selected components, the host calls
//     check_if_ndk_integration_files_are_to_be_installed, which leaves "yes" or "no" in
//     NDK_INTEGRATION_INSTALL_DETECTED and records the compiler in NDK_COMPILER_VERSION,
//     NDK_COMPILER_PACKAGE_NUMBER, NDK_COMPILER_SUBDIR, NDK_CNL_VERSION_FULL and
//     NDK_CNL_VERSION_MAJOR.
//  5. When the compiler's files are on disk, the host calls integrate_ndk, which fills in the
//     compiler's templates and, where NDK_INTEGRATION_ENABLED is "yes", runs the compiler's
//     integration script on the NDK. There it leaves the working directory of the process changed.
//  6. On removal the host calls unintegrate_ndk, which only logs that there is nothing it does.
#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <string>
#include <vector>

// One installable component. The host makes and owns these objects; the plug-in calls the three
// functions and reads the three texts, and changes nothing.
class Component {
 public:
  // True when this component may be installed in this installation. Asked first.
  bool installCondition();

  // True when the user selected this component. Asked only when installCondition() is true.
  bool getSelected();

  // The directory of this component below VORN_INSTALL_DIR, with the "/" it begins with: the
  // plug-in joins the two texts with nothing between them.
  std::string subdir();

  std::string id;             // what the patterns of NDK_COMPONENT_PATTERNS are searched in
  std::string version;        // three decimal numbers joined by ".", such as "5.0.3"
  std::string packageNumber;  // a decimal number, such as "42"

  void* host_data;
};

// The registry of all components of an installation.
class TSD {
 public:
  // All components of the installation in the registry's order. The vector is the caller's; the
  // components it points to stay the host's and live at least until the entry point returns.
  std::vector<Component*> components();

  void* host_data;
};

// The host's session. The host owns it and passes a pointer to it into every entry point; the
// plug-in hands that pointer on to the session-variable services and uses `tsd`.
struct session_t {
  TSD tsd;

  void* host_data;
};

// A reader of a property file, made and destroyed by the plug-in itself, which is why its size is
// one pointer for every host. It is never copied.
class IniDb {
 public:
  // Opens the property file named `file` in the directory `dir`, whose lines have the form key,
  // `separator`, value. A file that cannot be read is not an error: every key is then missing.
  IniDb(std::string dir, std::string file, std::string separator);

  ~IniDb();

  // The text after the separator on the line whose key is `key`; what a missing key gives is the
  // host's choice, and "" is a good one. The plug-in passes the key with one blank at its end,
  // "Pkg.Revision ". It must find the line "Pkg.Revision = 11.2.2725575", so keys are either
  // compared as they stand before the separator, or the given key and the file's keys are trimmed
  // alike. Blanks around the value may stay if strtoint skips them.
  std::string value(std::string key);

  void* host_data;
};

// --- Session variables ---

// The current value of the session variable `name`; "" when it was never set.
std::string env_get_string(session_t* session, const char* name);

// Sets the session variable `name` to `value`, which may be "". The next env_get_string sees it.
void env_set_string(session_t* session, const char* name, const char* value);

// The same for computed values; the two forms share one store.
void env_set_string(session_t* session, const std::string& name, const std::string& value);

// --- The log ---

// Writes one line to the installation log, formatted as printf does. The text carries no line end;
// the host adds it, and flushes the line if a crash is to be understood.
void print_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Reports an error, formatted as printf does, one line a call. It returns normally, and the caller
// carries on.
void error(const char* format, ...) __attribute__((format(printf, 1, 2)));

// --- Files ---

// The form of the path `p` that the file operations are to use. The plug-in passes every complete
// path through it once and uses only the result, on which it also builds further paths. Returning
// `p` unchanged is enough; the name of a copy that stands in for the file is as good.
std::string path(std::string p);

// True when `file` exists. The plug-in asks for ordinary files only, and always with false for
// `flag`; what true selects is the host's choice.
int file_exists(const std::string& file, bool flag);

// True when the directory `dir` can be written.
int is_writable(std::string dir);

// Moves the file `from` to the name `to`, replacing the file of that name. True when it did; the
// plug-in does not look. Whether the new file takes over the mode and owner of the one it replaces
// is the host's choice.
int file_move(std::string from, std::string to);

// --- Texts ---

// The pieces of `text` between the occurrences of `separator`, in their order; the whole text when
// the separator does not occur. Whether empty pieces are among them is the host's choice. The
// plug-in always passes false for `flag`.
std::vector<std::string> splitString(const std::string& text, const std::string& separator,
                                     bool flag);

// `text` with every occurrence of `from` replaced by `to`. The plug-in passes one line of a file at
// a time.
std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to);

// The decimal number that `text` denotes. What a text that is not a number gives is the
// host's choice.
int strtoint(const std::string& text);

// The decimal text of `value`.
std::string inttostr(long long value);

// --- Commands ---

// Runs the command line `command` through the shell in the current working directory of the
// process, waits for its end and returns what it printed. `status`, where it is not null, receives
// the exit status; the plug-in passes null. It passes true and "" for the last two, whose meaning
// is the host's choice. A command that fails, or is not there, is not an error.
// Whether what it prints on standard error belongs to the result is the host's choice.
std::string get_command_output(std::string command, int* status, bool flag, std::string text);

#endif

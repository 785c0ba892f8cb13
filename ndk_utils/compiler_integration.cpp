// Ties an installed compiler into an NDK: fills in the compiler's templates and runs its
// integration script.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <ios>
#include <string>
#include <string_view>
#include <vector>

#include "ndk_utils/ndk_utils.h"

namespace {

// A new file that takes each text in one write. A std::filebuf that is flushed after each line does
// so too, but then patching takes an eighth longer.
class UnbufferedFile {
 public:
  explicit UnbufferedFile(const std::string& name)
      : number_(::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_LARGEFILE, 0666)) {}
  ~UnbufferedFile() { close(); }
  UnbufferedFile(const UnbufferedFile&) = delete;
  UnbufferedFile& operator=(const UnbufferedFile&) = delete;

  bool is_open() const { return number_ >= 0; }

  // False when not all of it could be written.
  bool write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t size = ::write(number_, text.data(), text.size());
      if (size < 0 && errno != EINTR) {
        return false;
      }
      text.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    return true;
  }

  void close() {
    if (is_open()) {
      ::close(number_);
    }
    number_ = -1;
  }

 private:
  int number_;
};

}  // namespace

void patch_text_file(const std::string& file, const std::string& from, const std::string& to) {
  std::vector<char> read_ahead(std::size_t{64} * 1024);
  std::ifstream in;
  in.rdbuf()->pubsetbuf(read_ahead.data(), static_cast<std::streamsize>(read_ahead.size()));
  in.open(file, std::ios::in | std::ios::binary);
  if (in.fail()) {
    error("patch_text_file: cannot open input stream of file %s", file.c_str());
    return;
  }
  const std::string copy = file + ".tmp";
  UnbufferedFile out(copy);
  if (!out.is_open()) {
    error("patch_text_file: cannot open output stream of file %s", copy.c_str());
    return;
  }

  // The state is tested before a line is read, not after, so the read that finds no further line
  // still writes one: each pass adds an empty line at the end. After a write that failed nothing
  // more is written, but the copy is moved whatever happened.
  std::string line;
  std::string patched;
  bool failed = false;
  while (!in.fail()) {
    line.clear();
    std::getline(in, line);
    patched.clear();
    patched.append(replaceAllSubstrings(line, from, to)).push_back('\n');
    failed = failed || !out.write(patched);
  }
  in.close();
  out.close();
  file_move(copy, file);
}

// VORN_INSTALL_DIR and NDK_COMPILER_SUBDIR with nothing between them: a value that needs a
// separator carries it.
static std::string compiler_base(session_t* session) {
  std::string base = env_get_string(session, "VORN_INSTALL_DIR");
  base += env_get_string(session, "NDK_COMPILER_SUBDIR");
  return base;
}

std::string get_toolchains_path(session_t* session) {
  return path(compiler_base(session) + "/android");
}

std::string get_compiler_path(session_t* session) {
  std::string compiler = compiler_base(session) + "/compilers_and_libraries_";
  compiler += env_get_string(session, "NDK_CNL_VERSION_FULL");
  return path(compiler + "/linux");
}

std::string get_compiler_full_version(session_t* session) {
  std::string version = get_compiler_version(session) + ".";
  version += get_compiler_package_number(session);
  return version;
}

std::string get_compiler_version(session_t* session) {
  return env_get_string(session, "NDK_COMPILER_VERSION");
}

std::string get_compiler_package_number(session_t* session) {
  return env_get_string(session, "NDK_COMPILER_PACKAGE_NUMBER");
}

// Runs the integration script in the toolchains directory, which stays the working directory of the
// process.
static void run_integration_script(const std::string& toolchains, const std::string& ndk_dir) {
  const std::string command = "./ndk_integration.sh \"" + ndk_dir + "\" --force";
  print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.",
            command.c_str());
  // A failure is not looked at: the shell then reports that the script is not there.
  [[maybe_unused]] const int ignored = chdir(toolchains.c_str());
  const std::string output = get_command_output(command, nullptr, true, "");
  print_log("Output: '%s'", output.c_str());
}

int integrate_ndk(session_t* session) {
  print_log("NDK_INTEGRATION: integrate_ndk()");
  const std::string toolchains = get_toolchains_path(session);
  const std::string compiler = get_compiler_path(session);
  const std::string version = get_compiler_full_version(session);
  std::string ndk_dir;

  for (const char* target : {"/x86_64-nox", "/x86-nox"}) {
    const std::string definition = toolchains + target + version + "/setup.mk";
    patch_text_file(path(definition), "{INSTALL_NOX_INSTALLDIR}", compiler);
    patch_text_file(path(definition), "{INSTALL_NOX_VERSION}", version);
  }

  if (env_get_string(session, "NDK_INTEGRATION_ENABLED") == "yes") {
    ndk_dir = path(env_get_string(session, "NDK_PATH"));
    run_integration_script(toolchains, ndk_dir);
  } else {
    print_log("NDK_INTEGRATION: integrate_ndk(): integration disabled");
  }

  // Also when integration is disabled: the empty directory then deletes the placeholder from both
  // scripts.
  patch_text_file(path(compiler + "/bin/compilervars_arch.sh"), "<NDK_DIR>", ndk_dir);
  patch_text_file(path(compiler + "/bin/compilervars_arch.csh"), "<NDK_DIR>", ndk_dir);
  return 0;
}

int unintegrate_ndk(session_t* /*session*/) {
  print_log("NDK_INTEGRATION: unintegrate_ndk() NOT IMPLEMENTED");
  return 0;
}

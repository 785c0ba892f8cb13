// The smallest complete host: it gives the plug-in every service of host/host.h, loads it, and
// integrates the sample compiler into the sample NDK. The log goes to standard output.
//
//   minimal_host libndk_utils.so.1n EXAMPLES    EXAMPLES: a copy of examples/, which is changed
//   minimal_host libhost_check.so EXAMPLES      checks this host instead
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "host/host.h"

// --- Session variables: there is one session, so one map does ---

static std::map<std::string, std::string> variables;

std::string env_get_string(session_t*, const char* name) { return variables[name]; }
void env_set_string(session_t*, const char* name, const char* value) { variables[name] = value; }
void env_set_string(session_t*, const std::string& name, const std::string& value) {
  variables[name] = value;
}

// --- The log: one line a call ---

void print_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::puts("");
  std::fflush(stdout);  // so that the log of a crash is whole
}

void error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf((std::string("ERROR: ") + format + "\n").c_str(), arguments);
  va_end(arguments);
  std::fflush(stdout);
}

// --- Files ---

std::string path(std::string p) { return p; }
int file_exists(const std::string& file, bool) { return access(file.c_str(), F_OK) == 0; }
int is_writable(std::string dir) { return access(dir.c_str(), W_OK) == 0; }

int file_move(std::string from, std::string to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

// --- Texts ---

std::vector<std::string> splitString(const std::string& text, const std::string& separator, bool) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    if (end > begin) {  // an empty piece would be an NDK named "", or a pattern found everywhere
      pieces.push_back(text.substr(begin, end - begin));
    }
    begin = end + separator.size();
  }
  return pieces;
}

std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  std::string result = text;
  for (std::size_t at = 0; (at = result.find(from, at)) != std::string::npos; at += to.size()) {
    result.replace(at, from.size(), to);
  }
  return result;
}

int strtoint(const std::string& text) {
  return static_cast<int>(strtol(text.c_str(), nullptr, 10));
}
std::string inttostr(long long value) { return std::to_string(value); }

// --- Property files: keys as they stand before the separator; strtoint skips the value's blank ---

using Properties = std::map<std::string, std::string>;

IniDb::IniDb(std::string dir, std::string file, std::string separator) {
  auto* properties = new Properties;
  std::ifstream in(dir + "/" + file);
  for (std::string line; std::getline(in, line);) {
    const std::size_t end = line.find(separator);
    if (end != std::string::npos) {
      (*properties)[line.substr(0, end)] = line.substr(end + separator.size());
    }
  }
  host_data = properties;
}
IniDb::~IniDb() { delete static_cast<Properties*>(host_data); }
std::string IniDb::value(std::string key) { return (*static_cast<Properties*>(host_data))[key]; }

// --- Commands: popen runs a shell, and pclose waits for it ---

std::string get_command_output(std::string command, int* status, bool, std::string) {
  std::string output;
  FILE* pipe = popen(("exec 2>&1 </dev/null\n" + command).c_str(), "r");
  for (int c; pipe != nullptr && (c = std::getc(pipe)) != EOF;) {
    output += static_cast<char>(c);
  }
  const int ended = pipe != nullptr ? pclose(pipe) : -1;
  if (status != nullptr) {  // the plug-in passes null
    *status = ended;
  }
  return output;
}

// --- Components: one, which may be installed and is selected ---

static Component compiler{"nox-ndk-compiler-5.0.3", "5.0.3", "42", nullptr};

std::vector<Component*> TSD::components() { return {&compiler}; }
bool Component::installCondition() { return true; }
bool Component::getSelected() { return true; }
std::string Component::subdir() { return "/compiler"; }

// --- The installation ---

using EntryPoint = int (*)(session_t*);

static EntryPoint find(void* library, const char* name) {
  return reinterpret_cast<EntryPoint>(dlsym(library, name));
}

static int run(const char* file, const std::string& examples) {
  void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw std::runtime_error(dlerror());
  }
  session_t session{};
  variables["NDK_DEFAULT_SEARCH_PATH_LINUX"] =
      examples + "/ndk/android-ndk-r21e;" + examples + "/ndk/android-ndk-r11c";
  variables["NDK_SUPPORTED_VERSIONS"] = "r10e;r11;r11b;r11c";
  variables["NDK_COMPONENT_PATTERNS"] = "-ndk-";
  variables["NDK_INTEGRATION_ENABLED"] = "yes";
  variables["VORN_INSTALL_DIR"] = examples + "/package";

  if (const EntryPoint check_host = find(library, "check_host")) {
    return check_host(&session) == 0 ? 0 : 1;
  }
  const EntryPoint detect = find(library, "detect_ndk");
  const EntryPoint decide = find(library, "check_if_ndk_integration_files_are_to_be_installed");
  const EntryPoint integrate = find(library, "integrate_ndk");
  if (detect == nullptr || decide == nullptr || integrate == nullptr) {
    throw std::runtime_error(std::string(file) + " is neither the plug-in nor the host check");
  }
  detect(&session);  // always returns 0, as all do: what it found is in the variables
  decide(&session);
  if (variables["NDK_PATH"].empty() || variables["NDK_INTEGRATION_INSTALL_DETECTED"] != "yes") {
    std::puts("not integrated");
    return 1;
  }
  // An installer puts the compiler's files on disk here. In examples/ they are there already.
  integrate(&session);
  std::printf("integrated into %s\n", variables["NDK_PATH"].c_str());
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: minimal_host LIBRARY EXAMPLES\n");
    return 2;
  }
  try {
    // Absolute, because a plain name is not looked for here, and the plug-in goes elsewhere.
    return run(std::filesystem::absolute(argv[1]).c_str(), std::filesystem::absolute(argv[2]));
  } catch (const std::exception& exception) {  // what a service threw comes out of the entry point
    std::fprintf(stderr, "minimal_host: %s\n", exception.what());
    return 1;
  }
}

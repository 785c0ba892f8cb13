#include "tests/recording_host.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/texts.h"

namespace {

RecordingHost* current_host = nullptr;

std::string escaped(char c) {
  const auto code = static_cast<unsigned char>(c);
  if (c == '"' || c == '\\') {
    return std::string("\\") + c;
  }
  if (c == '\n' || c == '\r') {
    return c == '\n' ? "\\n" : "\\r";
  }
  if (code >= 0x20 && code < 0x7f) {
    return std::string(1, c);
  }
  char text[5];
  std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(code));
  return text;
}

std::string truth(bool value) { return value ? "true" : "false"; }

// What goes before the arguments of a service that got a session: nothing, when it is the one that
// the host passed in.
std::string session_argument(const session_t* session) {
  return session == &RecordingHost::current().session ? "" : "VIOLATION: another session, ";
}

RecordingHost& called(const std::string& service, const std::string& arguments) {
  RecordingHost::current().call(service, arguments);
  return RecordingHost::current();
}

// What an IniDb holds.
struct Properties {
  std::string content;
  std::string separator;
};

const RecordingHost::ComponentAnswers& answers(const Component& component) {
  return *static_cast<RecordingHost::ComponentAnswers*>(component.host_data);
}

}  // namespace

std::string in_quotes(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    result += escaped(c);
  }
  return result + '"';
}

RecordingHost::RecordingHost() {
  if (current_host != nullptr) {
    std::fputs("RecordingHost: there is one already; a test makes one at a time\n", stderr);
    std::abort();
  }
  current_host = this;
}

RecordingHost::~RecordingHost() { current_host = nullptr; }

RecordingHost& RecordingHost::current() {
  if (current_host == nullptr) {
    std::fputs("RecordingHost: a service was called, but the test made no RecordingHost\n", stderr);
    std::abort();
  }
  return *current_host;
}

void RecordingHost::add_ndk(const std::string& dir, const std::string& revision) {
  files[dir + "/ndk-build"] = "";
  files[dir + "/source.properties"] = "Pkg.Desc = Android NDK\nPkg.Revision = " + revision + "\n";
}

void RecordingHost::add_component(const std::string& id, const std::string& version,
                                  const std::string& package_number, const std::string& subdir,
                                  bool condition, bool selected) {
  answers_.push_back({condition, selected, subdir});
  components_.push_back({id, version, package_number, &answers_.back()});
}

void RecordingHost::fail_at(std::size_t n, const std::string& service) {
  calls_to_failure_ = n;
  failing_service_ = service;
}

std::string RecordingHost::record() const {
  std::string text = "\n";
  for (const std::string& line : calls) {
    text += line + "\n";
  }
  return text;
}

void RecordingHost::note(const std::string& line) {
  if (before_call) {
    before_call();
  }
  calls.push_back(line);
}

void RecordingHost::call(const std::string& service, const std::string& arguments) {
  note(service + "(" + arguments + ")");
  if (calls_to_failure_ == 0 || (!failing_service_.empty() && failing_service_ != service)) {
    return;
  }
  if (--calls_to_failure_ == 0) {
    throw HostFailure(calls.back());
  }
}

// --- Session variables ---

std::string env_get_string(session_t* session, const char* name) {
  RecordingHost& host = called("env_get_string", session_argument(session) + in_quotes(name));
  return host.variables[name];
}

void env_set_string(session_t* session, const char* name, const char* value) {
  RecordingHost& host =
      called("env_set_string[chars]",
             session_argument(session) + in_quotes(name) + ", " + in_quotes(value));
  host.variables[name] = value;
}

void env_set_string(session_t* session, const std::string& name, const std::string& value) {
  RecordingHost& host =
      called("env_set_string[strings]",
             session_argument(session) + in_quotes(name) + ", " + in_quotes(value));
  host.variables[name] = value;
}

// --- The log ---

// The format, unexpanded, and its arguments. A host is promised no conversion other than "%s".
static std::string log_arguments(const char* format, va_list list) {
  std::string arguments = in_quotes(format);
  for (const char* p = format; (p = std::strchr(p, '%')) != nullptr; ++p) {
    if (*++p != 's') {
      return arguments + ", VIOLATION: a conversion other than %s";
    }
    const char* argument = va_arg(list, const char*);
    arguments += ", " + (argument == nullptr ? "VIOLATION: null" : in_quotes(argument));
  }
  return arguments;
}

void print_log(const char* format, ...) {
  va_list list;
  va_start(list, format);
  const std::string arguments = log_arguments(format, list);
  va_end(list);
  called("print_log", arguments);
}

void error(const char* format, ...) {
  va_list list;
  va_start(list, format);
  const std::string arguments = log_arguments(format, list);
  va_end(list);
  called("error", arguments);
}

// --- Files ---

std::string path(std::string p) {
  RecordingHost& host = called("path", in_quotes(p));
  return host.normalise ? host.normalise(p) : p;
}

int file_exists(const std::string& file, bool flag) {
  RecordingHost& host = called("file_exists", in_quotes(file) + ", " + truth(flag));
  return host.files.count(file) > 0 ? host.exists : 0;
}

int is_writable(std::string dir) {
  RecordingHost& host = called("is_writable", in_quotes(dir));
  const auto answer = host.writable.find(dir);
  return answer == host.writable.end() ? 1 : answer->second;
}

int file_move(std::string from, std::string to) {
  called("file_move", in_quotes(from) + ", " + in_quotes(to));
  return std::rename(from.c_str(), to.c_str()) == 0 ? 1 : 0;
}

// --- Texts ---

std::vector<std::string> splitString(const std::string& text, const std::string& separator,
                                     bool flag) {
  RecordingHost& host =
      called("splitString", in_quotes(text) + ", " + in_quotes(separator) + ", " + truth(flag));
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    if (end > begin || host.keep_empty_pieces) {
      pieces.push_back(text.substr(begin, end - begin));
    }
    begin = end + separator.size();
  }
  return pieces;
}

std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  called("replaceAllSubstrings", in_quotes(text) + ", " + in_quotes(from) + ", " + in_quotes(to));
  return from.empty() ? text : replaced(text, from, to);
}

int strtoint(const std::string& text) {
  called("strtoint", in_quotes(text));
  const long number = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

std::string inttostr(long long value) {
  called("inttostr", std::to_string(value));
  return std::to_string(value);
}

// --- Commands ---

std::string get_command_output(std::string command, int* status, bool flag, std::string text) {
  RecordingHost& host = called("get_command_output",
                               in_quotes(command) + ", " + (status == nullptr ? "null" : "status") +
                                   ", " + truth(flag) + ", " + in_quotes(text));
  return host.command_output;
}

// Not a service, but a step that shows: it takes the place of the C library's.
extern "C" int chdir(const char* directory) noexcept {
  if (current_host != nullptr) {
    current_host->note("chdir(" + in_quotes(directory) + ")");
  }
  return static_cast<int>(syscall(SYS_chdir, directory));
}

// --- Property files: keys compare as they stand before the separator, blanks before the value go

IniDb::IniDb(std::string dir, std::string file, std::string separator) : host_data(nullptr) {
  RecordingHost& host =
      called("IniDb", in_quotes(dir) + ", " + in_quotes(file) + ", " + in_quotes(separator));
  // A line end first, so that every line is found as "\n" + key + separator.
  host_data = new Properties{"\n" + host.files[dir + "/" + file], separator};
  ++host.live_readers;
}

IniDb::~IniDb() {
  RecordingHost& host = RecordingHost::current();
  delete static_cast<Properties*>(host_data);
  --host.live_readers;
  host.note("~IniDb()");
}

std::string IniDb::value(std::string key) {
  called("IniDb::value", in_quotes(key));
  const auto& [content, separator] = *static_cast<Properties*>(host_data);
  const std::string start = "\n" + key + separator;
  const std::size_t line = content.find(start);
  if (line == std::string::npos) {
    return "";
  }
  const std::size_t begin =
      std::min(content.find_first_not_of(' ', line + start.size()), content.size());
  return content.substr(begin, content.find('\n', begin) - begin);
}

// --- Components ---

std::vector<Component*> TSD::components() {
  RecordingHost& host =
      called("TSD::components",
             this == &RecordingHost::current().session.tsd ? "" : "VIOLATION: another registry");
  std::vector<Component*> result;
  for (Component& component : host.components_) {
    result.push_back(&component);
  }
  return result;
}

bool Component::installCondition() {
  called("Component::installCondition", in_quotes(id));
  return answers(*this).condition;
}

bool Component::getSelected() {
  called("Component::getSelected", in_quotes(id));
  return answers(*this).selected;
}

std::string Component::subdir() {
  called("Component::subdir", in_quotes(id));
  return answers(*this).subdir;
}

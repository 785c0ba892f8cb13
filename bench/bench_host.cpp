// The least host that the plug-in's objects link with. Only what patch_text_file uses works; the
// other services answer with nothing.
#include <cstdarg>
#include <cstdio>

#include "host/host.h"

// --- What patch_text_file uses ---

std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  std::size_t at = text.find(from);
  if (at == std::string::npos) {
    return text;
  }
  std::string result;
  std::size_t start = 0;
  for (; at != std::string::npos; at = text.find(from, start)) {
    result.append(text, start, at - start).append(to);
    start = at + from.size();
  }
  return result.append(text, start);
}

int file_move(std::string from, std::string to) {
  return static_cast<int>(std::rename(from.c_str(), to.c_str()) == 0);
}

void error(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  std::fputc('\n', stderr);
}

// --- The rest ---

bool Component::installCondition() { return false; }
bool Component::getSelected() { return false; }
std::string Component::subdir() { return ""; }
std::vector<Component*> TSD::components() { return {}; }

IniDb::IniDb(std::string /*dir*/, std::string /*file*/, std::string /*separator*/)
    : host_data(nullptr) {}
IniDb::~IniDb() = default;
std::string IniDb::value(std::string /*key*/) { return ""; }

std::string env_get_string(session_t* /*session*/, const char* /*name*/) { return ""; }
void env_set_string(session_t* /*session*/, const char* /*name*/, const char* /*value*/) {}
void env_set_string(session_t* /*session*/, const std::string& /*name*/,
                    const std::string& /*value*/) {}
void print_log(const char* /*format*/, ...) {}

std::string path(std::string p) { return p; }
int file_exists(const std::string& /*file*/, bool /*flag*/) { return 0; }
int is_writable(std::string /*dir*/) { return 0; }
std::vector<std::string> splitString(const std::string& /*text*/, const std::string& /*separator*/,
                                     bool /*flag*/) {
  return {};
}
int strtoint(const std::string& /*text*/) { return 0; }
std::string inttostr(long long value) { return std::to_string(value); }
std::string get_command_output(std::string /*command*/, int* /*status*/, bool /*flag*/,
                               std::string /*text*/) {
  return "";
}

#include "tests/broken_hosts/good_host.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

#include "tests/texts.h"

namespace fs = std::filesystem;

namespace {

GoodHost* current_host = nullptr;

bool breaks(const std::string& point) { return GoodHost::current().breaks(point); }
std::string answer(const std::string& call, const std::string& usual = "") {
  return GoodHost::current().answer(call, usual);
}
bool other_choices() { return GoodHost::current().other_choices; }

// Breaks a point by an exception.
void fail_if(bool breaks_it, const std::string& text) {
  if (breaks_it) {
    throw std::runtime_error(text);
  }
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \r");
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(" \r") - first + 1);
}

std::string formatted(const char* format, va_list arguments) {
  std::array<char, 20000> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  return text.data();
}

}  // namespace

GoodHost::GoodHost(std::string broken, int log) : broken_(std::move(broken)), log_(log) {
  current_host = this;
  components.push_back({"documentation", "5.0.3", "42", nullptr});
  components.push_back({"compiler-ndk", "5.0.3", "42", nullptr});
  variables = {{"NDK_PATH", "/opt/ndk"},
               {"NDK_PATH_STATUS", "ok"},
               {"NDK_INTEGRATION_INSTALL_DETECTED", "yes"},
               {"NDK_COMPILER_SUBDIR", "/compiler"},
               {"NDK_COMPILER_VERSION", "5.0.3"},
               {"NDK_COMPILER_PACKAGE_NUMBER", "42"},
               {"NDK_CNL_VERSION_FULL", "2005.3.42"},
               {"NDK_CNL_VERSION_MAJOR", "2005"},
               {"VORN_INSTALL_DIR", "/opt/vorn"}};
  for (Component& component : components) {
    component.version = answer("version(" + component.id + ")", component.version);
  }
  if (breaks("variables-apart: the last two")) {
    variables["NDK_CNL_VERSION_FULL"] = variables["NDK_CNL_VERSION_MAJOR"];
  }
  if (breaks("variables-apart")) {
    variables["NDK_PATH"] = variables["NDK_PATH_STATUS"];
  }
}

GoodHost::~GoodHost() { current_host = nullptr; }

GoodHost& GoodHost::current() { return *current_host; }

std::string GoodHost::answer(const std::string& call, const std::string& usual) const {
  const std::size_t colon = broken_.find(": ");
  const std::string odd = colon == std::string::npos ? "" : broken_.substr(colon + 2);
  if (odd == call + " throws") {
    throw std::runtime_error("thrown on purpose");
  }
  const std::string beginning = call + " -> ";
  return begins_with(odd, beginning) ? odd.substr(beginning.size()) : usual;
}

void GoodHost::log_line(const std::string& text) const {
  const std::string line = text + "\n";
  [[maybe_unused]] const auto ignored = write(log_, line.data(), line.size());
}

// --- Session variables ---

namespace {

std::string stored_name(const std::string& name) {
  if (breaks("variables-apart: the last two") && begins_with(name, "NDK_CNL_")) {
    return "NDK_CNL_VERSION_MAJOR";
  }
  return breaks("variables-apart") && begins_with(name, "NDK_PATH") ? "NDK_PATH" : name;
}

std::string stored_value(std::string value) {
  if (breaks("value-characters: trims")) {
    return trimmed(value);
  }
  if (breaks("value-characters: a list ends the value")) {
    return value.substr(0, value.find(';'));
  }
  if (breaks("value-characters: the value is a format")) {
    return replaced(value, "%", "");
  }
  if (breaks("value-characters: ASCII only")) {
    value.erase(std::remove_if(value.begin(), value.end(), [](char c) { return c < 0; }),
                value.end());
  }
  if (breaks("value-characters: expands")) {
    return replaced(value, "$HOME", "/root");
  }
  if (breaks("value-length")) {
    value.resize(std::min<std::size_t>(value.size(), 65535));
  }
  if (breaks("value-length: without the last byte")) {
    value.resize(std::min<std::size_t>(value.size(), 99999));
  }
  return value;
}

void store(const std::string& form, const std::string& name, const std::string& given) {
  const std::string value = answer(form + " " + name + "=" + given, given);
  const std::set<std::string> set_by_hosts{"NDK_DEFAULT_SEARCH_PATH_LINUX",
                                           "NDK_SUPPORTED_VERSIONS", "NDK_INTEGRATION_ENABLED",
                                           "NDK_COMPONENT_PATTERNS", "VORN_INSTALL_DIR"};
  if (set_by_hosts.count(name) > 0) {
    throw std::logic_error("a plug-in that writes " + name);
  }
  GoodHost::current().variables[stored_name(name)] = stored_value(value);
}

}  // namespace

std::string env_get_string(session_t* /*session*/, const char* name) {
  const auto& variables = GoodHost::current().variables;
  answer("env_get_string(" + std::string(name) + ")");
  fail_if(breaks("variables-readable") && variables.count(name) == 0, "no such variable");
  if (breaks("one-store") && variables.count("std " + std::string(name)) > 0) {
    return variables.at("std " + std::string(name));
  }
  const auto found = variables.find(stored_name(name));
  if (breaks("variables-never-set") && found == variables.end()) {
    return "none";
  }
  return found == variables.end() ? "" : found->second;
}

void env_set_string(session_t* /*session*/, const char* name, const char* value) {
  if (!breaks("set-c-strings")) {
    store("c", name, value);
  }
}

void env_set_string(session_t* /*session*/, const std::string& name, const std::string& value) {
  if (!breaks("set-std-strings")) {
    store("std", breaks("one-store") ? "std " + name : name, value);
  }
}

// --- The log ---

void print_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  if ((breaks("log-without-arguments") && !holds(format, "%")) ||
      (breaks("log-percent-in-argument") && holds(text, "%")) ||
      (breaks("log-long-argument") && text.size() > 4096) || breaks("log: always throws")) {
    throw std::runtime_error("cannot write to the log");
  }
  if (breaks("log-lines") && begins_with(text, "host check, a test line: looked")) {
    return;
  }
  GoodHost::current().log_line(text);
}

void error(const char* format, ...) {
  if (breaks("error-returns: throws")) {
    throw 1;
  }
  if (breaks("error-returns: ends the process")) {
    _exit(1);
  }
  va_list arguments;
  va_start(arguments, format);
  GoodHost::current().log_line("ERROR: " + formatted(format, arguments));
  va_end(arguments);
}

// --- Components ---

std::vector<Component*> TSD::components() {
  std::vector<Component*> result;
  for (Component& component : GoodHost::current().components) {
    if (component.id != "gone") {
      result.push_back(&component);
    }
  }
  if (breaks("components-walk")) {
    result.insert(result.begin() + 1, nullptr);
  }
  if (breaks("components-walk: the first")) {
    result.insert(result.begin(), nullptr);
  }
  if (breaks("components-walk: the last")) {
    result.push_back(nullptr);
  }
  if (breaks("components-stable")) {
    static int calls = 0;
    if (++calls % 2 == 0) {
      std::reverse(result.begin(), result.end());
    }
  }
  if (breaks("components-stable: fewer") && GoodHost::current().asked_for_components++ > 1) {
    result.pop_back();
  }
  if (breaks("components-stable: makes them anew")) {
    for (Component*& component : result) {
      auto& components = GoodHost::current().components;
      Component& made = components.emplace_back(*component);
      component->id = "gone";
      component = &made;
    }
  }
  return result;
}

bool Component::installCondition() {
  answer("installCondition(" + id + ")");
  return id != "documentation";
}

bool Component::getSelected() {
  if (!installCondition()) {
    throw std::logic_error("a plug-in that asks whether a component is selected that cannot be");
  }
  answer("getSelected(" + id + ")");
  return true;
}

std::string Component::subdir() { return answer("subdir(" + id + ")", "/compiler"); }

// --- Texts ---

std::vector<std::string> splitString(const std::string& text, const std::string& separator,
                                     bool /*flag*/) {
  if (const std::string odd = answer("splitString(" + text + ")", "usual"); odd != "usual") {
    return lines_of(replaced(odd, ",", "\n"));
  }
  if (breaks("split-version") && separator == ".") {  // as a pattern, that is any character
    return std::vector<std::string>(text.size() + 1);
  }
  if (breaks("split-without-separator") && !holds(text, separator)) {
    return {};
  }
  const std::string separators =
      separator + (breaks("split-inner-blanks") ? " " : "");  // all of one character
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
    if (end > begin || !other_choices()) {
      pieces.push_back(text.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  if (breaks("split-order: sorts")) {
    std::sort(pieces.begin(), pieces.end(), std::greater<>());
  }
  if (breaks("split-order: gives equal pieces once") && separator == ";") {
    std::vector<std::string> once;
    for (const std::string& piece : pieces) {
      if (std::find(once.begin(), once.end(), piece) == once.end()) {
        once.push_back(piece);
      }
    }
    return once;
  }
  return pieces;
}

std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  if (const std::string odd = answer("replaceAllSubstrings(" + text + ")", "usual");
      odd != "usual") {
    return odd;
  }
  if (breaks("replace-every-occurrence")) {
    const std::size_t at = text.find(from);
    return at == std::string::npos ? text : std::string(text).replace(at, from.size(), to);
  }
  if (breaks("replace-with-nothing") && to.empty()) {
    return text;
  }
  if (breaks("replace-literally")) {
    return replaced(text, from, replaced(to, "$&", from));
  }
  if (breaks("replace-other-bytes: drops carriage returns")) {
    return replaced(replaced(text, "\r", ""), from, to);
  }
  if (breaks("replace-other-bytes: ends at a NUL")) {
    return replaced(text.substr(0, text.find('\0')), from, to);
  }
  if (breaks("replace-own-pattern")) {
    std::string result = text;
    for (std::size_t at = 0; (at = result.find(from)) != std::string::npos;) {
      result.replace(at, from.size(), to);
    }
    return result;
  }
  return replaced(text, from, to);
}

int strtoint(const std::string& text) {
  if (const std::string odd = answer("strtoint(" + text + ")"); !odd.empty()) {
    return std::stoi(odd);
  }
  const int base = breaks("strtoint-leading-zeros") ? 0 : 10;
  if ((breaks("release-numbers") && begins_with(text, " ")) ||
      (breaks("strtoint-negative") && begins_with(text, "-"))) {
    return 0;
  }
  if (breaks("strtoint-no-number")) {
    try {
      return std::stoi(text);
    } catch (const std::invalid_argument&) {
      throw std::invalid_argument("stoi");  // what it says differs between standard libraries
    }
  }
  const long number = std::clamp<long>(std::strtol(text.c_str(), nullptr, base), INT_MIN, INT_MAX);
  return breaks("strtoint-decimals") ? static_cast<short>(number) : static_cast<int>(number);
}

std::string inttostr(long long value) {
  if (breaks("inttostr-decimals") && value > 999) {
    return std::to_string(value / 1000) + "," + std::to_string(value % 1000 + 1000).substr(1);
  }
  if (breaks("inttostr-negative")) {
    return std::to_string(value < 0 ? -value : value);
  }
  return answer("inttostr(" + std::to_string(value) + ")", std::to_string(value));
}

// --- Files ---

namespace {

bool is_there(const std::string& file) { return access(file.c_str(), F_OK) == 0; }

// As std::filesystem does it where it may throw.
void require_readable(const std::string& file) {
  std::error_code failure;
  [[maybe_unused]] const bool ignored = fs::exists(file, failure);
  if (failure) {
    throw std::runtime_error("cannot be looked at");
  }
}

// Its name in the host check's own directory.
std::string short_name(const std::string& file) {
  const std::string scratch = "/host_check.XXXXXX/";
  const std::size_t at = file.find("/host_check.");
  return at == std::string::npos || file.size() < at + scratch.size()
             ? file
             : file.substr(at + scratch.size());
}

}  // namespace

std::string path(std::string p) {
  p = answer("path(" + short_name(p) + ")", p);
  std::error_code ignored;
  static std::set<std::string> answers;
  if ((breaks("path-of-file") && fs::is_regular_file(p, ignored)) ||
      (breaks("path-of-directory") && fs::is_directory(p, ignored))) {
    return fs::path(p).parent_path();
  }
  if (breaks("path-with-blanks")) {
    return replaced(p, " ", "\\ ");
  }
  if (breaks("path-of-path")) {
    fail_if(answers.count(fs::path(p).parent_path()) > 0, "this path was converted before");
    answers.insert(p);
  }
  fail_if(breaks("path-of-missing-file") && !p.empty() && !fs::exists(p), "no such file");
  if (breaks("path-of-unreadable")) {
    require_readable(p);
  }
  fail_if(breaks("path-of-empty-text") && p.empty(), "no path");
  return other_choices() ? replaced(p, "/", "//") : p;
}

namespace {

constexpr int kTrue = 256;

bool anything_begins_with(const std::string& file) {
  const fs::path parent = fs::path(file).parent_path();
  return fs::is_directory(parent) &&
         std::any_of(
             fs::directory_iterator(parent), fs::directory_iterator(),
             [&file](const auto& entry) { return begins_with(entry.path().string(), file); });
}

}  // namespace

int file_exists(const std::string& file, bool /*flag*/) {
  if (const std::string odd = answer("file_exists(" + short_name(file) + ")"); !odd.empty()) {
    return std::stoi(odd);
  }
  if (breaks("file-exists-missing") && anything_begins_with(file)) {
    return kTrue;
  }
  fail_if(breaks("file-exists-missing-directory") && !fs::exists(fs::path(file).parent_path()),
          "no such directory");
  if (breaks("file-exists-unreadable")) {
    require_readable(file);
  }
  if (breaks("file-exists") && is_there(file)) {
    return fs::file_size(file) > 0 ? kTrue : 0;
  }
  return is_there(file) ? kTrue : 0;
}

int is_writable(std::string dir) {
  if (const std::string odd = answer("is_writable(" + short_name(dir) + ")"); !odd.empty()) {
    return std::stoi(odd);
  }
  if (breaks("is-writable-unreadable")) {
    require_readable(dir);
  }
  const bool always = breaks("is-writable-read-only");
  const bool never = breaks("is-writable");
  return always || (!never && access(dir.c_str(), W_OK) == 0) ? kTrue : 0;
}

int file_move(std::string from, std::string to) {
  if ((breaks("file-move-replaces") && fs::exists(to)) ||
      (breaks("file-move-blanks") && holds(to, " "))) {
    return 0;
  }
  if (breaks("file-move-takes-source")) {
    return fs::copy_file(from, to, fs::copy_options::overwrite_existing) ? kTrue : 0;
  }
  const int result = std::rename(from.c_str(), to.c_str()) == 0 ? kTrue : 0;
  return std::stoi(answer("file_move", std::to_string(result)));
}

// --- Property files: usually keys are compared as they stand, and blanks stay in the value ---

namespace {

struct Properties {
  std::map<std::string, std::string> values;

  Properties(const std::string& file, const std::string& separator) {
    std::ifstream in(file);
    std::error_code ignored;
    fail_if(breaks("property-unreadable-directory") && fs::is_directory(file, ignored),
            "is a directory");
    fail_if(breaks("property-unreadable-file") && !in && fs::is_regular_file(file, ignored),
            "cannot open a property file");
    for (std::string line; std::getline(in, line);) {
      const std::size_t end = line.find(separator);
      if (end == std::string::npos) {
        continue;
      }
      const std::string key = line.substr(0, end);
      const std::string value = line.substr(end + separator.size());
      if (other_choices()) {
        values[trimmed(key)] = trimmed(value);
      } else {
        values[breaks("property-value") ? trimmed(key) : key] = value;
      }
    }
  }
};

}  // namespace

IniDb::IniDb(std::string dir, std::string file, std::string separator) : host_data(nullptr) {
  answer("IniDb(" + short_name(dir) + ")");
  auto properties = std::make_unique<Properties>(dir + "/" + file, separator);
  if (breaks("property-each-file")) {
    static const Properties first = *properties;
    *properties = first;
  }
  host_data = properties.release();
}

IniDb::~IniDb() { delete static_cast<Properties*>(host_data); }

std::string IniDb::value(std::string key) {
  const auto& values = static_cast<Properties*>(host_data)->values;
  const auto found = values.find(other_choices() ? trimmed(key) : key);
  if (found != values.end()) {
    return found->second;
  }
  fail_if(breaks("property-missing-key"), "no such key");
  return other_choices() ? "(not found)" : "";
}

// --- Commands ---

namespace {

// What the command prints, without waiting for its end.
std::string output_alone(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string output = read_all(pipe);
  close(fileno(pipe));  // pclose would wait
  return output;
}

// A shell's way to run `command` as the broken host runs it.
std::string as_run(const std::string& command) {
  if (breaks("command-shell")) {  // as exec takes it: every blank separates, every quote stays
    return "'" + replaced(command, " ", "' '") + "'";
  }
  if (breaks("command-working-directory")) {
    return "cd /; " + command;
  }
  if (breaks("command-waits")) {  // long enough for every machine; the test kills it in the end
    return "sleep() { command sleep 3600; }; " + command;
  }
  return command;
}

}  // namespace

std::string get_command_output(std::string command, int* status, bool /*flag*/,
                               std::string /*text*/) {
  fail_if(breaks("command-null-status: throws") && status == nullptr, "no exit status");
  if (breaks("command-null-status: crashes") && status == nullptr) {
    std::abort();
  }
  const bool drops_errors = other_choices() || breaks("command-working-directory");
  const std::string errors = drops_errors ? "exec 2>/dev/null\n" : "exec 2>&1\n";
  const std::string input = breaks("command-standard-input") ? "" : "exec </dev/null\n";
  const std::string shell_command = input + errors + as_run(command);
  if (breaks("command-waits")) {
    return output_alone(shell_command);
  }
  auto [output, exit_status] = shell(shell_command);
  fail_if(breaks("command-not-there") && exit_status == 127, "no such command");
  if (breaks("command-output") || (breaks("command-failing") && exit_status != 0)) {
    return "";
  }
  if (breaks("command-complete-output")) {
    output.resize(std::min<std::size_t>(output.size(), 65536));
  }
  return answer("get_command_output(" + command.substr(0, command.find(' ')) + ")", output);
}

#include "fuzz/fuzz_host.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "fuzz/expect.h"

namespace {

FuzzHost* current_host = nullptr;

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) {
    return "";
  }
  return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

// A host is promised no conversion other than "%s".
std::string formatted(const char* format, va_list list) {
  std::string result;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') {
      result += *p;
      continue;
    }
    ++p;
    expect(*p == 's', "a log format has no conversion but %s");
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers have initialised it
    const char* argument = va_arg(list, const char*);
    expect(argument != nullptr, "no argument of a log line is null");
    result += argument;
  }
  return result;
}

// What an IniDb holds.
struct Properties {
  std::string content;
  std::string separator;
};

const FuzzHost::ComponentAnswers& answers(const Component& component) {
  return *static_cast<FuzzHost::ComponentAnswers*>(component.host_data);
}

}  // namespace

FuzzHost::FuzzHost(std::uint8_t choices)
    : keys_trimmed((choices & 1U) != 0),
      values_trimmed((choices & 2U) != 0),
      keeps_empty((choices & 4U) != 0),
      wraps_numbers((choices & 8U) != 0),
      true_is_256((choices & 16U) != 0),
      collapses_slashes((choices & 32U) != 0) {
  current_host = this;
}

FuzzHost::~FuzzHost() { current_host = nullptr; }

FuzzHost& FuzzHost::current() {
  expect(current_host != nullptr, "no service is called before the target made its host");
  return *current_host;
}

std::string FuzzHost::property(const std::string& content, const std::string& key,
                               const std::string& separator) const {
  const std::string wanted = keys_trimmed ? trimmed(key) : key;
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    const std::string line = content.substr(begin, end - begin);
    const std::size_t at = line.find(separator);
    if (at != std::string::npos) {
      const std::string name = line.substr(0, at);
      if ((keys_trimmed ? trimmed(name) : name) == wanted) {
        const std::string text = line.substr(at + separator.size());
        return values_trimmed ? trimmed(text) : text;
      }
    }
    begin = end + 1;
  }
  return "";
}

std::vector<std::string> FuzzHost::pieces(const std::string& text,
                                          const std::string& separator) const {
  std::vector<std::string> result;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    if (end > begin || keeps_empty) {
      result.push_back(text.substr(begin, end - begin));
    }
    begin = end + separator.size();
  }
  return result;
}

int FuzzHost::number(const std::string& text) const {
  char* end = nullptr;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (wraps_numbers) {
    return end == text.c_str() ? -1 : static_cast<int>(value);
  }
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

std::string FuzzHost::path_form(const std::string& path) const {
  std::string result;
  for (const char c : path) {
    if (!collapses_slashes || c != '/' || result.empty() || result.back() != '/') {
      result += c;
    }
  }
  return confined ? confined(result) : result;
}

void FuzzHost::add_file(const std::string& name, const std::string& content) {
  files[path_form(name)] = content;
}

void FuzzHost::add_component(const std::string& id, const std::string& version,
                             const std::string& package_number, const std::string& subdir,
                             bool condition, bool selected) {
  answers_.push_back({condition, selected, subdir});
  components_.push_back({id, version, package_number, &answers_.back()});
}

void FuzzHost::call() {
  ++calls;
  const int mood = disturbances == nullptr ? 0 : disturbances->byte() % 16;
  lies_ = mood == '?' % 16;
  if (mood == '!' % 16) {
    ++failures;
    throw HostFailure(calls);
  }
}

std::string FuzzHost::answer(const std::string& truth) {
  if (!lies_) {
    return truth;
  }
  // Without NUL, which would cut short the name of a file that is made from this text: what is then
  // opened for writing might be any file of the machine.
  std::string lie = disturbances->text();
  std::replace(lie.begin(), lie.end(), '\0', '0');
  return lie;
}

int FuzzHost::answer(int truth) { return lies_ ? number(disturbances->text()) : truth; }

bool FuzzHost::answer_bool(bool truth) { return truth != lies_; }

std::vector<std::string> FuzzHost::answer(const std::vector<std::string>& truth) {
  return lies_ ? pieces(answer(std::string()), ",") : truth;
}

std::vector<Component*> FuzzHost::components() {
  std::vector<Component*> result;
  for (Component& component : components_) {
    result.push_back(&component);
  }
  return result;
}

// --- Session variables ---

std::string env_get_string(session_t* session, const char* name) {
  FuzzHost& host = FuzzHost::current();
  expect(session == &host.session, "the session is the one that the host passed in");
  host.call();
  return host.answer(host.variables[name]);
}

void env_set_string(session_t* session, const char* name, const char* value) {
  FuzzHost& host = FuzzHost::current();
  expect(session == &host.session, "the session is the one that the host passed in");
  host.record.push_back(std::string("set: ") + name + "=" + value);
  host.call();
  host.variables[name] = value;
}

void env_set_string(session_t* session, const std::string& name, const std::string& value) {
  FuzzHost& host = FuzzHost::current();
  expect(session == &host.session, "the session is the one that the host passed in");
  host.record.push_back("set: " + name + "=" + value);
  host.call();
  host.variables[name] = value;
}

// --- The log ---

void print_log(const char* format, ...) {
  va_list list;
  va_start(list, format);
  FuzzHost::current().record.push_back("log: " + formatted(format, list));
  va_end(list);
  FuzzHost::current().call();
}

void error(const char* format, ...) {
  va_list list;
  va_start(list, format);
  FuzzHost::current().record.push_back("error: " + formatted(format, list));
  va_end(list);
  FuzzHost::current().call();
}

// --- Files ---

std::string path(std::string p) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  const std::string answer = host.answer(host.path_form(p));
  return host.confined ? host.confined(answer) : answer;
}

int file_exists(const std::string& file, bool /*flag*/) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  const int truth = host.true_is_256 ? 256 : 1;
  return host.answer(host.files.count(file) > 0 ? truth : 0);
}

int is_writable(std::string /*dir*/) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  return host.answer(host.true_is_256 ? 256 : 1);
}

int file_move(std::string from, std::string to) {
  FuzzHost& host = FuzzHost::current();
  host.record.push_back("move: " + from + " to " + to);
  host.call();
  const bool moved = host.moves_files && std::rename(from.c_str(), to.c_str()) == 0;
  return host.answer(moved ? 1 : 0);
}

// --- Texts ---

std::vector<std::string> splitString(const std::string& text, const std::string& separator,
                                     bool /*flag*/) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  return host.answer(host.pieces(text, separator));
}

std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  std::string result = text;
  for (std::size_t at = 0; !from.empty() && (at = result.find(from, at)) != std::string::npos;) {
    result.replace(at, from.size(), to);
    at += to.size();
  }
  return host.answer(result);
}

int strtoint(const std::string& text) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  return host.answer(host.number(text));
}

std::string inttostr(long long value) {
  FuzzHost& host = FuzzHost::current();
  host.call();
  return host.answer(std::to_string(value));
}

// --- Commands: none is run ---

// NOLINTNEXTLINE(readability-non-const-parameter): the type is the contract's
std::string get_command_output(std::string command, int* status, bool /*flag*/,
                               std::string /*text*/) {
  FuzzHost& host = FuzzHost::current();
  expect(status == nullptr, "the exit status is not asked for");
  host.record.push_back("run: " + command);
  host.call();
  return host.answer(std::string("done\n"));
}

// --- Property files ---

IniDb::IniDb(std::string dir, std::string file, std::string separator) {
  FuzzHost& host = FuzzHost::current();
  host.record.push_back("open: " + dir + " " + file + " " + separator);
  host.call();
  const auto content = host.files.find(host.path_form(dir + "/" + file));
  host_data =
      new Properties{content == host.files.end() ? "" : content->second, std::move(separator)};
  ++host.live_readers;
}

IniDb::~IniDb() {
  FuzzHost& host = FuzzHost::current();
  host.record.emplace_back("close");
  delete static_cast<Properties*>(host_data);
  --host.live_readers;
}

std::string IniDb::value(std::string key) {
  FuzzHost& host = FuzzHost::current();
  host.record.push_back("value: " + key);
  host.call();
  const auto& [content, separator] = *static_cast<Properties*>(host_data);
  return host.answer(host.property(content, key, separator));
}

// --- Components ---

std::vector<Component*> TSD::components() {
  FuzzHost& host = FuzzHost::current();
  expect(this == &host.session.tsd, "the registry is the session's");
  host.call();
  return host.components();
}

bool Component::installCondition() {
  FuzzHost& host = FuzzHost::current();
  host.record.push_back("installCondition: " + id);
  host.call();
  return host.answer_bool(answers(*this).condition);
}

bool Component::getSelected() {
  FuzzHost& host = FuzzHost::current();
  host.record.push_back("getSelected: " + id);
  host.call();
  return host.answer_bool(answers(*this).selected);
}

std::string Component::subdir() {
  FuzzHost& host = FuzzHost::current();
  host.call();
  return host.answer(answers(*this).subdir);
}

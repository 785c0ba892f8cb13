#include "console_host/installation.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "console_host/errors.h"
#include "console_host/log.h"

namespace {

// The session variables that a host sets, and which of them hold directories.
struct SessionVariable {
  const char* name;
  bool holds_directories;
};

constexpr SessionVariable kSessionVariables[] = {
    {"NDK_PATH", true},
    {"NDK_DEFAULT_SEARCH_PATH_LINUX", true},
    {"NDK_SUPPORTED_VERSIONS", false},
    {"NDK_INTEGRATION_ENABLED", false},
    {"NDK_COMPONENT_PATTERNS", false},
    {"VORN_INSTALL_DIR", true},
};

std::string read_file(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  // An empty file sets the failure state of `text`, a directory that of `in`.
  if (in && in.peek() != std::ifstream::traits_type::eof()) {
    text << in.rdbuf();
  }
  if (in.bad() || !in.is_open()) {
    throw UsageError("cannot read " + file + ": " + std::strerror(errno));
  }
  return text.str();
}

std::string type_of(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a floating-point number";
    case toml::node_type::boolean:
      return "a boolean";
    default:
      return "a date or time";
  }
}

// Reads one file; each function throws UsageError at the first thing that is wrong.
class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {
    base_ = absolute_path(std::filesystem::current_path().string(),
                          std::filesystem::path(file_).parent_path().string());
    if (base_.empty()) {
      base_ = std::filesystem::current_path().string();
    }
  }

  Installation read() {
    const toml::table root = parse();
    Installation installation;
    for (const auto& [key, node] : root) {
      if (key == "session") {
        read_session(installation, node);
      } else if (key == "component") {
        read_components(installation, node);
      } else {
        wrong(key.source(), "unknown key '" + one_line(std::string(key.str())) +
                                "', expected [session] or [[component]]");
      }
    }
    return installation;
  }

 private:
  [[noreturn]] void wrong(const toml::source_region& where, const std::string& what) const {
    throw UsageError(file_ + ":" + std::to_string(where.begin.line) + ": " + what);
  }

  toml::table parse() const {
    const std::string text = read_file(file_);
    try {
      return toml::parse(text);
    } catch (const toml::parse_error& bad) {
      wrong(bad.source(), "not valid TOML: " + one_line(std::string(bad.description())));
    }
  }

  void read_session(Installation& installation, const toml::node& node) const {
    if (!node.is_table()) {
      wrong(node.source(), "'session' is " + type_of(node) + ", expected a table [session]");
    }
    for (const auto& [key, value] : *node.as_table()) {
      const std::string name(key.str());
      const auto* const known =
          std::find_if(std::begin(kSessionVariables), std::end(kSessionVariables),
                       [&](const SessionVariable& variable) { return variable.name == name; });
      if (known == std::end(kSessionVariables)) {
        wrong(key.source(), "unknown key '" + one_line(name) + "' in [session], expected one of " +
                                session_variable_names());
      }
      installation.session[name] = session_value(name, value, known->holds_directories);
    }
  }

  static std::string session_variable_names() {
    std::string names;
    for (const SessionVariable& variable : kSessionVariables) {
      names += (names.empty() ? "" : ", ") + std::string(variable.name);
    }
    return names;
  }

  // A text as it stands, or an array of texts joined by ";".
  std::string session_value(const std::string& name, const toml::node& node,
                            bool holds_directories) const {
    const toml::array* elements = node.as_array();
    if (elements == nullptr) {
      const std::string value = text(name, node, "a text or an array of texts");
      return holds_directories ? absolute_directories(value) : value;
    }
    std::string list;
    for (const toml::node& element : *elements) {
      const std::string piece = text("an element of " + name, element, "a text");
      if (piece.find(';') != std::string::npos) {
        wrong(element.source(), "an element of " + name + " holds ';', expected one entry: '" +
                                    one_line(piece) + "' would become several");
      }
      list += (&element == &elements->front() ? "" : ";") +
              (holds_directories ? absolute_path(base_, piece) : piece);
    }
    return list;
  }

  // The list `value` with each of its directories made absolute.
  std::string absolute_directories(const std::string& value) const {
    std::string list;
    std::size_t begin = 0;
    while (true) {
      const std::size_t end = value.find(';', begin);
      list += absolute_path(base_, value.substr(begin, end - begin));
      if (end == std::string::npos) {
        return list;
      }
      list += ';';
      begin = end + 1;
    }
  }

  std::string text(const std::string& what, const toml::node& node,
                   const std::string& expected) const {
    const auto value = node.value_exact<std::string>();
    if (!value) {
      wrong(node.source(), what + " is " + type_of(node) + ", expected " + expected);
    }
    if (value->find('\0') != std::string::npos) {
      wrong(node.source(), what + " holds a NUL character, expected a text without one");
    }
    return *value;
  }

  bool boolean(const std::string& what, const toml::node& node) const {
    const auto value = node.value_exact<bool>();
    if (!value) {
      wrong(node.source(), what + " is " + type_of(node) + ", expected true or false");
    }
    return *value;
  }

  void read_components(Installation& installation, const toml::node& node) const {
    const toml::array* tables = node.as_array();
    if (tables == nullptr) {
      wrong(node.source(), "'component' is " + type_of(node) + ", expected tables [[component]]");
    }
    for (const toml::node& element : *tables) {
      if (!element.is_table()) {
        wrong(element.source(),
              "'component' holds " + type_of(element) + ", expected tables [[component]]");
      }
      installation.components.push_back(component(*element.as_table()));
    }
  }

  ComponentInfo component(const toml::table& table) const {
    for (const char* name : {"id", "version", "package_number", "subdir"}) {
      if (!table.contains(name)) {
        wrong(table.source(), std::string("a [[component]] without '") + name +
                                  "', expected id, version, package_number and subdir");
      }
    }
    ComponentInfo info;
    for (const auto& [key, node] : table) {
      const std::string name(key.str());
      if (name == "id") {
        info.id = text(name, node, "a text");
      } else if (name == "version") {
        info.version = text(name, node, "a text");
      } else if (name == "package_number") {
        info.package_number = text(name, node, "a text");
      } else if (name == "subdir") {
        info.subdir = text(name, node, "a text");
      } else if (name == "install_condition") {
        info.install_condition = boolean(name, node);
      } else if (name == "selected") {
        info.selected = boolean(name, node);
      } else {
        wrong(key.source(),
              "unknown key '" + one_line(name) +
                  "' in a [[component]], expected one of id, version, package_number, subdir, "
                  "install_condition, selected");
      }
    }
    return info;
  }

  std::string file_;
  std::string base_;  // the file's own directory, absolute
};

}  // namespace

std::string absolute_path(const std::string& base, const std::string& text) {
  if (text.empty() || text[0] == '/') {
    return text;
  }
  if (text == ".") {
    return base;
  }
  const std::string relative = text.compare(0, 2, "./") == 0 ? text.substr(2) : text;
  return base + "/" + relative;
}

Installation read_installation(const std::string& file) { return Reader(file).read(); }

#include "console_host/package/installation_file.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/file.h"
#include "console_host/base/paths.h"
#include "console_host/base/similar_names.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// The session variables that a host sets, and what they hold.
struct SessionVariable {
  enum class Kind { kText, kDirectory, kDirectories };

  const char* name;
  Kind kind;
};

constexpr std::array<SessionVariable, 6> kSessionVariables{{
    {"NDK_PATH", SessionVariable::Kind::kDirectory},
    {"NDK_DEFAULT_SEARCH_PATH_LINUX", SessionVariable::Kind::kDirectories},
    {"NDK_SUPPORTED_VERSIONS", SessionVariable::Kind::kText},
    {"NDK_INTEGRATION_ENABLED", SessionVariable::Kind::kText},
    {"NDK_COMPONENT_PATTERNS", SessionVariable::Kind::kText},
    {"VORN_INSTALL_DIR", SessionVariable::Kind::kDirectory},
}};

const SessionVariable* find_session_variable(const std::string& name) {
  const auto* const found =
      std::find_if(kSessionVariables.begin(), kSessionVariables.end(),
                   [&](const SessionVariable& variable) { return variable.name == name; });
  return found == kSessionVariables.end() ? nullptr : found;
}

std::vector<std::string> session_variable_names() {
  std::vector<std::string> names;
  for (const SessionVariable& variable : kSessionVariables) {
    names.emplace_back(variable.name);
  }
  return names;
}

// The texts that a [[component]] needs, and what it may hold besides.
std::vector<std::string> component_texts() { return {"id", "version", "package_number", "subdir"}; }
std::vector<std::string> component_keys() {
  return {"id", "version", "package_number", "subdir", "install_condition", "selected"};
}

// What is said of `name` where one of `known` has to stand.
std::string expected_one_of(const std::string& name, const std::vector<std::string>& known) {
  return ", expected one of " + join(known, ", ") + did_you_mean(name, known);
}

// `path`, which is absolute, without a "..": each is the directory above, that of a link's target
// where it stands behind a link.
std::string without_parent_steps(const std::string& path) {
  namespace fs = std::filesystem;
  if ((path + "/").find("/../") == std::string::npos) {
    return path;
  }
  std::string plain;
  for (const std::string& step : split(path, "/")) {
    std::error_code none;
    if (step != "..") {
      plain += step == "." ? "" : "/" + step;
      continue;
    }
    if (fs::is_symlink(plain, none)) {
      plain = fs::weakly_canonical(plain, none).string();
    }
    plain.erase(std::min(plain.rfind('/'), plain.size()));
  }
  return plain.empty() ? "/" : plain;
}

// `text` as the absolute name of a directory: taken from the directory `base` when it is relative.
std::string absolute_directory(const std::string& base, const std::string& text) {
  return without_parent_steps(absolute_path(base, text));
}

// The list `value` with each of its directories made absolute, from the directory `base`.
std::string absolute_directories(const std::string& base, const std::string& value) {
  std::string list;
  std::size_t begin = 0;
  while (true) {
    const std::size_t end = value.find(';', begin);
    list += absolute_directory(base, value.substr(begin, end - begin));
    if (end == std::string::npos) {
      return list;
    }
    list += ';';
    begin = end + 1;
  }
}

// `value` of a session variable with its directories made absolute, from the directory `base`.
std::string absolute_value(const SessionVariable& variable, const std::string& base,
                           const std::string& value) {
  switch (variable.kind) {
    case SessionVariable::Kind::kDirectory:
      return absolute_directory(base, value);
    case SessionVariable::Kind::kDirectories:
      return absolute_directories(base, value);
    default:
      return value;
  }
}

constexpr std::size_t kMostBytes = 1 << 20;
constexpr int kMostDots = 100;

// How many dots in `line` may separate the parts of keys. Those in a text that begins and ends
// there and those in a comment do not; where three quotes stand together, the line may begin or end
// inside a text of many lines, so that all may.
int dots_of_keys(const std::string& line) {
  const bool is_clear =
      line.find(R"(""")") == std::string::npos && line.find("'''") == std::string::npos;
  int dots = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (is_clear && c == '#') {
      return dots;
    }
    if (is_clear && (c == '"' || c == '\'')) {
      std::size_t end = i + 1;
      while (end < line.size() && line[end] != c) {
        end += c == '"' && line[end] == '\\' ? 2 : 1;
      }
      i = end < line.size() ? end : i;  // an open end is none
    } else if (c == '.') {
      ++dots;
    }
  }
  return dots;
}

// The first line of `text`, beginning with 1, with more parts in its keys than anybody writes; 0
// where there is none. The TOML library would run out of stack on the tables that such keys make.
// Each line is judged by itself, so no quotes before it can hide it.
std::size_t line_with_deep_key(const std::string& text) {
  std::istringstream lines(text);
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (dots_of_keys(line) > kMostDots) {
      return number;
    }
  }
  return 0;
}

std::string read_file(const std::string& file) {
  try {
    return read_whole_file(file);
  } catch (const std::runtime_error& failure) {
    throw UsageError(failure.what());
  }
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
    const std::string parent = std::filesystem::path(file_).parent_path().string();
    base_ = parent.empty() ? working_directory() : absolute_path(working_directory(), parent);
  }

  Installation read() {
    const toml::table root = parse();
    Installation installation;
    const auto* session = root.get("session");
    installation.session_source =
        file_ + ":" + std::to_string(session == nullptr ? 1 : session->source().begin.line);
    for (const auto& [key, node] : root) {
      if (key == "session") {
        read_session(installation, node);
      } else if (key == "component") {
        read_components(installation, node);
      } else {
        const std::string name = one_line(std::string(key.str()));
        wrong(key.source(), "unknown key '" + name + "', expected [session] or [[component]]" +
                                did_you_mean(name, {"session", "component"}));
      }
    }
    return installation;
  }

 private:
  [[noreturn]] void wrong(std::size_t line, const std::string& what) const {
    throw UsageError(file_ + ":" + std::to_string(line) + ": " + what);
  }

  [[noreturn]] void wrong(const toml::source_region& where, const std::string& what) const {
    wrong(where.begin.line, what);
  }

  toml::table parse() const {
    const std::string text = read_file(file_);
    if (text.size() > kMostBytes) {
      throw UsageError(file_ + " is larger than 1 MiB, which no installation.toml is");
    }
    if (const std::size_t line = line_with_deep_key(text); line != 0) {
      wrong(line,
            "not valid TOML: a key of more than 100 parts, expected [session] or [[component]]");
    }
    try {
      return toml::parse(text);
    } catch (const toml::parse_error& bad) {
      wrong(bad.source(), "not valid TOML: " + one_line(std::string(bad.description())));
    }
  }

  static int line_of(const toml::table& table, const char* key) {
    return static_cast<int>(table.get(key)->source().begin.line);
  }

  void read_session(Installation& installation, const toml::node& node) const {
    if (!node.is_table()) {
      wrong(node.source(), "'session' is " + type_of(node) + ", expected a table [session]");
    }
    for (const auto& [key, value] : *node.as_table()) {
      const std::string name(key.str());
      const SessionVariable* known = find_session_variable(name);
      if (known == nullptr) {
        wrong(key.source(), "unknown key '" + one_line(name) + "' in [session]" +
                                expected_one_of(one_line(name), session_variable_names()));
      }
      installation.session[name] = session_value(*known, value);
    }
  }

  // A text as it stands, or an array of texts joined by ";".
  std::string session_value(const SessionVariable& variable, const toml::node& node) const {
    const std::string name = variable.name;
    const toml::array* elements = node.as_array();
    if (elements == nullptr) {
      return absolute(variable, node, text(name, node, "a text or an array of texts"));
    }
    std::string list;
    for (const toml::node& element : *elements) {
      const std::string piece = text("an element of " + name, element, "a text");
      if (piece.find(';') != std::string::npos) {
        wrong(element.source(), "an element of " + name + " holds ';', expected one entry: '" +
                                    one_line(piece) + "' would become several");
      }
      list += (&element == &elements->front() ? "" : ";") + absolute(variable, element, piece);
    }
    return list;
  }

  std::string absolute(const SessionVariable& variable, const toml::node& node,
                       const std::string& value) const {
    std::string made_absolute = absolute_value(variable, base_, value);
    if (variable.kind == SessionVariable::Kind::kDirectories && made_absolute != value &&
        base_.find(';') != std::string::npos) {
      wrong(node.source(), std::string("a relative directory in ") + variable.name +
                               ", expected absolute ones: the name of this file's own directory "
                               "holds ';', which separates the entries of the list");
    }
    return made_absolute;
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
    require_keys(table);
    ComponentInfo info;
    info.source = {file_, line_of(table, "version"), line_of(table, "package_number"),
                   line_of(table, "subdir")};
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
      } else {
        info.selected = boolean(name, node);
      }
    }
    return info;
  }

  // The keys of a component are those that are known, and all that it needs.
  void require_keys(const toml::table& table) const {
    const std::vector<std::string> known = component_keys();
    for (const auto& [key, node] : table) {
      const std::string name(key.str());
      if (std::find(known.begin(), known.end(), name) == known.end()) {
        wrong(key.source(), "unknown key '" + one_line(name) + "' in a [[component]]" +
                                expected_one_of(one_line(name), known));
      }
    }
    for (const std::string& name : component_texts()) {
      if (!table.contains(name)) {
        wrong(table.source(), "a [[component]] without '" + name +
                                  "', expected id, version, package_number and subdir");
      }
    }
  }

  std::string file_;
  std::string base_;  // the file's own directory, absolute
};

}  // namespace

void override_session(Installation& installation, const std::string& name,
                      const std::string& value) {
  const SessionVariable* known = find_session_variable(name);
  if (known == nullptr) {
    throw UsageError("unknown session variable '" + one_line(name) + "'" +
                     expected_one_of(one_line(name), session_variable_names()));
  }
  installation.session[name] = absolute_value(*known, working_directory(), value);
}

void require_complete(const Installation& installation) {
  if (!installation.components.empty() && installation.session.count("VORN_INSTALL_DIR") == 0) {
    throw UsageError(installation.session_source +
                     ": VORN_INSTALL_DIR is missing in [session], expected the directory that the "
                     "components are installed below");
  }
}

Installation read_installation(const std::string& file) { return Reader(file).read(); }

}  // namespace ndk_integrate

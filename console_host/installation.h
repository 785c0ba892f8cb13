// installation.toml: what an installer would know of one installation.
#ifndef CONSOLE_HOST_INSTALLATION_H
#define CONSOLE_HOST_INSTALLATION_H

#include <map>
#include <string>
#include <vector>

// One installable component, as a [[component]] table gives it.
struct ComponentInfo {
  std::string id;
  std::string version;
  std::string package_number;
  std::string subdir;
  bool install_condition = true;
  bool selected = true;
};

struct Installation {
  std::map<std::string, std::string> session;  // the host's session variables that the file sets
  std::vector<ComponentInfo> components;       // in the file's order
};

// Reads the installation.toml named `file`. Its relative directories are made absolute, from the
// file's own directory. Throws UsageError, with file, line and what was expected, when the file is
// missing or something in it is wrong.
Installation read_installation(const std::string& file);

// Sets the session variable `name`, one of those that the file may set, to `value`. Relative
// directories are made absolute, from the working directory. Throws UsageError when there is no
// such variable.
void override_session(Installation& installation, const std::string& name,
                      const std::string& value);

// The working directory; "" when it has none, as when it was removed.
std::string working_directory();

// `text` as an absolute path: taken from the directory `base` when it is relative. "" stays "".
// Throws std::runtime_error when `text` is relative and `base` is "".
std::string absolute_path(const std::string& base, const std::string& text);

#endif

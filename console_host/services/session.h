// A session of the console host: its variables and its components, behind the contract's session_t.
#ifndef CONSOLE_HOST_SERVICES_SESSION_H
#define CONSOLE_HOST_SERVICES_SESSION_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/host.h"

namespace ndk_integrate {

// Where a component stands in its file, for messages.
struct ComponentSource {
  std::string file;
  int version_line = 0;
  int package_number_line = 0;
  int subdir_line = 0;
};

// One installable component, as a [[component]] table gives it.
struct ComponentInfo {
  std::string id;
  std::string version;
  std::string package_number;
  std::string subdir;
  bool install_condition = true;
  bool selected = true;
  ComponentSource source{};
};

// What an installer would know of one installation.
struct Installation {
  std::map<std::string, std::string> session;  // the host's session variables that the file sets
  std::vector<ComponentInfo> components;       // in the file's order
  std::string session_source{};  // "FILE:LINE" of the file's session variables, for messages
};

class Session {
 public:
  explicit Session(const Installation& installation);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // What the plug-in gets; valid as long as this object.
  session_t* handle() { return &handle_; }

  // The value of a session variable, "" when it was never set.
  std::string get(const std::string& name) const;
  void set(const std::string& name, const std::string& value);

  // Everything that was set, in order, as name and value.
  const std::vector<std::pair<std::string, std::string>>& writes() const { return writes_; }

  std::vector<Component*> components() const;
  std::vector<ComponentInfo> component_infos() const;

  // The component that the plug-in took for the compiler: the one whose sub-directory it asked for.
  // Null when none.
  const ComponentInfo* compiler_info() const;

 private:
  struct ComponentState;

  session_t handle_{};
  std::map<std::string, std::string> variables_;
  std::vector<std::pair<std::string, std::string>> writes_;
  std::vector<std::unique_ptr<ComponentState>> components_;

  friend ::Component;
};

}  // namespace ndk_integrate

#endif

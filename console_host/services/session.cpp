#include "console_host/services/session.h"

#include <algorithm>

namespace ndk_integrate {

namespace {

Session& session_of(session_t* handle) { return *static_cast<Session*>(handle->host_data); }

}  // namespace

struct Session::ComponentState {
  Component component{};
  ComponentInfo info;
  bool subdir_asked = false;

  static ComponentState& of(Component& component) {
    return *static_cast<ComponentState*>(component.host_data);
  }
};

Session::Session(const Installation& installation) : variables_(installation.session) {
  handle_.host_data = this;
  handle_.tsd.host_data = this;
  for (const ComponentInfo& info : installation.components) {
    auto state = std::make_unique<ComponentState>();
    state->info = info;
    state->component = {info.id, info.version, info.package_number, state.get()};
    components_.push_back(std::move(state));
  }
}

Session::~Session() = default;

std::string Session::get(const std::string& name) const {
  const auto found = variables_.find(name);
  return found == variables_.end() ? "" : found->second;
}

void Session::set(const std::string& name, const std::string& value) {
  variables_[name] = value;
  writes_.emplace_back(name, value);
}

std::vector<Component*> Session::components() const {
  std::vector<Component*> components;
  for (const auto& state : components_) {
    components.push_back(&state->component);
  }
  return components;
}

std::vector<ComponentInfo> Session::component_infos() const {
  std::vector<ComponentInfo> infos;
  for (const auto& state : components_) {
    infos.push_back(state->info);
  }
  return infos;
}

const ComponentInfo* Session::compiler_info() const {
  const auto found = std::find_if(components_.begin(), components_.end(),
                                  [](const auto& state) { return state->subdir_asked; });
  return found == components_.end() ? nullptr : &(*found)->info;
}

}  // namespace ndk_integrate

using ndk_integrate::Session;
using ndk_integrate::session_of;

std::string env_get_string(session_t* session, const char* name) {
  return session_of(session).get(name);
}

void env_set_string(session_t* session, const char* name, const char* value) {
  session_of(session).set(name, value);
}

void env_set_string(session_t* session, const std::string& name, const std::string& value) {
  session_of(session).set(name, value);
}

std::vector<Component*> TSD::components() { return static_cast<Session*>(host_data)->components(); }

bool Component::installCondition() {
  return Session::ComponentState::of(*this).info.install_condition;
}

bool Component::getSelected() { return Session::ComponentState::of(*this).info.selected; }

std::string Component::subdir() {
  Session::ComponentState& state = Session::ComponentState::of(*this);
  state.subdir_asked = true;
  return state.info.subdir;
}

// Checks of the component registry, whatever components it holds.
#include <regex>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/verdict.h"

namespace host_check {

namespace {

std::vector<std::string> ids(const std::vector<Component*>& components) {
  std::vector<std::string> result;
  result.reserve(components.size());
  for (const Component* component : components) {
    result.push_back(component->id);
  }
  return result;
}

std::vector<Component*> components_of(session_t* session) {
  std::vector<Component*> components = session->tsd.components();
  if (components.empty()) {
    throw Skipped("the session has no components");
  }
  return components;
}

}  // namespace

std::vector<Check> component_checks() {
  return {
      {"components-walk",
       "components() gives a list without null pointers.",
       {},
       [](session_t* session) {
         const std::vector<Component*> components = session->tsd.components();
         for (std::size_t i = 0; i < components.size(); ++i) {
           if (components[i] == nullptr) {
             throw Violated("components() should give components only",
                            "element " + std::to_string(i) + " of " +
                                std::to_string(components.size()) + " is null");
           }
         }
       }},
      {"components-stable",
       "components() gives the same components in the same order each time, and those given first stay.",
       {"components-walk"},
       [](session_t* session) {
         const std::vector<Component*> first = components_of(session);
         const std::vector<std::string> expected = ids(first);
         expect("components(), asked a second time,", expected, ids(session->tsd.components()));
         expect("what the first components() gave", expected, ids(first));
       }},
      {"components-members",
       "Of every component the three texts can be read and installCondition(), getSelected() (where the first is true) and subdir() can be called.",
       {"components-walk"},
       [](session_t* session) {
         for (Component* component : components_of(session)) {
           // Copies, so that every byte is read.
           [[maybe_unused]] const std::vector<std::string> texts{component->id, component->version,
                                                                 component->packageNumber};
           if (component->installCondition()) {  // the plug-in asks for the second only then
             component->getSelected();
           }
           component->subdir();
         }
       }},
      {"component-subdir",
       "subdir() of each component begins with \"/\", because nothing is put between it and VORN_INSTALL_DIR; a note where it does not.",
       {"components-members"},
       [](session_t* session) {
         for (Component* component : components_of(session)) {
           const std::string subdir = component->subdir();
           if (subdir.rfind('/', 0) != 0) {
             throw Noted("subdir() of the component " + quoted(component->id) + " gave " +
                         quoted(subdir) + ", which does not begin with \"/\"");
           }
         }
       }},
      {"component-version",
       "The version of each component is three decimal numbers, such as 5.0.3; a note where it is not.",
       {"components-members"},
       [](session_t* session) {
         for (const Component* component : components_of(session)) {
           if (!std::regex_match(component->version, std::regex("[0-9]+\\.[0-9]+\\.[0-9]+"))) {
             throw Noted("the version of the component " + quoted(component->id) + " is " +
                         quoted(component->version) + ", not three numbers such as 5.0.3");
           }
         }
       }},
  };
}

}  // namespace host_check

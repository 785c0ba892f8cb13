// Checks of the component registry, whatever components it holds.
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
  };
}

}  // namespace host_check

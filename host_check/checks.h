// The checks: one for each point of the contract.
#ifndef HOST_CHECK_CHECKS_H
#define HOST_CHECK_CHECKS_H

#include <vector>

#include "host/host.h"

namespace host_check {

struct Check {
  const char* name;
  const char* description;  // one sentence
  // Checks that come earlier and must be ok, because without them this one would blame the host a
  // second time for the same thing.
  std::vector<const char*> needs;
  // Returns when the host keeps the point, and throws Violated, Noted or Skipped (verdict.h), or
  // whatever a service of the host throws.
  void (*run)(session_t* session);
};

// All of them, in the order in which they run.
const std::vector<Check>& checks();

// Those of one group of services, each defined in the source file of its name.
std::vector<Check> log_checks();
std::vector<Check> variable_checks();
std::vector<Check> component_checks();
std::vector<Check> text_checks();
std::vector<Check> path_checks();
std::vector<Check> file_checks();
std::vector<Check> property_checks();
std::vector<Check> command_checks();

}  // namespace host_check

#endif

#include "host_check/checks.h"

namespace host_check {

static std::vector<Check> all_checks() {
  std::vector<Check> all;
  for (const auto group : {log_checks, variable_checks, component_checks, text_checks, path_checks,
                           file_checks, property_checks, command_checks}) {
    const std::vector<Check> more = group();
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

const std::vector<Check>& checks() {
  static const std::vector<Check> all = all_checks();
  return all;
}

}  // namespace host_check

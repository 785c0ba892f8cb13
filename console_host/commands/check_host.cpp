#include "console_host/commands/check_host.h"

#include "console_host/base/shared_library.h"
#include "console_host/commands/output.h"
#include "console_host/services/log.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

ExitCode run_host_check(const std::string& file) {
  const Library library("the host check", "libhost_check.so", file);
  const auto check_host =
      reinterpret_cast<int (*)(session_t*)>(library.function("check_host", "check_host"));
  // Two components, for the checks that need some.
  const Installation installation{
      {},
      {{"first", "1.2.3", "4", "/first", true, true}, {"second", "5.0.3", "42", "", true, false}}};
  Session session(installation);
  if (!is_quiet()) {
    log_to_standard_output();
  }
  const int violations = check_host(session.handle());
  say_always("host check: " + std::to_string(violations) +
             (violations == 1 ? " violation" : " violations"));
  return violations == 0 ? kDone : kNotDone;
}

}  // namespace ndk_integrate

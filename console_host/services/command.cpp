// The contract's service that runs commands.
#include "console_host/base/process.h"
#include "console_host/services/service_observer.h"
#include "host/host.h"

using ndk_integrate::ProcessResult;
using ndk_integrate::ServiceObserver;

// /bin/sh runs the command, its standard error merged into the output, its standard input empty.
// The exit status is kept for the report.
std::string get_command_output(std::string command, int* status, bool /*flag*/,
                               std::string /*text*/) {
  ServiceObserver* observer = ndk_integrate::service_observer();
  if (observer != nullptr && !observer->may_run(command)) {
    return "";
  }
  const ProcessResult result = ndk_integrate::run_process({"/bin/sh", "-c", command});
  if (observer != nullptr) {
    observer->ran(command, result);
  }
  if (status != nullptr) {
    *status = result.exit_status;
  }
  return result.output;
}

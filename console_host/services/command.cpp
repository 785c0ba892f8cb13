// The contract's service that runs commands.
#include <utility>

#include "console_host/base/interruption.h"
#include "console_host/base/process.h"
#include "console_host/services/service_observer.h"
#include "host/host.h"

using ndk_integrate::ProcessOptions;
using ndk_integrate::ProcessResult;
using ndk_integrate::ServiceObserver;

// /bin/sh runs the command, its standard error merged into the output, its standard input empty.
// The exit status is kept for the report. Of a long output the beginning and the end are answered.
std::string get_command_output(std::string command, int* status, bool /*flag*/,
                               std::string /*text*/) {
  ServiceObserver* observer = ndk_integrate::service_observer();
  if (observer != nullptr && !observer->may_run(command)) {
    return "";
  }
  ProcessOptions options;
  options.watcher = observer == nullptr ? nullptr : observer->watcher();
  ProcessResult result = ndk_integrate::run_process({"/bin/sh", "-c", command}, options);
  if (observer != nullptr) {
    observer->ran(command, result);
  }
  ndk_integrate::throw_if_interrupted();
  if (status != nullptr) {
    *status = result.exit_status;
  }
  return std::move(result.output);
}

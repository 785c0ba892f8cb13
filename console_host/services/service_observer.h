// Who is told what the services are asked while an entry point runs. The contract gives a service
// no session, so the plug-in's requests reach an installation only this way.
#ifndef CONSOLE_HOST_SERVICES_SERVICE_OBSERVER_H
#define CONSOLE_HOST_SERVICES_SERVICE_OBSERVER_H

#include <cstddef>
#include <string>

#include "console_host/base/process.h"

namespace ndk_integrate {

class ServiceObserver {
 public:
  ServiceObserver() = default;
  virtual ~ServiceObserver() = default;
  ServiceObserver(const ServiceObserver&) = delete;
  ServiceObserver& operator=(const ServiceObserver&) = delete;

  // `path` was asked for `path`, here in its normal form. What it is to answer.
  virtual std::string path_asked(const std::string& path) = 0;

  // `replaceAllSubstrings` replaced `from` in `line`, `count` times, and answers `result`.
  virtual void replaced(const std::string& line, const std::string& from, std::size_t count,
                        const std::string& result) = 0;

  // `file_move` moved a file to the name `to`, or failed to.
  virtual void moved(const std::string& to, bool done) = 0;

  // `error` was called: the plug-in could not open the file whose path it asked for last.
  virtual void open_failed() = 0;

  // `get_command_output` is to run `command`. False when it must not, and then answers "".
  virtual bool may_run(const std::string& command) = 0;

  // Who follows the command while it runs; null for nobody.
  virtual ProcessWatcher* watcher() { return nullptr; }

  // The command has ended.
  virtual void ran(const std::string& command, const ProcessResult& result) = 0;

  // `line` of the log as a person is to read it: with real names in place of those that
  // path_asked() made up.
  virtual std::string log_line(std::string line) const = 0;
};

// Makes `observer` the one that the services tell, as long as this object lives. Throws
// std::logic_error where there is one already: two runs at a time would mix up their files.
class ObservedServices {
 public:
  explicit ObservedServices(ServiceObserver& observer);
  ~ObservedServices();
  ObservedServices(const ObservedServices&) = delete;
  ObservedServices& operator=(const ObservedServices&) = delete;
};

// The observer that the services are to tell; null when there is none.
ServiceObserver* service_observer();

}  // namespace ndk_integrate

#endif

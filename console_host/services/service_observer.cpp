#include "console_host/services/service_observer.h"

#include <stdexcept>

namespace ndk_integrate {

namespace {

// The services get no session that it could hang on, so it is the process's.
ServiceObserver* current = nullptr;

}  // namespace

ObservedServices::ObservedServices(ServiceObserver& observer) {
  if (current != nullptr) {
    throw std::logic_error("the services are observed already");
  }
  current = &observer;
}

ObservedServices::~ObservedServices() { current = nullptr; }

ServiceObserver* service_observer() { return current; }

}  // namespace ndk_integrate

// A property file that was read already, for the contract's reader.
#ifndef CONSOLE_HOST_SERVICES_KNOWN_PROPERTIES_H
#define CONSOLE_HOST_SERVICES_KNOWN_PROPERTIES_H

#include <string>

#include "console_host/base/properties.h"

namespace ndk_integrate {

// While this object lives, IniDb answers for the file `file` of the directory `dir`, read with the
// separator "=", from `properties`, which has to live as long. So what is told of an NDK's revision
// and of its release comes from one and the same content, and the file is opened once. One at a
// time.
class KnownProperties {
 public:
  KnownProperties(const std::string& dir, const std::string& file, const Properties& properties);
  ~KnownProperties();
  KnownProperties(const KnownProperties&) = delete;
  KnownProperties& operator=(const KnownProperties&) = delete;
};

}  // namespace ndk_integrate

#endif

// The contract's reader of property files.
#include "console_host/base/properties.h"
#include "console_host/base/text.h"
#include "console_host/services/known_properties.h"
#include "host/host.h"

namespace ndk_integrate {

namespace {

// The contract gives the reader nothing but the names.
struct Known {
  std::string dir;
  std::string file;
  const Properties* properties = nullptr;
};

Known& known() {
  static Known known;
  return known;
}

Properties properties_of(const std::string& dir, const std::string& file,
                         const std::string& separator) {
  const Known& read = known();
  if (read.properties != nullptr && separator == "=" && file == read.file && dir == read.dir) {
    return *read.properties;
  }
  return read_properties(dir + "/" + file, separator);
}

}  // namespace

KnownProperties::KnownProperties(const std::string& dir, const std::string& file,
                                 const Properties& properties) {
  known() = {dir, file, &properties};
}

KnownProperties::~KnownProperties() { known() = {}; }

}  // namespace ndk_integrate

using ndk_integrate::Properties;

IniDb::IniDb(std::string dir, std::string file, std::string separator)
    : host_data(new Properties(ndk_integrate::properties_of(dir, file, separator))) {}

IniDb::~IniDb() { delete static_cast<Properties*>(host_data); }

// The key is trimmed as the file's keys are: the plug-in asks with a blank at its end.
std::string IniDb::value(std::string key) {
  const auto& properties = *static_cast<const Properties*>(host_data);
  const auto found = properties.find(ndk_integrate::trimmed(key));
  return found == properties.end() ? "" : found->second;
}

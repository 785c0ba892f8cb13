// The contract's reader of property files.
#include "console_host/base/properties.h"
#include "console_host/base/text.h"
#include "host/host.h"

using ndk_integrate::Properties;

IniDb::IniDb(std::string dir, std::string file, std::string separator)
    : host_data(new Properties(ndk_integrate::read_properties(dir + "/" + file, separator))) {}

IniDb::~IniDb() { delete static_cast<Properties*>(host_data); }

// The key is trimmed as the file's keys are: the plug-in asks with a blank at its end.
std::string IniDb::value(std::string key) {
  const auto& properties = *static_cast<const Properties*>(host_data);
  const auto found = properties.find(ndk_integrate::trimmed(key));
  return found == properties.end() ? "" : found->second;
}

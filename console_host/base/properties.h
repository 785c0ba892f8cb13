// Property files: lines of a key, a separator and a value, such as an NDK's source.properties.
#ifndef CONSOLE_HOST_BASE_PROPERTIES_H
#define CONSOLE_HOST_BASE_PROPERTIES_H

#include <map>
#include <string>

namespace ndk_integrate {

// The values by key, both without the blanks around them. The first line of a key counts; lines
// that begin with "#" or "!" are comments.
using Properties = std::map<std::string, std::string>;

// The properties in the file named `file`. One that cannot be read whole has none, nor has a
// pipe or a device, which may have no end.
Properties read_properties(const std::string& file, const std::string& separator);

// The properties in `text`, the content of such a file.
Properties parse_properties(const std::string& text, const std::string& separator);

}  // namespace ndk_integrate

#endif

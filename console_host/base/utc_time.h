// The time of day.
#ifndef CONSOLE_HOST_BASE_UTC_TIME_H
#define CONSOLE_HOST_BASE_UTC_TIME_H

#include <string>

namespace ndk_integrate {

// What time it is, as "2026-11-21T20:09:34Z".
std::string utc_time();

}  // namespace ndk_integrate

#endif

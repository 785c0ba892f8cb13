// What is wrong with an NDK and yet no reason to reject it.
#ifndef CONSOLE_HOST_NDK_NDK_NOTES_H
#define CONSOLE_HOST_NDK_NDK_NOTES_H

#include <string>
#include <vector>

#include "console_host/ndk/judgement.h"

namespace ndk_integrate {

// Adds the notes on the NDK in `dir`, an absolute path, which has the status `status`, to `notes`.
// With `read_only` the plug-in did not look whether it can be written to; one that cannot is noted.
void add_notes(const std::string& dir, const NdkFacts& facts, Status status, bool read_only,
               std::vector<Note>& notes);

}  // namespace ndk_integrate

#endif

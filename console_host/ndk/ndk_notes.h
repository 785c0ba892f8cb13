// What is wrong with an NDK and yet no reason to reject it.
#ifndef CONSOLE_HOST_NDK_NDK_NOTES_H
#define CONSOLE_HOST_NDK_NDK_NOTES_H

#include <string>
#include <vector>

#include "console_host/ndk/judgement.h"

namespace ndk_integrate {

// Adds the notes on the NDK in `dir`, an absolute path, to `notes`. With `read_only` one that cannot
// be written to was accepted, and is noted.
void add_notes(const std::string& dir, const NdkFacts& facts, bool read_only,
               std::vector<Note>& notes);

}  // namespace ndk_integrate

#endif

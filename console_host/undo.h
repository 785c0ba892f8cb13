// The command `ndk-integrate undo`.
#ifndef CONSOLE_HOST_UNDO_H
#define CONSOLE_HOST_UNDO_H

#include "console_host/errors.h"
#include "console_host/installation.h"
#include "console_host/plugin.h"

// Puts back the originals of all files that installations changed in the compiler. Tells what it
// did on standard output, in lines or as one JSON object. Returns kDone, also when there is nothing to undo, or kNotDone.
ExitCode undo(const Plugin& plugin, const Installation& installation, bool json);

#endif

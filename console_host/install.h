// The command `ndk-integrate install`.
#ifndef CONSOLE_HOST_INSTALL_H
#define CONSOLE_HOST_INSTALL_H

#include "console_host/errors.h"
#include "console_host/installation.h"
#include "console_host/plugin.h"

// Runs the installation as an installer would: finds the NDK, asks whether integration is wanted,
// integrates. Tells each step in a line on standard output, and on standard error why it stopped.
// Returns kDone or kNotDone.
ExitCode install(const Plugin& plugin, const Installation& installation);

#endif

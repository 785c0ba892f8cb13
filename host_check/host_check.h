// The host check, libhost_check.so: a library that any host loads exactly as it loads the plug-in,
// to learn where it breaks the contract in host/host.h.
#ifndef HOST_CHECK_HOST_CHECK_H
#define HOST_CHECK_HOST_CHECK_H

#include "host/host.h"

// Tries out every service of the host that the plug-in relies on, and returns how many points the
// host breaks. It reports through print_log, two lines a check: "HOST_CHECK: NAME: checking", so
// that a crash names its cause, then one of
//
//   HOST_CHECK: NAME: ok
//   HOST_CHECK: NAME: violated: WHAT WAS EXPECTED, WHAT CAME
//   HOST_CHECK: NAME: note: WHAT IS NO VIOLATION, BUT PROBABLY NOT MEANT
//   HOST_CHECK: NAME: skipped: WHY
//
// Session variables and the working directory are put back; files are made in TMPDIR (or /tmp) only
// and are removed. Notes are not counted.
// Nothing is printed but through the host's services. Where the environment variable HOST_CHECK_LOG
// names the file of the host's log, the check looks there for its own lines. It throws nothing,
// whatever the host's services throw.
extern "C" int check_host(session_t* session);

#endif

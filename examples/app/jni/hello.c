/* The nox compiler says its version in __NOX_VERSION__. */
#ifndef __NOX_VERSION__
#define __NOX_VERSION__ "(no, by another compiler)"
#endif

const char *compiled_by(void) { return "compiled by nox " __NOX_VERSION__; }

// The old layout counts the owners of a string, and libstdc++'s headers ask the C library's
// __libc_single_threaded whether plain counting is enough, which no C library before 2.32 has. The
// plug-in brings its own, hidden one: it always counts as threads need it, and loads anywhere.
#include <string>

#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the C library's
extern "C" __attribute__((visibility("hidden"))) char __libc_single_threaded;
char __libc_single_threaded = 0;
#endif

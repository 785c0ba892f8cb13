// What a fuzz target finds wrong ends the run; libFuzzer then shows the input and keeps it.
#ifndef FUZZ_EXPECT_H
#define FUZZ_EXPECT_H

#include <cstddef>
#include <string>
#include <vector>

// Ends the run with `what` unless `holds`.
void expect(bool holds, const char* what);

// Ends the run unless both are the same, and prints both, escaped, a line an element.
void expect_same(const char* what, const std::vector<std::string>& expected,
                 const std::vector<std::string>& came);

// How many file descriptors are open.
std::size_t open_descriptors();

// What a "%s" prints of `text`.
inline std::string as_printed(const std::string& text) { return text.substr(0, text.find('\0')); }

#endif

// What the program tells the person at the terminal, and the program that reads its standard
// output.
#ifndef CONSOLE_HOST_COMMANDS_OUTPUT_H
#define CONSOLE_HOST_COMMANDS_OUTPUT_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace ndk_integrate {

using Json = nlohmann::ordered_json;

// From now on say() prints nothing.
void be_quiet();
bool is_quiet();

// A line on standard output about a step. Line ends and control characters in it are escaped, here
// and below.
void say(const std::string& line);

// A line on standard output that is printed even when quiet.
void say_always(const std::string& line);

// A line on standard error about what begins and takes a while. Nothing when quiet.
void tell_progress(const std::string& line);

// `text` on standard output as it stands.
void print(const std::string& text);

// `text`, or null.
Json optional_text(const std::optional<std::string>& text);

// One JSON object on standard output. What is not UTF-8 in it is written as utf8_text() does.
void say_json(const Json& object);

// A line on standard error: what went wrong.
void complain(const std::string& what);

}  // namespace ndk_integrate

#endif

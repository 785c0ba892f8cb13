#include "console_host/commands/output.h"

#include <iostream>

#include "console_host/base/escaping.h"

namespace ndk_integrate {

namespace {

// The terminal is the process's, and so is what -q says about it.
bool quiet = false;

// The texts in `value` as utf8_text() writes them.
Json in_utf8(const Json& value) {
  if (value.is_string()) {
    return utf8_text(value.get_ref<const std::string&>());
  }
  Json result = value;
  if (value.is_structured()) {
    for (Json& part : result) {
      part = in_utf8(part);
    }
  }
  return result;
}

}  // namespace

void be_quiet() { quiet = true; }
bool is_quiet() { return quiet; }

void say(const std::string& line) {
  if (!quiet) {
    say_always(line);
  }
}

void say_always(const std::string& line) { std::cout << one_line(line) << std::endl; }

void tell_progress(const std::string& line) {
  if (!quiet) {
    std::cerr << one_line(line) << std::endl;
  }
}

void print(const std::string& text) { std::cout << text << std::flush; }

Json optional_text(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json(nullptr);
}

void say_json(const Json& object) { std::cout << in_utf8(object).dump() << std::endl; }

void complain(const std::string& what) {
  std::cerr << "ndk-integrate: " << one_line(what) << std::endl;
}

}  // namespace ndk_integrate

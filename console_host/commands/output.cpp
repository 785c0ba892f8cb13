#include "console_host/commands/output.h"

#include <iostream>

#include "console_host/base/escaping.h"

namespace ndk_integrate {

namespace {

// The terminal is the process's, and so is what -q says about it.
bool quiet = false;

// Writes the texts in `value` as utf8_text() does.
void make_utf8(Json& value) {
  if (value.is_string()) {
    value = utf8_text(value.get_ref<const std::string&>());
  } else if (value.is_structured()) {
    for (Json& part : value) {
      make_utf8(part);
    }
  }
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

void say_json(Json object) {
  make_utf8(object);
  std::cout << object.dump() << std::endl;
}

void complain(const std::string& what) {
  std::cerr << "ndk-integrate: " << one_line(what) << std::endl;
}

}  // namespace ndk_integrate

#include "console_host/commands/output.h"

#include <iostream>

#include "console_host/base/escaping.h"

namespace ndk_integrate {

namespace {

// The terminal is the process's, and so is what -q says about it.
bool quiet = false;

// In pieces: written as JSON a text may be several times as long.
void write_json_text(const std::string& text) {
  std::cout << '"';
  for (std::size_t begin = 0; begin < text.size(); begin = end_of_piece(text, begin)) {
    const std::string piece = text.substr(begin, end_of_piece(text, begin) - begin);
    const std::string quoted = Json(utf8_text(piece)).dump();
    std::cout.write(quoted.data() + 1, static_cast<std::streamsize>(quoted.size() - 2));
  }
  std::cout << '"';
}

void write_json(const Json& value) {
  if (value.is_string()) {
    write_json_text(value.get_ref<const std::string&>());
  } else if (value.is_structured()) {
    const char* separator = "";
    std::cout << (value.is_object() ? '{' : '[');
    for (const auto& [key, part] : value.items()) {
      std::cout << separator;
      if (value.is_object()) {
        std::cout << '"' << key << "\":";
      }
      write_json(part);
      separator = ",";
    }
    std::cout << (value.is_object() ? '}' : ']');
  } else {
    std::cout << value.dump();
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

void say_json(const Json& object) {
  write_json(object);
  std::cout << std::endl;
}

void complain(const std::string& what) {
  std::cerr << "ndk-integrate: " << one_line(what) << std::endl;
}

}  // namespace ndk_integrate

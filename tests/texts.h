// Texts, and what tests read as one: files and the output of commands.
#ifndef TESTS_TEXTS_H
#define TESTS_TEXTS_H

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

inline bool begins_with(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

inline bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Every `from`, which is not "", replaced by `to`.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

inline Lines lines_of(const std::string& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

inline std::string content_of(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot open " + file);
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::string read_all(FILE* pipe) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (std::size_t size; (size = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
    text.append(buffer.data(), size);
  }
  return text;
}

// What a command of the shell printed, and its exit status.
struct ShellResult {
  std::string output;
  int exit_status;
};

inline ShellResult shell(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    throw std::runtime_error("cannot run " + command);
  }
  const std::string output = read_all(pipe);
  return {output, WEXITSTATUS(pclose(pipe))};
}

#endif

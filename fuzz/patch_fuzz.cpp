// Any file and placeholder, through patch_text_file on real files.
// Input: a letter for the state of the disk, a digit (n: the content 2^n times), then
// FROM|TO|CONTENT.
#include <algorithm>
#include <map>

#include "fuzz/expect.h"
#include "fuzz/fuzz_host.h"
#include "ndk_utils/ndk_utils.h"
#include "tests/temporary_directory.h"

namespace {

// What the letter says of the disk; any other letter, "f" say: the file, and nothing else.
enum Disk : char {
  file_missing = 'm',
  file_is_directory = 'd',
  old_copy = 'o',           // an old copy lies there, longer than most
  copy_is_directory = 'c',  // so the copy cannot be opened
  no_move = 'n'             // file_move fails
};

using Files = std::map<std::string, std::string>;

// The files in `directory` by name, with their content; a directory has the content "directory".
Files files_in(const std::string& directory) {
  Files result;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.is_directory()) {
      result[entry.path().filename()] = "directory";
      continue;
    }
    std::ifstream in(entry.path(), std::ios::binary);
    result[entry.path().filename()] = {std::istreambuf_iterator<char>(in),
                                       std::istreambuf_iterator<char>()};
  }
  return result;
}

Files before(Disk disk, const std::string& content) {
  switch (disk) {
    case file_missing:
      return {};
    case file_is_directory:
      return {{"file", "directory"}};
    case old_copy:
      return {{"file", content}, {"file.tmp", std::string(10000, 'x')}};
    case copy_is_directory:
      return {{"file", content}, {"file.tmp", "directory"}};
    case no_move:
      break;
  }
  return {{"file", content}};
}

void lay_out(const TemporaryDirectory& directory, const Files& files) {
  for (const auto& [name, content] : files) {
    if (content == "directory") {
      std::filesystem::create_directory(directory.path() + "/" + name);
    } else {
      directory.write("/" + name, content);
    }
  }
}

std::string replaced(const std::string& line, const std::string& from, const std::string& to) {
  std::string result;
  for (std::size_t at = 0; at < line.size();) {
    const bool here = !from.empty() && line.compare(at, from.size(), from) == 0;
    if (here) {
      result += to;
      at += from.size();
    } else {
      result += line[at++];
    }
  }
  return result;
}

// Each line of `content` with its replacements and one line end, and one empty line more.
std::string patched(const std::string& content, const std::string& from, const std::string& to) {
  std::string result;
  std::string line;
  for (const char c : content) {
    if (c != '\n') {
      line += c;
      continue;
    }
    result += replaced(line, from, to) + "\n";
    line.clear();
  }
  if (!line.empty()) {
    result += replaced(line, from, to) + "\n";
  }
  return result + "\n";
}

Files after(Disk disk, Files files, const std::string& from, const std::string& to) {
  switch (disk) {
    case file_missing:
    case copy_is_directory:
      return files;
    case file_is_directory:
      files["file.tmp"] = "\n";
      return files;
    case no_move:
      files["file.tmp"] = patched(files["file"], from, to);
      return files;
    case old_copy:
      break;
  }
  return {{"file", patched(files["file"], from, to)}};
}

std::vector<std::string> said(Disk disk, const std::string& file) {
  switch (disk) {
    case file_missing:
      return {"error: patch_text_file: cannot open input stream of file " + file};
    case copy_is_directory:
      return {"error: patch_text_file: cannot open output stream of file " + file + ".tmp"};
    default:
      return {"move: " + file + ".tmp to " + file};
  }
}

std::vector<std::string> lines(std::vector<std::string> record, const Files& files) {
  for (const auto& [name, content] : files) {
    record.push_back(name + ": " + content);
  }
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Disk disk = static_cast<Disk>(input.byte());
  const int doublings = std::clamp(input.byte() - '0', 0, 9);
  const std::string from = input.text();
  const std::string to = input.text();
  std::string content = input.rest();
  for (int n = 0; n < doublings && content.size() < 20000; ++n) {
    content += content;
  }

  const TemporaryDirectory directory;
  const std::string file = directory.path() + "/file";
  const Files files = before(disk, content);
  lay_out(directory, files);
  FuzzHost host(0);
  host.moves_files = disk != no_move;
  const std::size_t descriptors = open_descriptors();

  patch_text_file(file, from, to);

  expect(open_descriptors() == descriptors, "no file is left open");
  expect_same("patch_text_file", lines(said(disk, file), after(disk, files, from, to)),
              lines(host.record, files_in(directory.path())));
  return 0;
}

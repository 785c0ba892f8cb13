// Checks of the file services, each on names that went through path() first, as the plug-in does
// it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace host_check {

namespace {

void expect_truth(const std::string& call, bool expected, int came) {
  if ((came != 0) != expected) {
    throw Violated(call + " should give " + (expected ? "a value other than 0" : "0"),
                   "it gave " + std::to_string(came));
  }
}

void expect_file_exists(const std::string& name, bool expected) {
  const std::string file = path(name);
  expect_truth("file_exists(" + quoted(file) + ", false)", expected, file_exists(file, false));
}

void expect_writable(const std::string& name, bool expected) {
  const std::string directory = path(name);
  expect_truth("is_writable(" + quoted(directory) + ")", expected, is_writable(directory));
}

// A file that is moved over another one, as a patched file is: the copy lies beside it.
struct Move {
  std::string from;
  std::string to;
  std::string call;

  explicit Move(const std::string& file) {
    write_file(file, "old");
    to = path(file);
    from = to + ".tmp";
    write_file(from, "new");
    file_move(from, to);
    call = "file_move(" + quoted(from) + ", " + quoted(to) + ")";
  }

  void expect_replaced() const {
    const std::string content = read_file(to);
    if (content != "new") {
      throw Violated("after " + call + " the second file should hold \"new\"",
                     "it holds " + quoted(content));
    }
  }
};

}  // namespace

std::vector<Check> file_checks() {
  return {
      {"file-exists",
       "file_exists is true for a file, be it empty or not.",
       {"path-of-file"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/ndk-build", "");
         write_file(scratch.name() + "/source.properties", "Pkg.Desc = Android NDK\n");
         expect_file_exists(scratch.name() + "/ndk-build", true);
         expect_file_exists(scratch.name() + "/source.properties", true);
       }},
      {"file-exists-missing",
       "file_exists is false for a name that is not there, whatever similar names are.",
       {"path-of-missing-file"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/ndk-build.cmd", "");
         expect_file_exists(scratch.name() + "/ndk-build", false);
       }},
      {"file-exists-missing-directory",
       "file_exists is false for a file in a directory that is not there.",
       {"path-of-missing-file"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         expect_file_exists(scratch.name() + "/none/ndk-build", false);
       }},
      {"file-exists-unreadable",
       "file_exists returns for a file that cannot be looked at, as behind a link that leads to itself.",
       {"path-of-unreadable", "file-exists-missing", "file-exists-missing-directory"},
       [](session_t* /*session*/) {
         const UnreadableDirectories unreadable;
         for (const std::string& directory : unreadable.names()) {
           const std::string file = path(directory + "/ndk-build");
           expect_return("file_exists(" + quoted(file) + ", false)",
                         [&file] { file_exists(file, false); });
         }
       }},
      {"is-writable",
       "is_writable is true for a directory in which this user may make files.",
       {"path-of-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         expect_writable(scratch.make_directory("/ndk"), true);
       }},
      {"is-writable-read-only",
       "is_writable is false for a read-only directory (skipped for root, who may write there).",
       {"path-of-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const std::string directory = scratch.make_directory("/ndk");
         chmod(directory.c_str(), 0555);
         if (faccessat(AT_FDCWD, directory.c_str(), W_OK, AT_EACCESS) == 0) {
           throw Skipped("this user may write to read-only directories, as root may");
         }
         expect_writable(directory, false);
       }},
      {"is-writable-unreadable",
       "is_writable returns for a directory that cannot be looked at, as behind a link that leads to itself.",
       {"path-of-unreadable"},
       [](session_t* /*session*/) {
         const UnreadableDirectories unreadable;
         for (const std::string& name : unreadable.names()) {
           for (const std::string& directory : {path(name), path(name + "/ndk")}) {
             expect_return("is_writable(" + quoted(directory) + ")",
                           [&directory] { is_writable(directory); });
           }
         }
       }},
      {"file-move-replaces",
       "file_move puts a file in the place of another.",
       {"path-of-file"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         Move(scratch.name() + "/setup.mk").expect_replaced();
       }},
      {"file-move-takes-source",
       "file_move leaves nothing under the old name.",
       {"file-move-replaces"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const Move move(scratch.name() + "/setup.mk");
         if (is_there(move.from)) {
           throw Violated("after " + move.call + " the first file should be gone",
                          "it is still there");
         }
       }},
      {"file-move-blanks",
       "file_move takes names that hold blanks.",
       {"file-move-replaces", "path-with-blanks"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         Move(scratch.make_directory("/my compiler") + "/a file").expect_replaced();
       }},
  };
}

}  // namespace host_check

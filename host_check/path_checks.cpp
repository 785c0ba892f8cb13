// Checks of path(): what it answers is only opened, never compared with what it was asked, because
// a host may answer with any name that leads to the same thing.
#include <unistd.h>

#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace host_check {

namespace {

constexpr const char* kContent = "the content of the file";

void expect_leads_to_file(const std::string& asked, const std::string& answer) {
  if (read_file(answer) != kContent) {
    throw Violated(asked + " should lead to the file of that name",
                   "it gave " + quoted(answer) + ", which does not");
  }
}

void expect_path_leads_to_file(const std::string& file) {
  write_file(file, kContent);
  expect_leads_to_file("path(" + quoted(file) + ")", path(file));
}

}  // namespace

std::vector<Check> path_checks() {
  return {
      {"path-of-file",
       "What path answers for a file opens that file.",
       {},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         expect_path_leads_to_file(scratch.name() + "/source.properties");
       }},
      {"path-of-directory",
       "What path answers for a directory leads to that directory.",
       {},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const std::string directory = scratch.make_directory("/android");
         write_file(directory + "/here", kContent);
         const std::string answer = path(directory);
         // The plug-in both goes to the directory and joins names to its name.
         const Stay stay(scratch.name());
         if (chdir(answer.c_str()) != 0 || read_file("here") != kContent) {
           throw Violated(
               "path(" + quoted(directory) + ") should lead to the directory of that name",
               "it gave " + quoted(answer) + ", which does not");
         }
       }},
      {"path-with-blanks",
       "path takes names that hold blanks.",
       {"path-of-file"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         expect_path_leads_to_file(scratch.make_directory("/my ndk") + "/a file");
       }},
      {"path-of-path",
       "path takes a name that was built on one of its own answers.",
       {"path-of-file", "path-of-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const std::string directory = scratch.make_directory("/android");
         write_file(directory + "/setup.mk", kContent);
         const std::string file = path(directory) + "/setup.mk";
         expect_leads_to_file("path(" + quoted(file) + "), of a path's own answer,", path(file));
       }},
      {"path-of-missing-file",
       "path returns for a file or a directory that is not there.",
       {},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         path(scratch.name() + "/none");
         path(scratch.name() + "/no directory/none");
       }},
      {"path-of-unreadable",
       "path returns for what cannot be looked at: behind a link that leads to itself, or in a directory that may not be entered.",
       {"path-of-missing-file", "path-of-path"},
       [](session_t* /*session*/) {
         const UnreadableDirectories unreadable;
         for (const std::string& directory : unreadable.names()) {
           for (const std::string& name : {directory, directory + "/source.properties"}) {
             expect_return("path(" + quoted(name) + ")", [&name] { path(name); });
           }
         }
       }},
      {"path-of-empty-text",
       "path returns for the empty text, which it gets where NDK_PATH is not set.",
       {},
       [](session_t* /*session*/) { path(""); }},
  };
}

}  // namespace host_check

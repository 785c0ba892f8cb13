// Checks of the reader of property files.
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

constexpr const char* kFile = "source.properties";
constexpr const char* kOlderNdk = "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.2725575\n";
constexpr const char* kNewerNdk =
    "Pkg.Desc = Android NDK\nPkg.Revision = 29.0.14033849-beta4\n"
    "Pkg.BaseRevision = 29.0.14033849\nPkg.ReleaseName = r29-beta4\n";

// What a reader tells of the release of the NDK in `directory`, asked as the plug-in asks.
std::string revision_in(const std::string& directory) {
  return IniDb(path(directory), kFile, "=").value("Pkg.Revision ");
}

// Blanks around the value may stay.
std::string trimmed(const std::string& text) {
  const char* const blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void expect_revision(const std::string& directory, const std::string& expected) {
  expect("value(\"Pkg.Revision \") of " + quoted(directory + "/" + kFile) +
             ", blanks around it aside,",
         expected, trimmed(revision_in(directory)));
}

}  // namespace

std::vector<Check> property_checks() {
  return {
      {"property-value",
       "IniDb finds the key \"Pkg.Revision \", with the blank at its end, in a source.properties as NDKs have it.",
       {"path-of-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/" + kFile, kOlderNdk);
         expect_revision(scratch.name(), "11.2.2725575");
       }},
      {"property-missing-key",
       "IniDb returns something, whatever it is, for a key that the file does not have.",
       {"path-of-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/" + kFile, "Pkg.Desc = Android NDK\n");
         revision_in(scratch.name());
       }},
      {"property-unreadable-file",
       "IniDb takes a file that cannot be read for one without keys (skipped for root, who may read everything).",
       {"path-of-directory", "property-missing-key"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const std::string file = scratch.name() + "/" + kFile;
         write_file(file, kOlderNdk);
         chmod(file.c_str(), 0);
         if (faccessat(AT_FDCWD, file.c_str(), R_OK, AT_EACCESS) == 0) {
           throw Skipped("this user may read every file, as root may");
         }
         revision_in(scratch.name());
       }},
      {"property-unreadable-directory",
       "IniDb takes a file that cannot be reached, or that is a directory, for one without keys.",
       {"path-of-unreadable", "property-missing-key"},
       [](session_t* /*session*/) {
         const UnreadableDirectories unreadable;
         const ScratchDirectory scratch;
         scratch.make_directory(std::string("/") + kFile);
         std::vector<std::string> directories = unreadable.names();
         directories.push_back(scratch.name());
         for (const std::string& directory : directories) {
           expect_return("value(\"Pkg.Revision \") of " + quoted(directory + "/" + kFile),
                         [&directory] { revision_in(directory); });
         }
       }},
      {"property-each-file",
       "Each IniDb tells the values of its own file.",
       {"property-value"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const std::string older = scratch.make_directory("/older");
         const std::string newer = scratch.make_directory("/newer");
         write_file(older + "/" + kFile, kOlderNdk);
         write_file(newer + "/" + kFile, kNewerNdk);
         expect_revision(older, "11.2.2725575");
         expect_revision(newer, "29.0.14033849-beta4");
       }},
      {"release-numbers",
       "IniDb, splitString and strtoint work together: the release 11.2.2725575 gives the numbers 11 and 2, with whatever blanks IniDb leaves.",
       {"property-value", "split-version", "split-inner-blanks", "strtoint-decimals"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/" + kFile, kOlderNdk);
         const std::vector<std::string> pieces =
             splitString(revision_in(scratch.name()), ".", false);
         if (pieces.size() < 2) {
           throw Violated("a release read by value() and split at \".\" should give its numbers",
                          "it gave " + quoted(pieces));
         }
         expect("strtoint(" + quoted(pieces[0]) + "), as value() and splitString leave the text,",
                11, strtoint(pieces[0]));
         expect("strtoint(" + quoted(pieces[1]) + "), as value() and splitString leave the text,",
                2, strtoint(pieces[1]));
       }},
  };
}

}  // namespace host_check

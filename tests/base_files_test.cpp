// The files of console_host/base and what console_host/package makes of them, one by one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "console_host/base/directory.h"
#include "console_host/base/file.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/system_call.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/lock.h"
#include "console_host/package/manifest.h"
#include "console_host/package/quoting.h"
#include "console_host/package/reinstalled.h"
#include "console_host/package/store.h"
#include "tests/temporary_directory.h"

namespace ndk_integrate {

namespace {

namespace fs = std::filesystem;

// A directory with "in/file", and the ways out of it that there are.
class Beneath : public testing::Test {
 protected:
  Beneath() : root(made(top)) {}

  // The directory to look below.
  static std::string made(const TemporaryDirectory& top) {
    fs::create_directories(top.path() + "/root/in");
    fs::create_directories(top.path() + "/rootless");
    std::ofstream(top.path() + "/root/in/file") << "text\n";
    std::ofstream(top.path() + "/rootless/file") << "outside\n";
    fs::create_symlink("../rootless", top.path() + "/root/out");
    fs::create_symlink("in", top.path() + "/root/link");
    fs::create_symlink("file", top.path() + "/root/in/link");
    EXPECT_EQ(mkfifo((top.path() + "/root/in/pipe").c_str(), 0600), 0);
    return top.path() + "/root";
  }

  TemporaryDirectory top;
  Directory root;
};

TEST_F(Beneath, DirectoriesBelow) {
  EXPECT_EQ(root.find_directory("in")->name(), top.path() + "/root/in");
  EXPECT_FALSE(root.find_directory("missing"));
  EXPECT_FALSE(root.find_directory("in/file"));
}

TEST_F(Beneath, NoWayOut) {
  for (const char* way : {"out", "link", "..", "in/../../rootless", "out/..", "/"}) {
    EXPECT_THROW(root.find_directory(way), std::runtime_error) << way;
  }
}

TEST_F(Beneath, OrdinaryFilesOnly) {
  const Directory in = *root.find_directory("in");
  EXPECT_EQ(in.find_file("file")->read(), "text\n");
  EXPECT_FALSE(in.find_file("missing"));
  for (const char* odd : {"link", "pipe", "."}) {
    EXPECT_THROW(in.find_file(odd), NotOrdinaryFile) << odd;
  }
  EXPECT_THROW(read_whole_file(top.path() + "/root/in/pipe"), NotOrdinaryFile);
  EXPECT_THROW(read_whole_file("/dev/zero"), NotOrdinaryFile);
}

TEST_F(Beneath, SiblingWithTheSameBeginning) {
  EXPECT_TRUE(is_below(top.path() + "/root/in", top.path() + "/root"));
  EXPECT_FALSE(is_below(top.path() + "/rootless/file", top.path() + "/root"));
  EXPECT_FALSE(is_below(top.path() + "/root", top.path() + "/root"));
}

TEST_F(Beneath, WhatCannotBeToldIsNotMissing) {
  const std::string name(300, 'a');  // longer than the system takes
  EXPECT_THROW(root.status_of(name), std::system_error);
  EXPECT_THROW(root.find_file(name), std::system_error);
  EXPECT_THROW(root.find_directory(name), std::system_error);
  EXPECT_THROW(root.remove_file(name), std::system_error);
  EXPECT_THROW(root.remove_directory(name), std::system_error);
  EXPECT_THROW(root.exchange(name, root, name), std::system_error);
  EXPECT_THROW(find_status(root.name_of(name)), std::system_error);
}

TEST_F(Beneath, NewFilesAndDirectoriesAreTheOwners) {
  const mode_t before = umask(0777);  // which takes every bit away where none is set
  root.make_file("new", "new").write("text\n", "new");
  root.make_directory("made");
  umask(before);
  EXPECT_EQ(root.status_of("new")->st_mode & 07777U, 0600U);
  EXPECT_EQ(root.status_of("made")->st_mode & 07777U, 0700U);
  EXPECT_THROW(root.make_file("new", "new"), std::runtime_error);
  EXPECT_FALSE(root.make_directory("made"));
}

TEST_F(Beneath, MovedUnlessTaken) {
  const Directory in = *root.find_directory("in");
  root.make_file("one", "one").write("1", "one");
  EXPECT_FALSE(root.move_unless_taken("one", in, "file"));
  EXPECT_FALSE(root.move_unless_taken("one", in, "link"));
  EXPECT_TRUE(root.move_unless_taken("one", in, "two"));
  EXPECT_EQ(in.find_file("two")->read(), "1");
}

TEST_F(Beneath, Exchanged) {
  const Directory in = *root.find_directory("in");
  root.make_file("one", "one").write("1", "one");
  EXPECT_EQ(root.exchange("one", in, "missing"), Directory::Exchange::kMissing);
  if (root.exchange("one", in, "file") == Directory::Exchange::kNotPossible) {
    GTEST_SKIP() << "this file system cannot exchange files";
  }
  EXPECT_EQ(root.find_file("one")->read(), "text\n");
  EXPECT_EQ(in.find_file("file")->read(), "1");
}

// A file of which the system gives a page at a time.
TEST(Reading, GoesOnToTheEnd) { EXPECT_GT(read_whole_file("/proc/self/smaps").size(), 10000U); }

// --- The store ---

// An original is kept, and then the manifest cannot be written or put away.
class Uncertain : public testing::Test {
 protected:
  Uncertain() { store.keep(file, {"text\n", 0644, false}); }

  std::size_t originals() const {
    const fs::directory_iterator entries(store.directory() + "/originals");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

  TemporaryDirectory top;
  std::string file = top.path() + "/file";
  CompilerTree tree{top.path()};
  Lock lock{tree, Store::kDirectory};
  Store store{tree, &lock};
};

TEST_F(Uncertain, ManifestNotWritten) {
  const std::string in_the_way = store.directory() + "/manifest.json.new";
  fs::create_directory(in_the_way);
  EXPECT_THROW(store.keep(file + "2", {"other text\n", 0644, false}), std::runtime_error);
  fs::remove(in_the_way);
  EXPECT_EQ(store.all_files(), std::vector<std::string>{file});
  EXPECT_FALSE(store.is_certain());
  store.clean();
  EXPECT_EQ(originals(), 2U);
}

TEST_F(Uncertain, ManifestNotPutAway) {
  fs::create_directories(store.directory() + "/manifest.undone/in the way");
  EXPECT_THROW(store.forget("1", {}), std::runtime_error);
  EXPECT_FALSE(store.is_certain());
  store.clean();
  EXPECT_EQ(originals(), 1U);
}

// --- Reinstalled or edited ---

TEST(Reinstalled, OrEdited) {
  const std::string original = "# head\nndk='<NDK_DIR>'\n<NDK_DIR>\n";
  const std::string result = "# head\nndk='/ndk'\n/ndk\n\n";
  const auto filled = filled_lines(original, result);
  const std::vector<std::pair<std::string, bool>> rows = {
      {"# another head\nndk='<NDK_DIR>'\n<NDK_DIR>\nmore\n", true},
      {"ndk='<NDK_DIR>'\n<NDK_DIR>\n", true},
      {"another_ndk='<NDK_DIR>' # with a comment\n<NDK_DIR>\n", true},
      {"see <NDK_DIR>\nand <NDK_DIR>\n", false},
      {result + "# see <NDK_DIR>\n", false},         // begins with our result
      {result + original, false},                    // even so
      {"# <NDK_DIR>\nndk='/ndk'\n/ndk\n\n", false},  // differs from it in some lines
      {"# head\nndk='/ndk'\n<NDK_DIR>\n", false},    // one of two
      {"ndk='/mine'\nndk='<NDK_DIR>'\n<NDK_DIR>\n", false},
      {"<NDK_DIR>\n", true},  // another edition that needs it once
      {"", false},
  };
  for (const auto& [bytes, expected] : rows) {
    EXPECT_EQ(is_reinstalled(bytes, original, {"<NDK_DIR>"}, filled), expected) << bytes;
  }
}

// --- The manifest ---

TEST(ManifestText, ComesBack) {
  Manifest manifest;
  const std::string hash(64, 'a');
  manifest.files["in/file"] = {hash, 0644, {hash}, {"<NDK_DIR>"}, {hash}, {"5.0.3.42"}};
  manifest.installations["5.0.3.42"] = {"5.0.3.42", "/ndk", {}, "nox", "now", true};
  EXPECT_EQ(text_of(parse_manifest(text_of(manifest))), text_of(manifest));
}

TEST(ManifestText, Damaged) {
  const std::string hash = "\"" + std::string(64, 'a') + "\"";
  const auto with_file = [&](const std::string& path) {
    return R"({"schema":1,"files":{")" + path + R"(":{"original":)" + hash +
           R"(,"mode":"644","results":[],"placeholders":[]}}})";
  };
  EXPECT_NO_THROW(parse_manifest(with_file("in/file")));
  for (const char* path :
       {"", "/file", "../file", "in/../../file", "in/..", "in//file", "in/./file", "in/",
        R"(in\u0000/file)", ".ndk-integrate/manifest.json"}) {
    EXPECT_ANY_THROW(parse_manifest(with_file(path))) << path;
  }
  for (const char* text :
       {"", "{}", "null", "[]", R"({"schema":1})", R"({"schema":1,"files":null})",
        R"({"schema":1,"files":[]})", R"({"schema":1,"files":""})", R"({"schema":2,"files":{}})",
        R"({"schema":1,"files":{"a":null}})", R"({"schema":1,"files":{"a":[]}})",
        R"({"schema":1,"files":{},"installations":null})",
        R"({"schema":1,"files":{},"installations":[]})"}) {
    EXPECT_ANY_THROW(parse_manifest(text)) << text;
  }
}

// --- Quoting ---

TEST(Quoting, WhatTheShellTakesForItsOwn) {
  const auto surprises = [](const std::string& file, const std::string& line,
                            const std::string& ndk) {
    return !quoting_surprise(file, line + "\n", "<NDK_DIR>", ndk).empty();
  };
  EXPECT_TRUE(surprises("vars.csh", "set a = '<NDK_DIR>'", "/a!b"));
  EXPECT_TRUE(surprises("vars.csh", "set a = \"<NDK_DIR>\"", "/a!b"));
  EXPECT_FALSE(surprises("vars.csh", "set a = 1", "/a!b"));
  EXPECT_FALSE(surprises("vars.sh", "a='<NDK_DIR>'", "/a!b"));
  EXPECT_TRUE(surprises("vars.sh", "a='<NDK_DIR>'", "/it's"));
  EXPECT_TRUE(surprises("vars.sh", "a=<NDK_DIR>", "/it's"));
  EXPECT_FALSE(surprises("vars.sh", "a=\"<NDK_DIR>\"", "/it's"));
  EXPECT_FALSE(surprises("vars.sh", "# the '<NDK_DIR>'", "/it's"));
  EXPECT_FALSE(surprises("vars.sh", "a='<NDK_DIR>'", "/a b"));
}

}  // namespace

}  // namespace ndk_integrate

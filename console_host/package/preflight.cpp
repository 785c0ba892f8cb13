#include "console_host/package/preflight.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "console_host/base/escaping.h"
#include "console_host/base/paths.h"
#include "console_host/package/integration.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

void refuse_link(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
    throw std::runtime_error(path +
                             " is a link, which filling in the template would replace or write "
                             "through; put an ordinary file there or remove it");
  }
}

// A copy could not take the file's place in one step.
void refuse_other_file_system(const std::string& path, const std::string& root) {
  struct stat file {};
  struct stat base {};
  if (stat(path.c_str(), &file) == 0 && stat(root.c_str(), &base) == 0 &&
      file.st_dev != base.st_dev) {
    throw std::runtime_error("the template " + path + " is on another file system than " + root);
  }
}

void refuse_no_ordinary_file(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw std::runtime_error("the template " + path + " is no ordinary file");
  }
}

}  // namespace

std::string compiler_root(const Session& session) {
  std::string root =
      normal_path(session.get("VORN_INSTALL_DIR") + session.get("NDK_COMPILER_SUBDIR"));
  if (root.size() < 2 || root[0] != '/') {
    throw std::runtime_error(
        "the compiler's directory, VORN_INSTALL_DIR followed by the component's subdir, is '" +
        root + "'; expected an absolute one below /");
  }
  return root;
}

void refuse_shell_surprises(const std::string& ndk_dir) {
  const bool surprises = std::any_of(ndk_dir.begin(), ndk_dir.end(), [](char c) {
    return std::string("\"$`\\").find(c) != std::string::npos || is_control(c);
  });
  if (surprises) {
    throw std::runtime_error(
        "the name of the NDK directory " + ndk_dir +
        " holds a character that the shell would not leave alone (\", $, `, \\ or a control "
        "character); make a link with a plain name to it (ln -s) and give that with --ndk");
  }
}

void refuse_odd_files(const Plugin& plugin, Session& session, const std::string& root) {
  const HeldLog no_step_of_the_installation;
  Store store(root);
  Integration scout(Integration::Mode::kScout, store, "");
  plugin.integrate_ndk(session.handle());
  for (const PatchedFile& file : scout.files()) {
    if (!store.covers(file.path)) {
      throw std::runtime_error("the template " + file.path +
                               " is not below the compiler's directory " + root);
    }
    refuse_link(file.path);
    refuse_link(file.path + ".tmp");
    refuse_no_ordinary_file(file.path);
    refuse_other_file_system(file.path, root);
  }
}

void refuse_edited_files(const Store& store) {
  for (const std::string& file : store.known_files()) {
    store.refuse_edited(file);
  }
}

}  // namespace ndk_integrate

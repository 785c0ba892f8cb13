#include "console_host/package/compiler_tree.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "console_host/base/paths.h"
#include "console_host/base/system_call.h"

namespace ndk_integrate {

namespace {

constexpr mode_t kRunAsOwnerOrGroup = 06000;

std::string user(uid_t id) { return id == 0 ? "root" : "user " + std::to_string(id); }

}  // namespace

Found look_at(const Directory& directory, const std::string& entry) {
  Found found;
  try {
    found.file = directory.find_file(entry);
    if (found.file) {
      found.kind = Found::Kind::kOrdinary;
      found.bytes = found.file->read();
    }
  } catch (const NotOrdinaryFile& odd) {
    found.kind = odd.is_link() ? Found::Kind::kLink : Found::Kind::kOther;
  }
  return found;
}

CompilerTree::CompilerTree(const std::string& root)
    : directory_(root), status_(directory_.status()) {}

std::optional<CompilerTree> find_compiler_tree(const std::string& root) {
  try {
    return CompilerTree(root);
  } catch (const std::system_error& failure) {
    if (failure.code().value() != ENOENT && failure.code().value() != ENOTDIR) {
      throw;
    }
    return std::nullopt;
  }
}

bool CompilerTree::covers(const std::string& path) const { return is_below(path, root()); }

std::string CompilerTree::relative(const std::string& path) const {
  return path.substr(root().size() + 1);
}

std::optional<Place> CompilerTree::find(const std::string& path) const {
  const std::string inside = relative(path);
  const std::size_t slash = inside.rfind('/');
  const bool is_deep = slash != std::string::npos;
  const std::optional<Directory> directory =
      directory_.find_directory(is_deep ? inside.substr(0, slash) : "");
  if (!directory) {
    return std::nullopt;
  }
  return Place{*directory, is_deep ? inside.substr(slash + 1) : inside};
}

Found CompilerTree::look(const std::string& path) const {
  const std::optional<Place> place = find(path);
  return place ? look_at(place->directory, place->entry) : Found{};
}

bool CompilerTree::has_business_here(uid_t id) const {
  return id == 0 || id == geteuid() || id == status_.st_uid;
}

std::string CompilerTree::why_not_trusted(const std::string& name,
                                          const struct stat& status) const {
  if (status.st_dev != status_.st_dev) {
    return "the template " + name + " is on another file system than " + root();
  }
  if (!has_business_here(status.st_uid)) {
    return "the template " + name + " belongs to " + user(status.st_uid) +
           ", who is neither you nor root nor the owner of " + root() +
           "; look at it, then give it to one of these (chown), or reinstall the compiler package";
  }
  return "";
}

std::string CompilerTree::why_not_kept_by_us(const std::string& name,
                                             const struct stat& status) const {
  if (has_business_here(status.st_uid)) {
    return "";
  }
  return name + " belongs to " + user(status.st_uid) +
         ", who is neither you nor root nor the owner of " + root() +
         "; what is kept there is not to be trusted: look at it, then remove it or give it to one of "
         "these (chown -R)";
}

bool CompilerTree::is_somebody_elses() const { return geteuid() == 0 && status_.st_uid != 0; }

bool CompilerTree::is_safe_by_name() const {
  return status_.st_uid == 0 || status_.st_uid == geteuid();
}

void CompilerTree::hand_over(const File& file) const {
  if (is_somebody_elses()) {
    file.set_owner(status_.st_uid, status_.st_gid);
  }
}

void CompilerTree::hand_over(const Directory& directory) const {
  if (is_somebody_elses() && uninterrupted([&] {
                               return fchown(directory.number(), status_.st_uid, status_.st_gid);
                             }) != 0) {
    throw_system_error("set the owner of " + directory.name());
  }
}

bool CompilerTree::is_secret_of_root(const struct stat& status) const {
  return is_somebody_elses() && status.st_uid == 0 && (status.st_mode & S_IROTH) == 0;
}

void CompilerTree::dress(const File& file, const File* model, mode_t mode, bool is_secret) const {
  if (!is_safe_by_name()) {
    mode &= ~kRunAsOwnerOrGroup;
  }
  const bool stays_roots = model != nullptr && is_secret_of_root(model->status());
  if (is_secret && !stays_roots) {
    mode &= S_IRWXU;
  } else if (model == nullptr) {
    hand_over(file);
  } else {
    const struct stat status = model->status();
    if (is_somebody_elses()) {
      file.set_owner(stays_roots ? status.st_uid : status_.st_uid, status.st_gid);
    } else if (!file.set_owner_where_permitted(status.st_uid, status.st_gid)) {
      mode &= ~kRunAsOwnerOrGroup;  // what ran as its owner must not run as somebody else
    }
    file.take_over_attributes(*model);
  }
  file.set_mode(mode);
}

}  // namespace ndk_integrate

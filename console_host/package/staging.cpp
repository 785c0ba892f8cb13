#include "console_host/package/staging.h"

#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "console_host/base/hash.h"
#include "console_host/base/system_call.h"
#include "console_host/base/text.h"
#include "console_host/package/replacement.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

constexpr const char* kStaged = "staged";  // an older program's had no number
constexpr const char* kCommit = "commit-";

std::string random_name() {
  std::array<unsigned char, 8> bytes{};
  if (uninterrupted([&] { return getrandom(bytes.data(), bytes.size(), 0); }) !=
      static_cast<ssize_t>(bytes.size())) {
    throw_system_error("get a random number");
  }
  constexpr std::size_t kDigits = 16;
  return std::string(kStaged) + "-" +
         sha256(std::string(bytes.begin(), bytes.end())).substr(0, kDigits);
}

[[noreturn]] void throw_swapped(const Directory& directory) {
  throw std::runtime_error("someone else put another directory at " + directory.name() +
                           " just now");
}

}  // namespace

void require_own(const Directory& directory) {
  constexpr mode_t kOthers = 0077;
  const struct stat status = directory.status();
  if (status.st_uid != geteuid() || (status.st_mode & kOthers) != 0) {
    throw_swapped(directory);
  }
}

void require_new(const Directory& directory) {
  require_own(directory);
  if (!directory.entries().empty()) {
    throw_swapped(directory);
  }
}

StagingDirectory::StagingDirectory(Store& store) : store_(store) {
  clean();
  try {
    make();
  } catch (...) {
    clean_up();
    throw;
  }
}

StagingDirectory::~StagingDirectory() { clean_up(); }

void StagingDirectory::make() {
  const std::string name = random_name();
  const bool is_made = store_.kept().make_directory(name);
  directory_ = is_made ? store_.kept().find_directory(name) : std::nullopt;
  if (!directory_) {
    throw std::runtime_error("someone else changed " + store_.kept().name_of(name) + " just now");
  }
  require_new(*directory_);
}

void StagingDirectory::clean_up() {
  try {
    clean();
  } catch (const std::exception& failure) {
    add_to_log("ERROR: cannot clean up " + store_.directory() + ": " + failure.what());
  }
}

std::string StagingDirectory::commit_name(const Store& store, const std::string& path) {
  return kCommit + sha256(store.tree().relative(path));
}

void StagingDirectory::clean() {
  for (const std::string& name : store_.kept().entries()) {
    if (begins_with(name, kStaged)) {
      clean(name);
    }
  }
  store_.clean();
}

void StagingDirectory::clean(const std::string& staged) {
  try {
    if (const std::optional<Directory> directory = store_.kept().find_directory(staged)) {
      empty(*directory);
      store_.kept().remove_directory(staged);
    }
  } catch (const std::system_error& failure) {
    const int number = failure.code().value();
    if (number != EACCES && number != EPERM) {
      throw;
    }
    // Another user's, which the caller may not touch. It is in nobody's way.
    add_to_log("cannot clean up " + store_.kept().name_of(staged) + ": " + failure.what());
  }
}

void StagingDirectory::empty(const Directory& staged) {
  for (const std::string& entry : staged.entries()) {
    if (!begins_with(entry, kCommit)) {
      staged.remove_file(entry);
    } else if (store_.is_certain()) {
      rescue(staged, entry);
    }
  }
}

void StagingDirectory::rescue(const Directory& staged, const std::string& entry) {
  const Found found = look_at(staged, entry);
  std::optional<Place> place;
  for (const std::string& path : store_.all_files()) {
    if (commit_name(store_, path) == entry) {
      if (found.kind == Found::Kind::kOrdinary && store_.knows(path, found.bytes)) {
        staged.remove_file(entry);
        return;
      }
      place = store_.tree().find(path);
    }
  }
  // Nobody knows any more where it was.
  const Place anywhere{store_.tree().directory(), "ndk-integrate"};
  const std::string kept = keep_beside(staged, entry, place.value_or(anywhere));
  rescued_.push_back("a change by someone else that had been taken out of " +
                     (place ? place->name() : "its place") +
                     " when an earlier run was cut short is kept as " + kept);
}

TemporaryStaging::TemporaryStaging()
    : temporary_(directory_for_temporary_files()), directory_(temporary_.name()) {
  require_new(directory_);
}

}  // namespace ndk_integrate

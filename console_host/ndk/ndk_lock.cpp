#include "console_host/ndk/ndk_lock.h"

#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "console_host/base/directory.h"
#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/files.h"
#include "console_host/base/hash.h"

namespace ndk_integrate {

namespace {

constexpr std::size_t kMost = 1 << 20;  // bytes; no such file is longer
constexpr const char* kHash = "source_properties_sha256";

}  // namespace

NdkLock lock_of(const std::string& dir, const std::optional<std::string>& release,
                const std::string& revision) {
  const auto text = read_ordinary_file(dir + "/source.properties", kMost);
  return {release, utf8_text(revision), text ? sha256(*text) : ""};
}

std::string difference(const NdkLock& locked, const NdkLock& found) {
  if (locked.release != found.release) {
    return "its release is " + found.release.value_or("unknown") + ", not " +
           locked.release.value_or("unknown");
  }
  if (locked.revision != found.revision) {
    return "its revision is " + found.revision + ", not " + locked.revision;
  }
  return locked.hash == found.hash ? "" : "its source.properties has other bytes";
}

void write_lock(const std::string& file, const NdkLock& lock) {
  const nlohmann::ordered_json json{
      {"schema", 1},
      {"release", lock.release ? nlohmann::ordered_json(*lock.release) : nullptr},
      {"revision", lock.revision},
      {kHash, lock.hash}};
  constexpr int kIndent = 2;
  constexpr mode_t kUsual = 0644;
  const std::size_t slash = file.rfind('/');
  const bool is_here = slash == std::string::npos;
  const Directory directory(is_here ? "." : file.substr(0, slash + 1));
  const std::string entry = is_here ? file : file.substr(slash + 1);
  const std::string copy = entry + ".new-" + std::to_string(getpid());
  directory.remove_file(copy);  // of one that was killed; in a container many have the same number
  const File made = directory.make_file(copy, file);
  try {
    made.write(json.dump(kIndent) + "\n", file);
    made.set_mode(kUsual);
    made.flush();
    directory.rename(copy, directory, entry);
  } catch (const std::exception&) {
    directory.remove_file(copy);
    throw;
  }
  directory.flush();
}

NdkLock read_lock(const std::string& file) {
  const auto text = read_ordinary_file(file, kMost);
  if (!text) {
    throw UsageError("--locked: cannot read " + file + ": " +
                     (errno == 0 ? "not a file" : system_error_text(errno)));
  }
  try {
    const auto json = nlohmann::json::parse(*text);
    NdkLock lock;
    if (!json.at("release").is_null()) {
      lock.release = json.at("release").get<std::string>();
    }
    lock.revision = json.at("revision").get<std::string>();
    lock.hash = json.at(kHash).get<std::string>();
    if (json.at("schema") != 1) {
      throw UsageError("--locked: " + file + " was written by a newer ndk-integrate");
    }
    return lock;
  } catch (const nlohmann::json::exception&) {
    throw UsageError("--locked: " + file + " was not written by ndk-integrate find --lock");
  }
}

}  // namespace ndk_integrate

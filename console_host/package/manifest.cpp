#include "console_host/package/manifest.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "console_host/base/file.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

using Json = nlohmann::json;

std::optional<std::string> optional_text(const Json& json) {
  return json.is_null() ? std::nullopt : std::optional(json.get<std::string>());
}

Json json_of(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

std::string octal(mode_t mode) {
  std::ostringstream text;
  text << std::oct << mode;
  return text.str();
}

mode_t from_octal(const std::string& text) {
  constexpr int kOctal = 8;
  return static_cast<mode_t>(std::stoul(text, nullptr, kOctal)) & kModeBits;
}

// The object that stands as `key` in `json`.
const Json& object(const Json& json, const char* key) {
  const Json& value = json.at(key);
  if (!value.is_object()) {
    throw std::runtime_error(std::string("'") + key + "' is not an object");
  }
  return value;
}

// The texts that stand as an array `key` in `json`.
std::set<std::string> texts(const Json& json, const char* key) {
  const Json& value = json.at(key);
  if (!value.is_array()) {
    throw std::runtime_error(std::string("'") + key + "' is not an array");
  }
  return value.get<std::set<std::string>>();
}

// The same where an older program wrote none.
std::set<std::string> texts_if_there(const Json& json, const char* key) {
  return json.contains(key) ? texts(json, key) : std::set<std::string>{};
}

// True when `path` is a name below the compiler's directory, and not of ours there.
bool is_inside(const std::string& path) {
  const std::vector<std::string> parts = split(path, "/");
  return join(parts, "/") == path && !parts.empty() && parts[0] != ".ndk-integrate" &&
         path.find('\0') == std::string::npos &&
         std::none_of(parts.begin(), parts.end(),
                      [](const std::string& part) { return part == "." || part == ".."; });
}

bool is_octal(const std::string& mode) {
  return !mode.empty() && mode.size() <= 4 &&
         mode.find_first_not_of("01234567") == std::string::npos;
}

Manifest::Entry parse_entry(const std::string& path, const Json& json) {
  const std::string mode = json.at("mode");
  Manifest::Entry entry;
  entry.original = json.at("original");
  entry.results = texts(json, "results");
  entry.placeholders = texts(json, "placeholders");
  entry.filled = texts_if_there(json, "filled");
  entry.installations = texts_if_there(json, "installations");
  const auto are_hashes = [](const std::set<std::string>& hashes) {
    return std::all_of(hashes.begin(), hashes.end(), is_hash);
  };
  if (!is_inside(path) || !is_octal(mode) || !is_hash(entry.original) ||
      !are_hashes(entry.results) || !are_hashes(entry.filled)) {
    throw std::runtime_error("the entry of '" + path + "' is damaged");
  }
  entry.mode = from_octal(mode);
  return entry;
}

InstallationRecord parse_installation(const std::string& version, const Json& json) {
  return {version,
          optional_text(json.at("ndk")),
          optional_text(json.at("release")),
          json.at("component"),
          json.at("time"),
          json.at("finished")};
}

}  // namespace

bool is_hash(const std::string& text) {
  constexpr std::size_t kDigits = 64;
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

Manifest parse_manifest(const std::string& text) {
  const Json json = Json::parse(text);
  if (json.at("schema") != 1) {
    throw std::runtime_error("it was written by a newer ndk-integrate");
  }
  Manifest manifest;
  for (const auto& [path, entry] : object(json, "files").items()) {
    const Manifest::Entry file = parse_entry(path, entry);
    // Neither where a run was killed before it noted a result: the file has not been touched.
    if (!file.results.empty() || !file.installations.empty()) {
      manifest.files[path] = file;
    }
  }
  if (json.contains("installations")) {  // an older program wrote none
    for (const auto& [version, one] : object(json, "installations").items()) {
      manifest.installations[version] = parse_installation(version, one);
    }
  }
  return manifest;
}

std::string text_of(const Manifest& manifest) {
  auto installations = Json::object();
  for (const auto& [version, one] : manifest.installations) {
    installations[version] = {{"ndk", json_of(one.ndk)},
                              {"release", json_of(one.release)},
                              {"component", one.component},
                              {"time", one.time},
                              {"finished", one.is_finished}};
  }
  auto files = Json::object();
  for (const auto& [path, entry] : manifest.files) {
    files[path] = {{"original", entry.original}, {"mode", octal(entry.mode)},
                   {"results", entry.results},   {"placeholders", entry.placeholders},
                   {"filled", entry.filled},     {"installations", entry.installations}};
  }
  const nlohmann::ordered_json json{
      {"schema", 1}, {"installations", installations}, {"files", files}};
  return json.dump(1) + "\n";
}

}  // namespace ndk_integrate

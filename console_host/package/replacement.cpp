#include "console_host/package/replacement.h"

#include <stdexcept>
#include <system_error>

namespace ndk_integrate {

namespace {

constexpr const char* kLeftAsItIs = "it is left as it is";

[[noreturn]] void throw_changed(const Place& place, const std::string& where_it_is) {
  throw std::runtime_error(place.name() + " was changed by someone else just now; " + where_it_is);
}

[[noreturn]] void throw_with_kept(const std::runtime_error& failure, const std::string& kept) {
  throw std::runtime_error(failure.what() + ("; what was there before is kept as " + kept));
}

bool is_expected(const Replacement& replacement, const Found& found) {
  return replacement.expected ? found.holds(*replacement.expected)
                              : found.kind == Found::Kind::kMissing;
}

// True when `entry` in the staging directory is the new file again, and nobody has written to it.
bool is_ours(const Replacement& replacement, const std::string& bytes) {
  return is_in_place(replacement.file, {replacement.staging, replacement.entry}) &&
         replacement.file.read() == bytes;
}

// Lets what came out go back. True when the new file came out for it, so that all is as it was.
bool goes_back(const Replacement& replacement, const std::string& our_bytes) {
  const auto& [staging, entry, file, place, expected, gives_up] = replacement;
  switch (staging.exchange(entry, place.directory, place.entry)) {
    case Directory::Exchange::kDone:
      if (is_ours(replacement, our_bytes)) {
        return true;
      }
      // The place has changed again meanwhile: the later change is to stay there.
      staging.exchange(entry, place.directory, place.entry);
      return false;
    case Directory::Exchange::kMissing:
      return staging.move_unless_taken(entry, place.directory, place.entry);
    default:
      return false;
  }
}

// Says where it is that came out of the place and was not expected: in its place again, or beside.
std::string put_back(const Replacement& replacement, const std::string& our_bytes) {
  const auto& [staging, entry, file, place, expected, gives_up] = replacement;
  try {
    if (goes_back(replacement, our_bytes)) {
      place.directory.flush();
      return kLeftAsItIs;
    }
  } catch (const std::runtime_error&) {
    // It is then beside, like all that cannot go back.
  }
  return "what was there is kept as " + keep_beside(staging, entry, place);
}

// What is wrong with what came out of the place, "" when it is what was expected there. What cannot be
// read was not.
std::string what_is_wrong(const Replacement& replacement) {
  const std::string name = replacement.place.name();
  try {
    // First, because nobody can open it any more: what is written is written by now.
    const std::optional<File> came_out = replacement.staging.find_file(replacement.entry);
    const bool is_being_written = came_out && came_out->is_being_written();
    if (!is_expected(replacement, look_at(replacement.staging, replacement.entry))) {
      return name + " was changed by someone else just now";
    }
    return is_being_written ? name + " is open for writing by someone else" : "";
  } catch (const NotOrdinaryFile&) {
    return name + " was changed by someone else just now";
  } catch (const std::system_error& failure) {
    return "cannot read " + name + ": " + failure.code().message();
  }
}

std::string after_exchange(const Replacement& replacement, const std::string& our_bytes) {
  if (replacement.gives_up_what_is_there) {
    return keep_beside(replacement.staging, replacement.entry, replacement.place);
  }
  if (const std::string wrong = what_is_wrong(replacement); !wrong.empty()) {
    throw std::runtime_error(wrong + "; " + put_back(replacement, our_bytes));
  }
  replacement.place.directory.flush();
  replacement.staging.remove_file(replacement.entry);
  return "";
}

// Where files cannot change their places.
std::string look_then_rename(const Replacement& replacement) {
  const auto& [staging, entry, file, place, expected, gives_up] = replacement;
  std::string kept;
  if (gives_up) {
    kept = keep_beside(place.directory, place.entry, place);
    try {
      if (!staging.move_unless_taken(entry, place.directory, place.entry)) {
        throw_changed(place, kLeftAsItIs);
      }
    } catch (const std::runtime_error& failure) {
      throw_with_kept(failure, kept);
    }
  } else {
    if (!is_expected(replacement, look_at(place.directory, place.entry))) {
      throw_changed(place, kLeftAsItIs);
    }
    staging.rename(entry, place.directory, place.entry);
  }
  place.directory.flush();
  return kept;
}

}  // namespace

std::string replace(const Replacement& replacement) {
  const auto& [staging, entry, file, place, expected, gives_up] = replacement;
  const std::string our_bytes = file.read();
  file.flush();
  if (!expected && !gives_up) {
    if (!staging.move_unless_taken(entry, place.directory, place.entry)) {
      throw_changed(place, kLeftAsItIs);
    }
    place.directory.flush();
    return "";
  }
  switch (staging.exchange(entry, place.directory, place.entry)) {
    case Directory::Exchange::kDone:
      return after_exchange(replacement, our_bytes);
    case Directory::Exchange::kMissing:
      throw_changed(place, "it is gone");
    default:
      return look_then_rename(replacement);
  }
}

bool is_in_place(const File& file, const Place& place) {
  try {
    const struct stat ours = file.status();
    const std::optional<struct stat> there = place.directory.status_of(place.entry);
    return there && there->st_dev == ours.st_dev && there->st_ino == ours.st_ino;
  } catch (const std::runtime_error&) {
    return true;
  }
}

std::string keep_beside(const Directory& staging, const std::string& entry, const Place& place) {
  std::string name = place.entry + ".edited";
  for (int number = 2; !staging.move_unless_taken(entry, place.directory, name); ++number) {
    name = place.entry + ".edited-" + std::to_string(number);
  }
  std::string kept = place.directory.name_of(name);
  try {
    place.directory.flush();
  } catch (const std::runtime_error& failure) {
    throw_with_kept(failure, kept);
  }
  return kept;
}

}  // namespace ndk_integrate

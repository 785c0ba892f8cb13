// The text form of a release, as the log and the lists of supported releases have it.
#ifndef FUZZ_RELEASE_TEXT_H
#define FUZZ_RELEASE_TEXT_H

#include <string>

#include "ndk_utils/ndk_utils.h"

// "r" and the number; an update adds the character that is so many after "a", round and round in
// the 256 there are.
inline std::string release_text(ndk_version_t version) {
  std::string text = "r" + std::to_string(version.major);
  if (version.minor > 0) {
    text.push_back(
        static_cast<char>(static_cast<unsigned char>(('a' + version.minor % 256) % 256)));
  }
  return text;
}

#endif

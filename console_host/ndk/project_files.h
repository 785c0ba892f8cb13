// What a project's own files say of its NDK, read as text: nothing of them is run. Of
// `local.properties` the keys `ndk.dir` and `sdk.dir`, of `build.gradle` and `build.gradle.kts` the
// properties `ndkVersion` and `ndkPath`.
#ifndef CONSOLE_HOST_NDK_PROJECT_FILES_H
#define CONSOLE_HOST_NDK_PROJECT_FILES_H

#include <map>
#include <string>
#include <vector>

namespace ndk_integrate {

struct ProjectFile {
  std::map<std::string, std::string> values;  // by key; where one is set twice, the last counts
  std::vector<std::string> notes;             // "line 3: ndkVersion is not a plain text, so it ..."
  std::string malformed;                      // why nothing of the file counts; "" when it does
};

// `text` as the properties files of Java have it: "=" or ":" or a blank behind the key, escapes,
// lines that go on.
ProjectFile read_local_properties(const std::string& text);

enum class GradleLanguage { kGroovy, kKotlin };

ProjectFile read_build_gradle(const std::string& text, GradleLanguage language);

}  // namespace ndk_integrate

#endif

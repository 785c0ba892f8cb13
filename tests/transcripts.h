// What the plug-in asks of a host, step by step, as the recording host writes it down: lines that a
// test joins to the transcript it expects. transcripts_test.cpp spells them all out.
#ifndef TESTS_TRANSCRIPTS_H
#define TESTS_TRANSCRIPTS_H

#include <string>
#include <vector>

#include "tests/recording_host.h"

using Text = const std::string&;

// --- Single calls ---

// A call whose arguments are all texts.
inline std::string calls(Text service, const std::vector<std::string>& texts) {
  std::string line = service + "(";
  for (const std::string& text : texts) {
    line += (line.back() == '(' ? "" : ", ") + in_quotes(text);
  }
  return line + ")\n";
}

inline std::string logs(Text format, std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), "NDK_INTEGRATION: " + format);
  return calls("print_log", arguments);
}

inline std::string gets(Text variable) { return calls("env_get_string", {variable}); }

// A value that is written in the plug-in's source, and one that it computed.
inline std::string sets(Text variable, Text literal) {
  return calls("env_set_string[chars]", {variable, literal});
}
inline std::string stores(Text variable, Text computed) {
  return calls("env_set_string[strings]", {variable, computed});
}

inline std::string splits(Text text, Text separator) {
  return "splitString(" + in_quotes(text) + ", " + in_quotes(separator) + ", false)\n";
}

// Whether there is a file, which path() answers with `real` before it.
inline std::string looks_for(Text file, Text real = "") {
  return calls("path", {file}) + "file_exists(" + in_quotes(real + file) + ", false)\n";
}

// --- NDK discovery ---

// The files of an NDK that is_ndk_dir goes by.
enum Marker : unsigned { kNone = 0, kLauncher = 1, kWindowsLauncher = 2, kProperties = 4 };
constexpr unsigned kNdk = kLauncher | kProperties;

// is_ndk_dir on a directory that holds these files.
inline std::string looks_at(Text dir, unsigned markers, Text real = "") {
  std::string text = logs("is_ndk_dir(): Verifying the following directory: %s", {dir}) +
                     looks_for(dir + "/ndk-build", real);
  if ((markers & kLauncher) == 0) {
    text += looks_for(dir + "/ndk-build.cmd", real);
  }
  if ((markers & (kLauncher | kWindowsLauncher)) == 0) {
    return text +
           logs(
               "is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false");
  }
  text += looks_for(dir + "/source.properties", real);
  return text + logs((markers & kProperties) == 0
                         ? "is_ndk_dir(): could not found file: source.properties, returning false"
                         : "is_ndk_dir(): all required files are in place, returning true");
}

// The digits of a release such as "r11c", as inttostr gets them.
inline std::string formats(Text release) {
  return "inttostr(" + release.substr(1, release.find_first_not_of("-0123456789", 1) - 1) + ")\n";
}

// get_version on an NDK of this revision, which is that release; "" for one that cannot be told.
inline std::string reads_release(Text dir, Text revision, Text release, Text real = "") {
  std::string text =
      looks_for(dir + "/source.properties", real) +
      calls("IniDb", {dir, "source.properties", "="}) + calls("IniDb::value", {"Pkg.Revision "}) +
      logs("get_version(): detected full revision: '%s'", {revision}) + splits(revision, ".");
  if (release.empty()) {
    text += logs("get_version(): ERROR! source.properties contains version in unknown format");
  } else {
    const std::size_t major_end = revision.find('.');
    const std::size_t minor_end = revision.find('.', major_end + 1);
    text += calls("strtoint", {revision.substr(0, major_end)}) +
            calls("strtoint", {revision.substr(major_end + 1, minor_end - major_end - 1)}) +
            formats(release) + logs("get_version(): detected version is '%s''", {release});
  }
  return text + "~IniDb()\n";
}

// is_ndk_version_supported for a release that the list holds, and for one that it does not hold.
inline std::string finds_supported(Text release, Text list) {
  return splits(list, ";") + formats(release) + formats(release) +
         logs("is_ndk_version_supported(): '%s' version is supported", {release});
}
inline std::string finds_unsupported(Text release, Text list) {
  return splits(list, ";") + formats(release) + formats(release) +
         logs(
             "is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false",
             {release, list});
}

// validate_ndk_path on NDK_PATH, which path() answers with `dir`, as far as is_ndk_dir goes.
inline std::string begins_to_judge(Text ndk_path, Text dir, unsigned markers) {
  return logs("validate_ndk_path()") + gets("NDK_PATH") + calls("path", {ndk_path}) +
         gets("NDK_SUPPORTED_VERSIONS") + looks_at(dir, markers);
}

// validate_ndk_path on a directory that is not an NDK, on one that is not writable, and on one of
// which `release` tells what the plug-in reads and compares.
inline std::string judges_no_ndk(Text dir) {
  return begins_to_judge(dir, dir, kNone) + sets("NDK_PATH_STATUS", "nok");
}
inline std::string judges_read_only(Text dir) {
  return begins_to_judge(dir, dir, kNdk) + calls("is_writable", {dir}) +
         sets("NDK_PATH_STATUS", "notwritable");
}
inline std::string judges(Text ndk_path, Text dir, Text release, Text status) {
  return begins_to_judge(ndk_path, dir, kNdk) + calls("is_writable", {dir}) + release +
         sets("NDK_PATH_STATUS", status);
}
inline std::string judges_good(Text dir, Text revision, Text release, Text list) {
  return judges(dir, dir, reads_release(dir, revision, release) + finds_supported(release, list),
                "ok");
}
inline std::string judges_unsupported(Text dir, Text revision, Text release, Text list) {
  return judges(dir, dir,
                reads_release(dir, revision, release) +
                    finds_unsupported(release.empty() ? "r-1" : release, list),
                "unsupported");
}

// detect_ndk: its beginning, and what it does with one candidate.
inline std::string begins_search(Text search_path) {
  return logs("detect_ndk()") + gets("NDK_PATH") + gets("NDK_DEFAULT_SEARCH_PATH_LINUX") +
         splits(search_path, ";");
}
inline std::string rejects(Text candidate, Text judgement) {
  return stores("NDK_PATH", candidate) + judgement + gets("NDK_PATH_STATUS") +
         logs("detect_ndk(): '%s' is not valid NDK path", {candidate}) + sets("NDK_PATH", "") +
         sets("NDK_PATH_STATUS", "ok");
}
inline std::string takes(Text candidate, Text judgement) {
  return stores("NDK_PATH", candidate) + judgement + gets("NDK_PATH_STATUS") +
         logs("detect_ndk(): found valid NDK: '%s'", {candidate});
}
inline std::string keeps_preset(Text preset) {
  return logs("detect_ndk()") + gets("NDK_PATH") +
         logs("detect_ndk(): NDK_PATH is already set to '%s', exiting", {preset});
}

// --- Component selection ---

inline std::string logs_selection(Text format, const std::vector<std::string>& arguments = {}) {
  return logs("check_if_ndk_integration_files_are_to_be_installed()" + format, arguments);
}

inline std::string begins_selection(Text patterns) {
  return logs_selection("") + sets("NDK_INTEGRATION_INSTALL_DETECTED", "no") +
         gets("NDK_COMPONENT_PATTERNS") + splits(patterns, ";") + "TSD::components()\n";
}

// A component that cannot be installed, and one that can.
inline std::string passes_over(Text id) { return calls("Component::installCondition", {id}); }
inline std::string asks_selected(Text id) {
  return calls("Component::installCondition", {id}) + calls("Component::getSelected", {id});
}

// The component that matches is the compiler.
inline std::string records_compiler(Text pattern, Text id, Text version, Text package_number,
                                    Text subdir) {
  return logs_selection(": Found pattern '%s' in '%s'", {pattern, id}) +
         sets("NDK_INTEGRATION_INSTALL_DETECTED", "yes") + stores("NDK_COMPILER_VERSION", version) +
         stores("NDK_COMPILER_PACKAGE_NUMBER", package_number) + calls("Component::subdir", {id}) +
         stores("NDK_COMPILER_SUBDIR", subdir) + splits(version, ".");
}

// A version of three numbers, of which the first and the third give `major` and `minor`.
inline std::string records_libraries(Text version, Text package_number, Text major, Text minor) {
  return calls("strtoint", {version.substr(0, version.find('.'))}) +
         calls("strtoint", {version.substr(version.rfind('.') + 1)}) + "inttostr(" + major +
         ")\ninttostr(" + minor + ")\ninttostr(" + major + ")\n" +
         stores("NDK_CNL_VERSION_FULL", major + "." + minor + "." + package_number) +
         stores("NDK_CNL_VERSION_MAJOR", major);
}
inline std::string rejects_version() {
  return logs_selection(
      ": compiler version is in unexpected format, could not convert it to CnL version!");
}

// --- Compiler integration ---

// patch_text_file on a file of these lines, without the line that each pass adds.
inline std::string patches(Text file, Text from, Text to, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += calls("replaceAllSubstrings", {line, from, to});
  }
  return text + calls("replaceAllSubstrings", {"", from, to}) +
         calls("file_move", {file + ".tmp", file});
}

inline std::string cannot_open(Text stream, Text file) {
  return calls("error", {"patch_text_file: cannot open " + stream + " stream of file %s", file});
}

// The placeholders of a toolchain's definitions, in a line that holds both after `start`.
inline std::string fills_in_definitions(Text file, Text start, Text compiler, Text version) {
  return calls("path", {file}) +
         patches(file, "{INSTALL_NOX_INSTALLDIR}", compiler,
                 {start + "{INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}"}) +
         calls("path", {file}) +
         patches(file, "{INSTALL_NOX_VERSION}", version,
                 {start + compiler + " {INSTALL_NOX_VERSION}", ""});
}

// An environment script of one line.
inline std::string fills_in_script(Text file, Text line, Text ndk_dir) {
  return calls("path", {file}) + patches(file, "<NDK_DIR>", ndk_dir, {line});
}

// get_toolchains_path and get_compiler_path, below the directory that VORN_INSTALL_DIR and
// NDK_COMPILER_SUBDIR name.
inline std::string asks_for_toolchains(Text base) {
  return gets("VORN_INSTALL_DIR") + gets("NDK_COMPILER_SUBDIR") +
         calls("path", {base + "/android"});
}
inline std::string asks_for_compiler(Text base, Text cnl_version) {
  return gets("VORN_INSTALL_DIR") + gets("NDK_COMPILER_SUBDIR") + gets("NDK_CNL_VERSION_FULL") +
         calls("path", {base + "/compilers_and_libraries_" + cnl_version + "/linux"});
}

inline std::string begins_integration(Text base, Text cnl_version) {
  return logs("integrate_ndk()") + asks_for_toolchains(base) +
         asks_for_compiler(base, cnl_version) + gets("NDK_COMPILER_VERSION") +
         gets("NDK_COMPILER_PACKAGE_NUMBER");
}

// The integration script on the NDK in NDK_PATH, which path() answers with `ndk_dir`.
inline std::string runs_script(Text toolchains, Text ndk_path, Text ndk_dir, Text output) {
  const std::string command = "./ndk_integration.sh \"" + ndk_dir + "\" --force";
  return gets("NDK_PATH") + calls("path", {ndk_path}) +
         logs("integrate_ndk(): integration enabled, launching '%s' script.", {command}) +
         calls("chdir", {toolchains}) + "get_command_output(" + in_quotes(command) +
         ", null, true, \"\")\n" + calls("print_log", {"Output: '%s'", output});
}
inline std::string runs_no_script() { return logs("integrate_ndk(): integration disabled"); }

#endif

#include "console_host/package/compiler.h"

#include <algorithm>
#include <regex>
#include <set>
#include <stdexcept>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/paths.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

std::string why_not_selected(const Session& session) {
  const std::string patterns = session.get("NDK_COMPONENT_PATTERNS");
  const std::vector<std::string> pieces = split(patterns, ";");
  if (pieces.empty()) {
    return "NDK_COMPONENT_PATTERNS names no pattern";
  }
  std::vector<std::string> matching;
  for (const ComponentInfo& info : session.component_infos()) {
    const bool matches = std::any_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
      return info.id.find(piece) != std::string::npos;
    });
    if (matches) {
      matching.push_back(info.id + (info.install_condition ? " is not selected (selected = false)"
                                                           : " is not to be installed here "
                                                             "(install_condition = false)"));
    }
  }
  return matching.empty() ? "no component's id holds one of " + patterns : join(matching, "; ");
}

Compiler selected_compiler(const Plugin& plugin, Session& session) {
  plugin.check_if_ndk_integration_files_are_to_be_installed(session.handle());
  if (session.compiler_info() == nullptr) {
    throw std::runtime_error(
        "which compiler is meant cannot be told, because no selected component "
        "asks for the NDK integration: " +
        why_not_selected(session));
  }
  require_version(session);
  return compiler_of(plugin, session);
}

Compiler compiler_of(const Plugin& plugin, Session& session) {
  Compiler compiler;
  compiler.root = normal_path(session.get("VORN_INSTALL_DIR") + session.get("NDK_COMPILER_SUBDIR"));
  if (compiler.root.size() < 2 || compiler.root[0] != '/') {
    throw std::runtime_error(
        "the compiler's directory, VORN_INSTALL_DIR followed by the component's subdir, is '" +
        compiler.root + "'; expected an absolute one below /");
  }
  compiler.version = plugin.compiler_full_version(session.handle());
  compiler.toolchains = plugin.toolchains_path(session.handle());
  compiler.libraries = plugin.compiler_path(session.handle());
  compiler.ndk = normal_path(session.get("NDK_PATH"));
  return compiler;
}

bool is_integration_enabled(const Session& session) {
  return session.get("NDK_INTEGRATION_ENABLED") == "yes";
}

std::optional<std::string> misleading_enabled_value(const Session& session) {
  static const std::set<std::string> clear{"", "no", "n", "false", "off", "0"};
  const std::string value = session.get("NDK_INTEGRATION_ENABLED");
  if (value == "yes" || clear.count(lower_case(value)) != 0) {
    return std::nullopt;
  }
  return "NDK_INTEGRATION_ENABLED is '" + value +
         "', which leaves the integration disabled: only 'yes', in small letters and without "
         "blanks, enables it";
}

std::optional<std::string> shell_surprise(const std::string& ndk_dir) {
  const bool surprises = std::any_of(ndk_dir.begin(), ndk_dir.end(), [](char c) {
    return std::string("\"$`\\").find(c) != std::string::npos || is_control(c);
  });
  if (!surprises) {
    return std::nullopt;
  }
  return "the name of the NDK directory " + ndk_dir +
         " holds a character that the shell would not leave alone (\", $, `, \\ or a control "
         "character); make a link with a plain name to it (ln -s) and give that with --ndk";
}

void require_version(const Session& session) {
  if (session.compiler_info() == nullptr) {
    return;
  }
  const ComponentInfo& info = *session.compiler_info();
  const auto wrong = [&](int line, const std::string& what) {
    throw UsageError(info.source.file + ":" + std::to_string(line) + ": " + what);
  };
  static const std::regex three_numbers("[0-9]{1,9}\\.[0-9]{1,9}\\.[0-9]{1,9}");
  if (!std::regex_match(info.version, three_numbers)) {
    wrong(info.source.version_line,
          "version is '" + info.version +
              "', expected three numbers joined by dots, such as \"5.0.3\"");
  }
  if (!is_number(info.package_number)) {
    wrong(info.source.package_number_line,
          "package_number is '" + info.package_number + "', expected a number, such as \"42\"");
  }
  for (const std::string& part : split(info.subdir, "/")) {
    if (part == "." || part == "..") {
      wrong(info.source.subdir_line, "subdir is '" + info.subdir + "', expected one without '" +
                                         part +
                                         "' as a part: it would leave the compiler's directory");
    }
  }
}

}  // namespace ndk_integrate

#include "console_host/commands/verify.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/interruption.h"
#include "console_host/base/paths.h"
#include "console_host/base/temporary_directory.h"
#include "console_host/ndk/ndk_facts.h"
#include "console_host/ndk/toolchain_build.h"
#include "console_host/package/store.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

// There is nothing that could be verified.
class NothingInstalled : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

bool holds_blank(const std::string& path) {
  return path.find_first_of(" \t\n") != std::string::npos;
}

// Where to build without --keep: no NDK can build in a directory whose name holds a blank.
std::string directory_for_builds() {
  const std::string dir = directory_for_temporary_files();
  return holds_blank(dir) ? "/tmp" : dir;
}

// Throws NothingInstalled when the compiler is not installed, by this program or another installer.
void require_installed(const Compiler& compiler, const std::optional<InstallationRecord>& record) {
  const std::vector<Toolchain> toolchains = toolchains_in(compiler.toolchains, compiler.version);
  const bool is_filled_in =
      std::any_of(toolchains.begin(), toolchains.end(),
                  [](const Toolchain& toolchain) { return toolchain.is_filled_in; });
  if (!record && !is_filled_in) {
    throw NothingInstalled("no installation of " + compiler.version + " is recorded in " +
                           Store::directory_in(compiler.root) + ", and " + compiler.toolchains +
                           " has no toolchain definition that is filled in");
  }
}

// The NDK that is meant: the one that was asked for, the one that the installation recorded, or the
// one that an installation would find.
std::string ndk_to_verify(const Plugin& plugin, Session& session,
                          const std::optional<InstallationRecord>& record,
                          const VerifyOptions& options) {
  if (record && !options.is_ndk_given) {
    if (!record->ndk) {
      throw NothingInstalled(record->version + " is installed without NDK integration");
    }
    return *record->ndk;
  }
  if (session.get("NDK_PATH").empty()) {
    const HeldLog no_step_of_an_installation;
    plugin.detect_ndk(session.handle());
  }
  if (session.get("NDK_PATH").empty()) {
    throw NothingInstalled("no NDK was found; --ndk names one, find --all tells why");
  }
  return normal_path(session.get("NDK_PATH"));
}

void refuse_other_than_ndk(const std::string& ndk) {
  if (!is_directory(ndk)) {
    throw std::runtime_error("there is no directory " + ndk);
  }
  if (!is_ordinary_file(ndk + "/ndk-build")) {
    throw std::runtime_error(ndk + " is not an NDK directory: it has no ndk-build");
  }
}

Verification run(const Plugin& plugin, const Installation& installation,
                 const VerifyOptions& options) {
  Session session(installation);
  const Compiler compiler = selected_compiler(plugin, session);
  const std::optional<CompilerTree> tree = find_compiler_tree(compiler.root);
  const auto record = tree ? Store(*tree).installation(compiler.version) : std::nullopt;
  require_installed(compiler, record);
  return verify_toolchains(plugin, compiler, ndk_to_verify(plugin, session, record, options),
                           options);
}

// The release of the NDK in `ndk`, also of one from before r11.
std::optional<std::string> release_of_any(const Plugin& plugin, const std::string& ndk) {
  const NdkFacts facts = read_facts(plugin, normal_path(ndk));
  return facts.release || facts.old_release.empty() ? facts.release : facts.old_release;
}

std::string line_of(const ToolchainProof& proof) {
  std::array<char, 32> took{};
  if (proof.seconds > 0) {
    std::snprintf(took.data(), took.size(), " (%.1f s)", proof.seconds);
  }
  return proof.toolchain.name + ": " + word_of(proof.result) + ": " + proof.message + took.data();
}

ExitCode tell_end(const Verification& verification, bool json) {
  if (json) {
    say_json(to_json(verification));
  } else {
    say("NDK: " + verification.ndk);
    say("release: " + verification.release.value_or("unknown"));
    tell(verification);
  }
  if (verification.failures() > 0) {
    complain("not done: " + summary_of(verification));
    return kNotDone;
  }
  if (!json) {
    say_always("done: " + summary_of(verification));
  }
  return kDone;
}

}  // namespace

std::size_t Verification::failures() const {
  return static_cast<std::size_t>(std::count_if(
      proofs.begin(), proofs.end(), [](const ToolchainProof& proof) { return !proof.is_good(); }));
}

void require_keep_directory(const VerifyOptions& options) {
  if (options.keep.empty()) {
    return;
  }
  std::error_code none;
  const bool is_there = std::filesystem::exists(options.keep, none);
  if (is_there && !std::filesystem::is_empty(options.keep, none)) {
    throw UsageError("--keep " + options.keep + ": it is there already and not an empty directory");
  }
  if (holds_blank(options.keep)) {
    throw UsageError("--keep " + options.keep +
                     ": its name holds a blank, and no NDK can build in such a directory");
  }
}

Verification verify_toolchains(const Plugin& plugin, const Compiler& compiler,
                               const std::string& ndk, const VerifyOptions& options) {
  refuse_other_than_ndk(ndk);
  Verification verification{ndk, release_of_any(plugin, ndk), {}};
  const std::vector<Toolchain> toolchains = toolchains_in(compiler.toolchains, compiler.version);
  if (toolchains.empty()) {
    throw std::runtime_error("there is no toolchain definition in " + compiler.toolchains);
  }
  const HeldSignals held;  // so that nothing is left behind
  std::optional<TemporaryDirectory> temporary;
  BuildRequest request{ndk, compiler.libraries, options.keep};
  if (!options.no_build && options.keep.empty()) {
    request.projects = temporary.emplace(directory_for_builds()).name();
  }
  for (const Toolchain& toolchain : toolchains) {
    ToolchainProof proof = prove_placed(ndk, toolchain, toolchains);
    if (proof.is_good() && !options.no_build) {
      prove_builds(request, proof, tell_progress);
    }
    verification.proofs.push_back(std::move(proof));
  }
  return verification;
}

void tell(const Verification& verification) {
  for (const ToolchainProof& proof : verification.proofs) {
    say_always(line_of(proof));
    for (const std::string& line : proof.last_lines) {
      say_always("    " + line);
    }
  }
}

Json to_json(const Verification& verification) {
  Json toolchains = Json::array();
  for (const ToolchainProof& proof : verification.proofs) {
    const std::string& arch = proof.toolchain.arch;
    std::string message = proof.message;
    for (const std::string& line : proof.last_lines) {
      message += "\n" + line;
    }
    toolchains.push_back({{"name", proof.toolchain.name},
                          {"arch", arch.empty() ? Json(nullptr) : Json(arch)},
                          {"abis", proof.toolchain.abis},
                          {"result", word_of(proof.result)},
                          {"message", message},
                          {"seconds", proof.seconds}});
  }
  const std::string& ndk = verification.ndk;
  return {{"schema", 1},
          {"ndk", ndk.empty() ? Json(nullptr) : Json(ndk)},
          {"release", optional_text(verification.release)},
          {"toolchains", toolchains}};
}

std::string summary_of(const Verification& verification) {
  const std::size_t all = verification.proofs.size();
  const std::size_t bad = verification.failures();
  const std::string number = std::to_string(all) + (all == 1 ? " toolchain" : " toolchains");
  if (bad > 0) {
    return std::to_string(bad) + " of " + number + (bad == 1 ? " does" : " do") + " not work in " +
           verification.ndk;
  }
  const bool is_built = std::any_of(
      verification.proofs.begin(), verification.proofs.end(),
      [](const ToolchainProof& proof) { return proof.result == ToolchainResult::kWorks; });
  return number +
         (is_built ? (all == 1 ? " works in " : " work in ")
                   : (all == 1 ? " is in its place in " : " are in their place in ")) +
         verification.ndk;
}

ExitCode verify(const Plugin& plugin, const Installation& installation,
                const VerifyOptions& options) {
  if (options.json) {
    be_quiet();
  }
  const auto end_early = [&](const std::string& what, ExitCode code) {
    if (options.json) {
      say_json(to_json(Verification{}));
    }
    complain(what);
    return code;
  };
  try {
    return tell_end(run(plugin, installation, options), options.json);
  } catch (const UsageError&) {
    throw;
  } catch (const NothingInstalled& nothing) {
    return end_early(std::string("nothing to verify: ") + nothing.what(), kNothingToDo);
  } catch (...) {
    return end_early("not done: " + describe_current_exception(), kNotDone);
  }
}

}  // namespace ndk_integrate

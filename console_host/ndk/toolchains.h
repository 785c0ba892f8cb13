// Toolchain definitions: where an NDK reads them, and whether those of a compiler package are
// there.
#ifndef CONSOLE_HOST_NDK_TOOLCHAINS_H
#define CONSOLE_HOST_NDK_TOOLCHAINS_H

#include <string>
#include <vector>

namespace ndk_integrate {

// A definition that a compiler package has: a directory with setup.mk and config.mk.
struct Toolchain {
  std::string name;               // what a person gives in NDK_TOOLCHAIN: the directory's name
  std::string definition;         // the directory, in the package
  std::string arch;               // as config.mk says it; "" where it says none
  std::vector<std::string> abis;  // the same
  bool is_filled_in = false;      // false while setup.mk holds placeholders
};

// The definitions in the directory `definitions` of the compiler's version `version`: those that
// have its name, and every other one with a setup.mk that is filled in. First those for x86_64.
std::vector<Toolchain> toolchains_in(const std::string& definitions, const std::string& version);

// The directory in which the NDK in `ndk` reads definitions, told by which one it has; "" where it
// has neither. What was put into the wrong one of the names in `toolchains` does not count.
std::string toolchain_place(const std::string& ndk, const std::vector<Toolchain>& toolchains);

enum class ToolchainResult {
  kWorks,
  kPlaced,  // where it was not built with
  kNotPlaced,
  kNoConfig,
  kNoSetup,
  kDiffers,
  kTakesOverDefault,
  kBuildFailed,
  kOtherCompiler,
};

// The word for programs: "works", "not-placed".
const char* word_of(ToolchainResult result);

struct ToolchainProof {
  Toolchain toolchain;
  ToolchainResult result = ToolchainResult::kPlaced;
  std::string message;                  // the result as a person is told it
  std::vector<std::string> last_lines;  // that a build which failed printed
  double seconds = 0;                   // that the builds took

  bool is_good() const {
    return result == ToolchainResult::kWorks || result == ToolchainResult::kPlaced;
  }
};

// Whether the definition of `toolchain`, one of the package's `all`, stands where the NDK in `ndk`
// reads it: kPlaced, or the reason why not.
ToolchainProof prove_placed(const std::string& ndk, const Toolchain& toolchain,
                            const std::vector<Toolchain>& all);

}  // namespace ndk_integrate

#endif

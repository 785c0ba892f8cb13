#include "console_host/base/diff.h"

#include <limits>
#include <stdexcept>

#include "console_host/base/directory.h"
#include "console_host/base/interruption.h"
#include "console_host/base/process.h"
#include "console_host/base/temporary_directory.h"

namespace ndk_integrate {

std::string diff(const std::string& name, const std::string& before, const std::string& after) {
  if (before == after) {
    return "";
  }
  const TemporaryDirectory temporary(directory_for_temporary_files());
  const std::string old_file = temporary.name() + "/before";
  const std::string new_file = temporary.name() + "/after";
  const Directory directory(temporary.name());
  directory.make_file("before", name).write(before, name);
  directory.make_file("after", name).write(after, name);
  // What reads a diff takes a name with blanks as a whole only when a tab follows it.
  const std::string label = name.find(' ') == std::string::npos ? name : name + "\t";
  ProcessOptions options;
  options.most_of_each_end = std::numeric_limits<std::size_t>::max();
  const ProcessResult result = run_process(
      {"diff", "-u", "--text", "--label", label, "--label", label, old_file, new_file}, options);
  throw_if_interrupted();
  if (result.exit_status > 1) {
    throw std::runtime_error("diff could not compare the texts of " + name + ": " + result.output);
  }
  return result.output;
}

}  // namespace ndk_integrate

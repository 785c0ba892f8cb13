// Measures patch_text_file on a large file, side by side with two others that do the same job with
// one write a line: a bare loop of find, replace and write, and perl with autoflush. The exit
// status is not 0 when patch_text_file misses one of the limits below.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "ndk_utils/ndk_utils.h"

namespace fs = std::filesystem;

namespace {

constexpr int kLines = 1'000'000;
constexpr std::size_t kRounds = 9;
constexpr double kLimitBareLoop = 1.15;
constexpr double kLimitPerl = 1.0;
constexpr double kLimitMemory = 1.0;  // MiB: a line and the streams' buffers, not the 57 MB

constexpr std::string_view kFrom = "{INSTALL_NOX_INSTALLDIR}";
constexpr std::string_view kTo = "/opt/nox/compiler/compilers_and_libraries_2005.3.42/linux";

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// --- The three that are compared ---

void with_patch_text_file(const fs::path& file) {
  patch_text_file(file, std::string(kFrom), std::string(kTo));
}

void write_all(int out, std::string_view text) {
  if (write(out, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    fail("cannot write the bare loop's copy");
  }
}

// As little as the job can be done with: buffered reading into one reused line, lines without the
// placeholder written from where they were read, and one reused text for the others.
void with_bare_loop(const fs::path& file) {
  const std::string copy = file.string() + ".tmp";
  std::FILE* in = std::fopen(file.c_str(), "rb");
  const int out = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (in == nullptr || out < 0) {
    fail("the bare loop cannot open " + file.string() + " and its copy");
  }
  std::setvbuf(in, nullptr, _IOFBF, 64 * 1024UL);
  char* buffer = nullptr;
  std::size_t capacity = 0;
  std::string patched;
  for (ssize_t size = 0; (size = getline(&buffer, &capacity, in)) > 0;) {
    const std::string_view line(buffer, static_cast<std::size_t>(size));
    std::size_t at = line.find(kFrom);
    if (at == std::string_view::npos) {
      write_all(out, line);
      continue;
    }
    patched.clear();
    std::size_t start = 0;
    for (; at != std::string_view::npos; at = line.find(kFrom, start)) {
      patched.append(line, start, at - start).append(kTo);
      start = at + kFrom.size();
    }
    write_all(out, patched.append(line, start));
  }
  write_all(out, "\n");
  std::free(buffer);
  std::fclose(in);
  close(out);
  fs::rename(copy, file);
}

void with_perl(const fs::path& file) {
  static const char* const kScript =
      "my ($file, $from, $to) = @ARGV;"
      "open(my $in, '<:raw', $file) or die \"$file: $!\";"
      "open(my $out, '>:raw', \"$file.tmp\") or die \"$file.tmp: $!\";"
      "my $old = select($out); $| = 1; select($old);"
      "while (<$in>) { s/\\Q$from\\E/$to/go; print $out $_; }"
      "print $out \"\\n\";"
      "close($in); close($out); rename(\"$file.tmp\", $file) or die \"$file: $!\";";
  std::array<std::string, 6> words{
      "perl", "-e", kScript, file.string(), std::string(kFrom), std::string(kTo)};
  std::array<char*, 7> arguments{};
  std::transform(words.begin(), words.end(), arguments.begin(),
                 [](std::string& word) { return word.data(); });
  pid_t child = 0;
  errno = posix_spawnp(&child, "perl", nullptr, nullptr, arguments.data(), environ);
  if (errno != 0) {
    fail("cannot run perl; install the Debian package perl");
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error("perl failed");
  }
}

struct Contender {
  const char* name;
  void (*patch)(const fs::path& file);
};

constexpr std::array<Contender, 3> kContenders{{{"patch_text_file", with_patch_text_file},
                                                {"bare_loop", with_bare_loop},
                                                {"perl", with_perl}}};

// --- The file ---

// A directory of its own for the files, which goes when the program ends.
class Workspace {
 public:
  Workspace() {
    std::string name = fs::temp_directory_path() / "bench_patch.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      fail("cannot make a directory " + name);
    }
    directory_ = name;
    write_original();
  }
  ~Workspace() {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  fs::path file() const { return directory_ / "file"; }

  // Makes the file anew. A link is enough: all contenders move another file over its name.
  void restore() const {
    fs::remove(file());
    fs::create_hard_link(original(), file());
  }

  // Keeps the patched file, for comparing the next ones with it.
  void keep_as_expected() const { fs::rename(file(), expected()); }

  void check_result(const std::string& who) const {
    std::ifstream result(file(), std::ios::binary);
    std::ifstream wanted(expected(), std::ios::binary);
    std::string line;
    std::string wanted_line;
    while (std::getline(wanted, wanted_line)) {
      if (!std::getline(result, line) || line != wanted_line) {
        throw std::runtime_error(who + " writes another file than patch_text_file");
      }
    }
    if (std::getline(result, line)) {
      throw std::runtime_error(who + " writes more than patch_text_file");
    }
  }

 private:
  fs::path original() const { return directory_ / "original"; }
  fs::path expected() const { return directory_ / "expected"; }

  // Lines of 57 bytes with their line end, every tenth with the placeholder.
  void write_original() const {
    const std::string plain = "TARGET_CFLAGS += -ffunction-sections -funwind-tables -O2\n";
    std::string filled = "TARGET_INCLUDES += -I" + std::string(kFrom) + "/include\n";
    filled.insert(filled.size() - 1, plain.size() - filled.size(), '/');
    std::ofstream out(original(), std::ios::binary);
    for (int i = 0; i < kLines; ++i) {
      out << (i % 10 == 0 ? filled : plain);
    }
    if (!out.flush()) {
      fail("cannot write " + original().string());
    }
  }

  fs::path directory_;
};

// --- What is measured ---

// The number of MiB in a line of /proc/self/status.
double memory_in_mib(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, key.size(), key) == 0) {
      return std::stod(line.substr(key.size())) / 1024;
    }
  }
  throw std::runtime_error("/proc/self/status holds no " + key);
}

// How far memory rises at its peak, while patch_text_file works on the file, above what was held
// before.
double memory_growth(const Workspace& workspace) {
  workspace.restore();
  // Forgets the peak so far, which would hide this one. The peak that getrusage tells stays.
  if (!(std::ofstream("/proc/self/clear_refs") << 5 << std::flush)) {
    throw std::runtime_error("cannot reset the memory peak in /proc/self/clear_refs");
  }
  const double before = memory_in_mib("VmRSS:");
  with_patch_text_file(workspace.file());
  return memory_in_mib("VmHWM:") - before;
}

using Clock = std::chrono::steady_clock;
using Seconds = std::vector<double>;

double median(Seconds times) {
  if (times.empty()) {
    throw std::runtime_error("no times to compare; run without --benchmark_filter");
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

// Registers one run of each contender a round, so that a drift of the machine hits all alike; who
// goes first changes from round to round.
void register_rounds(const Workspace& workspace, std::array<Seconds, kContenders.size()>& times) {
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < kContenders.size(); ++i) {
      const std::size_t who = (i + round) % kContenders.size();
      const auto run = [&workspace, &contender = kContenders[who],
                        &seconds = times[who]](benchmark::State& state) {
        for ([[maybe_unused]] auto _ : state) {
          workspace.restore();
          const Clock::time_point start = Clock::now();
          contender.patch(workspace.file());
          seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
          state.SetIterationTime(seconds.back());
          workspace.check_result(contender.name);
        }
      };
      const std::string name = kContenders[who].name;
      benchmark::RegisterBenchmark((name + "/round:" + std::to_string(round + 1)).c_str(), run)
          ->UseManualTime()
          ->Iterations(1)
          ->Unit(benchmark::kMillisecond);
    }
  }
}

// Prints one result and says whether it keeps its limit.
bool report(const char* what, double value, double limit, const char* unit) {
  const bool kept = value <= limit;
  std::printf("%-32s %8.2f%s (limit %.2f%s)%s\n", what, value, unit, limit, unit,
              kept ? "" : "  MISSED");
  return kept;
}

int run_all(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  const Workspace workspace;
  const double growth = memory_growth(workspace);
  workspace.keep_as_expected();
  std::array<Seconds, kContenders.size()> times;
  register_rounds(workspace, times);
  benchmark::RunSpecifiedBenchmarks();

  const double ours = median(times[0]);
  std::printf("\n");
  bool kept = report("patch_text_file / bare loop", ours / median(times[1]), kLimitBareLoop, "");
  kept &= report("patch_text_file / perl", ours / median(times[2]), kLimitPerl, "");
  kept &= report("growth of memory while patching", growth, kLimitMemory, " MiB");
  return kept ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run_all(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_patch: %s\n", failure.what());
    return 2;
  }
}

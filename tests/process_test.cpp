// Processes that this program runs: what is kept of what they print, who follows them, and how they
// end when this program is to end.
#include "console_host/base/process.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <random>

#include "console_host/base/bounded_text.h"
#include "console_host/base/interruption.h"
#include "tests/temporary_directory.h"

namespace ndk_integrate {
namespace {

// What is kept of `text` where each end may hold `most` bytes.
std::string kept(const std::string& text, std::size_t most) {
  if (text.size() <= 2 * most) {
    return text;
  }
  const std::string beginning = text.substr(0, most);
  return beginning + (beginning.back() == '\n' ? "[" : "\n[") +
         std::to_string(text.size() - 2 * most) + " bytes are left out here]\n" +
         text.substr(text.size() - most);
}

TEST(BoundedText, KeepsBothEnds) {
  for (const char* text : {"", "a", "abcdef", "abcdefg", "ab\ndefghi", "0123456789abcdefghij"}) {
    BoundedText bounded(3);
    bounded.append(text);
    EXPECT_EQ(bounded.take(), kept(text, 3));
  }
}

TEST(BoundedText, WhateverThePieces) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int i = 0; i < 1000; ++i) {
    const std::size_t most = random() % 20 + 1;
    BoundedText bounded(most);
    std::string whole;
    for (std::size_t pieces = random() % 8; pieces > 0; --pieces) {
      std::string piece(random() % 30, '\0');
      for (char& c : piece) {
        c = "abc\n"[random() % 4];
      }
      whole += piece;
      bounded.append(piece);
    }
    ASSERT_EQ(bounded.take(), kept(whole, most));
  }
}

// Notes what it is told. After some silences it lets a process go on that waits for a pipe.
struct Notes : ProcessWatcher {
  void printed(std::string_view text) override { output += text; }
  void is_silent(std::chrono::milliseconds time) override {
    EXPECT_GE(time, last);
    last = time;
    if (++silences == 3) {
      std::ofstream(pipe) << "on\n";
    }
  }

  std::string pipe;
  std::string output;
  int silences = 0;
  std::chrono::milliseconds last{};
};

TEST(Process, IsFollowed) {
  const ::TemporaryDirectory dir;
  Notes notes;
  notes.pipe = dir.path() + "/pipe";
  ASSERT_EQ(mkfifo(notes.pipe.c_str(), 0600), 0);
  ProcessOptions options;
  options.watcher = &notes;
  options.silence = std::chrono::milliseconds(2);
  const ProcessResult result = run_process(
      {"sh", "-c", "echo one; read word < " + notes.pipe + "; echo $word >&2"}, options);
  EXPECT_EQ(result.output, "one\non\n");
  EXPECT_EQ(notes.output, result.output);
  EXPECT_GE(notes.silences, 3);
}

TEST(Process, KeepsBothEndsOfItsOutput) {
  ProcessOptions options;
  options.most_of_each_end = 4;
  const ProcessResult result = run_process({"printf", "abc\ndefghi"}, options);
  EXPECT_EQ(result.output, "abc\n[2 bytes are left out here]\nfghi");
}

TEST(Process, LeavesOthersThatItStarted) {
  // One that is left behind keeps the output open, and is not waited for.
  const ProcessResult result = run_process({"sh", "-c", "echo $$; sleep 1000 &"});
  const pid_t group = std::stoi(result.output);
  EXPECT_EQ(kill(-group, 0), 0);
  kill(-group, SIGKILL);
}

// For a process of its own: runs a script that makes ready, and then sends this program `signal`, which
// gives it `grace` to end in. Ends as the program does, or with 99 where something of it is left.
void be_interrupted(int signal, const std::string& preparation, std::chrono::milliseconds grace) {
  std::signal(signal, SIG_DFL);  // what runs the tests may ignore it
  ProcessOptions options;
  options.grace_period = grace;
  const std::string script =
      "echo $$; " + preparation + " kill -" + std::to_string(signal) + " $PPID; exec sleep 1000";
  const ProcessResult result = run_process({"sh", "-c", script}, options);
  try {
    throw_if_interrupted();
  } catch (const Interrupted& interrupted) {
    std::cerr << interrupted.what() << " " << result.exit_status << "\n";
  }
  if (kill(-std::stoi(result.output), 0) == 0) {
    constexpr int kLeft = 99;
    std::_Exit(kLeft);
  }
  end_by_signal(interrupting_signal());
}

TEST(Interruption, ReachesTheProcessGroup) {
  constexpr std::chrono::minutes kLong(1);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    // A shell lets what it runs in the background ignore SIGINT.
    const std::string more = signal == SIGINT ? "" : "sleep 1000 &";
    EXPECT_EXIT(be_interrupted(signal, more, kLong), testing::KilledBySignal(signal),
                "interrupted " + std::to_string(128 + signal));
  }
}

TEST(Interruption, KillsWhatDoesNotEnd) {
  constexpr std::chrono::milliseconds kShort(20);
  EXPECT_EXIT(be_interrupted(SIGTERM, "trap '' TERM;", kShort), testing::KilledBySignal(SIGTERM),
              "interrupted 137");
  EXPECT_EXIT(be_interrupted(SIGTERM, "(trap '' TERM; while :; do sleep 1000; done) &", kShort),
              testing::KilledBySignal(SIGTERM), "interrupted 143");
}

TEST(Interruption, StartsNothingMore) {
  const auto run_after_signal = [] {
    std::signal(SIGTERM, SIG_DFL);
    const HeldSignals held;
    raise(SIGTERM);
    try {
      run_process({"true"});
    } catch (const Interrupted&) {
      end_by_signal(interrupting_signal());
    }
  };
  EXPECT_EXIT(run_after_signal(), testing::KilledBySignal(SIGTERM), "");
}

}  // namespace
}  // namespace ndk_integrate

// A host for tests. It defines every service of host/host.h, writes each call down as one line of
// text, and answers from a world that the test sets up. Texts in the lines are quoted and escaped
// as in C++.
#ifndef TESTS_RECORDING_HOST_H
#define TESTS_RECORDING_HOST_H

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host.h"

// What a service throws when a test asks for it.
struct HostFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A text as it stands in the record.
std::string in_quotes(const std::string& text);

// While an object of this type lives, it is what the services answer from. One at a time.
struct RecordingHost {
  RecordingHost();
  ~RecordingHost();
  RecordingHost(const RecordingHost&) = delete;
  RecordingHost& operator=(const RecordingHost&) = delete;

  static RecordingHost& current();

  // --- The world ---

  session_t session{};
  std::map<std::string, std::string> variables;
  // What file_exists and IniDb see: name and content. patch_text_file and file_move use real files.
  std::map<std::string, std::string> files;
  int exists = 1;                       // what file_exists answers for a file that is there
  std::map<std::string, int> writable;  // what is_writable answers, by directory; else 1
  bool keep_empty_pieces = false;       // of splitString
  std::string command_output;           // of get_command_output
  std::function<std::string(std::string)> normalise;  // of path; where unset, a path stays as it is
  std::function<void()> before_call;                  // runs before a call is written down

  void add_ndk(const std::string& dir, const std::string& revision);
  void add_component(const std::string& id, const std::string& version,
                     const std::string& package_number, const std::string& subdir,
                     bool condition = true, bool selected = true);

  // The `n`-th call from now on, the first being 1, throws HostFailure once it is written down;
  // with a name (as it stands in the record) the `n`-th call of that service does. ~IniDb() does
  // not count, since destructors do not throw, and neither does chdir(), which is not a service.
  void fail_at(std::size_t n, const std::string& service = "");

  // --- What happened ---

  std::vector<std::string> calls;
  std::size_t live_readers = 0;  // IniDb objects made and not yet destroyed

  // The calls as text, a line a call, after an empty first line: it compares with a raw string.
  std::string record() const;

  // --- For the services ---

  struct ComponentAnswers {
    bool condition;
    bool selected;
    std::string subdir;
  };
  void note(const std::string& line);
  void call(const std::string& service, const std::string& arguments);

 private:
  friend class TSD;
  std::deque<Component> components_;
  std::deque<ComponentAnswers> answers_;
  std::string failing_service_;
  std::size_t calls_to_failure_ = 0;  // 0: none fails
};

#endif

// A host for fuzz targets. It defines every service of host/host.h, answers from a world that the
// target sets up, makes the choices that the contract leaves to the host as the input says, and
// records what the plug-in does.
#ifndef FUZZ_FUZZ_HOST_H
#define FUZZ_FUZZ_HOST_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "host/host.h"

// What a service throws when the input says so.
struct HostFailure : std::runtime_error {
  explicit HostFailure(std::size_t number)
      : std::runtime_error("host call " + std::to_string(number)), call(number) {}
  std::size_t call;  // the how-many-th call of a service it was
};

// While an object of this type lives, it is what the services answer from. One at a time.
struct FuzzHost {
  // `choices` is one bit for each of the six choices below, the lowest bit first.
  explicit FuzzHost(std::uint8_t choices);
  ~FuzzHost();
  FuzzHost(const FuzzHost&) = delete;
  FuzzHost& operator=(const FuzzHost&) = delete;

  static FuzzHost& current();

  // --- What the contract leaves to the host ---

  const bool keys_trimmed;       // IniDb trims keys, the given one too; else they are left alone
  const bool values_trimmed;     // IniDb trims values; else they are left alone
  const bool keeps_empty;        // splitString keeps empty pieces; else it drops them
  const bool wraps_numbers;      // strtoint wraps, and no number is -1; else the nearest, and 0
  const bool true_is_256;        // of the truth values that are int; else 1
  const bool collapses_slashes;  // path makes "//" one "/"; else it changes nothing

  // The services that make them, for the targets: these calls are not counted.
  std::string property(const std::string& content, const std::string& key,
                       const std::string& separator) const;
  std::vector<std::string> pieces(const std::string& text, const std::string& separator) const;
  int number(const std::string& text) const;
  std::string path_form(const std::string& path) const;

  // --- The world ---

  session_t session{};
  std::map<std::string, std::string> variables;
  // What file_exists and IniDb see. patch_text_file and file_move use real files.
  std::map<std::string, std::string> files;
  bool moves_files = true;                                  // else file_move does nothing
  std::function<std::string(const std::string&)> confined;  // where set, path goes through it too
  // Where set, each call of a service takes a byte from it: "!" makes it throw HostFailure, "?"
  // makes it answer with the text that follows, up to "|", instead of the truth, and so does every
  // byte with the same low four bits; any other, "." say, changes nothing.
  Input* disturbances = nullptr;

  void add_file(const std::string& name, const std::string& content);
  void add_component(const std::string& id, const std::string& version,
                     const std::string& package_number, const std::string& subdir, bool condition,
                     bool selected);

  // --- What happened ---

  // What the plug-in did, in order: lines logged, errors reported, variables set, readers opened,
  // asked and closed, files moved, commands run, components asked whether they count.
  std::vector<std::string> record;
  std::size_t calls = 0;         // calls of services, except ~IniDb()
  std::size_t failures = 0;      // how many of them threw
  std::size_t live_readers = 0;  // IniDb objects made and not yet destroyed

  // --- For the services ---

  struct ComponentAnswers {
    bool condition;
    bool selected;
    std::string subdir;
  };
  void call();
  std::string answer(const std::string& truth);
  int answer(int truth);
  bool answer_bool(bool truth);
  std::vector<std::string> answer(const std::vector<std::string>& truth);
  std::vector<Component*> components();

 private:
  std::deque<Component> components_;
  std::deque<ComponentAnswers> answers_;
  bool lies_ = false;  // the current call does not answer the truth
};

#endif

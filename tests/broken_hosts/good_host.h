// A plain host that keeps every point of the contract, except the one that it is told to break.
#ifndef TESTS_BROKEN_HOSTS_GOOD_HOST_H
#define TESTS_BROKEN_HOSTS_GOOD_HOST_H

#include <deque>
#include <map>
#include <string>

#include "host/host.h"

struct GoodHost {
  // `broken` names the point to break, "" none; the points are spelled out in good_host.cpp, but
  // for those of the form "CHECK: CALL -> ANSWER" and "CHECK: CALL throws", which answer one call
  // otherwise: "strtoint-decimals: strtoint(3) -> 4". The log goes to the file descriptor `log`,
  // one write a line, so that a crash loses nothing.
  GoodHost(std::string broken, int log);
  ~GoodHost();
  GoodHost(const GoodHost&) = delete;
  GoodHost& operator=(const GoodHost&) = delete;

  static GoodHost& current();

  bool breaks(const std::string& point) const { return broken_ == point; }
  // What `call` is answered with: `usual`, unless the host is to answer it otherwise.
  std::string answer(const std::string& call, const std::string& usual) const;
  void log_line(const std::string& text) const;

  // Where the contract leaves the host a choice, the other one than usual.
  bool other_choices = false;
  std::map<std::string, std::string> variables;
  std::deque<Component> components;
  int asked_for_components = 0;
  session_t session{};

 private:
  std::string broken_;
  int log_;
};

#endif

// A plain host that keeps every point of the contract, except the one that it is told to break.
#ifndef TESTS_BROKEN_HOSTS_GOOD_HOST_H
#define TESTS_BROKEN_HOSTS_GOOD_HOST_H

#include <deque>
#include <map>
#include <string>

#include "host/host.h"

struct GoodHost {
  // `broken` names the point to break, "" none; the points are spelled out in good_host.cpp. The
  // log goes to the file descriptor `log`, one write a line, so that a crash loses nothing.
  GoodHost(std::string broken, int log);
  ~GoodHost();
  GoodHost(const GoodHost&) = delete;
  GoodHost& operator=(const GoodHost&) = delete;

  static GoodHost& current();

  bool breaks(const std::string& point) const { return broken_ == point; }
  void log_line(const std::string& text) const;

  // Where the contract leaves the host a choice, the other one than usual.
  bool other_choices = false;
  std::map<std::string, std::string> variables;
  std::deque<Component> components;
  session_t session{};

 private:
  std::string broken_;
  int log_;
};

#endif

// Runs the checks and reports on them.
#include "host_check/host_check.h"

#include <exception>
#include <set>
#include <string>

#include "host_check/checks.h"
#include "host_check/verdict.h"

namespace host_check {
namespace {

// A log that throws ends nothing: the number of violations still comes back.
void report(const Check& check, const std::string& text) {
  try {
    print_log("HOST_CHECK: %s: %s", check.name, text.c_str());
  } catch (...) {
  }
}

// Throws what tells why the host does not keep the point; returns when it does.
void run(const Check& check, session_t* session, const std::set<std::string>& ok) {
  for (const char* need : check.needs) {
    if (ok.count(need) == 0) {
      throw Skipped("it builds on " + std::string(need) + ", which is not ok");
    }
  }
  const std::string expected = "a normal return was expected";
  try {
    check.run(session);
  } catch (const Violated&) {
    throw;
  } catch (const Noted&) {
    throw;
  } catch (const Skipped&) {
    throw;
  } catch (const std::exception& exception) {
    throw Violated(expected, "an exception came: " + quoted(exception.what()));
  } catch (...) {
    throw Violated(expected, "an exception came that is not a std::exception");
  }
}

}  // namespace
}  // namespace host_check

int check_host(session_t* session) {
  using namespace host_check;
  int violations = 0;
  std::set<std::string> ok;
  for (const Check& check : checks()) {
    report(check, "checking");
    try {
      run(check, session, ok);
      ok.insert(check.name);
      report(check, "ok");
    } catch (const Violated& violated) {
      ++violations;
      report(check, std::string("violated: ") + violated.what());
    } catch (const Noted& noted) {
      ok.insert(check.name);
      report(check, std::string("note: ") + noted.what());
    } catch (const Skipped& skipped) {
      report(check, std::string("skipped: ") + skipped.what());
    }
  }
  return violations;
}

// How a check ends: it returns when the host keeps the point, and throws one of these otherwise.
#ifndef HOST_CHECK_VERDICT_H
#define HOST_CHECK_VERDICT_H

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host_check {

// The host breaks the point that is checked.
class Violated : public std::runtime_error {
 public:
  Violated(const std::string& expected, const std::string& came);
};

// The point cannot be checked here and now.
class Skipped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host keeps the point, but what was seen deserves a look.
class Noted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `text` between quotes, on one line: control characters and bytes beyond ASCII are escaped, and of
// a long text only the beginning is shown, with its length.
std::string quoted(const std::string& text);
std::string quoted(const std::vector<std::string>& texts);

// Throws Violated where `run`, which makes the service call, throws.
void expect_return(const std::string& call, const std::function<void()>& run);

// Throws Violated unless the service call, as a person writes it, gave what was expected.
void expect(const std::string& call, const std::string& expected, const std::string& came);
void expect(const std::string& call, long long expected, long long came);
void expect(const std::string& call, const std::vector<std::string>& expected,
            const std::vector<std::string>& came);

}  // namespace host_check

#endif

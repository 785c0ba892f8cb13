// Checks of the session variables. Only those that the plug-in writes are written, and each has its
// value back in the end.
#include <array>
#include <list>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/verdict.h"

namespace host_check {

namespace {

constexpr std::array<const char*, 5> kSetByHosts{
    "NDK_DEFAULT_SEARCH_PATH_LINUX", "NDK_SUPPORTED_VERSIONS", "NDK_INTEGRATION_ENABLED",
    "NDK_COMPONENT_PATTERNS", "VORN_INSTALL_DIR"};

constexpr std::array<const char*, 8> kWrittenByThePlugin{"NDK_PATH",
                                                         "NDK_PATH_STATUS",
                                                         "NDK_INTEGRATION_INSTALL_DETECTED",
                                                         "NDK_COMPILER_SUBDIR",
                                                         "NDK_COMPILER_VERSION",
                                                         "NDK_COMPILER_PACKAGE_NUMBER",
                                                         "NDK_CNL_VERSION_FULL",
                                                         "NDK_CNL_VERSION_MAJOR"};

// One variable, whose value comes back with the end of the object.
class Variable {
 public:
  Variable(session_t* session, const char* name)
      : session_(session), name_(name), before_(env_get_string(session, name)) {}
  ~Variable() {
    // A host may have only one form that works.
    if (!restore([this] { set(before_); })) {
      restore([this] { set(before_.c_str()); });
    }
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  void set(const char* value) { env_set_string(session_, name_, value); }
  void set(const std::string& value) { env_set_string(session_, std::string(name_), value); }
  const char* name() const { return name_; }

  void expect_value(const std::string& expected) const {
    expect("env_get_string(" + quoted(std::string(name_)) + ")", expected,
           env_get_string(session_, name_));
  }

 private:
  template <typename Setter>
  bool restore(const Setter& setter) {
    try {
      setter();
      return env_get_string(session_, name_) == before_;
    } catch (...) {
      return false;
    }
  }

  session_t* session_;
  const char* name_;
  std::string before_;
};

std::string never_set_variable(session_t* session) {
  try {
    return env_get_string(session, "NDK_HOST_CHECK_NEVER_SET");
  } catch (...) {
    throw Noted(
        "env_get_string(\"NDK_HOST_CHECK_NEVER_SET\") threw an exception, where the plug-in takes "
        "\"\" for a variable that was never set");
  }
}

}  // namespace

std::vector<Check> variable_checks() {
  return {
      {"variables-readable",
       "Each of the thirteen session variables can be read at any time, set or not.",
       {},
       [](session_t* session) {
         for (const char* name : kSetByHosts) {
           env_get_string(session, name);
         }
         for (const char* name : kWrittenByThePlugin) {
           env_get_string(session, name);
         }
       }},
      {"variables-never-set",
       "A variable that was never set reads as \"\"; a note where it does not.",
       {"variables-readable"},
       [](session_t* session) {
         const std::string value = never_set_variable(session);
         if (!value.empty()) {
           throw Noted("env_get_string(\"NDK_HOST_CHECK_NEVER_SET\") gave " + quoted(value) +
                       ", where the plug-in takes \"\" for a variable that was never set");
         }
       }},
      {"set-c-strings",
       "A value written with the form of env_set_string that takes C strings is what the next env_get_string gives.",
       {"variables-readable"},
       [](session_t* session) {
         Variable status(session, "NDK_PATH_STATUS");
         for (const char* value : {"nok", "notwritable", "ok"}) {
           status.set(value);
           status.expect_value(value);
         }
       }},
      {"set-std-strings",
       "A value written with the form of env_set_string that takes std::string is what the next env_get_string gives.",
       {"variables-readable"},
       [](session_t* session) {
         Variable version(session, "NDK_COMPILER_VERSION");
         for (const char* value : {"5.0.3", "4.1.7", "5.0.3.42"}) {
           version.set(std::string(value));
           version.expect_value(value);
         }
       }},
      // As the search for an NDK writes it: a candidate in one form, its rejection in the other.
      {"one-store",
       "Both forms of env_set_string write to the same variable, each after the other.",
       {"set-c-strings", "set-std-strings"},
       [](session_t* session) {
         Variable ndk(session, "NDK_PATH");
         for (const char* value : {"/opt/ndk-a", "/opt/ndk-b"}) {
           ndk.set(std::string(value));
           ndk.expect_value(value);
           ndk.set("/none");
           ndk.expect_value("/none");
         }
       }},
      {"empty-value",
       "\"\" can be written to a variable that had a value, with either form.",
       {"set-c-strings", "set-std-strings", "one-store"},
       [](session_t* session) {
         Variable ndk(session, "NDK_PATH");
         ndk.set("/opt/ndk");
         ndk.set("");
         ndk.expect_value("");
         ndk.set("/opt/ndk");
         ndk.set(std::string());
         ndk.expect_value("");
       }},
      {"value-characters",
       "A value keeps its blanks (at its ends, too), percent signs, semicolons, quotes, backslashes, dollar signs and bytes that are not ASCII.",
       {"set-std-strings"},
       [](session_t* session) {
         Variable subdir(session, "NDK_COMPILER_SUBDIR");
         for (const char* value :
              {"/my compiler", " /blanks at both ends ", "/100%/%s/%n", "/a;/b;;/c",
               R"(/'one' "two" \ $HOME `id`)", "/gr\xc3\xbcn/\xff"}) {
           subdir.set(std::string(value));
           subdir.expect_value(value);
         }
       }},
      {"value-length",
       "A value of 100,000 bytes is kept whole.",
       {"set-std-strings"},
       [](session_t* session) {
         std::string value;
         while (value.size() < 100000) {
           value += "/directory" + std::to_string(value.size());
         }
         value.resize(100000);
         Variable ndk(session, "NDK_PATH");
         ndk.set(value);
         ndk.expect_value(value);
       }},
      {"variables-apart",
       "Writing one variable changes no other.",
       {"set-std-strings"},
       [](session_t* session) {
         std::list<Variable> variables;
         for (const char* name : kWrittenByThePlugin) {
           variables.emplace_back(session, name);
         }
         for (Variable& variable : variables) {
           variable.set("the value of " + std::string(variable.name()));
         }
         for (const Variable& variable : variables) {
           variable.expect_value("the value of " + std::string(variable.name()));
         }
       }},
  };
}

}  // namespace host_check

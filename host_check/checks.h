// The checks: one function for each point of the contract, and the table of them all.
#ifndef HOST_CHECK_CHECKS_H
#define HOST_CHECK_CHECKS_H

#include <vector>

#include "host/host.h"

struct Check {
  const char* name;
  const char* description;  // one sentence
  // Returns when the host keeps the point, and throws Violated or Skipped (verdict.h) when not, or
  // whatever a service of the host throws.
  void (*run)(session_t* session);
  // Checks that come earlier and must be ok, because without them this one would blame the host a
  // second time for the same thing.
  std::vector<const char*> needs;
};

// In the order in which they run.
const std::vector<Check>& checks();

// log_checks.cpp
void log_without_arguments(session_t* session);
void log_percent_in_argument(session_t* session);
void log_long_argument(session_t* session);
void error_returns(session_t* session);

// variable_checks.cpp
void variables_readable(session_t* session);
void set_c_strings(session_t* session);
void set_std_strings(session_t* session);
void one_store(session_t* session);
void empty_value(session_t* session);
void value_characters(session_t* session);
void value_length(session_t* session);
void variables_apart(session_t* session);

// component_checks.cpp
void components_walk(session_t* session);
void components_stable(session_t* session);
void components_members(session_t* session);

// text_checks.cpp
void split_order(session_t* session);
void split_version(session_t* session);
void split_inner_blanks(session_t* session);
void split_without_separator(session_t* session);
void split_empty_text(session_t* session);
void replace_every_occurrence(session_t* session);
void replace_with_nothing(session_t* session);
void replace_literally(session_t* session);
void replace_other_bytes(session_t* session);
void strtoint_decimals(session_t* session);
void strtoint_leading_zeros(session_t* session);
void strtoint_negative(session_t* session);
void inttostr_decimals(session_t* session);
void inttostr_negative(session_t* session);

// path_checks.cpp
void path_of_file(session_t* session);
void path_of_directory(session_t* session);
void path_with_blanks(session_t* session);
void path_of_path(session_t* session);
void path_of_missing_file(session_t* session);
void path_of_empty_text(session_t* session);

// file_checks.cpp
void file_exists_file(session_t* session);
void file_exists_missing(session_t* session);
void file_exists_missing_directory(session_t* session);
void is_writable_directory(session_t* session);
void is_writable_read_only(session_t* session);
void file_move_replaces(session_t* session);
void file_move_takes_source(session_t* session);
void file_move_blanks(session_t* session);

// property_checks.cpp
void property_value(session_t* session);
void property_missing_key(session_t* session);
void property_unreadable_file(session_t* session);
void property_each_file(session_t* session);
void release_numbers(session_t* session);

// command_checks.cpp
void command_null_status(session_t* session);
void command_output(session_t* session);
void command_shell(session_t* session);
void command_working_directory(session_t* session);
void command_complete_output(session_t* session);
void command_failing(session_t* session);
void command_not_there(session_t* session);
void command_waits(session_t* session);

#endif

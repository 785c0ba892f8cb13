// What two separate binaries have to agree on: the layout of the contract's types and the types of
// its declarations. It is all settled when this file compiles.
#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "host/host.h"
#include "ndk_utils/ndk_utils.h"

// --- Layout ---

static_assert(sizeof(TSD) == sizeof(void*));
static_assert(offsetof(TSD, host_data) == 0);
static_assert(std::is_same_v<decltype(TSD::host_data), void*>);

static_assert(sizeof(session_t) == 2 * sizeof(void*));
static_assert(offsetof(session_t, tsd) == 0);
static_assert(offsetof(session_t, host_data) == sizeof(void*));
static_assert(std::is_same_v<decltype(session_t::tsd), TSD>);
static_assert(std::is_same_v<decltype(session_t::host_data), void*>);

static_assert(sizeof(IniDb) == sizeof(void*));
static_assert(offsetof(IniDb, host_data) == 0);
static_assert(std::is_same_v<decltype(IniDb::host_data), void*>);

static_assert(sizeof(Component) == 3 * sizeof(std::string) + sizeof(void*));
static_assert(offsetof(Component, id) == 0);
static_assert(offsetof(Component, version) == sizeof(std::string));
static_assert(offsetof(Component, packageNumber) == 2 * sizeof(std::string));
static_assert(offsetof(Component, host_data) == 3 * sizeof(std::string));
static_assert(std::is_same_v<decltype(Component::id), std::string>);
static_assert(std::is_same_v<decltype(Component::version), std::string>);
static_assert(std::is_same_v<decltype(Component::packageNumber), std::string>);
static_assert(std::is_same_v<decltype(Component::host_data), void*>);

static_assert(!std::is_polymorphic_v<TSD> && !std::is_polymorphic_v<Component>);
static_assert(!std::is_polymorphic_v<session_t> && !std::is_polymorphic_v<IniDb>);

// --- Classes ---

static_assert(std::is_same_v<decltype(&TSD::components), std::vector<Component*> (TSD::*)()>);
static_assert(std::is_same_v<decltype(&Component::installCondition), bool (Component::*)()>);
static_assert(std::is_same_v<decltype(&Component::getSelected), bool (Component::*)()>);
static_assert(std::is_same_v<decltype(&Component::subdir), std::string (Component::*)()>);
static_assert(std::is_same_v<decltype(&IniDb::value), std::string (IniDb::*)(std::string)>);
static_assert(std::is_constructible_v<IniDb, std::string, std::string, std::string>);
static_assert(!std::is_default_constructible_v<IniDb>);

// --- Services ---

// Both forms of env_set_string, each picked by its type.
[[maybe_unused]] static void (*const set_chars)(session_t*, const char*,
                                                const char*) = &env_set_string;
[[maybe_unused]] static void (*const set_strings)(session_t*, const std::string&,
                                                  const std::string&) = &env_set_string;

template <typename Expected, typename Actual>
constexpr bool has_type(Actual* /*declaration*/) {
  return std::is_same_v<Expected, Actual>;
}

using Strings = std::vector<std::string>;

static_assert(has_type<std::string(session_t*, const char*)>(&env_get_string));
static_assert(has_type<void(const char*, ...)>(&print_log));
static_assert(has_type<void(const char*, ...)>(&error));
static_assert(has_type<std::string(std::string)>(&path));
static_assert(has_type<int(const std::string&, bool)>(&file_exists));
static_assert(has_type<int(std::string)>(&is_writable));
static_assert(has_type<int(std::string, std::string)>(&file_move));
static_assert(has_type<Strings(const std::string&, const std::string&, bool)>(&splitString));
static_assert(has_type<std::string(const std::string&, const std::string&, const std::string&)>(
    &replaceAllSubstrings));
static_assert(has_type<int(const std::string&)>(&strtoint));
static_assert(has_type<std::string(long long)>(&inttostr));
static_assert(has_type<std::string(std::string, int*, bool, std::string)>(&get_command_output));

// --- The plug-in ---

static_assert(has_type<int(session_t*)>(&detect_ndk));
static_assert(has_type<int(session_t*)>(&validate_ndk_path));
static_assert(has_type<int(session_t*)>(&check_if_ndk_integration_files_are_to_be_installed));
static_assert(has_type<int(session_t*)>(&integrate_ndk));
static_assert(has_type<int(session_t*)>(&unintegrate_ndk));
static_assert(has_type<bool(const std::string&)>(&is_ndk_dir));
static_assert(has_type<ndk_version_t(const std::string&)>(&get_version));
static_assert(has_type<std::string(ndk_version_t)>(&ndk_version_string));
static_assert(has_type<bool(ndk_version_t, const std::string&)>(&is_ndk_version_supported));
static_assert(
    has_type<void(const std::string&, const std::string&, const std::string&)>(&patch_text_file));
static_assert(has_type<std::string(session_t*)>(&get_toolchains_path));
static_assert(has_type<std::string(session_t*)>(&get_compiler_path));
static_assert(has_type<std::string(session_t*)>(&get_compiler_full_version));
static_assert(has_type<std::string(session_t*)>(&get_compiler_version));
static_assert(has_type<std::string(session_t*)>(&get_compiler_package_number));

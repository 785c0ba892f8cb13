#include "console_host/integration_record.h"

#include <algorithm>
#include <utility>

#include "host/host.h"

namespace {

// The services that report here get no session, so the record is the one of the process.
IntegrationRecord* current_record = nullptr;

}  // namespace

IntegrationRecord::IntegrationRecord() { current_record = this; }
IntegrationRecord::~IntegrationRecord() { current_record = nullptr; }

IntegrationRecord* IntegrationRecord::current() { return current_record; }

PatchedFile& IntegrationRecord::file(const std::string& path) {
  const auto found = std::find_if(files_.begin(), files_.end(),
                                  [&](const PatchedFile& known) { return known.path == path; });
  if (found != files_.end()) {
    return *found;
  }
  files_.push_back({path});
  return files_.back();
}

void IntegrationRecord::path_asked(const std::string& path) {
  last_path_ = path;
  placeholders_ = 0;
}

void IntegrationRecord::replaced(std::size_t placeholders) { placeholders_ += placeholders; }

void IntegrationRecord::moved(const std::string& to, bool done) {
  PatchedFile& patched = file(to);
  if (done) {
    patched.placeholders += placeholders_;
  } else {
    patched.result = PatchedFile::Result::kFailed;
  }
}

void IntegrationRecord::failed() {
  file(last_path_).result = file_exists(last_path_, false) == 0 ? PatchedFile::Result::kMissing
                                                                : PatchedFile::Result::kFailed;
}

void IntegrationRecord::ran(ScriptRun run) { script_ = std::move(run); }

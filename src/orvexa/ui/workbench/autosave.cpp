#include "orvexa/ui/workbench/autosave.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace fs = std::filesystem;

namespace {

/// The lock of a kept workflow. It is stale when its process is gone, however young it is.
std::unique_ptr<QLockFile> lock_of(const fs::path& kept) {
  fs::path file = kept;
  file.replace_extension(".lock");
  auto lock = std::make_unique<QLockFile>(qt_path(file));
  lock->setStaleLockTime(0);
  return lock;
}

}  // namespace

Autosave::Autosave(const Path& folder, Mailbox::Address mailbox)
    : _folder(folder), _own(folder / (common::random_suffix() + ".yaml")), _worker(std::move(mailbox), "autosave") {
  std::error_code failure;
  fs::create_directories(_folder, failure);
  auto lock = lock_of(_own);
  if (!failure && lock->tryLock(0)) {
    _lock = std::move(lock);
  } else {
    common::logger.warning("Unsaved workflows cannot be kept in " + common::path_text(_folder));
  }
}

Autosave::~Autosave() {
  if (!_lock) return;
  _worker.finish();
  std::error_code failure;
  fs::remove(_own, failure);
}

void Autosave::keep(const WorkflowCopy& unsaved) {
  if (!_lock) return;
  _worker.start([file = _own, unsaved](const Worker::Job&) {
    try {
      if (unsaved) {
        common::save_yaml(file, unsaved->to_dict());
      } else {
        fs::remove(file);
      }
    } catch (...) {
      common::logger.warning("The unsaved workflow could not be kept: " + model::failure_text());
    }
  });
}

std::vector<fs::path> Autosave::left_behind() const {
  std::vector<std::pair<fs::file_time_type, Path>> found;
  std::error_code failure;
  for (const fs::directory_entry& entry : fs::directory_iterator(_folder, failure)) {
    if (entry.path().extension() != ".yaml" || entry.path() == _own) continue;
    if (const auto lock = lock_of(entry.path()); !lock->tryLock(0)) continue;  // its program runs
    found.emplace_back(entry.last_write_time(failure), entry.path());
  }
  std::sort(found.rbegin(), found.rend());
  std::vector<Path> files;
  for (auto& [time, file] : found) files.push_back(std::move(file));
  return files;
}

void Autosave::throw_away(const Path& left_behind) {
  std::error_code failure;
  fs::remove(left_behind, failure);
  if (failure) {
    common::logger.warning("A left-behind workflow could not be removed: " + common::path_text(left_behind));
  }
}

}  // namespace orvexa::ui

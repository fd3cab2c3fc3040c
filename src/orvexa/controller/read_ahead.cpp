#include "orvexa/controller/read_ahead.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "orvexa/common/parallel.h"
#include "orvexa/model/entities/capture_files.h"

namespace orvexa::controller {

ReadAhead::~ReadAhead() = default;

void ReadAhead::begin(const Path& file, model::CaptureLoader load, const common::CancelEvent* cancel_event) {
  drop();
  if (common::thread_count() < 2) return;
  const std::lock_guard lock(_mutex);
  try {
    _loading = std::async(std::launch::async, [file, load = std::move(load), cancel_event] {
      Loaded loaded;
      if (cancel_event != nullptr && cancel_event->is_set()) return loaded;
      loaded.is_begun = true;
      try {
        loaded.parts = parts_of(file);
        loaded.capture = load(file);
      } catch (...) {
        loaded.failure = std::current_exception();
      }
      return loaded;
    });
    _file = file;
  } catch (const std::system_error&) {
    // The system gives no thread: the file is loaded when it is asked for.
  }
}

std::optional<std::shared_ptr<model::CaptureSet>> ReadAhead::take(const Path& file) {
  const std::lock_guard lock(_mutex);
  if (!_loading.valid()) return std::nullopt;
  Loaded loaded = _loading.get();
  if (!loaded.is_begun || _file != file) return std::nullopt;
  const bool is_unchanged = std::all_of(loaded.parts.begin(), loaded.parts.end(),
                                        [](const PartOfCapture& part) { return stamp_of(part.file) == part.stamp; });
  if (!is_unchanged) return std::nullopt;
  if (loaded.failure) std::rethrow_exception(loaded.failure);
  return std::move(loaded.capture);
}

void ReadAhead::drop() {
  const std::lock_guard lock(_mutex);
  _loading = {};
}

std::vector<ReadAhead::PartOfCapture> ReadAhead::parts_of(const Path& file) {
  std::vector<Path> files{model::file_of_image_name(file)};
  if (!model::is_image_file_name(file)) {
    for (const std::string& image : model::files_named_by(file)) {
      files.push_back(model::file_of_image_name(file.parent_path() / image));
    }
  }
  std::vector<PartOfCapture> parts;
  for (Path& part : files) {
    auto stamp = stamp_of(part);
    parts.push_back({std::move(part), stamp});
  }
  return parts;
}

}  // namespace orvexa::controller

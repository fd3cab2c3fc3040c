#include "orvexa/ui/analysis_mode/thumbnail_loader.h"

#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/model/entities/capture_files.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/ui/pictures.h"

namespace orvexa::ui::analysis_mode {

/// Read by the worker and written by the UI thread.
struct ThumbnailLoader::Wishes {
  std::mutex mutex;
  std::deque<Path> files;
  Path in_work;

  std::optional<Path> next() {
    const std::lock_guard lock(mutex);
    in_work.clear();
    if (files.empty()) return std::nullopt;
    in_work = std::move(files.front());
    files.pop_front();
    return in_work;
  }
};

QImage file_thumbnail(const std::filesystem::path& file, int side_px) {
  try {
    std::filesystem::path picture = file;
    if (!model::is_image_file_name(file)) {
      const std::vector<std::string> names = model::files_named_by(file);
      if (names.empty()) return {};
      picture = file.parent_path() / names.front();
    }
    const auto capture = model::load_capture_from_image(picture);
    return image_thumbnail(capture->measurements.begin()->second->images.begin()->second.base(), side_px);
  } catch (...) {
    // Whoever opens the file is told why.
    common::logger.debug("No small picture: " + model::failure_text());
    return {};
  }
}

ThumbnailLoader::ThumbnailLoader(const Mailbox::Address& mailbox, int side_px)
    : _side_px(side_px), _wishes(std::make_shared<Wishes>()), _worker(mailbox, "thumbnails") {}

ThumbnailLoader::~ThumbnailLoader() = default;

void ThumbnailLoader::want(const std::vector<Path>& files) {
  {
    const std::lock_guard lock(_wishes->mutex);
    _wishes->files.clear();
    for (const Path& file : files) {
      if (file != _wishes->in_work) _wishes->files.push_back(file);
    }
    if (_wishes->files.empty()) return;
  }
  begin();
}

void ThumbnailLoader::begin() {
  if (_worker.is_running()) return;
  _worker.start(
      [this, wishes = _wishes, side_px = _side_px](const Worker::Job& job) {
        while (!job.cancel_event().is_set()) {
          const std::optional<Path> file = wishes->next();
          if (!file) return;
          job.deliver([this, file = *file, picture = file_thumbnail(*file, side_px)] { Q_EMIT loaded(file, picture); });
        }
      },
      [this] {
        // More may have been wished for between the last look at the list and now.
        bool has_more = false;
        {
          const std::lock_guard lock(_wishes->mutex);
          has_more = !_wishes->files.empty();
        }
        if (has_more) begin();
      });
}

}  // namespace orvexa::ui::analysis_mode

#pragma once

#include <QImage>
#include <QObject>
#include <filesystem>
#include <memory>
#include <vector>

#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui::analysis_mode {

/// The small picture of a file on disk: of a capture its first image.
/// @return  a null image when it cannot be read. Any thread; one image is in memory meanwhile.
[[nodiscard]] QImage file_thumbnail(const std::filesystem::path& file, int side_px);

/// Makes small pictures of files in the background, one after another, so that one image is in memory at a time.
class ThumbnailLoader : public QObject {
  Q_OBJECT

 public:
  using Path = std::filesystem::path;

  ThumbnailLoader(const Mailbox::Address& mailbox, int side_px);
  ~ThumbnailLoader() override;

  /// What is wanted from now on, the most urgent first; what was wanted before and is not in work is forgotten.
  void want(const std::vector<Path>& files);

 Q_SIGNALS:
  /// @param picture  null when the file cannot be read.
  void loaded(const std::filesystem::path& file, const QImage& picture);

 private:
  void begin();

  const int _side_px;
  struct Wishes;
  std::shared_ptr<Wishes> _wishes;
  Worker _worker;  ///< last, so that it ends first
};

}  // namespace orvexa::ui::analysis_mode

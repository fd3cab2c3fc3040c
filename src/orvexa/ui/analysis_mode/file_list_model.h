#pragma once

#include <QAbstractListModel>
#include <QCache>
#include <QIcon>
#include <QImage>
#include <filesystem>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orvexa::ui::analysis_mode {

/// The captures and images of a folder, with their small pictures as far as they are known.
class FileListModel final : public QAbstractListModel {
  Q_OBJECT

 public:
  using Path = std::filesystem::path;
  struct File {
    Path path;
    bool is_capture = false;
  };
  enum Role { name_role = Qt::UserRole };
  static constexpr int picture_px = 48;

  explicit FileListModel(QObject* parent = nullptr);

  void set_files(std::vector<File> files);
  [[nodiscard]] const std::vector<File>& files() const { return _files; }
  /// Marks the file that is open.
  void set_current(const std::optional<Path>& file);
  [[nodiscard]] const std::optional<Path>& current() const { return _current; }
  /// @param picture  null for a file that cannot be read.
  void set_picture(const Path& file, const QImage& picture);
  [[nodiscard]] bool has_picture(int row) const;
  void forget_pictures();
  [[nodiscard]] std::optional<int> row_of(const Path& file) const;

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;

 private:
  void tell_changed(const std::optional<Path>& file);

  std::vector<File> _files;
  std::unordered_map<std::string, int> _rows;  ///< by path
  std::optional<Path> _current;
  mutable QCache<QString, QIcon> _pictures;  ///< by path; those looked at least recently go first
  QIcon _empty;
  QIcon _unreadable;
};

}  // namespace orvexa::ui::analysis_mode

#include "orvexa/ui/analysis_mode/file_list_model.h"

#include <QApplication>
#include <QFont>
#include <QPainter>
#include <QPixmap>
#include <QStyle>
#include <utility>

#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int kept_pictures = 4000;  // 37 MB; others are made again when they come into sight

/// In the middle of a square, so that texts beside pictures of any shape begin at one place.
QIcon squared(const QPixmap& picture) {
  QPixmap square(FileListModel::picture_px, FileListModel::picture_px);
  square.fill(Qt::transparent);
  QPainter painter(&square);
  painter.drawPixmap((square.width() - picture.width()) / 2, (square.height() - picture.height()) / 2, picture);
  painter.end();
  return square;
}

}  // namespace

FileListModel::FileListModel(QObject* parent)
    : QAbstractListModel(parent),
      _pictures(kept_pictures),
      _empty(squared({})),
      _unreadable(squared(QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(24))) {}

void FileListModel::set_files(std::vector<File> files) {
  beginResetModel();
  _files = std::move(files);
  _rows.clear();
  for (std::size_t i = 0; i < _files.size(); ++i) _rows.emplace(_files[i].path.native(), static_cast<int>(i));
  endResetModel();
}

void FileListModel::tell_changed(const std::optional<Path>& file) {
  if (!file) return;
  if (const auto row = row_of(*file)) Q_EMIT dataChanged(index(*row), index(*row));
}

void FileListModel::set_current(const std::optional<Path>& file) {
  if (file == _current) return;
  const std::optional<Path> before = std::exchange(_current, file);
  tell_changed(before);
  tell_changed(_current);
}

void FileListModel::set_picture(const Path& file, const QImage& picture) {
  _pictures.insert(qt_path(file), new QIcon(picture.isNull() ? _unreadable : squared(QPixmap::fromImage(picture))));
  tell_changed(file);
}

bool FileListModel::has_picture(int row) const {
  return _pictures.contains(qt_path(_files[static_cast<std::size_t>(row)].path));
}

void FileListModel::forget_pictures() {
  _pictures.clear();
}

std::optional<int> FileListModel::row_of(const Path& file) const {
  const auto found = _rows.find(file.native());
  if (found == _rows.end()) return std::nullopt;
  return found->second;
}

int FileListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(_files.size());
}

QVariant FileListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const File& file = _files[static_cast<std::size_t>(index.row())];
  const bool is_open = _current && *_current == file.path;
  switch (role) {
    case name_role:
      return qt_path(file.path.filename());
    case Qt::DisplayRole: {
      const QString kind = file.is_capture ? tr("capture") : tr("image");
      return qt_path(file.path.filename()) + '\n' + (is_open ? tr("%1, open now").arg(kind) : kind);
    }
    case Qt::ToolTipRole:
      return qt_path(file.path);
    case Qt::FontRole: {
      QFont font;
      font.setBold(is_open);
      return font;
    }
    case Qt::DecorationRole: {
      const QIcon* picture = _pictures.object(qt_path(file.path));
      return picture != nullptr ? *picture : _empty;
    }
    default:
      return {};
  }
}

}  // namespace orvexa::ui::analysis_mode

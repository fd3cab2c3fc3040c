#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QSortFilterProxyModel>
#include <QStackedWidget>
#include <filesystem>
#include <optional>

#include "orvexa/ui/analysis_mode/file_list_model.h"
#include "orvexa/ui/analysis_mode/thumbnail_loader.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/path_field.h"

namespace orvexa::ui::analysis_mode {

/// A folder's captures and images, to open one with a click or with Return. Files and folders can be dropped here.
class FilePanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit FilePanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  using Path = std::filesystem::path;
  void show_folder(const Path& folder);
  /// Reads the folder again in the background.
  void list_files();
  void show_sentence_or_list();
  void open(const QModelIndex& shown);
  void open_dropped(const Path& path);
  /// Has pictures made of the rows in sight and the page after them.
  void want_pictures();

  std::optional<Path> _folder;  ///< that is shown; the state forgets its folder when a file is opened
  bool _is_listed = false;      ///< the list is that of the folder
  QString _failure;             ///< why the folder cannot be read; empty when it can
  bool _has_capture = false;    ///< one is open

  PathField* _folder_field;
  QLineEdit* _filter;
  QStackedWidget* _stack;
  QListView* _list;
  QLabel* _sentence;
  QLabel* _count;
  FileListModel* _files;
  QSortFilterProxyModel* _shown;
  ThumbnailLoader _thumbnails;
  Worker _lister;  ///< last, so that it ends first
};

}  // namespace orvexa::ui::analysis_mode

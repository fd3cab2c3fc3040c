#include "orvexa/ui/analysis_mode/file_panel.h"

#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "orvexa/common/text.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

namespace {

using Path = std::filesystem::path;

struct Listing {
  std::vector<FileListModel::File> files;
  QString failure;  ///< the system's words; empty when the folder was read
};

/// Captures first: their images are files of the folder as well. Any thread.
Listing listed(const Path& folder) {
  Listing listing;
  std::error_code failure;
  const std::filesystem::directory_iterator readable(folder, failure);
  if (failure) {
    listing.failure = to_qt(failure.message());
    return listing;
  }
  const controller::Controller finder;  // of our own: the window's may be gone before this thread
  for (const Path& file : finder._find_batch_hdr_files(folder)) listing.files.push_back({file, true});
  for (const Path& file : finder._find_batch_image_files(folder)) listing.files.push_back({file, false});
  return listing;
}

bool is_header_name(const Path& file) {
  return common::to_lower_ascii(file.extension().string()) == ".inf";
}

std::optional<Path> dropped_path(const QMimeData& data) {
  if (data.urls().isEmpty() || !data.urls().front().isLocalFile()) return std::nullopt;
  return path_from_qt(data.urls().front().toLocalFile());
}

}  // namespace

FilePanel::FilePanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _folder_field(
          new PathField({.kind = PathField::Kind::folder,
                         .object_name = "file_folder",
                         .name = tr("Folder with captures and images"),
                         .hint = tr("Folder"),
                         .shortcut = QKeySequence("Ctrl+Shift+D"),
                         .recent = [this] { return this->workbench().memory().recent(Memory::List::folders); }})),
      _filter(new QLineEdit),
      _stack(new QStackedWidget),
      _list(new QListView),
      _sentence(new QLabel),
      _count(new QLabel),
      _files(new FileListModel(this)),
      _shown(new QSortFilterProxyModel(this)),
      _thumbnails(workbench.mailbox(), FileListModel::picture_px),
      _lister(workbench.mailbox(), "file list") {
  setAcceptDrops(true);
  auto* again = new QToolButton;
  again->setObjectName("file_list_again");
  again->setIcon(style()->standardIcon(QStyle::SP_BrowserReload));
  again->setShortcut(Qt::Key_F5);
  again->setToolTip(tr("Read the folder again (F5)"));
  again->setAccessibleName(tr("Read the folder again"));
  again->setFocusPolicy(Qt::StrongFocus);
  connect(again, &QToolButton::clicked, this, [this] {
    _files->forget_pictures();
    list_files();
  });

  _filter->setObjectName("file_filter");
  _filter->setPlaceholderText(tr("Filter by name (Ctrl+Shift+L)"));
  _filter->setToolTip(tr("Shows the files whose names contain this text (Ctrl+Shift+L)"));
  _filter->setAccessibleName(tr("Filter by name"));
  _filter->setClearButtonEnabled(true);
  _filter->setAcceptDrops(false);
  _filter->installEventFilter(this);
  auto* to_filter = new QAction(this);
  to_filter->setShortcut(QKeySequence("Ctrl+Shift+L"));
  connect(to_filter, &QAction::triggered, this, [this] {
    _filter->setFocus(Qt::ShortcutFocusReason);
    _filter->selectAll();
  });
  addAction(to_filter);
  connect(_filter, &QLineEdit::textChanged, this, [this](const QString& text) {
    _shown->setFilterFixedString(text.trimmed());
    show_sentence_or_list();
  });

  _shown->setSourceModel(_files);
  _shown->setFilterRole(FileListModel::name_role);
  _shown->setFilterCaseSensitivity(Qt::CaseInsensitive);
  _list->setObjectName("file_list");
  _list->setAccessibleName(tr("Captures and images of the folder"));
  _list->setModel(_shown);
  _list->setIconSize({FileListModel::picture_px, FileListModel::picture_px});
  _list->setUniformItemSizes(true);
  _list->setEditTriggers(QAbstractItemView::NoEditTriggers);
  _list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  _list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  _list->setTextElideMode(Qt::ElideMiddle);
  _list->setToolTip(tr("A click or Return opens the file"));
  _list->installEventFilter(this);
  connect(_list, &QListView::clicked, this, [this](const QModelIndex& shown) {
    // The second half of a double click finds the file open already.
    const auto path = _files->files()[static_cast<std::size_t>(_shown->mapToSource(shown).row())].path;
    if (!_has_capture || _files->current() != path) open(shown);
  });
  connect(_list->verticalScrollBar(), &QScrollBar::valueChanged, this, &FilePanel::want_pictures);
  connect(_list->verticalScrollBar(), &QScrollBar::rangeChanged, this, &FilePanel::want_pictures);
  connect(&_thumbnails, &ThumbnailLoader::loaded, this,
          [this](const Path& file, const QImage& picture) { _files->set_picture(file, picture); });

  _sentence->setObjectName("file_sentence");
  _sentence->setWordWrap(true);
  _sentence->setAlignment(Qt::AlignCenter);
  _sentence->setMargin(12);
  _stack->addWidget(_sentence);
  _stack->addWidget(_list);
  _count->setObjectName("file_count");
  _count->setAccessibleName(tr("Number of files"));

  auto* filter_row = new QHBoxLayout;
  filter_row->addWidget(_filter, 1);
  filter_row->addWidget(again);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 6, 6, 6);
  column->addWidget(_folder_field);
  column->addLayout(filter_row);
  column->addWidget(_stack, 1);
  column->addWidget(_count);

  // A window that goes takes the keyboard from the line after its workbench is gone.
  connect(_folder_field, &PathField::path_chosen, &workbench, [this](const std::optional<Path>& folder) {
    if (folder) this->workbench().open_folder(*folder);
  });
  show_sentence_or_list();
}

void FilePanel::refresh() {
  const controller::AppState& state = controller().state;
  _has_capture = state.current_capture != nullptr;
  _files->set_current(state.current_file);
  if (state.current_file) {
    // One from elsewhere brings its folder: its neighbours are what people open next.
    std::error_code unknown;
    const Path whole = std::filesystem::absolute(*state.current_file, unknown);
    if (!unknown && !_files->row_of(*state.current_file)) show_folder(whole.parent_path());
  } else if (state.current_folder) {
    show_folder(*state.current_folder);
  }
  _folder_field->set_path(_folder);
  if (const auto row = state.current_file ? _files->row_of(*state.current_file) : std::nullopt) {
    const QModelIndex shown = _shown->mapFromSource(_files->index(*row));
    if (shown.isValid() && !_list->currentIndex().isValid()) _list->setCurrentIndex(shown);
  }
}

void FilePanel::show_folder(const Path& folder) {
  if (_folder == folder) return;
  _folder = folder;
  _folder_field->set_path(_folder);
  _filter->clear();
  _files->set_files({});
  _is_listed = false;
  list_files();
}

void FilePanel::list_files() {
  if (!_folder) return;
  _lister.start([this, folder = *_folder](const Worker::Job& job) {
    const auto listing = std::make_shared<Listing>(listed(folder));
    job.deliver([this, listing] {
      const QModelIndex current = _list->currentIndex();
      const std::optional<QVariant> name =
          current.isValid() ? std::optional(current.data(FileListModel::name_role)) : std::nullopt;
      _failure = listing->failure;
      _is_listed = true;
      _files->set_files(std::move(listing->files));
      // Where the person was, else at what is open.
      QModelIndex chosen;
      if (name) {
        const QModelIndexList found = _shown->match(_shown->index(0, 0), FileListModel::name_role, *name, 1,
                                                    Qt::MatchExactly | Qt::MatchCaseSensitive);
        if (!found.isEmpty()) chosen = found.front();
      } else if (const auto row = _files->current() ? _files->row_of(*_files->current()) : std::nullopt) {
        chosen = _shown->mapFromSource(_files->index(*row));
      }
      if (chosen.isValid()) _list->setCurrentIndex(chosen);
      show_sentence_or_list();
    });
  });
  show_sentence_or_list();
}

void FilePanel::show_sentence_or_list() {
  const auto captures = std::count_if(_files->files().begin(), _files->files().end(),
                                      [](const FileListModel::File& file) { return file.is_capture; });
  const auto images = static_cast<std::ptrdiff_t>(_files->files().size()) - captures;
  QString sentence;
  if (!_folder) {
    sentence = tr("Choose a folder above, or drop a file or folder here.");
  } else if (!_is_listed) {
    sentence = tr("Reading the folder…");
  } else if (!_failure.isEmpty()) {
    sentence = tr("The folder cannot be read: %1. Choose another one, or make it readable and press F5.").arg(_failure);
  } else if (_files->files().empty()) {
    sentence =
        tr("No capture (HDR_*.INF) and no image is in this folder. Choose another one, or copy files into it "
           "and press F5.");
  } else if (_shown->rowCount() == 0) {
    sentence = tr("No name contains “%1”. Press Escape in the filter to see all %2 files.")
                   .arg(_filter->text().trimmed(), grouped(static_cast<std::int64_t>(_files->files().size())));
  }
  _sentence->setText(sentence);
  _stack->setCurrentWidget(sentence.isEmpty() ? static_cast<QWidget*>(_list) : _sentence);
  QString count = tr("Captures: %1, images: %2").arg(grouped(captures), grouped(images));
  if (_shown->rowCount() < _files->rowCount()) count = tr("%1; %2 shown").arg(count, grouped(_shown->rowCount()));
  _count->setText(_files->files().empty() ? QString() : count);
  _count->setVisible(!_files->files().empty());
  // The view knows its rows only when it was laid out.
  QTimer::singleShot(0, this, &FilePanel::want_pictures);
}

void FilePanel::want_pictures() {
  if (!isVisible() || _stack->currentWidget() != _list) return;
  const int rows = _shown->rowCount();
  const QModelIndex top = _list->indexAt(QPoint(4, 4));
  const QModelIndex bottom = _list->indexAt(QPoint(4, _list->viewport()->height() - 4));
  const int first = top.isValid() ? top.row() : 0;
  const int last = bottom.isValid() ? bottom.row() : rows - 1;
  const int end = std::min(rows, last + 1 + (last + 1 - first));
  std::vector<Path> wanted;
  for (int row = first; row < end; ++row) {
    const int source = _shown->mapToSource(_shown->index(row, 0)).row();
    if (!_files->has_picture(source)) wanted.push_back(_files->files()[static_cast<std::size_t>(source)].path);
  }
  _thumbnails.want(wanted);
}

void FilePanel::open(const QModelIndex& shown) {
  if (!shown.isValid()) return;
  workbench().open_capture(_files->files()[static_cast<std::size_t>(_shown->mapToSource(shown).row())].path);
}

bool FilePanel::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (watched == _list && (key == Qt::Key_Return || key == Qt::Key_Enter)) {
      open(_list->currentIndex());
      return true;
    }
    if (watched == _filter && key == Qt::Key_Escape && !_filter->text().isEmpty()) {
      _filter->clear();
      return true;
    }
    if (watched == _filter && (key == Qt::Key_Down || key == Qt::Key_Return) && _shown->rowCount() > 0) {
      _list->setFocus(Qt::TabFocusReason);
      if (!_list->currentIndex().isValid()) _list->setCurrentIndex(_shown->index(0, 0));
      return true;
    }
  }
  if (watched == _list && event->type() == QEvent::Resize) QTimer::singleShot(0, this, &FilePanel::want_pictures);
  return PanelWidget::eventFilter(watched, event);
}

void FilePanel::showEvent(QShowEvent* event) {
  PanelWidget::showEvent(event);
  QTimer::singleShot(0, this, &FilePanel::want_pictures);
}

void FilePanel::dragEnterEvent(QDragEnterEvent* event) {
  if (dropped_path(*event->mimeData())) event->acceptProposedAction();
}

void FilePanel::dropEvent(QDropEvent* event) {
  const auto path = dropped_path(*event->mimeData());
  if (!path) return;
  event->acceptProposedAction();
  open_dropped(*path);
}

void FilePanel::open_dropped(const Path& path) {
  std::error_code unknown;
  if (std::filesystem::is_directory(path, unknown)) {
    workbench().open_folder(path);
  } else if (model::is_image_file_name(path) || is_header_name(path)) {
    workbench().open_capture(path);
  } else {
    workbench().tell_error(
        tr("“%1” is neither a capture (HDR_*.INF) nor an image (PNG, JPEG, TIFF, BMP, GIF). Drop one "
           "of these, or a folder.")
            .arg(qt_path(path.filename())));
  }
}

}  // namespace orvexa::ui::analysis_mode

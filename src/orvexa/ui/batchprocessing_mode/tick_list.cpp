#include "orvexa/ui/batchprocessing_mode/tick_list.h"

#include <QAction>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QVBoxLayout>
#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

#include "orvexa/ui/text.h"

namespace orvexa::ui::batchprocessing_mode {

void TickModel::set_files(std::vector<Path> files) {
  beginResetModel();
  _files = std::move(files);
  _ticks.assign(_files.size(), true);
  endResetModel();
}

std::vector<TickModel::Path> TickModel::ticked() const {
  std::vector<Path> files;
  for (std::size_t i = 0; i < _files.size(); ++i) {
    if (_ticks[i]) files.push_back(_files[i]);
  }
  return files;
}

void TickModel::set_ticked(const std::vector<Path>& files) {
  std::unordered_set<std::string> names;
  for (const Path& file : files) names.insert(file.native());
  std::vector<bool> ticks(_files.size());
  for (std::size_t i = 0; i < _files.size(); ++i) ticks[i] = names.contains(_files[i].native());
  if (ticks == _ticks) return;
  _ticks = std::move(ticks);
  Q_EMIT dataChanged(index(0), index(rowCount() - 1), {Qt::CheckStateRole});
}

void TickModel::set_ticks(const std::vector<int>& rows, bool is_ticked) {
  if (rows.empty() || _is_frozen) return;
  for (const int row : rows) _ticks[static_cast<std::size_t>(row)] = is_ticked;
  const auto [first, last] = std::minmax_element(rows.begin(), rows.end());
  Q_EMIT dataChanged(index(*first), index(*last), {Qt::CheckStateRole});
  Q_EMIT ticks_changed();
}

void TickModel::set_frozen(bool is_frozen) {
  if (_is_frozen == is_frozen) return;
  _is_frozen = is_frozen;
  if (!_files.empty()) Q_EMIT dataChanged(index(0), index(rowCount() - 1));
}

int TickModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(_files.size());
}

QVariant TickModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const auto row = static_cast<std::size_t>(index.row());
  switch (role) {
    case Qt::DisplayRole:
      return qt_path(_files[row].filename());
    case Qt::ToolTipRole:
      return qt_path(_files[row]);
    case Qt::CheckStateRole:
      return _ticks[row] ? Qt::Checked : Qt::Unchecked;
    default:
      return {};
  }
}

bool TickModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || role != Qt::CheckStateRole || _is_frozen) return false;
  set_ticks({index.row()}, value.toInt() == Qt::Checked);
  return true;
}

Qt::ItemFlags TickModel::flags(const QModelIndex& index) const {
  const Qt::ItemFlags looking = QAbstractListModel::flags(index);
  return _is_frozen ? looking : looking | Qt::ItemIsUserCheckable;
}

// ---- The widget -----------------------------------------------------------------------------------------------------

TickList::TickList(QWidget* parent)
    : QWidget(parent),
      _model(new TickModel(this)),
      _shown(new QSortFilterProxyModel(this)),
      _filter(new QLineEdit),
      _all(new QToolButton),
      _none(new QToolButton),
      _list(new QListView),
      _count(new QLabel) {
  _shown->setSourceModel(_model);
  _shown->setFilterCaseSensitivity(Qt::CaseInsensitive);

  _filter->setObjectName("batch_filter");
  _filter->setPlaceholderText(tr("Filter by name (Ctrl+F)"));
  _filter->setToolTip(tr("Shows the files whose names contain this text (Ctrl+F); what is hidden keeps its tick"));
  _filter->setAccessibleName(tr("Filter by name"));
  _filter->setClearButtonEnabled(true);
  _filter->installEventFilter(this);
  auto* to_filter = new QAction(this);
  to_filter->setShortcut(QKeySequence("Ctrl+F"));
  connect(to_filter, &QAction::triggered, this, [this] {
    _filter->setFocus(Qt::ShortcutFocusReason);
    _filter->selectAll();
  });
  addAction(to_filter);
  connect(_filter, &QLineEdit::textChanged, this, [this](const QString& text) {
    _shown->setFilterFixedString(text.trimmed());
    show_count();
  });

  const auto prepare = [this](QToolButton* button, const char* name, const QString& text, const QString& tip,
                              const char* keys, bool is_ticked) {
    button->setObjectName(name);
    button->setText(text);
    button->setShortcut(QKeySequence(keys));
    button->setToolTip(tr("%1 (%2)").arg(tip, button->shortcut().toString(QKeySequence::NativeText)));
    button->setFocusPolicy(Qt::StrongFocus);
    connect(button, &QToolButton::clicked, this, [this, is_ticked] { tick_shown(is_ticked); });
  };
  prepare(_all, "batch_tick_all", tr("All"), tr("Tick all files that are shown"), "Ctrl+T", true);
  prepare(_none, "batch_tick_none", tr("None"), tr("Untick all files that are shown"), "Ctrl+Shift+T", false);

  _list->setObjectName("batch_files");
  _list->setAccessibleName(tr("Files of the batch"));
  _list->setToolTip(tr("The space bar ticks a file"));
  _list->setModel(_shown);
  _list->setUniformItemSizes(true);
  _list->setTextElideMode(Qt::ElideMiddle);
  _count->setObjectName("batch_count");

  auto* row = new QHBoxLayout;
  row->addWidget(_filter, 1);
  row->addWidget(_all);
  row->addWidget(_none);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addLayout(row);
  column->addWidget(_list, 1);
  column->addWidget(_count);

  connect(_model, &TickModel::ticks_changed, this, [this] {
    show_count();
    Q_EMIT ticks_changed();
  });
  show_count();
}

void TickList::set_files(const std::vector<std::filesystem::path>& files) {
  _filter->clear();
  _model->set_files(files);
  show_count();
}

void TickList::set_frozen(bool is_frozen) {
  _model->set_frozen(is_frozen);
  _all->setEnabled(!is_frozen);
  _none->setEnabled(!is_frozen);
}

void TickList::tick_shown(bool is_ticked) {
  std::vector<int> rows;
  for (int row = 0; row < _shown->rowCount(); ++row) rows.push_back(_shown->mapToSource(_shown->index(row, 0)).row());
  _model->set_ticks(rows, is_ticked);
}

void TickList::show_count() {
  const auto ticked = static_cast<std::int64_t>(_model->ticked().size());
  QString text = tr("%1 of %2 files ticked").arg(grouped(ticked), grouped(_model->rowCount()));
  if (_shown->rowCount() < _model->rowCount()) text = tr("%1; %2 shown").arg(text, grouped(_shown->rowCount()));
  _count->setText(text);
}

bool TickList::eventFilter(QObject* watched, QEvent* event) {
  if (watched == _filter && event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Escape && !_filter->text().isEmpty()) {
      _filter->clear();
      return true;
    }
    if (key == Qt::Key_Down && _shown->rowCount() > 0) {
      _list->setFocus(Qt::TabFocusReason);
      if (!_list->currentIndex().isValid()) _list->setCurrentIndex(_shown->index(0, 0));
      return true;
    }
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace orvexa::ui::batchprocessing_mode

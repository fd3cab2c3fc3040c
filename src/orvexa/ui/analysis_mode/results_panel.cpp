#include "orvexa/ui/analysis_mode/results_panel.h"

#include <QAction>
#include <QClipboard>
#include <QDesktopServices>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QShortcut>
#include <QSplitter>
#include <QStandardPaths>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <initializer_list>

#include "orvexa/common/text.h"
#include "orvexa/model/workflow/metrics_files.h"
#include "orvexa/ui/pictures.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int gap_px = 4;
constexpr int picture_side_px = 1600;  // as much as fits into the tab of a large screen

enum Tab { numbers_tab, pictures_tab, tables_tab, remarks_tab };

/// What both tables have in common.
QTableView* make_table(QAbstractTableModel* model, const QString& name) {
  auto* view = new QTableView;
  view->setModel(model);
  view->setObjectName(name);
  view->setAlternatingRowColors(true);
  view->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view->setWordWrap(false);
  view->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  view->setTabKeyNavigation(false);  // Tab leaves the table, the arrows move inside it
  view->setCornerButtonEnabled(false);
  // Thousands of rows of one height need not be asked for it.
  view->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + gap_px * 2);
  view->verticalHeader()->setMinimumSectionSize(1);
  return view;
}

/// As wide as the header and a long number need: reading the cells of thousands of rows for it would take long.
void fit_columns(QTableView& view, const QString& longest_number) {
  const QFontMetrics metrics(view.horizontalHeader()->font());
  const int number_px = view.fontMetrics().horizontalAdvance(longest_number);
  const int margin_px = 2 * view.style()->pixelMetric(QStyle::PM_HeaderMargin) + metrics.height();  // the sort mark
  for (int column = 0; column < view.model()->columnCount(); ++column) {
    int widest_px = number_px;
    for (const QString& line : view.model()->headerData(column, Qt::Horizontal).toString().split('\n')) {
      widest_px = std::max(widest_px, metrics.horizontalAdvance(line));
    }
    view.setColumnWidth(column, widest_px + margin_px);
  }
}

/// Of 0..count-1 those that a selection touches, all of them when it has fewer than two cells.
struct Chosen {
  std::vector<int> rows;
  std::vector<int> columns;
};
Chosen chosen_cells(const QTableView& view) {
  const QItemSelection selection = view.selectionModel()->selection();
  std::int64_t cells = 0;
  for (const QItemSelectionRange& range : selection) cells += std::int64_t{range.width()} * range.height();
  std::vector<bool> rows(static_cast<std::size_t>(view.model()->rowCount()), cells < 2);
  std::vector<bool> columns(static_cast<std::size_t>(view.model()->columnCount()), cells < 2);
  if (cells >= 2) {
    for (const QItemSelectionRange& range : selection) {
      std::fill_n(rows.begin() + range.top(), range.height(), true);
      std::fill_n(columns.begin() + range.left(), range.width(), true);
    }
  }
  Chosen chosen;
  for (int row = 0; row < view.model()->rowCount(); ++row) {
    if (rows[static_cast<std::size_t>(row)]) chosen.rows.push_back(row);
  }
  for (int column = 0; column < view.model()->columnCount(); ++column) {
    if (columns[static_cast<std::size_t>(column)] && !view.isColumnHidden(column)) chosen.columns.push_back(column);
  }
  return chosen;
}

/// Some rows and columns of a table. @param shown  the positions on the screen, which are those of the table.
model::ResultTable part_of(const model::ResultTable& table, const Chosen& shown) {
  model::ResultTable part;
  for (const int column : shown.columns) part.columns.push_back(table.columns[static_cast<std::size_t>(column)]);
  for (const int row : shown.rows) {
    const std::vector<common::Value>& from = table.rows[static_cast<std::size_t>(row)];
    auto& to = part.rows.emplace_back();
    for (const int column : shown.columns) {
      const auto place = static_cast<std::size_t>(column);
      to.push_back(place < from.size() ? from[place] : common::Value());
    }
  }
  return part;
}

QString default_folder() {
  const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
  return documents.isEmpty() ? QString() : documents + '/' + ResultsPanel::tr("Orvexa results");
}

}  // namespace

ResultsPanel::ResultsPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _order_row(make_order_row()),
      _progress_row(make_progress_row()),
      _notice(new QLabel),
      _hint(new QLabel),
      _pages(new QStackedLayout),
      _pictures_worker(workbench.mailbox(), "result pictures"),
      _copy_worker(workbench.mailbox(), "copy") {
  _notice->setObjectName("results_notice");
  _notice->setWordWrap(true);
  _notice->setTextInteractionFlags(Qt::TextSelectableByMouse);
  _notice->hide();
  _hint->setObjectName("results_hint");
  _hint->setWordWrap(true);
  _hint->setAlignment(Qt::AlignCenter);
  _hint->setMargin(gap_px * 4);
  _pages->addWidget(_hint);
  _pages->addWidget(make_tabs());

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(gap_px, gap_px, gap_px, gap_px);
  column->setSpacing(gap_px);
  column->addWidget(_order_row);
  column->addWidget(_progress_row);
  column->addWidget(_notice);
  column->addLayout(_pages, 1);

  connect(&workbench, &Workbench::progress_told, this, [this](const QString& text) {
    if (_is_measuring) _progress_text->setText(text);
  });
  show_folders();
  if (_folder->count() > 0) {
    _folder->setCurrentIndex(0);
  } else {
    _folder->setEditText(default_folder());
  }
  show_results(nullptr);
  update_buttons();
}

// ---- What it is made of ---------------------------------------------------------------------------------------------

QWidget* ResultsPanel::make_order_row() {
  auto* row = new QWidget;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* title = new QLabel(tr("Results into"));
  _folder = new QComboBox;
  _folder->setObjectName("results_folder");
  _folder->setEditable(true);
  _folder->setInsertPolicy(QComboBox::NoInsert);
  _folder->setMinimumContentsLength(12);
  _folder->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  _folder->setAccessibleName(tr("Folder for results"));
  _folder->setToolTip(tr("Each run makes a new folder inside this one; the ones used last are in the list (F4)"));
  title->setBuddy(_folder);

  _choose = new QToolButton;
  _choose->setObjectName("choose_results_folder");
  _choose->setText(tr("Choose\u2026"));
  _choose->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_U);
  _choose->setToolTip(tr("Choose the folder for results (Ctrl+Shift+U)"));
  connect(_choose, &QToolButton::clicked, this, &ResultsPanel::choose_folder);

  _run = new QPushButton(tr("Run"));
  _run->setObjectName("run_results");
  _run->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
  connect(_run, &QPushButton::clicked, this, &ResultsPanel::run);

  layout->addWidget(title);
  layout->addWidget(_folder, 1);
  layout->addWidget(_choose);
  layout->addWidget(_run);
  return row;
}

QWidget* ResultsPanel::make_progress_row() {
  auto* row = new QWidget;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  _progress_text = new QLabel;
  _progress_text->setObjectName("results_progress_text");
  _progress_text->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  auto* bar = new QProgressBar;
  bar->setObjectName("results_progress");
  bar->setRange(0, 0);  // how much there is to do is not known
  bar->setTextVisible(false);
  bar->setMaximumWidth(200);
  bar->setAccessibleName(tr("Progress"));
  auto* cancel = new QPushButton(tr("Cancel"));
  cancel->setObjectName("cancel_results");
  cancel->setToolTip(tr("End the run; nothing is written (Ctrl+.)"));
  connect(cancel, &QPushButton::clicked, this, [this] { workbench().cancel(); });
  layout->addWidget(_progress_text, 1);
  layout->addWidget(bar);
  layout->addWidget(cancel);
  row->hide();
  return row;
}

QWidget* ResultsPanel::make_tabs() {
  _tabs = new QTabWidget;
  _tabs->setObjectName("results_tabs");
  _tabs->setDocumentMode(true);
  _tabs->addTab(make_numbers(), tr("Numbers"));
  _tabs->addTab(make_pictures(), tr("Pictures"));
  _tabs->addTab(make_tables(), tr("Tables"));
  _tabs->addTab(make_remarks(), tr("Remarks"));

  _filter = new QLineEdit;
  _filter->setObjectName("find_metric");
  _filter->setPlaceholderText(tr("Find a metric"));
  _filter->setClearButtonEnabled(true);
  _filter->setAccessibleName(tr("Find a metric"));
  _filter->setToolTip(tr("Shows only the metrics whose name has this text (Ctrl+Shift+N)"));
  _filter->setMaximumWidth(180);
  auto* find = new QShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_N, this);
  connect(find, &QShortcut::activated, this, [this] {
    _tabs->setCurrentIndex(numbers_tab);
    _filter->setFocus(Qt::ShortcutFocusReason);
  });
  connect(_filter, &QLineEdit::textChanged, this, &ResultsPanel::filter_metrics);

  _copy = new QToolButton;
  _copy->setObjectName("copy_results");
  _copy->setText(tr("Copy"));
  _copy->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_C);
  _copy->setToolTip(
      tr("Copy what is shown here, of a table the selected cells or all of it (Ctrl+Shift+C; in a table Ctrl+C)"));
  connect(_copy, &QToolButton::clicked, this, &ResultsPanel::copy);

  _open_folder = new QToolButton;
  _open_folder->setObjectName("open_results_folder");
  _open_folder->setText(tr("Open folder"));
  _open_folder->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_E);
  connect(_open_folder, &QToolButton::clicked, this, [this] {
    if (_results) QDesktopServices::openUrl(QUrl::fromLocalFile(qt_path(_results->folder)));
  });

  auto* corner = new QWidget;
  auto* layout = new QHBoxLayout(corner);
  layout->setContentsMargins(0, 0, 0, gap_px);
  layout->setSpacing(gap_px);
  layout->addWidget(_filter);
  layout->addWidget(_copy);
  layout->addWidget(_open_folder);
  _tabs->setCornerWidget(corner);
  connect(_tabs, &QTabWidget::currentChanged, this, [this] { update_buttons(); });
  return _tabs;
}

QWidget* ResultsPanel::make_numbers() {
  _numbers_model = new ResultsTableModel(this);
  _numbers = make_table(_numbers_model, "results_table");
  _numbers->setAccessibleName(tr("Numbers by region"));
  _numbers->horizontalHeader()->setSortIndicatorClearable(true);
  _numbers->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
  _numbers->setSortingEnabled(true);

  // Both in the menu of the table, where their shortcuts can be read.
  auto* copy_cells = new QAction(tr("Copy"), _numbers);
  copy_cells->setShortcut(QKeySequence::Copy);
  copy_cells->setShortcutContext(Qt::WidgetShortcut);
  connect(copy_cells, &QAction::triggered, this, &ResultsPanel::copy);
  auto* sort = new QAction(tr("Sort by this column"), _numbers);
  sort->setShortcut(Qt::CTRL | Qt::Key_L);
  sort->setShortcutContext(Qt::WidgetShortcut);
  connect(sort, &QAction::triggered, this, [this] {
    const int column = _numbers->currentIndex().column();
    if (column < 0) return;
    const QHeaderView& header = *_numbers->horizontalHeader();
    const bool is_again = header.sortIndicatorSection() == column && header.sortIndicatorOrder() == Qt::AscendingOrder;
    _numbers->sortByColumn(column, is_again ? Qt::DescendingOrder : Qt::AscendingOrder);
  });
  _numbers->addActions({copy_cells, sort});
  _numbers->setContextMenuPolicy(Qt::ActionsContextMenu);
  return _numbers;
}

QWidget* ResultsPanel::make_pictures() {
  auto* page = new QWidget;
  _picture_names = new QListWidget;
  _picture_names->setObjectName("result_pictures");
  _picture_names->setAccessibleName(tr("Pictures of the results"));
  _picture = new PictureView;
  _picture->setObjectName("result_picture");
  _picture->setAccessibleName(tr("Picture"));
  _show_picture = new QPushButton(tr("Show in viewer"));
  _show_picture->setObjectName("show_result_picture");
  _show_picture->setToolTip(tr("Show the picture in the large viewer (Return in the list, or a double click)"));
  _show_numbers = new QPushButton(tr("Show values"));
  _show_numbers->setObjectName("show_result_numbers");
  _show_numbers->setToolTip(
      tr("Show the values behind the picture in the large viewer, where they can be read (Ctrl+Return in the list)"));
  for (QPushButton* button : {_show_picture, _show_numbers}) button->setAutoDefault(false);
  _picture_names->setWordWrap(true);
  _picture_names->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

  auto* buttons = new QVBoxLayout;
  buttons->addWidget(_show_picture);
  buttons->addWidget(_show_numbers);
  buttons->addStretch(1);
  auto* split = new QSplitter;
  split->setChildrenCollapsible(false);
  split->addWidget(_picture_names);
  split->addWidget(_picture);
  split->setStretchFactor(1, 1);
  split->setSizes({200, 500});
  auto* layout = new QHBoxLayout(page);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(split, 1);
  layout->addLayout(buttons);

  connect(_picture_names, &QListWidget::currentRowChanged, this, [this] { show_picture(); });
  connect(_picture_names, &QListWidget::itemDoubleClicked, this, [this] { show_in_viewer(Shown::picture); });
  connect(_picture, &PictureView::double_clicked, this, [this] { show_in_viewer(Shown::picture); });
  connect(_show_picture, &QPushButton::clicked, this, [this] { show_in_viewer(Shown::picture); });
  connect(_show_numbers, &QPushButton::clicked, this, [this] { show_in_viewer(Shown::numbers); });
  for (const auto& [key, shown] : std::initializer_list<std::pair<QKeySequence, Shown>>{
           {Qt::Key_Return, Shown::picture}, {Qt::CTRL | Qt::Key_Return, Shown::numbers}}) {
    auto* shortcut = new QShortcut(key, _picture_names);
    shortcut->setContext(Qt::WidgetShortcut);
    connect(shortcut, &QShortcut::activated, this, [this, what = shown] { show_in_viewer(what); });
  }
  return page;
}

QWidget* ResultsPanel::make_tables() {
  _table_names = new QListWidget;
  _table_names->setObjectName("result_tables");
  _table_names->setAccessibleName(tr("Tables of the results"));
  _table_names->setWordWrap(true);
  _table_names->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  _table_model = new ListedTableModel(this);
  _table = make_table(_table_model, "result_table");
  _table->setAccessibleName(tr("Table"));
  auto* copy_cells = new QAction(tr("Copy"), _table);
  copy_cells->setShortcut(QKeySequence::Copy);
  copy_cells->setShortcutContext(Qt::WidgetShortcut);
  connect(copy_cells, &QAction::triggered, this, &ResultsPanel::copy);
  _table->addAction(copy_cells);
  _table->setContextMenuPolicy(Qt::ActionsContextMenu);
  connect(_table_names, &QListWidget::currentRowChanged, this, [this](int row) {
    _table_model->show(row >= 0 ? _results : nullptr, static_cast<std::size_t>(std::max(row, 0)));
    fit_columns(*_table, "0.000000");
  });

  auto* split = new QSplitter;
  split->setChildrenCollapsible(false);
  split->addWidget(_table_names);
  split->addWidget(_table);
  split->setStretchFactor(1, 1);
  split->setSizes({200, 500});
  return split;
}

QWidget* ResultsPanel::make_remarks() {
  _remarks = new QListWidget;
  _remarks->setObjectName("result_remarks");
  _remarks->setAccessibleName(tr("Remarks"));
  _remarks->setWordWrap(true);
  _remarks->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  return _remarks;
}

// ---- What it shows --------------------------------------------------------------------------------------------------

void ResultsPanel::refresh() {
  const controller::AppState& state = controller().state;
  _can_run = state.current_capture && state.current_workflow;
  _run->setToolTip(_can_run ? tr("Run the workflow on this capture and write the results (Ctrl+R)")
                            : tr("Open a capture first; then the workflow can be run on it (Ctrl+R)"));
  const bool has_operations = state.current_workflow && !state.current_workflow->result_operations.empty();
  _hint->setText(!_can_run         ? tr("Open a capture to measure it.")
                 : !has_operations ? tr("Tick under \"Measure\" what is to be measured, then press Run (Ctrl+R).")
                                   : tr("Nothing is measured yet. Press Run (Ctrl+R)."));
  show_folders();
  const std::shared_ptr<const MeasuredResults> results = workbench().results();
  if (results != _results) show_results(results);
  const auto& ran = results ? results->workflow : nullptr;
  const auto& now = state.current_workflow;
  _is_older_workflow =
      ran && (!now || ran->mask_operations != now->mask_operations || ran->result_operations != now->result_operations);
  show_notice();
  update_buttons();
}

void ResultsPanel::show_results(const std::shared_ptr<const MeasuredResults>& results) {
  _results = results;
  _pages->setCurrentIndex(results ? 1 : 0);
  _numbers->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
  _numbers_model->show(results);
  fit_columns(*_numbers, "-1.23457e+06");
  filter_metrics();

  _pictures_worker.drop();
  _picture->show_picture({});
  _table_model->show(nullptr, 0);
  for (QListWidget* list : {_picture_names, _table_names, _remarks}) list->clear();
  if (results) {
    for (const MeasuredResults::Picture& picture : results->pictures) _picture_names->addItem(picture.title);
    for (const MeasuredResults::Table& table : results->tables) _table_names->addItem(table.title);
    for (const MeasuredResults::Remark& remark : results->remarks) {
      const QStyle::StandardPixmap icon =
          remark.is_failure ? QStyle::SP_MessageBoxWarning : QStyle::SP_MessageBoxInformation;
      const QString text = remark.is_failure ? tr("%1 failed: %2") : tr("%1: %2");
      _remarks->addItem(new QListWidgetItem(style()->standardIcon(icon), text.arg(remark.who, remark.text)));
    }
    for (QListWidget* list : {_picture_names, _table_names}) list->setCurrentRow(list->count() > 0 ? 0 : -1);
    _open_folder->setToolTip(tr("Open %1 (Ctrl+Shift+E)").arg(qt_path(results->folder)));
  }
  const auto label = [this](Tab tab, const QString& name, int count) {
    _tabs->setTabText(tab, count > 0 ? tr("%1 (%2)").arg(name).arg(count) : name);
    _tabs->setTabEnabled(tab, count > 0);
  };
  label(pictures_tab, tr("Pictures"), _picture_names->count());
  label(tables_tab, tr("Tables"), _table_names->count());
  label(remarks_tab, tr("Remarks"), _remarks->count());
}

void ResultsPanel::show_notice() {
  QStringList sentences;
  if (_is_older_workflow) sentences << tr("The workflow was changed since these results were made; run it again.");
  if (_results) {
    const auto failed = std::ranges::count_if(_results->remarks, &MeasuredResults::Remark::is_failure);
    if (failed == 1) {
      const MeasuredResults::Remark& remark = _results->remarks[static_cast<std::size_t>(
          std::ranges::find_if(_results->remarks, &MeasuredResults::Remark::is_failure) - _results->remarks.begin())];
      sentences << tr("%1 failed: %2").arg(remark.who, remark.text);
    } else if (failed > 1) {
      sentences << tr("%n operation(s) failed; \"Remarks\" says why.", nullptr, static_cast<int>(failed));
    }
  }
  _notice->setText(sentences.join('\n'));
  _notice->setVisible(!sentences.isEmpty());
}

void ResultsPanel::show_folders() {
  QStringList folders;
  for (const auto& folder : workbench().memory().recent(Memory::List::output_folders)) folders << qt_path(folder);
  QStringList shown;
  for (int i = 0; i < _folder->count(); ++i) shown << _folder->itemText(i);
  if (folders == shown) return;
  const QString text = _folder->currentText();  // what somebody is typing stays
  _folder->clear();
  _folder->addItems(folders);
  _folder->setEditText(text);
}

void ResultsPanel::filter_metrics() {
  const QString wanted = _filter->text().trimmed();
  for (int column = 0; column < _numbers_model->columnCount(); ++column) {
    const QString name = _numbers_model->headerData(column, Qt::Horizontal, Qt::DisplayRole).toString();
    const bool is_hidden = !name.section('\n', 0, 0).contains(wanted, Qt::CaseInsensitive);
    if (is_hidden != _numbers->isColumnHidden(column)) _numbers->setColumnHidden(column, is_hidden);
  }
}

void ResultsPanel::show_picture() {
  _picture->show_picture({});
  update_buttons();
  const int row = _picture_names->currentRow();
  if (!_results || row < 0) {
    _pictures_worker.drop();
    return;
  }
  _picture->setAccessibleDescription(_picture_names->item(row)->text());
  _pictures_worker.start([this, results = _results, number = static_cast<std::size_t>(row)](const Worker::Job& job) {
    const QImage picture = image_thumbnail(results->pictures[number].image.picture, picture_side_px);
    job.deliver([this, picture] { _picture->show_picture(picture); });
  });
}

void ResultsPanel::show_in_viewer(Shown what) {
  const int row = _picture_names->currentRow();
  if (_is_busy || !_results || row < 0) return;
  const MeasuredResults::Picture& picture = _results->pictures[static_cast<std::size_t>(row)];
  const bool wants_numbers = what == Shown::numbers;
  if (wants_numbers && !picture.image.numbers) return;
  controller().show_image_in_viewer_without_refresh(wants_numbers ? *picture.image.numbers : picture.image.picture,
                                                    "Results > " + picture.operation, "Results", picture.name);
}

void ResultsPanel::update_buttons() {
  const int tab = _tabs->currentIndex();
  const int picture = _picture_names->currentRow();
  _order_row->setEnabled(!_is_busy);
  _run->setEnabled(_can_run);
  _filter->setEnabled(tab == numbers_tab);
  _show_picture->setEnabled(!_is_busy && _results && picture >= 0);
  _show_numbers->setEnabled(_show_picture->isEnabled() &&
                            _results->pictures[static_cast<std::size_t>(picture)].image.numbers.has_value());
}

// ---- What it does ---------------------------------------------------------------------------------------------------

void ResultsPanel::choose_folder() {
  if (_is_busy) return;
  const QString folder = QFileDialog::getExistingDirectory(this, tr("Folder for results"), _folder->currentText());
  if (!folder.isEmpty()) _folder->setEditText(folder);
}

void ResultsPanel::run() {
  if (_is_busy) return;
  const QString folder = _folder->currentText().trimmed();
  if (!controller().state.current_capture) {
    workbench().tell_error(tr("There is nothing to measure: open a capture first."));
  } else if (!controller().state.current_workflow) {
    workbench().tell_error(tr("There is nothing to run: begin or open a workflow first."));
  } else if (folder.isEmpty()) {
    workbench().tell_error(tr("Choose the folder that results are written into first."));
    _folder->setFocus(Qt::OtherFocusReason);
  } else {
    _is_measuring = true;
    workbench().run_results(path_from_qt(folder));
  }
}

void ResultsPanel::copy() {
  if (!_results) return;
  const int tab = _tabs->currentIndex();
  if (tab == pictures_tab) {
    if (!_picture->picture().isNull()) QGuiApplication::clipboard()->setImage(_picture->picture());
    return;
  }
  if (tab == remarks_tab) {
    QStringList lines;
    for (int row = 0; row < _remarks->count(); ++row) lines << _remarks->item(row)->text();
    QGuiApplication::clipboard()->setText(lines.join('\n'));
    return;
  }
  // Writing a million numbers takes a while.
  if (tab == tables_tab) {
    const int number = _table_names->currentRow();
    if (number < 0) return;
    _copy_worker.start([results = _results, number, chosen = chosen_cells(*_table)](const Worker::Job& job) {
      const model::ResultTable part = part_of(results->tables[static_cast<std::size_t>(number)].table, chosen);
      job.deliver([text = to_qt(model::table_text(part))] { QGuiApplication::clipboard()->setText(text); });
    });
    return;
  }
  const Chosen chosen = chosen_cells(*_numbers);
  std::vector<std::size_t> rows;
  for (const int row : chosen.rows) rows.push_back(_numbers_model->row_of_results(row));
  const std::vector<std::size_t> columns(chosen.columns.begin(), chosen.columns.end());
  _copy_worker.start([results = _results, rows, columns](const Worker::Job& job) {
    job.deliver([text = to_qt(metrics_text(*results, rows, columns))] { QGuiApplication::clipboard()->setText(text); });
  });
}

void ResultsPanel::show_busy(bool is_busy) {
  // Results can be read and copied, and a run cancelled, while a worker has the Controller.
  _is_busy = is_busy;
  if (!is_busy) _is_measuring = false;
  if (_is_measuring) _progress_text->setText(tr("Measuring"));
  _progress_row->setVisible(is_busy && _is_measuring);
  update_buttons();
}

}  // namespace orvexa::ui::analysis_mode

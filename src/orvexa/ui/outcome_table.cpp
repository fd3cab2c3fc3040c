#include "orvexa/ui/outcome_table.h"

#include <QHeaderView>
#include <QScrollBar>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

enum Column { time_column, file_column, state_column, sentence_column, folder_column, column_count };

bool is_failure(OutcomeTable::State state) {
  using State = OutcomeTable::State;
  return state == State::failed || state == State::left_out || state == State::problem;
}

}  // namespace

QString OutcomeTable::state_text(State state) {
  switch (state) {
    case State::running:
      return tr("… Running");
    case State::done:
      return tr("✓ Done");
    case State::remarked:
      return tr("✓ Done, with remarks");
    case State::failed:
      return tr("✗ Failed");
    case State::left_out:
      return tr("– Not finished");
    case State::problem:
      return tr("! Problem");
    case State::told:
      break;
  }
  return tr("Note");
}

OutcomeTable::OutcomeTable(const QString& object_name, const QString& name, Order order, int most_rows, QWidget* parent)
    : QWidget(parent),
      _order(order),
      _most_rows(most_rows),
      _table(new QTableWidget(0, column_count)),
      _sentence(new QLabel) {
  auto* page = new QVBoxLayout(this);
  page->setContentsMargins(0, 0, 0, 0);
  page->addWidget(_table, 1);
  page->addWidget(_sentence);

  _table->setObjectName(object_name);
  _table->setAccessibleName(name);
  _table->setHorizontalHeaderLabels({tr("Time"), tr("File"), tr("State"), tr("What happened"), tr("Results folder")});
  _table->setSelectionBehavior(QAbstractItemView::SelectRows);
  _table->setSelectionMode(QAbstractItemView::SingleSelection);
  _table->setEditTriggers(QAbstractItemView::NoEditTriggers);
  _table->setTabKeyNavigation(false);  // so that the tabulator leaves the table
  _table->setWordWrap(false);
  _table->setAlternatingRowColors(true);
  _table->verticalHeader()->hide();
  QHeaderView* header = _table->horizontalHeader();
  header->setHighlightSections(false);
  header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  header->setSectionResizeMode(sentence_column, QHeaderView::Stretch);
  // Widths by the texts that the columns usually hold rather than by their rows, which may be many thousands.
  const QFontMetrics metrics(_table->font());
  _table->verticalHeader()->setDefaultSectionSize(metrics.height() + 8);
  const int margin = 4 * _table->style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 12;
  header->resizeSection(time_column, metrics.horizontalAdvance("00:00:00") + margin);
  header->resizeSection(file_column, metrics.horizontalAdvance("HDR_plot_0000000.INF") + margin);
  header->resizeSection(state_column, metrics.horizontalAdvance(state_text(State::remarked)) + margin);
  header->resizeSection(folder_column, metrics.horizontalAdvance(tr("Results folder")) + margin + 30);

  _sentence->setObjectName(object_name + "_sentence");
  _sentence->setWordWrap(true);
  _sentence->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  _sentence->setAccessibleName(tr("The chosen row in full"));
  _sentence->hide();

  connect(_table, &QTableWidget::itemSelectionChanged, this, &OutcomeTable::show_current);
  connect(_table, &QTableWidget::itemActivated, this, &OutcomeTable::opened);
  setFocusProxy(_table);
}

void OutcomeTable::clear() {
  _outcomes.clear();
  _table->setRowCount(0);
  show_current();
}

void OutcomeTable::fill_row(int row, const Outcome& outcome) {
  const QString file = qt_path(outcome.file.filename());
  const QString folder = qt_path(outcome.folder.filename());
  const auto set = [&](Column column, const QString& text, const QString& tip) {
    auto* item = new QTableWidgetItem(text);
    item->setToolTip(tip);
    if (column == state_column && is_failure(outcome.state)) {
      QFont bold = _table->font();
      bold.setBold(true);
      item->setFont(bold);
    }
    _table->setItem(row, column, item);
  };
  const QString time =
      outcome.time == common::TimePoint() ? QString() : to_qt(common::local_time_text(outcome.time, "%H:%M:%S"));
  set(time_column, time, time.isEmpty() ? time : to_qt(common::local_time_text(outcome.time, "%Y-%m-%d %H:%M:%S")));
  set(file_column, file, qt_path(outcome.file));
  set(state_column, state_text(outcome.state), {});
  set(sentence_column, outcome.sentence.simplified(), outcome.sentence);
  set(folder_column, folder, qt_path(outcome.folder));
}

void OutcomeTable::add(const Outcome& outcome) {
  const bool is_at_end = _order == Order::oldest_first;
  const QScrollBar* bar = _table->verticalScrollBar();
  const bool follows = is_at_end && bar->value() == bar->maximum();
  const int row = is_at_end ? _table->rowCount() : 0;
  _outcomes.insert(_outcomes.begin() + row, outcome);
  _table->insertRow(row);
  fill_row(row, outcome);
  show_row_or_not(row);
  if (_most_rows > 0 && _table->rowCount() > _most_rows) {
    const int oldest = is_at_end ? 0 : _table->rowCount() - 1;
    _outcomes.erase(_outcomes.begin() + oldest);
    _table->removeRow(oldest);
  }
  if (follows) _table->scrollToBottom();
}

void OutcomeTable::add_or_replace(const Outcome& outcome) {
  const auto before = std::find_if(_outcomes.begin(), _outcomes.end(), [&](const Outcome& other) {
    return other.file == outcome.file && (other.state == State::running || other.state == State::left_out);
  });
  if (outcome.file.empty() || before == _outcomes.end()) {
    add(outcome);
    return;
  }
  *before = outcome;
  const int row = static_cast<int>(before - _outcomes.begin());
  fill_row(row, outcome);
  show_row_or_not(row);
  if (row == _table->currentRow()) show_current();
}

void OutcomeTable::show_row_or_not(int row) {
  const State state = _outcomes[static_cast<std::size_t>(row)].state;
  _table->setRowHidden(row, _shows_failures_only && !is_failure(state) && state != State::remarked);
}

void OutcomeTable::show_failures_only(bool is_wanted) {
  _shows_failures_only = is_wanted;
  for (int row = 0; row < _table->rowCount(); ++row) show_row_or_not(row);
}

std::optional<OutcomeTable::Outcome> OutcomeTable::current() const {
  const QList<QTableWidgetSelectionRange> chosen = _table->selectedRanges();
  if (chosen.isEmpty() || _table->isRowHidden(chosen.front().topRow())) return std::nullopt;
  return _outcomes[static_cast<std::size_t>(chosen.front().topRow())];
}

void OutcomeTable::show_current() {
  const std::optional<Outcome> outcome = current();
  const bool says_something = outcome && !outcome->sentence.isEmpty();
  QString text;
  if (says_something) {
    const QString name = qt_path(outcome->file.filename());
    text = outcome->sentence.startsWith(name) ? outcome->sentence : tr("%1: %2").arg(name, outcome->sentence);
  }
  _sentence->setText(text);
  _sentence->setVisible(says_something);
  Q_EMIT current_changed();
}

}  // namespace orvexa::ui

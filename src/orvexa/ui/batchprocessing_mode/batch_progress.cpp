#include "orvexa/ui/batchprocessing_mode/batch_progress.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <algorithm>
#include <variant>

#include "orvexa/common/clock.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::batchprocessing_mode {

namespace {

using Path = std::filesystem::path;

constexpr const char* report_name = "batch_summary.txt";
constexpr const char* table_name = "batch_aggregated_results.txt";

QPushButton* button(const char* name, const QString& text, const QString& tip, const char* keys) {
  auto* made = new QPushButton(text);
  made->setObjectName(name);
  made->setAutoDefault(false);
  if (keys != nullptr) made->setShortcut(QKeySequence(keys));
  made->setToolTip(keys == nullptr
                       ? tip
                       : BatchProgress::tr("%1 (%2)").arg(tip, QKeySequence(keys).toString(QKeySequence::NativeText)));
  made->setEnabled(false);
  return made;
}

OutcomeTable::Outcome outcome_of(const controller::BatchFileEntry& entry) {
  using State = OutcomeTable::State;
  if (const auto* failure = std::get_if<controller::BatchFileFailure>(&entry)) {
    return {.time = common::now(),
            .file = failure->file,
            .state = failure->is_interrupted ? State::left_out : State::failed,
            .sentence = to_qt(failure->error)};
  }
  const auto& success = std::get<controller::BatchFileSuccess>(entry);
  QStringList remarks;
  for (const auto& [operation, error] : success.operation_errors) {
    remarks << BatchProgress::tr("%1 failed: %2").arg(to_qt(operation), to_qt(error));
  }
  for (const model::MaskNote& note : success.mask_notes) {
    remarks << BatchProgress::tr("Mask step %1 (%2): %3").arg(note.step + 1).arg(to_qt(note.op), to_qt(note.text));
  }
  return {.time = common::now(),
          .file = success.file,
          .state = success.operation_errors.empty() ? State::done : State::remarked,
          .sentence = remarks.join('\n'),
          .folder = success.output_folder};
}

}  // namespace

BatchProgress::BatchProgress(QWidget* parent)
    : QWidget(parent),
      _state(new QLabel(tr("Nothing has run yet."))),
      _overall(new QProgressBar),
      _remaining(new QLabel),
      _file(new QLabel),
      _file_bar(new QProgressBar),
      _cancel(button("batch_cancel", tr("Cancel"), tr("End the batch; what is done stays (Ctrl+.)"), nullptr)),
      _table(new OutcomeTable("batch_table", tr("What became of the files"), OutcomeTable::Order::oldest_first)),
      _failures_only(new QCheckBox(tr("Failures and remarks only"))),
      _look(button("batch_look", tr("Open this capture at the failing step"),
                   tr("Opens the capture of the chosen row in the analysis mode"), "Ctrl+Y")),
      _open_results(button("batch_open_results", tr("Open its results"),
                           tr("Opens the results folder of the chosen row"), "Ctrl+Shift+R")),
      _open_at_end(new QCheckBox(tr("Open the report when done"))),
      _open_report(button("batch_open_report", tr("Open report"), tr("Opens the summary of the last run"), "Ctrl+P")),
      _open_table(button("batch_open_table", tr("Open table"), tr("Opens the numbers of all captures, a row a region"),
                         "Ctrl+G")),
      _open_folder(
          button("batch_open_folder", tr("Open run folder"), tr("Opens the folder of the last run"), "Ctrl+Shift+G")) {
  _state->setObjectName("batch_state");
  _state->setAccessibleName(tr("State of the batch"));
  _state->setWordWrap(true);
  _state->setTextInteractionFlags(Qt::TextSelectableByMouse);
  QFont bold = _state->font();
  bold.setBold(true);
  _state->setFont(bold);
  _overall->setObjectName("batch_overall");
  _overall->setAccessibleName(tr("Files that are finished"));
  _overall->setFormat(tr("%v of %m files"));
  _overall->setRange(0, 1);
  _overall->setValue(0);
  _overall->setTextVisible(false);
  _remaining->setObjectName("batch_remaining");
  _remaining->setAccessibleName(tr("Remaining time"));
  _remaining->setMinimumWidth(_remaining->fontMetrics().horizontalAdvance(tr("about %1 left").arg("00 min 00 s")));
  _file->setObjectName("batch_file");
  _file->setAccessibleName(tr("File and step that are worked on"));
  _file->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);  // a long name does not widen the window
  _file_bar->setObjectName("batch_file_steps");
  _file_bar->setAccessibleName(tr("Steps of this file"));
  _file_bar->setTextVisible(false);
  _file_bar->hide();
  _failures_only->setObjectName("batch_failures_only");
  _failures_only->setShortcut(QKeySequence("Ctrl+J"));
  _failures_only->setToolTip(tr("Hides the rows of files that went well (Ctrl+J)"));
  _open_at_end->setObjectName("batch_open_at_end");
  _open_at_end->setShortcut(QKeySequence("Ctrl+Shift+P"));
  _open_at_end->setToolTip(tr("Opens the summary as soon as the batch has ended (Ctrl+Shift+P)"));

  auto* overall = new QHBoxLayout;
  overall->addWidget(_overall, 1);
  overall->addWidget(_remaining);
  overall->addWidget(_cancel);
  auto* file = new QHBoxLayout;
  file->addWidget(_file, 3);
  file->addWidget(_file_bar, 1);
  auto* row_buttons = new QHBoxLayout;
  row_buttons->addWidget(_look);
  row_buttons->addWidget(_open_results);
  row_buttons->addStretch(1);
  row_buttons->addWidget(_failures_only);
  auto* report_buttons = new QHBoxLayout;
  for (QPushButton* each : {_open_report, _open_table, _open_folder}) report_buttons->addWidget(each);
  report_buttons->addStretch(1);
  report_buttons->addWidget(_open_at_end);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(_state);
  column->addLayout(overall);
  column->addLayout(file);
  column->addWidget(_table, 1);
  column->addLayout(row_buttons);
  column->addLayout(report_buttons);

  _clock.setInterval(1000);
  connect(&_clock, &QTimer::timeout, this, &BatchProgress::show_remaining);
  connect(_cancel, &QPushButton::clicked, this, [this] {
    _cancel->setEnabled(false);
    _state->setText(tr("Ending: the file that is worked on stops at its next step."));
    Q_EMIT cancel_wanted();
  });
  connect(_failures_only, &QCheckBox::toggled, _table, &OutcomeTable::show_failures_only);
  connect(_failures_only, &QCheckBox::toggled, this, &BatchProgress::show_buttons);
  connect(_table, &OutcomeTable::current_changed, this, &BatchProgress::show_buttons);
  const auto look = [this] {
    if (const auto outcome = _table->current(); outcome && !_is_running) Q_EMIT capture_wanted(*outcome);
  };
  connect(_table, &OutcomeTable::opened, this, look);
  connect(_look, &QPushButton::clicked, this, look);
  connect(_open_results, &QPushButton::clicked, this, [this] {
    if (const auto outcome = _table->current()) open(outcome->folder);
  });
  connect(_open_report, &QPushButton::clicked, this, [this] { open(_run_folder / report_name); });
  connect(_open_table, &QPushButton::clicked, this, [this] { open(_run_folder / table_name); });
  connect(_open_folder, &QPushButton::clicked, this, [this] { open(_run_folder); });
}

void BatchProgress::begin(int count, int steps) {
  _count = count;
  _done = _remarked = _failed = _finished = 0;
  _steps = std::max(steps, 1);
  _is_running = true;
  _since_begin.start();
  _finished_at_ms = 0;
  _run_folder.clear();
  _table->clear();
  _overall->setRange(0, std::max(count, 1));
  _overall->setValue(0);
  _overall->setTextVisible(true);
  _state->setText(tr("Running…"));
  _file->clear();
  _file_bar->show();
  _clock.start();
  show_remaining();
  show_buttons();
}

void BatchProgress::begin_file(int number, const QString& file) {
  _file_bar->setRange(0, _steps);
  _file_bar->setValue(0);
  _file->setText(tr("%1: opening").arg(file));
  _file->setToolTip(_file->text());
  _file->setProperty("name", file);
  if (_cancel->isEnabled()) _state->setText(tr("Running: file %1 of %2").arg(grouped(number), grouped(_count)));
}

void BatchProgress::tell_step(const QString& text) {
  _file_bar->setValue(std::min(_file_bar->value() + 1, _steps - 1));
  _file->setText(tr("%1: %2").arg(_file->property("name").toString(), text));
  _file->setToolTip(_file->text());
}

void BatchProgress::end_file(const controller::BatchFileEntry& entry) {
  const OutcomeTable::Outcome outcome = outcome_of(entry);
  _table->add(outcome);
  switch (outcome.state) {
    case OutcomeTable::State::failed:
      ++_failed;
      break;
    case OutcomeTable::State::remarked:
      ++_remarked;
      [[fallthrough]];
    case OutcomeTable::State::done:
      ++_done;
      break;
    default:
      return;  // a cancellation met it: it is not finished
  }
  ++_finished;
  _finished_at_ms = _since_begin.elapsed();
  _overall->setValue(_finished);
  _file_bar->setValue(_steps);
  show_remaining();
}

void BatchProgress::show_remaining() {
  if (!_is_running) return;
  if (_finished == 0 || _finished >= _count) {
    _remaining->setText(_finished == 0 ? tr("estimating…") : tr("writing the reports"));
    return;
  }
  const double a_file = double(_finished_at_ms) / _finished;
  const double left = a_file * (_count - _finished) - double(_since_begin.elapsed() - _finished_at_ms);
  _remaining->setText(tr("about %1 left").arg(duration_text(std::max(left, 0.0) / 1000)));
}

void BatchProgress::end(const controller::BatchSummary& summary, const QString& failure) {
  _is_running = false;
  _clock.stop();
  _file->clear();
  _file->setToolTip({});
  _file_bar->hide();
  if (summary.batch_folder) _run_folder = *summary.batch_folder;
  const int left_out = _count - _finished;
  QString text;
  if (!summary.batch_folder) {
    text = tr("The batch did not run: %1")
               .arg(!failure.isEmpty()       ? failure
                    : summary.errors.empty() ? tr("choose another output folder and start again.")
                                             : to_qt(summary.errors.front()));
  } else {
    QStringList parts{tr("%1 of %2 files done").arg(grouped(_done), grouped(_count))};
    if (_remarked > 0) parts << tr("%1 of them with an operation that failed").arg(grouped(_remarked));
    if (_failed > 0) parts << tr("%1 failed").arg(grouped(_failed));
    if (left_out > 0) parts << tr("%1 not finished").arg(grouped(left_out));
    text = (left_out > 0 ? tr("Cancelled: %1.") : tr("Ended: %1.")).arg(parts.join(", "));
    text += ' ' + tr("It took %1.").arg(duration_text(double(_since_begin.elapsed()) / 1000));
    for (const std::string& line : summary.unwritten) text += '\n' + to_qt(line);
  }
  _state->setText(text);
  _remaining->clear();
  show_buttons();
  if (_open_at_end->isChecked() && summary.batch_folder) open(_run_folder / report_name);
}

void BatchProgress::show_buttons() {
  _cancel->setEnabled(_is_running);
  const auto outcome = _table->current();
  _look->setEnabled(outcome && !_is_running);
  _open_results->setEnabled(outcome && !outcome->folder.empty());
  std::error_code unknown;
  const bool has_run = !_is_running && !_run_folder.empty();
  _open_report->setEnabled(has_run);
  _open_table->setEnabled(has_run && std::filesystem::exists(_run_folder / table_name, unknown));
  _open_folder->setEnabled(has_run);
}

void BatchProgress::open(const Path& path) {
  if (opener(path)) return;
  Q_EMIT opening_failed(tr("No program could be started for “%1”. Open it in your file manager.").arg(qt_path(path)));
}

}  // namespace orvexa::ui::batchprocessing_mode

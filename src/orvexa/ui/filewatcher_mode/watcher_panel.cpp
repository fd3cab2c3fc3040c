#include "orvexa/ui/filewatcher_mode/watcher_panel.h"

#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::filewatcher_mode {

namespace {

using Kind = controller::WatcherEvent::Kind;
using controller::WatcherSearch;
using State = OutcomeTable::State;

constexpr int most_rows = 1000;  // a watcher runs for months; everything is in its table of results
constexpr double longest_poll_seconds = 24 * 60 * 60;

struct SearchChoice {
  WatcherSearch search;
  const char* key;  ///< remembered
  const char* text;
};
constexpr std::array searches{
    SearchChoice{
        WatcherSearch::automatic, "automatic",
        QT_TRANSLATE_NOOP("orvexa::ui::filewatcher_mode::WatcherPanel", "Captures once there is one, images before")},
    SearchChoice{WatcherSearch::captures, "captures",
                 QT_TRANSLATE_NOOP("orvexa::ui::filewatcher_mode::WatcherPanel", "Captures (HDR_*.INF)")},
    SearchChoice{WatcherSearch::images, "images",
                 QT_TRANSLATE_NOOP("orvexa::ui::filewatcher_mode::WatcherPanel", "Images")}};

QPushButton* button(const char* name, const QString& text, const QString& tip, const char* keys) {
  auto* made = new QPushButton(text);
  made->setObjectName(name);
  made->setAutoDefault(false);
  made->setShortcut(QKeySequence(keys));
  made->setToolTip(WatcherPanel::tr("%1 (%2)").arg(tip, QKeySequence(keys).toString(QKeySequence::NativeText)));
  return made;
}

QString path_setting(const std::optional<std::filesystem::path>& path) {
  return path ? qt_path(*path) : QString();
}

std::optional<std::filesystem::path> path_of_setting(const QVariant& setting) {
  const QString text = setting.toString();
  if (text.isEmpty()) return std::nullopt;
  return path_from_qt(text);
}

State state_of(const controller::WatcherEvent& event) {
  switch (event.kind) {
    case Kind::running:
    case Kind::retry:
      return State::running;
    case Kind::done:
    case Kind::recovered:
      return event.details.contains("operation_errors") ? State::remarked : State::done;
    case Kind::failed:
      return State::failed;
    case Kind::incomplete:
      return State::left_out;
    case Kind::problem:
      return State::problem;
    default:
      return State::told;
  }
}

/// What was told, with the remarks of the operations and steps.
QString sentence_of(const controller::WatcherEvent& event) {
  QStringList parts;
  if (!event.text.empty()) parts << to_qt(event.text);
  if (event.kind == Kind::retry) parts << WatcherPanel::tr("It is tried again.");
  if (event.kind == Kind::incomplete) parts << WatcherPanel::tr("It is taken when the rest has arrived.");
  if (const auto errors = event.details.find("operation_errors"); errors != event.details.end()) {
    for (const auto& [operation, error] : errors->items()) {
      parts << WatcherPanel::tr("%1 failed: %2").arg(to_qt(operation), to_qt(error.get<std::string>()));
    }
  }
  if (const auto notes = event.details.find("mask_notes"); notes != event.details.end()) {
    for (const common::Value& note : *notes) {
      parts << WatcherPanel::tr("Mask step %1 (%2): %3")
                   .arg(note.value("step", 0) + 1)
                   .arg(to_qt(note.value("op", std::string())), to_qt(note.value("note", std::string())));
    }
  }
  return parts.join('\n');
}

}  // namespace

WatcherPanel::WatcherPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _input(new PathField({.kind = PathField::Kind::folder,
                            .object_name = "watcher_input",
                            .name = tr("Folder to watch"),
                            .hint = tr("Captures or images arrive here"),
                            .shortcut = QKeySequence("Ctrl+D"),
                            .recent = [this] { return this->workbench().memory().recent(Memory::List::folders); }})),
      _output(new PathField(
          {.kind = PathField::Kind::folder,
           .object_name = "watcher_output",
           .name = tr("Folder for the results"),
           .hint = tr("Results go here"),
           .shortcut = QKeySequence("Ctrl+E"),
           .recent = [this] { return this->workbench().memory().recent(Memory::List::output_folders); }})),
      _workflow(
          new PathField({.kind = PathField::Kind::file,
                         .object_name = "watcher_workflow",
                         .name = tr("Workflow file to run"),
                         .hint = tr("A workflow file"),
                         .files = tr("Workflows (*.yaml *.yml)"),
                         .shortcut = QKeySequence("Ctrl+K"),
                         .recent = [this] { return this->workbench().memory().recent(Memory::List::workflows); }})),
      _use_current(button("watcher_use_current", tr("Save the current workflow and use it"),
                          tr("Runs the workflow that is open now, from its file"), "Ctrl+Shift+K")),
      _poll_seconds(new QDoubleSpinBox),
      _search(new QComboBox),
      _missing(new QLabel),
      _start(button("watcher_start", tr("Start"), tr("Begin to watch the folder"), "Ctrl+Return")),
      _stop(button("watcher_stop", tr("Stop"), tr("End watching; what is worked on is not finished"),
                   "Ctrl+Shift+Return")),
      _state(new QLabel),
      _numbers(new QLabel),
      _problem_text(new QLabel),
      _table(new OutcomeTable("watcher_table", tr("Last captures"), OutcomeTable::Order::newest_first, most_rows)),
      _failures_only(new QCheckBox(tr("Failures and remarks only"))),
      _look(button("watcher_look", tr("Open this capture"),
                   tr("Opens the capture of the chosen row in the analysis mode; watching goes on"), "Ctrl+Y")),
      _open_results(button("watcher_open_results", tr("Open its results"),
                           tr("Opens the results folder of the chosen row"), "Ctrl+Shift+R")),
      _open_output(button("watcher_open_output", tr("Open results folder"),
                          tr("Opens the folder with all results and their table"), "Ctrl+G")),
      _reader(workbench.mailbox(), "watch status") {
  ask_where_to_save = [this]() -> std::optional<Path> {
    const QString file = QFileDialog::getSaveFileName(window(), tr("Save the workflow"), "workflow.yaml",
                                                      tr("Workflows (*.yaml *.yml)"));
    if (file.isEmpty()) return std::nullopt;
    return path_from_qt(file);
  };
  auto* rows = new QSplitter(Qt::Vertical);
  rows->setChildrenCollapsible(false);
  _settings = make_settings();
  rows->addWidget(_settings);
  rows->addWidget(make_status());
  rows->setStretchFactor(1, 1);
  auto* page = new QVBoxLayout(this);
  page->setContentsMargins(6, 6, 6, 6);
  page->addWidget(rows);

  connect(&workbench, &Workbench::watcher_told, this, &WatcherPanel::take);
  connect(&_clock, &QTimer::timeout, this, &WatcherPanel::read_status);
  show_settings();
  show_status();
  show_buttons();
}

QWidget* WatcherPanel::make_settings() {
  auto* box = new QGroupBox(tr("What to watch"));
  Memory& memory = workbench().memory();
  _input->set_path(path_of_setting(memory.choice("watcher/input_folder", {})));
  _output->set_path(path_of_setting(memory.choice("watcher/output_folder", {})));
  _workflow->set_path(path_of_setting(memory.choice("watcher/workflow_file", {})));

  _poll_seconds->setObjectName("watcher_poll_seconds");
  _poll_seconds->setAccessibleName(tr("Seconds between two looks at the folder"));
  _poll_seconds->setToolTip(tr("A capture is taken when its files rested from one look to the next"));
  _poll_seconds->setDecimals(1);
  _poll_seconds->setRange(0.1, longest_poll_seconds);
  _poll_seconds->setSuffix(tr(" s"));
  _poll_seconds->setValue(memory.choice("watcher/poll_seconds", controller::WatcherConfig{}.poll_seconds).toDouble());
  _search->setObjectName("watcher_search");
  _search->setAccessibleName(tr("Which files are taken"));
  for (const SearchChoice& choice : searches) _search->addItem(tr(choice.text), choice.key);
  _search->setCurrentIndex(std::max(0, _search->findData(memory.choice("watcher/search", "automatic"))));
  _missing->setObjectName("watcher_missing");
  _missing->setAccessibleName(tr("What is missing"));
  _missing->setWordWrap(true);
  QFont bold = _start->font();
  bold.setBold(true);
  _start->setFont(bold);

  auto* workflow = new QHBoxLayout;
  workflow->addWidget(_workflow, 1);
  workflow->addWidget(_use_current);
  auto* how = new QHBoxLayout;
  how->addWidget(_poll_seconds);
  how->addSpacing(16);
  auto* which = new QLabel(tr("&Which files"));
  which->setBuddy(_search);
  how->addWidget(which);
  how->addWidget(_search);
  how->addStretch(1);
  auto* start = new QHBoxLayout;
  start->addWidget(_missing, 1);
  start->addWidget(_start);
  start->addWidget(_stop);
  auto* form = new QFormLayout(box);
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->addRow(tr("Watch"), _input);
  form->addRow(tr("Results"), _output);
  form->addRow(tr("Workflow"), workflow);
  form->addRow(tr("&Look every"), how);
  if (auto* label = qobject_cast<QLabel*>(form->labelForField(how))) label->setBuddy(_poll_seconds);
  form->addRow(start);

  // What touches the workbench goes with it: a window that closes takes the keyboard from the lines afterwards.
  const auto remember = [this](PathField* field, const char* name, std::optional<Memory::List> list) {
    connect(field, &PathField::path_chosen, &workbench(), [this, name, list](const std::optional<Path>& path) {
      workbench().memory().remember_choice(name, path_setting(path));
      if (path && list) workbench().memory().remember(*list, *path);
      show_settings();
    });
  };
  remember(_input, "watcher/input_folder", Memory::List::folders);
  remember(_output, "watcher/output_folder", Memory::List::output_folders);
  remember(_workflow, "watcher/workflow_file", std::nullopt);
  connect(_poll_seconds, &QDoubleSpinBox::valueChanged, this,
          [this](double seconds) { workbench().memory().remember_choice("watcher/poll_seconds", seconds); });
  connect(_search, &QComboBox::currentIndexChanged, this,
          [this] { workbench().memory().remember_choice("watcher/search", _search->currentData()); });
  connect(_use_current, &QPushButton::clicked, this, &WatcherPanel::use_current_workflow);
  connect(_start, &QPushButton::clicked, this, &WatcherPanel::start);
  connect(_stop, &QPushButton::clicked, this, [this] { workbench().stop_watcher(); });
  return box;
}

QWidget* WatcherPanel::make_status() {
  auto* box = new QGroupBox(tr("Last captures"));
  _state->setObjectName("watcher_state");
  _state->setAccessibleName(tr("State of the watcher"));
  _state->setWordWrap(true);
  QFont bold = _state->font();
  bold.setBold(true);
  _state->setFont(bold);
  _numbers->setObjectName("watcher_numbers");
  _numbers->setAccessibleName(tr("Numbers of captures"));
  _problem_text->setObjectName("watcher_problem");
  _problem_text->setAccessibleName(tr("Problem"));
  _problem_text->setWordWrap(true);
  _problem_text->setFont(bold);
  _failures_only->setObjectName("watcher_failures_only");
  _failures_only->setShortcut(QKeySequence("Ctrl+J"));
  _failures_only->setToolTip(tr("Hides the rows of captures that went well (Ctrl+J)"));

  auto* head = new QHBoxLayout;
  head->addWidget(_state, 1);
  head->addWidget(_numbers);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(_look);
  buttons->addWidget(_open_results);
  buttons->addWidget(_open_output);
  buttons->addStretch(1);
  buttons->addWidget(_failures_only);
  auto* limit =
      new QLabel(tr("The last %1 rows are kept here; all results are in watch_table.tsv in the results folder.")
                     .arg(grouped(most_rows)));
  limit->setWordWrap(true);
  auto* column = new QVBoxLayout(box);
  column->addLayout(head);
  column->addWidget(_problem_text);
  column->addWidget(_table, 1);
  column->addLayout(buttons);
  column->addWidget(limit);

  connect(_failures_only, &QCheckBox::toggled, _table, &OutcomeTable::show_failures_only);
  connect(_failures_only, &QCheckBox::toggled, this, &WatcherPanel::show_buttons);
  connect(_table, &OutcomeTable::current_changed, this, &WatcherPanel::show_buttons);
  const auto look = [this] {
    if (const auto outcome = _table->current(); outcome && !outcome->file.empty()) {
      workbench().open_in_analysis(outcome->file);
    }
  };
  connect(_look, &QPushButton::clicked, this, look);
  connect(_table, &OutcomeTable::opened, this, look);
  const auto open = [this](const Path& path) {
    if (opener(path)) return;
    workbench().tell_error(
        tr("No program could be started for “%1”. Open it in your file manager.").arg(qt_path(path)));
  };
  connect(_open_results, &QPushButton::clicked, this, [this, open] {
    if (const auto outcome = _table->current()) open(outcome->folder);
  });
  connect(_open_output, &QPushButton::clicked, this, [this, open] {
    if (_output->path()) open(*_output->path());
  });
  return box;
}

// ---- Settings -------------------------------------------------------------------------------------------------------

QStringList WatcherPanel::missing() const {
  QStringList sentences;
  std::error_code unknown;
  if (!_input->path()) {
    sentences << tr("Choose the folder to watch.");
  } else if (!std::filesystem::is_directory(*_input->path(), unknown)) {
    sentences << tr("The folder to watch is not there; make it or choose another one.");
  }
  if (!_output->path()) sentences << tr("Choose the folder for the results.");
  if (!_workflow->path()) {
    sentences << tr("Choose a workflow file, or save the current workflow and use it.");
  } else if (!std::filesystem::is_regular_file(*_workflow->path(), unknown)) {
    sentences << tr("The workflow file is not there; choose another one.");
  }
  return sentences;
}

void WatcherPanel::show_settings() {
  const QString text = missing().join('\n');
  _is_complete = text.isEmpty();
  _missing->setText(_is_running ? tr("Stop the watcher to change what it does.") : text);
  _start->setAccessibleDescription(text);
  show_buttons();
}

void WatcherPanel::show_buttons() {
  const bool may_change = !_is_running && !_is_busy;
  for (QWidget* part :
       std::initializer_list<QWidget*>{_input, _output, _workflow, _use_current, _poll_seconds, _search}) {
    part->setEnabled(may_change);
  }
  _start->setEnabled(may_change && _is_complete);
  _stop->setEnabled(_is_running && !_is_busy);
  const auto outcome = _table->current();
  _look->setEnabled(outcome && !outcome->file.empty() && !_is_busy);
  _open_results->setEnabled(outcome && !outcome->folder.empty());
  _open_output->setEnabled(_output->path().has_value());
}

void WatcherPanel::use_current_workflow() {
  if (workbench().is_busy()) return;
  if (!controller().state.current_workflow) {
    workbench().tell_error(tr("There is no workflow to save. Make one in the analysis mode, or choose a file."));
    return;
  }
  std::optional<Path> file = workbench().workflow_file();
  if (!file) file = ask_where_to_save();
  if (!file) return;
  if (file->extension().empty()) *file += ".yaml";
  const bool is_there = file == workbench().workflow_file() && !workbench().has_unsaved_changes();
  if (!is_there && !workbench().save_workflow(*file)) return;
  _workflow->set_path(file);
  Q_EMIT _workflow->path_chosen(file);
}

void WatcherPanel::start() {
  if (workbench().is_busy() || !missing().isEmpty()) return;
  const auto* search = std::find_if(searches.begin(), searches.end(), [this](const SearchChoice& choice) {
    return _search->currentData().toString() == choice.key;
  });
  _config = controller::WatcherConfig{.input_dir = _input->path()->string(),
                                      .output_dir = _output->path()->string(),
                                      .workflow_yaml_path = _workflow->path()->string(),
                                      .poll_seconds = _poll_seconds->value(),
                                      .search = search->search};
  _problem.clear();
  _since.clear();
  _status.reset();
  _was_started = true;
  workbench().start_watcher(*_config);
}

// ---- Status ---------------------------------------------------------------------------------------------------------

void WatcherPanel::refresh() {
  const controller::AppState& state = controller().state;
  _is_running = state.watcher_running;
  if (std::exchange(_was_started, false) && !_is_running && state.error) {
    _problem = tr("It could not be started: %1").arg(to_qt(*state.error));
  }
  if (_is_running && _config) {
    // The numbers change at a look at the folder; more often than once a second nobody reads them.
    _clock.start(std::max(1000, static_cast<int>(_config->poll_seconds * 1000)));
  } else {
    _clock.stop();
  }
  show_settings();
  show_status();
}

void WatcherPanel::show_busy(bool is_busy) {
  // The table and its sentences can be looked at.
  _is_busy = is_busy;
  show_buttons();
}

void WatcherPanel::take(const controller::WatcherEvent& event) {
  const QString sentence = sentence_of(event);
  // A capture's name is relative to the folder that is watched.
  const Path file = event.file.empty() || !_config ? Path(event.file) : Path(_config->input_dir) / event.file;
  const OutcomeTable::Outcome outcome{
      .time = event.time, .file = file, .state = state_of(event), .sentence = sentence, .folder = event.folder};
  switch (event.kind) {
    case Kind::watching:
      _since = to_qt(common::local_time_text(event.time, "%Y-%m-%d %H:%M:%S"));
      break;
    case Kind::problem:
      _problem = sentence;
      break;
    case Kind::solved:
    case Kind::stopped:
      _problem.clear();
      break;
    default:
      break;
  }
  _table->add_or_replace(outcome);
  if (event.kind == Kind::done || event.kind == Kind::failed) read_status();
  show_status();
}

void WatcherPanel::read_status() {
  if (!_config || _reader.is_running()) return;
  _reader.start([this, folder = Path(_config->output_dir)](const Worker::Job& job) {
    std::optional<controller::WatchStatus> status;
    try {
      status = controller::read_watch_status(folder);
    } catch (...) {
      common::logger.debug("The watcher's status is not known: " + model::failure_text());
      return;
    }
    job.deliver([this, status] {
      _status = status;
      if (_is_running && _clock.isActive()) {
        QStringList problems;
        for (const std::string& problem : status->problems) problems << to_qt(problem);
        _problem = problems.join('\n');
      }
      show_status();
    });
  });
}

void WatcherPanel::show_status() {
  if (!_is_running) {
    _state->setText(tr("Not watching."));
  } else {
    _state->setText(_since.isEmpty() ? tr("Beginning to watch…") : tr("Watching since %1.").arg(_since));
  }
  QString numbers;
  if (_status) {
    numbers = tr("%1 done, %2 failed, %3 waiting")
                  .arg(grouped(static_cast<std::int64_t>(_status->done_since_start)),
                       grouped(static_cast<std::int64_t>(_status->failed.size())),
                       grouped(static_cast<std::int64_t>(_status->waiting)));
    if (_status->with_operation_errors > 0) {
      numbers += tr("; %1 with an operation that failed")
                     .arg(grouped(static_cast<std::int64_t>(_status->with_operation_errors)));
    }
  }
  _numbers->setText(numbers);
  _problem_text->setText(_problem);
  _problem_text->setVisible(!_problem.isEmpty());
}

}  // namespace orvexa::ui::filewatcher_mode

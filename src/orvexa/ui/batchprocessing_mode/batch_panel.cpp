#include "orvexa/ui/batchprocessing_mode/batch_panel.h"

#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QSplitter>
#include <QVBoxLayout>

#include "orvexa/ui/batchprocessing_mode/workflow_words.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui::batchprocessing_mode {

namespace {

constexpr const char* kind_choice = "batch/takes_images";

QPushButton* button(const char* name, const QString& text, const QString& tip, const char* keys) {
  auto* made = new QPushButton(text);
  made->setObjectName(name);
  made->setAutoDefault(false);
  made->setShortcut(QKeySequence(keys));
  made->setToolTip(BatchPanel::tr("%1 (%2)").arg(tip, QKeySequence(keys).toString(QKeySequence::NativeText)));
  return made;
}

}  // namespace

BatchPanel::BatchPanel(Workbench& workbench, QWidget* parent)
    : PanelWidget(workbench, parent),
      _input_folder(
          new PathField({.kind = PathField::Kind::folder,
                         .object_name = "batch_input",
                         .name = tr("Folder with the captures or images of the batch"),
                         .hint = tr("Input folder"),
                         .shortcut = QKeySequence("Ctrl+D"),
                         .recent = [this] { return this->workbench().memory().recent(Memory::List::folders); }})),
      _captures(new QRadioButton(tr("Captures (HDR_*.INF)"))),
      _images(new QRadioButton(tr("Images"))),
      _again(button("batch_list_again", tr("Read again"), tr("Read the folder again"), "F5")),
      _input_sentence(new QLabel),
      _files(new TickList),
      _workflow(new QTextBrowser),
      _open_workflow(
          button("batch_open_workflow", tr("Open workflow…"), tr("Take the workflow from a file"), "Ctrl+Shift+W")),
      _edit_workflow(
          button("batch_edit_workflow", tr("Edit it"), tr("Change the workflow in the analysis mode"), "Ctrl+Shift+E")),
      _output_folder(new PathField(
          {.kind = PathField::Kind::folder,
           .object_name = "batch_output",
           .name = tr("Folder that the run's folder is made in"),
           .hint = tr("Output folder"),
           .shortcut = QKeySequence("Ctrl+E"),
           .recent = [this] { return this->workbench().memory().recent(Memory::List::output_folders); }})),
      _missing(new QLabel),
      _start(button("batch_start", tr("Start"), tr("Run the workflow on all ticked files"), "Ctrl+Return")),
      _progress(new BatchProgress) {
  _input = make_input();
  _order = make_order();
  auto* right = new QSplitter(Qt::Vertical);
  right->setChildrenCollapsible(false);
  right->addWidget(_order);
  auto* progress = new QGroupBox(tr("Run"));
  auto* progress_column = new QVBoxLayout(progress);
  progress_column->addWidget(_progress);
  right->addWidget(progress);
  right->setSizes({300, 500});
  right->setStretchFactor(1, 1);
  auto* columns = new QSplitter(Qt::Horizontal);
  columns->setChildrenCollapsible(false);
  columns->addWidget(_input);
  columns->addWidget(right);
  columns->setSizes({380, 900});
  columns->setStretchFactor(1, 1);
  auto* page = new QHBoxLayout(this);
  page->setContentsMargins(6, 6, 6, 6);
  page->addWidget(columns);

  connect(&workbench, &Workbench::batch_file_begun, _progress,
          [this](int number, int, const QString& file) { _progress->begin_file(number, file); });
  connect(&workbench, &Workbench::batch_step_told, _progress, &BatchProgress::tell_step);
  connect(&workbench, &Workbench::batch_file_done, _progress, &BatchProgress::end_file);
  connect(&workbench, &Workbench::batch_ended, this, &BatchPanel::end);
  connect(&workbench.step_results(), &StepResults::changed, this, &BatchPanel::look_for_failing_step);
  connect(_progress, &BatchProgress::cancel_wanted, &workbench, &Workbench::cancel);
  connect(_progress, &BatchProgress::opening_failed, &workbench, &Workbench::tell_error);
  connect(_progress, &BatchProgress::capture_wanted, this, &BatchPanel::look_at);
}

QWidget* BatchPanel::make_input() {
  auto* box = new QGroupBox(tr("Files"));
  _captures->setObjectName("batch_captures");
  _captures->setShortcut(QKeySequence("Alt+C"));
  _captures->setToolTip(tr("Run on the captures of the folder: their header files HDR_*.INF (Alt+C)"));
  _images->setObjectName("batch_images");
  _images->setShortcut(QKeySequence("Alt+I"));
  _images->setToolTip(tr("Run on every image file of the folder by itself (Alt+I)"));
  _lists_images = workbench().memory().choice(kind_choice, false).toBool();
  (_lists_images ? _images : _captures)->setChecked(true);
  _input_sentence->setObjectName("batch_input_sentence");
  _input_sentence->setWordWrap(true);

  auto* kinds = new QHBoxLayout;
  kinds->addWidget(_captures);
  kinds->addWidget(_images);
  kinds->addStretch(1);
  kinds->addWidget(_again);
  auto* column = new QVBoxLayout(box);
  column->addWidget(_input_folder);
  column->addLayout(kinds);
  column->addWidget(_input_sentence);
  column->addWidget(_files, 1);

  // What touches the workbench goes with it: a window that closes takes the keyboard from the lines afterwards.
  connect(_input_folder, &PathField::path_chosen, &workbench(),
          [this](const std::optional<Path>& folder) { take_input_folder(folder); });
  connect(_images, &QRadioButton::toggled, this, [this](bool takes_images) {
    workbench().memory().remember_choice(kind_choice, takes_images);
    if (_listed_folder) take_input_folder(_listed_folder);
  });
  connect(_again, &QPushButton::clicked, this, [this] { take_input_folder(_listed_folder); });
  connect(_files, &TickList::ticks_changed, this, [this] {
    if (!workbench().is_busy()) controller().set_batch_file_list(_files->model().ticked());
  });
  return box;
}

QWidget* BatchPanel::make_order() {
  auto* box = new QGroupBox(tr("What to do with them"));
  _workflow->setObjectName("batch_workflow");
  _workflow->setAccessibleName(tr("The workflow in words"));
  _workflow->setOpenLinks(false);
  _workflow->setTabChangesFocus(true);
  _missing->setObjectName("batch_missing");
  _missing->setAccessibleName(tr("What is missing"));
  _missing->setWordWrap(true);
  QFont bold = _start->font();
  bold.setBold(true);
  _start->setFont(bold);

  auto* buttons = new QVBoxLayout;
  buttons->addWidget(_open_workflow);
  buttons->addWidget(_edit_workflow);
  buttons->addStretch(1);
  auto* workflow = new QHBoxLayout;
  workflow->addWidget(_workflow, 1);
  workflow->addLayout(buttons);
  auto* output = new QHBoxLayout;
  output->addWidget(new QLabel(tr("Results go to")));
  output->addWidget(_output_folder, 1);
  auto* start = new QHBoxLayout;
  start->addWidget(_missing, 1);
  start->addWidget(_start);
  auto* column = new QVBoxLayout(box);
  column->addLayout(workflow, 1);
  column->addLayout(output);
  column->addLayout(start);

  connect(_open_workflow, &QPushButton::clicked, this, [this] {
    const auto recent = workbench().memory().recent(Memory::List::workflows);
    const QString begin = recent.empty() ? QString() : qt_path(recent.front().parent_path());
    const QString file =
        QFileDialog::getOpenFileName(window(), tr("Workflow to run"), begin, tr("Workflows (*.yaml *.yml)"));
    if (!file.isEmpty()) workbench().open_workflow(path_from_qt(file));
  });
  connect(_edit_workflow, &QPushButton::clicked, this, [this] { workbench().set_mode("analysis"); });
  connect(_output_folder, &PathField::path_chosen, &workbench(), [this](const std::optional<Path>& folder) {
    if (!workbench().is_busy()) controller().set_batch_output_folder(folder);
  });
  connect(_start, &QPushButton::clicked, this, &BatchPanel::start);
  return box;
}

void BatchPanel::take_input_folder(const std::optional<Path>& folder) {
  if (workbench().is_busy()) return;
  _lists_images = _images->isChecked();
  _is_listed = false;
  if (folder) workbench().memory().remember(Memory::List::folders, *folder);
  if (_lists_images) {
    controller().set_batch_input_image_folder(folder);
  } else {
    controller().set_batch_input_folder(folder);
  }
}

// ---- Showing --------------------------------------------------------------------------------------------------------

void BatchPanel::refresh() {
  controller::AppState& state = controller().state;
  if (!std::exchange(_has_begun, true) && !state.batch_output_folder) {
    const auto recent = workbench().memory().recent(Memory::List::output_folders);
    if (!recent.empty()) state.batch_output_folder = recent.front();
  }
  show_input();
  show_order();
}

void BatchPanel::show_input() {
  const controller::AppState& state = controller().state;
  const auto& folder = state.batch_input_folder;
  const std::vector<Path> files = state.batch_file_list.value_or(std::vector<Path>());
  _input_folder->set_path(folder);
  if (!_is_listed || folder != _listed_folder) {
    _is_listed = true;
    _listed_folder = folder;
    _files->set_files(files);
  }
  _files->model().set_ticked(files);
  _files->show_count();

  QString sentence;
  std::error_code failure;
  if (!folder) {
    sentence = tr("Choose the folder with the files, or drop it on the line above.");
  } else if (_files->model().files().empty()) {
    const std::filesystem::directory_iterator readable(*folder, failure);
    const auto others = failure         ? std::vector<Path>()
                        : _lists_images ? controller()._find_batch_hdr_files(*folder)
                                        : controller()._find_batch_image_files(*folder);
    if (failure) {
      sentence = tr("The folder cannot be read: %1. Choose another one.").arg(to_qt(failure.message()));
    } else if (others.empty()) {
      sentence = tr("There is neither a capture (HDR_*.INF) nor an image in this folder. Choose another one.");
    } else if (_lists_images) {
      sentence = tr("There is no image in this folder, but %1 captures: choose “Captures” to run on them.")
                     .arg(grouped(static_cast<std::int64_t>(others.size())));
    } else {
      sentence = tr("There is no capture (HDR_*.INF) in this folder, but %1 images: choose “Images” to run on them.")
                     .arg(grouped(static_cast<std::int64_t>(others.size())));
    }
  }
  _input_sentence->setText(sentence);
  _input_sentence->setVisible(!sentence.isEmpty());
}

void BatchPanel::show_order() {
  const controller::AppState& state = controller().state;
  const QString words = workflow_words(controller(), state.current_workflow.get());
  if (_workflow->property("words") != words) {
    _workflow->setProperty("words", words);
    _workflow->setHtml(words);
  }
  _output_folder->set_path(state.batch_output_folder);
  const QStringList missing = obstacles();
  _missing->setText(missing.join('\n'));
  _start->setEnabled(missing.isEmpty());
  _start->setAccessibleDescription(_missing->text());
}

QStringList BatchPanel::obstacles() const {
  const controller::AppState& state = controller().state;
  QStringList missing;
  if (!state.batch_input_folder) {
    missing << tr("Choose the input folder.");
  } else if (!state.batch_file_list || state.batch_file_list->empty()) {
    missing << tr("Tick at least one file.");
  }
  const QString obstacle = workflow_obstacle(state.current_workflow.get());
  if (!obstacle.isEmpty()) missing << obstacle;
  if (!state.batch_output_folder || state.batch_output_folder->empty()) missing << tr("Choose the output folder.");
  return missing;
}

void BatchPanel::show_busy(bool is_busy) {
  // The files, the progress and the table can be looked at.
  for (QWidget* part : std::initializer_list<QWidget*>{_input_folder, _captures, _images, _again, _output_folder,
                                                       _open_workflow, _edit_workflow}) {
    part->setEnabled(!is_busy);
  }
  _files->set_frozen(is_busy);
  if (is_busy) _start->setEnabled(false);
}

// ---- Running --------------------------------------------------------------------------------------------------------

void BatchPanel::start() {
  if (workbench().is_busy() || !obstacles().isEmpty()) return;
  const controller::AppState& state = controller().state;
  const model::Workflow& workflow = *state.current_workflow;
  const Workbench::BatchOrder order{.files = *state.batch_file_list, .output_folder = *state.batch_output_folder};
  // Opening and saving besides the operations.
  const std::size_t steps = workflow.mask_operations.size() + workflow.result_operations.size() + 2;
  _progress->begin(static_cast<int>(order.files.size()), static_cast<int>(steps));
  workbench().run_batch(order);
}

void BatchPanel::end(const controller::BatchSummary& summary) {
  _progress->end(summary, to_qt(controller().state.error.value_or("")));
}

void BatchPanel::look_at(const OutcomeTable::Outcome& outcome) {
  if (workbench().is_busy()) return;
  _look =
      Look{.file = outcome.file, .sentence = outcome.state == OutcomeTable::State::done ? QString() : outcome.sentence};
  workbench().open_in_analysis(outcome.file);
}

void BatchPanel::look_for_failing_step() {
  if (!_look || workbench().is_busy()) return;
  const controller::AppState& state = controller().state;
  if (state.current_file && state.current_file != _look->file) _look.reset();
  if (!_look || !state.current_file || !state.current_capture) return;
  const std::vector<StepResult>& steps = workbench().step_results().steps();
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (!steps[i].failure.isEmpty()) {
      const QString failure = steps[i].failure;
      _look.reset();
      workbench().want_edit(static_cast<int>(i));
      workbench().tell_error(failure);
      return;
    }
    if (!steps[i].capture) return;  // not worked out yet
  }
  const Look look = *std::exchange(_look, std::nullopt);
  if (!look.sentence.isEmpty()) workbench().tell_error(look.sentence);
}

}  // namespace orvexa::ui::batchprocessing_mode

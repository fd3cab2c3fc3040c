#include "orvexa/ui/main_window.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStandardPaths>
#include <QStatusBar>
#include <QToolBar>
#include <filesystem>

#include "orvexa/common/text.h"
#include "orvexa/common/version.h"
#include "orvexa/ui/analysis_mode/analysis_page.h"
#include "orvexa/ui/analysis_mode/results_panel.h"
#include "orvexa/ui/analysis_mode/workflow_panel.h"
#include "orvexa/ui/batchprocessing_mode/batch_panel.h"
#include "orvexa/ui/filewatcher_mode/watcher_panel.h"
#include "orvexa/ui/mode_switch_panel.h"
#include "orvexa/ui/status_bar_panel.h"
#include "orvexa/ui/text.h"
#include "orvexa/ui/welcome.h"

namespace orvexa::ui {

namespace fs = std::filesystem;

namespace {

bool is_workflow(const fs::path& path) {
  const std::string extension = common::to_lower_ascii(path.extension().string());
  return extension == ".yaml" || extension == ".yml";
}

/// The folder that a file dialog begins in: the one that was used last.
QString first_folder(const Memory& memory, Memory::List list) {
  const auto recent = memory.recent(list);
  return recent.empty() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) : qt_path(recent.front());
}

}  // namespace

MainWindow::MainWindow()
    : _workbench(std::make_unique<Workbench>()),
      _pages(new QStackedWidget),
      _welcome(new Welcome),
      _analysis(new analysis_mode::AnalysisPage(*_workbench)),
      _batch(new batchprocessing_mode::BatchPanel(*_workbench)),
      _watcher(new filewatcher_mode::WatcherPanel(*_workbench)) {
  setAcceptDrops(true);
  resize(1360, 860);
  for (QWidget* page : {_welcome, static_cast<QWidget*>(_analysis), _batch, _watcher}) _pages->addWidget(page);
  setCentralWidget(_pages);

  auto* mode_switch = new ModeSwitchPanel(*_workbench);
  auto* status = new StatusBarPanel(*_workbench);
  auto* bar = addToolBar(tr("Mode"));
  bar->setObjectName("mode_bar");
  bar->setMovable(false);
  bar->addWidget(mode_switch);
  statusBar()->addWidget(status, 1);
  statusBar()->setSizeGripEnabled(true);

  controller::Controller& controller = _workbench->controller();
  for (PanelWidget* panel : std::initializer_list<PanelWidget*>{static_cast<batchprocessing_mode::BatchPanel*>(_batch),
                                                                static_cast<filewatcher_mode::WatcherPanel*>(_watcher),
                                                                mode_switch, status}) {
    controller.register_panel(*panel);
  }

  make_menus();
  const auto& workflow = _analysis->workflow_panel();
  connect(&workflow, &analysis_mode::WorkflowPanel::load_wanted, this, &MainWindow::choose_workflow);
  connect(&workflow, &analysis_mode::WorkflowPanel::save_wanted, this, &MainWindow::save);
  const auto* welcome = static_cast<Welcome*>(_welcome);
  connect(welcome, &Welcome::capture_wanted, this, &MainWindow::choose_capture);
  connect(welcome, &Welcome::folder_wanted, this, &MainWindow::choose_folder);
  connect(welcome, &Welcome::samples_wanted, this, &MainWindow::choose_samples);
  connect(welcome, &Welcome::workflow_wanted, this, &MainWindow::choose_workflow);

  _pick_mode_changed = controller.events.pick_mode_changed.connect([this](bool is_picking) {
    _is_picking = is_picking;
    update_actions();
  });
  connect(_workbench.get(), &Workbench::busy_changed, this, &MainWindow::update_actions);
  // Once what the worker brought has been taken over.
  connect(_workbench.get(), &Workbench::busy_changed, this, &MainWindow::open_next, Qt::QueuedConnection);
  connect(_workbench.get(), &Workbench::workflow_changed, this, &MainWindow::update_actions);
  connect(_workbench.get(), &Workbench::capture_changed, this, &MainWindow::update_actions);

  restoreGeometry(_workbench->memory().layout("window"));
  update_actions();
  _workbench->refresh();
}

MainWindow::~MainWindow() {
  _pick_mode_changed = {};
  _workbench.reset();
}

// ---- Menus ----------------------------------------------------------------------------------------------------------

QAction* MainWindow::add_action(QMenu* menu, const char* name, const QString& text, const QKeySequence& shortcut,
                                const QString& tip, const std::function<void()>& triggered) {
  auto* action = menu->addAction(text);
  action->setObjectName(name);
  action->setShortcut(shortcut);
  const QString keys = shortcut.toString(QKeySequence::NativeText);
  action->setToolTip(keys.isEmpty() ? tip : tr("%1 (%2)").arg(tip, keys));
  action->setStatusTip(action->toolTip());
  connect(action, &QAction::triggered, this, triggered);
  menu->setToolTipsVisible(true);
  return action;
}

void MainWindow::make_menus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  _while_idle << add_action(file, "open_capture", tr("&Open capture or image…"), QKeySequence::Open,
                            tr("Open a header file HDR_*.INF or a picture"), [this] { choose_capture(); });
  _while_idle << add_action(file, "open_folder", tr("Open &folder…"), Qt::CTRL | Qt::SHIFT | Qt::Key_O,
                            tr("Show the captures and images of a folder"), [this] { choose_folder(); });
  _recent = file->addMenu(tr("Open &recent"));
  _while_idle << _recent->menuAction();
  connect(_recent, &QMenu::aboutToShow, this, &MainWindow::fill_recent_menu);
  _while_idle << add_action(file, "open_samples", tr("Open &samples…"), Qt::CTRL | Qt::ALT | Qt::Key_O,
                            tr("Write captures with known answers into a folder and open one"),
                            [this] { choose_samples(); });
  file->addSeparator();
  add_action(file, "quit", tr("&Quit"), QKeySequence(Qt::CTRL | Qt::Key_Q), tr("Close the window"),
             [this] { close(); });

  QMenu* workflow = menuBar()->addMenu(tr("&Workflow"));
  _while_idle << add_action(workflow, "new_workflow", tr("&New"), QKeySequence::New, tr("Begin an empty workflow"),
                            [this] {
                              if (may_lose_changes()) _workbench->new_workflow();
                            });
  _while_idle << add_action(workflow, "load_workflow", tr("&Open…"), Qt::CTRL | Qt::ALT | Qt::Key_W,
                            tr("Open a workflow file"), [this] { choose_workflow(); });
  _save = add_action(workflow, "save_workflow", tr("&Save"), QKeySequence::Save, tr("Save the workflow"),
                     [this] { save(); });
  _save_as = add_action(workflow, "save_workflow_as", tr("Save &as…"), Qt::CTRL | Qt::SHIFT | Qt::Key_S,
                        tr("Save the workflow in another file"), [this] { save_as(); });
  workflow->addSeparator();
  _undo = add_action(workflow, "undo", tr("Undo"), QKeySequence::Undo, tr("Undo the last change"),
                     [this] { _workbench->undo(); });
  _redo = add_action(workflow, "redo", tr("Redo"), Qt::CTRL | Qt::SHIFT | Qt::Key_Z, tr("Do it again"),
                     [this] { _workbench->redo(); });
  workflow->addSeparator();
  _run = add_action(workflow, "run", tr("&Measure this capture"), Qt::CTRL | Qt::Key_R,
                    tr("Run the workflow on the open capture and write the results"), [this] { run(); });

  QMenu* help = menuBar()->addMenu(tr("&Help"));
  add_action(help, "about", tr("&About Orvexa"), Qt::Key_F1, tr("Version and libraries"), [this] {
    QMessageBox::about(
        this, tr("About Orvexa"),
        tr("Orvexa %1\n%2\nQt %3").arg(to_qt(common::program_version()), to_qt(common::build_text()), qVersion()));
  });
}

void MainWindow::fill_recent_menu() {
  _recent->clear();
  const auto add = [this](Memory::List list, const QString& heading) {
    const auto paths = _workbench->memory().recent(list);
    if (paths.empty()) return;
    _recent->addSection(heading);
    for (const fs::path& path : paths) {
      connect(_recent->addAction(qt_path(path)), &QAction::triggered, this, [this, path] { open(path); });
    }
  };
  add(Memory::List::captures, tr("Captures and images"));
  add(Memory::List::folders, tr("Folders"));
  add(Memory::List::workflows, tr("Workflows"));
  if (_recent->isEmpty()) _recent->addAction(tr("Nothing was opened yet"))->setEnabled(false);
}

void MainWindow::update_actions() {
  const bool is_free = !_workbench->is_busy() && !_is_picking;
  for (QAction* action : std::as_const(_while_idle)) action->setEnabled(is_free);
  if (!is_free) {
    for (QAction* action : {_undo, _redo, _save, _save_as, _run}) action->setEnabled(false);
    return;  // the state belongs to the worker
  }
  const controller::AppState& state = _workbench->controller().state;
  const History& history = _workbench->history();
  const auto show_step = [](QAction* action, const History::Step* step, const QString& text, const QString& with_step) {
    action->setEnabled(step != nullptr);
    action->setText(step == nullptr ? text : with_step.arg(step->text));
    action->setToolTip(action->text() + " (" + action->shortcut().toString(QKeySequence::NativeText) + ")");
  };
  show_step(_undo, history.undo_step(), tr("Undo"), tr("Undo: %1"));
  show_step(_redo, history.redo_step(), tr("Redo"), tr("Redo: %1"));
  const bool is_analysis = state.processing_mode == "analysis";
  _save->setEnabled(state.current_workflow != nullptr);
  _save_as->setEnabled(state.current_workflow != nullptr);
  _run->setEnabled(is_analysis && state.current_capture && state.current_workflow);

  QWidget* page = _analysis;
  if (state.processing_mode == "batch") {
    page = _batch;
  } else if (state.processing_mode == "watcher") {
    page = _watcher;
  } else if (!state.current_capture && !state.current_folder && !state.current_file && !state.current_workflow) {
    page = _welcome;
  }
  _pages->setCurrentWidget(page);

  const QString capture = state.current_capture ? to_qt(state.current_capture->name) : QString();
  const QString workflow = state.current_workflow ? to_qt(state.current_workflow->title) : QString();
  QStringList title;
  if (!capture.isEmpty()) title << capture;
  if (!workflow.isEmpty()) title << workflow + "[*]";
  title << tr("Orvexa");
  setWindowTitle(title.join(QString::fromUtf8(" – ")));
  setWindowModified(_workbench->has_unsaved_changes());
}

// ---- What people open and save --------------------------------------------------------------------------------------

void MainWindow::open(const fs::path& path) {
  std::error_code unknown;
  if (_workbench->is_busy() || _is_picking) {
    _workbench->tell_error(tr("Something is running; wait until it has ended, or cancel it."));
  } else if (fs::is_directory(path, unknown)) {
    _workbench->set_mode("analysis");
    _workbench->open_folder(path);
  } else if (is_workflow(path)) {
    if (may_lose_changes()) _workbench->open_workflow(path);
  } else {
    _workbench->open_in_analysis(path);
  }
}

void MainWindow::open_all(const std::vector<fs::path>& paths) {
  _to_open.insert(_to_open.end(), paths.begin(), paths.end());
  open_next();
}

void MainWindow::open_next() {
  if (_to_open.empty() || _workbench->is_busy()) return;
  const fs::path path = _to_open.front();
  _to_open.erase(_to_open.begin());
  open(path);
  open_next();
}

void MainWindow::choose_capture() {
  const QString file = QFileDialog::getOpenFileName(
      this, tr("Open a capture or an image"), first_folder(_workbench->memory(), Memory::List::folders),
      tr("Captures and images (HDR_*.INF *.png *.jpg *.jpeg *.tif *.tiff *.bmp *.gif *.PNG *.JPG *.JPEG *.TIF *.TIFF "
         "*.BMP *.GIF);;All files (*)"));
  if (!file.isEmpty()) open(path_from_qt(file));
}

void MainWindow::choose_folder() {
  const QString folder = QFileDialog::getExistingDirectory(this, tr("Open a folder"),
                                                           first_folder(_workbench->memory(), Memory::List::folders));
  if (!folder.isEmpty()) open(path_from_qt(folder));
}

void MainWindow::choose_samples() {
  const QString folder = QFileDialog::getExistingDirectory(this, tr("Choose a folder for the samples"),
                                                           first_folder(_workbench->memory(), Memory::List::folders));
  if (!folder.isEmpty()) _workbench->open_samples(path_from_qt(folder) / "orvexa-samples");
}

void MainWindow::choose_workflow() {
  const QString file = QFileDialog::getOpenFileName(this, tr("Open a workflow"),
                                                    first_folder(_workbench->memory(), Memory::List::workflows),
                                                    tr("Workflows (*.yaml *.yml);;All files (*)"));
  if (!file.isEmpty() && may_lose_changes()) _workbench->open_workflow(path_from_qt(file));
}

bool MainWindow::may_lose_changes() {
  if (!_workbench->has_unsaved_changes()) return true;
  QMessageBox question(QMessageBox::Question, tr("Unsaved changes"), tr("The workflow has changes that are not saved."),
                       QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
  question.setObjectName("unsaved_changes");
  question.setInformativeText(tr("Save them first?"));
  question.setDefaultButton(QMessageBox::Save);
  switch (question.exec()) {
    case QMessageBox::Save:
      return save();
    case QMessageBox::Discard:
      return true;
    default:
      return false;
  }
}

bool MainWindow::save() {
  _analysis->workflow_panel().commit_title();  // it may still be typed
  return _workbench->workflow_file() ? _workbench->save_workflow(*_workbench->workflow_file()) : save_as();
}

bool MainWindow::save_as() {
  _analysis->workflow_panel().commit_title();
  const auto& workflow = _workbench->controller().state.current_workflow;
  const QString suggestion = first_folder(_workbench->memory(), Memory::List::folders) + "/" +
                             (workflow ? to_qt(workflow->title).replace('/', '_') : QString("workflow")) + ".yaml";
  QString file = QFileDialog::getSaveFileName(
      this, tr("Save the workflow"), _workbench->workflow_file() ? qt_path(*_workbench->workflow_file()) : suggestion,
      tr("Workflows (*.yaml *.yml)"));
  if (file.isEmpty()) return false;
  if (!is_workflow(path_from_qt(file))) file += ".yaml";
  return _workbench->save_workflow(path_from_qt(file));
}

void MainWindow::run() {
  _analysis->results_panel().run();
}

void MainWindow::offer_recovery() {
  const auto left_behind = _workbench->autosave().left_behind();
  if (left_behind.empty()) return;
  QMessageBox question(QMessageBox::Question, tr("A workflow was not saved"),
                       tr("The program ended before without saving a workflow."), QMessageBox::NoButton, this);
  question.setObjectName("recover_workflow");
  question.setInformativeText(tr("Get it back, or throw it away?"));
  QAbstractButton* recover = question.addButton(tr("Get it back"), QMessageBox::AcceptRole);
  QAbstractButton* throw_away = question.addButton(tr("Throw it away"), QMessageBox::DestructiveRole);
  question.addButton(tr("Later"), QMessageBox::RejectRole);
  question.exec();
  if (question.clickedButton() == recover) {
    _workbench->recover_workflow(left_behind.front());
  } else if (question.clickedButton() == throw_away) {
    for (const fs::path& file : left_behind) _workbench->autosave().throw_away(file);
  }
}

// ---- Events of the window -------------------------------------------------------------------------------------------

void MainWindow::closeEvent(QCloseEvent* event) {
  if (!may_lose_changes()) {
    event->ignore();
    return;
  }
  _workbench->memory().remember_layout("window", saveGeometry());
  _analysis->remember_layout();
  event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls() && event->mimeData()->urls().front().isLocalFile()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  event->acceptProposedAction();
  open(path_from_qt(event->mimeData()->urls().front().toLocalFile()));
}

}  // namespace orvexa::ui

#pragma once

#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QStackedWidget>
#include <memory>

#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/ui/workbench/workbench.h"

namespace orvexa::ui {

namespace analysis_mode {
class AnalysisPage;
}

/// The window: menus, the mode switch, a page for each mode, the status line.
class MainWindow final : public QMainWindow {
  Q_OBJECT

 public:
  MainWindow();
  /// Ends the workers, then the Controller, then the panels.
  ~MainWindow() override;

  [[nodiscard]] Workbench& workbench() { return *_workbench; }
  /// A capture or image is opened, a folder shown, a workflow (".yaml", ".yml") loaded.
  void open(const std::filesystem::path& path);
  /// One after the other.
  void open_all(const std::vector<std::filesystem::path>& paths);
  /// Asks about a workflow that a program which crashed left behind, when there is one.
  void offer_recovery();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  /// An action in a menu, with its shortcut in its tip.
  QAction* add_action(QMenu* menu, const char* name, const QString& text, const QKeySequence& shortcut,
                      const QString& tip, const std::function<void()>& triggered);
  void make_menus();
  void open_next();
  void fill_recent_menu();
  void update_actions();
  /// Whether the workflow may be replaced: asks about unsaved changes. @return false when people would rather not.
  bool may_lose_changes();
  bool save();
  bool save_as();
  void choose_capture();
  void choose_folder();
  void choose_samples();
  void choose_workflow();
  void run();

  std::unique_ptr<Workbench> _workbench;
  controller::EventConnection _pick_mode_changed;
  bool _is_picking = false;
  std::vector<std::filesystem::path> _to_open;
  QStackedWidget* _pages;
  QWidget* _welcome;
  analysis_mode::AnalysisPage* _analysis;
  QWidget* _batch;
  QWidget* _watcher;
  QMenu* _recent = nullptr;
  QAction* _undo = nullptr;
  QAction* _redo = nullptr;
  QAction* _save = nullptr;
  QAction* _save_as = nullptr;
  QAction* _run = nullptr;
  QList<QAction*> _while_idle;  ///< disabled while a worker runs or something is picked
};

}  // namespace orvexa::ui

#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/controller/controller.h"
#include "orvexa/ui/workbench/autosave.h"
#include "orvexa/ui/workbench/history.h"
#include "orvexa/ui/workbench/mailbox.h"
#include "orvexa/ui/workbench/measured_results.h"
#include "orvexa/ui/workbench/memory.h"
#include "orvexa/ui/workbench/previewer.h"
#include "orvexa/ui/workbench/step_results.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui {

/// What the window's panels and actions work with: the Controller, the workers that run it without stopping the window,
/// and the history of the workflow.
///
/// While a worker runs (`is_busy`), the state belongs to it: no command is taken, no panel is refreshed, and what
/// people see of the run comes from the signals here. Everything is called on the UI thread.
class Workbench : public QObject {
  Q_OBJECT

 public:
  using Path = std::filesystem::path;

  Workbench();
  /// Ends the workers, then the Controller.
  ~Workbench() override;

  [[nodiscard]] controller::Controller& controller() const { return *_controller; }
  [[nodiscard]] Memory& memory() { return _memory; }
  [[nodiscard]] Mailbox::Address mailbox() const { return _mailbox.address(); }
  [[nodiscard]] Previewer& previewer() { return *_previewer; }
  [[nodiscard]] StepResults& step_results() { return *_step_results; }

  // ---- Busy ---------------------------------------------------------------------------------------------------------

  /// Whether a worker runs with the Controller.
  [[nodiscard]] bool is_busy() const { return _is_busy; }
  /// Asks what runs to end soon.
  void cancel();
  /// Lets the panels of the current mode read the state; does nothing while busy.
  void refresh();
  /// A sentence for the status line, or an error for it.
  void tell(const QString& message);
  void tell_error(const QString& error);

  // ---- Modes, folders and captures ----------------------------------------------------------------------------------

  /// "analysis", "batch" or "watcher". Back in "analysis" the capture that was open there is opened again.
  void set_mode(const std::string& mode);
  void open_folder(const Path& folder);
  /// Loads a capture or image on a worker; one that is being loaded is forgotten for it. Ends with `capture_changed`.
  void open_capture(const Path& file);
  /// Opens a capture in the analysis mode, from whatever mode: to look at one that failed in a batch.
  void open_in_analysis(const Path& file);
  /// Writes the built-in captures into a folder and opens it with the first of them.
  void open_samples(const Path& folder);

  // ---- The workflow: each a step of the history ---------------------------------------------------------------------

  void apply_mask(const std::string& operation, const common::Value& params);
  /// Changes a step's parameters when they are right. @return the sentence that says what is wrong, or nothing.
  std::optional<QString> edit_mask(int index, const common::Value& params);
  void remove_mask(int index);
  /// Asks whoever edits steps to take this one up; ends in `edit_mask`.
  void want_edit(int index);
  /// What is measured from now on, by key.
  void set_result_operations(const std::vector<std::string>& keys);
  /// The same for a measured operation. Edits of one operation within `typing_pause_ms` are one step of the history.
  std::optional<QString> edit_result_operation(const std::string& key, const common::Value& params);
  static constexpr int typing_pause_ms = 1500;
  void set_title(const QString& title);
  void new_workflow();
  /// @return whether it was loaded; if not, the workflow is the one before.
  bool open_workflow(const Path& file);
  bool save_workflow(const Path& file);
  void undo();
  void redo();
  [[nodiscard]] const History& history() const { return _history; }
  /// The file that the workflow was last loaded from or saved to.
  [[nodiscard]] const std::optional<Path>& workflow_file() const { return _workflow_file; }
  [[nodiscard]] bool has_unsaved_changes() const;
  /// Workflows that a program which ended without saving them left behind; taken over or thrown away.
  [[nodiscard]] Autosave& autosave() { return *_autosave; }
  /// Makes a left-behind workflow the current one, with its changes unsaved.
  bool recover_workflow(const Path& file);

  // ---- Preview ------------------------------------------------------------------------------------------------------

  /// Asks the previewer about a step of the current workflow on the current capture: an existing one, or with the
  /// number of steps the next one. Does nothing without a capture or while busy.
  void preview(int index, const std::string& operation, const common::Value& params);

  // ---- Runs on the worker -------------------------------------------------------------------------------------------

  void run_results(const Path& folder);
  /// What the last run found; null when there is none or another capture was opened since.
  [[nodiscard]] std::shared_ptr<const MeasuredResults> results() const;
  struct BatchOrder {
    std::vector<Path> files;
    Path output_folder;
  };
  void run_batch(const BatchOrder& order);
  void start_watcher(const controller::WatcherConfig& config);
  void stop_watcher();

 Q_SIGNALS:
  void busy_changed(bool is_busy);
  /// What the worker does, for the status line.
  void progress_told(const QString& text);

  /// The current capture is another one, or there is none any more. Pictures of the one before must go.
  void capture_changed();
  /// The workflow is another one or has other steps.
  void workflow_changed();

  void step_edit_wanted(int index);

  void results_ended(bool is_complete);
  /// @param number from 1
  void batch_file_begun(int number, int count, const QString& file);
  void batch_step_told(const QString& text);
  void batch_file_done(const controller::BatchFileEntry& entry);
  void batch_ended(const controller::BatchSummary& summary);
  void watcher_told(const controller::WatcherEvent& event);

 private:
  /// Runs `work` on the worker with the Controller to itself, then `at_end` on the UI thread, which it may use again.
  /// A failure of the work is told as an error; `at_end` is called all the same.
  void run_busy(const QString& what, std::function<void(const Worker::Job&)> work, std::function<void()> at_end);
  void set_busy(bool is_busy);
  [[nodiscard]] WorkflowCopy workflow_copy() const;
  /// Makes what changed since `before` a step of the history and names in the status line what availability added or
  /// took away; does nothing when nothing changed.
  void end_change(const WorkflowCopy& before, const QString& text);
  /// The workflow is another one: it is kept against crashes, and everybody is told.
  void note_change();
  void put_in_place(const WorkflowCopy& workflow);
  /// After every change of capture or workflow.
  void update_pictures();
  void load_on_worker(const Path& file);

  Mailbox _mailbox;
  Memory _memory;
  std::unique_ptr<controller::Controller> _controller;
  std::unique_ptr<Autosave> _autosave;
  std::unique_ptr<Previewer> _previewer;
  std::unique_ptr<StepResults> _step_results;

  bool _is_busy = false;
  History _history;
  QElapsedTimer _since_edit;  ///< of the parameters of `_edited_operation`
  std::string _edited_operation;
  WorkflowCopy _saved_workflow;  ///< as it was when it was last saved or loaded
  std::optional<Path> _workflow_file;
  std::shared_ptr<const MeasuredResults> _results;
  std::optional<Path> _capture_of_analysis;  ///< what to open again when people come back to the mode

  std::unique_ptr<Worker> _worker;  ///< with the Controller
};

}  // namespace orvexa::ui

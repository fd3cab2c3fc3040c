#include "orvexa/ui/workbench/workbench.h"

#include <QStandardPaths>
#include <QStringList>
#include <algorithm>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/samples/samples.h"
#include "orvexa/model/workflow/parameter_files.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

using controller::Controller;
using model::failure_text;

namespace {

std::filesystem::path data_folder() {
  return path_from_qt(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));
}

bool equal(const WorkflowCopy& a, const WorkflowCopy& b) {
  return a == b || (a && b && *a == *b);
}

std::vector<std::string> measured_keys(const WorkflowCopy& workflow) {
  std::vector<std::string> keys;
  if (!workflow) return keys;
  for (const model::ResultOperationConfig& entry : workflow->result_operations) keys.push_back(entry.op);
  return keys;
}

/// Display names of the keys that the first list has and the second has not.
QString names_missing_in(const std::vector<std::string>& keys, const std::vector<std::string>& others,
                         const Controller& controller) {
  QStringList names;
  for (const std::string& key : keys) {
    if (std::find(others.begin(), others.end(), key) != others.end()) continue;
    const model::ResultOperationInfo* info = controller.get_result_operation_info(key);
    names << to_qt(info != nullptr ? info->display_name : key);
  }
  return names.join(", ");
}

}  // namespace

Workbench::Workbench()
    : _controller(std::make_unique<Controller>()),
      _autosave(std::make_unique<Autosave>(data_folder() / "autosave", _mailbox.address())),
      _previewer(std::make_unique<Previewer>(_mailbox.address())),
      _step_results(std::make_unique<StepResults>(_mailbox.address())),
      _worker(std::make_unique<Worker>(_mailbox.address(), "controller")) {
  // What a watcher tells comes from its own thread.
  _controller->watcher_maker = [this, make = _controller->watcher_maker,
                                mailbox = _mailbox.address()](const controller::WatcherArguments& arguments) {
    controller::WatcherArguments ours = arguments;
    ours.on_event = [this, mailbox](const controller::WatcherEvent& event) {
      mailbox.post([this, event] { Q_EMIT watcher_told(event); });
    };
    return make(ours);
  };
}

Workbench::~Workbench() {
  _worker.reset();
  _previewer.reset();
  _step_results.reset();
  try {
    _controller->stop_watcher();
  } catch (...) {
    common::logger.error("The watcher could not be stopped: " + failure_text());
  }
  _autosave.reset();
  _controller.reset();
}

// ---- Busy -----------------------------------------------------------------------------------------------------------

void Workbench::set_busy(bool is_busy) {
  if (_is_busy == is_busy) return;
  _is_busy = is_busy;
  Q_EMIT busy_changed(is_busy);
}

void Workbench::run_busy(const QString& what, std::function<void(const Worker::Job&)> work,
                         std::function<void()> at_end) {
  set_busy(true);
  Q_EMIT progress_told(what);
  _worker->start(
      [this, work = std::move(work)](const Worker::Job& job) {
        try {
          work(job);
        } catch (const model::CancelledError&) {
          job.deliver([this] { _controller->state.message = from_qt(tr("Cancelled")); });
        } catch (...) {
          job.deliver([this, reason = failure_text()] { _controller->_set_error(reason); });
        }
      },
      [this, at_end = std::move(at_end)] {
        set_busy(false);
        at_end();
        refresh();
      });
}

void Workbench::cancel() {
  _worker->cancel();
}

void Workbench::refresh() {
  if (_is_busy) return;
  try {
    _controller->refresh_all_panels();
  } catch (...) {
    const std::string reason = failure_text();
    common::logger.exception("A panel could not be refreshed: " + reason);
    _controller->_set_error(reason);
    _controller->refresh_only_status();
  }
}

void Workbench::tell(const QString& message) {
  if (_is_busy) {
    Q_EMIT progress_told(message);
    return;
  }
  _controller->state.message = from_qt(message);
  _controller->state.error.reset();
  _controller->state.derive_phase();
  _controller->refresh_only_status();
}

void Workbench::tell_error(const QString& error) {
  if (_is_busy) {
    Q_EMIT progress_told(error);
    return;
  }
  _controller->_set_error(from_qt(error));
  _controller->refresh_only_status();
}

// ---- Modes, folders and captures ------------------------------------------------------------------------------------

void Workbench::set_mode(const std::string& mode) {
  if (_is_busy || mode == _controller->state.processing_mode) return;
  _previewer->end();
  _controller->set_processing_mode(mode);
  Q_EMIT capture_changed();
  update_pictures();
  if (mode == "analysis" && _capture_of_analysis) {
    open_capture(*_capture_of_analysis);
  } else {
    refresh();
  }
}

void Workbench::open_folder(const Path& folder) {
  if (_is_busy) return;
  _previewer->end();
  _capture_of_analysis.reset();
  _controller->set_current_folder(folder);
  _memory.remember(Memory::List::folders, folder);
  Q_EMIT capture_changed();
  update_pictures();
  refresh();
}

void Workbench::open_capture(const Path& file) {
  if (_is_busy) return;
  _previewer->end();
  _controller->set_current_file(file);
  _capture_of_analysis = file;
  Q_EMIT capture_changed();
  update_pictures();
  load_on_worker(file);
}

void Workbench::load_on_worker(const Path& file) {
  // Either the one or the other, found on the worker and taken over on the UI thread.
  struct Loaded {
    std::optional<Controller::CaptureLoadResult> result;
    std::string failure;
  };
  auto loaded = std::make_shared<Loaded>();
  run_busy(
      tr("Opening %1").arg(qt_path(file.filename())),
      [this, file, loaded](const Worker::Job&) {
        try {
          loaded->result = _controller->_do_load_capture(file);
        } catch (...) {
          loaded->failure = failure_text();
        }
      },
      [this, file, loaded] {
        const WorkflowCopy before = workflow_copy();
        if (loaded->result) {
          _controller->_on_capture_load_success(*loaded->result);
        } else {
          _controller->_on_capture_load_error(loaded->failure);
        }
        if (_controller->state.current_capture) {
          _memory.remember(Memory::List::captures, file);
          if (before) {
            end_change(before, tr("open %1").arg(qt_path(file.filename())));
          } else {
            _saved_workflow = workflow_copy();  // the empty one that came with the capture is nobody's work
            Q_EMIT workflow_changed();
          }
        }
        Q_EMIT capture_changed();
        update_pictures();
        refresh();
        _controller->_trigger_auto_selection();
      });
}

void Workbench::open_in_analysis(const Path& file) {
  if (_is_busy) return;
  if (_controller->state.processing_mode == "analysis") {
    open_capture(file);
    return;
  }
  _capture_of_analysis = file;
  set_mode("analysis");
}

void Workbench::open_samples(const Path& folder) {
  if (_is_busy) return;
  auto reports = std::make_shared<std::vector<model::SampleReport>>();
  run_busy(
      tr("Drawing the samples"), [folder, reports](const Worker::Job&) { *reports = model::write_samples(folder); },
      [this, reports] {
        if (reports->empty() || reports->front().captures.empty()) return;
        const Path capture = reports->front().captures.front();
        open_folder(capture.parent_path());
        open_capture(capture);
      });
}

// ---- The workflow ---------------------------------------------------------------------------------------------------

WorkflowCopy Workbench::workflow_copy() const {
  const auto& workflow = _controller->state.current_workflow;
  return workflow ? std::make_shared<const model::Workflow>(*workflow) : nullptr;
}

void Workbench::end_change(const WorkflowCopy& before, const QString& text) {
  const WorkflowCopy after = workflow_copy();
  if (equal(before, after)) return;
  _history.push({.text = text, .before = before, .after = after});
  if (before && after) {
    const QString added = names_missing_in(measured_keys(after), measured_keys(before), *_controller);
    const QString removed = names_missing_in(measured_keys(before), measured_keys(after), *_controller);
    QString message = to_qt(_controller->state.message.value_or(""));
    if (!added.isEmpty()) message += tr("; measured from now on: %1").arg(added);
    if (!removed.isEmpty()) message += tr("; no longer measured: %1").arg(removed);
    _controller->state.message = from_qt(message);
  }
  note_change();
}

void Workbench::note_change() {
  const WorkflowCopy workflow = workflow_copy();
  _autosave->keep(equal(workflow, _saved_workflow) ? nullptr : workflow);
  Q_EMIT workflow_changed();
}

void Workbench::update_pictures() {
  _step_results->update(_controller->state.current_capture, workflow_copy());
}

void Workbench::apply_mask(const std::string& operation, const common::Value& params) {
  if (_is_busy) return;
  const model::MaskOperationInfo& info = _controller->get_mask_operation_class(operation);
  const QString name = to_qt(info.display_name);
  _previewer->end();
  run_busy(
      tr("Applying %1").arg(name),
      [this, operation, params](const Worker::Job& job) {
        _controller->_prepare_mask_step(operation, params, &job.cancel_event());
      },
      [this, operation, params, name] {
        if (_worker->was_cancelled()) return;
        const WorkflowCopy before = workflow_copy();
        const std::size_t count_before = before ? before->mask_operations.size() : 0;
        _controller->state.error.reset();
        const auto masked = _controller->apply_mask_to_workflow(operation, params);
        const auto& workflow = _controller->state.current_workflow;
        if (!workflow || workflow->mask_operations.size() == count_before) {
          _controller->state.derive_phase();
          return;
        }
        _memory.remember_parameters(operation, params);
        _controller->state.derive_phase();
        _controller->events.mask_operation_added.emit(masked);
        end_change(before, tr("add %1").arg(name));
        update_pictures();
      });
}

std::optional<QString> Workbench::edit_mask(int index, const common::Value& params) {
  if (_is_busy) return tr("Something is running; wait until it has ended.");
  const WorkflowCopy before = workflow_copy();
  const model::MaskOperationConfig& step = before->mask_operations.at(static_cast<std::size_t>(index));
  QString name;
  try {
    const model::MaskOperationInfo& info = _controller->get_mask_operation_class(step.op);
    name = to_qt(info.display_name);
    const common::Value checked = info()->validate_params(params);
    for (const auto& [key, value] : checked.items()) _controller->update_mask_param(index, key, value);
    _memory.remember_parameters(step.op, params);
  } catch (...) {
    return to_qt(failure_text());
  }
  _previewer->end();
  _controller->clear_intermediate_results_cache();
  _controller->state.message = from_qt(tr("Changed %1").arg(name));
  _controller->state.error.reset();
  _controller->handle_mask_dependencies();
  _controller->state.derive_phase();
  end_change(before, tr("change %1").arg(name));
  update_pictures();
  refresh();
  return std::nullopt;
}

void Workbench::remove_mask(int index) {
  if (_is_busy) return;
  const WorkflowCopy before = workflow_copy();
  if (!before || index < 0 || std::cmp_greater_equal(index, before->mask_operations.size())) return;
  const std::string& key = before->mask_operations[static_cast<std::size_t>(index)].op;
  const auto infos = _controller->get_available_mask_operations();
  const auto info = infos.find(key);
  const QString name = to_qt(info != infos.end() ? info->second->display_name : key);
  _previewer->end();
  _controller->state.message = from_qt(tr("Removed %1").arg(name));
  _controller->state.error.reset();
  if (!_controller->remove_mask_from_workflow(index)) return;
  _controller->state.derive_phase();
  end_change(before, tr("remove %1").arg(name));
  update_pictures();
  refresh();
}

void Workbench::want_edit(int index) {
  if (!_is_busy) Q_EMIT step_edit_wanted(index);
}

void Workbench::set_result_operations(const std::vector<std::string>& keys) {
  if (_is_busy || !_controller->state.current_workflow) return;
  const WorkflowCopy before = workflow_copy();
  _controller->state.message = from_qt(tr("%n operation(s) measured", nullptr, static_cast<int>(keys.size())));
  _controller->state.error.reset();
  _controller->sync_result_operations_to_workflow(keys);
  _controller->state.derive_phase();
  const QString added = names_missing_in(keys, measured_keys(before), *_controller);
  const QString removed = names_missing_in(measured_keys(before), keys, *_controller);
  end_change(before, removed.isEmpty() ? tr("measure %1").arg(added) : tr("no longer measure %1").arg(removed));
  refresh();
}

std::optional<QString> Workbench::edit_result_operation(const std::string& key, const common::Value& params) {
  if (_is_busy) return tr("Something is running; wait until it has ended.");
  const WorkflowCopy before = workflow_copy();
  const model::ResultOperationInfo* info = _controller->get_result_operation_info(key);
  if (!before || info == nullptr) return tr("There is no such operation.");
  auto changed = std::make_shared<model::Workflow>(*before);
  const auto entry = std::find_if(changed->result_operations.begin(), changed->result_operations.end(),
                                  [&](const model::ResultOperationConfig& config) { return config.op == key; });
  if (entry == changed->result_operations.end()) return tr("This operation is not measured.");
  try {
    entry->params = (*info)()->validate_params(params);
  } catch (...) {
    return to_qt(failure_text());
  }
  if (*changed == *before) return std::nullopt;
  _memory.remember_parameters(key, params);
  _controller->set_workflow(changed);
  const QString name = to_qt(info->display_name);
  const QString text = tr("change %1").arg(name);
  _controller->state.message = from_qt(tr("Changed %1").arg(name));
  const History::Step* last = _history.undo_step();
  const bool goes_on = _edited_operation == key && _since_edit.isValid() && !_since_edit.hasExpired(typing_pause_ms) &&
                       last != nullptr && equal(last->after, before);
  _edited_operation = key;
  _since_edit.start();
  if (goes_on) {
    _history.prolong(workflow_copy());
    note_change();
  } else {
    end_change(before, text);
  }
  refresh();
  return std::nullopt;
}

void Workbench::set_title(const QString& title) {
  const WorkflowCopy before = workflow_copy();
  if (_is_busy || !before || before->title == from_qt(title)) return;
  auto changed = std::make_shared<model::Workflow>(*before);
  changed->title = from_qt(title);
  _controller->set_workflow(changed);
  _controller->state.message = from_qt(tr("The workflow is called %1").arg(title));
  end_change(before, tr("call the workflow %1").arg(title));
  refresh();
}

void Workbench::new_workflow() {
  if (_is_busy) return;
  const WorkflowCopy before = workflow_copy();
  _previewer->end();
  const auto& capture = _controller->state.current_capture;
  _controller->new_empty_workflow(capture ? capture->name : "untitled");
  _controller->state.message = from_qt(tr("New workflow"));
  _workflow_file.reset();
  end_change(before, tr("new workflow"));
  _saved_workflow = workflow_copy();
  _autosave->keep(nullptr);
  update_pictures();
  refresh();
}

bool Workbench::open_workflow(const Path& file) {
  if (_is_busy) return false;
  const WorkflowCopy before = workflow_copy();
  _previewer->end();
  const bool is_loaded = _controller->load_workflow_from_file(file);
  if (is_loaded) {
    _workflow_file = file;
    _memory.remember(Memory::List::workflows, file);
    end_change(before, tr("open %1").arg(qt_path(file.filename())));
    _saved_workflow = workflow_copy();
    _autosave->keep(nullptr);
  } else if (before) {
    // Loading took the steps out of the workflow before it read the file.
    const std::optional<std::string> error = _controller->state.error;
    _controller->set_workflow(std::make_shared<model::Workflow>(*before));
    _controller->_set_error(error.value_or(""));
  }
  update_pictures();
  Q_EMIT workflow_changed();
  refresh();
  return is_loaded;
}

bool Workbench::recover_workflow(const Path& file) {
  if (_is_busy) return false;
  const WorkflowCopy before = workflow_copy();
  try {
    _controller->import_workflow_yaml(file);
  } catch (...) {
    tell_error(to_qt(failure_text()));
    return false;
  }
  _workflow_file.reset();
  _controller->state.message = from_qt(tr("The workflow that was not saved is back"));
  end_change(before, tr("recover a workflow"));
  _autosave->throw_away(file);
  update_pictures();
  refresh();
  return true;
}

bool Workbench::save_workflow(const Path& file) {
  if (_is_busy) return false;
  const std::shared_ptr<model::Workflow> before = _controller->state.current_workflow;
  const Path folder = std::filesystem::absolute(file).parent_path();
  if (before && before->folder != folder) {
    // Files that parameters name relative to the workflow must be the same ones seen from the new place.
    auto moved = std::make_shared<model::Workflow>(model::moved_to(*before, folder));
    moved->folder = folder;
    _controller->set_workflow(moved);
  }
  const bool is_saved = _controller->save_workflow_to_file(file);
  if (is_saved) {
    _controller->state.error.reset();
    _workflow_file = file;
    _saved_workflow = workflow_copy();
    _autosave->keep(nullptr);
    _memory.remember(Memory::List::workflows, file);
    update_pictures();
    Q_EMIT workflow_changed();
  } else if (before && before != _controller->state.current_workflow) {
    const std::string error = _controller->state.error.value_or("");
    _controller->set_workflow(before);
    _controller->_set_error(error);
  }
  refresh();
  return is_saved;
}

bool Workbench::has_unsaved_changes() const {
  return !_is_busy && !equal(workflow_copy(), _saved_workflow);
}

void Workbench::put_in_place(const WorkflowCopy& workflow) {
  _previewer->end();
  if (workflow) {
    _controller->set_workflow(std::make_shared<model::Workflow>(*workflow));
  } else {
    _controller->clear_workflow();
    _controller->clear_intermediate_results_cache();
  }
  _autosave->keep(equal(workflow, _saved_workflow) ? nullptr : workflow);
}

void Workbench::undo() {
  if (_is_busy || _history.undo_step() == nullptr) return;
  const History::Step step = *_history.undo_step();
  _history.step_back();
  put_in_place(step.before);
  _controller->state.message = from_qt(tr("Undone: %1").arg(step.text));
  update_pictures();
  Q_EMIT workflow_changed();
  refresh();
}

void Workbench::redo() {
  if (_is_busy || _history.redo_step() == nullptr) return;
  const History::Step step = *_history.redo_step();
  _history.step_forward();
  put_in_place(step.after);
  _controller->state.message = from_qt(tr("Done again: %1").arg(step.text));
  update_pictures();
  Q_EMIT workflow_changed();
  refresh();
}

// ---- Preview --------------------------------------------------------------------------------------------------------

void Workbench::preview(int index, const std::string& operation, const common::Value& params) {
  if (_is_busy || !_controller->state.current_capture) return;
  _previewer->ask({.capture = _controller->state.current_capture,
                   .workflow = workflow_copy(),
                   .index = index,
                   .operation = operation,
                   .params = params});
}

// ---- Runs -----------------------------------------------------------------------------------------------------------

void Workbench::run_results(const Path& folder) {
  if (_is_busy) return;
  _previewer->end();
  _memory.remember(Memory::List::output_folders, folder);
  auto is_complete = std::make_shared<bool>(false);
  auto measured = std::make_shared<std::shared_ptr<const MeasuredResults>>();
  run_busy(
      tr("Measuring"),
      [this, folder, is_complete, measured](const Worker::Job& job) {
        const auto tell_progress = [this, &job](const std::string& text) {
          job.deliver([this, text] { Q_EMIT progress_told(to_qt(text)); });
        };
        *is_complete = _controller->generate_results_v2(folder.string(), tell_progress, &job.cancel_event());
        // Thousands of regions take too long for the UI thread.
        if (*is_complete) *measured = measured_results(*_controller);
      },
      [this, is_complete, measured] {
        auto& state = _controller->state;
        if (*is_complete) {
          _results = *measured;
          state.message = from_qt(tr("Results written to %1").arg(to_qt(*state.last_saved_results_folder)));
        } else if (!state.error) {
          state.message = from_qt(tr("Cancelled; nothing was written"));
        }
        state.derive_phase();
        Q_EMIT results_ended(*is_complete);
      });
}

std::shared_ptr<const MeasuredResults> Workbench::results() const {
  return _controller->state.last_results ? _results : nullptr;
}

void Workbench::run_batch(const BatchOrder& order) {
  if (_is_busy) return;
  _memory.remember(Memory::List::output_folders, order.output_folder);
  auto summary = std::make_shared<controller::BatchSummary>();
  run_busy(
      tr("Batch: %n file(s)", nullptr, static_cast<int>(order.files.size())),
      [this, order, summary](const Worker::Job& job) {
        Controller::BatchRun run{.selected_files = order.files, .output_folder = order.output_folder};
        run.progress_callback = [this, &job](int number, int count, const std::string& file) {
          job.deliver([this, number, count, file] { Q_EMIT batch_file_begun(number, count, to_qt(file)); });
        };
        run.overlay_progress_cb = [this, &job](const std::string& text) {
          job.deliver([this, text] { Q_EMIT batch_step_told(to_qt(text)); });
        };
        run.batch_file_done = [this, &job](const controller::BatchFileEntry& entry) {
          job.deliver([this, entry] { Q_EMIT batch_file_done(entry); });
        };
        run.cancel_event = &job.cancel_event();
        *summary = _controller->run_batch_processing(run);
      },
      [this, summary] { Q_EMIT batch_ended(*summary); });
}

void Workbench::start_watcher(const controller::WatcherConfig& config) {
  if (_is_busy) return;
  _controller->configure_watcher(config);
  run_busy(
      tr("Starting the watcher"), [this](const Worker::Job&) { _controller->start_watcher(); }, [] {});
}

void Workbench::stop_watcher() {
  if (_is_busy) return;
  run_busy(
      tr("Stopping the watcher"), [this](const Worker::Job&) { _controller->stop_watcher(); }, [] {});
}

}  // namespace orvexa::ui

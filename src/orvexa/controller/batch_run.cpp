#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/memory.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/run_context.h"

namespace orvexa::controller {

using common::logger;
using common::path_text;
using model::failure_text;

namespace {

constexpr const char* no_workflow = "No workflow loaded - please load a workflow first";
constexpr const char* cancelled = "Batch processing cancelled by user";

std::string name_text(const Path& file) {
  return path_text(file.filename());
}

Path make_run_folder(const Path& output_folder) {
  Path folder = output_folder / ("batch_results_" + common::local_time_text(common::now(), "%Y%m%d%H%M%S"));
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    throw std::runtime_error(
        fmt::format("No folder for the run can be made in \"{}\": {}.", path_text(output_folder), error.message()));
  }
  return folder;
}

bool is_column(const std::string& metric) {
  const auto& suffixes = Controller::BATCH_AGGREGATION_EXCLUDED_METRIC_SUFFIXES;
  return std::none_of(suffixes.begin(), suffixes.end(),
                      [&](std::string_view suffix) { return metric.ends_with(suffix); });
}

/// Appends a row a region to `rows`; those before a region that fails stay.
void collect_rows(const std::string& filename, const model::CaptureSet& capture, const model::RunOutput& output,
                  std::vector<BatchRow>& rows) {
  std::string date;
  std::string time;
  if (capture.header) std::tie(date, time) = capture.header->get_capture_name_and_time();
  for (const auto& [region, metrics] : output.region_metrics) {
    if (!metrics.is_object()) throw std::runtime_error(fmt::format("The region {} has no metrics.", region));
    BatchRow row{{"Filename", filename}, {"ROI", region}, {"Date", date}, {"Time", time}};
    for (const auto& [metric, value] : metrics.items()) {
      if (is_column(metric)) row[metric] = value;
    }
    rows.push_back(std::move(row));
  }
}

common::OrderedMap<std::string> operation_errors(const model::ResultBundle& bundle) {
  common::OrderedMap<std::string> errors;
  for (const auto& [operation, result] : bundle.results) {
    if (result.error) errors[operation] = *result.error;
  }
  return errors;
}

std::string details_text(const common::OrderedMap<std::string>& errors) {
  std::vector<std::string> details;
  for (const auto& [operation, error] : errors) details.push_back(fmt::format("{}: {}", operation, error));
  return common::joined(details, ", ");
}

/// Hands the rows of a run to the table in the order of the selection, with those taken over from an earlier run in
/// their places.
class CombinedTable {
 public:
  CombinedTable(const BatchTakeover& earlier, const Path& run_folder) : _earlier(earlier), _table(run_folder) {
    for (const BatchJournalEntry& entry : earlier.entries) _taken_over.emplace(entry.file.native(), &entry);
    for (const Path& file : earlier.selection) _selected.insert(file.native());
  }

  void add(const Path& file, const std::vector<BatchRow>& rows) {
    if (_selected.contains(file.native())) add_taken_over_before(&file);
    for (const BatchRow& row : rows) _table.add(row);
  }

  const BatchTable& finished() {
    add_taken_over_before(nullptr);
    return _table;
  }

 private:
  /// @param file  null = all that are left
  void add_taken_over_before(const Path* file) {
    for (; _next < _earlier.selection.size(); ++_next) {
      const Path& selected = _earlier.selection[_next];
      if (file != nullptr && selected.native() == file->native()) return;
      const auto found = _taken_over.find(selected.native());
      if (found == _taken_over.end()) continue;
      for (const BatchRow& row : found->second->rows) _table.add(row);
    }
  }

  const BatchTakeover& _earlier;
  std::unordered_map<std::string, const BatchJournalEntry*> _taken_over;
  std::unordered_set<std::string> _selected;
  std::size_t _next = 0;  ///< in the selection
  BatchTable _table;
};

/// Puts the capture and the file that were current before back, however the run ends.
class SelectionGuard {
 public:
  explicit SelectionGuard(AppState& state)
      : _state(state), _capture(state.current_capture), _file(state.current_file) {}
  ~SelectionGuard() {
    _state.current_capture = std::move(_capture);
    _state.current_file = std::move(_file);
  }
  SelectionGuard(const SelectionGuard&) = delete;
  SelectionGuard& operator=(const SelectionGuard&) = delete;

 private:
  AppState& _state;
  std::shared_ptr<model::CaptureSet> _capture;
  std::optional<Path> _file;
};

/// However the run ends, no loader outlives it.
class LoadingAheadGuard {
 public:
  explicit LoadingAheadGuard(Controller& controller) : _controller(controller) {}
  ~LoadingAheadGuard() { _controller._stop_loading_ahead(); }
  LoadingAheadGuard(const LoadingAheadGuard&) = delete;
  LoadingAheadGuard& operator=(const LoadingAheadGuard&) = delete;

 private:
  Controller& _controller;
};

/// One run of a batch, step by step.
class BatchProcess {
 public:
  BatchProcess(Controller& controller, const Controller::BatchRun& run, std::shared_ptr<model::Workflow> workflow,
               Path run_folder)
      : _controller(controller),
        _state(controller.state),
        _run(run),
        _workflow(std::move(workflow)),
        _run_folder(std::move(run_folder)),
        _table(run.earlier, _run_folder) {
    _summary.total_files = static_cast<int>(run.selected_files.size());
    _summary.batch_folder = _run_folder.string();
    _summary.workflow_title = _workflow->title;
  }

  BatchSummary operator()() {
    log_workflow();
    begin_journal();
    process_files();
    common::give_back_free_memory();
    write_reports();
    conclude();
    return std::move(_summary);
  }

 private:
  void log_workflow() const {
    logger.info("Using workflow: " + _workflow->title);
    logger.info(fmt::format("Mask operations: {}", _workflow->mask_operations.size()));
    logger.info(fmt::format("Result operations: {}", _workflow->result_operations.size()));
    if (_workflow->result_operations.empty()) {
      logger.warning("No result operations found in workflow - will only apply masks");
    }
  }

  void process_files() {
    const SelectionGuard guard(_state);
    const LoadingAheadGuard loading_ahead(_controller);
    const std::size_t total = _run.selected_files.size();
    for (std::size_t i = 0; i < total; ++i) {
      if (_run.cancel_event != nullptr && _run.cancel_event->is_set()) {
        logger.info(fmt::format("{} at file {}/{}", cancelled, i + 1, total));
        _summary.errors.emplace_back(cancelled);
        return;
      }
      process_file(_run.selected_files[i], i + 1);
    }
  }

  void process_file(const Path& file, std::size_t number) {
    const std::string name = name_text(file);
    const std::size_t total = _run.selected_files.size();
    if (_run.progress_callback) _run.progress_callback(static_cast<int>(number), static_cast<int>(total), name);
    logger.info(fmt::format("Processing file {}/{}: {}", number, total, name));
    _state.message = fmt::format("Batch processing: {} ({}/{})", name, number, total);
    BatchJournalEntry entry{.file = file};
    std::vector<model::MaskNote> mask_notes;
    try {
      const bool is_loaded = load(file);
      if (number < total) _controller._load_ahead(_run.selected_files[number], _run.cancel_event);
      if (is_loaded) {
        mask_notes = measure(name, entry);
      } else {
        entry.error = "Failed to load capture from: " + path_text(file);
        entry.reason = _state.error.value_or("");
        logger.error(entry.error);
      }
    } catch (const model::CancelledError&) {
      entry.is_interrupted = true;
      take_failure(name, entry);
    } catch (...) {
      take_failure(name, entry);
    }
    record(entry, std::move(mask_notes));
  }

  /// Inside a handler.
  static void take_failure(const std::string& name, BatchJournalEntry& entry) {
    const std::string reason = failure_text();
    entry.error = fmt::format("Error processing {}: {}", name, reason);
    logger.error(entry.error);
    logger.exception(reason);
  }

  /// Whether there is a capture now.
  bool load(const Path& file) {
    _controller.load_capture_from_file(file);
    return _state.current_capture != nullptr;
  }

  /// @return what the mask steps remarked.
  std::vector<model::MaskNote> measure(const std::string& name, BatchJournalEntry& entry) {
    const std::shared_ptr<model::CaptureSet> capture = _state.current_capture;
    entry.content_sha256 = content_sha256(capture->sources);
    for (const model::SourceFile& source : capture->sources) entry.sources.push_back(source.path);
    model::RunOutput output = _controller.executor->run_and_save({.capture = capture,
                                                                  .wf = _workflow,
                                                                  .output_base_dir = _run_folder,
                                                                  .capture_name = capture->name,
                                                                  .progress_cb = _run.overlay_progress_cb,
                                                                  .cancel_event = _run.cancel_event});
    logger.info("Successfully processed: " + name);
    entry.operation_errors = operation_errors(output.bundle);
    if (!entry.operation_errors.empty()) {
      logger.warning(fmt::format("Some operations failed for {}: {}", name, details_text(entry.operation_errors)));
    }
    entry.output_folder = output.results_folder;
    try {
      collect_rows(name, *capture, output, entry.rows);
    } catch (...) {
      const std::string line = fmt::format("Could not collect metrics row for {}: {}", name, failure_text());
      logger.warning(line);
      add_unwritten(line);
    }
    entry.is_done = true;
    return std::move(output.mask_notes);
  }

  /// Puts what became of a file into the summary, the table and the journal, and tells who wants to know.
  void record(const BatchJournalEntry& entry, std::vector<model::MaskNote> mask_notes) {
    std::optional<BatchFileEntry> told;
    if (entry.is_done) {
      told = _summary.successful_files.emplace_back(BatchFileSuccess{.file = entry.file.string(),
                                                                     .output_folder = entry.output_folder.string(),
                                                                     .operation_errors = entry.operation_errors,
                                                                     .mask_notes = std::move(mask_notes)});
    } else {
      told = _summary.failed_files.emplace_back(
          BatchFileFailure{.file = entry.file.string(), .error = entry.error, .is_interrupted = entry.is_interrupted});
    }
    _table.add(entry.file, entry.rows);
    add_to_journal(entry);
    if (!_run.batch_file_done) return;
    try {
      _run.batch_file_done(*told);
    } catch (...) {
      logger.error(fmt::format("Error telling that {} is finished: {}", name_text(entry.file), failure_text()));
    }
  }

  /// Without a journal the batch runs all the same; it only cannot be resumed.
  void begin_journal() {
    try {
      _journal = std::make_unique<BatchJournalWriter>(
          BatchJournal{.run_folder = _run_folder,
                       .workflow_title = _workflow->title,
                       .workflow_sha256 = workflow_sha256(*_workflow),
                       .started = common::local_time_text(common::now(), "%Y-%m-%dT%H:%M:%S%z"),
                       .files = _run.earlier.selection.empty() ? _run.selected_files : _run.earlier.selection,
                       .entries = {}});
    } catch (...) {
      say_journal_failed();
    }
    for (const BatchJournalEntry& entry : _run.earlier.entries) add_to_journal(entry);
  }

  void add_to_journal(const BatchJournalEntry& entry) {
    if (!_journal) return;
    try {
      _journal->add(entry);
    } catch (...) {
      say_journal_failed();
    }
  }

  /// Inside a handler.
  void say_journal_failed() {
    const std::string line = "Failed to write batch journal: " + failure_text();
    logger.error(line);
    add_unwritten(line);
  }

  /// A full disk says the same after every file.
  void add_unwritten(const std::optional<std::string>& line) {
    std::vector<std::string>& lines = _summary.unwritten;
    if (line && std::find(lines.begin(), lines.end(), *line) == lines.end()) lines.push_back(*line);
  }

  void write_reports() {
    keep_reports_of_another_run(_run_folder);
    add_unwritten(write_batch_aggregated_results(_table.finished(), _run_folder));
    add_unwritten(write_batch_summary(_summary, _run_folder));
  }

  void conclude() {
    const std::size_t successful = _summary.successful_files.size();
    const std::size_t failed = _summary.failed_files.size();
    const int total = _summary.total_files;
    logger.info("=== BATCH PROCESSING COMPLETED ===");
    logger.info(fmt::format("Successful: {}/{}", successful, total));
    logger.info(fmt::format("Failed: {}/{}", failed, total));
    logger.info("Batch results saved to: " + path_text(_run_folder));
    if (successful == 0) {
      _state.message = fmt::format("Batch failed: {}/{} files failed", failed, total);
      _state.error = "All batch processing files failed - check logs for details";
    } else {
      _state.message = fmt::format("Batch completed: {}/{} successful", successful, total);
      _state.last_saved_results_folder = _run_folder.string();
      _state.error.reset();
    }
  }

  Controller& _controller;
  AppState& _state;
  const Controller::BatchRun& _run;
  std::shared_ptr<model::Workflow> _workflow;
  Path _run_folder;
  BatchSummary _summary;
  CombinedTable _table;
  std::unique_ptr<BatchJournalWriter> _journal;
};

}  // namespace

BatchSummary Controller::run_batch_processing(const BatchRun& run) {
  logger.info("=== STARTING BATCH PROCESSING ===");
  logger.info(fmt::format("Files to process: {}", run.selected_files.size()));
  logger.info("Output folder: " + path_text(run.output_folder));
  // Before anything else is looked at: a run that is refused leaves an empty folder behind.
  const Path run_folder = make_run_folder(run.output_folder);
  logger.info("Created batch results folder: " + path_text(run_folder));
  if (!state.current_workflow) {
    logger.error(no_workflow);
    state.error = no_workflow;
    BatchSummary refused;
    refused.total_files = static_cast<int>(run.selected_files.size());
    refused.errors.emplace_back(no_workflow);
    return refused;
  }
  return BatchProcess(*this, run, state.current_workflow, run_folder)();
}

}  // namespace orvexa::controller

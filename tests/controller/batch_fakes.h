#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "controller/fakes.h"
#include "orvexa/common/clock.h"
#include "orvexa/common/json_writer.h"
#include "orvexa/common/serialisation.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

using common::Path;

/// Log lines of info and above, and what a test notes among them.
class Protocol {
 public:
  void note(const std::string& text) { _lines.push_back(text); }
  [[nodiscard]] const std::vector<std::string>& lines() const { return _lines; }

 private:
  std::vector<std::string> _lines;
  common::LogObserver _observer{[this](const common::LogRecord& record) {
    static const std::map<common::LogLevel, std::string> names{{common::LogLevel::info, "info: "},
                                                               {common::LogLevel::warning, "warning: "},
                                                               {common::LogLevel::error, "error: "}};
    const auto name = names.find(record.level);
    if (name != names.end()) _lines.push_back((record.trace.empty() ? name->second : "exception: ") + record.text);
  }};
};

/// Runs nothing; makes the results folder.
class BatchExecutor final : public model::Executor {
 public:
  model::RunOutput run_and_save(const Run& run) override {
    if (keeps_runs) runs.push_back(run);
    return on_run(run);
  }
  std::vector<Run> runs;
  bool keeps_runs = true;
  std::function<model::RunOutput(const Run&)> on_run;
};

/// A batch on 2024-01-31 at 15:45:02 whose header files load as captures named after their stems.
class BatchRunTest : public testing::Test {
 protected:
  BatchRunTest() {
    controller.state.processing_mode = "batch";
    controller.state.current_workflow = workflow;
    workflow->title = "Leaves";
    executor.on_run = [this](const model::Executor::Run& run) { return output_of(run); };
    controller.capture_loader = [this](const Path& file) {
      const auto known = captures.find(file.filename().string());
      if (known == captures.end()) return small_capture(file.stem().string());
      if (!known->second) throw std::runtime_error(file.filename().string() + ": it is torn.");
      return known->second;
    };
  }

  controller::BatchSummary run(controller::Controller::BatchRun options, const std::vector<Path>& files) {
    options.selected_files = files;
    options.output_folder = out;
    return controller.run_batch_processing(options);
  }
  void loads_nothing(const std::string& name) { captures[name] = nullptr; }

  /// One region with the area 6.
  static model::RunOutput output_of(const model::Executor::Run& run) {
    model::RunOutput output;
    output.results_folder = run.output_base_dir / run.capture_name;
    std::filesystem::create_directories(output.results_folder);
    output.region_metrics["ROI_1"] = {{"area", 6}};
    return output;
  }
  static std::string quoted(const Path& path) { return common::json_quoted(path.string()); }

  static common::TimePoint local_time() {
    std::tm parts{};
    parts.tm_year = 124;
    parts.tm_mon = 0;
    parts.tm_mday = 31;
    parts.tm_hour = 15;
    parts.tm_min = 45;
    parts.tm_sec = 2;
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
  }

  TemporaryFolder folder;
  Path out = folder / "out";
  Path run_folder = out / "batch_results_20240131154502";
  common::ClockOverride clock{local_time};
  std::unique_ptr<ScriptedState> made_state = std::make_unique<ScriptedState>();
  ScriptedState& state = *made_state;
  Probe controller{std::move(made_state)};
  BatchExecutor& executor = *[this] {
    auto made = std::make_unique<BatchExecutor>();
    BatchExecutor* made_pointer = made.get();
    controller.executor = std::move(made);
    return made_pointer;
  }();
  std::shared_ptr<model::Workflow> workflow = workflow_of({"erode"}, {"area", "perimeter"});
  std::map<std::string, std::shared_ptr<model::CaptureSet>> captures;  ///< by file name; null = it cannot be loaded
  Protocol log;
};

}  // namespace orvexa::test

#include "orvexa/controller/batch_reports.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::controller {

using common::logger;
using common::Path;
using common::path_text;
using model::failure_text;

namespace {

constexpr const char* aggregated_name = "batch_aggregated_results.txt";
constexpr const char* summary_name = "batch_summary.txt";

/// The name at the end of a path, also of one that ends with a separator.
std::string last_component(const std::string& path) {
  const Path whole(path);
  return path_text(whole.has_filename() ? whole.filename() : whole.parent_path().filename());
}

void keep_report_of_another_run(const Path& report) {
  std::error_code ignored;
  if (!std::filesystem::exists(report, ignored)) return;
  for (int number = 1;; ++number) {
    const Path kept =
        report.parent_path() / fmt::format("{}_{}{}", report.stem().string(), number, report.extension().string());
    if (!model::rename_to_free_name(report, kept)) continue;
    logger.warning(
        fmt::format("Another run wrote \"{}\"; it is kept as \"{}\"", path_text(report), path_text(kept.filename())));
    return;
  }
}

}  // namespace

BatchTable::BatchTable() {
  for (const char* name : {"Filename", "ROI", "Date", "Time"}) _columns.insert({name, _columns.size()});
}

void BatchTable::add(const BatchRow& row) {
  for (const auto& [name, value] : row) _columns.insert({name, _columns.size()});
  Line line{.text = {}, .fields = _columns.size()};
  for (const auto& [name, position] : _columns) {
    if (position > 0) line.text += '\t';
    const auto found = row.find(name);
    if (found != row.end()) line.text += common::scalar_text(found->second);
  }
  line.text.shrink_to_fit();
  _lines.push_back(std::move(line));
}

std::string BatchTable::text() const {
  std::string text;
  for (const auto& [name, position] : _columns) {
    if (position > 0) text += '\t';
    text += name;
  }
  text += '\n';
  for (const Line& line : _lines) {
    text += line.text;
    text.append(_columns.size() - line.fields, '\t');
    text += '\n';
  }
  return text;
}

std::string batch_summary_text(const BatchSummary& summary, common::TimePoint generated) {
  std::string text = "Orvexa Batch Processing Summary\n===================================\n";
  text += "Generated: " + common::local_time_text(generated, "%Y-%m-%d %H:%M:%S") + '\n';
  text += "Workflow: " + summary.workflow_title.value_or("") + '\n';
  text += fmt::format("Total files: {}\nSuccessful: {}\nFailed: {}\n", summary.total_files,
                      summary.successful_files.size(), summary.failed_files.size());
  text += "Batch folder: " + summary.batch_folder.value_or("") + "\n\n";
  if (!summary.successful_files.empty()) text += "Successful files:\n";
  for (const BatchFileSuccess& entry : summary.successful_files) {
    text += fmt::format("{} -> {}\n", last_component(entry.file), last_component(entry.output_folder));
  }
  if (!summary.failed_files.empty()) text += "\nFailed files:\n";
  for (const BatchFileFailure& entry : summary.failed_files) {
    text += fmt::format("{} - {}\n", last_component(entry.file), entry.error);
  }
  return common::to_valid_utf8(text);
}

void write_batch_aggregated_results(const BatchTable& table, const Path& run_folder) {
  if (table.is_empty()) return;
  try {
    constexpr const char* byte_order_mark = "\xEF\xBB\xBF";
    const Path file = run_folder / aggregated_name;
    common::write_file_atomically(file, byte_order_mark + common::to_valid_utf8(table.text()));
    logger.info("Batch aggregated results saved to: " + path_text(file));
  } catch (...) {
    logger.error("Failed to write batch aggregated results CSV: " + failure_text());
  }
}

void write_batch_summary(const BatchSummary& summary, const Path& run_folder) {
  try {
    const Path file = run_folder / summary_name;
    common::write_file_atomically(file, batch_summary_text(summary, common::now()));
    logger.info("Batch summary saved to: " + path_text(file));
  } catch (...) {
    logger.error("Failed to save batch summary: " + failure_text());
  }
}

void keep_reports_of_another_run(const Path& run_folder) {
  for (const char* name : {aggregated_name, summary_name}) {
    try {
      keep_report_of_another_run(run_folder / name);
    } catch (...) {
      logger.error(fmt::format("The older report \"{}\" cannot be kept: {}", name, failure_text()));
    }
  }
}

}  // namespace orvexa::controller

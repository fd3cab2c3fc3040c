#include "orvexa/controller/batch_reports.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <span>
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

BatchTable::BatchTable(const Path& folder) {
  for (const char* name : {"Filename", "ROI", "Date", "Time"}) _columns.insert({name, _columns.size()});
  if (folder.empty()) return;
  try {
    _on_disk = std::make_unique<common::ScratchFile>(folder);
  } catch (...) {
    logger.warning("The rows of the batch wait in memory: " + failure_text());
  }
}

void BatchTable::add(const BatchRow& row) {
  for (const auto& [name, value] : row) _columns.insert({name, _columns.size()});
  Line line{.fields = _columns.size(), .text = {}};
  for (const auto& [name, position] : _columns) {
    if (position > 0) line.text += '\t';
    const auto found = row.find(name);
    if (found != row.end()) line.text += common::scalar_text(found->second);
  }
  ++_row_count;
  // In this order: lines that wait in memory come after all that wait on the disk.
  if (_on_disk && _lines.empty()) {
    try {
      return wait_on_disk(line);
    } catch (...) {
      logger.warning("The rows of the batch wait in memory from now on: " + failure_text());
    }
  }
  line.text.shrink_to_fit();
  _lines.push_back(std::move(line));
}

/// Number of fields, number of bytes, text. One write, so that a line is there whole or not at all.
void BatchTable::wait_on_disk(const Line& line) {
  const std::array<std::uint64_t, 2> sizes{line.fields, line.text.size()};
  const auto head = std::as_bytes(std::span(sizes));
  common::Bytes record(head.begin(), head.end());
  const auto text = common::as_byte_span(line.text);
  record.insert(record.end(), text.begin(), text.end());
  _on_disk->append(record);
}

BatchTable::Line BatchTable::line_on_disk(std::uintmax_t& offset) const {
  std::array<std::uint64_t, 2> sizes{};
  _on_disk->read(offset, std::as_writable_bytes(std::span(sizes)));
  offset += sizeof(sizes);
  Line line{.fields = sizes[0], .text = std::string(sizes[1], '\0')};
  _on_disk->read(offset, std::as_writable_bytes(std::span(line.text)));
  offset += line.text.size();
  return line;
}

void BatchTable::write(const std::function<void(std::string_view)>& out) const {
  std::string text;
  for (const auto& [name, position] : _columns) {
    if (position > 0) text += '\t';
    text += name;
  }
  text += '\n';
  const auto add_line = [&](const Line& line) {
    text += line.text;
    text.append(_columns.size() - line.fields, '\t');
    text += '\n';
    constexpr std::size_t enough = std::size_t{1} << 16;
    if (text.size() < enough) return;
    out(text);
    text.clear();
  };
  if (_on_disk) {
    for (std::uintmax_t offset = 0; offset < _on_disk->size();) add_line(line_on_disk(offset));
  }
  for (const Line& line : _lines) add_line(line);
  out(text);
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

std::optional<std::string> write_batch_aggregated_results(const BatchTable& table, const Path& run_folder) {
  if (table.is_empty()) return std::nullopt;
  try {
    constexpr const char* byte_order_mark = "\xEF\xBB\xBF";
    const Path file = run_folder / aggregated_name;
    common::AtomicFile report(file);
    report.write(byte_order_mark);
    table.write([&](std::string_view piece) { report.write(common::to_valid_utf8(piece)); });
    report.commit();
    logger.info("Batch aggregated results saved to: " + path_text(file));
    return std::nullopt;
  } catch (...) {
    std::string line = "Failed to write batch aggregated results CSV: " + failure_text();
    logger.error(line);
    return line;
  }
}

std::optional<std::string> write_batch_summary(const BatchSummary& summary, const Path& run_folder) {
  try {
    const Path file = run_folder / summary_name;
    common::write_file_atomically(file, batch_summary_text(summary, common::now()));
    logger.info("Batch summary saved to: " + path_text(file));
    return std::nullopt;
  } catch (...) {
    std::string line = "Failed to save batch summary: " + failure_text();
    logger.error(line);
    return line;
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

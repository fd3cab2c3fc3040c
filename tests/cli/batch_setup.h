#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/plot.h"
#include "cli/process.h"

namespace orvexa::test {

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

/// The rows of a run folder's table, by column name.
inline std::vector<std::map<std::string, std::string>> table_of(const std::filesystem::path& run_folder) {
  std::string text = read_all(run_folder / "batch_aggregated_results.txt");
  if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
  const std::vector<std::string> lines = split(text, '\n');
  std::vector<std::map<std::string, std::string>> rows;
  if (lines.empty()) return rows;
  const std::vector<std::string> columns = split(lines.front(), '\t');
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> fields = split(lines[i] + '\t', '\t');
    std::map<std::string, std::string> row;
    for (std::size_t k = 0; k < columns.size(); ++k) row[columns[k]] = k < fields.size() ? fields[k] : "";
    rows.push_back(row);
  }
  return rows;
}

inline std::vector<std::string> column_of(const std::filesystem::path& run_folder, const std::string& column) {
  std::vector<std::string> fields;
  for (const auto& row : table_of(run_folder)) fields.push_back(row.at(column));
  return fields;
}

/// Names of what is in a folder without the hidden ones; empty when there is no such folder.
inline std::set<std::string> visible_in(const std::filesystem::path& folder) {
  std::set<std::string> names;
  if (!std::filesystem::is_directory(folder)) return names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(".")) names.insert(name);
  }
  return names;
}

/// The file names in a list of a summary's entries.
inline std::vector<std::string> names_in(const common::Value& entries) {
  std::vector<std::string> names;
  for (const common::Value& entry : entries) {
    names.push_back(std::filesystem::path(entry.at("file").get<std::string>()).filename());
  }
  return names;
}

/// A folder of plots plot_0001, plot_0002, ...: of the 40 columns of the k-th the first k are leaf, so with 30 rows its
/// area is 30 k pixels.
struct BatchSetup {
  TemporaryFolder folder;
  std::filesystem::path captures = folder / "captures";
  std::filesystem::path workflow = write_leaf_workflow(folder);
  std::filesystem::path output = folder / "out put ü";

  explicit BatchSetup(int count = 3) {
    for (int number = 1; number <= count; ++number) write_numbered_plot(number);
  }

  std::filesystem::path write_numbered_plot(int number) const {
    return write_plot(captures, fmt::format("plot_{:04}", number), 30, 40, number);
  }

  [[nodiscard]] std::vector<std::string> words(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> all{test::program(), "batch", workflow.string(), captures.string(), "-o", output.string()};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  Outcome operator()(const std::vector<std::string>& more = {}) const { return Process(words(more)).wait(); }

  /// The one run folder in `output`, under another name: two runs of one second would share their folder.
  [[nodiscard]] std::filesystem::path set_aside_run_folder(
      const std::string& name = "batch_results_20240131154502") const {
    const auto there = run_folder();
    std::filesystem::rename(there, output / name);
    return output / name;
  }
  /// The newest of them by name, apart from those that were set aside.
  [[nodiscard]] std::filesystem::path run_folder() const {
    const std::set<std::string> names = visible_in(output);
    if (names.empty()) throw std::runtime_error("there is no run folder");
    return output / *names.rbegin();
  }
};

}  // namespace orvexa::test

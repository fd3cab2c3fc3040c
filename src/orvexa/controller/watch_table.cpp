#include "orvexa/controller/watch_table.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace orvexa::controller {

using common::Path;

namespace {

constexpr const char* table_name = "watch_table.tsv";
constexpr const char* key_column = "Key";
constexpr std::uintmax_t max_metrics_bytes = std::uintmax_t{1} << 30;

std::vector<std::string> split(std::string_view line, char separator) {
  std::vector<std::string> fields;
  for (;;) {
    const std::size_t end = line.find(separator);
    fields.emplace_back(line.substr(0, end));
    if (end == std::string_view::npos) return fields;
    line.remove_prefix(end + 1);
  }
}

std::string header_text(const std::vector<std::string>& columns) {
  std::string text = key_column;
  for (const std::string& column : columns) text += '\t' + column;
  return text + '\n';
}

}  // namespace

MetricsRows read_metrics_rows(const Path& results_folder) {
  const Path file = results_folder / "metrics.tsv";
  std::error_code ignored;
  MetricsRows metrics;
  if (!std::filesystem::exists(file, ignored)) return metrics;
  std::string text = common::read_text_file(file, max_metrics_bytes);
  if (text.ends_with('\n')) text.pop_back();
  const std::vector<std::string> lines = split(text, '\n');
  metrics.columns = split(lines.front(), '\t');
  for (std::size_t i = 1; i < lines.size(); ++i) {
    metrics.rows.push_back(split(lines[i], '\t'));
    metrics.rows.back().resize(metrics.columns.size());
  }
  return metrics;
}

WatchTable::WatchTable(Path output_dir, const WatchJournal& journal)
    : _output_dir(std::move(output_dir)), _journal(journal) {
  if (is_whole()) {
    _file.emplace(_output_dir / table_name);
  } else {
    rebuild();
  }
}

bool WatchTable::is_whole() {
  std::ifstream file(_output_dir / table_name, std::ios::binary);
  std::string line;
  if (!std::getline(file, line) || file.eof()) return false;
  _columns = split(line, '\t');
  if (_columns.front() != key_column) return false;
  const auto tabs = static_cast<std::ptrdiff_t>(_columns.size()) - 1;
  _columns.erase(_columns.begin());
  std::unordered_map<std::string, std::size_t> rows;
  while (std::getline(file, line)) {
    if (file.eof() || std::count(line.begin(), line.end(), '\t') != tabs) return false;
    ++rows[line.substr(0, line.find('\t'))];
  }
  std::size_t keys = 0;
  for (const auto& [key, entry] : _journal.entries()) {
    if (!entry.is_done || entry.rows == 0) continue;
    const auto found = rows.find(key);
    if (found == rows.end() || found->second != entry.rows) return false;
    ++keys;
  }
  return keys == rows.size();
}

void WatchTable::rebuild() {
  _file.reset();
  common::OrderedMap<bool> columns;
  for (const char* column : {"Capture", "Region", "Date", "Time"}) columns[column] = true;
  _gone = 0;
  std::unordered_map<std::string, const JournalEntry*> owners;
  for (const auto& [key, entry] : _journal.entries()) {
    if (!entry.is_done || entry.rows == 0) continue;
    const MetricsRows metrics = read_metrics_rows(_output_dir / entry.folder);
    for (const std::string& column : metrics.columns) columns[column] = true;
    // Where somebody removed a results folder, a later run may have taken its name.
    const bool is_taken_over = !owners.insert_or_assign(entry.folder, &entry).second;
    if (metrics.rows.empty() || is_taken_over) ++_gone;
  }
  _columns.clear();
  for (const auto& [column, is_there] : columns) _columns.push_back(column);
  // Read a second time rather than kept: thousands of captures may be more than memory should hold.
  common::AtomicFile file(_output_dir / table_name);
  file.write(header_text(_columns));
  for (const auto& [key, entry] : _journal.entries()) {
    const auto owner = owners.find(entry.folder);
    if (owner == owners.end() || owner->second != &entry) continue;
    const MetricsRows metrics = read_metrics_rows(_output_dir / entry.folder);
    std::string text;
    for (std::size_t row = 0; row < metrics.rows.size(); ++row) text += row_text(key, metrics, row);
    file.write(text);
  }
  file.commit();
  _file.emplace(_output_dir / table_name);
}

std::string WatchTable::row_text(const std::string& key, const MetricsRows& metrics, std::size_t row) const {
  std::string text = key;
  for (const std::string& column : _columns) {
    const auto found = std::find(metrics.columns.begin(), metrics.columns.end(), column);
    text += '\t';
    if (found != metrics.columns.end()) {
      text += metrics.rows[row][static_cast<std::size_t>(found - metrics.columns.begin())];
    }
  }
  return text + '\n';
}

void WatchTable::add(const JournalEntry& entry, const MetricsRows& metrics) {
  const bool has_all_columns = std::all_of(
      metrics.columns.begin(), metrics.columns.end(),
      [&](const std::string& column) { return std::find(_columns.begin(), _columns.end(), column) != _columns.end(); });
  if (!_file || !has_all_columns) {
    rebuild();
    return;
  }
  std::string text;
  for (std::size_t row = 0; row < metrics.rows.size(); ++row) text += row_text(entry.identity.key, metrics, row);
  try {
    _file->append(text);
  } catch (...) {
    _file.reset();  // made anew at the next capture
    throw;
  }
}

}  // namespace orvexa::controller

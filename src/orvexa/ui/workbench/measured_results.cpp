#include "orvexa/ui/workbench/measured_results.h"

#include <QCoreApplication>
#include <algorithm>
#include <string_view>

#include "orvexa/common/text.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

using common::Value;

namespace {

QString tr(const char* text) {
  return QCoreApplication::translate("MeasuredResults", text);
}

/// Lists have no place in a table with one field a metric; where a list is undefined its name tells that it is one.
bool is_list(const std::string& metric, const model::OperationResult& result) {
  const auto& suffixes = controller::Controller::BATCH_AGGREGATION_EXCLUDED_METRIC_SUFFIXES;
  if (std::ranges::any_of(suffixes, [&](std::string_view suffix) { return metric.ends_with(suffix); })) return true;
  const auto value = result.metrics.find(metric);
  return value != result.metrics.end() && value->is_structured();
}

QString result_operation_name(const controller::Controller& controller, const std::string& key) {
  const model::ResultOperationInfo* info = controller.get_result_operation_info(key);
  return to_qt(info != nullptr ? info->display_name : key);
}

QString mask_operation_name(const controller::Controller& controller, const std::string& key) {
  const auto infos = controller.get_available_mask_operations();
  const auto info = infos.find(key);
  return to_qt(info != infos.end() ? info->second->display_name : key);
}

/// On one line and within its field.
std::string field(std::string text) {
  std::ranges::replace_if(
      text, [](char letter) { return letter == '\t' || letter == '\n' || letter == '\r'; }, ' ');
  return text;
}

}  // namespace

/// Puts the maps of names and values where they belong.
struct MetricsTable::Filler {
  MetricsTable& table;
  std::unordered_map<std::string, std::size_t> reason_numbers = {};
  /// Of the operation that is filled in.
  std::unordered_map<std::string, std::size_t> columns = {};

  std::size_t& reason_of(std::size_t row, std::size_t column) const {
    return table._reason_of_cell[row * table._columns.size() + column];
  }
  void fill(std::size_t row, const Value& metrics, const Value& reasons) {
    if (metrics.is_object()) {
      for (const auto& [metric, value] : metrics.items()) {
        const auto column = columns.find(metric);
        if (column != columns.end()) table._cells[row * table._columns.size() + column->second] = value;
      }
    }
    if (!reasons.is_object()) return;
    for (const auto& [metric, reason] : reasons.items()) {
      const auto column = columns.find(metric);
      if (column == columns.end()) continue;
      const std::string text = common::scalar_text(reason);
      const auto [number, is_new] = reason_numbers.try_emplace(text, table._reasons.size());
      if (is_new) table._reasons.push_back(text);
      reason_of(row, column->second) = number->second;
    }
  }
};

MetricsTable::MetricsTable(const model::ResultMap& results) {
  std::unordered_map<std::string, std::size_t> taken;  // names of columns
  std::unordered_map<std::string, std::size_t> rows;
  std::vector<std::unordered_map<std::string, std::size_t>> columns_of_operations;
  for (const auto& [operation, result] : results) {
    auto& columns = columns_of_operations.emplace_back();
    const auto add = [&](const Value& names) {
      if (!names.is_object()) return;
      for (const auto& [metric, unused] : names.items()) {
        if (columns.contains(metric) || is_list(metric, result)) continue;
        columns[metric] = _columns.size();
        const std::string name = taken.contains(metric) ? operation + "." + metric : metric;
        taken[name] = _columns.size();
        const auto unit = result.units.find(metric);
        _columns.push_back({.operation = operation,
                            .metric = name,
                            .unit = unit != result.units.end() ? common::scalar_text(*unit) : std::string()});
      }
    };
    // Units name what an operation can give, wherever it is undefined.
    for (const Value* names : {&result.units, &result.metrics, &result.reasons}) add(*names);
    for (const auto& [region, found] : result.regions) {
      if (rows.try_emplace(region, _regions.size() + 1).second) _regions.push_back(region);
      add(found.metrics);
      add(found.reasons);
    }
  }
  _cells.resize(row_count() * _columns.size());
  Filler filler{.table = *this};
  std::size_t number = 0;
  for (const auto& [operation, result] : results) {
    filler.columns = std::move(columns_of_operations[number++]);
    filler.fill(0, result.metrics, result.reasons);
    for (const auto& [region, found] : result.regions) filler.fill(rows.at(region), found.metrics, found.reasons);
  }
}

const std::string& MetricsTable::reason(std::size_t row, std::size_t column) const {
  static const std::string none;
  const auto found = _reason_of_cell.find(row * _columns.size() + column);
  return found != _reason_of_cell.end() ? _reasons[found->second] : none;
}

std::shared_ptr<const MeasuredResults> measured_results(const controller::Controller& controller) {
  const controller::AppState& state = controller.state;
  auto measured = std::make_shared<MeasuredResults>();
  if (const auto& capture = state.current_capture) {
    measured->capture_name = capture->name;
    if (capture->header) {
      measured->date = capture->header->date;
      measured->time = capture->header->time;
    }
  }
  if (state.current_workflow) measured->workflow = std::make_shared<const model::Workflow>(*state.current_workflow);
  measured->folder = state.last_saved_results_folder.value_or("");
  measured->table = MetricsTable(*state.last_results);
  for (const auto& [operation, result] : *state.last_results) {
    const QString who = result_operation_name(controller, operation);
    for (const auto& [name, image] : result.images) {
      measured->pictures.push_back(
          {.operation = operation, .title = tr("%1: %2").arg(who, to_qt(name)), .name = name, .image = image});
    }
    for (const auto& [name, table] : result.tables) {
      measured->tables.push_back({.title = tr("%1: %2").arg(who, to_qt(name)), .table = table});
    }
    if (result.error) measured->remarks.push_back({.is_failure = true, .who = who, .text = to_qt(*result.error)});
  }
  for (const model::MaskNote& note : state.last_mask_notes) {
    measured->remarks.push_back(
        {.who = tr("Step %1, %2").arg(note.step + 1).arg(mask_operation_name(controller, note.op)),
         .text = to_qt(note.text)});
  }
  return measured;
}

std::string metrics_text(const MeasuredResults& results, std::span<const std::size_t> rows,
                         std::span<const std::size_t> columns) {
  std::string text = "Capture\tRegion\tDate\tTime";
  for (const std::size_t column : columns) {
    const MetricsTable::Column& head = results.table.columns()[column];
    text += '\t' + field(head.unit.empty() ? head.metric : head.metric + " (" + head.unit + ")");
  }
  text += '\n';
  for (const std::size_t row : rows) {
    const std::string name = row == 0 ? from_qt(whole_mask_text()) : results.table.region(row);
    text += field(results.capture_name) + '\t' + field(name) + '\t' + field(results.date) + '\t' + field(results.time);
    for (const std::size_t column : columns) {
      const Value& value = results.table.value(row, column);
      text += '\t';
      if (!value.is_null()) text += field(common::scalar_text(value));
    }
    text += '\n';
  }
  return text;
}

QString whole_mask_text() {
  return tr("Whole mask");
}

}  // namespace orvexa::ui

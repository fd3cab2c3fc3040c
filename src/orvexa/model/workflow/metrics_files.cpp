#include "orvexa/model/workflow/metrics_files.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include "orvexa/common/text.h"

namespace orvexa::model {

using common::OrderedMap;
using common::Value;

namespace {

bool is_finite(const Value& value) {
  if (value.is_number_float()) return std::isfinite(value.get<double>());
  if (value.is_structured()) {
    for (const Value& part : value) {
      if (!is_finite(part)) return false;
    }
  }
  return true;
}

void drop_from(Value& metrics, Value& reasons) {
  if (!metrics.is_object()) return;
  Value kept = Value::object();
  for (auto& [name, value] : metrics.items()) {
    if (is_finite(value)) {
      kept[name] = std::move(value);
    } else if (!reasons.is_object() || !reasons.contains(name)) {
      reasons[name] = "The value is not a finite number.";
    }
  }
  metrics = std::move(kept);
}

std::string field(std::string text) {
  for (char& character : text) {
    if (character == '\t' || character == '\n' || character == '\r') character = ' ';
  }
  return text;
}

std::string field(const Value& value) {
  return value.is_null() ? std::string() : field(common::scalar_text(value));
}

/// The name of a metric whose own name another operation has already.
std::string name_behind(const std::string& operation, const std::string& metric) {
  return fmt::format("{}.{}", operation, metric);
}

/// Adds the entries of one operation; a name that is taken gets the operation's key before it.
void merge(Value& into, const Value& from, const std::string& operation) {
  if (!from.is_object()) return;
  for (const auto& [name, value] : from.items()) {
    into[into.contains(name) ? name_behind(operation, name) : name] = value;
  }
}

/// Lists have no place in a table with one field a metric; where a list is undefined its name tells that it is one.
bool is_name_of_list(const std::string& metric) {
  return metric.ends_with(".histogram.bins");
}

/// The names of all scalar metrics of the regions, those without any value too, so that tables of several captures have
/// the same columns: operation by operation, each in the order in which it gives its units.
std::vector<std::string> columns_of(const MetricsReport& report) {
  OrderedMap<bool> is_listed;
  for (const auto& [name, region] : report.regions) {
    for (const auto& [metric, value] : region.metrics.items()) {
      if (!value.is_structured()) is_listed[metric] = false;
    }
    for (const auto& [metric, reason] : region.reasons.items()) {
      if (!is_name_of_list(metric)) is_listed[metric] = false;
    }
  }
  std::vector<std::string> columns;
  const auto list = [&](const std::string& metric) {
    auto found = is_listed.find(metric);
    if (found == is_listed.end() || found->second) return;
    found.value() = true;
    columns.push_back(metric);
  };
  for (const auto& [operation, result] : report.bundle.results) {
    for (const Value* names : {&result.units, &result.metrics, &result.reasons}) {
      for (const auto& [metric, value] : names->items()) {
        list(metric);
        list(name_behind(operation, metric));
      }
    }
  }
  for (const auto& [metric, unused] : is_listed) list(metric);
  return columns;
}

Value object_or_empty(const Value& value) {
  return value.is_object() ? value : Value::object();
}

}  // namespace

void drop_values_that_are_no_numbers(OperationResult& result) {
  drop_from(result.metrics, result.reasons);
  for (auto region = result.regions.begin(); region != result.regions.end(); ++region) {
    drop_from(region.value().metrics, region.value().reasons);
  }
}

OrderedMap<RegionResult> gather_regions(const std::vector<std::string>& names, const ResultBundle& bundle) {
  OrderedMap<RegionResult> regions;
  for (const std::string& name : names) regions[name];
  for (const auto& [operation, result] : bundle.results) {
    for (const auto& [name, found] : result.regions) {
      RegionResult& region = regions[name];
      merge(region.metrics, found.metrics, operation);
      merge(region.reasons, found.reasons, operation);
    }
  }
  return regions;
}

Value mask_notes_document(const std::vector<MaskNote>& notes) {
  Value list = Value::array();
  for (const MaskNote& note : notes) {
    list.push_back({{"step", note.step}, {"op", note.op}, {"note", common::to_valid_utf8(note.text)}});
  }
  return list;
}

Value metrics_document(const MetricsReport& report) {
  Value results = Value::object();
  for (const auto& [operation, result] : report.bundle.results) {
    results[operation] = {{"metrics", object_or_empty(result.metrics)},
                          {"units", object_or_empty(result.units)},
                          {"reasons", object_or_empty(result.reasons)},
                          {"error", result.error ? Value(*result.error) : Value()}};
  }
  Value::object_t regions;  // appended to as the list it is: looking each name up first is slow for thousands of them
  for (const auto& [name, region] : report.regions) {
    regions.push_back({name, {{"metrics", region.metrics}, {"reasons", region.reasons}}});
  }
  return {{"format", 1},
          {"capture", report.capture_name},
          {"date", report.date},
          {"time", report.time},
          {"workflow", report.workflow_title},
          {"results", std::move(results)},
          {"regions", std::move(regions)},
          {"mask_notes", mask_notes_document(report.mask_notes)}};
}

std::string metrics_table(const MetricsReport& report) {
  const std::vector<std::string> columns = columns_of(report);
  std::string text = "Capture\tRegion\tDate\tTime";
  for (const std::string& metric : columns) text += '\t' + field(metric);
  text += '\n';
  for (const auto& [name, region] : report.regions) {
    text += field(report.capture_name) + '\t' + field(name) + '\t' + field(report.date) + '\t' + field(report.time);
    for (const std::string& metric : columns) {
      const auto found = region.metrics.find(metric);
      text += '\t';
      if (found != region.metrics.end()) text += field(*found);
    }
    text += '\n';
  }
  return text;
}

std::string table_text(const ResultTable& table) {
  std::string text;
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    if (column > 0) text += '\t';
    text += field(table.columns[column]);
  }
  text += '\n';
  for (const std::vector<Value>& row : table.rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (column > 0) text += '\t';
      if (is_finite(row[column])) text += field(row[column]);
    }
    text += '\n';
  }
  return text;
}

}  // namespace orvexa::model

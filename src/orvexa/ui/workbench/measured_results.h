#pragma once

#include <QString>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/ui/workbench/history.h"

namespace orvexa::ui {

/// The scalar metrics of a run as a table: the first row is the whole mask, each further one a region; the columns are
/// those of metrics.tsv, operation by operation. Names and units stand once, a cell costs 16 bytes, so that 5,000
/// regions of 300 metrics are 24 MB.
class MetricsTable {
 public:
  struct Column {
    std::string operation;  ///< key
    std::string metric;     ///< "<operation>.<metric>" where an operation before it has one of that name
    std::string unit;       ///< empty for none
  };

  MetricsTable() = default;
  explicit MetricsTable(const model::ResultMap& results);

  [[nodiscard]] const std::vector<Column>& columns() const { return _columns; }
  [[nodiscard]] std::size_t row_count() const { return _regions.size() + 1; }
  /// The region of a row that is not the first.
  [[nodiscard]] const std::string& region(std::size_t row) const { return _regions[row - 1]; }
  /// Null where the metric is undefined.
  [[nodiscard]] const common::Value& value(std::size_t row, std::size_t column) const {
    return _cells[row * _columns.size() + column];
  }
  /// Why there is no value; empty where there is one, and where the operation says nothing about the row.
  [[nodiscard]] const std::string& reason(std::size_t row, std::size_t column) const;

 private:
  struct Filler;
  std::vector<Column> _columns;
  std::vector<std::string> _regions;
  std::vector<common::Value> _cells;  ///< row by row
  std::vector<std::string> _reasons;  ///< each sentence once
  std::unordered_map<std::size_t, std::size_t> _reason_of_cell;
};

/// What the last run found, as the window shows it. Made where the run was made and never changed, so that panels share
/// it and painting reads nothing else.
struct MeasuredResults {
  struct Picture {
    std::string operation;  ///< key
    QString title;          ///< "Histogram: RGB"
    std::string name;
    model::ResultImage image;
  };
  struct Table {
    QString title;  ///< "Centroid: positions"
    model::ResultTable table;
  };
  /// What an operation or a step has to say.
  struct Remark {
    bool is_failure = false;
    QString who;   ///< "Photosystem II", "Step 1, Otsu threshold"
    QString text;  ///< a sentence
  };

  std::string capture_name;
  std::string date;
  std::string time;
  WorkflowCopy workflow;  ///< as it ran
  std::filesystem::path folder;
  MetricsTable table;
  std::vector<Picture> pictures;
  std::vector<Table> tables;
  std::vector<Remark> remarks;  ///< failures first
};

/// Reads the state's `last_results`, which must be there, and what belongs to them.
[[nodiscard]] std::shared_ptr<const MeasuredResults> measured_results(const controller::Controller& controller);

/// Some rows and columns as tab-separated text with a header line: Capture, Region, Date, Time and the metrics with
/// their units, "area (px)". Values are exact, an undefined one is an empty field. Any thread.
[[nodiscard]] std::string metrics_text(const MeasuredResults& results, std::span<const std::size_t> rows,
                                       std::span<const std::size_t> columns);

/// The name of the first row.
[[nodiscard]] QString whole_mask_text();

}  // namespace orvexa::ui

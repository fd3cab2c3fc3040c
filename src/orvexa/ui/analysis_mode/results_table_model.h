#pragma once

#include <QAbstractTableModel>
#include <memory>
#include <vector>

#include "orvexa/ui/workbench/measured_results.h"

namespace orvexa::ui::analysis_mode {

/// The metrics of a run for a table view: a row for the whole mask and one for each region, a column a metric with its
/// unit. It shares the results and keeps nothing for a cell. The tip of a cell is the exact value, or why there is
/// none.
class ResultsTableModel final : public QAbstractTableModel {
  Q_OBJECT

 public:
  using QAbstractTableModel::QAbstractTableModel;

  void show(std::shared_ptr<const MeasuredResults> results);
  /// The results' row that is shown in this row.
  [[nodiscard]] std::size_t row_of_results(int row) const { return _order[static_cast<std::size_t>(row)]; }

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  /// The whole mask stays above the regions, undefined values come last; a column below 0 is the results' own order.
  void sort(int column, Qt::SortOrder order) override;

 private:
  std::shared_ptr<const MeasuredResults> _results;
  std::vector<std::size_t> _order;  ///< shown row -> row of the results
};

/// A named table of a result operation. It shares the results too.
class ListedTableModel final : public QAbstractTableModel {
  Q_OBJECT

 public:
  using QAbstractTableModel::QAbstractTableModel;

  /// @param number  of the table in the results, which must have it; null for none.
  void show(std::shared_ptr<const MeasuredResults> results, std::size_t number);

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  [[nodiscard]] const model::ResultTable* table() const {
    return _results ? &_results->tables[_number].table : nullptr;
  }

  std::shared_ptr<const MeasuredResults> _results;
  std::size_t _number = 0;
};

}  // namespace orvexa::ui::analysis_mode

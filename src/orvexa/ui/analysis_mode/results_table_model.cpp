#include "orvexa/ui/analysis_mode/results_table_model.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/ui/text.h"
#include "orvexa/ui/value_words.h"

namespace orvexa::ui::analysis_mode {

using common::Value;

namespace {

/// What a cell shows of its value, whichever table it is in.
QVariant cell_data(const Value& value, int role) {
  switch (role) {
    case Qt::DisplayRole:
      return value_words(value);
    case Qt::ToolTipRole:
      return value.is_null() ? QString() : to_qt(common::scalar_text(value));
    case Qt::TextAlignmentRole:
      return int(Qt::AlignVCenter | (value.is_number() ? Qt::AlignRight : Qt::AlignLeft));
    default:
      return {};
  }
}

/// Numbers before texts, both before what is undefined.
bool is_less(const Value& a, const Value& b) {
  if (a.is_number() != b.is_number()) return a.is_number();
  return a < b;
}

int count(std::size_t number) {
  return static_cast<int>(number);
}

std::size_t position(int number) {
  return static_cast<std::size_t>(number);
}

}  // namespace

void ResultsTableModel::show(std::shared_ptr<const MeasuredResults> results) {
  beginResetModel();
  _results = std::move(results);
  _order.resize(_results ? _results->table.row_count() : 0);
  std::iota(_order.begin(), _order.end(), std::size_t{0});
  endResetModel();
}

int ResultsTableModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : count(_order.size());
}

int ResultsTableModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() || !_results ? 0 : count(_results->table.columns().size());
}

QVariant ResultsTableModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const MetricsTable& table = _results->table;
  const std::size_t row = row_of_results(index.row());
  const std::size_t column = position(index.column());
  const Value& value = table.value(row, column);
  if (role == Qt::ToolTipRole) {
    const std::string& reason = table.reason(row, column);
    if (value.is_null()) return reason.empty() ? tr("Not measured here.") : to_qt(reason);
    const std::string& unit = table.columns()[column].unit;
    return to_qt(common::scalar_text(value) + (unit.empty() ? "" : " " + unit));
  }
  if (role == Qt::AccessibleDescriptionRole && value.is_null()) return to_qt(table.reason(row, column));
  return cell_data(value, role);
}

QVariant ResultsTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (!_results || section < 0) return {};
  if (orientation == Qt::Vertical) {
    if (role != Qt::DisplayRole || section >= rowCount()) return {};
    const std::size_t row = row_of_results(section);
    return row == 0 ? whole_mask_text() : to_qt(_results->table.region(row));
  }
  if (section >= columnCount()) return {};
  const MetricsTable::Column& column = _results->table.columns()[position(section)];
  if (role == Qt::DisplayRole) return to_qt(column.metric + "\n" + column.unit);
  if (role == Qt::ToolTipRole) {
    const QString metric = to_qt(column.metric);
    return column.unit.empty() ? tr("%1, without a unit").arg(metric) : tr("%1 in %2").arg(metric, to_qt(column.unit));
  }
  return {};
}

void ResultsTableModel::sort(int column, Qt::SortOrder order) {
  if (!_results || column >= columnCount()) return;
  Q_EMIT layoutAboutToBeChanged();
  const QModelIndexList before = persistentIndexList();
  std::vector<std::size_t> rows_before;
  rows_before.reserve(position(static_cast<int>(before.size())));
  for (const QModelIndex& index : before) rows_before.push_back(row_of_results(index.row()));

  std::iota(_order.begin(), _order.end(), std::size_t{0});
  if (column >= 0) {
    const MetricsTable& table = _results->table;
    std::stable_sort(_order.begin() + 1, _order.end(), [&](std::size_t a, std::size_t b) {
      const Value& first = table.value(a, position(column));
      const Value& second = table.value(b, position(column));
      if (first.is_null() || second.is_null()) return !first.is_null() && second.is_null();
      return order == Qt::AscendingOrder ? is_less(first, second) : is_less(second, first);
    });
  }

  std::vector<int> places(_order.size());
  for (std::size_t place = 0; place < _order.size(); ++place) places[_order[place]] = count(place);
  QModelIndexList after;
  for (qsizetype i = 0; i < before.size(); ++i) {
    after << createIndex(places[rows_before[static_cast<std::size_t>(i)]], before[i].column());
  }
  changePersistentIndexList(before, after);
  Q_EMIT layoutChanged();
}

void ListedTableModel::show(std::shared_ptr<const MeasuredResults> results, std::size_t number) {
  beginResetModel();
  _results = std::move(results);
  _number = number;
  endResetModel();
}

int ListedTableModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() || table() == nullptr ? 0 : count(table()->rows.size());
}

int ListedTableModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() || table() == nullptr ? 0 : count(table()->columns.size());
}

QVariant ListedTableModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const std::vector<Value>& row = table()->rows[position(index.row())];
  if (position(index.column()) >= row.size()) return {};  // a row may be shorter than the header
  return cell_data(row[position(index.column())], role);
}

QVariant ListedTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (role != Qt::DisplayRole || table() == nullptr) return {};
  if (orientation == Qt::Vertical) return section + 1;
  if (section < 0 || section >= columnCount()) return {};
  return to_qt(table()->columns[position(section)]);
}

}  // namespace orvexa::ui::analysis_mode

#pragma once

#include <QLabel>
#include <QTableWidget>
#include <QWidget>
#include <deque>
#include <filesystem>
#include <optional>

#include "orvexa/common/clock.h"

namespace orvexa::ui {

/// What became of captures, a row each: when, which file, how it went, and the sentence that says why. The whole
/// sentence of the chosen row stands below the table.
class OutcomeTable final : public QWidget {
  Q_OBJECT

 public:
  enum class State { running, done, remarked, failed, left_out, problem, told };
  struct Outcome {
    common::TimePoint time = {};
    std::filesystem::path file = {};  ///< of the capture; empty for what is about none
    State state = State::told;
    QString sentence = {};
    std::filesystem::path folder = {};  ///< with its results; empty where there are none
  };
  enum class Order { oldest_first, newest_first };

  /// @param object_name  of the table itself. @param name  for people who do not see.
  /// @param most_rows  the oldest rows beyond go; 0 = all stay.
  OutcomeTable(const QString& object_name, const QString& name, Order order, int most_rows = 0,
               QWidget* parent = nullptr);

  void clear();
  void add(const Outcome& outcome);
  /// In place of the row of the same file that had no end yet (running, not finished), if there is one.
  void add_or_replace(const Outcome& outcome);
  /// Shows the rows of failures and problems alone.
  void show_failures_only(bool is_wanted);
  /// The chosen row; absent when there is none.
  [[nodiscard]] std::optional<Outcome> current() const;
  [[nodiscard]] QTableWidget* table() const { return _table; }

  [[nodiscard]] static QString state_text(State state);

 Q_SIGNALS:
  /// Another row is chosen, or the chosen one says something else.
  void current_changed();
  /// A row was opened with Return or a double click.
  void opened();

 private:
  void fill_row(int row, const Outcome& outcome);
  void show_row_or_not(int row);
  void show_current();

  const Order _order;
  const int _most_rows;
  bool _shows_failures_only = false;
  QTableWidget* _table;
  QLabel* _sentence;
  std::deque<Outcome> _outcomes;  ///< by row
};

}  // namespace orvexa::ui

#pragma once

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedLayout>
#include <QTabWidget>
#include <QTableView>
#include <QToolButton>
#include <memory>

#include "orvexa/ui/analysis_mode/picture_view.h"
#include "orvexa/ui/analysis_mode/results_table_model.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui::analysis_mode {

/// Runs the workflow on the open capture and shows what came of it: the numbers by region, the pictures and tables that
/// explain them, and what operations and steps had to say.
class ResultsPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit ResultsPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

  /// Measures into the chosen folder; says what is missing when it cannot.
  void run();
  /// Asks where results are written.
  void choose_folder();
  /// Puts what the front tab shows on the clipboard: of the numbers and tables the selected cells, all where fewer than
  /// two are selected.
  void copy();

 protected:
  void show_busy(bool is_busy) override;

 private:
  [[nodiscard]] QWidget* make_order_row();
  [[nodiscard]] QWidget* make_progress_row();
  [[nodiscard]] QWidget* make_tabs();
  [[nodiscard]] QWidget* make_numbers();
  [[nodiscard]] QWidget* make_pictures();
  [[nodiscard]] QWidget* make_tables();
  [[nodiscard]] QWidget* make_remarks();

  void show_results(const std::shared_ptr<const MeasuredResults>& results);
  void show_notice();
  void show_folders();
  /// Shows only the metrics whose name holds the text that was typed.
  void filter_metrics();
  void show_picture();
  enum class Shown { picture, numbers };
  void show_in_viewer(Shown what);
  void update_buttons();

  std::shared_ptr<const MeasuredResults> _results;
  bool _is_older_workflow = false;  ///< the results are of a workflow that was changed since
  bool _can_run = false;
  bool _is_measuring = false;
  bool _is_busy = false;

  QComboBox* _folder = nullptr;
  QToolButton* _choose = nullptr;
  QPushButton* _run = nullptr;
  QWidget* _order_row;
  QLabel* _progress_text = nullptr;
  QWidget* _progress_row;
  QLabel* _notice;
  QLabel* _hint;
  QStackedLayout* _pages;

  QTabWidget* _tabs = nullptr;
  QLineEdit* _filter = nullptr;
  QToolButton* _copy = nullptr;
  QToolButton* _open_folder = nullptr;
  ResultsTableModel* _numbers_model = nullptr;
  QTableView* _numbers = nullptr;
  QListWidget* _picture_names = nullptr;
  PictureView* _picture = nullptr;
  QPushButton* _show_picture = nullptr;
  QPushButton* _show_numbers = nullptr;
  QListWidget* _table_names = nullptr;
  ListedTableModel* _table_model = nullptr;
  QTableView* _table = nullptr;
  QListWidget* _remarks = nullptr;

  Worker _pictures_worker;
  Worker _copy_worker;
};

}  // namespace orvexa::ui::analysis_mode

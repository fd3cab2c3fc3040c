#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QToolButton>
#include <QTreeWidget>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/model/workflow/model.h"
#include "orvexa/ui/analysis_mode/result_parameters.h"
#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::analysis_mode {

/// What is measured: the result operations by category, ticked where the workflow has them, with the reason where one
/// cannot be used, and the parameters of the selected one.
class ResultOperationPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit ResultOperationPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  /// An operation in the list, in the order of the registry; those that it does not know come last.
  struct Row {
    std::string key;
    const model::ResultOperationInfo* info = nullptr;  ///< null for an unknown operation of the workflow
    QTreeWidgetItem* item = nullptr;
    bool is_available = true;                                 ///< false = it cannot be ticked
    QString reason = {};                                      ///< a sentence; empty when nothing speaks against it
    std::optional<common::Value> asked_about = std::nullopt;  ///< parameters in the workflow that the reason is for
  };

  [[nodiscard]] QLayout* make_search_row();
  [[nodiscard]] QWidget* make_list();
  [[nodiscard]] QWidget* make_details();
  void fill_list();
  /// Rows for operations of the workflow that no registry knows.
  void list_unknown_operations();
  /// Asks again why operations cannot be used, where capture, mask steps or parameters are others than before.
  void explain();
  void show_ticks();
  void show_details();
  void filter();

  /// Makes the ticked rows the measured operations.
  void take_ticks_over();
  enum class Which { all, none, selected };
  /// Ticks among the rows that can be seen.
  void tick(Which which);
  /// The operation as it stands in the workflow, or null.
  [[nodiscard]] const model::ResultOperationConfig* config_of(const std::string& key) const;
  [[nodiscard]] Row* current_row();
  [[nodiscard]] static QString name_of(const Row& row);

  std::vector<Row> _rows;
  std::vector<model::ResultOperationConfig> _measured;  ///< as the workflow has them
  bool _has_workflow = false;
  std::shared_ptr<const model::CaptureSet> _explained_capture;
  std::vector<model::MaskOperationConfig> _explained_steps;
  std::optional<std::vector<std::string>> _available;  ///< keys; absent = not known
  bool _is_explained = false;

  QLineEdit* _search = nullptr;
  QLabel* _hint = nullptr;
  QTreeWidget* _list = nullptr;
  QLabel* _name = nullptr;
  QLabel* _summary = nullptr;
  QLabel* _reason = nullptr;
  ResultParameters* _parameters = nullptr;
  controller::EventConnection _operations_changed;
};

}  // namespace orvexa::ui::analysis_mode

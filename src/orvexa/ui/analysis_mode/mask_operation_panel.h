#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QTreeWidget>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/ui/editors/parameter_form.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/plots/histogram_view.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui::analysis_mode {

/// Where a mask step is chosen, tuned with a live preview and added to the workflow, or an existing one is changed.
class MaskOperationPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit MaskOperationPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  struct Edit {
    int index = 0;
    std::string operation;
  };

  void build_list();
  void build_operation_area();
  void connect_workbench();

  // The list of operations.
  void filter_list(const QString& words);
  void update_reasons();
  void show_reason();
  [[nodiscard]] QTreeWidgetItem* item_of(const std::string& key) const;
  [[nodiscard]] std::string current_key() const;

  // The chosen operation.
  void choose(const std::string& key);
  void choose_nothing();
  /// @param values  to begin with; not necessarily right.
  void open_form(const model::MaskOperationInfo& info, const Value& values);
  void close_form();
  void begin_edit(int index);
  void end_edit();
  /// The values are others: check them, show what they do.
  void values_changed();
  /// Shows the sentence about what is wrong with the values. @return whether they are right.
  bool check_values();
  void apply();

  // Preview and histogram.
  [[nodiscard]] int step_index() const;
  void ask_preview();
  void end_preview();
  void show_answer();
  void update_histogram();
  void show_limits();
  void take_limit(int limit, double value);

  WorkbenchEditorContext _context;
  QPointer<Workbench>
      _living_workbench;  ///< null once it is gone, which is before the panel is hidden for the last time

  QLabel* _title;
  QLineEdit* _search;
  QTreeWidget* _list;
  QLabel* _reason;
  QScrollArea* _area;
  QLabel* _summary;
  HistogramView* _histogram;
  QWidget* _histogram_box;
  QCheckBox* _logarithmic;
  ParameterForm* _form = nullptr;
  QCheckBox* _preview;
  QLabel* _answer;
  QPushButton* _apply;
  QPushButton* _save;
  QPushButton* _cancel;

  std::map<std::string, QString> _reasons;  ///< by key: why an operation cannot be used now
  bool _are_reasons_stale = true;
  const model::MaskOperationInfo* _chosen = nullptr;
  std::optional<Edit> _edit;
  bool _is_preview_stale = false;
  std::int64_t _image_pixels = 0;  ///< of the current capture

  std::optional<HistogramQuestion> _histogram_question;  ///< of what is shown or being counted
  controller::EventConnection _mask_added;
  Worker _histogram_worker;  ///< last, so that it ends first
};

}  // namespace orvexa::ui::analysis_mode

#pragma once

#include <QPointer>
#include <QWidget>
#include <string>

#include "orvexa/controller/panel.h"
#include "orvexa/ui/workbench/workbench.h"

namespace orvexa::ui {

/// What every panel is: a widget that the Controller knows. Its class name and the path of its module follow from its
/// full name: orvexa::ui::analysis_mode::FilePanel is "FilePanel" in "orvexa.ui.analysis_mode.file_panel".
///
/// `refresh()` reads the state and is not called while a worker uses it. What a panel shows it holds itself, so that
/// painting never reads the state.
class PanelWidget : public QWidget, public controller::Panel, public controller::Refreshable {
  Q_OBJECT

 public:
  explicit PanelWidget(Workbench& workbench, QWidget* parent = nullptr);
  /// The panel hears nothing of its parts any more: one that has the focus speaks up while it is deleted.
  ~PanelWidget() override;

  [[nodiscard]] std::string class_name() const override;
  [[nodiscard]] std::string module_path() const override;
  /// Asked by the Controller while something is picked on the image.
  void setEnabled(bool enabled) override;

 protected:
  [[nodiscard]] Workbench& workbench() const { return _workbench; }
  [[nodiscard]] controller::Controller& controller() const { return _workbench.controller(); }
  /// Called when a worker begins (true) and has ended. The panel as a whole is disabled meanwhile; one that has
  /// something to do while a worker runs (cancel, show progress) overrides this.
  virtual void show_busy(bool is_busy);

 private:
  void update_enabled();

  Workbench& _workbench;
  bool _is_allowed = true;
  bool _is_busy = false;
  QPointer<QWidget> _had_focus;  ///< the part that had the keyboard when the panel was disabled
};

}  // namespace orvexa::ui

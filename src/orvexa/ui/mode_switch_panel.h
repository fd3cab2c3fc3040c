#pragma once

#include <QButtonGroup>

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui {

/// The three buttons that choose the processing mode: one capture, a batch, or a watched folder.
class ModeSwitchPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit ModeSwitchPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

 private:
  QButtonGroup* _buttons;
};

}  // namespace orvexa::ui

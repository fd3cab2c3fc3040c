#pragma once

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::analysis_mode {

class MaskOperationPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit MaskOperationPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
};

}  // namespace orvexa::ui::analysis_mode

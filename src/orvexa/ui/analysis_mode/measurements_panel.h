#pragma once

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::analysis_mode {

class MeasurementsPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit MeasurementsPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
};

}  // namespace orvexa::ui::analysis_mode

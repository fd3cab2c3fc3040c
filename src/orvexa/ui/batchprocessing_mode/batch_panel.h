#pragma once

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::batchprocessing_mode {

class BatchPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit BatchPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
};

}  // namespace orvexa::ui::batchprocessing_mode

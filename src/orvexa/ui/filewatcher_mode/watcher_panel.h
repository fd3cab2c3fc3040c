#pragma once

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::filewatcher_mode {

class WatcherPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit WatcherPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
};

}  // namespace orvexa::ui::filewatcher_mode

#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QToolButton>

#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui {

/// The line at the foot of the window: what was done or went wrong, where the user stands, and how far a run is. An
/// error can be copied with what is known about it.
class StatusBarPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit StatusBarPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

 protected:
  void show_busy(bool is_busy) override;

 private:
  void show_text(const QString& text, bool is_error);
  void copy_details();

  QLabel* _text;
  QToolButton* _copy_details;
  QLabel* _phase;
  QProgressBar* _progress;
  QToolButton* _cancel;
  QString _details;
};

}  // namespace orvexa::ui

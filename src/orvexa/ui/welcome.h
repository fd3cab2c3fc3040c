#pragma once

#include <QWidget>

namespace orvexa::ui {

/// What the window shows when nothing is open: ways to begin.
class Welcome final : public QWidget {
  Q_OBJECT

 public:
  explicit Welcome(QWidget* parent = nullptr);

 Q_SIGNALS:
  void folder_wanted();
  void capture_wanted();
  void samples_wanted();
  void workflow_wanted();
};

}  // namespace orvexa::ui

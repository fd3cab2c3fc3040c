#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QStackedLayout>
#include <QToolButton>
#include <memory>
#include <string>
#include <vector>

#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/ui/panel_widget.h"

namespace orvexa::ui::analysis_mode {

/// The steps of the workflow in their order, each with what is left of the capture after it, and what is wrong with
/// them. Selecting a step shows the capture after it in the viewer.
class WorkflowPanel final : public PanelWidget {
  Q_OBJECT

 public:
  explicit WorkflowPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;

  /// Takes over a title that is still being typed, as before the workflow is saved.
  void commit_title();

 Q_SIGNALS:
  /// Somebody wants to open or save a workflow: the window asks for the file.
  void load_wanted();
  void save_wanted();

 private:
  /// A mask step as the panel shows it.
  struct Step {
    QString name;
    QString words;    ///< about its parameters
    QString problem;  ///< a sentence; empty when the step itself is right
  };

  [[nodiscard]] QLayout* make_title_row();
  [[nodiscard]] QWidget* make_list();
  [[nodiscard]] QLayout* make_action_row();

  void read_steps();
  void show_history();
  void show_steps();
  /// After a capture was opened, the first step that fails on it.
  void select_failing_step();
  /// The capture after the selected step, in the viewer: the image that is there already, as the step leaves it. Comes
  /// later when it is not worked out yet.
  void show_image_of_step();
  /// Sends it again when the viewer has it from before a change of the workflow.
  void renew_image();
  /// Of a capture the image that people look at, or else the first one. @param stage  "Mask 2: Erode"
  void show_image(const model::CaptureSet& capture, const QString& stage);
  void edit_step();
  void remove_step();
  void update_buttons();

  std::vector<Step> _steps;
  std::vector<QString> _other_problems;                     ///< of the workflow, not of a mask step
  bool _looks_for_failure = false;                          ///< a capture was opened and no step selected since
  bool _wants_image = false;                                ///< of the selected step, as soon as it is known
  std::shared_ptr<const model::CaptureSet> _shown_capture;  ///< whose image went to the viewer last; null for none
  std::string _shown_context;                               ///< under which it went there
  std::string _viewer_context;                              ///< what the viewer shows now, whoever sent it
  std::string _viewer_image;
  QString _title_of_workflow;

  QLineEdit* _title = nullptr;
  QToolButton* _save = nullptr;
  QListWidget* _list = nullptr;
  QStackedLayout* _pages;
  QLabel* _hint;
  QLabel* _problems;
  QToolButton* _edit = nullptr;
  QToolButton* _remove = nullptr;
  QToolButton* _undo = nullptr;
  QToolButton* _redo = nullptr;
  controller::EventConnection _image_selected;
};

}  // namespace orvexa::ui::analysis_mode

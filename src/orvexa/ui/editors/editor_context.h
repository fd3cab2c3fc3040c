#pragma once

#include <QString>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "orvexa/controller/pick_mode_state.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::ui {

class Workbench;

/// What editors of parameters may ask for about the world around them. Outlives the editors.
class EditorContext {
 public:
  virtual ~EditorContext() = default;

  /// Single planes of the current capture: "MSP.NIR", "CLR.RGB.grey", "CLR.RGB.R"; none without a capture.
  [[nodiscard]] virtual std::vector<std::string> band_names() const = 0;
  /// Images in colour of the current capture: "CLR.RGB".
  [[nodiscard]] virtual std::vector<std::string> colour_image_names() const = 0;
  /// The folder that relative paths start from; empty when the workflow has no file yet.
  [[nodiscard]] virtual std::filesystem::path workflow_folder() const = 0;

  using Picked = std::function<void(const controller::PickGeometry&)>;
  /// Whether there is an image on which something can be picked.
  [[nodiscard]] virtual bool can_pick() const = 0;
  /// Lets a person draw on the image.
  /// @param existing_count  how many there are already, for the numbers beside what is drawn.
  /// @param picked  called once when it was accepted, never when it was not.
  virtual void pick(const model::Interaction& interaction, int existing_count, Picked picked) = 0;
  /// A sentence for the status line.
  virtual void tell(const QString& sentence) = 0;
};

/// The editors' world in the desktop. It holds what the state said when `update` was last called, so that editors can
/// ask while a worker has the state.
class WorkbenchEditorContext final : public EditorContext {
 public:
  explicit WorkbenchEditorContext(Workbench& workbench) : _workbench(workbench) {}

  /// Reads the state; for `refresh()`.
  void update();
  /// Whose parameters are edited, for the pick mode.
  void set_operation(const std::string& key) { _operation = key; }

  [[nodiscard]] std::vector<std::string> band_names() const override { return _band_names; }
  [[nodiscard]] std::vector<std::string> colour_image_names() const override { return _colour_image_names; }
  [[nodiscard]] std::filesystem::path workflow_folder() const override { return _folder; }
  [[nodiscard]] bool can_pick() const override { return _can_pick; }
  void pick(const model::Interaction& interaction, int existing_count, Picked picked) override;
  void tell(const QString& sentence) override;

 private:
  Workbench& _workbench;
  std::string _operation;
  std::vector<std::string> _band_names;
  std::vector<std::string> _colour_image_names;
  std::filesystem::path _folder;
  bool _can_pick = false;
};

}  // namespace orvexa::ui

#pragma once

#include <string>

namespace orvexa::controller {

/// A part of the window that registers with the Controller. What else it can do it says by implementing the small
/// interfaces below, which the Controller asks for. A panel belongs to the window and outlives the Controller.
class Panel {
 public:
  virtual ~Panel() = default;
  [[nodiscard]] virtual std::string class_name() const = 0;
  /// The dotted path of the module that defines the panel's class, for example
  /// "orvexa.ui.batchprocessing_mode.file_list". It decides in which processing modes the panel is refreshed.
  [[nodiscard]] virtual std::string module_path() const = 0;
  virtual void setEnabled(bool enabled) = 0;
};

/// A panel that redraws itself from the state.
class Refreshable {
 public:
  virtual ~Refreshable() = default;
  virtual void refresh() = 0;
};

/// The panel of measurements: it can show the image that people want to see first.
class SelectsDefaultImage {
 public:
  virtual ~SelectsDefaultImage() = default;
  virtual void auto_select_default_image() = 0;
};

/// The image on screen and the tools to draw on it.
class ImageViewer {
 public:
  virtual ~ImageViewer() = default;
  /// "rectangle", "point", "points", "rects", "circle", "polygon" or "pan_zoom" (navigation).
  virtual void set_active_tool(const std::string& name) = 0;
  virtual void set_pick_cursor() = 0;
  virtual void restore_cursor() = 0;
  virtual void clear_all_rois() = 0;
  virtual void setFocus() = 0;
  /// How many items of the picked parameter exist already; new ones are numbered after them.
  int _pick_existing_count = 0;
};

class HasImageViewer {
 public:
  virtual ~HasImageViewer() = default;
  [[nodiscard]] virtual ImageViewer* image_viewer() = 0;
};

}  // namespace orvexa::controller

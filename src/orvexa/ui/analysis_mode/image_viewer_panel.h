#pragma once

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QSpinBox>
#include <QToolButton>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "orvexa/controller/panel.h"
#include "orvexa/controller/ui_event_bus.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/image_entry.h"
#include "orvexa/ui/panel_widget.h"
#include "orvexa/ui/viewer/image_view.h"

namespace orvexa::ui::analysis_mode {

/// Shows the chosen image with the mask over it, how it is displayed, and what its pixels are under the pointer. While
/// a worker runs one can still look around.
class ImageViewerPanel final : public PanelWidget, public controller::HasImageViewer {
  Q_OBJECT

 public:
  explicit ImageViewerPanel(Workbench& workbench, QWidget* parent = nullptr);
  void refresh() override;
  [[nodiscard]] controller::ImageViewer* image_viewer() override { return _view; }

 protected:
  void show_busy(bool is_busy) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  QToolButton* button(const QString& text, const char* name, const QString& tip, const QKeySequence& key);
  /// Letters work wherever in this panel the focus is.
  void add_key(const QKeySequence& key, const std::function<void()>& work);
  QWidget* make_view_row();
  QWidget* make_display_row();
  void connect_workbench();

  void clear();
  void show_image(const std::string& context, const std::string& key, const model::ImageEntry& entry);
  /// Shows an image that can be drawn on, when none is shown.
  void show_image_to_draw_on();
  /// Makes what is shown of the chosen image follow the preview and the workflow's steps.
  void update_entry();
  void update_picture();
  void update_overlay();
  void update_display_controls();
  void update_title();
  void show_range(double low, double high);
  void choose_range(viewer::RangeMode mode);
  void choose_manual_range();
  void show_pixel(const QPoint& pixel);
  void update_readout();
  void make_room_for_readout();
  void end_pick(const std::optional<controller::ViewerGeometry>& geometry);

  /// The measurement of the image that is shown: what stands behind the context's last ">".
  [[nodiscard]] std::string measurement() const;
  /// Position of the step whose result is shown, from "Mask 2: Otsu threshold > CLR"; absent for other images.
  [[nodiscard]] std::optional<std::size_t> step_shown() const;
  /// The mask to lay over the image, and what was drawn with it.
  struct ShownMask {
    std::optional<model::Mask> mask;
    std::optional<model::Image> drawing;
    std::int64_t pixels = 0;
  };
  [[nodiscard]] ShownMask mask_to_show() const;
  [[nodiscard]] viewer::DisplaySettings& settings();
  [[nodiscard]] QString values_at(const QPoint& pixel) const;

  viewer::ImageView* _view = nullptr;
  QLabel* _title = nullptr;
  QLabel* _zoom = nullptr;
  QToolButton* _split = nullptr;
  QToolButton* _cross_hair = nullptr;
  QComboBox* _range = nullptr;
  QDoubleSpinBox* _low = nullptr;
  QDoubleSpinBox* _high = nullptr;
  QComboBox* _color_map = nullptr;
  QToolButton* _is_overlay_shown = nullptr;
  QComboBox* _overlay_color = nullptr;
  QSpinBox* _overlay_opacity = nullptr;
  QToolButton* _is_drawing_shown = nullptr;
  QLabel* _position = nullptr;
  QLabel* _mask_size = nullptr;
  QLabel* _values = nullptr;

  std::shared_ptr<const model::CaptureSet> _capture;
  std::string _context;
  std::string _key;
  std::shared_ptr<const model::ImageEntry> _chosen;           ///< as it was selected; null = nothing is shown
  std::shared_ptr<const model::ImageEntry> _entry;            ///< as it is shown
  std::shared_ptr<const model::CaptureSet> _capture_of_step;  ///< whose image is shown instead of the selected one
  std::map<std::string, viewer::DisplaySettings> _settings;   ///< by measurement and image
  ShownMask _mask;
  QPoint _pixel{-1, -1};

  controller::EventConnection _image_selected;
  controller::EventConnection _pick_mode_changed;
};

}  // namespace orvexa::ui::analysis_mode

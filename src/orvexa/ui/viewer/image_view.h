#pragma once

#include <QLabel>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <optional>
#include <string>

#include "orvexa/controller/panel.h"
#include "orvexa/controller/viewer_geometry.h"
#include "orvexa/ui/viewer/drawing.h"
#include "orvexa/ui/viewer/picture.h"
#include "orvexa/ui/viewer/tile_store.h"
#include "orvexa/ui/viewer/view_transform.h"
#include "orvexa/ui/workbench/mailbox.h"

namespace orvexa::ui::viewer {

/// Shows a picture that is panned and zoomed, with a mask over it or beside it, and lets people draw on it. Painting
/// copies tiles that a worker made and does nothing else.
///
/// By mouse: drag pans (the middle button always), the wheel zooms at the pointer. By keyboard: arrows pan, plus and
/// minus zoom; in a drawing tool arrows move a cross-hair (Shift: ten pixels), Space sets a corner or point, Ctrl and
/// arrows move the selected item, Alt and arrows resize it, Page Up and Page Down select another one.
class ImageView final : public QWidget, public controller::ImageViewer {
  Q_OBJECT

 public:
  explicit ImageView(Mailbox::Address mailbox, QWidget* parent = nullptr);

  // ---- What is shown ------------------------------------------------------------------------------------------------

  /// @param picture  null = nothing. Another size of image is fitted; one of the same size is shown at the same place.
  void show_picture(const std::shared_ptr<const Picture>& picture);
  void show_overlay(const std::shared_ptr<const MaskOverlay>& overlay);
  void set_overlay_visible(bool is_visible);
  /// The picture alone at the left of a divider, with the overlay at its right.
  void set_split(bool is_split);
  [[nodiscard]] bool is_split() const { return _is_split; }
  /// Whether something that will change what is shown takes its time.
  void set_working(bool is_working);
  /// Whether everything that can be seen is as it was asked for.
  [[nodiscard]] bool is_complete() const { return _tiles.is_complete(); }
  /// Width and height; empty without a picture.
  [[nodiscard]] QSize image_size() const;

  // ---- Where it is shown --------------------------------------------------------------------------------------------

  [[nodiscard]] const ViewTransform& view() const { return _view; }
  void set_view(const ViewTransform& view);
  void fit();
  void show_pixel_by_pixel();
  void zoom_in();
  void zoom_out();

  // ---- Picking ------------------------------------------------------------------------------------------------------

  /// @throws std::invalid_argument for an unknown name.
  void set_active_tool(const std::string& name) override;
  void set_pick_cursor() override;
  void restore_cursor() override;
  void clear_all_rois() override;
  void setFocus() override;
  [[nodiscard]] const Drawing& drawing() const { return _drawing; }
  /// A cross-hair that the arrows move, to read pixels by keyboard; drawing tools show it as soon as it is moved.
  void set_cross_hair(bool is_shown);
  [[nodiscard]] std::optional<QPoint> cross_hair() const { return _cross_hair; }

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 Q_SIGNALS:
  /// The pixel under the pointer or the cross-hair, which may lie outside the image; (-1, -1) when there is none.
  void pointed_at(const QPoint& pixel);
  /// Pixels of the screen for a pixel of the image.
  void zoom_changed(double scale);
  /// The counts between which the picture is shown.
  void range_found(double low, double high);
  void cross_hair_toggled(bool is_shown);
  /// Enter or a double click: what was drawn.
  void accepted(const controller::ViewerGeometry& geometry);
  /// Escape in a drawing tool.
  void cancelled();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  void move_view(const ViewTransform& view);
  void zoom_by(double factor, QPointF anchor);
  [[nodiscard]] QPointF zoom_anchor() const;
  void want_tiles();
  void point_at(std::optional<QPointF> in_view);
  void update_cursor();
  void update_labels();
  void place_labels();
  [[nodiscard]] QString hint() const;
  [[nodiscard]] bool is_drawing() const { return _drawing.tool() != Tool::pan_zoom; }
  /// How near to a handle is near enough, in pixels of the image.
  [[nodiscard]] double reach() const;
  [[nodiscard]] int divider_x() const;
  [[nodiscard]] bool is_on_divider(QPointF in_view) const;
  void move_divider(double x);
  void accept_drawing();
  void drop_drawing();
  bool handle_drawing_key(const QKeyEvent& event);
  bool handle_arrow(QPoint step, Qt::KeyboardModifiers modifiers);
  void move_cross_hair(QPoint by);
  void ensure_seen(QPoint pixel);

  void paint_drawing(QPainter& painter) const;
  void paint_item(QPainter& painter, const QPainterPath& path, bool is_selected) const;
  void paint_number(QPainter& painter, QPointF at, int number) const;
  void paint_cross_hair(QPainter& painter) const;
  void paint_divider(QPainter& painter) const;

  TileStore _tiles;
  std::shared_ptr<const Picture> _picture;
  bool _is_overlay_visible = true;

  ViewTransform _view;
  bool _is_fitted = true;  ///< stays so when the window is resized

  bool _is_split = false;
  double _divider = 0.5;  ///< share of the width

  enum class Drag { none, pan, divider, draw };
  Drag _drag = Drag::none;
  QPointF _drag_from;
  ViewTransform _view_before_drag;
  std::optional<QPointF> _pointer;

  Drawing _drawing;
  std::optional<QPoint> _cross_hair;
  bool _has_pick_cursor = false;
  bool _lacks_drawing = false;  ///< Enter was pressed before there was enough to accept

  QTimer _rest;  ///< while it runs the view moves, and is painted without smoothing
  QLabel* _hint;
  QLabel* _working;
  QLabel* _empty;
};

}  // namespace orvexa::ui::viewer

#pragma once

#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/controller/viewer_geometry.h"

namespace orvexa::ui::viewer {

/// What a pointer does in the view.
enum class Tool { pan_zoom, rectangle, rects, circle, point, points, polygon };

/// "rectangle" -> Tool::rectangle. Absent for an unknown name.
[[nodiscard]] std::optional<Tool> tool_of_name(const std::string& name);

/// What was drawn over an image with one of the tools, and how it is corrected. All positions are in pixels of the
/// image; corners lie on pixel edges, points in the middle of pixels, and both inside the image (the box of a circle
/// may reach beyond it).
class Drawing {
 public:
  /// Where an item can be taken hold of.
  enum class Handle {
    inside,
    left,
    right,
    top,
    bottom,
    top_left,
    top_right,
    bottom_left,
    bottom_right,
  };
  struct Grip {
    int item = 0;
    Handle handle = Handle::inside;
  };

  /// Forgets what was drawn and begins with another tool.
  void begin(Tool tool, QSize image);
  [[nodiscard]] Tool tool() const { return _tool; }
  [[nodiscard]] bool is_of_points() const;

  // ---- By pointer ---------------------------------------------------------------------------------------------------

  /// What a press would take hold of. @param reach  how near is near enough. Handles belong to the selected item alone.
  [[nodiscard]] std::optional<Grip> grip_at(QPointF at, double reach) const;
  /// Takes hold of an item or begins another one.
  /// @param wants_new  begins another one in any case.
  void press(QPointF at, double reach, bool wants_new);
  void move(QPointF at);
  /// What has no extent then was a click and is gone.
  void release();

  // ---- By keyboard --------------------------------------------------------------------------------------------------

  /// Sets a point, or the first or second corner, at a pixel. A rectangle covers both of its corners' pixels; a
  /// circle's first corner is its centre.
  void set_at(QPoint pixel);
  /// The second corner follows the cursor until it is set.
  void follow(QPoint pixel);
  void select_next(int step);
  void move_selected(QPoint by);
  /// Moves the lower right corner of the selected box; does nothing to points.
  void resize_selected(QPoint by);
  void remove_selected();
  void remove_last();

  // ---- What there is ------------------------------------------------------------------------------------------------

  /// Of the tools that draw boxes; a circle's is the square around it.
  [[nodiscard]] const std::vector<QRectF>& boxes() const { return _boxes; }
  /// Of the tools that draw points; the corners of a polygon.
  [[nodiscard]] const std::vector<QPointF>& points() const { return _points; }
  /// -1 for none.
  [[nodiscard]] int selected() const { return _selected; }
  [[nodiscard]] bool is_empty() const { return _boxes.empty() && _points.empty(); }
  /// The handles of a box and where they are.
  [[nodiscard]] std::vector<std::pair<Handle, QPointF>> handles(const QRectF& box) const;
  /// What is handed over; absent until enough is drawn. A circle is handed over as the box around it, a polygon as its
  /// corners.
  [[nodiscard]] std::optional<controller::ViewerGeometry> geometry() const;

 private:
  [[nodiscard]] bool has_one_item() const;
  [[nodiscard]] QPointF edge_near(QPointF at) const;
  [[nodiscard]] QPointF middle_of_pixel(QPointF at) const;
  [[nodiscard]] QRectF circle_through(QPointF centre, QPointF rim) const;
  [[nodiscard]] QRectF between(QPointF first, QPointF second) const;
  /// Moved, but not beyond the image's border.
  [[nodiscard]] QRectF shifted(const QRectF& box, QPointF by) const;
  void begin_box(const QRectF& box);
  void add_point(QPointF at);
  void drag_handle(QRectF& box, QPointF at) const;
  void remove(int item);

  /// What a pointer holds.
  struct Hold {
    Handle handle = Handle::inside;
    QPointF from;   ///< where it was taken
    QRectF box;     ///< as it was then
    QPointF point;  ///< as it was then
    bool is_new = false;
  };

  Tool _tool = Tool::pan_zoom;
  QSize _image;
  std::vector<QRectF> _boxes;
  std::vector<QPointF> _points;
  int _selected = -1;
  std::optional<Hold> _hold;
  std::optional<QRectF> _replaced;      ///< the only box, which a new one takes the place of if it has an extent
  std::optional<QPoint> _first_corner;  ///< set by keyboard, its second one is still to come
};

}  // namespace orvexa::ui::viewer

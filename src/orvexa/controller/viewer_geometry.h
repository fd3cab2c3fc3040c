#pragma once

#include <variant>
#include <vector>

namespace orvexa::controller {

/// What an image viewer hands over when the user has drawn, in pixels of the scene.
class ViewerPoint {
 public:
  ViewerPoint(double x, double y) : _x(x), _y(y) {}
  [[nodiscard]] double x() const { return _x; }
  [[nodiscard]] double y() const { return _y; }

 private:
  double _x;
  double _y;
};

/// Top-left corner and size.
class ViewerRect {
 public:
  ViewerRect(double x, double y, double width, double height) : _x(x), _y(y), _width(width), _height(height) {}
  [[nodiscard]] double x() const { return _x; }
  [[nodiscard]] double y() const { return _y; }
  [[nodiscard]] double width() const { return _width; }
  [[nodiscard]] double height() const { return _height; }

 private:
  double _x;
  double _y;
  double _width;
  double _height;
};

/// One alternative for each of the modes "point", "rect", "points" and "rects".
using ViewerGeometry = std::variant<ViewerPoint, ViewerRect, std::vector<ViewerPoint>, std::vector<ViewerRect>>;

}  // namespace orvexa::controller

#include "orvexa/ui/viewer/drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "orvexa/ui/viewer/view_transform.h"

namespace orvexa::ui::viewer {

namespace {

double distance(QPointF a, QPointF b) {
  return std::hypot(a.x() - b.x(), a.y() - b.y());
}

bool moves_left(Drawing::Handle handle) {
  return handle == Drawing::Handle::left || handle == Drawing::Handle::top_left ||
         handle == Drawing::Handle::bottom_left;
}
bool moves_right(Drawing::Handle handle) {
  return handle == Drawing::Handle::right || handle == Drawing::Handle::top_right ||
         handle == Drawing::Handle::bottom_right;
}
bool moves_top(Drawing::Handle handle) {
  return handle == Drawing::Handle::top || handle == Drawing::Handle::top_left || handle == Drawing::Handle::top_right;
}
bool moves_bottom(Drawing::Handle handle) {
  return handle == Drawing::Handle::bottom || handle == Drawing::Handle::bottom_left ||
         handle == Drawing::Handle::bottom_right;
}

controller::ViewerRect viewer_rect(const QRectF& box) {
  return {box.x(), box.y(), box.width(), box.height()};
}

}  // namespace

std::optional<Tool> tool_of_name(const std::string& name) {
  static const std::array<std::pair<std::string_view, Tool>, 7> tools{{{"pan_zoom", Tool::pan_zoom},
                                                                       {"rectangle", Tool::rectangle},
                                                                       {"rects", Tool::rects},
                                                                       {"circle", Tool::circle},
                                                                       {"point", Tool::point},
                                                                       {"points", Tool::points},
                                                                       {"polygon", Tool::polygon}}};
  const auto* found = std::find_if(tools.begin(), tools.end(), [&](const auto& tool) { return tool.first == name; });
  if (found == tools.end()) return std::nullopt;
  return found->second;
}

void Drawing::begin(Tool tool, QSize image) {
  *this = {};
  _tool = tool;
  _image = image;
}

bool Drawing::is_of_points() const {
  return _tool == Tool::point || _tool == Tool::points || _tool == Tool::polygon;
}

bool Drawing::has_one_item() const {
  return _tool == Tool::rectangle || _tool == Tool::circle || _tool == Tool::point;
}

QPointF Drawing::edge_near(QPointF at) const {
  return {std::clamp(std::round(at.x()), 0.0, double(_image.width())),
          std::clamp(std::round(at.y()), 0.0, double(_image.height()))};
}

QPointF Drawing::middle_of_pixel(QPointF at) const {
  const QPoint pixel = pixel_at(at);
  return {std::clamp(pixel.x(), 0, _image.width() - 1) + 0.5, std::clamp(pixel.y(), 0, _image.height() - 1) + 0.5};
}

QRectF Drawing::circle_through(QPointF centre, QPointF rim) const {
  const double radius = std::round(distance(centre, rim));
  return {centre - QPointF(radius, radius), centre + QPointF(radius, radius)};
}

QRectF Drawing::between(QPointF first, QPointF second) const {
  if (_tool == Tool::circle) return circle_through(first, second);
  return QRectF(first, second).normalized();
}

QRectF Drawing::shifted(const QRectF& box, QPointF by) const {
  if (_tool == Tool::circle) return box.translated(std::round(by.x()), std::round(by.y()));
  const double x = std::clamp(box.x() + std::round(by.x()), 0.0, _image.width() - box.width());
  const double y = std::clamp(box.y() + std::round(by.y()), 0.0, _image.height() - box.height());
  return {QPointF(x, y), box.size()};
}

// ---- By pointer -----------------------------------------------------------------------------------------------------

std::vector<std::pair<Drawing::Handle, QPointF>> Drawing::handles(const QRectF& box) const {
  const QPointF centre = box.center();
  std::vector<std::pair<Handle, QPointF>> all{{Handle::left, {box.left(), centre.y()}},
                                              {Handle::right, {box.right(), centre.y()}},
                                              {Handle::top, {centre.x(), box.top()}},
                                              {Handle::bottom, {centre.x(), box.bottom()}}};
  if (_tool != Tool::circle) {
    all.insert(all.begin(), {{Handle::top_left, box.topLeft()},
                             {Handle::top_right, box.topRight()},
                             {Handle::bottom_left, box.bottomLeft()},
                             {Handle::bottom_right, box.bottomRight()}});
  }
  return all;
}

std::optional<Drawing::Grip> Drawing::grip_at(QPointF at, double reach) const {
  if (is_of_points()) {
    // The nearest one, of equally near ones the one drawn last.
    std::optional<Grip> nearest;
    double least = reach;
    for (std::size_t i = 0; i < _points.size(); ++i) {
      const double away = distance(_points[i], at);
      if (away > least) continue;
      least = away;
      nearest = Grip{.item = static_cast<int>(i), .handle = Handle::inside};
    }
    return nearest;
  }
  if (_selected >= 0) {
    for (const auto& [handle, place] : handles(_boxes[static_cast<std::size_t>(_selected)])) {
      if (std::max(std::abs(place.x() - at.x()), std::abs(place.y() - at.y())) <= reach) {
        return Grip{.item = _selected, .handle = handle};
      }
    }
  }
  for (std::size_t i = _boxes.size(); i-- > 0;) {
    const QRectF& box = _boxes[i];
    const bool is_inside = _tool == Tool::circle ? distance(box.center(), at) <= box.width() / 2 : box.contains(at);
    if (is_inside) return Grip{.item = static_cast<int>(i), .handle = Handle::inside};
  }
  return std::nullopt;
}

void Drawing::begin_box(const QRectF& box) {
  _replaced.reset();
  if (has_one_item() && !_boxes.empty()) {
    _replaced = _boxes.front();
    _boxes.clear();
  }
  _boxes.push_back(box);
  _selected = static_cast<int>(_boxes.size()) - 1;
}

void Drawing::add_point(QPointF at) {
  if (has_one_item()) _points.clear();
  _points.push_back(middle_of_pixel(at));
  _selected = static_cast<int>(_points.size()) - 1;
}

void Drawing::press(QPointF at, double reach, bool wants_new) {
  _first_corner.reset();
  const std::optional<Grip> grip = wants_new ? std::nullopt : grip_at(at, reach);
  if (is_of_points()) {
    if (grip) {
      _selected = grip->item;
    } else {
      add_point(at);
    }
    _hold =
        Hold{.handle = Handle::inside, .from = at, .box = {}, .point = _points[static_cast<std::size_t>(_selected)]};
    return;
  }
  if (grip) {
    _selected = grip->item;
    _hold = Hold{.handle = grip->handle, .from = at, .box = _boxes[static_cast<std::size_t>(_selected)], .point = {}};
    return;
  }
  const QPointF corner = edge_near(at);
  begin_box({corner, corner});
  _hold = Hold{.handle = Handle::inside, .from = corner, .box = {}, .point = {}, .is_new = true};
}

void Drawing::drag_handle(QRectF& box, QPointF at) const {
  if (_tool == Tool::circle) {
    const bool is_across = moves_left(_hold->handle) || moves_right(_hold->handle);
    const QPointF centre = _hold->box.center();
    const double radius = std::round(is_across ? std::abs(at.x() - centre.x()) : std::abs(at.y() - centre.y()));
    box = circle_through(centre, centre + QPointF(std::max(1.0, radius), 0));
    return;
  }
  const QPointF edge = edge_near(at);
  QRectF dragged = _hold->box;
  if (moves_left(_hold->handle)) dragged.setLeft(edge.x());
  if (moves_right(_hold->handle)) dragged.setRight(edge.x());
  if (moves_top(_hold->handle)) dragged.setTop(edge.y());
  if (moves_bottom(_hold->handle)) dragged.setBottom(edge.y());
  dragged = dragged.normalized();
  if (!dragged.isEmpty()) box = dragged;  // a box never shrinks to nothing
}

void Drawing::move(QPointF at) {
  if (!_hold || _selected < 0) return;
  const auto item = static_cast<std::size_t>(_selected);
  if (is_of_points()) {
    _points[item] = middle_of_pixel(_hold->point + at - _hold->from);
  } else if (_hold->is_new) {
    _boxes[item] = between(_hold->from, edge_near(at));
  } else if (_hold->handle == Handle::inside) {
    _boxes[item] = shifted(_hold->box, at - _hold->from);
  } else {
    drag_handle(_boxes[item], at);
  }
}

void Drawing::release() {
  const std::optional<Hold> hold = std::exchange(_hold, std::nullopt);
  if (!hold || !hold->is_new || _selected < 0) return;
  if (!_boxes[static_cast<std::size_t>(_selected)].isEmpty()) return;
  remove(_selected);
  if (_replaced) begin_box(*std::exchange(_replaced, std::nullopt));
}

// ---- By keyboard ----------------------------------------------------------------------------------------------------

void Drawing::set_at(QPoint pixel) {
  if (is_of_points()) {
    add_point(QPointF(pixel) + QPointF(0.5, 0.5));
  } else if (_first_corner) {
    follow(pixel);
    _first_corner.reset();
  } else {
    begin_box({});
    _first_corner = pixel;
    follow(pixel);
  }
}

void Drawing::follow(QPoint pixel) {
  if (!_first_corner || _selected < 0) return;
  QRectF& box = _boxes[static_cast<std::size_t>(_selected)];
  if (_tool == Tool::circle) {
    const QPointF half(0.5, 0.5);
    const QRectF around = circle_through(QPointF(*_first_corner) + half, QPointF(pixel) + half);
    box = around.isEmpty() ? QRectF(*_first_corner, QSizeF(1, 1)) : around;
    return;
  }
  const QPoint upper_left(std::min(pixel.x(), _first_corner->x()), std::min(pixel.y(), _first_corner->y()));
  const QPoint lower_right(std::max(pixel.x(), _first_corner->x()), std::max(pixel.y(), _first_corner->y()));
  box = {QPointF(upper_left), QPointF(lower_right + QPoint(1, 1))};
}

void Drawing::select_next(int step) {
  const int count = static_cast<int>(is_of_points() ? _points.size() : _boxes.size());
  if (count == 0) return;
  _selected = (_selected + step + count) % count;
}

void Drawing::move_selected(QPoint by) {
  if (_selected < 0) return;
  const auto item = static_cast<std::size_t>(_selected);
  if (is_of_points()) {
    _points[item] = middle_of_pixel(_points[item] + QPointF(by));
  } else {
    _boxes[item] = shifted(_boxes[item], QPointF(by));
  }
}

void Drawing::resize_selected(QPoint by) {
  if (_selected < 0 || is_of_points()) return;
  QRectF& box = _boxes[static_cast<std::size_t>(_selected)];
  if (_tool == Tool::circle) {
    const double radius = std::max(1.0, std::round(box.width() / 2 + by.x() + by.y()));
    box = circle_through(box.center(), box.center() + QPointF(radius, 0));
    return;
  }
  box.setRight(std::clamp(box.right() + by.x(), box.left() + 1, double(_image.width())));
  box.setBottom(std::clamp(box.bottom() + by.y(), box.top() + 1, double(_image.height())));
}

void Drawing::remove(int item) {
  _hold.reset();
  _first_corner.reset();
  if (is_of_points()) {
    _points.erase(_points.begin() + item);
    _selected = static_cast<int>(_points.size()) - 1;
  } else {
    _boxes.erase(_boxes.begin() + item);
    _selected = static_cast<int>(_boxes.size()) - 1;
  }
}

void Drawing::remove_selected() {
  if (_selected >= 0) remove(_selected);
}

void Drawing::remove_last() {
  if (!is_empty()) remove(static_cast<int>(is_of_points() ? _points.size() : _boxes.size()) - 1);
}

// ---- What there is --------------------------------------------------------------------------------------------------

std::optional<controller::ViewerGeometry> Drawing::geometry() const {
  constexpr std::size_t fewest_corners = 3;
  if (is_empty() || (_tool == Tool::polygon && _points.size() < fewest_corners)) return std::nullopt;
  if (_hold && _hold->is_new) return std::nullopt;
  switch (_tool) {
    case Tool::pan_zoom:
      break;
    case Tool::rectangle:
    case Tool::circle:
      return viewer_rect(_boxes.front());
    case Tool::rects: {
      std::vector<controller::ViewerRect> rects;
      for (const QRectF& box : _boxes) rects.push_back(viewer_rect(box));
      return rects;
    }
    case Tool::point:
      return controller::ViewerPoint(_points.front().x(), _points.front().y());
    case Tool::points:
    case Tool::polygon: {
      std::vector<controller::ViewerPoint> corners;
      for (const QPointF& point : _points) corners.emplace_back(point.x(), point.y());
      return corners;
    }
  }
  return std::nullopt;
}

}  // namespace orvexa::ui::viewer

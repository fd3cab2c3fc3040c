#include "orvexa/ui/viewer/image_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvexa::ui::viewer {

namespace {

constexpr int rest_ms = 120;        // after this time without a movement the picture is smoothed
constexpr double handle_px = 4;     // half the side of a handle
constexpr double reach_px = 7;      // of a pointer, round handles and points
constexpr double divider_px = 5;    // the same round the divider
constexpr double pan_step_px = 60;  // of an arrow key
constexpr int far_step = 10;        // pixels of the image, of an arrow key with Shift
const double zoom_step = std::sqrt(2.0);
constexpr int wheel_notch = 120;         // in eighths of a degree, by the toolkit's definition
constexpr double notches_to_double = 4;  // of the wheel

/// Blue that is told from white and black round it, and from orange, by everybody.
const QColor item_color(0, 114, 178);
const QColor selected_color(230, 159, 0);

QLabel* floating_label(QWidget* parent, const char* name) {
  auto* label = new QLabel(parent);
  label->setObjectName(name);
  label->setAttribute(Qt::WA_TransparentForMouseEvents);
  label->setAutoFillBackground(true);
  label->setBackgroundRole(QPalette::ToolTipBase);
  label->setForegroundRole(QPalette::ToolTipText);
  label->setContentsMargins(8, 4, 8, 4);
  label->setTextFormat(Qt::PlainText);
  label->hide();
  return label;
}

}  // namespace

ImageView::ImageView(Mailbox::Address mailbox, QWidget* parent)
    : QWidget(parent),
      _tiles(std::move(mailbox)),
      _hint(floating_label(this, "viewer_hint")),
      _working(floating_label(this, "viewer_working")),
      _empty(new QLabel(tr("No image is shown.\nOpen a capture and choose one of its images."), this)) {
  setObjectName("image_view");
  setAccessibleName(tr("Image"));
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setAttribute(Qt::WA_OpaquePaintEvent);
  _empty->setObjectName("viewer_empty");
  _empty->setAlignment(Qt::AlignCenter);
  _empty->setAttribute(Qt::WA_TransparentForMouseEvents);
  _hint->setWordWrap(true);
  _working->setText(tr("Working…"));
  _rest.setSingleShot(true);
  _rest.setInterval(rest_ms);
  connect(&_rest, &QTimer::timeout, this, [this] { update(); });
  connect(&_tiles, &TileStore::changed, this, [this] { update(); });
  connect(&_tiles, &TileStore::range_found, this, &ImageView::range_found);
  update_labels();
  update_cursor();
}

QSize ImageView::sizeHint() const {
  return {640, 480};
}

QSize ImageView::minimumSizeHint() const {
  return {160, 120};
}

// ---- What is shown --------------------------------------------------------------------------------------------------

QSize ImageView::image_size() const {
  if (!_picture) return {};
  const model::Shape shape = _picture->entry->shape();
  return {shape.width, shape.height};
}

void ImageView::show_picture(const std::shared_ptr<const Picture>& picture) {
  const QSize before = image_size();
  _picture = picture;
  _tiles.show_picture(picture);
  if (image_size() != before) {
    if (is_drawing()) _drawing.begin(_drawing.tool(), image_size());
    if (_cross_hair) set_cross_hair(false);
    _drag = Drag::none;
    if (_picture) fit();
  }
  want_tiles();
  update_labels();
  point_at(_pointer);
}

void ImageView::show_overlay(const std::shared_ptr<const MaskOverlay>& overlay) {
  _tiles.show_overlay(overlay);
}

void ImageView::set_overlay_visible(bool is_visible) {
  if (is_visible == _is_overlay_visible) return;
  _is_overlay_visible = is_visible;
  want_tiles();
  update();
}

void ImageView::set_split(bool is_split) {
  if (is_split == _is_split) return;
  _is_split = is_split;
  want_tiles();
  update();
}

void ImageView::set_working(bool is_working) {
  _working->setVisible(is_working);
  place_labels();
}

// ---- Where it is shown ----------------------------------------------------------------------------------------------

void ImageView::set_view(const ViewTransform& view) {
  _is_fitted = false;
  move_view(view);
}

void ImageView::move_view(const ViewTransform& view) {
  if (!_picture) return;
  const double scale_before = _view.scale;
  _view = view.kept_in_view(image_size(), size());
  _rest.start();
  want_tiles();
  update();
  if (_view.scale != scale_before) Q_EMIT zoom_changed(_view.scale * devicePixelRatioF());
  point_at(_pointer);
}

void ImageView::fit() {
  if (!_picture) return;
  move_view(ViewTransform::fitting(image_size(), size()));
  _is_fitted = true;
  Q_EMIT zoom_changed(_view.scale * devicePixelRatioF());
}

void ImageView::show_pixel_by_pixel() {
  // A pixel of the image is one of the screen, and lies on it.
  ViewTransform view = _view.scaled(1 / devicePixelRatioF(), zoom_anchor());
  view.origin = {std::round(view.origin.x()), std::round(view.origin.y())};
  set_view(view);
}

QPointF ImageView::zoom_anchor() const {
  if (_cross_hair) return _view.to_view(QPointF(*_cross_hair) + QPointF(0.5, 0.5));
  return _pointer.value_or(QPointF(width() / 2.0, height() / 2.0));
}

void ImageView::zoom_by(double factor, QPointF anchor) {
  set_view(_view.scaled(_view.scale * factor, anchor));
}

void ImageView::zoom_in() {
  zoom_by(zoom_step, zoom_anchor());
}

void ImageView::zoom_out() {
  zoom_by(1 / zoom_step, zoom_anchor());
}

void ImageView::want_tiles() {
  TileStore::Visible visible;
  if (_picture) {
    const model::Shape image = _picture->entry->shape();
    const double screen_scale = _view.scale * devicePixelRatioF();
    // The finest level whose pixels are no smaller than half a pixel of the screen.
    visible.level = std::clamp(static_cast<int>(std::floor(std::log2(1 / screen_scale) + 1e-9)), 0, top_level(image));
    const model::Shape level = level_shape(image, visible.level);
    const double tile_px = std::ldexp(_view.scale, visible.level) * tile_side;
    const auto tile_at = [tile_px](double in_view, double origin) {
      return static_cast<int>(std::floor((in_view - origin) / tile_px));
    };
    const QRect all(0, 0, (level.width + tile_side - 1) / tile_side, (level.height + tile_side - 1) / tile_side);
    visible.tiles = all & QRect(QPoint(tile_at(0, _view.origin.x()), tile_at(0, _view.origin.y())),
                                QPoint(tile_at(width(), _view.origin.x()), tile_at(height(), _view.origin.y())));
  }
  visible.is_plain_seen = _is_split || !_is_overlay_visible;
  visible.is_overlaid_seen = _is_split || _is_overlay_visible;
  _tiles.want(visible);
}

void ImageView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  _empty->setGeometry(rect());
  place_labels();
  if (!_picture) return;
  if (_is_fitted) {
    fit();
  } else {
    // What was in the middle stays there.
    const QSize before = event->oldSize().isValid() ? event->oldSize() : event->size();
    ViewTransform view = _view;
    view.origin += QPointF(width() - before.width(), height() - before.height()) / 2;
    move_view(view);
  }
}

// ---- Labels ---------------------------------------------------------------------------------------------------------

QString ImageView::hint() const {
  switch (_drawing.tool()) {
    case Tool::pan_zoom:
      return {};
    case Tool::rectangle:
      return _lacks_drawing ? tr("There is no rectangle yet. Drag one; Enter accepts, Escape cancels")
                            : tr("Drag a rectangle; Enter accepts, Escape cancels");
    case Tool::rects:
      return _lacks_drawing ? tr("There is no rectangle yet. Drag one or more; Enter accepts, Escape cancels")
                            : tr("Drag rectangles (with Shift inside another one); Enter accepts, Escape cancels");
    case Tool::circle:
      return _lacks_drawing ? tr("There is no circle yet. Drag from its centre; Enter accepts, Escape cancels")
                            : tr("Drag a circle from its centre; Enter accepts, Escape cancels");
    case Tool::point:
      return _lacks_drawing ? tr("There is no point yet. Click one; Enter accepts, Escape cancels")
                            : tr("Click a point; Enter accepts, Escape cancels");
    case Tool::points:
      return _lacks_drawing ? tr("There is no point yet. Click one or more; Enter accepts, Escape cancels")
                            : tr("Click points; Enter accepts, Escape cancels");
    case Tool::polygon:
      break;
  }
  return _lacks_drawing ? tr("A polygon has at least three corners. Click more; Enter accepts, Escape cancels")
                        : tr("Click the corners of a polygon; Enter accepts, Escape cancels");
}

void ImageView::update_labels() {
  _empty->setVisible(!_picture);
  const QString first_line = hint();
  _hint->setVisible(is_drawing());
  if (is_drawing()) {
    _hint->setText(first_line + "\n" +
                   (_drawing.is_of_points()
                        ? tr("Keys: arrows move the cross-hair, Space sets a point, Ctrl+arrows move the selected one, "
                             "Delete removes it, Backspace the last")
                        : tr("Keys: arrows move the cross-hair, Space sets a corner, Ctrl+arrows move, Alt+arrows "
                             "resize, Delete removes the selected one, Backspace the last")));
  }
  setAccessibleDescription(first_line);
  place_labels();
}

void ImageView::place_labels() {
  constexpr int margin = 8;
  const int room = std::max(1, width() - 2 * margin);
  if (_hint->isVisibleTo(this)) {
    const int one_line = _hint->fontMetrics().size(0, _hint->text()).width() + 18;
    const int label_width = std::min(room, one_line);
    _hint->setGeometry(margin, margin, label_width, _hint->heightForWidth(label_width));
  }
  if (_working->isVisibleTo(this)) {
    _working->adjustSize();
    _working->move(width() - margin - _working->width(), height() - margin - _working->height());
  }
}

void ImageView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) place_labels();
}

// ---- Pointer --------------------------------------------------------------------------------------------------------

double ImageView::reach() const {
  return reach_px / _view.scale;
}

int ImageView::divider_x() const {
  return static_cast<int>(std::lround(_divider * width()));
}

bool ImageView::is_on_divider(QPointF in_view) const {
  return _is_split && !is_drawing() && std::abs(in_view.x() - divider_x()) <= divider_px;
}

void ImageView::move_divider(double x) {
  _divider = std::clamp(x / std::max(1, width()), 0.0, 1.0);
  update();
}

void ImageView::point_at(std::optional<QPointF> in_view) {
  _pointer = in_view;
  if (!_picture) {
    Q_EMIT pointed_at({-1, -1});
  } else if (_pointer) {
    Q_EMIT pointed_at(pixel_at(_view.to_image(*_pointer)));
  } else {
    Q_EMIT pointed_at(_cross_hair.value_or(QPoint(-1, -1)));
  }
}

void ImageView::update_cursor() {
  if (_drag == Drag::pan) return setCursor(Qt::ClosedHandCursor);
  if (_drag == Drag::divider || (_pointer && is_on_divider(*_pointer))) return setCursor(Qt::SplitHCursor);
  if (!is_drawing()) return setCursor(_has_pick_cursor ? Qt::CrossCursor : Qt::OpenHandCursor);
  const auto grip = _pointer ? _drawing.grip_at(_view.to_image(*_pointer), reach()) : std::nullopt;
  if (!grip) return setCursor(Qt::CrossCursor);
  switch (grip->handle) {
    case Drawing::Handle::inside:
      return setCursor(Qt::SizeAllCursor);
    case Drawing::Handle::left:
    case Drawing::Handle::right:
      return setCursor(Qt::SizeHorCursor);
    case Drawing::Handle::top:
    case Drawing::Handle::bottom:
      return setCursor(Qt::SizeVerCursor);
    case Drawing::Handle::top_left:
    case Drawing::Handle::bottom_right:
      return setCursor(Qt::SizeFDiagCursor);
    case Drawing::Handle::top_right:
    case Drawing::Handle::bottom_left:
      return setCursor(Qt::SizeBDiagCursor);
  }
}

void ImageView::wheelEvent(QWheelEvent* event) {
  event->accept();
  if (!_picture || event->angleDelta().y() == 0) return;
  _pointer = event->position();
  zoom_by(std::exp2(event->angleDelta().y() / (wheel_notch * notches_to_double)), event->position());
}

void ImageView::mousePressEvent(QMouseEvent* event) {
  if (!_picture || _drag != Drag::none) return;
  if (event->button() == Qt::LeftButton && is_on_divider(event->position())) {
    _drag = Drag::divider;
  } else if (event->button() == Qt::LeftButton && is_drawing()) {
    _drag = Drag::draw;
    _lacks_drawing = false;
    _drawing.press(_view.to_image(event->position()), reach(), event->modifiers().testFlag(Qt::ShiftModifier));
    update_labels();
    update();
  } else if (event->button() == Qt::LeftButton || event->button() == Qt::MiddleButton) {
    _drag = Drag::pan;
    _drag_from = event->position();
    _view_before_drag = _view;
  } else {
    return;
  }
  update_cursor();
}

void ImageView::mouseMoveEvent(QMouseEvent* event) {
  _pointer = event->position();
  switch (_drag) {
    case Drag::none:
      break;
    case Drag::pan: {
      ViewTransform view = _view_before_drag;
      view.origin += event->position() - _drag_from;
      set_view(view);
      break;
    }
    case Drag::divider:
      move_divider(event->position().x());
      break;
    case Drag::draw:
      _drawing.move(_view.to_image(event->position()));
      update();
      break;
  }
  point_at(event->position());
  update_cursor();
}

void ImageView::mouseReleaseEvent(QMouseEvent* event) {
  const bool ends = event->button() == Qt::LeftButton || (event->button() == Qt::MiddleButton && _drag == Drag::pan);
  if (!ends) return;
  if (_drag == Drag::draw) {
    _drawing.release();
    update();
  }
  _drag = Drag::none;
  update_cursor();
}

void ImageView::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton && is_drawing()) {
    accept_drawing();
  } else {
    mousePressEvent(event);
  }
}

void ImageView::leaveEvent(QEvent* event) {
  QWidget::leaveEvent(event);
  if (_drag == Drag::none) point_at(std::nullopt);
}

// ---- Keyboard -------------------------------------------------------------------------------------------------------

void ImageView::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  update();
}

void ImageView::focusOutEvent(QFocusEvent* event) {
  QWidget::focusOutEvent(event);
  update();
}

void ImageView::keyPressEvent(QKeyEvent* event) {
  if (!_picture) {
    // Whoever was asked to draw without a picture must still get away.
    if (event->key() == Qt::Key_Escape && is_drawing()) return drop_drawing();
    return QWidget::keyPressEvent(event);
  }
  switch (event->key()) {
    case Qt::Key_Left:
      if (handle_arrow({-1, 0}, event->modifiers())) return;
      break;
    case Qt::Key_Right:
      if (handle_arrow({1, 0}, event->modifiers())) return;
      break;
    case Qt::Key_Up:
      if (handle_arrow({0, -1}, event->modifiers())) return;
      break;
    case Qt::Key_Down:
      if (handle_arrow({0, 1}, event->modifiers())) return;
      break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
      return zoom_in();
    case Qt::Key_Minus:
      return zoom_out();
    case Qt::Key_F:
      return fit();
    case Qt::Key_1:
      return show_pixel_by_pixel();
    default:
      break;
  }
  if (is_drawing() && handle_drawing_key(*event)) return;
  if (event->key() == Qt::Key_Escape && _cross_hair) return set_cross_hair(false);
  QWidget::keyPressEvent(event);
}

bool ImageView::handle_arrow(QPoint step, Qt::KeyboardModifiers modifiers) {
  const QPoint by = modifiers.testFlag(Qt::ShiftModifier) ? step * far_step : step;
  if (is_drawing() && modifiers.testFlag(Qt::ControlModifier)) {
    _drawing.move_selected(by);
  } else if (is_drawing() && modifiers.testFlag(Qt::AltModifier)) {
    _drawing.resize_selected(by);
  } else if (_is_split && modifiers.testFlag(Qt::ControlModifier)) {
    move_divider(divider_x() + by.x());
  } else if (is_drawing() || _cross_hair) {
    move_cross_hair(by);
  } else {
    ViewTransform view = _view;
    view.origin -= QPointF(step) * (modifiers.testFlag(Qt::ShiftModifier) ? 4 * pan_step_px : pan_step_px);
    set_view(view);
  }
  update();
  return true;
}

bool ImageView::handle_drawing_key(const QKeyEvent& event) {
  switch (event.key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
      accept_drawing();
      return true;
    case Qt::Key_Escape:
      drop_drawing();
      return true;
    case Qt::Key_Space:
      if (!_cross_hair) set_cross_hair(true);
      _lacks_drawing = false;
      _drawing.set_at(*_cross_hair);
      break;
    case Qt::Key_Delete:
      _drawing.remove_selected();
      break;
    case Qt::Key_Backspace:
      _drawing.remove_last();
      break;
    case Qt::Key_PageDown:
      _drawing.select_next(1);
      break;
    case Qt::Key_PageUp:
      _drawing.select_next(-1);
      break;
    default:
      return false;
  }
  update_labels();
  update();
  return true;
}

void ImageView::set_cross_hair(bool is_shown) {
  if (is_shown == _cross_hair.has_value() || (is_shown && !_picture)) return;
  if (is_shown) {
    const QPoint middle = pixel_at(_view.to_image(QPointF(width() / 2.0, height() / 2.0)));
    _cross_hair = QPoint(std::clamp(middle.x(), 0, image_size().width() - 1),
                         std::clamp(middle.y(), 0, image_size().height() - 1));
  } else {
    _cross_hair.reset();
  }
  Q_EMIT cross_hair_toggled(is_shown);
  point_at(is_shown ? std::nullopt : _pointer);
  update();
}

void ImageView::move_cross_hair(QPoint by) {
  // The first key shows where it is, in the middle of what is seen.
  if (!_cross_hair) {
    set_cross_hair(true);
  } else {
    const QPoint moved = *_cross_hair + by;
    _cross_hair =
        QPoint(std::clamp(moved.x(), 0, image_size().width() - 1), std::clamp(moved.y(), 0, image_size().height() - 1));
  }
  _drawing.follow(*_cross_hair);
  ensure_seen(*_cross_hair);
  point_at(std::nullopt);
}

void ImageView::ensure_seen(QPoint pixel) {
  constexpr double margin = 16;
  const QPointF at = _view.to_view(QPointF(pixel) + QPointF(0.5, 0.5));
  const auto correction = [margin](double place, double room) {
    const double kept = std::min(margin, room / 2);
    return std::clamp(place, kept, room - kept) - place;
  };
  const QPointF by(correction(at.x(), width()), correction(at.y(), height()));
  if (by.isNull()) return;
  ViewTransform view = _view;
  view.origin += by;
  set_view(view);
}

// ---- Picking --------------------------------------------------------------------------------------------------------

void ImageView::set_active_tool(const std::string& name) {
  const std::optional<Tool> tool = tool_of_name(name);
  if (!tool) throw std::invalid_argument("The image viewer has no tool \"" + name + "\".");
  _drag = Drag::none;
  _lacks_drawing = false;
  _drawing.begin(*tool, image_size());
  if (_cross_hair) set_cross_hair(false);
  update_labels();
  update_cursor();
  update();
}

void ImageView::set_pick_cursor() {
  _has_pick_cursor = true;
  update_cursor();
}

void ImageView::restore_cursor() {
  _has_pick_cursor = false;
  update_cursor();
}

void ImageView::clear_all_rois() {
  _drag = Drag::none;
  _drawing.begin(_drawing.tool(), image_size());
  update();
}

void ImageView::setFocus() {
  QWidget::setFocus(Qt::OtherFocusReason);
}

void ImageView::accept_drawing() {
  _drag = Drag::none;
  _drawing.release();
  const auto geometry = _drawing.geometry();
  if (geometry) {
    Q_EMIT accepted(*geometry);
    return;
  }
  _lacks_drawing = true;
  update_labels();
}

void ImageView::drop_drawing() {
  _drag = Drag::none;
  Q_EMIT cancelled();
}

// ---- Painting -------------------------------------------------------------------------------------------------------

void ImageView::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  const QRect clip = event->rect();
  painter.fillRect(clip, palette().color(QPalette::Dark));
  if (_picture) {
    const bool is_shrunk = _view.scale < 1;
    painter.setRenderHint(QPainter::SmoothPixmapTransform, is_shrunk && !_rest.isActive());
    if (_is_split) {
      const QRect left(0, 0, divider_x(), height());
      const QRect right(divider_x(), 0, width() - divider_x(), height());
      painter.setClipRect(left);
      _tiles.draw(painter, _view, left & clip, Layer::plain);
      painter.setClipRect(right);
      _tiles.draw(painter, _view, right & clip, Layer::overlaid);
      painter.setClipping(false);
      paint_divider(painter);
    } else {
      _tiles.draw(painter, _view, clip, _is_overlay_visible ? Layer::overlaid : Layer::plain);
    }
    paint_drawing(painter);
    paint_cross_hair(painter);
  }
  if (hasFocus()) {
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(rect().adjusted(1, 1, -1, -1));
  }
}

void ImageView::paint_divider(QPainter& painter) const {
  const int x = divider_x();
  painter.fillRect(x - 1, 0, 3, height(), Qt::black);
  painter.fillRect(x, 0, 1, height(), Qt::white);
  constexpr int grip_height = 36;
  const QRect grip(x - 4, (height() - grip_height) / 2, 9, grip_height);
  painter.fillRect(grip, Qt::black);
  painter.fillRect(grip.adjusted(1, 1, -1, -1), Qt::white);
}

void ImageView::paint_item(QPainter& painter, const QPainterPath& path, bool is_selected) const {
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(Qt::white, is_selected ? 5 : 4));
  painter.drawPath(path);
  painter.setPen(QPen(is_selected ? selected_color : item_color, is_selected ? 3 : 2));
  painter.drawPath(path);
}

void ImageView::paint_number(QPainter& painter, QPointF at, int number) const {
  const QString text = QString::number(number);
  QFont bold = font();
  bold.setBold(true);
  painter.setFont(bold);
  const QSizeF room = QSizeF(painter.fontMetrics().size(0, text)) + QSizeF(8, 2);
  const QRectF box(at + QPointF(7, 7), room);
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette().color(QPalette::ToolTipBase));
  painter.drawRoundedRect(box, 3, 3);
  painter.setPen(palette().color(QPalette::ToolTipText));
  painter.drawText(box, Qt::AlignCenter, text);
}

void ImageView::paint_drawing(QPainter& painter) const {
  if (_drawing.is_empty()) return;
  painter.setRenderHint(QPainter::Antialiasing);
  const Tool tool = _drawing.tool();
  if (tool == Tool::polygon) {
    QPolygonF corners;
    for (const QPointF& point : _drawing.points()) corners << _view.to_view(point);
    QPainterPath path;
    path.addPolygon(corners);
    if (corners.size() > 2) path.closeSubpath();
    paint_item(painter, path, false);
  }
  const auto selected = static_cast<std::size_t>(_drawing.selected());
  for (std::size_t i = 0; i < _drawing.boxes().size(); ++i) {
    const QRectF& box = _drawing.boxes()[i];
    const QRectF in_view(_view.to_view(box.topLeft()), _view.to_view(box.bottomRight()));
    QPainterPath path;
    if (tool == Tool::circle) {
      path.addEllipse(in_view);
    } else {
      path.addRect(in_view);
    }
    paint_item(painter, path, i == selected);
    if (tool == Tool::rects) paint_number(painter, in_view.topLeft(), _pick_existing_count + static_cast<int>(i) + 1);
    if (i != selected) continue;
    painter.setPen(QPen(Qt::black, 1));
    painter.setBrush(Qt::white);
    for (const auto& [handle, place] : _drawing.handles(box)) {
      const QPointF at = _view.to_view(place);
      painter.drawRect(QRectF(at - QPointF(handle_px, handle_px), at + QPointF(handle_px, handle_px)));
    }
  }
  for (std::size_t i = 0; i < _drawing.points().size(); ++i) {
    constexpr double radius = 6;
    const QPointF at = _view.to_view(_drawing.points()[i]);
    QPainterPath path;
    path.addEllipse(at, radius, radius);
    path.moveTo(at - QPointF(radius + 4, 0));
    path.lineTo(at + QPointF(radius + 4, 0));
    path.moveTo(at - QPointF(0, radius + 4));
    path.lineTo(at + QPointF(0, radius + 4));
    paint_item(painter, path, i == selected);
    if (tool != Tool::point) {
      const int first = tool == Tool::points ? _pick_existing_count + 1 : 1;
      paint_number(painter, at, first + static_cast<int>(i));
    }
  }
  painter.setRenderHint(QPainter::Antialiasing, false);
}

void ImageView::paint_cross_hair(QPainter& painter) const {
  if (!_cross_hair) return;
  const QPointF upper_left = _view.to_view(QPointF(*_cross_hair));
  const QPointF middle = _view.to_view(QPointF(*_cross_hair) + QPointF(0.5, 0.5));
  const int x = static_cast<int>(std::floor(middle.x()));
  const int y = static_cast<int>(std::floor(middle.y()));
  // The pixel itself is left free where it is large enough to be seen.
  const int gap = std::max(6, static_cast<int>(std::ceil(middle.x() - upper_left.x())) + 2);
  for (const auto& [color, extent] : {std::pair(Qt::black, 1), std::pair(Qt::white, 0)}) {
    const int thick = 1 + 2 * extent;
    painter.fillRect(0, y - extent, x - gap, thick, color);
    painter.fillRect(x + gap, y - extent, width() - x - gap, thick, color);
    painter.fillRect(x - extent, 0, thick, y - gap, color);
    painter.fillRect(x - extent, y + gap, thick, height() - y - gap, color);
  }
}

}  // namespace orvexa::ui::viewer

#include "orvexa/ui/plots/histogram_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <utility>

namespace orvexa::ui {

namespace {

constexpr double handle_px = 6;  ///< half the width of a handle
constexpr double reach_px = 9;   ///< how near the pointer must be to take one

QString short_text(double value) {
  return QString::number(value, 'g', 4);
}

QColor blended(const QColor& a, const QColor& b, double share_of_b) {
  const auto mix = [share_of_b](int from, int to) {
    return static_cast<int>(std::lround(from + (to - from) * share_of_b));
  };
  return {mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue())};
}

/// 1, 2 or 5 times a power of ten, so that about `count` of them fit.
double round_step(double span, int count) {
  const double raw = span / count;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (raw <= factor * power) return factor * power;
  }
  return 10 * power;
}

}  // namespace

HistogramView::HistogramView(QWidget* parent) : QWidget(parent) {
  setObjectName("histogram");
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setAccessibleName(tr("Histogram with limits"));
  setToolTip(
      tr("Drag the limits, or move the chosen one with the left and right arrow keys (with Shift in larger steps); up "
         "and down choose a limit. The wheel, + and - zoom, 0 shows all."));
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void HistogramView::set_data(std::optional<HistogramData> data, const QString& reason) {
  const bool is_same_axis = data && _data && data->name == _data->name && data->first == _data->first &&
                            data->step == _data->step && data->whole.size() == _data->whole.size();
  _data = std::move(data);
  _reason = reason;
  if (!is_same_axis) show_all();
  describe();
  update();
}

void HistogramView::set_limits(std::vector<Limit> limits, Kept kept) {
  _limits = std::move(limits);
  _kept = kept;
  _chosen = std::min(_chosen, _limits.empty() ? 0 : _limits.size() - 1);
  describe();
  update();
}

void HistogramView::set_logarithmic(bool is_logarithmic) {
  _is_logarithmic = is_logarithmic;
  update();
}

void HistogramView::show_all() {
  if (!_data) return;
  const double margin = 0.03 * (_data->last() - _data->first);
  _from = _data->first - margin;
  _to = _data->last() + margin;
  update();
}

void HistogramView::describe() {
  QStringList texts;
  for (std::size_t i = 0; i < _limits.size(); ++i) {
    const Limit& limit = _limits[i];
    const QString value = limit.value ? short_text(*limit.value) : tr("no value");
    texts << (i == _chosen ? tr("%1: %2 (chosen)") : tr("%1: %2")).arg(limit.name, value);
  }
  setAccessibleDescription(_data ? texts.join(", ") : _reason);
}

// ---- Geometry -------------------------------------------------------------------------------------------------------

QRectF HistogramView::plot_area() const {
  const double line = fontMetrics().lineSpacing();
  return {8, line + 6, std::max(1.0, width() - 16.0), std::max(1.0, height() - 2 * line - 6 - 2 * handle_px - 6)};
}

double HistogramView::x_of(double value) const {
  const QRectF area = plot_area();
  const double x = area.left() + (value - _from) / (_to - _from) * area.width();
  return std::clamp(x, area.left(), area.right());
}

double HistogramView::value_at(double x) const {
  const QRectF area = plot_area();
  return _from + (x - area.left()) / area.width() * (_to - _from);
}

double HistogramView::handle_x(std::size_t limit) const {
  if (_limits[limit].value) return x_of(*_limits[limit].value);
  return limit == 0 ? plot_area().left() : plot_area().right();
}

// ---- Moving ---------------------------------------------------------------------------------------------------------

void HistogramView::move_to(std::size_t limit, double value) {
  if (!_data || limit >= _limits.size()) return;
  double moved = _data->snapped(value);
  if (limit == 0 && _limits.size() > 1 && _limits[1].value) moved = std::min(moved, *_limits[1].value);
  if (limit == 1 && _limits[0].value) moved = std::max(moved, *_limits[0].value);
  if (_limits[limit].value == moved) return;
  _limits[limit].value = moved;
  describe();
  update();
  Q_EMIT limit_moved(static_cast<int>(limit), moved);
}

void HistogramView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !_data || _limits.empty()) return;
  const double x = event->position().x();
  std::size_t nearest = 0;
  if (_limits.size() > 1) {
    const double to_low = std::abs(x - handle_x(0));
    const double to_high = std::abs(x - handle_x(1));
    // Of two in one place the one on whose side the pointer is.
    nearest = to_high < to_low || (to_high == to_low && x > handle_x(1)) ? 1 : 0;
  }
  _chosen = nearest;
  _is_dragging = true;
  const double away = handle_x(nearest) - x;
  _grip = std::abs(away) <= reach_px ? away : 0;
  if (_grip == 0 && std::abs(away) > 0) move_to(_chosen, value_at(x));
  describe();
  update();
}

void HistogramView::mouseMoveEvent(QMouseEvent* event) {
  if (_is_dragging) {
    move_to(_chosen, value_at(event->position().x() + _grip));
    return;
  }
  bool is_near = false;
  for (std::size_t i = 0; i < _limits.size(); ++i) {
    is_near = is_near || std::abs(event->position().x() - handle_x(i)) <= reach_px;
  }
  setCursor(_data && is_near ? Qt::SplitHCursor : Qt::ArrowCursor);
}

void HistogramView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) _is_dragging = false;
}

void HistogramView::mouseDoubleClickEvent(QMouseEvent*) {
  show_all();
}

void HistogramView::wheelEvent(QWheelEvent* event) {
  if (!_data || !hasFocus()) {
    event->ignore();  // the wheel scrolls the form unless the histogram was chosen
    return;
  }
  zoom(std::pow(0.8, event->angleDelta().y() / 120.0), value_at(event->position().x()));
  event->accept();
}

void HistogramView::zoom(double factor, double around) {
  if (!_data) return;
  const double span = _data->last() - _data->first;
  if (factor > 1 && (_to - _from) * factor >= 1.06 * span) {
    show_all();
    return;
  }
  if ((_to - _from) * factor < 4 * _data->step) return;
  _from = around + (_from - around) * factor;
  _to = around + (_to - around) * factor;
  update();
}

bool HistogramView::event(QEvent* event) {
  // The arrow keys and digits are the histogram's while it has the focus, whoever has them for a shortcut.
  if (event->type() == QEvent::ShortcutOverride) {
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool is_plain = (key->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier)) == 0;
    static constexpr std::array ours{Qt::Key_Left, Qt::Key_Right, Qt::Key_Up,    Qt::Key_Down, Qt::Key_Home,
                                     Qt::Key_End,  Qt::Key_Plus,  Qt::Key_Minus, Qt::Key_0};
    if (is_plain && std::find(ours.begin(), ours.end(), key->key()) != ours.end()) {
      event->accept();
      return true;
    }
  }
  return QWidget::event(event);
}

void HistogramView::keyPressEvent(QKeyEvent* event) {
  if (!_data || _limits.empty()) {
    QWidget::keyPressEvent(event);
    return;
  }
  const double end_value = _chosen == 0 ? _data->first : _data->last();
  const double value = _limits[_chosen].value.value_or(end_value);
  // One count, or about a pixel of what is shown.
  const double step = std::max(_data->is_of_counts ? _data->step : 0.0, (_to - _from) / 400);
  const double steps = (event->modifiers() & Qt::ShiftModifier) != 0 ? 10 : 1;
  switch (event->key()) {
    case Qt::Key_Left:
      return move_to(_chosen, value - steps * step);
    case Qt::Key_Right:
      return move_to(_chosen, value + steps * step);
    case Qt::Key_Home:
      return move_to(_chosen, _data->first);
    case Qt::Key_End:
      return move_to(_chosen, _data->last());
    case Qt::Key_Up:
    case Qt::Key_Down:
      _chosen = event->key() == Qt::Key_Up ? _limits.size() - 1 : 0;
      describe();
      return update();
    case Qt::Key_Plus:
      return zoom(0.8, value);
    case Qt::Key_Minus:
      return zoom(1.25, value);
    case Qt::Key_0:
      return show_all();
    default:
      QWidget::keyPressEvent(event);
  }
}

// ---- Painting -------------------------------------------------------------------------------------------------------

void HistogramView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillRect(rect(), palette().base());
  painter.setPen(QPen(hasFocus() ? palette().highlight().color() : palette().mid().color(), hasFocus() ? 2 : 1));
  painter.drawRect(rect().adjusted(0, 0, -1, -1));
  if (!_data) {
    painter.setPen(palette().text().color());
    painter.drawText(rect().adjusted(8, 4, -8, -4), Qt::AlignCenter | Qt::TextWordWrap,
                     _reason.isEmpty() ? tr("Counting...") : _reason);
    return;
  }
  const QRectF area = plot_area();
  const QColor base = palette().base().color();
  const QColor text = palette().text().color();
  const double highest = static_cast<double>(*std::max_element(_data->whole.begin(), _data->whole.end()));
  draw_bars(painter, area, _data->whole, highest, blended(base, text, 0.3));
  if (_data->inside != _data->whole) {
    draw_bars(painter, area, _data->inside, highest, palette().highlight().color());
  }
  draw_kept(painter, area);
  draw_axis(painter, area);
  for (std::size_t i = 0; i < _limits.size(); ++i) {
    if (i != _chosen) draw_limit(painter, area, i);
  }
  if (!_limits.empty()) draw_limit(painter, area, _chosen);

  // The legend above the plot: what is counted, and the two kinds of bars where there are two.
  painter.setPen(text);
  const QRectF legend(area.left(), 3, area.width(), fontMetrics().lineSpacing());
  const QString name = QString::fromStdString(_data->name);
  painter.drawText(legend, Qt::AlignLeft | Qt::AlignVCenter, name);
  if (_data->inside == _data->whole) return;
  const QString inside = tr("in the mask so far");
  const QString whole = tr("whole image");
  const double box = fontMetrics().ascent() * 0.8;
  double x = area.right();
  for (const auto& [label, colour] :
       {std::pair(whole, blended(base, text, 0.3)), std::pair(inside, palette().highlight().color())}) {
    x -= fontMetrics().horizontalAdvance(label);
    painter.drawText(QPointF(x, 3 + fontMetrics().ascent()), label);
    x -= box + 4;
    painter.fillRect(QRectF(x, 3 + fontMetrics().ascent() - box, box, box), colour);
    x -= 8;
  }
}

void HistogramView::draw_bars(QPainter& painter, const QRectF& area, const std::vector<std::int64_t>& bins,
                              double highest, const QColor& colour) const {
  if (highest <= 0) return;
  const auto height_of = [&](std::int64_t count) {
    if (count == 0) return 0.0;
    const auto number = static_cast<double>(count);
    const double share = _is_logarithmic ? std::log1p(number) / std::log1p(highest) : number / highest;
    return std::max(1.0, share * area.height());  // what is there can be seen
  };
  painter.setPen(Qt::NoPen);
  painter.setBrush(colour);
  painter.setRenderHint(QPainter::Antialiasing, false);
  const double px_of_bin = _data->step / (_to - _from) * area.width();
  const auto bin_at = [&](double value) {
    return std::clamp((value - _data->first) / _data->step, 0.0, static_cast<double>(bins.size()));
  };
  if (px_of_bin >= 1) {
    const auto end = static_cast<std::size_t>(std::ceil(bin_at(_to)));
    for (auto i = static_cast<std::size_t>(bin_at(_from)); i < end; ++i) {
      const double height = height_of(bins[i]);
      const double left = x_of(_data->first + _data->step * static_cast<double>(i));
      const double right = x_of(_data->first + _data->step * static_cast<double>(i + 1));
      if (height > 0) painter.drawRect(QRectF(left, area.bottom() - height, std::max(1.0, right - left), height));
    }
  } else {
    // The highest bin of each column of pixels: peaks stay, whatever the width.
    for (int column = 0; column < static_cast<int>(area.width()); ++column) {
      const auto begin = static_cast<std::size_t>(bin_at(value_at(area.left() + column)));
      const auto end = std::max(static_cast<std::size_t>(bin_at(value_at(area.left() + column + 1))),
                                std::min(begin + 1, bins.size()));
      std::int64_t count = 0;
      for (std::size_t i = begin; i < end; ++i) count = std::max(count, bins[i]);
      const double height = height_of(count);
      if (height > 0) painter.drawRect(QRectF(area.left() + column, area.bottom() - height, 1, height));
    }
  }
  painter.setRenderHint(QPainter::Antialiasing);
}

void HistogramView::draw_kept(QPainter& painter, const QRectF& area) const {
  if (_kept == Kept::unknown || _limits.size() < 2) return;
  // What is not kept lies behind a veil of the background's colour.
  QColor veil = palette().base().color();
  veil.setAlpha(170);
  const double low = handle_x(0);
  const double high = _kept == Kept::above_low ? area.right() : handle_x(1);
  if (_kept == Kept::outside) {
    painter.fillRect(QRectF(QPointF(low, area.top()), QPointF(high, area.bottom())), veil);
  } else {
    painter.fillRect(QRectF(area.topLeft(), QPointF(low, area.bottom())), veil);
    painter.fillRect(QRectF(QPointF(high, area.top()), area.bottomRight()), veil);
  }
}

void HistogramView::draw_axis(QPainter& painter, const QRectF& area) const {
  painter.setPen(palette().text().color());
  painter.drawLine(area.bottomLeft(), area.bottomRight());
  const double step = round_step(_to - _from, std::max(2, static_cast<int>(area.width() / 70)));
  const double baseline = height() - 4.0 - fontMetrics().descent();
  const double unit_width = _data->unit.isEmpty() ? 0 : fontMetrics().horizontalAdvance(_data->unit) + 8;
  for (double tick = std::ceil(_from / step) * step; tick <= _to; tick += step) {
    const double x = x_of(tick);
    painter.drawLine(QPointF(x, area.bottom()), QPointF(x, area.bottom() + 3));
    const QString text = short_text(std::abs(tick) < step / 2 ? 0.0 : tick);
    const double width_of_text = fontMetrics().horizontalAdvance(text);
    const double left = std::clamp(x - width_of_text / 2, 2.0, width() - width_of_text - 2.0);
    if (left + width_of_text > width() - unit_width) continue;  // the unit stands there
    painter.drawText(QPointF(left, baseline), text);
  }
  painter.drawText(QPointF(width() - unit_width, baseline), _data->unit);
}

void HistogramView::draw_limit(QPainter& painter, const QRectF& area, std::size_t limit) const {
  const double x = handle_x(limit);
  const bool has_value = _limits[limit].value.has_value();
  const bool is_chosen = limit == _chosen && hasFocus();
  const QColor colour = palette().text().color();
  painter.setPen(QPen(colour, is_chosen ? 2.5 : 1.5, has_value ? Qt::SolidLine : Qt::DotLine));
  painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
  // The lower limit's handle points to the right and the upper one's to the left: to what is between them.
  QPainterPath handle;
  const double top = area.bottom();
  const double side = limit == 0 ? handle_px * 1.4 : -handle_px * 1.4;
  handle.moveTo(x, top);
  handle.lineTo(x + side, top + handle_px);
  handle.lineTo(x, top + 2 * handle_px);
  handle.closeSubpath();
  painter.setBrush(has_value ? (is_chosen ? palette().highlight().color() : colour) : palette().base().color());
  painter.setPen(QPen(colour, 1.5));
  painter.drawPath(handle);

  if (!has_value) return;
  const QString text = short_text(*_limits[limit].value);
  const double width_of_text = fontMetrics().horizontalAdvance(text) + 6;
  const double wanted = limit == 0 ? x + 3 : x - 3 - width_of_text;
  const double left = std::clamp(wanted, area.left(), std::max(area.left(), area.right() - width_of_text));
  const QRectF label(left, area.top() + (limit == 0 ? 2 : 4 + fontMetrics().lineSpacing()), width_of_text,
                     fontMetrics().lineSpacing());
  QColor ground = palette().base().color();
  ground.setAlpha(200);
  painter.fillRect(label, ground);
  painter.setPen(colour);
  painter.drawText(label, Qt::AlignCenter, text);
}

}  // namespace orvexa::ui

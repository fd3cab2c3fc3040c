#include "orvexa/ui/program_icon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace orvexa::ui {

namespace {

constexpr double side = 256;  // of the drawing; packaging/orvexa-desktop.svg is the same one

QPixmap painted(int side_px) {
  QPixmap picture(side_px, side_px);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(side_px / side, side_px / side);

  const QColor night(0x12, 0x26, 0x3f);
  painter.setPen(Qt::NoPen);
  painter.setBrush(night);
  painter.drawRoundedRect(QRectF(12, 12, 232, 232), 44, 44);

  QPainterPath leaf(QPointF(64, 196));
  leaf.cubicTo(44, 112, 104, 52, 204, 52);
  leaf.cubicTo(208, 148, 156, 214, 64, 196);
  painter.fillPath(leaf, QColor(0xe8, 0xc5, 0x47));
  QPen outline(QColor(0xff, 0x5a, 0xd0), 10);
  outline.setCapStyle(Qt::RoundCap);
  outline.setDashPattern({2.6, 1.4});  // in widths of the pen
  painter.strokePath(leaf, outline);

  QPainterPath midrib(QPointF(52, 212));
  midrib.cubicTo(92, 160, 130, 118, 176, 82);
  QPen vein(night, 10);
  vein.setCapStyle(Qt::RoundCap);
  painter.strokePath(midrib, vein);
  return picture;
}

}  // namespace

QIcon program_icon() {
  QIcon icon;
  for (const int side_px : {16, 32, 48, 128, 256}) icon.addPixmap(painted(side_px));
  return icon;
}

}  // namespace orvexa::ui

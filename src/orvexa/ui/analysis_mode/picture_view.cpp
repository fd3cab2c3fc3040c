#include "orvexa/ui/analysis_mode/picture_view.h"

#include <QMouseEvent>
#include <QPainter>

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int largest_factor = 2;  // what is larger than that has nothing more to see

}  // namespace

PictureView::PictureView(QWidget* parent) : QWidget(parent) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

QSize PictureView::sizeHint() const {
  return {320, 160};
}

void PictureView::show_picture(const QImage& picture) {
  _picture = picture;
  _scaled = {};
  update();
}

void PictureView::paintEvent(QPaintEvent* /*event*/) {
  if (_picture.isNull()) return;
  const qreal ratio = devicePixelRatioF();
  const QSize room = size() * ratio;
  const QSize wanted = _picture.size().scaled(room.boundedTo(_picture.size() * largest_factor), Qt::KeepAspectRatio);
  if (wanted.isEmpty()) return;
  if (_scaled.size() != wanted) _scaled = _picture.scaled(wanted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  _scaled.setDevicePixelRatio(ratio);
  const QSizeF drawn = QSizeF(wanted) / ratio;
  QPainter painter(this);
  painter.drawImage(QPointF((width() - drawn.width()) / 2, (height() - drawn.height()) / 2), _scaled);
}

void PictureView::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) Q_EMIT double_clicked();
}

}  // namespace orvexa::ui::analysis_mode

#include "orvexa/ui/analysis_mode/step_delegate.h"

#include <QApplication>
#include <QPainter>
#include <algorithm>

namespace orvexa::ui::analysis_mode {

namespace {

constexpr int thumbnail_px = 44;
constexpr int gap_px = 6;

}  // namespace

QSize StepDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& /*index*/) const {
  const int text_px = 2 * option.fontMetrics.lineSpacing();
  return {200, std::max(thumbnail_px, text_px) + 2 * gap_px};
}

void StepDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
  QStyleOptionViewItem frame = option;
  initStyleOption(&frame, index);
  frame.text.clear();
  const QStyle& style = frame.widget != nullptr ? *frame.widget->style() : *QApplication::style();
  style.drawControl(QStyle::CE_ItemViewItem, &frame, painter, frame.widget);

  const bool is_selected = frame.state.testFlag(QStyle::State_Selected);
  const QPalette::ColorGroup group = !frame.state.testFlag(QStyle::State_Enabled)  ? QPalette::Disabled
                                     : !frame.state.testFlag(QStyle::State_Active) ? QPalette::Inactive
                                                                                   : QPalette::Active;
  const QColor ink = frame.palette.color(group, is_selected ? QPalette::HighlightedText : QPalette::Text);
  const bool is_failing = index.data(is_failing_role).toBool();
  const QRect inside = frame.rect.adjusted(gap_px, gap_px, -gap_px, -gap_px);
  painter->save();

  const QRect place(inside.left(), inside.center().y() - thumbnail_px / 2, thumbnail_px, thumbnail_px);
  const auto thumbnail = index.data(thumbnail_role).value<QImage>();
  if (is_failing) {
    const QIcon icon = style.standardIcon(QStyle::SP_MessageBoxWarning, &frame, frame.widget);
    icon.paint(painter, place.adjusted(gap_px, gap_px, -gap_px, -gap_px));
  } else if (!thumbnail.isNull()) {
    QRect target(QPoint(), thumbnail.size().scaled(place.size(), Qt::KeepAspectRatio));
    target.moveCenter(place.center());
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->drawImage(target, thumbnail);
    painter->setPen(frame.palette.color(QPalette::Mid));
    painter->drawRect(target.adjusted(0, 0, -1, -1));
  } else {
    painter->setPen(QPen(frame.palette.color(QPalette::Mid), 1, Qt::DashLine));
    painter->drawRect(place.adjusted(0, 0, -1, -1));
  }

  const int left = place.right() + gap_px + gap_px;
  const int line_px = frame.fontMetrics.lineSpacing();
  const int top = inside.center().y() - line_px + 1;
  QRect line(left, top, inside.right() - left + 1, line_px);
  painter->setPen(ink);
  QFont bold = frame.font;
  bold.setBold(true);
  painter->setFont(bold);
  const QString title = index.data(title_role).toString();
  painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                    QFontMetrics(bold).elidedText(title, Qt::ElideRight, line.width()));
  line.translate(0, line_px);
  painter->setFont(frame.font);
  painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                    frame.fontMetrics.elidedText(index.data(line_role).toString(), Qt::ElideRight, line.width()));
  painter->restore();
}

}  // namespace orvexa::ui::analysis_mode

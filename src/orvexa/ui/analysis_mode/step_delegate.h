#pragma once

#include <QStyledItemDelegate>

namespace orvexa::ui::analysis_mode {

/// Draws a step of the workflow in a list: its thumbnail, its number and name, and below them what it leaves and its
/// parameters, or why it fails. The item's own text says the same in one line, for those who hear it.
class StepDelegate final : public QStyledItemDelegate {
  Q_OBJECT

 public:
  /// What an item holds besides its text.
  enum Role {
    title_role = Qt::UserRole,  ///< "1. Otsu threshold"
    line_role,                  ///< "1,200 px (3.4 %), radius 3", or the sentence that says why it fails
    is_failing_role,
    thumbnail_role,  ///< QImage, null while it is not known
  };

  using QStyledItemDelegate::QStyledItemDelegate;
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

}  // namespace orvexa::ui::analysis_mode

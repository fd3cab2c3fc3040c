#pragma once

#include <QImage>
#include <QWidget>

namespace orvexa::ui::analysis_mode {

/// Shows a picture as large as there is room for, smoothly scaled, never larger than twice its size.
class PictureView final : public QWidget {
  Q_OBJECT

 public:
  explicit PictureView(QWidget* parent = nullptr);
  /// A null picture leaves the view empty.
  void show_picture(const QImage& picture);
  [[nodiscard]] const QImage& picture() const { return _picture; }
  [[nodiscard]] QSize sizeHint() const override;

 Q_SIGNALS:
  void double_clicked();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  QImage _picture;
  QImage _scaled;  ///< as it was painted last, in device pixels
};

}  // namespace orvexa::ui::analysis_mode

#pragma once

#include <QWidget>
#include <optional>
#include <vector>

#include "orvexa/ui/plots/histogram_data.h"

namespace orvexa::ui {

/// A histogram with up to two limits that can be dragged with the mouse or moved with the keys: left and right move the
/// chosen one (with Shift ten steps), up and down choose, Home and End go to the ends. The wheel, + and - zoom the
/// axis; 0 or a double click shows all of it.
///
/// The limits' values are what the owner says: a move is told, and the owner answers with new limits.
class HistogramView final : public QWidget {
  Q_OBJECT

 public:
  /// Which values the limits keep; the others are covered.
  enum class Kept { between, outside, above_low, unknown };
  struct Limit {
    QString name;                 ///< "Low"
    std::optional<double> value;  ///< on the axis; absent = no limit, its handle then waits at the end
  };

  explicit HistogramView(QWidget* parent = nullptr);

  /// Absent = none; the sentence then says why.
  void set_data(std::optional<HistogramData> data, const QString& reason = {});
  /// The lower one, then the upper one.
  void set_limits(std::vector<Limit> limits, Kept kept);
  void set_logarithmic(bool is_logarithmic);

  [[nodiscard]] const std::optional<HistogramData>& data() const { return _data; }
  /// Where a value stands, in pixels of the widget; for values beyond the axis the nearer end.
  [[nodiscard]] double x_of(double value) const;
  [[nodiscard]] QSize sizeHint() const override { return {320, 170}; }
  [[nodiscard]] QSize minimumSizeHint() const override { return {160, 130}; }

 Q_SIGNALS:
  /// A person moved a limit (0 the lower, 1 the upper) to a value of the axis, which never passes the other limit.
  void limit_moved(int limit, double value);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  bool event(QEvent* event) override;

 private:
  [[nodiscard]] QRectF plot_area() const;
  [[nodiscard]] double value_at(double x) const;
  /// Where the handle of a limit is: at its value, or at the end when it has none.
  [[nodiscard]] double handle_x(std::size_t limit) const;
  void move_to(std::size_t limit, double value);
  void zoom(double factor, double around);
  void show_all();
  void describe();
  void draw_bars(QPainter& painter, const QRectF& area, const std::vector<std::int64_t>& bins, double highest,
                 const QColor& colour) const;
  void draw_axis(QPainter& painter, const QRectF& area) const;
  void draw_kept(QPainter& painter, const QRectF& area) const;
  void draw_limit(QPainter& painter, const QRectF& area, std::size_t limit) const;

  std::optional<HistogramData> _data;
  QString _reason;
  std::vector<Limit> _limits;
  Kept _kept = Kept::unknown;
  bool _is_logarithmic = false;
  double _from = 0;  ///< what the axis shows
  double _to = 1;
  std::size_t _chosen = 0;
  bool _is_dragging = false;
  double _grip = 0;  ///< pixels from the pointer to the handle, so that it does not jump when it is taken
};

}  // namespace orvexa::ui

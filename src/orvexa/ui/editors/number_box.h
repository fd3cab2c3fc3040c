#pragma once

#include <QAbstractSpinBox>

#include "orvexa/model/operation_base.h"

namespace orvexa::ui {

/// A number as people write it: shortest spelling, point or comma, arrow keys and wheel to step. Unlike a spin box it
/// keeps every digit, knows "no value" (an empty box) and lets a wrong text stand, which is then the value: who checks
/// parameters says what is allowed.
class NumberBox final : public QAbstractSpinBox {
  Q_OBJECT

 public:
  /// @param info  of a parameter whose number, or one of whose numbers, is edited.
  explicit NumberBox(const model::ParameterInfo& info, QWidget* parent = nullptr);

  [[nodiscard]] common::Value value() const;
  void set_value(const common::Value& value);

  void stepBy(int steps) override;
  QValidator::State validate(QString& text, int& position) const override;
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 Q_SIGNALS:
  /// A person typed or stepped.
  void edited();

 protected:
  [[nodiscard]] StepEnabled stepEnabled() const override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  bool _is_whole;
  bool _may_be_null;
  std::optional<double> _min;
  std::optional<double> _max;
  int _step_exponent;  ///< a step is 10 to this power
};

/// A number from what a person wrote, a whole one where it has no fraction and `is_whole`; the text itself when it is
/// none.
[[nodiscard]] common::Value number_from_text(const QString& text, bool is_whole);
/// The shortest spelling that reads back to the same number; the text of a text, empty for anything else.
[[nodiscard]] QString number_text_of(const common::Value& value);
/// By which power of ten a parameter's numbers are stepped.
[[nodiscard]] int step_exponent(const model::ParameterInfo& info);

}  // namespace orvexa::ui

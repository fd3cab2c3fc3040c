#pragma once

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QWidget>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::ui::analysis_mode {

/// The parameters of a result operation, a line each, spelled as on the command line. Who owns it checks what was
/// edited.
class ResultParameters final : public QWidget {
  Q_OBJECT

 public:
  explicit ResultParameters(QWidget* parent = nullptr);

  /// @param operation  null for none; must outlive this. @param values  of its parameters; defaults where one is
  /// missing.
  void show_parameters(const model::ResultOperationInfo* operation, const common::Value& values);
  /// A sentence about what was edited last; empty when there is nothing to say.
  void show_problem(const QString& sentence);

 Q_SIGNALS:
  /// Somebody changed a parameter. @param values  of all parameters.
  void edited(const common::Value& values);

 private:
  void make_lines();
  void read_lines();

  const model::ResultOperationInfo* _operation = nullptr;
  common::Value _values = common::Value::object();
  QFormLayout* _form;
  std::vector<QLineEdit*> _lines;  ///< in the order of the parameters
  QLabel* _problem;
};

}  // namespace orvexa::ui::analysis_mode

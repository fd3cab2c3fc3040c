#pragma once

#include <QWidget>

#include "orvexa/common/value.h"
#include "orvexa/model/result_operations/result_operation.h"
#include "orvexa/ui/editors/editor_context.h"
#include "orvexa/ui/editors/parameter_form.h"

namespace orvexa::ui::analysis_mode {

/// The form of the selected result operation. Who owns it checks what was edited.
class ResultParameters final : public QWidget {
  Q_OBJECT

 public:
  explicit ResultParameters(Workbench& workbench, QWidget* parent = nullptr);

  /// Reads the state.
  /// @param operation  null for none; must outlive this. @param values  of its parameters; defaults where one is
  /// missing. @param last_used  absent when the operation never was used.
  void show_parameters(const model::ResultOperationInfo* operation, const common::Value& values,
                       const std::optional<common::Value>& last_used);
  /// A sentence about what was edited last; empty when there is nothing to say.
  void show_problem(const QString& sentence);

 Q_SIGNALS:
  /// Somebody changed a parameter. @param values  of all parameters.
  void edited(const common::Value& values);

 private:
  WorkbenchEditorContext _context;
  const model::ResultOperationInfo* _operation = nullptr;
  common::Value _shown = common::Value::object();  ///< the values that the form was given
  ParameterForm* _form = nullptr;
};

}  // namespace orvexa::ui::analysis_mode

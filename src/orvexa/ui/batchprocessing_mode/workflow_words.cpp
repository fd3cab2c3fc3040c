#include "orvexa/ui/batchprocessing_mode/workflow_words.h"

#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <string>
#include <vector>

#include "orvexa/ui/text.h"

namespace orvexa::ui::batchprocessing_mode {

namespace {

QString tr(const char* text) {
  return QCoreApplication::translate("workflow", text);
}

QString escaped(const std::string& text) {
  return to_qt(text).toHtmlEscaped();
}

/// "radius_px 5, shape disk": the parameters that differ from their defaults.
QString changed_parameters(const model::ParameterList& parameters, const common::Value& params) {
  QStringList texts;
  if (!params.is_object()) return {};
  for (const auto& [name, value] : params.items()) {
    const auto info = std::find_if(parameters.begin(), parameters.end(),
                                   [&key = name](const model::ParameterInfo& other) { return other.name == key; });
    if (info != parameters.end() && info->default_value == value) continue;
    QString text = value.is_string() ? escaped(value.get<std::string>())
                                     : escaped(value.dump(-1, ' ', false, common::Value::error_handler_t::replace));
    if (info != parameters.end() && !info->unit.empty()) text += ' ' + escaped(info->unit);
    texts << escaped(name) + ' ' + text;
  }
  return texts.join(", ");
}

QString item(const QString& name, const QString& parameters) {
  return parameters.isEmpty() ? "<li>" + name + "</li>" : "<li>" + name + " (" + parameters + ")</li>";
}

}  // namespace

QString workflow_words(const controller::Controller& controller, const model::Workflow* workflow) {
  if (workflow == nullptr) {
    return "<p>" +
           tr("There is no workflow. Open one, or make one in the analysis mode: choose which pixels count and what "
              "to measure.")
               .toHtmlEscaped() +
           "</p>";
  }
  QString html = "<p><b>" + escaped(workflow->title) + "</b></p>";
  for (const model::WorkflowProblem& problem : model::check_workflow(*workflow)) {
    html += "<p><b>" + tr("Problem:").toHtmlEscaped() + "</b> " + escaped(problem.step) + ": " + escaped(problem.text) +
            "</p>";
  }
  if (workflow->mask_operations.empty()) {
    html += "<p>" + tr("No mask steps: every pixel counts.").toHtmlEscaped() + "</p>";
  } else {
    html += "<p>" + tr("Which pixels count:").toHtmlEscaped() + "</p><ol>";
    const auto infos = controller.get_available_mask_operations();
    for (const model::MaskOperationConfig& step : workflow->mask_operations) {
      const auto info = infos.find(step.op);
      html += info != infos.end() ? item(escaped(info->second->display_name),
                                         changed_parameters(info->second->all_parameters(), step.params))
                                  : item(escaped(step.op), changed_parameters({}, step.params));
    }
    html += "</ol>";
  }
  if (workflow->result_operations.empty()) {
    html += "<p>" + tr("Nothing is measured: only masks and pictures are written.").toHtmlEscaped() + "</p>";
  } else {
    html += "<p>" + tr("What is measured:").toHtmlEscaped() + "</p><ul>";
    for (const model::ResultOperationConfig& step : workflow->result_operations) {
      const model::ResultOperationInfo* info = controller.get_result_operation_info(step.op);
      html += info != nullptr ? item(escaped(info->display_name), changed_parameters(info->parameters, step.params))
                              : item(escaped(step.op), changed_parameters({}, step.params));
    }
    html += "</ul>";
  }
  return html;
}

QString workflow_obstacle(const model::Workflow* workflow) {
  if (workflow == nullptr) return tr("Open a workflow, or make one in the analysis mode.");
  const std::vector<model::WorkflowProblem> problems = model::check_workflow(*workflow);
  if (problems.empty()) return {};
  return tr("Correct the workflow in the analysis mode: %1: %2")
      .arg(to_qt(problems.front().step), to_qt(problems.front().text));
}

}  // namespace orvexa::ui::batchprocessing_mode

#include <stdexcept>
#include <string>

#include "orvexa/model/measures/named_expressions.h"
#include "orvexa/model/result_operations/index_rows.h"
#include "orvexa/model/result_operations/operations.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "custom_index";

class CustomIndex final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  void check(const Value& params) const override;
};

std::vector<NamedExpression> expressions_of(const Value& params) {
  return named_expressions(key, "expressions", params.at("expressions").get_ref<const std::string&>());
}

RoleBands named_bands(const Value& params, const std::vector<NamedExpression>& expressions) {
  std::vector<RoleUser> users;
  users.reserve(expressions.size());
  for (const auto& [name, expression] : expressions) users.push_back(role_user(name, expression));
  return role_bands(key, params.at("bands"), users);
}

/// A capture is good enough when it has the bands of one expression.
void check_capture(const ImageSource& source, const Value& params) {
  const auto expressions = expressions_of(params);
  const RoleBands named = named_bands(params, expressions);
  std::string reasons;
  for (const auto& [name, expression] : expressions) {
    try {
      static_cast<void>(index_bands(source, expression, named));
      return;
    } catch (const std::runtime_error& missing) {
      if (!reasons.empty()) reasons += reasons.ends_with('.') ? " " : ". ";
      reasons += name + ": " + missing.what();
    }
  }
  throw std::runtime_error(reasons);
}

/// Sums and products of bands keep their unit.
std::string unit_of(const Expression& expression) {
  return expression.degree() == 1.0 ? "fraction of white" : "";
}

void CustomIndex::check(const Value& params) const {
  const auto expressions = expressions_of(params);
  static_cast<void>(named_bands(params, expressions));
  check_index_map_parameters(key, params);
}

OperationResult CustomIndex::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const auto expressions = expressions_of(params);
  const RoleBands named = named_bands(params, expressions);
  std::vector<IndexJob> jobs;
  jobs.reserve(expressions.size());
  for (const NamedExpression& own : expressions) {
    jobs.push_back(
        {.name = own.name,
         .prefix = std::string(key) + "." + own.name,
         .formula = own.expression.text(),
         .source = "the user",
         .inputs = own.expression.names(),
         .unit = unit_of(own.expression),
         .map = [this, &capture, &own, &named] { return compute_index(capture, own.expression, context(), named); }});
  }
  return describe_indices(jobs, capture, regions, params, context());
}

ParameterList parameters() {
  ParameterList all{
      {.name = "expressions",
       .type = ParameterType::expression,
       .default_value = "simple_ratio = N / R",
       .help = "What is computed, each as NAME = EXPRESSION with semicolons or line breaks between them, such as "
               "ratio = N / R; difference = MSP.NIR - MSP.RED."},
      role_bands_parameter()};
  for (ParameterInfo& parameter : index_map_parameters()) all.push_back(std::move(parameter));
  all.push_back(each_region_parameter());
  return all;
}

}  // namespace

const ResultOperationInfo& custom_index_info() {
  static const ResultOperationInfo info{
      .key = key,
      .display_name = "Index of your own",
      .category = "Spectral",
      .summary = "Describes expressions of bands inside the mask and inside each region and draws their maps.",
      .description =
          expression_text() + " For every expression, as " + index_rows_text("custom_index.<name>") +
          " An expression whose band is missing, or that needs reflectance while no white level is declared, "
          "is left out with its reason; when none can be computed, that is an error. The unit is fraction of "
          "white where the value grows in proportion to the bands. The heat map has no colour outside the "
          "mask; its numbers are saved as 32-bit float.",
      .source =
          "The user's own formula; the default is the simple ratio of C. F. Jordan, Derivation of leaf-area "
          "index from quality of light on the forest floor, Ecology 50(4), 1969, 663-666, doi:10.2307/1936256",
      .parameters = parameters(),
      .check_capture = check_capture,
      .operation_class = {.make = [] { return std::make_unique<CustomIndex>(); }}};
  return info;
}

}  // namespace orvexa::model

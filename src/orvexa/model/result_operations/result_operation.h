#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

class ResultOperation;
struct ResultOperationInfo;

/// A required measurement, or (as the first element of the list) a tuple of alternatives, which then is the whole
/// requirement.
using MeasurementRequirement = std::variant<std::string, std::vector<std::string>>;

/// The class of a result operation as a value.
struct ResultOperationClass {
  /// Wildcard patterns over mask-operation keys; one match is enough. Absent or empty = no mask needed.
  std::optional<std::vector<std::string>> _requires_mask_operation = std::nullopt;
  std::function<std::unique_ptr<ResultOperation>()> make;
};

struct ResultOperationInfo {
  std::string key;
  std::string display_name;
  std::string category;
  std::string summary = {};
  std::string description = {};
  std::string source = {};
  ParameterList parameters = {};
  std::optional<std::vector<MeasurementRequirement>> required_measurements = std::nullopt;
  /// It compares regions and has nothing to say without a step that makes some.
  bool needs_labels = false;
  /// Throws the std::runtime_error that says what a capture lacks for checked parameters; absent = any capture will do.
  /// For menus, which say why an operation cannot be used; a run finds out by itself.
  std::function<void(const ImageSource& source, const Value& params)> check_capture = {};
  ResultOperationClass operation_class;

  [[nodiscard]] const std::string& get_display_name() const { return display_name; }
  /// A new instance that knows this description.
  [[nodiscard]] std::unique_ptr<ResultOperation> operator()() const;
};

/// The parameter `each_region` of operations whose rows are long: false = only the whole mask is measured, and no
/// region has any of the operation's metrics. Where nobody made regions the one region stays.
[[nodiscard]] ParameterInfo each_region_parameter();

/// One run of a result operation.
class ResultOperation {
 public:
  virtual ~ResultOperation() = default;

  struct Input {
    const CaptureSet& source_capture;  ///< masked; without a mask every pixel counts
    Value params = Value::object();
    const RegionSet* regions = nullptr;  ///< of the capture's mask, when the caller has them already
  };

  /// Completes and checks the parameters, then measures every region in one pass.
  /// @throws std::invalid_argument for parameters; std::runtime_error with a sentence for anything else that is wrong;
  /// CancelledError.
  [[nodiscard]] OperationResult run(const Input& input);

  [[nodiscard]] Value validate_params(const Value& params) const;
  [[nodiscard]] const ResultOperationInfo& info() const { return *_info; }
  void set_context(RunContext context) { _context = std::move(context); }

 protected:
  /// Fills metrics, units and reasons of the whole and a RegionResult for each region, in the regions' order.
  [[nodiscard]] virtual OperationResult compute(const CaptureSet& capture, const RegionSet& regions,
                                                const Value& params) = 0;
  /// Checks between parameters; throws std::invalid_argument with a sentence.
  virtual void check(const Value& params) const { static_cast<void>(params); }
  [[nodiscard]] const RunContext& context() const { return _context; }

 private:
  [[nodiscard]] OperationResult measure(const CaptureSet& capture, const RegionSet& regions, const Value& params);

  friend struct ResultOperationInfo;
  const ResultOperationInfo* _info = nullptr;
  RunContext _context;
};

}  // namespace orvexa::model

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "orvexa/model/mask_operations/mask_operation.h"
#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::test {

/// A mask operation made of a function. A test puts it into the registry with MaskRegistryOverride.
class FakeMask final : public model::MaskOperation {
 public:
  using Compute = std::function<std::optional<model::Mask>(FakeMask&, const model::ImageSource&, const model::Mask*,
                                                           const model::Value&)>;
  explicit FakeMask(Compute compute_function) : _compute(std::move(compute_function)) {}
  using MaskOperation::context;

 private:
  std::optional<model::Mask> compute(const model::ImageSource& source, const model::Mask* current,
                                     const model::Value& params) override {
    return _compute(*this, source, current, params);
  }
  Compute _compute;
};

inline model::MaskOperationInfo fake_mask(const std::string& key, FakeMask::Compute compute) {
  return {.key = key, .display_name = key, .make = [compute = std::move(compute)] {
            return std::make_unique<FakeMask>(compute);
          }};
}

/// A result operation made of a function, for ResultRegistryOverride.
class FakeResult final : public model::ResultOperation {
 public:
  using Compute = std::function<model::OperationResult(FakeResult&, const model::CaptureSet&, const model::RegionSet&,
                                                       const model::Value&)>;
  explicit FakeResult(Compute compute_function) : _compute(std::move(compute_function)) {}
  using ResultOperation::context;

 private:
  model::OperationResult compute(const model::CaptureSet& capture, const model::RegionSet& regions,
                                 const model::Value& params) override {
    return _compute(*this, capture, regions, params);
  }
  Compute _compute;
};

inline model::ResultOperationInfo fake_result(const std::string& key, FakeResult::Compute compute) {
  model::ResultOperationInfo info{.key = key, .display_name = key, .category = "Tests", .operation_class = {}};
  info.operation_class.make = [compute = std::move(compute)] { return std::make_unique<FakeResult>(compute); };
  return info;
}

}  // namespace orvexa::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const model::Mask left = mask({"#..", "#.."});
const model::Mask top = mask({"###", "..."});
const model::Mask top_left = mask({"#..", "..."});

const std::string mask_failure =
    "error: Controller.generate_mask_intermediate_results: Error generating mask intermediate results - ";
const std::string operation_failure =
    "error: Controller.generate_operation_intermediate_results: Error generating operation intermediate results - ";

/// Gives the same mask whatever it is asked for.
struct FixedExecutor final : model::Executor {
  model::Mask build_mask(const model::CaptureSet& capture, const model::Workflow& workflow,
                         std::optional<int> until_index, const common::CancelEvent* /*cancel_event*/) override {
    seen_capture = &capture;
    seen_workflow = &workflow;
    seen_indices.push_back(until_index);
    return left;
  }
  const model::CaptureSet* seen_capture = nullptr;
  const model::Workflow* seen_workflow = nullptr;
  std::vector<std::optional<int>> seen_indices;
};

/// A small capture (MSP.RED: 1 2 3 / 4 5 6), the mask steps "top" and "left" and the result operation "shape", which
/// says what it was given.
class IntermediateResults : public testing::Test {
 protected:
  IntermediateResults() {
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;
    workflow->mask_operations[1].params = {{"radius", 5}};
    workflow->result_operations[0].params = {{"rounds", 2}};
  }

  const model::MaskOperationInfo top_step = mask_operation("top", gives(top));
  const model::MaskOperationInfo left_step = mask_operation("left", gives(left), {integer_parameter("radius", 3)});
  const model::MaskOperationInfo broken = mask_operation("broken", fails("no contrast"));
  const model::MaskRegistryOverride masks{{&top_step, &left_step, &broken}};

  model::ResultOperationInfo shape = [] {
    auto info = fake_result("shape", [](FakeResult&, const model::CaptureSet& source, const model::RegionSet& regions,
                                        const Value& params) {
      model::OperationResult result;
      result.metrics = {
          {"pixels", source.mask->count()}, {"regions", regions.regions().size()}, {"rounds", params.at("rounds")}};
      return result;
    });
    info.parameters = {integer_parameter("rounds", 1)};
    return info;
  }();
  const model::ResultOperationInfo failing =
      fake_result("failing",
                  [](FakeResult&, const model::CaptureSet&, const model::RegionSet&,
                     const Value&) -> model::OperationResult { throw std::runtime_error("no scale"); });
  const model::ResultRegistryOverride results{{&shape, &failing}};

  Probe controller;
  std::shared_ptr<model::CaptureSet> capture = small_capture();
  std::shared_ptr<model::Workflow> workflow = workflow_of({"top", "left"}, {"shape"});
};

std::vector<int> values(const model::ImageEntry& entry) {
  const model::Image image = entry.pixels();
  std::vector<int> all;
  for (int y = 0; y < image.height(); ++y) {
    for (const std::uint8_t value : image.row<std::uint8_t>(y)) all.push_back(value);
  }
  return all;
}

// ---- After a mask step
// -----------------------------------------------------------------------------------------------

TEST_F(IntermediateResults, OfAMaskStepAreItsMaskThePicturesUnderItAndTheStep) {
  const LogCapture log;
  const auto first = controller.generate_mask_intermediate_results(0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->mask, top);
  EXPECT_EQ(values(first->masked_images.at("MSP").at("RED")), (std::vector{1, 2, 3, 0, 0, 0}));
  EXPECT_EQ(first->mask_operation, workflow->mask_operations[0]);
  const auto second = controller.generate_mask_intermediate_results(1);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->mask, top_left);
  EXPECT_EQ(values(second->masked_images.at("MSP").at("RED")), (std::vector{1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(second->mask_operation.params, (Value{{"radius", 5}}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(IntermediateResults, OfAMaskStepComeFromTheExecutorWhichIsAskedForThatStep) {
  auto fixed = std::make_unique<FixedExecutor>();
  const FixedExecutor& executor = *fixed;
  controller.executor = std::move(fixed);
  const auto result = controller.generate_mask_intermediate_results(1);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->mask, left);
  EXPECT_EQ(executor.seen_capture, capture.get());
  EXPECT_EQ(executor.seen_workflow, workflow.get());
  EXPECT_THAT(executor.seen_indices, ElementsAre(1));
}

TEST_F(IntermediateResults, OfAMaskStepHaveMapsOfTheirOwn) {
  auto result = controller.generate_mask_intermediate_results(0);
  ASSERT_TRUE(result);
  result->masked_images["MSP"].clear();
  result->masked_images.clear();
  const auto again = controller.generate_mask_intermediate_results(0);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->masked_images.at("MSP").size(), 1U);
  EXPECT_EQ(values(capture->measurements.at("MSP")->images.at("RED")), (std::vector{1, 2, 3, 4, 5, 6}));
}

TEST_F(IntermediateResults, PastTheLastMaskStepAreAbsentWithoutAWord) {
  auto fixed = std::make_unique<FixedExecutor>();
  const FixedExecutor& executor = *fixed;
  controller.executor = std::move(fixed);
  const LogCapture log;
  EXPECT_FALSE(controller.generate_mask_intermediate_results(2));
  EXPECT_FALSE(controller.generate_mask_intermediate_results(7));
  workflow->mask_operations.clear();
  EXPECT_FALSE(controller.generate_mask_intermediate_results(0));
  EXPECT_THAT(executor.seen_indices, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(IntermediateResults, ANegativeMaskStepIsLeftToTheExecutorWhichRefusesIt) {
  const LogCapture log;
  EXPECT_FALSE(controller.generate_mask_intermediate_results(-1));
  EXPECT_THAT(log.lines(), ElementsAre(mask_failure + "The workflow has no mask step with index -1: it has 2."));
}

TEST_F(IntermediateResults, ANegativeMaskStepThatAnExecutorAcceptsIsLoggedAllTheSame) {
  auto fixed = std::make_unique<FixedExecutor>();
  const FixedExecutor& executor = *fixed;
  controller.executor = std::move(fixed);
  const LogCapture log;
  EXPECT_FALSE(controller.generate_mask_intermediate_results(-1));
  EXPECT_THAT(executor.seen_indices, ElementsAre(-1));
  EXPECT_THAT(log.lines(), ElementsAre(mask_failure + "The workflow has no mask step with index -1."));
}

TEST_F(IntermediateResults, AFailingMaskStepIsLoggedAndGivesNothing) {
  workflow->mask_operations[0].op = "broken";
  const LogCapture log;
  EXPECT_FALSE(controller.generate_mask_intermediate_results(1));
  EXPECT_THAT(log.lines(), ElementsAre(mask_failure + "Mask step 1 (broken) failed: no contrast"));
}

// ---- Of a result operation
// -------------------------------------------------------------------------------------------

TEST_F(IntermediateResults, OfAResultOperationAreMeasuredUnderAllMaskSteps) {
  const LogCapture log;
  const auto result = controller.generate_operation_intermediate_results(0);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->operation_result.metrics, (Value{{"pixels", 1}, {"regions", 1}, {"rounds", 2}}));
  EXPECT_EQ(result->operation_config, workflow->result_operations[0]);
  EXPECT_EQ(result->masked_capture_used->mask, top_left);
  EXPECT_EQ(values(result->masked_capture_used->measurements.at("MSP")->images.at("RED")),
            (std::vector{1, 0, 0, 0, 0, 0}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(IntermediateResults, SayWhereTheyCameFromWithCompletedParameters) {
  workflow->mask_operations[1].params = {};
  workflow->result_operations[0].params = {};
  const auto step = controller.generate_mask_intermediate_results(0);
  ASSERT_TRUE(step);
  EXPECT_EQ(step->provenance.part, "mask step 1 (top)");
  EXPECT_EQ(step->provenance.capture_name, capture->name);
  EXPECT_EQ(step->provenance.mask_steps.size(), 1u);
  EXPECT_THAT(step->provenance.result_steps, IsEmpty());
  const auto operation = controller.generate_operation_intermediate_results(0);
  ASSERT_TRUE(operation);
  const model::ProvenanceRecord& record = operation->provenance;
  EXPECT_EQ(record.part, "result operation 1 (shape)");
  ASSERT_EQ(record.mask_steps.size(), 2u);
  EXPECT_EQ(record.mask_steps[1].op, "left");
  EXPECT_EQ(record.mask_steps[1].params.at("radius"), 3);
  ASSERT_EQ(record.result_steps.size(), 1u);
  EXPECT_EQ(record.result_steps[0].params.at("rounds"), 1);
  EXPECT_LE(record.started, record.finished);
}

TEST_F(IntermediateResults, OfAResultOperationComeFromTheExecutorsMaskOfTheWholeWorkflow) {
  auto fixed = std::make_unique<FixedExecutor>();
  const FixedExecutor& executor = *fixed;
  controller.executor = std::move(fixed);
  const auto result = controller.generate_operation_intermediate_results(0);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->operation_result.metrics.at("pixels"), 2);
  EXPECT_THAT(executor.seen_indices, ElementsAre(std::optional<int>()));
}

TEST_F(IntermediateResults, OfAResultOperationWithoutMaskStepsAreMeasuredOnTheWholeImage) {
  workflow->mask_operations.clear();
  const auto result = controller.generate_operation_intermediate_results(0);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->operation_result.metrics.at("pixels"), 6);
}

TEST_F(IntermediateResults, PastTheLastResultOperationAreAbsentWithoutAWord) {
  const LogCapture log;
  EXPECT_FALSE(controller.generate_operation_intermediate_results(1));
  workflow->result_operations.clear();
  EXPECT_FALSE(controller.generate_operation_intermediate_results(0));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(IntermediateResults, ANegativeResultOperationIsLoggedAndGivesNothing) {
  const LogCapture log;
  EXPECT_FALSE(controller.generate_operation_intermediate_results(-1));
  EXPECT_THAT(log.lines(), ElementsAre(operation_failure + "The workflow has no result operation with index -1."));
}

struct FailureCase {
  const char* name;
  const char* mask_key;
  const char* result_key;
  Value params;
  const char* reason;
};

class FailingResultOperation : public IntermediateResults, public testing::WithParamInterface<FailureCase> {};

TEST_P(FailingResultOperation, IsLoggedAndGivesNothing) {
  workflow->mask_operations[1].op = GetParam().mask_key;
  workflow->result_operations[0] = model::result_op(GetParam().result_key, GetParam().params);
  const LogCapture log;
  EXPECT_FALSE(controller.generate_operation_intermediate_results(0));
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith(operation_failure + GetParam().reason)));
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, FailingResultOperation,
    testing::Values(FailureCase{"MaskStep", "broken", "shape", {}, "Mask step 2 (broken) failed: "},
                    FailureCase{"UnknownOperation", "left", "gone", {}, "There is no result operation \"gone\""},
                    FailureCase{
                        "WrongParameters", "left", "shape", {{"rounds", "many"}}, "shape: parameter \"rounds\""},
                    FailureCase{"TheOperationItself", "left", "failing", {}, "no scale"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(IntermediateResults, GivenACancellation_ThenBothAreLoggedAndAbsent) {
  common::CancelEvent event;
  event.set();
  const LogCapture log;
  EXPECT_FALSE(controller.generate_mask_intermediate_results(0, &event));
  EXPECT_FALSE(controller.generate_operation_intermediate_results(0, &event));
  EXPECT_THAT(log.lines(), ElementsAre(mask_failure + "Processing cancelled by user",
                                       operation_failure + "Processing cancelled by user"));
}

TEST_F(IntermediateResults, GivenACancellationWhileAResultOperationRuns_ThenItSeesTheFlag) {
  common::CancelEvent event;
  shape = fake_result("shape",
                      [&](FakeResult& operation, const model::CaptureSet&, const model::RegionSet&,
                          const Value&) -> model::OperationResult {
                        event.set();
                        operation.context().check();
                        return {};
                      });
  workflow->result_operations[0].params = Value::object();
  const LogCapture log;
  EXPECT_FALSE(controller.generate_operation_intermediate_results(0, &event));
  EXPECT_THAT(log.lines(), ElementsAre(operation_failure + "Processing cancelled by user"));
}

// ---- Both
// ------------------------------------------------------------------------------------------------------------

TEST_F(IntermediateResults, WithoutACaptureOrAWorkflowBothAreLoggedAndAbsent) {
  const auto expect_both_fail = [&](const std::string& reason) {
    const LogCapture log;
    EXPECT_FALSE(controller.generate_mask_intermediate_results(0));
    EXPECT_FALSE(controller.generate_operation_intermediate_results(0));
    EXPECT_THAT(log.lines(), ElementsAre(mask_failure + reason, operation_failure + reason));
  };
  controller.state.current_workflow.reset();
  expect_both_fail("No workflow loaded");
  controller.state.current_capture.reset();
  expect_both_fail("No capture loaded");
}

TEST_F(IntermediateResults, NeitherChangesTheStateOrTheCacheOrEmitsAnEvent) {
  int events = 0;
  const controller::EventConnection heard(controller.events.image_selected.connect(
      [&](const std::string&, const std::string&, const model::ImageEntry&) { ++events; }));
  const model::Workflow before = *workflow;
  ASSERT_TRUE(controller.generate_mask_intermediate_results(1));
  ASSERT_TRUE(controller.generate_operation_intermediate_results(0));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(*workflow, before);
  EXPECT_EQ(controller.state.current_capture, capture);
  EXPECT_EQ(capture->mask, std::nullopt);
  EXPECT_FALSE(controller.state.last_mask || controller.state.last_results || controller.state.preview_mask);
  EXPECT_FALSE(controller.state.message || controller.state.error);
  EXPECT_EQ(events, 0);
}

}  // namespace
}  // namespace orvexa::test

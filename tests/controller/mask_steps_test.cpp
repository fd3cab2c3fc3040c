#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/model/run_context.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::EventConnection;
using controller::Phase;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const model::Mask left = mask({"#..", "#.."});

/// Operations: "keep" gives the left column, "radius" does too and has a parameter radius (default 3), "broken" fails,
/// "nothing" returns no mask. A result operation "shape" is available once there is a mask "keep".
class MaskSteps : public testing::Test {
 protected:
  MaskSteps() { controller.state.current_capture = capture; }

  void give_workflow(const std::vector<std::string>& keys) { controller.state.current_workflow = workflow_of(keys); }
  std::vector<std::string> mask_keys() const { return keys_of(controller.state.current_workflow->mask_operations); }

  int runs = 0;
  const MaskBody counted = [this](const MaskCall&) {
    ++runs;
    return std::optional(left);
  };
  const model::MaskOperationInfo keep = mask_operation("keep", counted);
  const model::MaskOperationInfo radius = mask_operation("radius", counted, {integer_parameter("radius", 3)});
  const model::MaskOperationInfo broken = mask_operation("broken", fails("no contrast"));
  const model::MaskOperationInfo nothing =
      mask_operation("nothing", [](const MaskCall&) -> std::optional<model::Mask> { return std::nullopt; });
  const model::MaskRegistryOverride masks{{&keep, &radius, &broken, &nothing}};
  const model::ResultOperationInfo shape =
      result_operation("shape", "Shape", std::nullopt, std::vector<std::string>{"keep"});
  const model::ResultRegistryOverride results{{&shape}};

  Probe controller;
  std::shared_ptr<model::CaptureSet> capture = small_capture();
};

// ---- Editing primitives
// ----------------------------------------------------------------------------------------------

TEST_F(MaskSteps, AddingAStepAppendsACopyOfTheParametersAndNothingElse) {
  give_workflow({"keep"});
  controller._mask_result_cache[0] = capture;
  int events = 0;
  const EventConnection heard(controller.events.mask_operation_added.connect([&](const auto&) { ++events; }));
  Value params = {{"anything", 1}};
  const LogCapture log;
  controller.add_mask_op("not_even_known", params);
  params["anything"] = 2;
  EXPECT_THAT(mask_keys(), ElementsAre("keep", "not_even_known"));
  EXPECT_EQ(controller.state.current_workflow->mask_operations[1].params, (Value{{"anything", 1}}));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(events, 0);
}

TEST_F(MaskSteps, TheEditingPrimitivesNeedAWorkflow) {
  try {
    controller.add_mask_op("keep");
    FAIL() << "nothing was raised";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "No workflow loaded");
  }
  EXPECT_THROW(controller.update_mask_param(0, "radius", 1), std::runtime_error);
}

TEST_F(MaskSteps, UpdatingAParameterNeitherChecksItNorTouchesTheCache) {
  give_workflow({"keep", "radius"});
  controller._mask_result_cache[1] = capture;
  controller.update_mask_param(1, "radius", "not a number");
  controller.update_mask_param(1, "unknown", 4);
  EXPECT_EQ(controller.state.current_workflow->mask_operations[1].params,
            (Value{{"radius", "not a number"}, {"unknown", 4}}));
  EXPECT_THAT(cached_indices(controller), ElementsAre(1));
}

TEST_F(MaskSteps, UpdatingAStepThatIsNotThereFailsWithTheListsOwnError) {
  give_workflow({"keep"});
  EXPECT_THROW(controller.update_mask_param(1, "radius", 1), std::out_of_range);
  EXPECT_THROW(controller.update_mask_param(-1, "radius", 1), std::out_of_range);
}

TEST_F(MaskSteps, UpdatingAParameterOfAStepWhoseParametersAreNoMapSaysSo) {
  give_workflow({"keep"});
  controller.state.current_workflow->mask_operations[0].params = Value::array({1, 2});
  try {
    controller.update_mask_param(0, "radius", 1);
    FAIL() << "nothing was raised";
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(), "The parameters of mask step 0 (keep) are not a map.");
  }
}

// ---- Applying
// --------------------------------------------------------------------------------------------------------

TEST_F(MaskSteps, ApplyingChecksComputesAppendsCachesAndReports) {
  give_workflow({});
  const LogCapture log;
  const auto masked = controller.apply_mask_to_workflow("radius", {{"radius", 5}});
  ASSERT_NE(masked, nullptr);
  EXPECT_EQ(masked->mask, left);
  EXPECT_THAT(mask_keys(), ElementsAre("radius"));
  EXPECT_EQ(controller._mask_result_cache.at(0), masked);
  EXPECT_EQ(controller.state.message, "Added 'The radius' mask to workflow");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_THAT(log.lines(),
              ElementsAre("info: Applying mask operation to workflow: radius",
                          "info: CAPTURE DEBUG: During mask application - Capture object ID: " +
                              fmt::format("{}", fmt::ptr(capture.get())),
                          "debug: Controller.apply_mask_to_workflow: Applying radius with params {\"radius\": 5}",
                          "debug: Controller._compute_mask_step: Running radius at index 0 (has current_mask: False)",
                          "info: Added 'The radius' mask to workflow",
                          "debug: No change in workflow result operations (0 enabled)"));
}

TEST_F(MaskSteps, TheStepThatIsRunAndAppendedHasItsDefaultsFilledInWhileTheCallersMapStaysAsItWas) {
  give_workflow({});
  const Value params = Value::object();
  const auto masked = controller.apply_mask_to_workflow("radius", params);
  ASSERT_NE(masked, nullptr);
  const Value completed = {{"radius", 3}, {"reset_mask_chain", false}};
  EXPECT_EQ(controller.state.current_workflow->mask_operations[0].params, completed);
  EXPECT_EQ(masked->measurements.at("MSP")->masks.at(0).operation_params, completed);
  EXPECT_EQ(params, Value::object());
}

TEST_F(MaskSteps, TheParametersOfAnotherStepMayBeHandedOver) {
  give_workflow({});
  ASSERT_NE(controller.apply_mask_to_workflow("radius", {{"radius", 8}}), nullptr);
  auto& steps = controller.state.current_workflow->mask_operations;
  ASSERT_NE(controller.apply_mask_to_workflow("radius", steps[0].params), nullptr);
  ASSERT_EQ(steps.size(), 2U);
  EXPECT_EQ(steps[1].params, steps[0].params);
}

TEST_F(MaskSteps, ApplyingOnTopOfStepsComputesTheMissingOnesAndRunsEachOnce) {
  give_workflow({"keep", "keep"});
  const auto masked = controller.apply_mask_to_workflow("keep", Value::object());
  ASSERT_NE(masked, nullptr);
  EXPECT_EQ(runs, 3);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0, 1, 2));
  EXPECT_EQ(masked->measurements.at("MSP")->masks.size(), 3U);
  EXPECT_EQ(controller.get_mask_result(2), masked);
  EXPECT_EQ(runs, 3);
}

TEST_F(MaskSteps, ApplyingBringsTheResultOperationsInLineOnceStepResultAndMessageAreThere) {
  give_workflow({});
  int changes = 0;
  const EventConnection heard(controller.events.workflow_result_operations_changed.connect([&] {
    ++changes;
    EXPECT_THAT(mask_keys(), ElementsAre("keep"));
    EXPECT_THAT(cached_indices(controller), ElementsAre(0));
    EXPECT_EQ(controller.state.message, "Added 'The keep' mask to workflow");
  }));
  ASSERT_NE(controller.apply_mask_to_workflow("keep", Value::object()), nullptr);
  EXPECT_THAT(keys_of(controller.state.current_workflow->result_operations), ElementsAre("shape"));
  EXPECT_EQ(changes, 1);
}

TEST_F(MaskSteps, WithoutACaptureTheStepIsStillCheckedAndAppendedWithNothingReturnedOrCached) {
  controller.state.current_capture.reset();
  give_workflow({"keep"});
  const LogCapture log;
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", Value::object()), nullptr);
  EXPECT_THAT(mask_keys(), ElementsAre("keep", "radius"));
  EXPECT_EQ(controller.state.current_workflow->mask_operations[1].params.at("radius"), 3);
  EXPECT_EQ(controller.state.message, "Added 'The radius' mask to workflow");
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(runs, 0);
  EXPECT_THAT(log.lines(), ElementsAre("info: Applying mask operation to workflow: radius",
                                       "info: CAPTURE DEBUG: During mask application - Capture object ID: None",
                                       "debug: Controller.apply_mask_to_workflow: Applying radius with params {}",
                                       "info: Added 'The radius' mask to workflow",
                                       "debug: handle_mask_dependencies: No workflow or capture, skipping"));
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", {{"radius", "wide"}}), nullptr);
  EXPECT_EQ(mask_keys().size(), 2U) << "a bad parameter is refused without a capture too";
}

TEST_F(MaskSteps, WithoutAWorkflowOneIsMadeAndTheMessageSaysSo) {
  const LogCapture log;
  const auto masked = controller.apply_mask_to_workflow("keep", Value::object());
  ASSERT_NE(masked, nullptr);
  EXPECT_EQ(controller.state.current_workflow->title, "Auto-Generated Workflow");
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
  EXPECT_EQ(controller.state.message, "Created new workflow and added 'The keep' mask");
  EXPECT_EQ(controller._mask_result_cache.at(0), masked);
  EXPECT_THAT(log.lines(), Contains("debug: Controller.apply_mask_to_workflow: Creating new workflow"));
  EXPECT_THAT(log.lines(), Contains("info: Created new workflow and added 'The keep' mask"));
}

TEST_F(MaskSteps, WithoutWorkflowAndCaptureOneIsMadeForTheStep) {
  controller.state.current_capture.reset();
  EXPECT_EQ(controller.apply_mask_to_workflow("keep", Value::object()), nullptr);
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
  EXPECT_EQ(controller.state.message, "Created new workflow and added 'The keep' mask");
}

TEST_F(MaskSteps, ApplyingEmitsNoMaskEventItself) {
  give_workflow({});
  int events = 0;
  const EventConnection added(controller.events.mask_operation_added.connect([&](const auto&) { ++events; }));
  const EventConnection removed(controller.events.mask_operation_removed.connect([&](int) { ++events; }));
  ASSERT_NE(controller.apply_mask_to_workflow("keep", Value::object()), nullptr);
  EXPECT_EQ(events, 0);
}

struct RefusalCase {
  const char* name;
  const char* key;
  Value params;
  const char* reason;  ///< how it begins
};

class Refused : public MaskSteps, public testing::WithParamInterface<RefusalCase> {};

TEST_P(Refused, IsLoggedAndPutIntoTheErrorAloneAndTheWorkflowIsUnchanged) {
  give_workflow({"keep"});
  controller.state.message = "before";
  const LogCapture log;
  EXPECT_EQ(controller.apply_mask_to_workflow(GetParam().key, GetParam().params), nullptr);
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
  const std::string reason = GetParam().reason;
  ASSERT_TRUE(controller.state.error);
  EXPECT_THAT(*controller.state.error, testing::StartsWith("Failed to add mask to workflow: " + reason));
  EXPECT_EQ(log.lines().back(), "error: Controller.apply_mask_to_workflow: " +
                                    ("Failed to add mask to workflow - " + controller.state.error->substr(32)));
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_EQ(controller.state.phase, Phase::EMPTY);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, Refused,
    testing::Values(RefusalCase{"UnknownKey", "kep", Value::object(), "There is no mask operation"},
                    RefusalCase{"InvalidParameter", "radius", {{"radius", "wide"}}, "radius: parameter \"radius\" is"},
                    RefusalCase{"UnknownParameter", "radius", {{"radios", 3}}, "radius: "},
                    RefusalCase{"StepThatFails", "broken", Value::object(), "no contrast"},
                    RefusalCase{"StepThatReturnsNoMask", "nothing", Value::object(),
                                "Mask operation 'nothing' returned no mask"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(MaskSteps, AFailureBeforeAnyStepRanLeavesNothingInTheCacheAndOneAfterKeepsTheEarlierSteps) {
  give_workflow({"keep", "keep"});
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", {{"radius", "wide"}}), nullptr);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(controller.apply_mask_to_workflow("broken", Value::object()), nullptr);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0, 1));
}

TEST_F(MaskSteps, AnEarlierStepThatCannotBeRecomputedIsNamedByItsIndex) {
  give_workflow({"keep", "broken"});
  const LogCapture log;
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", Value::object()), nullptr);
  EXPECT_EQ(controller.state.error,
            "Failed to add mask to workflow: Could not resolve the existing mask chain (index 1) before adding 'The "
            "radius'");
  EXPECT_EQ(log.lines().back(),
            "error: Controller.apply_mask_to_workflow: Failed to add mask to workflow - Could not resolve the existing "
            "mask chain (index 1) before adding 'The radius'");
  EXPECT_THAT(mask_keys(), ElementsAre("keep", "broken"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
}

TEST_F(MaskSteps, AFailedFirstStepMakesNoWorkflow) {
  EXPECT_EQ(controller.apply_mask_to_workflow("broken", Value::object()), nullptr);
  EXPECT_EQ(controller.state.current_workflow, nullptr);
}

TEST_F(MaskSteps, ParametersWithTextThatIsNotUtf8AreRefusedWithoutAFailureOfTheLogLine) {
  give_workflow({});
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", {{"radius", "\xff"}}), nullptr);
  ASSERT_TRUE(controller.state.error);
  EXPECT_THAT(*controller.state.error, testing::StartsWith("Failed to add mask to workflow: "));
}

TEST_F(MaskSteps, ParametersThatNestTooDeeplyToBeLoggedAreRefusedLikeAnyOther) {
  give_workflow({"keep"});
  Value deep = 1;
  for (int level = 0; level < 100; ++level) deep = Value::array({deep});
  const LogCapture log;
  EXPECT_EQ(controller.apply_mask_to_workflow("radius", {{"radius", deep}}), nullptr);
  ASSERT_TRUE(controller.state.error);
  EXPECT_THAT(*controller.state.error, testing::StartsWith("Failed to add mask to workflow: "));
  EXPECT_THAT(log.lines().back(), testing::StartsWith("error: Controller.apply_mask_to_workflow: "));
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
}

TEST_F(MaskSteps, AFailureAfterTheStepWasAddedIsReportedWhileTheStepAndItsResultStay) {
  give_workflow({});
  const EventConnection deaf(
      controller.events.workflow_result_operations_changed.connect([] { throw std::runtime_error("no list"); }));
  const LogCapture log;
  EXPECT_EQ(controller.apply_mask_to_workflow("keep", Value::object()), nullptr);
  EXPECT_EQ(controller.state.error, "Failed to add mask to workflow: no list");
  EXPECT_EQ(log.lines().back(), "error: Controller.apply_mask_to_workflow: Failed to add mask to workflow - no list");
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_EQ(controller.state.message, "Added 'The keep' mask to workflow");
}

// ---- Working out ahead
// -----------------------------------------------------------------------------------------------

TEST_F(MaskSteps, AStepThatWasWorkedOutAheadIsNotRunAgainWhenItIsApplied) {
  give_workflow({"keep"});
  controller._prepare_mask_step("radius", {{"radius", 5}});
  EXPECT_EQ(runs, 2);
  EXPECT_THAT(mask_keys(), ElementsAre("keep"));
  EXPECT_EQ(controller.state.message, std::nullopt);
  const auto masked = controller.apply_mask_to_workflow("radius", {{"radius", 5}});
  ASSERT_NE(masked, nullptr);
  EXPECT_EQ(masked->mask, left);
  EXPECT_EQ(runs, 2);
  EXPECT_THAT(mask_keys(), ElementsAre("keep", "radius"));
  ASSERT_NE(controller.apply_mask_to_workflow("radius", {{"radius", 5}}), nullptr);
  EXPECT_EQ(runs, 3) << "the next one stands on another mask";
}

TEST_F(MaskSteps, AnotherStepThanTheOneThatWasWorkedOutAheadIsRun) {
  give_workflow({});
  controller._prepare_mask_step("radius", {{"radius", 5}});
  ASSERT_NE(controller.apply_mask_to_workflow("radius", {{"radius", 6}}), nullptr);
  EXPECT_EQ(runs, 2);
}

TEST_F(MaskSteps, AStepThatFailedAheadFailsWhenItIsApplied) {
  give_workflow({});
  controller._prepare_mask_step("broken", Value::object());
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(controller.apply_mask_to_workflow("broken", Value::object()), nullptr);
  EXPECT_EQ(controller.state.error, "Failed to add mask to workflow: no contrast");
  EXPECT_THAT(mask_keys(), IsEmpty());
}

TEST_F(MaskSteps, WrongParametersAndAMissingCaptureAreLeftToApplying) {
  give_workflow({});
  controller._prepare_mask_step("radius", {{"radius", "wide"}});
  controller._prepare_mask_step("unheard_of", Value::object());
  controller.state.current_capture = nullptr;
  controller._prepare_mask_step("keep", Value::object());
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(MaskSteps, WorkingOutAheadEndsWhenItIsCancelled) {
  const model::MaskOperationInfo endless =
      mask_operation("endless", [](const MaskCall&) -> std::optional<model::Mask> { throw model::CancelledError(); });
  const model::MaskRegistryOverride only({&endless});
  give_workflow({});
  EXPECT_THROW(controller._prepare_mask_step("endless", Value::object()), model::CancelledError);
  EXPECT_THAT(mask_keys(), IsEmpty());
}

// ---- Removing
// --------------------------------------------------------------------------------------------------------

TEST_F(MaskSteps, RemovingIndexOneOfThreeCachedStepsLeavesOnlyCacheEntryZero) {
  give_workflow({"keep", "radius", "keep"});
  ASSERT_NE(controller.get_mask_result(2), nullptr);
  const auto first = controller._mask_result_cache.at(0);
  controller.state.enabled_operations_cache = {"shape"};
  const LogCapture log;
  EXPECT_TRUE(controller.remove_mask_from_workflow(1));
  EXPECT_THAT(mask_keys(), ElementsAre("keep", "keep"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_EQ(controller._mask_result_cache.at(0), first);
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.remove_mask_from_workflow: Removed mask 'radius' at index 1",
                                       "debug: No change in workflow result operations (0 enabled)"));
}

TEST_F(MaskSteps, RemovingIndexZeroEmptiesTheCache) {
  give_workflow({"keep", "radius", "keep"});
  ASSERT_NE(controller.get_mask_result(2), nullptr);
  EXPECT_TRUE(controller.remove_mask_from_workflow(0));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_THAT(mask_keys(), ElementsAre("radius", "keep"));
}

TEST_F(MaskSteps, RemovingTheLastStepKeepsTheEarlierResults) {
  give_workflow({"keep", "radius", "keep"});
  ASSERT_NE(controller.get_mask_result(2), nullptr);
  EXPECT_TRUE(controller.remove_mask_from_workflow(2));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0, 1));
}

TEST_F(MaskSteps, RemovingIndexMinusOneOrPastTheEndIsRefusedAndNeverTakesTheLastStep) {
  give_workflow({"keep", "radius"});
  for (const int index : {-1, 2}) {
    const LogCapture log;
    EXPECT_FALSE(controller.remove_mask_from_workflow(index));
    EXPECT_THAT(mask_keys(), ElementsAre("keep", "radius"));
    EXPECT_THAT(log.lines(), ElementsAre("error: Controller.remove_mask_from_workflow: Invalid mask index " +
                                         std::to_string(index)));
  }
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(MaskSteps, RemovingWithoutAWorkflowIsAWarning) {
  const LogCapture log;
  EXPECT_FALSE(controller.remove_mask_from_workflow(0));
  EXPECT_THAT(log.lines(), ElementsAre("warning: Controller.remove_mask_from_workflow: No workflow available"));
}

TEST_F(MaskSteps, RemovingTellsOfTheResultOperationsFirstAndThenOfTheStepsIndex) {
  give_workflow({"radius", "keep"});
  controller.state.current_workflow->result_operations = workflow_of({}, {"shape"})->result_operations;
  controller.state.enabled_operations_cache = {"shape"};
  ASSERT_NE(controller.get_mask_result(1), nullptr);
  std::vector<std::string> heard;
  const EventConnection changed(controller.events.workflow_result_operations_changed.connect([&] {
    heard.push_back("changed to " + std::to_string(mask_keys().size()) + " masks");
    EXPECT_THAT(cached_indices(controller), ElementsAre(0)) << "the cache is cut before anybody is told";
  }));
  const EventConnection removed(controller.events.mask_operation_removed.connect(
      [&](int index) { heard.push_back("removed " + std::to_string(index)); }));
  EXPECT_TRUE(controller.remove_mask_from_workflow(1));
  EXPECT_THAT(heard, ElementsAre("changed to 1 masks", "removed 1"));
  EXPECT_THAT(controller.state.current_workflow->result_operations, IsEmpty());
}

TEST_F(MaskSteps, AFailingReceiverOfTheRemovalIsLoggedAndTheRemovalReportedAsFailed) {
  give_workflow({"keep"});
  const EventConnection removed(
      controller.events.mask_operation_removed.connect([](int) { throw std::runtime_error("no tab"); }));
  const LogCapture log;
  EXPECT_FALSE(controller.remove_mask_from_workflow(0));
  EXPECT_EQ(log.lines().back(), "error: Controller.remove_mask_from_workflow: Error removing mask - no tab");
  EXPECT_THAT(mask_keys(), IsEmpty());
}

}  // namespace
}  // namespace orvexa::test

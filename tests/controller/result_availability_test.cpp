#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::EventConnection;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Names = std::vector<std::string>;
using Requirements = std::vector<model::MeasurementRequirement>;

// ---- The two questions
// -----------------------------------------------------------------------------------------------

struct MeasurementCase {
  const char* name;
  std::optional<Requirements> required;
  Names present;
  bool is_met;
};

class MeasurementRequirements : public testing::TestWithParam<MeasurementCase> {};

TEST_P(MeasurementRequirements, AreMetOrNot) {
  const Probe controller;
  const auto info = result_operation("op", "Any", GetParam().required);
  EXPECT_EQ(controller._check_measurement_requirements(info, GetParam().present), GetParam().is_met);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, MeasurementRequirements,
    testing::Values(
        MeasurementCase{"NoneDeclared", std::nullopt, {"A"}, true},
        MeasurementCase{"NoneDeclaredAndNonePresent", std::nullopt, {}, true},
        MeasurementCase{"AnEmptyListAndNonePresent", Requirements{}, {}, true},
        MeasurementCase{"OneThatIsPresent", Requirements{"A"}, {"B", "A"}, true},
        MeasurementCase{"OneThatIsMissing", Requirements{"A"}, {"B"}, false},
        MeasurementCase{"TwoOfWhichOnlyOneIsPresent", Requirements{"A", "C"}, {"A"}, false},
        MeasurementCase{"TwoThatArePresent", Requirements{"A", "C"}, {"C", "A"}, true},
        MeasurementCase{"OneWhileNoneIsPresent", Requirements{"A"}, {}, false},
        MeasurementCase{
            "AlternativesOfWhichTheSecondIsPresentWhateverFollows", Requirements{Names{"A", "B"}, "C"}, {"B"}, true},
        MeasurementCase{
            "AlternativesOfWhichNoneIsPresentThoughTheRestIs", Requirements{Names{"A", "B"}, "C"}, {"C"}, false},
        MeasurementCase{"AlternativesWhileNoneIsPresent", Requirements{Names{"A", "B"}}, {}, false},
        MeasurementCase{"NoAlternatives", Requirements{Names{}}, {"A"}, false},
        MeasurementCase{"AlternativesThatDoNotComeFirst", Requirements{"A", Names{"B"}}, {"A", "B"}, false},
        MeasurementCase{"AnotherCaseOfTheName", Requirements{"A"}, {"a"}, false}),
    [](const auto& row) { return std::string(row.param.name); });

struct MaskCase {
  const char* name;
  std::optional<Names> patterns;
  Names keys;
  bool is_met;
};

class MaskRequirements : public testing::TestWithParam<MaskCase> {};

TEST_P(MaskRequirements, AreMetOrNot) {
  const Probe controller;
  const auto info = result_operation("op", "Any", std::nullopt, GetParam().patterns);
  EXPECT_EQ(controller._check_mask_requirements(info, GetParam().keys), GetParam().is_met);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, MaskRequirements,
    testing::Values(MaskCase{"NoneDeclared", std::nullopt, {}, true},
                    MaskCase{"AnEmptyListOfPatterns", Names{}, {}, true},
                    MaskCase{"APatternWithoutMasks", Names{"*"}, {}, false},
                    MaskCase{"AStarPatternAndAKeyThatMatches", Names{"threshold*"}, {"threshold_otsu"}, true},
                    MaskCase{"AStarPatternAndTheSameTextAsKey", Names{"threshold*"}, {"threshold*"}, true},
                    MaskCase{"ABracketPatternThatIsItselfTheKey", Names{"roi[1]"}, {"roi[1]"}, true},
                    MaskCase{"AStarPatternAndNoKeyThatMatches", Names{"threshold*"}, {"erode", "my_threshold"}, false},
                    MaskCase{
                        "AnyOfTwoPatternsIsEnough", Names{"roi_*", "threshold*"}, {"erode", "threshold_hsv"}, true},
                    MaskCase{"AnyOfTheKeysIsEnough", Names{"roi_rect?"}, {"erode", "roi_rects"}, true},
                    MaskCase{"AQuestionMarkStandsForOneCharacter", Names{"roi_rect?"}, {"roi_rect"}, false},
                    MaskCase{"ASetOfCharacters", Names{"step[12]"}, {"step2"}, true},
                    MaskCase{"AnotherCase", Names{"threshold*"}, {"Threshold_otsu"}, false}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- Availability and the workflow
// -----------------------------------------------------------------------------------

/// Category "Shape": area (always), outline (needs a threshold mask); category "Spectral": ndvi (needs MSP; parameters
/// low = 1, high = 9), glow (needs FLU). Registered with Spectral's ndvi before Shape's second row.
class Availability : public testing::Test {
 protected:
  Availability() {
    controller.state.current_capture = small_capture();
    controller.state.current_workflow = workflow;
  }

  Names result_keys() const { return keys_of(workflow->result_operations); }

  const model::ResultOperationInfo area = result_operation("area", "Shape");
  const model::ResultOperationInfo ndvi = result_operation("ndvi", "Spectral", Requirements{"MSP"}, std::nullopt,
                                                           {integer_parameter("low", 1), integer_parameter("high", 9)});
  const model::ResultOperationInfo outline = result_operation("outline", "Shape", std::nullopt, Names{"threshold*"});
  const model::ResultOperationInfo glow = result_operation("glow", "Spectral", Requirements{"FLU"});
  std::function<void(std::string_view)> on_access;
  const model::ResultRegistryOverride registry{{&area, &ndvi, &outline, &glow}, [this](std::string_view key) {
                                                 if (on_access) on_access(key);
                                               }};
  Probe controller;
  std::shared_ptr<model::Workflow> workflow = workflow_of({"threshold_otsu"});
  int changes = 0;
  const EventConnection heard{controller.events.workflow_result_operations_changed.connect([this] { ++changes; })};
};

TEST_F(Availability, FollowsTheRegistrysCategoryOrder) {
  EXPECT_EQ(controller._get_available_op_keys(*workflow), (Names{"area", "outline", "ndvi"}));
  EXPECT_EQ(controller._get_available_op_keys(*workflow_of({"erode"})), (Names{"area", "ndvi"}));
}

TEST_F(Availability, WithACaptureThatProvidesNoMeasurementTypesOnlyOperationsWithoutMeasurementsAreAvailable) {
  controller.state.current_capture = capture("nothing", {});
  EXPECT_EQ(controller._get_available_op_keys(*workflow), (Names{"area", "outline"}));
}

TEST_F(Availability, OfAlternativeMeasurementsTheSecondAloneMakesAnOperationAvailableAndOfTwoRequiredOneDoesNot) {
  const auto either = result_operation("either", "Shape", Requirements{Names{"A", "B"}, "C"});
  const auto both = result_operation("both", "Shape", Requirements{"B", "C"});
  const model::ResultRegistryOverride others({&both, &either});
  controller.state.current_capture = capture_with_masks("plot", {{"B", 0}});
  EXPECT_EQ(controller._get_available_op_keys(*workflow), (Names{"either"}));
}

TEST_F(Availability, AnOperationThatTheRegistryListsTwiceIsAvailableTwiceAndCachedOnce) {
  const model::ResultRegistryOverride twice({&area, &area});
  EXPECT_EQ(controller._get_available_op_keys(*workflow), (Names{"area", "area"}));
  controller.handle_mask_dependencies();
  EXPECT_THAT(controller.state.enabled_operations_cache, ElementsAre("area"));
}

TEST_F(Availability, IsUnknownWithoutACaptureOrWhenTheRegistryFails) {
  controller.state.current_capture.reset();
  const LogCapture log;
  EXPECT_EQ(controller._get_available_op_keys(*workflow), std::nullopt);
  EXPECT_THAT(log.lines(),
              ElementsAre("error: _get_available_op_keys: Error getting measurements - No capture loaded"));
  controller.state.current_capture = small_capture();
  on_access = [](std::string_view) { throw std::runtime_error("registry not there"); };
  EXPECT_EQ(controller._get_available_op_keys(*workflow), std::nullopt);
  EXPECT_EQ(log.lines().back(), "error: _get_available_op_keys: Error getting measurements - registry not there");
}

TEST_F(Availability, HandlingWithoutWorkflowOrCaptureIsSkipped) {
  controller.state.enabled_operations_cache = {"kept"};
  controller.state.current_capture.reset();
  const LogCapture log;
  controller.handle_mask_dependencies();
  controller.state.current_capture = small_capture();
  controller.state.current_workflow.reset();
  controller.handle_mask_dependencies();
  EXPECT_THAT(log.lines(), ElementsAre("debug: handle_mask_dependencies: No workflow or capture, skipping",
                                       "debug: handle_mask_dependencies: No workflow or capture, skipping"));
  EXPECT_THAT(controller.state.enabled_operations_cache, ElementsAre("kept"));
}

TEST_F(Availability, HandlingChangesNothingWhenAvailabilityIsUnknown) {
  controller.state.enabled_operations_cache = {"kept"};
  workflow->result_operations = workflow_of({}, {"glow"})->result_operations;
  on_access = [](std::string_view) { throw std::runtime_error("registry not there"); };
  const LogCapture log;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("glow"));
  EXPECT_THAT(controller.state.enabled_operations_cache, ElementsAre("kept"));
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(Availability, WhatBecameAvailableIsAddedOnceWithItsDefaults) {
  const LogCapture log;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area", "outline", "ndvi"));
  EXPECT_EQ(workflow->result_operations[0].params, Value::object());
  EXPECT_EQ(workflow->result_operations[2].params, (Value{{"low", 1}, {"high", 9}}));
  EXPECT_THAT(controller.state.enabled_operations_cache, UnorderedElementsAre("area", "outline", "ndvi"));
  EXPECT_EQ(changes, 1);
  EXPECT_THAT(log.lines(), ElementsAre("debug: Auto-added newly available operation area with no parameters",
                                       "debug: Auto-added newly available operation outline with no parameters",
                                       "debug: Auto-added newly available operation ndvi with 2 default parameters",
                                       "info: Updated workflow result operations: 3 enabled (was 0)"));
}

TEST_F(Availability, HandlingTwiceWithoutChangesEmitsNothingTheSecondTimeAndSaysSo) {
  controller.handle_mask_dependencies();
  changes = 0;
  const LogCapture log;
  controller.handle_mask_dependencies();
  EXPECT_EQ(changes, 0);
  EXPECT_THAT(log.lines(), ElementsAre("debug: No change in workflow result operations (3 enabled)"));
}

TEST_F(Availability, WhatTheUserLeftOutIsNeverPutBackWhileItStaysAvailable) {
  controller.handle_mask_dependencies();
  controller.sync_result_operations_to_workflow({"area"});
  changes = 0;
  controller.handle_mask_dependencies();
  workflow->mask_operations.push_back({{.op = "erode"}});
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area"));
  EXPECT_EQ(changes, 0);
}

TEST_F(Availability, WhatTheUserLeftOutComesBackWhenItWasUnavailableInBetween) {
  controller.handle_mask_dependencies();
  controller.sync_result_operations_to_workflow({"area"});
  workflow->mask_operations.clear();
  controller.handle_mask_dependencies();
  EXPECT_THAT(controller.state.enabled_operations_cache, UnorderedElementsAre("area", "ndvi"));
  workflow->mask_operations.push_back({{.op = "threshold_hsv"}});
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area", "outline"));
}

TEST_F(Availability, AnOperationWhoseMaskWasRemovedGoes) {
  controller.handle_mask_dependencies();
  workflow->mask_operations.clear();
  changes = 0;
  const LogCapture log;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area", "ndvi"));
  EXPECT_EQ(changes, 1);
  EXPECT_THAT(log.lines(), ElementsAre("info: Updated workflow result operations: 2 enabled (was 3)"));
}

TEST_F(Availability, WhatIsKeptKeepsItsParametersAndTheOrderIsTheRegistrysNotTheUsers) {
  controller.state.enabled_operations_cache = {"area", "ndvi"};
  workflow->result_operations = {{{.op = "ndvi", .params = {{"low", 5}}}}, {{.op = "area", .params = {{"x", 1}}}}};
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area", "outline", "ndvi"));
  EXPECT_EQ(workflow->result_operations[0].params, (Value{{"x", 1}}));
  EXPECT_EQ(workflow->result_operations[2].params, (Value{{"low", 5}}));
}

TEST_F(Availability, WithTheSameSetOfKeysTheListStaysAsTheUserOrderedIt) {
  controller.state.enabled_operations_cache = {"area", "ndvi", "outline"};
  workflow->result_operations = workflow_of({}, {"ndvi", "area"})->result_operations;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("ndvi", "area"));
  EXPECT_EQ(changes, 0);
}

TEST_F(Availability, OfARepeatedKeyTheLaterEntryWinsAndTheOldCountIsOfDistinctKeys) {
  workflow->result_operations = {{{.op = "area", .params = {{"x", 1}}}}, {{.op = "area", .params = {{"x", 2}}}}};
  const LogCapture log;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area", "outline", "ndvi"));
  EXPECT_EQ(workflow->result_operations[0].params, (Value{{"x", 2}}));
  EXPECT_EQ(log.lines().back(), "info: Updated workflow result operations: 3 enabled (was 1)");
}

TEST_F(Availability, AnUnknownOperationOfTheWorkflowIsDroppedAsUnavailable) {
  controller.state.enabled_operations_cache = {"area", "ndvi", "outline"};
  workflow->result_operations = workflow_of({}, {"area", "from_the_future"})->result_operations;
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), ElementsAre("area"));
  EXPECT_EQ(changes, 1);
}

TEST_F(Availability, TheCacheIsUpdatedAlsoWhenTheListStaysTheSame) {
  controller.state.enabled_operations_cache = {"area", "ndvi", "outline", "glow"};
  controller.handle_mask_dependencies();
  EXPECT_THAT(result_keys(), IsEmpty());
  EXPECT_THAT(controller.state.enabled_operations_cache, UnorderedElementsAre("area", "ndvi", "outline"));
}

TEST_F(Availability, WhoIsToldOfTheChangeFindsTheNewListTheCacheAndTheLogLineInPlace) {
  const LogCapture log;
  std::vector<Names> told;
  const EventConnection receiver{controller.events.workflow_result_operations_changed.connect([&] {
    told.push_back(result_keys());
    EXPECT_THAT(controller.state.enabled_operations_cache, UnorderedElementsAre("area", "outline", "ndvi"));
    EXPECT_EQ(log.lines().back(), "info: Updated workflow result operations: 3 enabled (was 0)");
  })};
  controller.handle_mask_dependencies();
  EXPECT_THAT(told, ElementsAre(Names{"area", "outline", "ndvi"}));
}

TEST_F(Availability, AnOperationWhoseDefaultsCannotBeReadIsAddedWithAnEmptyMapAndAWarning) {
  on_access = [](std::string_view key) {
    if (key == "ndvi") throw std::runtime_error("no description");
  };
  const LogCapture log;
  controller.handle_mask_dependencies();
  ASSERT_EQ(workflow->result_operations.size(), 3U);
  EXPECT_EQ(workflow->result_operations[2], (model::ResultOperationConfig{{.op = "ndvi"}}));
  EXPECT_THAT(log.lines(), testing::Contains("warning: Could not get default parameters for ndvi: no description"));
}

// ---- What the user ticked
// --------------------------------------------------------------------------------------------

TEST_F(Availability, SyncingKeepsParametersTakesDefaultsForNewKeysAndTheGivenOrder) {
  workflow->result_operations = {{{.op = "area", .params = {{"x", 1}}}}, {{.op = "glow"}}};
  const LogCapture log;
  controller.sync_result_operations_to_workflow({"ndvi", "area", "outline", "nobody_knows"});
  EXPECT_THAT(result_keys(), ElementsAre("ndvi", "area", "outline", "nobody_knows"));
  EXPECT_EQ(workflow->result_operations[0].params, (Value{{"low", 1}, {"high", 9}}));
  EXPECT_EQ(workflow->result_operations[1].params, (Value{{"x", 1}}));
  EXPECT_EQ(workflow->result_operations[2].params, Value::object());
  EXPECT_EQ(workflow->result_operations[3].params, Value::object());
  EXPECT_EQ(changes, 1);
  EXPECT_THAT(log.lines(), ElementsAre("info: Synced 4 result operations to workflow"));
}

TEST_F(Availability, SyncingTakesTheLaterOfTwoEntriesAndARepeatedKeyAsOftenAsItIsGiven) {
  workflow->result_operations = {{{.op = "area", .params = {{"x", 1}}}}, {{.op = "area", .params = {{"x", 2}}}}};
  const LogCapture log;
  const EventConnection receiver{controller.events.workflow_result_operations_changed.connect(
      [&] { EXPECT_THAT(log.lines(), ElementsAre("info: Synced 2 result operations to workflow")); })};
  controller.sync_result_operations_to_workflow({"area", "area"});
  EXPECT_THAT(result_keys(), ElementsAre("area", "area"));
  EXPECT_EQ(workflow->result_operations[0].params, (Value{{"x", 2}}));
  EXPECT_EQ(workflow->result_operations[1].params, (Value{{"x", 2}}));
  EXPECT_EQ(changes, 1);
}

TEST_F(Availability, SyncingKeepsWhatElseAFileHeldBesideTheParameters) {
  workflow->result_operations = {{{.op = "area", .others = {{"comment", "ours"}}}}};
  controller.sync_result_operations_to_workflow({"area"});
  EXPECT_EQ(workflow->result_operations[0].others, (Value{{"comment", "ours"}}));
}

TEST_F(Availability, SyncingAnEmptyListEmptiesTheWorkflowsAndStillEmits) {
  workflow->result_operations = workflow_of({}, {"area"})->result_operations;
  controller.sync_result_operations_to_workflow({});
  EXPECT_THAT(result_keys(), IsEmpty());
  controller.sync_result_operations_to_workflow({});
  EXPECT_EQ(changes, 2) << "also when nothing changed";
}

TEST_F(Availability, SyncingWithoutAWorkflowIsLoggedAndEmitsNothing) {
  controller.state.current_workflow.reset();
  const LogCapture log;
  controller.sync_result_operations_to_workflow({"area"});
  EXPECT_THAT(log.lines(), ElementsAre("error: Error syncing result operations to workflow: No workflow loaded"));
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(Availability, SyncingAKeyWhoseDefaultsCannotBeReadIsAWarningAndAddsItWithoutParameters) {
  on_access = [](std::string_view key) {
    if (key == "ndvi") throw std::runtime_error("no description");
  };
  const LogCapture log;
  controller.sync_result_operations_to_workflow({"ndvi", "area"});
  EXPECT_THAT(result_keys(), ElementsAre("ndvi", "area"));
  EXPECT_EQ(workflow->result_operations[0].params, Value::object());
  EXPECT_THAT(log.lines(), ElementsAre("warning: Could not get default parameters for ndvi: no description",
                                       "info: Synced 2 result operations to workflow"));
}

TEST_F(Availability, AFailingReceiverOfTheSyncIsLoggedAndSwallowed) {
  const EventConnection broken{
      controller.events.workflow_result_operations_changed.connect([] { throw std::runtime_error("no list"); })};
  const LogCapture log;
  controller.sync_result_operations_to_workflow({"area"});
  EXPECT_EQ(log.lines().back(), "error: Error syncing result operations to workflow: no list");
}

}  // namespace
}  // namespace orvexa::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const model::Mask all_set = mask({"###", "###"});
const model::Mask left = mask({"#..", "#.."});
const model::Mask left_two = mask({"##.", "##."});
const model::Mask top = mask({"###", "..."});
const model::Mask top_left = mask({"#..", "..."});

/// What one run of a step was given.
struct Seen {
  std::string key;
  std::optional<model::Mask> current_mask;
  bool got_capture_set = false;
  bool got_image_stack = false;
};

/// A small capture, a workflow of the steps that a test asks for, and a record of every run.
class MaskChain : public testing::Test {
 protected:
  MaskChain() {
    controller.state.current_capture = capture;
    controller.state.current_workflow = workflow;
  }

  /// A step of the workflow and the operation behind it.
  void add_step(const std::string& key, MaskBody body, const Value& params = Value::object()) {
    define(key, std::move(body));
    workflow->mask_operations.push_back({{.op = key, .params = params}});
  }

  void define(const std::string& key, MaskBody body, bool needs_mask = false) {
    auto info = mask_operation(key, [this, key, body = std::move(body)](const MaskCall& call) {
      runs.push_back({.key = key,
                      .current_mask = call.current_mask ? std::optional(*call.current_mask) : std::nullopt,
                      .got_capture_set = dynamic_cast<const model::CaptureSet*>(&call.image_stack) != nullptr,
                      .got_image_stack = dynamic_cast<const model::ImageStack*>(&call.image_stack) != nullptr});
      return body(call);
    });
    info.needs_mask = needs_mask;
    operations.push_back(std::make_unique<model::MaskOperationInfo>(std::move(info)));
    std::vector<const model::MaskOperationInfo*> rows;
    for (const auto& operation : operations) rows.push_back(operation.get());
    registry.reset();
    registry.emplace(rows);
  }

  std::vector<std::string> keys_run() const {
    std::vector<std::string> keys;
    for (const Seen& run : runs) keys.push_back(run.key);
    return keys;
  }

  Probe controller;
  std::shared_ptr<model::CaptureSet> capture = small_capture();
  std::shared_ptr<model::Workflow> workflow = workflow_of({});
  std::vector<std::unique_ptr<model::MaskOperationInfo>> operations;
  std::optional<model::MaskRegistryOverride> registry;
  std::vector<Seen> runs;
};

TEST_F(MaskChain, AnIndexOfMinusOneOrPastTheLastStepGivesNothingAndLeavesTheCacheAlone) {
  add_step("a", gives(left));
  controller._mask_result_cache[7] = capture;
  const LogCapture log;
  EXPECT_EQ(controller.get_mask_result(-1), nullptr);
  EXPECT_EQ(controller.get_mask_result(1), nullptr);
  EXPECT_EQ(controller.get_mask_result(7), nullptr);
  EXPECT_THAT(cached_indices(controller), ElementsAre(7));
  EXPECT_THAT(runs, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskChain, WithoutAWorkflowOrACaptureThereIsNoResultEvenWhenOneIsCached) {
  add_step("a", gives(left));
  controller._mask_result_cache[0] = capture;
  const LogCapture log;
  controller.state.current_workflow.reset();
  EXPECT_EQ(controller.get_mask_result(0), nullptr);
  controller.state.current_workflow = workflow;
  controller.state.current_capture.reset();
  EXPECT_EQ(controller.get_mask_result(0), nullptr);
  EXPECT_THAT(runs, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskChain, AskingForIndexThreeRunsEachStepOnceInOrderAndAskingAgainRunsNothing) {
  for (const char* key : {"a", "b", "c", "d"}) add_step(key, gives(left));
  const auto result = controller.get_mask_result(3);
  ASSERT_NE(result, nullptr);
  EXPECT_THAT(keys_run(), ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0, 1, 2, 3));
  const LogCapture log;
  EXPECT_EQ(controller.get_mask_result(3), result);
  EXPECT_EQ(controller.get_mask_result(1), controller._mask_result_cache.at(1));
  EXPECT_EQ(runs.size(), 4U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskChain, OnlyTheStepsAfterTheLastCachedOneRun) {
  for (const char* key : {"a", "b", "c"}) add_step(key, gives(left));
  ASSERT_NE(controller.get_mask_result(1), nullptr);
  runs.clear();
  ASSERT_NE(controller.get_mask_result(2), nullptr);
  EXPECT_THAT(keys_run(), ElementsAre("c"));
}

TEST_F(MaskChain, EachStepGetsTheMaskOfTheOneBeforeAndItsResultCarriesThePicturesAndTheStep) {
  add_step("a", gives(left_two));
  add_step("b", gives(top), {{"reset_mask_chain", false}});
  const LogCapture log;
  const auto result = controller.get_mask_result(1);
  ASSERT_NE(result, nullptr);
  EXPECT_FALSE(runs[0].current_mask);
  EXPECT_EQ(runs[1].current_mask, left_two);
  EXPECT_EQ(result->mask, mask({"##.", "..."}));
  const auto& measurement = *result->measurements.at("MSP");
  EXPECT_EQ(measurement.images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 0}, {0, 0, 0}}));
  ASSERT_EQ(measurement.masks.size(), 2U);
  EXPECT_EQ(measurement.masks[1].operation_name, "b");
  EXPECT_EQ(measurement.masks[1].operation_params, (Value{{"reset_mask_chain", false}}));
  EXPECT_EQ(capture->measurements.at("MSP")->images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}}));
  EXPECT_EQ(capture->mask, std::nullopt);
  EXPECT_THAT(log.lines(),
              ElementsAre("debug: Controller._compute_mask_step: Running a at index 0 (has current_mask: False)",
                          "debug: Controller._compute_mask_step: Running b at index 1 (has current_mask: True)"));
}

TEST_F(MaskChain, AFailingStepIsLoggedWithItsTraceAndNotCachedWhileEarlierStepsStayCached) {
  bool is_broken = true;
  add_step("a", gives(left));
  add_step("b", [&](const MaskCall& call) {
    if (is_broken) throw std::runtime_error("no contrast");
    return std::optional(*call.current_mask);
  });
  add_step("c", gives(left));
  const LogCapture log;
  EXPECT_EQ(controller.get_mask_result(2), nullptr);
  EXPECT_EQ(log.lines().back(),
            "exception: Controller.get_mask_result: Failed to compute mask result at index 1 for b - no contrast");
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_THAT(keys_run(), ElementsAre("a", "b"));
  EXPECT_EQ(controller.state.error, std::nullopt);

  runs.clear();
  is_broken = false;
  EXPECT_NE(controller.get_mask_result(2), nullptr);
  EXPECT_THAT(keys_run(), ElementsAre("b", "c"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0, 1, 2));
}

TEST_F(MaskChain, AnUnknownOperationEndsTheChainAtItsStep) {
  add_step("a", gives(left));
  workflow->mask_operations.push_back({{.op = "nobody_knows"}});
  EXPECT_EQ(controller.get_mask_result(1), nullptr);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_THROW(static_cast<void>(controller._compute_mask_step(1, *capture, workflow->mask_operations[1])),
               std::invalid_argument);
}

TEST_F(MaskChain, AStepIsAnnouncedBeforeItRunsAndAnUnknownOneNotAtAll) {
  add_step("a", fails("no contrast"));
  workflow->mask_operations.push_back({{.op = "nobody_knows"}});
  const LogCapture log;
  EXPECT_THROW(static_cast<void>(controller._compute_mask_step(4, *capture, workflow->mask_operations[0])),
               std::runtime_error);
  EXPECT_THROW(static_cast<void>(controller._compute_mask_step(5, *capture, workflow->mask_operations[1])),
               std::invalid_argument);
  EXPECT_THAT(log.lines(),
              ElementsAre("debug: Controller._compute_mask_step: Running a at index 4 (has current_mask: False)"));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
}

TEST_F(MaskChain, AStepThatNeedsAnEarlierMaskAndHasNoneFailsWithItsOwnSentence) {
  define("grow", gives(left), true);
  workflow->mask_operations.push_back({{.op = "grow"}});
  const LogCapture log;
  EXPECT_EQ(controller.get_mask_result(0), nullptr);
  EXPECT_EQ(log.lines().back(),
            "exception: Controller.get_mask_result: Failed to compute mask result at index 0 for grow - The grow needs "
            "a mask to work on: put a step that makes one before it.");
  EXPECT_THAT(runs, IsEmpty());
}

TEST_F(MaskChain, AStepThatReturnsNoMaskIsAValueErrorThatNamesIt) {
  add_step("a", [](const MaskCall&) -> std::optional<model::Mask> { return std::nullopt; });
  try {
    static_cast<void>(controller._compute_mask_step(0, *capture, workflow->mask_operations[0]));
    FAIL() << "nothing was raised";
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(), "Mask operation 'a' returned no mask");
  }
  const LogCapture log;
  EXPECT_EQ(controller.get_mask_result(0), nullptr);
  EXPECT_EQ(log.lines().back(),
            "exception: Controller.get_mask_result: Failed to compute mask result at index 0 for a - Mask operation "
            "'a' returned no mask");
}

TEST_F(MaskChain, AStepThatResetsTheChainIsAppliedToTheUnmaskedCaptureButGetsThePreviousMask) {
  add_step("a", gives(left));
  // An operation that needs a mask keeps the one it is given, so what the chain hands over can be seen here.
  define(
      "b", [](const MaskCall& call) { return std::optional(*call.current_mask); }, true);
  workflow->mask_operations.push_back({{.op = "b", .params = {{"reset_mask_chain", true}}}});
  const auto result = controller.get_mask_result(1);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(runs[1].current_mask, left);
  EXPECT_TRUE(runs[1].got_capture_set);
  const auto& masks = result->measurements.at("MSP")->masks;
  ASSERT_EQ(masks.size(), 1U) << "applied to the unmasked capture, the step is its first mask";
  EXPECT_EQ(masks[0].operation_name, "b");
}

TEST_F(MaskChain, AStepThatResetsTheChainFindsPixelsAgainThatEarlierStepsLeftOut) {
  add_step("a", gives(left));
  add_step("b", gives(top), {{"reset_mask_chain", true}});
  EXPECT_EQ(controller.get_mask_result(1)->mask, top);
}

TEST_F(MaskChain, OfAFilesResetMaskChainOnlyTrueResetsNullIsFalseAndWhateverElseIsRefused) {
  // The receiver is chosen by the value as the file has it, the step runs by the checked one. They can never differ,
  // because the check takes nothing but true and false, and null for the default.
  add_step("a", gives(left));
  add_step("b", gives(top));
  Value& params = workflow->mask_operations[1].params;
  const auto masks_after = [&](const Value& reset) {
    params = {{"reset_mask_chain", reset}};
    const auto result = controller._compute_mask_step(1, *capture->apply_mask(left), workflow->mask_operations[1]);
    return std::pair(result->mask, result->measurements.at("MSP")->masks.size());
  };
  EXPECT_EQ(masks_after(true), std::pair(std::optional(top), std::size_t{1}));
  EXPECT_EQ(masks_after(false), std::pair(std::optional(top_left), std::size_t{2}));
  EXPECT_EQ(masks_after(nullptr), std::pair(std::optional(top_left), std::size_t{2}));
  for (const Value& other : {Value(1), Value(0), Value(1.0), Value("true"), Value("True"), Value("yes"), Value(""),
                             Value::array({true}), Value::object()}) {
    SCOPED_TRACE(other.dump());
    try {
      static_cast<void>(masks_after(other));
      ADD_FAILURE() << "nothing was raised";
    } catch (const std::invalid_argument& failure) {
      EXPECT_THAT(failure.what(), testing::StartsWith("b: parameter \"reset_mask_chain\" is "));
      EXPECT_THAT(failure.what(), testing::HasSubstr("must be true or false"));
    }
  }
}

TEST_F(MaskChain, WithoutACurrentCaptureAStepThatResetsTheChainIsAppliedToItsInput) {
  add_step("a", gives(top), {{"reset_mask_chain", true}});
  const auto input = capture->apply_mask(left);
  controller.state.current_capture.reset();
  const auto result = controller._compute_mask_step(0, *input, workflow->mask_operations[0]);
  EXPECT_EQ(result->measurements.at("MSP")->masks.size(), 2U);
}

TEST_F(MaskChain, TheStepGetsTheWholeCaptureSetHereAndTheBareImageStackInTheAccumulatedMask) {
  add_step("a", gives(left));
  ASSERT_NE(controller.get_mask_result(0), nullptr);
  EXPECT_TRUE(runs.back().got_capture_set);
  EXPECT_FALSE(runs.back().got_image_stack);
  ASSERT_TRUE(controller.build_accumulated_mask());
  EXPECT_FALSE(runs.back().got_capture_set);
  EXPECT_TRUE(runs.back().got_image_stack);
}

// ---- Overlays
// --------------------------------------------------------------------------------------------------------

using Rgb = cv::Vec3b;

model::Image overlay(const std::vector<Rgb>& first_row) {
  cv::Mat pixels(2, 3, CV_8UC3, cv::Scalar::all(0));
  for (int x = 0; x < 3; ++x) pixels.at<Rgb>(0, x) = first_row[static_cast<std::size_t>(x)];
  return model::Image(std::move(pixels));
}

MaskBody draws(const model::Image& picture) {
  return [picture](const MaskCall& call) {
    call.operation.viz_overlay = picture;
    return std::optional(all_set);
  };
}

TEST_F(MaskChain, OverlaysAccumulateAndLaterStepsPaintOnlyWhereTheyDrewSomething) {
  const model::Image first = overlay({Rgb(255, 0, 0), Rgb(0, 0, 1), Rgb(0, 0, 0)});
  const model::Image second = overlay({Rgb(0, 0, 0), Rgb(0, 9, 0), Rgb(7, 7, 7)});
  add_step("a", draws(first));
  add_step("b", draws(second));
  ASSERT_NE(controller.get_mask_result(1), nullptr);
  EXPECT_EQ(controller._mask_result_cache.at(0)->viz_overlay, first) << "a later step changed an earlier overlay";
  EXPECT_EQ(controller._mask_result_cache.at(1)->viz_overlay, overlay({Rgb(255, 0, 0), Rgb(0, 9, 0), Rgb(7, 7, 7)}));
}

TEST_F(MaskChain, AsksForOverlaysForTheChainAndNotForTheAccumulatedMask) {
  std::vector<int> wanted;
  add_step("a", [&](const MaskCall& call) {
    wanted.push_back(call.operation.wants_overlay ? 1 : 0);
    return std::optional(all_set);
  });
  ASSERT_NE(controller.get_mask_result(0), nullptr);
  ASSERT_TRUE(controller.build_accumulated_mask());
  EXPECT_THAT(wanted, testing::ElementsAre(1, 0));
}

TEST_F(MaskChain, AStepWithoutAnOverlayCarriesTheEarlierOneForward) {
  const model::Image first = overlay({Rgb(1, 2, 3), Rgb(0, 0, 0), Rgb(0, 0, 0)});
  add_step("a", gives(all_set));
  add_step("b", draws(first));
  add_step("c", gives(all_set));
  ASSERT_NE(controller.get_mask_result(2), nullptr);
  EXPECT_EQ(controller._mask_result_cache.at(0)->viz_overlay, std::nullopt);
  EXPECT_EQ(controller._mask_result_cache.at(2)->viz_overlay, first);
}

TEST_F(MaskChain, AResettingStepThatDrawsPaintsOverTheOverlayOfItsInput) {
  add_step("a", draws(overlay({Rgb(1, 1, 1), Rgb(2, 2, 2), Rgb(0, 0, 0)})));
  add_step("b", draws(overlay({Rgb(0, 0, 0), Rgb(9, 9, 9), Rgb(0, 0, 0)})), {{"reset_mask_chain", true}});
  ASSERT_NE(controller.get_mask_result(1), nullptr);
  EXPECT_EQ(controller._mask_result_cache.at(1)->viz_overlay, overlay({Rgb(1, 1, 1), Rgb(9, 9, 9), Rgb(0, 0, 0)}));
}

TEST_F(MaskChain, AResettingStepThatDrawsNothingHasTheOverlayOfTheUnmaskedCapture) {
  add_step("a", draws(overlay({Rgb(1, 1, 1), Rgb(2, 2, 2), Rgb(0, 0, 0)})));
  add_step("b", gives(all_set), {{"reset_mask_chain", true}});
  ASSERT_NE(controller.get_mask_result(1), nullptr);
  EXPECT_EQ(controller._mask_result_cache.at(1)->viz_overlay, std::nullopt);
}

// ---- Accumulated mask
// ------------------------------------------------------------------------------------------------

TEST_F(MaskChain, TheAccumulatedMaskIsThatOfTheLastStepAndNothingIsCached) {
  add_step("a", gives(left_two));
  add_step("b", gives(top));
  EXPECT_EQ(controller.build_accumulated_mask(), mask({"##.", "..."}));
  EXPECT_FALSE(runs[0].current_mask);
  EXPECT_EQ(runs[1].current_mask, left_two);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
}

TEST_F(MaskChain, TheAccumulatedMaskIsAbsentWithoutCaptureWorkflowOrSteps) {
  EXPECT_EQ(controller.build_accumulated_mask(), std::nullopt);
  add_step("a", gives(left));
  controller.state.current_capture.reset();
  EXPECT_EQ(controller.build_accumulated_mask(), std::nullopt);
  controller.state.current_capture = capture;
  controller.state.current_workflow.reset();
  EXPECT_EQ(controller.build_accumulated_mask(), std::nullopt);
  EXPECT_THAT(runs, IsEmpty());
}

TEST_F(MaskChain, TheAccumulatedMaskUpToTheKeyOfTheFirstStepIsAbsent) {
  add_step("key", gives(left));
  add_step("b", gives(left));
  EXPECT_EQ(controller.build_accumulated_mask("key"), std::nullopt);
  EXPECT_THAT(runs, IsEmpty());
}

TEST_F(MaskChain, WithTwoStepsOfTheSameKeyTheAccumulatedMaskStopsAtTheFirst) {
  add_step("a", gives(left_two));
  add_step("key", gives(top));
  workflow->mask_operations.push_back({{.op = "a"}});
  workflow->mask_operations.push_back({{.op = "key"}});
  EXPECT_EQ(controller.build_accumulated_mask("key"), left_two);
  EXPECT_THAT(keys_run(), ElementsAre("a"));
}

TEST_F(MaskChain, AnEmptyKeyOrOneThatNoStepHasRunsTheWholeChain) {
  add_step("a", gives(left_two));
  add_step("b", gives(top));
  EXPECT_EQ(controller.build_accumulated_mask(""), mask({"##.", "..."}));
  EXPECT_EQ(controller.build_accumulated_mask("z"), mask({"##.", "..."}));
  workflow->mask_operations.insert(workflow->mask_operations.begin(), model::MaskOperationConfig{{.op = ""}});
  EXPECT_EQ(controller.build_accumulated_mask(""), mask({"##.", "..."})) << "a step without a name is no end either";
}

TEST_F(MaskChain, AFailingStepOfTheAccumulatedMaskIsLoggedAndPassedOver) {
  add_step("a", gives(left_two));
  add_step("b", fails("no contrast"));
  workflow->mask_operations.push_back({{.op = "c", .params = Value::object()}});
  define("c", gives(top));
  const LogCapture log;
  EXPECT_EQ(controller.build_accumulated_mask(), mask({"##.", "..."}));
  EXPECT_EQ(runs[2].current_mask, left_two);
  EXPECT_THAT(log.lines(), ElementsAre("error: Controller.build_accumulated_mask: Failed on b - no contrast"));
}

TEST_F(MaskChain, AnUnknownStepOfTheAccumulatedMaskIsLoggedAndPassedOver) {
  add_step("good", gives(left_two));
  workflow->mask_operations.push_back({{.op = "goof"}});
  const LogCapture log;
  EXPECT_EQ(controller.build_accumulated_mask(), left_two);
  EXPECT_THAT(log.lines(), ElementsAre("error: Controller.build_accumulated_mask: Failed on goof - There is no mask "
                                       "operation \"goof\" (did you mean \"good\"?)."));
}

TEST_F(MaskChain, AStepThatReturnsNoMaskMakesTheRunningMaskAbsentForTheNext) {
  add_step("a", gives(left_two));
  add_step("b", [](const MaskCall&) -> std::optional<model::Mask> { return std::nullopt; });
  add_step("c", gives(top));
  EXPECT_EQ(controller.build_accumulated_mask(), top);
  EXPECT_FALSE(runs[2].current_mask);
  EXPECT_EQ(controller.build_accumulated_mask("c"), std::nullopt);
}

TEST_F(MaskChain, EmptyingTheCacheLogsNothing) {
  controller._mask_result_cache[0] = capture;
  const LogCapture log;
  controller.clear_intermediate_results_cache();
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- A capture from the masks that it holds
// --------------------------------------------------------------------------

/// Measurement MSP of two images with the masks `left_two`, then `top_left`; measurement CLR without masks.
std::shared_ptr<model::CaptureSet> capture_with_two_masks() {
  auto result = test::capture(
      "plot",
      {{"MSP",
        {{"RED", image<std::uint8_t>({{1, 2, 3}, {4, 0, 6}})}, {"NIR", image<float>({{.5, 1.25, 1}, {1, 1, 1}})}}},
       {"CLR", {{"RGB", model::Image(cv::Mat(2, 3, CV_8UC3, cv::Scalar(10, 20, 0)))}}}},
      std::make_shared<model::CaptureHeader>(), {{"NIR", {842, 57}}});
  auto& masks = result->measurements.at("MSP")->masks;
  masks.push_back({.operation_name = "a", .mask_array = left_two, .mask_index = 0});
  masks.push_back({.operation_name = "b", .mask_array = top_left, .mask_index = 1});
  return result;
}

TEST_F(MaskChain, ACaptureForAnIndexShowsTheImagesUnderThatMaskAndLeavesItsInputAlone) {
  const auto input = capture_with_two_masks();
  const LogCapture log;
  const auto result = controller._create_masked_capture_for_index(*input, 0);
  EXPECT_EQ(result->name, "plot_mask_0");
  EXPECT_EQ(result->header, input->header);
  EXPECT_TRUE(result->_bands.contains("NIR"));
  ASSERT_EQ(result->measurements.size(), 2U);
  EXPECT_EQ(result->measurements.begin()->first, "MSP");
  const auto& images = result->measurements.at("MSP")->images;
  EXPECT_EQ(images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 0}, {4, 0, 0}}));
  EXPECT_EQ(images.at("NIR").pixels(), image<float>({{.5, 1.25, 0}, {1, 1, 0}}));
  EXPECT_EQ(result->measurements.at("CLR"), input->measurements.at("CLR"));
  EXPECT_EQ(input->measurements.at("MSP")->images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 3}, {4, 0, 6}}));
  // RED: (1 + 2 + 4) / 6 = 1.17, zeros: one of its own and two outside. NIR: (0.5 + 1.25 + 1 + 1) / 6 = 0.625, which is
  // halfway and written to the even digit.
  EXPECT_THAT(log.lines(), ElementsAre("info: Creating masked capture for mask index 0",
                                       "info: MASK DEBUG: Processing measurement MSP with 2 masks for index 0",
                                       "info: MASK DEBUG: Replaced images in MSP with masked versions from index 0",
                                       "info: MASK DEBUG: MSP.RED AFTER masking - Mean: 1.17, Zero pixels: 3/6 (50.0%)",
                                       "info: MASK DEBUG: MSP.NIR AFTER masking - Mean: 0.62, Zero pixels: 2/6 (33.3%)",
                                       "warning: MASK DEBUG: Measurement CLR has no mask at index 0, using original",
                                       "info: Created masked capture with 2 measurements with updated images"));
}

TEST_F(MaskChain, MeanAndZerosAreCountedOverAllValuesOfAllChannels) {
  const auto input = capture_with_two_masks();
  auto& color = *input->measurements.at("CLR");
  color.masks.push_back({.operation_name = "a", .mask_array = top_left, .mask_index = 0});
  const LogCapture log;
  static_cast<void>(controller._create_masked_capture_for_index(*input, 0));
  // One pixel (10, 20, 0) is left of six: mean 30 / 18 = 1.67, 16 of 18 values are 0.
  EXPECT_THAT(log.lines(), testing::Contains("info: MASK DEBUG: CLR.RGB AFTER masking - Mean: 1.67, Zero pixels: "
                                             "16/18 (88.9%)"));
}

TEST_F(MaskChain, AMeasurementWithTwoMasksAndIndexTwoIsKeptAsTheSameObjectWithAWarning) {
  const auto input = capture_with_two_masks();
  const LogCapture log;
  const auto result = controller._create_masked_capture_for_index(*input, 2);
  EXPECT_EQ(result->measurements.at("MSP"), input->measurements.at("MSP"));
  EXPECT_EQ(result->name, "plot_mask_2");
  EXPECT_EQ(log.lines()[1], "warning: MASK DEBUG: Measurement MSP has no mask at index 2, using original");
}

/// It holds masks but cannot show its images under them.
struct ShyMeasurement final : model::BaseMeasurement {
  model::ImageMap get_masked_images(int) const override { return {}; }
  std::shared_ptr<BaseMeasurement> deep_copy() const override { return std::make_shared<ShyMeasurement>(*this); }
};

TEST_F(MaskChain, AMeasurementThatGivesNoMaskedImagesIsCopiedUnmaskedWithAWarning) {
  auto shy = std::make_shared<ShyMeasurement>();
  shy->images.insert_or_assign("RED", image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}}));
  shy->masks.push_back({.operation_name = "a", .mask_array = left, .mask_index = 0});
  capture->measurements.insert_or_assign("MSP", shy);
  const LogCapture log;
  const auto result = controller._create_masked_capture_for_index(*capture, 0);
  const auto copied = result->measurements.at("MSP");
  EXPECT_NE(copied, shy);
  EXPECT_EQ(copied->images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}}));
  EXPECT_THAT(log.lines(), ElementsAre("info: Creating masked capture for mask index 0",
                                       "info: MASK DEBUG: Processing measurement MSP with 1 masks for index 0",
                                       "warning: MASK DEBUG: Failed to get masked images for MSP at index 0",
                                       "info: Created masked capture with 1 measurements with updated images"));
}

TEST_F(MaskChain, AnIndexOfMinusOneFindsNoMaskedImages) {
  const auto input = capture_with_two_masks();
  const LogCapture log;
  const auto result = controller._create_masked_capture_for_index(*input, -1);
  EXPECT_EQ(result->name, "plot_mask_-1");
  EXPECT_EQ(result->measurements.at("MSP")->images.at("RED").pixels(), image<std::uint8_t>({{1, 2, 3}, {4, 0, 6}}));
  EXPECT_EQ(log.lines()[2], "warning: MASK DEBUG: Failed to get masked images for MSP at index -1");
}

TEST_F(MaskChain, AFailureToGetMaskedImagesReachesTheCaller) {
  struct Broken final : model::BaseMeasurement {
    std::shared_ptr<BaseMeasurement> deep_copy() const override { throw std::runtime_error("out of memory"); }
  };
  auto broken = std::make_shared<Broken>();
  broken->masks.push_back({.operation_name = "a", .mask_array = left, .mask_index = 0});
  capture->measurements.insert_or_assign("MSP", broken);
  EXPECT_THROW(static_cast<void>(controller._create_masked_capture_for_index(*capture, 0)), std::runtime_error);
}

}  // namespace
}  // namespace orvexa::test

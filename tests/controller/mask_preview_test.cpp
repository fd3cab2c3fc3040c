#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/model/run_context.h"
#include "support/counting_allocator.h"
#include "support/log_capture.h"
#include "support/watched_images.h"

namespace orvexa::test {
namespace {

using controller::PreviewImages;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const model::Mask left = mask({"#..", "#.."});
const model::Mask right = mask({"..#", "..#"});
const model::Mask top = mask({"###", "..."});
const model::Mask top_left = mask({"#..", "..."});
const model::Mask none_set = mask({"...", "..."});

std::string words_of(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return "nothing was raised";
}

/// What one run of an operation was given.
struct Seen {
  std::string key;
  std::optional<model::Mask> current_mask;
  Value params;
  bool got_image_stack = false;
};

/// An operation that has a preview of its own.
class WithPreview final : public model::MaskOperation, public model::Previewable {
 public:
  using Preview = std::function<std::optional<model::Mask>(const Input&)>;
  explicit WithPreview(Preview preview_function) : _preview(std::move(preview_function)) {}
  std::optional<model::Mask> preview(const Input& input) override { return _preview(input); }

 private:
  std::optional<model::Mask> compute(const model::ImageSource&, const model::Mask*, const Value&) override {
    throw std::logic_error("apply ran instead of preview");
  }
  Preview _preview;
};

/// A small capture (MSP.RED: 1 2 3 / 4 5 6) without a workflow, one panel, and a record of every run of an operation.
class MaskPreview : public testing::Test {
 protected:
  MaskPreview() {
    controller.state.current_capture = capture;
    controller.register_panel(panel);
  }

  /// Registers an operation; `change` may set its flags.
  void define(const std::string& key, MaskBody body, const std::function<void(model::MaskOperationInfo&)>& change = {},
              model::ParameterList parameters = {}) {
    auto info = mask_operation(
        key,
        [this, key, body = std::move(body)](const MaskCall& call) {
          runs.push_back({.key = key,
                          .current_mask = call.current_mask ? std::optional(*call.current_mask) : std::nullopt,
                          .params = call.params,
                          .got_image_stack = dynamic_cast<const model::ImageStack*>(&call.image_stack) != nullptr});
          return body(call);
        },
        std::move(parameters));
    if (change) change(info);
    operations.push_back(std::make_unique<model::MaskOperationInfo>(std::move(info)));
    std::vector<const model::MaskOperationInfo*> rows;
    for (const auto& operation : operations) rows.push_back(operation.get());
    registry.reset();
    registry.emplace(rows);
  }

  void define_with_radius(const std::string& key) { define(key, gives(left), {}, {integer_parameter("radius", 3)}); }

  std::vector<std::string> keys_run() const {
    std::vector<std::string> keys;
    for (const Seen& run : runs) keys.push_back(run.key);
    return keys;
  }

  const PreviewImages& images_of(const std::string& measurement) const {
    return controller.get_mask_preview_images()->at(measurement);
  }

  Probe controller;
  std::shared_ptr<model::CaptureSet> capture = small_capture();
  RefreshedPanel panel{"MaskPanel", analysis_module};
  std::vector<std::unique_ptr<model::MaskOperationInfo>> operations;
  std::optional<model::MaskRegistryOverride> registry;
  std::vector<Seen> runs;
};

std::vector<int> values(const model::Image& image) {
  std::vector<int> all;
  for (int y = 0; y < image.height(); ++y) {
    for (const std::uint8_t value : image.row<std::uint8_t>(y)) all.push_back(value);
  }
  return all;
}

// ---- The next step of the chain
// --------------------------------------------------------------------------------------

TEST_F(MaskPreview, TheNextStepIsPreviewedOnAllStepsBeforeItWhichAreRunOnce) {
  define("left", gives(left));
  define("top", gives(top));
  controller.state.current_workflow = workflow_of({"left", "top"});
  for (int asked = 1; asked <= 3; ++asked) {
    const auto preview = controller.run_next_step_preview("top", Value::object());
    ASSERT_TRUE(preview.mask);
    EXPECT_EQ(*preview.mask, top_left);
  }
  EXPECT_THAT(keys_run(), ElementsAre("left", "top", "top", "top", "top"));
  EXPECT_EQ(runs.back().current_mask, controller.get_mask_result(1)->mask);
}

TEST_F(MaskPreview, ARegionOfInterestAsTheNextStepIsPreviewedOnTheBareCapture) {
  define("left", gives(left));
  define("area", gives(top), [](model::MaskOperationInfo& info) { info._is_roi_operation = true; });
  controller.state.current_workflow = workflow_of({"left"});
  const auto preview = controller.run_next_step_preview("area", Value::object());
  EXPECT_EQ(preview.mask, top);
  EXPECT_THAT(keys_run(), ElementsAre("area"));
}

TEST_F(MaskPreview, TheNextStepIsNotPreviewedOnStepsThatFail) {
  define("broken", fails("no contrast"));
  define("top", gives(top));
  controller.state.current_workflow = workflow_of({"broken"});
  EXPECT_EQ(words_of([&] { static_cast<void>(controller.run_next_step_preview("top", Value::object())); }),
            "A mask step before this one fails on this capture; correct that one first.");
}

// ---- Choosing an operation
// -------------------------------------------------------------------------------------------

TEST_F(MaskPreview, ChoosingAnOperationKeepsItWithDefaultsAndGivenParametersPreviewsItAndThenRefreshesThePanels) {
  define("radius", gives(left), {}, {integer_parameter("radius", 3), integer_parameter("rounds", 1)});
  std::optional<model::Mask> seen_by_panel;
  panel.on_refresh = [&] { seen_by_panel = controller.state.preview_mask; };
  controller.set_mask_operation("radius", Value{{"radius", 5}});
  EXPECT_EQ(controller.state.current_mask_operation, "radius");
  EXPECT_EQ(controller.state.mask_operation_params, (Value{{"radius", 5}, {"rounds", 1}, {"reset_mask_chain", false}}));
  EXPECT_EQ(controller.state.preview_mask, left);
  EXPECT_EQ(seen_by_panel, left);
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(MaskPreview, ChoosingAnOperationWithoutParametersTakesItsDefaults) {
  define_with_radius("radius");
  for (const std::optional<Value>& params : {std::optional<Value>(), std::optional(Value::object())}) {
    controller.state.mask_operation_params = {{"radius", 9}};
    controller.set_mask_operation("radius", params);
    EXPECT_EQ(controller.state.mask_operation_params, (Value{{"radius", 3}, {"reset_mask_chain", false}}));
  }
}

TEST_F(MaskPreview, AnUnknownOperationIsRefusedBeforeAnythingChanges) {
  define_with_radius("radius");
  controller.set_mask_operation("radius", Value{{"radius", 5}});
  const auto message = controller.state.message;
  EXPECT_EQ(words_of([&] { controller.set_mask_operation("raduis"); }), "Unknown mask operation: raduis");
  EXPECT_THROW(controller.set_mask_operation("raduis"), std::invalid_argument);
  EXPECT_EQ(controller.state.current_mask_operation, "radius");
  EXPECT_EQ(controller.state.mask_operation_params.at("radius"), 5);
  EXPECT_EQ(controller.state.preview_mask, left);
  EXPECT_EQ(controller.state.message, message);
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(MaskPreview, WrongParametersFailToTheCallerWithTheNewOperationAlreadyChosen) {
  define("keep", gives(top));
  define_with_radius("radius");
  controller.set_mask_operation("keep");
  const Value before = controller.state.mask_operation_params;
  EXPECT_THAT(words_of([&] {
                controller.set_mask_operation("radius", Value{{"radius", "wide"}});
              }),
              HasSubstr("radius"));
  EXPECT_THROW(controller.set_mask_operation("radius", Value{{"radius", "wide"}}), std::invalid_argument);
  EXPECT_EQ(controller.state.current_mask_operation, "radius");
  EXPECT_EQ(controller.state.mask_operation_params, before);
  EXPECT_EQ(controller.state.preview_mask, top) << "no new preview";
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(MaskPreview, ParametersThatAreNoMapAreRefusedWithASentence) {
  define_with_radius("radius");
  EXPECT_THROW(controller.set_mask_operation("radius", Value("wide")), std::invalid_argument);
  controller.set_mask_operation("radius");
  EXPECT_THROW(controller.update_mask_operation_params(Value::array({1, 2})), std::invalid_argument);
  EXPECT_EQ(controller.state.mask_operation_params.at("radius"), 3);
}

// ---- Changing parameters
// ---------------------------------------------------------------------------------------------

TEST_F(MaskPreview, ChangingAParameterKeepsTheOthersPreviewsAndThenRefreshesThePanels) {
  define("radius", gives(left), {}, {integer_parameter("radius", 3), integer_parameter("rounds", 1)});
  controller.set_mask_operation("radius", Value{{"radius", 5}});
  std::size_t runs_seen_by_panel = 0;
  panel.on_refresh = [&] { runs_seen_by_panel = runs.size(); };
  controller.update_mask_operation_params({{"rounds", 2}});
  const Value changed = {{"radius", 5}, {"rounds", 2}, {"reset_mask_chain", false}};
  EXPECT_EQ(controller.state.mask_operation_params, changed);
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[1].params, changed);
  EXPECT_EQ(runs_seen_by_panel, 2U);
  EXPECT_EQ(panel.refreshes, 2);
}

TEST_F(MaskPreview, ChangingParametersWhileNoOperationIsChosenDoesNothing) {
  define_with_radius("radius");
  const LogCapture log;
  for (const std::optional<std::string>& chosen : {std::optional<std::string>(), std::optional<std::string>("")}) {
    controller.state.current_mask_operation = chosen;
    controller.update_mask_operation_params({{"radius", 5}});
    EXPECT_EQ(controller.state.mask_operation_params, Value::object());
  }
  EXPECT_THAT(runs, IsEmpty());
  EXPECT_EQ(panel.refreshes, 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskPreview, AWrongParameterIsRefusedAndTheOnesBeforeStay) {
  define_with_radius("radius");
  controller.set_mask_operation("radius");
  EXPECT_THROW(controller.update_mask_operation_params({{"radius", "wide"}}), std::invalid_argument);
  EXPECT_THROW(controller.update_mask_operation_params({{"raduis", 5}}), std::invalid_argument);
  EXPECT_EQ(controller.state.mask_operation_params.at("radius"), 3);
  EXPECT_EQ(runs.size(), 1U);
  EXPECT_EQ(panel.refreshes, 1);
}

// ---- The preview of the state
// ----------------------------------------------------------------------------------------

TEST_F(MaskPreview, WithoutAnOperationOrACaptureThereIsNoPreviewAndNothingIsSaid) {
  define("keep", gives(left));
  const auto expect_cleared = [&] {
    controller.state.preview_mask = left;
    controller.state.preview_mask_images.emplace();
    controller.state.message = "before";
    const LogCapture log;
    controller.update_mask_preview();
    EXPECT_EQ(controller.state.preview_mask, std::nullopt);
    EXPECT_FALSE(controller.get_mask_preview_images());
    EXPECT_EQ(controller.state.message, "before");
    EXPECT_EQ(controller.state.error, std::nullopt);
    EXPECT_THAT(log.lines(), IsEmpty());
  };
  expect_cleared();
  controller.state.current_mask_operation = "keep";
  controller.state.current_capture.reset();
  expect_cleared();
  EXPECT_THAT(runs, IsEmpty());
}

TEST_F(MaskPreview, ItRunsOnTheBareImagesWhateverStepsTheWorkflowHas) {
  define("earlier", gives(right));
  define_with_radius("radius");
  controller.state.current_workflow = workflow_of({"earlier"});
  controller.set_mask_operation("radius");
  ASSERT_THAT(keys_run(), ElementsAre("radius"));
  EXPECT_EQ(runs[0].current_mask, std::nullopt);
  EXPECT_TRUE(runs[0].got_image_stack);
  EXPECT_EQ(runs[0].params, controller.state.mask_operation_params);
  EXPECT_EQ(controller.state.preview_mask, left);
}

TEST_F(MaskPreview, ItIsStoredWithItsPicturesAndReportedWithItsPixels) {
  define("keep", gives(left));
  controller.state.current_mask_operation = "keep";
  const LogCapture log;
  controller.update_mask_preview();
  EXPECT_EQ(controller.state.message, "Mask preview updated: The keep (2 pixels)");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_EQ(values(images_of("MSP").masked_images.at("RED").pixels()), (std::vector{1, 0, 0, 4, 0, 0}));
  EXPECT_THAT(log.lines(), ElementsAre("debug: Generated mask preview images for 1 measurements"));
  EXPECT_EQ(panel.refreshes, 0) << "the caller refreshes";
}

TEST_F(MaskPreview, AMillionPixelsAreReportedWithCommas) {
  // 127 x 9721 = 1234567
  controller.state.current_capture =
      test::capture("large", {{"GRY", {{"GRY", flat_image<std::uint8_t>(127, 9721, 0)}}}});
  define("all", gives(model::Mask::full({127, 9721})));
  controller.state.current_mask_operation = "all";
  controller.update_mask_preview();
  EXPECT_EQ(controller.state.message, "Mask preview updated: The all (1,234,567 pixels)");
}

TEST_F(MaskPreview, AnEmptyMaskIsWarnedOfAndItsPicturesAreStoredAllTheSame) {
  define("nowhere", gives(none_set));
  controller.state.current_mask_operation = "nowhere";
  const LogCapture log;
  controller.update_mask_preview();
  EXPECT_EQ(controller.state.message, "Warning: Generated mask is empty - no regions detected with current parameters");
  EXPECT_EQ(controller.state.preview_mask, none_set);
  EXPECT_EQ(values(images_of("MSP").masked_images.at("RED").pixels()), (std::vector{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(values(*images_of("MSP").mask_preview), (std::vector{0, 0, 0, 0, 0, 0}));
  EXPECT_THAT(log.lines_without_debug(),
              ElementsAre("warning: Controller.update_mask_preview: Empty mask generated for The nowhere"));
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(MaskPreview, AnOperationThatGivesNoMaskIsReportedWithoutPixelsAndThePicturesStayAsTheyWere) {
  define("nothing", [](const MaskCall&) -> std::optional<model::Mask> { return std::nullopt; });
  controller.state.current_mask_operation = "nothing";
  controller.state.preview_mask = left;
  controller.state.preview_mask_images.emplace();
  const LogCapture log;
  controller.update_mask_preview();
  EXPECT_EQ(controller.state.message, "Mask preview updated: The nothing");
  EXPECT_EQ(controller.state.preview_mask, std::nullopt);
  EXPECT_TRUE(controller.get_mask_preview_images());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskPreview, AFailureClearsThePreviewAndIsLoggedAndReportedWithoutReachingTheCaller) {
  define("broken", fails("no contrast"));
  controller.state.current_mask_operation = "broken";
  controller.state.preview_mask = left;
  controller.state.preview_mask_images.emplace();
  controller.state.message = "before";
  const LogCapture log;
  controller.update_mask_preview();
  EXPECT_THAT(log.lines(),
              ElementsAre("error: Controller.generate_mask_preview: Error generating mask preview - no contrast"));
  EXPECT_EQ(controller.state.preview_mask, std::nullopt);
  EXPECT_FALSE(controller.get_mask_preview_images());
  EXPECT_EQ(controller.state.error, "Mask preview error: no contrast");
  EXPECT_EQ(controller.state.message, "before");
}

TEST_F(MaskPreview, AFailureWhileChoosingOrChangingIsReportedWithoutReachingTheCallerAndThePanelsAreRefreshed) {
  define("broken", fails("no contrast"), {}, {integer_parameter("radius", 3)});
  std::vector<std::optional<std::string>> errors_seen;
  panel.on_refresh = [&] { errors_seen.push_back(controller.state.error); };
  EXPECT_NO_THROW(controller.set_mask_operation("broken"));
  EXPECT_EQ(controller.state.current_mask_operation, "broken");
  EXPECT_THAT(errors_seen, ElementsAre("Mask preview error: no contrast"));
  controller.state.error.reset();
  errors_seen.clear();
  EXPECT_NO_THROW(controller.update_mask_operation_params({{"radius", 5}}));
  EXPECT_EQ(controller.state.mask_operation_params.at("radius"), 5);
  EXPECT_THAT(errors_seen, ElementsAre("Mask preview error: no contrast"));
}

TEST_F(MaskPreview, WithoutPicturesTheMaskIsStoredAndReportedAllTheSame) {
  const model::Mask of_another_size = mask({"##"});
  define("odd", gives(of_another_size));
  controller.state.current_mask_operation = "odd";
  const LogCapture log;
  controller.update_mask_preview();
  EXPECT_EQ(controller.state.preview_mask, of_another_size);
  EXPECT_THAT(controller.get_mask_preview_images(), testing::Optional(IsEmpty()));
  EXPECT_EQ(controller.state.message, "Mask preview updated: The odd (2 pixels)");
  EXPECT_EQ(controller.state.error, std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre("error: Controller._generate_mask_preview_images: Error generating preview "
                                       "images - A mask must be as large as the image it is put on."));
}

TEST_F(MaskPreview, AnOperationThatTheRegistryNoLongerHasIsAFailureLikeAnyOther) {
  define("keep", gives(left));
  controller.state.current_mask_operation = "gone";
  const LogCapture log;
  controller.update_mask_preview();
  ASSERT_TRUE(controller.state.error);
  EXPECT_THAT(*controller.state.error, HasSubstr("Mask preview error: There is no mask operation \"gone\""));
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("error: Controller.generate_mask_preview: Error generating mask "
                                                 "preview - There is no mask operation \"gone\"")));
}

TEST_F(MaskPreview, TogglingStoresTheFlagSaysSoAndRefreshesThePanels) {
  std::vector<std::string> seen;
  panel.on_refresh = [&] { seen.push_back(controller.state.message.value_or("")); };
  controller.toggle_mask_preview(true);
  EXPECT_TRUE(controller.state.show_mask_preview);
  controller.toggle_mask_preview(false);
  EXPECT_FALSE(controller.state.show_mask_preview);
  EXPECT_THAT(seen, ElementsAre("Mask preview enabled", "Mask preview disabled"));
}

TEST_F(MaskPreview, ThePreviewPicturesAreHandedOutAsTheyStand) {
  EXPECT_FALSE(controller.get_mask_preview_images());
  controller.state.preview_mask_images.emplace();
  EXPECT_EQ(&controller.get_mask_preview_images(), &controller.state.preview_mask_images);
}

// ---- Pictures
// --------------------------------------------------------------------------------------------------------

TEST_F(MaskPreview, EveryMeasurementGetsMaskedPicturesOverlaysAndTheMaskItselfAsRecipes) {
  controller.state.current_capture =
      test::capture("two", {{"CLR", {{"GRAY", image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}})}}},
                            {"MSP",
                             {{"RED", image<std::uint8_t>({{10, 20, 30}, {40, 50, 60}})},
                              {"NIR", image<std::uint8_t>({{11, 21, 31}, {41, 51, 61}})}}}});
  const LogCapture log;
  const auto previews = controller._generate_mask_preview_images(left, "keep", {{"radius", 2}});
  ASSERT_EQ(previews.size(), 2U);
  EXPECT_EQ(previews.front().first, "CLR");
  const PreviewImages& msp = previews.at("MSP");
  EXPECT_EQ(values(msp.masked_images.at("RED").pixels()), (std::vector{10, 0, 0, 40, 0, 0}));
  EXPECT_EQ(values(msp.masked_images.at("NIR").pixels()), (std::vector{11, 0, 0, 41, 0, 0}));
  // Every set pixel has a neighbour that is not set or not there: an outline in the tint.
  EXPECT_EQ(values(msp.overlay_images.at("RED").pixels()),
            (std::vector{255, 0, 255, 20, 20, 20, 30, 30, 30, 255, 0, 255, 50, 50, 50, 60, 60, 60}));
  EXPECT_TRUE(msp.masked_images.at("RED").is_recipe());
  EXPECT_TRUE(msp.overlay_images.at("RED").is_recipe());
  for (const auto& [name, preview] : previews) {
    EXPECT_EQ(values(*preview.mask_preview), (std::vector{255, 0, 0, 255, 0, 0})) << name;
  }
  EXPECT_EQ(values(controller.state.current_capture->measurements.at("MSP")->images.at("RED").pixels()),
            (std::vector{10, 20, 30, 40, 50, 60}));
  EXPECT_THAT(log.lines(), ElementsAre("debug: Generated mask preview images for 2 measurements"));
}

TEST_F(MaskPreview, ImagesThatAreNoArraysAreSkippedAndTheirMeasurementStays) {
  capture->measurements.at("MSP")->images["EMPTY"] = model::ImageEntry();
  capture->measurements.insert_or_assign("NONE", std::make_shared<model::BaseMeasurement>());
  const auto previews = controller._generate_mask_preview_images(left, "keep", {});
  ASSERT_EQ(previews.size(), 2U);
  EXPECT_EQ(previews.at("MSP").masked_images.size(), 1U);
  EXPECT_EQ(previews.at("MSP").overlay_images.size(), 1U);
  EXPECT_THAT(previews.at("NONE").masked_images, IsEmpty());
  EXPECT_TRUE(previews.at("NONE").mask_preview);
}

TEST_F(MaskPreview, WithoutACaptureOrMeasurementsThereAreNoPicturesAndNothingIsLogged) {
  const LogCapture log;
  capture->measurements.clear();
  EXPECT_THAT(controller._generate_mask_preview_images(left, "keep", {}), IsEmpty());
  controller.state.current_capture.reset();
  EXPECT_THAT(controller._generate_mask_preview_images(left, "keep", {}), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MaskPreview, AMaskOfAnotherSizeIsLoggedAndGivesNoPictures) {
  const LogCapture log;
  EXPECT_THAT(controller._generate_mask_preview_images(mask({"##"}), "keep", {}), IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre("error: Controller._generate_mask_preview_images: Error generating preview "
                                       "images - A mask must be as large as the image it is put on."));
}

// ---- The preview on top of the chain
// ---------------------------------------------------------------------------------

TEST_F(MaskPreview, OnTheChainItRunsAfterTheWorkflowsStepsAndShowsNothingThatTheyRemoved) {
  define("earlier", gives(top));
  define("keep", [](const MaskCall&) { return std::optional(left); });
  controller.state.current_workflow = workflow_of({"earlier"});
  const auto preview = controller.run_mask_preview("keep", Value::object());
  EXPECT_THAT(keys_run(), ElementsAre("earlier", "keep"));
  EXPECT_EQ(runs[1].current_mask, top);
  EXPECT_TRUE(runs[1].got_image_stack);
  EXPECT_EQ(preview.mask, top_left);
  ASSERT_NE(preview.operation, nullptr);
  EXPECT_EQ(preview.operation->get_display_name(), "The keep");
}

TEST_F(MaskPreview, OnTheChainTheOperationsOverlayAndNoteComeWithIt) {
  define("drawing", [](const MaskCall& call) {
    call.operation.note = "level 0.5";
    call.operation.viz_overlay = flat_image<std::uint8_t>(2, 3, 9);
    return std::optional(left);
  });
  const auto preview = controller.run_mask_preview("drawing", Value::object());
  EXPECT_EQ(preview.operation->note, "level 0.5");
  EXPECT_EQ(preview.operation->viz_overlay, flat_image<std::uint8_t>(2, 3, 9));
}

TEST_F(MaskPreview, AnOperationThatIsInTheWorkflowAlreadyIsNotFedItsOwnOutputOrThatOfLaterSteps) {
  define("first", gives(top));
  define("keep", gives(left));
  define("later", gives(none_set));
  controller.state.current_workflow = workflow_of({"first", "keep", "later", "keep"});
  EXPECT_EQ(controller.run_mask_preview("keep", Value::object()).mask, top_left);
  EXPECT_THAT(keys_run(), ElementsAre("first", "keep"));
}

TEST_F(MaskPreview, WithoutAWorkflowItIsTheOperationsOwnPreview) {
  define("keep", gives(left));
  EXPECT_EQ(controller.run_mask_preview("keep", Value::object()).mask, left);
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0].current_mask, std::nullopt);
}

TEST_F(MaskPreview, ARegionOfInterestIsPreviewedOnTheBareImagesAndNeverCombinedWithTheChain) {
  define("earlier", gives(top));
  define("roi", gives(left), [](auto& info) { info._is_roi_operation = true; });
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("roi", Value::object()).mask, left);
  EXPECT_THAT(keys_run(), ElementsAre("roi"));
  EXPECT_EQ(runs[0].current_mask, std::nullopt);
}

TEST_F(MaskPreview, ARegionOfInterestThatAsksForTheChainGetsIt) {
  define("earlier", gives(top));
  define("roi", gives(left), [](auto& info) {
    info._is_roi_operation = true;
    info._requires_accumulated_mask = true;
  });
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("roi", Value::object()).mask, top_left);
  ASSERT_THAT(keys_run(), ElementsAre("earlier", "roi"));
  EXPECT_EQ(runs[1].current_mask, top);
}

TEST_F(MaskPreview, AnOrdinaryOperationThatWantsNoChainGetsNone) {
  define("earlier", gives(top));
  define("keep", gives(left), [](auto& info) { info._requires_accumulated_mask = false; });
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("keep", Value::object()).mask, left);
  EXPECT_THAT(keys_run(), ElementsAre("keep"));
}

TEST_F(MaskPreview, AnUnconstrainedOperationGetsItsRawPreviewBack) {
  define("earlier", gives(top));
  define("grow", gives(left), [](auto& info) { info._preview_unconstrained = true; });
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("grow", Value::object()).mask, left);
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[1].current_mask, top);
}

TEST_F(MaskPreview, AnOperationThatStartsTheChainAfreshStillShowsNothingThatEarlierStepsRemoved) {
  define("earlier", gives(top));
  define("keep", gives(left));
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("keep", {{"reset_mask_chain", true}}).mask, top_left);
}

TEST_F(MaskPreview, AnOperationWithAPreviewOfItsOwnIsAskedForThatWithTheParametersAsGiven) {
  std::vector<Value> seen;
  define("earlier", gives(top));
  define("quick", gives(left), [&](auto& info) {
    info.make = [&seen] {
      return std::make_unique<WithPreview>([&seen](const model::MaskOperation::Input& input) {
        seen.push_back(input.params);
        EXPECT_EQ(input.current_mask, top);
        EXPECT_NE(dynamic_cast<const model::ImageStack*>(&input.image_stack), nullptr);
        return std::optional(left);
      });
    };
  });
  controller.state.current_workflow = workflow_of({"earlier"});
  EXPECT_EQ(controller.run_mask_preview("quick", {{"anything", 1}}).mask, top_left) << "narrowed to the chain";
  EXPECT_THAT(seen, ElementsAre(Value{{"anything", 1}}));
}

TEST_F(MaskPreview, AnOperationThatGivesNoMaskHasAPreviewWithoutOne) {
  define("earlier", gives(top));
  define("nothing", [](const MaskCall&) -> std::optional<model::Mask> { return std::nullopt; });
  controller.state.current_workflow = workflow_of({"earlier"});
  const auto preview = controller.run_mask_preview("nothing", Value::object());
  EXPECT_EQ(preview.mask, std::nullopt);
  EXPECT_NE(preview.operation, nullptr);
}

TEST_F(MaskPreview, OnTheChainNothingIsStoredAndNothingLogged) {
  define("earlier", gives(top));
  define("keep", gives(left));
  controller.state.current_workflow = workflow_of({"earlier"});
  const LogCapture log;
  static_cast<void>(controller.run_mask_preview("keep", Value::object()));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_FALSE(controller.state.preview_mask || controller.state.preview_mask_images);
  EXPECT_FALSE(controller.state.current_mask_operation || controller.state.message || controller.state.error);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(panel.refreshes, 0);
}

TEST_F(MaskPreview, OnTheChainEveryFailureReachesTheCaller) {
  define("broken", fails("no contrast"));
  define_with_radius("radius");
  EXPECT_EQ(words_of([&] { static_cast<void>(controller.run_mask_preview("broken", {})); }), "no contrast");
  EXPECT_THROW(static_cast<void>(controller.run_mask_preview("gone", {})), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(controller.run_mask_preview("radius", {{"radius", "wide"}})), std::invalid_argument);
  controller.state.current_capture.reset();
  EXPECT_EQ(words_of([&] { static_cast<void>(controller.run_mask_preview("radius", {})); }),
            "No capture data available for preview");
}

TEST_F(MaskPreview, AFailingStepBeforeItIsPassedOverAsInTheAccumulatedMask) {
  define("earlier", gives(top));
  define("broken", fails("no contrast"));
  define("keep", gives(left));
  controller.state.current_workflow = workflow_of({"earlier", "broken"});
  const LogCapture log;
  EXPECT_EQ(controller.run_mask_preview("keep", Value::object()).mask, top_left);
  EXPECT_THAT(log.lines(), ElementsAre("error: Controller.build_accumulated_mask: Failed on broken - no contrast"));
}

TEST_F(MaskPreview, CancellingEndsItInTheStepsBeforeItAndInTheOperationItself) {
  common::CancelEvent cancel;
  define("cancels", [&](const MaskCall&) {
    cancel.set();
    return std::optional(top);
  });
  define("earlier", gives(top));
  define("keep", [](const MaskCall& call) {
    dynamic_cast<FakeMask&>(call.operation).context().check();
    return std::optional(left);
  });
  const LogCapture log;
  controller.state.current_workflow = workflow_of({"cancels", "earlier"});
  EXPECT_THROW(static_cast<void>(controller.run_mask_preview("keep", Value::object(), &cancel)), model::CancelledError);
  EXPECT_THAT(keys_run(), ElementsAre("cancels"));
  controller.state.current_workflow.reset();
  EXPECT_THROW(static_cast<void>(controller.run_mask_preview("keep", Value::object(), &cancel)), model::CancelledError);
  EXPECT_THAT(log.lines(), IsEmpty()) << "cancelling is no failure of a step";
}

TEST_F(MaskPreview, TheOperationCanSeeTheCancellationWhileItRuns) {
  common::CancelEvent cancel;
  define("long", [&](const MaskCall& call) {
    cancel.set();
    dynamic_cast<FakeMask&>(call.operation).context().check();
    return std::optional(left);
  });
  EXPECT_THROW(static_cast<void>(controller.run_mask_preview("long", Value::object(), &cancel)), model::CancelledError);
}

// ---- What it costs
// ---------------------------------------------------------------------------------------------------

/// Ten bands of 1000 x 1200 pixels, 16-bit.
class MaskPreviewCost : public testing::Test {
 protected:
  MaskPreviewCost() {
    auto measurement = std::make_shared<model::BaseMeasurement>();
    for (int band = 0; band < 10; ++band) {
      bands.push_back(watched.flat<std::uint16_t>(1000, 1200, static_cast<std::uint16_t>(1000 * band)));
      measurement->images.insert_or_assign("B" + std::to_string(band), bands.back());
    }
    controller.state.current_capture = std::make_shared<model::CaptureSet>(
        model::CaptureSet::Arguments{.name = "ten bands", .header = nullptr, .measurements = {}, .bands = {}});
    controller.state.current_capture->measurements.insert_or_assign("MSP", std::move(measurement));
  }

  /// Names of the bands of which anything was read; each of them was read wholly.
  std::vector<std::string> bands_read() const {
    std::vector<std::string> names;
    for (std::size_t band = 0; band < bands.size(); ++band) {
      const std::size_t bytes = watched.bytes_read(bands[band]);
      if (bytes == 0) continue;
      names.push_back("B" + std::to_string(band));
      EXPECT_EQ(bytes, 2U * pixels) << names.back();
    }
    return names;
  }

  static constexpr std::int64_t pixels = 1000 * 1200;
  // First, because they outlive what they made. Bands are made by the one, everything else by the other.
  const CountingAllocator arrays;
  WatchedImages watched;
  std::vector<model::Image> bands;
  Probe controller;
};

TEST_F(MaskPreviewCost, TuningAThresholdOfOneOfTenBandsReadsThatBandAndMakesAMaskAndItsPicture) {
  watched.watch();
  controller.set_mask_operation("threshold_range", Value{{"band", "MSP.B3"}, {"low", 0.04}});
  EXPECT_EQ(controller.state.message, "Mask preview updated: Threshold: range (1,200,000 pixels)")
      << controller.state.error.value_or("");
  EXPECT_THAT(bands_read(), ElementsAre("B3"));
  EXPECT_EQ(arrays.made_bytes(), 2 * pixels);
  EXPECT_EQ(arrays.live_bytes(), 2 * pixels);

  controller.update_mask_operation_params({{"low", 0.5}});
  EXPECT_EQ(controller.state.preview_mask->count(), 0);
  EXPECT_THAT(bands_read(), ElementsAre("B3"));
  EXPECT_EQ(arrays.live_bytes(), 2 * pixels) << "something of the preview before is still there";
}

TEST_F(MaskPreviewCost, OnlyThePictureThatIsLookedAtIsMade) {
  controller.set_mask_operation("threshold_range", Value{{"band", "MSP.B3"}, {"low", 0.04}});
  const std::int64_t made_before = arrays.made_bytes();
  watched.watch();
  const PreviewImages& preview = controller.get_mask_preview_images()->at("MSP");
  const model::Image shown = preview.masked_images.at("B7").pixels();
  EXPECT_EQ(shown.row<std::uint16_t>(999)[1199], 7000);
  EXPECT_THAT(bands_read(), ElementsAre("B7"));
  EXPECT_EQ(arrays.made_bytes() - made_before, 2 * pixels);
}

TEST_F(MaskPreviewCost, OnTopOfAStepTheBandsOfBothAreRead) {
  controller.state.current_workflow = workflow_of({});
  controller.add_mask_op("threshold_auto", {{"band", "MSP.B1"}});
  watched.watch();
  const auto preview = controller.run_mask_preview("threshold_range", {{"band", "MSP.B3"}, {"low", 0.04}});
  EXPECT_TRUE(preview.mask);
  EXPECT_THAT(bands_read(), ElementsAre("B1", "B3"));
  // The mask of the step, that of the operation, narrowed by the operation, narrowed by the preview.
  EXPECT_LE(arrays.made_bytes(), 4 * pixels);
}

}  // namespace
}  // namespace orvexa::test

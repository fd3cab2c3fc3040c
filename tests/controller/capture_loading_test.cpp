#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A controller whose two loaders note what they were asked for.
class CaptureLoading : public testing::Test {
 protected:
  CaptureLoading() {
    controller.image_loader = [this](const std::filesystem::path& file) {
      loads.push_back("image " + file.string());
      return to_load;
    };
    controller.capture_loader = [this](const std::filesystem::path& file) {
      loads.push_back("capture " + file.string());
      return to_load;
    };
  }

  void fill_cache() { controller._mask_result_cache[0] = small_capture("cached"); }

  std::unique_ptr<ScriptedState> owned = std::make_unique<ScriptedState>();
  ScriptedState& state = *owned;
  const model::ResultRegistryOverride no_result_operations{{}};
  Probe controller{std::move(owned)};
  std::shared_ptr<model::CaptureSet> to_load = small_capture("plot_0007");
  std::vector<std::string> loads;
};

TEST_F(CaptureLoading, AnAbsentOrEmptyPathLeavesNoCaptureAndKeepsTheCacheWithoutALoaderCall) {
  for (const std::optional<std::filesystem::path>& none :
       {std::optional<std::filesystem::path>(), std::optional(std::filesystem::path())}) {
    state.current_capture = small_capture();
    state.error = "older";
    fill_cache();
    std::vector<std::string> derived;
    state.on_derive = [&](ScriptedState& s) { derived.push_back(*s.message); };
    const LogCapture log;
    controller.load_capture_from_file(none);
    EXPECT_EQ(state.current_capture, nullptr);
    EXPECT_EQ(state.message, "No file selected");
    EXPECT_EQ(state.error, "older");
    EXPECT_THAT(cached_indices(controller), ElementsAre(0));
    EXPECT_THAT(loads, IsEmpty());
    EXPECT_THAT(derived, ElementsAre("No file selected"));
    EXPECT_THAT(log.lines(), ElementsAre("info: Controller.load_capture_from_file: Loading capture from " +
                                         std::string(none ? "" : "None")));
  }
}

TEST_F(CaptureLoading, AnAbsentPathLogsNoMaskLoss) {
  state.current_capture = capture_with_masks("old", {{"CLR", 2}});
  const LogCapture log;
  controller.load_capture_from_file(std::nullopt);
  EXPECT_THAT(log.lines(), Not(testing::Contains(HasSubstr("MASK LOSS"))));
}

struct LoaderCase {
  const char* name;
  const char* file;
  bool is_image;
};

class WhichLoader : public CaptureLoading, public testing::WithParamInterface<LoaderCase> {};

TEST_P(WhichLoader, FollowsFromTheSuffixInAnyCase) {
  const std::string file = GetParam().file;
  const LogCapture log;
  const auto result = controller._do_load_capture(file);
  EXPECT_THAT(loads, ElementsAre((GetParam().is_image ? "image " : "capture ") + file));
  EXPECT_EQ(result.capture_set, to_load);
  EXPECT_EQ(result.file_path, file);
  EXPECT_THAT(log.lines(), ElementsAre((GetParam().is_image ? "info: Loading as image file: "
                                                            : "info: Loading using standard capture loader: ") +
                                       file));
}

INSTANTIATE_TEST_SUITE_P(Suffixes, WhichLoader,
                         testing::Values(LoaderCase{"PhotoJpgUpperCase", "photo.JPG", true},
                                         LoaderCase{"JpegMixedCase", "a/b.Jpeg", true},
                                         LoaderCase{"Png", "a.png", true}, LoaderCase{"Tif", "a.TIF", true},
                                         LoaderCase{"Tiff", "a.tiff", true}, LoaderCase{"Bmp", "a.bmp", true},
                                         LoaderCase{"Gif", "a.gif", true},
                                         LoaderCase{"HeaderFile", "HDR_0001.INF", false},
                                         LoaderCase{"Raw", "data.raw", false}, LoaderCase{"NoSuffix", "capture", false},
                                         LoaderCase{"ImageSuffixInTheMiddle", "a.png.txt", false},
                                         LoaderCase{"ImageSuffixOfTheFolder", "a.png/capture", false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(CaptureLoading, ASuccessfulLoadInstallsTheCaptureEmptiesTheCacheAndDerivesThePhaseLast) {
  state.error = "older";
  fill_cache();
  std::vector<std::string> derived;
  state.on_derive = [&](ScriptedState& s) {
    derived.push_back(s.current_capture->name + "|" + *s.message + "|" + s.error.value_or("no error") + "|" +
                      s.current_workflow->title);
  };
  const LogCapture log;
  controller.load_capture_from_file("HDR_plot.INF");
  EXPECT_EQ(state.current_capture, to_load);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_THAT(derived, ElementsAre("plot_0007|Loaded capture: plot_0007 with 1 measurements|no error|plot_0007"));
  EXPECT_EQ(state.phase, Phase::CAPTURE_LOADED);
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.load_capture_from_file: Loading capture from HDR_plot.INF",
                                       "info: Loading using standard capture loader: HDR_plot.INF",
                                       "debug: No change in workflow result operations (0 enabled)"));
}

TEST_F(CaptureLoading, FourMeasurementTypesAreCountedInTheMessage) {
  to_load = capture_with_masks("tray", {{"CLR", 0}, {"MSP", 0}, {"FLU", 0}, {"GRY", 0}});
  controller.load_capture_from_file("HDR_tray.INF");
  EXPECT_EQ(state.message, "Loaded capture: tray with 4 measurements");
}

TEST_F(CaptureLoading, MasksOnTwoMeasurementsAreCountedInBothWarningsBeforeLoadingAndWhenReplaced) {
  state.current_capture = capture_with_masks("old", {{"CLR", 2}, {"GRY", 0}, {"MSP", 1}});
  state.current_workflow = workflow_of({});
  const LogCapture log;
  controller.load_capture_from_file("pictures/new.png");
  EXPECT_THAT(log.lines_without_debug(),
              ElementsAre("info: Controller.load_capture_from_file: Loading capture from pictures/new.png",
                          "warning: MASK LOSS WARNING: load_capture_from_file() called while 3 masks are applied! "
                          "Current: old, Loading: pictures/new.png",
                          "info: Loading as image file: pictures/new.png",
                          "warning: MASK LOSS WARNING: _on_capture_load_success() replacing capture with 3 masks! "
                          "Old: old, New: plot_0007"));
  EXPECT_EQ(state.current_capture, to_load);
}

TEST_F(CaptureLoading, InAnInteractiveModeWithoutAWorkflowOneNamedAfterTheCaptureIsMade) {
  for (const std::string mode : {"analysis", ""}) {
    state.processing_mode = mode;
    state.current_workflow.reset();
    controller.load_capture_from_file("a.png");
    ASSERT_TRUE(state.current_workflow);
    EXPECT_EQ(state.current_workflow->title, "plot_0007");
    EXPECT_THAT(state.current_workflow->mask_operations, IsEmpty());
  }
}

TEST_F(CaptureLoading, InAnInteractiveModeACurrentWorkflowStaysAndGetsWhatBecameAvailable) {
  const auto area = result_operation("area", "Shape");
  const model::ResultRegistryOverride registry({&area});
  const auto workflow = workflow_of({"erode"});
  state.current_workflow = workflow;
  controller.load_capture_from_file("a.png");
  EXPECT_EQ(state.current_workflow, workflow);
  EXPECT_THAT(keys_of(workflow->result_operations), ElementsAre("area"));
}

TEST_F(CaptureLoading, TheNewWorkflowHasWhatIsAvailableBeforeThePhaseIsDerived) {
  const auto area = result_operation("area", "Shape");
  const model::ResultRegistryOverride registry({&area});
  std::vector<std::vector<std::string>> derived;
  state.on_derive = [&](ScriptedState& s) { derived.push_back(keys_of(s.current_workflow->result_operations)); };
  controller.load_capture_from_file("a.png");
  EXPECT_THAT(derived, ElementsAre(ElementsAre("area")));
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("area"));
  EXPECT_EQ(state.phase, Phase::WORKFLOW_READY);
}

TEST_F(CaptureLoading, InBatchAndWatcherModeTheWorkflowStaysAsItWasAndAvailabilityIsNotAsked) {
  for (const std::string mode : {"batch", "watcher"}) {
    int asked = 0;
    const model::ResultRegistryOverride registry({}, [&](std::string_view) { ++asked; });
    state.processing_mode = mode;
    state.current_workflow.reset();
    controller.load_capture_from_file("a.png");
    EXPECT_EQ(state.current_workflow, nullptr);
    const auto workflow = workflow_of({"erode"}, {"area"});
    state.current_workflow = workflow;
    controller.load_capture_from_file("a.png");
    EXPECT_EQ(state.current_workflow, workflow);
    EXPECT_THAT(keys_of(workflow->result_operations), ElementsAre("area"));
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(state.message, "Loaded capture: plot_0007 with 1 measurements");
  }
}

TEST_F(CaptureLoading, ALoaderThatRaisesLeavesNoCaptureAnEmptyCacheAndTheDoubledPrefixInTheMessage) {
  state.current_capture = small_capture("previous");
  fill_cache();
  controller.image_loader = [](const std::filesystem::path&) -> std::shared_ptr<model::CaptureSet> {
    throw std::runtime_error("new.png is empty.");
  };
  std::vector<std::string> derived;
  state.on_derive = [&](ScriptedState& s) { derived.push_back(*s.error); };
  const LogCapture log;
  controller.load_capture_from_file("in/new.png");
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(state.error, "Failed to load capture from in/new.png: new.png is empty.");
  EXPECT_EQ(state.message, "Failed to load capture: Failed to load capture from in/new.png: new.png is empty.");
  EXPECT_THAT(derived, ElementsAre("Failed to load capture from in/new.png: new.png is empty."));
  EXPECT_EQ(state.phase, Phase::ERROR);
  EXPECT_THAT(log.lines(),
              ElementsAre("info: Controller.load_capture_from_file: Loading capture from in/new.png",
                          "info: Loading as image file: in/new.png",
                          "error: Capture loading failed: Failed to load capture from in/new.png: new.png is empty."));
}

TEST_F(CaptureLoading, AFailedLoadWarnsOfTheMasksThatAreLostOnlyBeforeTheLoad) {
  state.current_capture = capture_with_masks("old", {{"CLR", 1}});
  controller.capture_loader = [](const std::filesystem::path&) -> std::shared_ptr<model::CaptureSet> {
    throw std::runtime_error("no section [Capture].");
  };
  const LogCapture log;
  controller.load_capture_from_file("HDR_1.INF");
  EXPECT_THAT(
      log.lines(),
      ElementsAre("info: Controller.load_capture_from_file: Loading capture from HDR_1.INF",
                  "warning: MASK LOSS WARNING: load_capture_from_file() called while 1 masks are applied! Current: "
                  "old, Loading: HDR_1.INF",
                  "info: Loading using standard capture loader: HDR_1.INF",
                  "error: Capture loading failed: Failed to load capture from HDR_1.INF: no section [Capture]."));
}

TEST_F(CaptureLoading, AFailureThatIsNoExceptionObjectIsReportedToo) {
  controller.capture_loader = [](const std::filesystem::path&) -> std::shared_ptr<model::CaptureSet> { throw 42; };
  controller.load_capture_from_file("HDR_1.INF");
  EXPECT_EQ(state.error, "Failed to load capture from HDR_1.INF: It failed without saying why.");
}

TEST_F(CaptureLoading, TheLoaderStepAloneRaisesTheWrappedTextAndTouchesNothing) {
  const auto previous = small_capture("previous");
  state.current_capture = previous;
  fill_cache();
  controller.capture_loader = [](const std::filesystem::path&) -> std::shared_ptr<model::CaptureSet> {
    throw std::runtime_error("no section [Capture].");
  };
  const LogCapture log;
  try {
    static_cast<void>(controller._do_load_capture("HDR_1.INF"));
    FAIL() << "nothing was raised";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "Failed to load capture from HDR_1.INF: no section [Capture].");
  }
  EXPECT_THAT(log.lines(), ElementsAre("info: Loading using standard capture loader: HDR_1.INF"));
  EXPECT_EQ(state.current_capture, previous);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_EQ(state.message, std::nullopt);
}

TEST_F(CaptureLoading, AFailureInTheSuccessHandlerDropsTheCaptureThatWasAlreadyInstalled) {
  int derivations = 0;
  state.on_derive = [&](ScriptedState& s) {
    if (++derivations > 1) return;
    EXPECT_EQ(s.current_capture, to_load);
    throw std::runtime_error("no phase");
  };
  const LogCapture log;
  controller.load_capture_from_file("HDR_1.INF");
  EXPECT_EQ(derivations, 2);
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_EQ(state.error, "Error processing loaded capture: no phase");
  EXPECT_EQ(state.message, "Failed to load capture: Error processing loaded capture: no phase");
  const auto lines = log.lines_without_debug();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[2], "error: Error in capture load success handler: no phase");
  EXPECT_EQ(lines[3], "error: Capture loading failed: Error processing loaded capture: no phase");
}

TEST_F(CaptureLoading, AFailureInTheErrorHandlerIsOnlyLogged) {
  state.on_derive = [](ScriptedState&) { throw std::runtime_error("no phase"); };
  const LogCapture log;
  controller._on_capture_load_error("broken file");
  EXPECT_THAT(log.lines(), ElementsAre("error: Capture loading failed: broken file",
                                       "error: Error in capture load error handler: no phase"));
  EXPECT_EQ(state.error, "broken file");
  EXPECT_EQ(state.message, "Failed to load capture: broken file");
}

TEST_F(CaptureLoading, ALoaderThatGivesNothingIsAFailureOfTheSuccessHandler) {
  to_load.reset();
  state.current_capture = small_capture("previous");
  controller.load_capture_from_file("HDR_1.INF");
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_EQ(state.error, "Error processing loaded capture: The loader gave no capture.");
}

TEST_F(CaptureLoading, TheHandlersMayBeGivenAResultOrAFailureOfALoadElsewhere) {
  controller._on_capture_load_success({.capture_set = to_load, .file_path = "elsewhere.png"});
  EXPECT_EQ(state.current_capture, to_load);
  EXPECT_THAT(loads, IsEmpty());
  controller._on_capture_load_error("elsewhere.png is empty.");
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_EQ(state.error, "elsewhere.png is empty.");
  EXPECT_EQ(state.message, "Failed to load capture: elsewhere.png is empty.");
  EXPECT_EQ(state.phase, Phase::ERROR);
}

struct MeasurementsPanel : PlainPanel, controller::SelectsDefaultImage {
  using PlainPanel::PlainPanel;
  void auto_select_default_image() override {
    ++selections;
    if (is_broken) throw std::runtime_error("no image");
  }
  int selections = 0;
  bool is_broken = false;
};

TEST_F(CaptureLoading, OfTwoPanelsThatSelectADefaultImageOnlyTheFirstIsAsked) {
  PlainPanel other("MaskPanel", analysis_module);
  MeasurementsPanel first("MeasurementsPanel", analysis_module);
  MeasurementsPanel second("MeasurementsPanel", analysis_module);
  controller.register_panel(other);
  controller.register_panel(first);
  controller.register_panel(second);
  const LogCapture log;
  controller._trigger_auto_selection();
  EXPECT_EQ(first.selections, 1);
  EXPECT_EQ(second.selections, 0);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("info: Controller._trigger_auto_selection: Looking for measurements panel",
                  "info: Controller._trigger_auto_selection: Found measurements panel, triggering auto-selection"));
}

TEST_F(CaptureLoading, WithoutAPanelThatSelectsADefaultImageThereIsAWarning) {
  PlainPanel other("MeasurementsPanel", analysis_module);
  controller.register_panel(other);
  const LogCapture log;
  controller._trigger_auto_selection();
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller._trigger_auto_selection: Looking for measurements panel",
                                       "warning: Controller._trigger_auto_selection: No measurements panel found"));
}

TEST_F(CaptureLoading, AFailingAutoSelectionIsLoggedAndSwallowed) {
  MeasurementsPanel panel("MeasurementsPanel", analysis_module);
  panel.is_broken = true;
  controller.register_panel(panel);
  const LogCapture log;
  controller._trigger_auto_selection();
  EXPECT_EQ(log.lines().back(), "error: Controller._trigger_auto_selection: Error - no image");
}

TEST_F(CaptureLoading, NoLoadTriggersTheAutoSelectionByItself) {
  MeasurementsPanel panel("MeasurementsPanel", analysis_module);
  controller.register_panel(panel);
  controller.load_capture_from_file("a.png");
  EXPECT_EQ(panel.selections, 0);
}

}  // namespace
}  // namespace orvexa::test

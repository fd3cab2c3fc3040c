#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::EventConnection;
using controller::PickGeometry;
using controller::ViewerGeometry;
using controller::ViewerPoint;
using controller::ViewerRect;
using model::Interaction;
using model::PickPoint;
using model::PickPoints;
using model::PickRect;
using model::PickRects;
using testing::ElementsAre;
using testing::IsEmpty;

using Steps = std::vector<std::string>;

struct RecordingViewer final : controller::ImageViewer {
  explicit RecordingViewer(Steps& all_steps) : steps(all_steps) {}
  void set_active_tool(const std::string& name) override {
    take("tool " + name);
    count_when_tool_was_set = _pick_existing_count;
  }
  void set_pick_cursor() override { take("pick cursor"); }
  void restore_cursor() override { take("restore cursor"); }
  void clear_all_rois() override { take("clear rois"); }
  void setFocus() override { take("focus"); }
  void take(const std::string& step) {
    if (step == failing_step) throw std::runtime_error("no " + step);
    steps.push_back(step);
  }
  Steps& steps;
  std::string failing_step;
  int count_when_tool_was_set = -1;
};

struct LockedPanel : PlainPanel {
  LockedPanel(const std::string& name_, Steps& all_steps) : PlainPanel(name_, shared_module), steps(all_steps) {}
  void setEnabled(bool enabled) override { steps.push_back((enabled ? "enable " : "disable ") + name); }
  Steps& steps;
};

struct ViewerPanel final : LockedPanel, controller::HasImageViewer {
  using LockedPanel::LockedPanel;
  controller::ImageViewer* image_viewer() override { return viewer; }
  controller::ImageViewer* viewer = nullptr;
};

struct RegisteringPanel final : LockedPanel {
  using LockedPanel::LockedPanel;
  void setEnabled(bool enabled) override {
    LockedPanel::setEnabled(enabled);
    register_another();
  }
  std::function<void()> register_another;
};

/// The panels "masks", "viewer" and "results", of which the second has a viewer; what happens to them and on the event
/// bus, in order; and what was picked.
class PickMode : public testing::Test {
 protected:
  PickMode() { viewer_panel.viewer = &viewer; }

  void register_panels() {
    controller.register_panel(masks);
    controller.register_panel(viewer_panel);
    controller.register_panel(results);
  }

  controller::PickCallback recording_callback() {
    return [this](const std::string& key, const Interaction& interaction, const PickGeometry& geometry) {
      steps.push_back("callback " + key + " " + interaction.mode);
      picked.push_back(geometry);
    };
  }

  /// What a callback gets for a geometry; absent when it is not called.
  std::optional<PickGeometry> pick(const std::string& mode, const ViewerGeometry& geometry) {
    picked.clear();
    controller.enter_pick_mode(Interaction{mode}, "roi", recording_callback());
    controller.exit_pick_mode(geometry);
    return picked.empty() ? std::nullopt : std::optional(picked.back());
  }

  Probe controller;
  Steps steps;
  std::vector<PickGeometry> picked;
  RecordingViewer viewer{steps};
  LockedPanel masks{"masks", steps};
  ViewerPanel viewer_panel{"viewer", steps};
  LockedPanel results{"results", steps};
  EventConnection heard{controller.events.pick_mode_changed.connect(
      [this](bool is_on) { steps.push_back(is_on ? "event on" : "event off"); })};
};

// ---- The viewer
// ------------------------------------------------------------------------------------------------------

TEST_F(PickMode, TheViewerIsThatOfTheFirstPanelThatHasOne) {
  EXPECT_EQ(controller._get_image_viewer(), nullptr);
  controller.register_panel(masks);
  EXPECT_EQ(controller._get_image_viewer(), nullptr);
  RecordingViewer other(steps);
  ViewerPanel second("second", steps);
  second.viewer = &other;
  controller.register_panel(viewer_panel);
  controller.register_panel(second);
  EXPECT_EQ(controller._get_image_viewer(), &viewer);
}

TEST_F(PickMode, AFirstPanelWhoseViewerIsNotThereYetHidesThoseOfLaterPanels) {
  ViewerPanel first("first", steps);
  controller.register_panel(first);
  controller.register_panel(viewer_panel);
  EXPECT_EQ(controller._get_image_viewer(), nullptr);
}

// ---- Entering
// --------------------------------------------------------------------------------------------------------

TEST_F(PickMode, EnteringIsLoggedStoredGivesTheViewerAToolLocksTheOtherPanelsAndIsAnnounced) {
  register_panels();
  const LogCapture log;
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback(), 4);
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.enter_pick_mode: mode=rect op=roi_rect"));
  const controller::PickModeState& stored = controller.state.pick_mode;
  EXPECT_TRUE(stored.active);
  EXPECT_EQ(stored.interaction, Interaction{"rect"});
  EXPECT_EQ(stored.operation_key, "roi_rect");
  EXPECT_TRUE(stored.callback);
  EXPECT_THAT(steps,
              ElementsAre("tool rectangle", "pick cursor", "focus", "disable masks", "disable results", "event on"));
  EXPECT_EQ(viewer.count_when_tool_was_set, 4);
  EXPECT_THAT(picked, IsEmpty());
}

TEST_F(PickMode, WithoutACountNothingExistsYet) {
  register_panels();
  viewer._pick_existing_count = 9;
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions", {});
  EXPECT_EQ(viewer._pick_existing_count, 0);
}

TEST_F(PickMode, EveryModeHasItsTool) {
  register_panels();
  const std::vector<std::pair<std::string, std::string>> tools = {
      {"rect", "rectangle"},  {"point", "point"}, {"points", "points"}, {"rects", "rects"},       {"circle", "circle"},
      {"polygon", "polygon"}, {"", "pan_zoom"},   {"Rect", "pan_zoom"}, {"rectangle", "pan_zoom"}};
  for (const auto& [mode, tool] : tools) {
    steps.clear();
    controller.enter_pick_mode(Interaction{mode}, "roi", {});
    EXPECT_EQ(steps.at(0), "tool " + tool) << mode;
  }
}

TEST_F(PickMode, WithoutAViewerItIsEnteredAllTheSame) {
  controller.register_panel(masks);
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback());
  EXPECT_TRUE(controller.state.pick_mode.active);
  EXPECT_THAT(steps, ElementsAre("disable masks", "event on"));
}

TEST_F(PickMode, EnteringAgainReplacesWhatWasStoredAndDropsTheEarlierCallback) {
  register_panels();
  int earlier_calls = 0;
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", [&](const auto&...) { ++earlier_calls; });
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions", recording_callback());
  EXPECT_EQ(controller.state.pick_mode.operation_key, "keep_regions");
  controller.exit_pick_mode(ViewerPoint(1, 1));
  EXPECT_EQ(earlier_calls, 0);
  EXPECT_EQ(picked.size(), 1U);
}

// ---- Leaving
// ---------------------------------------------------------------------------------------------------------

TEST_F(PickMode, LeavingRestoresTheViewerUnlocksEveryPanelAnnouncesItAndThenTellsWhatWasDrawn) {
  register_panels();
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions", recording_callback());
  steps.clear();
  const LogCapture log;
  controller.exit_pick_mode(ViewerPoint(2, 3));
  EXPECT_THAT(steps, ElementsAre("clear rois", "tool pan_zoom", "restore cursor", "enable masks", "enable viewer",
                                 "enable results", "event off", "callback keep_regions point"));
  EXPECT_FALSE(controller.state.pick_mode.active);
  EXPECT_FALSE(controller.state.pick_mode.callback);
  EXPECT_EQ(controller.state.pick_mode.interaction, std::nullopt);
  EXPECT_EQ(controller.state.pick_mode.operation_key, "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PickMode, TheCallbackMayEnterPickModeAgain) {
  register_panels();
  controller.enter_pick_mode(Interaction{"point"}, "first",
                             [this](const std::string&, const Interaction& interaction, const PickGeometry&) {
                               EXPECT_FALSE(controller.state.pick_mode.active);
                               controller.enter_pick_mode(interaction, "second", recording_callback());
                             });
  controller.exit_pick_mode(ViewerPoint(2, 3));
  EXPECT_TRUE(controller.state.pick_mode.active);
  EXPECT_EQ(controller.state.pick_mode.operation_key, "second");
  EXPECT_EQ(steps.back(), "event on");
  controller.exit_pick_mode(ViewerPoint(4, 5));
  EXPECT_THAT(picked, ElementsAre(PickGeometry(PickPoint{4, 5})));
}

TEST_F(PickMode, LeavingWithoutAGeometryRestoresTheUiAndTellsNobody) {
  register_panels();
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback());
  steps.clear();
  controller.exit_pick_mode();
  EXPECT_THAT(steps, ElementsAre("clear rois", "tool pan_zoom", "restore cursor", "enable masks", "enable viewer",
                                 "enable results", "event off"));
  EXPECT_FALSE(controller.state.pick_mode.active);
}

TEST_F(PickMode, LeavingWhileInactiveRestoresTheUiAndTellsNobody) {
  register_panels();
  controller.exit_pick_mode(ViewerPoint(2, 3));
  EXPECT_THAT(steps, ElementsAre("clear rois", "tool pan_zoom", "restore cursor", "enable masks", "enable viewer",
                                 "enable results", "event off"));
}

TEST_F(PickMode, LeavingWithoutAViewerStillUnlocksThePanels) {
  controller.register_panel(masks);
  controller.exit_pick_mode();
  EXPECT_THAT(steps, ElementsAre("enable masks", "event off"));
}

TEST_F(PickMode, WithoutACallbackAGeometryIsNotEvenConverted) {
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", {});
  EXPECT_NO_THROW(controller.exit_pick_mode(ViewerPoint(2, 3)));
}

TEST_F(PickMode, APanelThatRegistersAnotherWhileItIsLockedOrUnlockedGetsThatLockedOrUnlockedToo) {
  RegisteringPanel registering("registering", steps);
  controller.register_panel(registering);
  registering.register_another = [this] { controller.register_panel(masks); };
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", {});
  EXPECT_THAT(steps, ElementsAre("disable registering", "disable masks", "event on"));
  steps.clear();
  registering.register_another = [this] { controller.register_panel(results); };
  controller.exit_pick_mode();
  EXPECT_THAT(steps, ElementsAre("enable registering", "enable masks", "enable results", "event off"));
}

// ---- What is told
// ----------------------------------------------------------------------------------------------------

TEST_F(PickMode, ADrawnRectangleIsToldInFractionsOfTheCurrentCapture) {
  // 100 rows of 200 pixels.
  controller.state.current_capture = capture("wide", {{"GRY", {{"GRY", flat_image<std::uint8_t>(100, 200, 0)}}}});
  EXPECT_EQ(pick("rect", ViewerRect(20, 10, 40, 20)), PickGeometry(PickRect{0.2, 0.2, 0.2, 0.2}));
  EXPECT_EQ(pick("point", ViewerPoint(50, 25)), PickGeometry(PickPoint{0.25, 0.25}));
}

TEST_F(PickMode, WithoutACapturePixelsAreToldAsTheyAre) {
  EXPECT_EQ(pick("point", ViewerPoint(50, 25)), PickGeometry(PickPoint{50, 25}));
  EXPECT_EQ(pick("rect", ViewerRect(20, 10, 40, 20)), PickGeometry(PickRect{40, 20, 40, 20}));
}

TEST_F(PickMode, ACircleOrPolygonIsToldToNobody) {
  register_panels();
  for (const char* mode : {"circle", "polygon", "lasso"}) {
    EXPECT_EQ(pick(mode, ViewerRect(20, 10, 40, 20)), std::nullopt) << mode;
    EXPECT_EQ(steps.back(), "event off") << mode;
  }
}

/// A capture that says that it has that shape.
struct CaptureOfShape final : model::CaptureSet {
  explicit CaptureOfShape(model::Shape its_shape) : CaptureSet(Arguments{"odd", nullptr, {}, {}}), shape(its_shape) {}
  model::Shape get_shape() const override { return shape; }
  model::Shape shape;
};

TEST_F(PickMode, OnAnImageWithoutPixelsNobodyIsTold) {
  for (const model::Shape shape : {model::Shape{0, 200}, model::Shape{100, 0}, model::Shape{0, 0}}) {
    controller.state.current_capture = std::make_shared<CaptureOfShape>(shape);
    EXPECT_EQ(pick("rect", ViewerRect(20, 10, 40, 20)), std::nullopt);
    EXPECT_EQ(pick("point", ViewerPoint(20, 10)), std::nullopt);
  }
}

// ---- Failures
// --------------------------------------------------------------------------------------------------------

TEST_F(PickMode, AFailingCallbackReachesTheCallerAfterTheUiWasRestored) {
  register_panels();
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions",
                             [](const auto&...) { throw std::runtime_error("no such parameter"); });
  EXPECT_THROW(controller.exit_pick_mode(ViewerPoint(2, 3)), std::runtime_error);
  EXPECT_FALSE(controller.state.pick_mode.active);
  EXPECT_EQ(steps.back(), "event off");
}

TEST_F(PickMode, ACaptureWithoutImagesFailsToTheCallerAfterTheUiWasRestored) {
  register_panels();
  controller.state.current_capture = capture("empty", {});
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions", recording_callback());
  EXPECT_THROW(controller.exit_pick_mode(ViewerPoint(2, 3)), std::runtime_error);
  EXPECT_EQ(steps.back(), "event off");
  EXPECT_THAT(picked, IsEmpty());
}

TEST_F(PickMode, AViewerThatDrewSomethingElseThanItWasAskedForFailsToTheCaller) {
  register_panels();
  controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback());
  EXPECT_THROW(controller.exit_pick_mode(ViewerPoint(2, 3)), std::logic_error);
  EXPECT_EQ(steps.back(), "event off");
}

TEST_F(PickMode, AViewerThatCannotTakeItsToolFailsToTheCallerWithPickModeStoredAndNoPanelLocked) {
  register_panels();
  viewer.failing_step = "tool rectangle";
  EXPECT_THROW(controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback()), std::runtime_error);
  EXPECT_TRUE(controller.state.pick_mode.active);
  EXPECT_EQ(controller.state.pick_mode.operation_key, "roi_rect");
  EXPECT_THAT(steps, IsEmpty()) << "no panel disabled, no event";
}

TEST_F(PickMode, AViewerThatCannotBeRestoredFailsToTheCallerWithPickModeLeftAndNobodyTold) {
  register_panels();
  controller.enter_pick_mode(Interaction{"point"}, "keep_regions", recording_callback());
  steps.clear();
  viewer.failing_step = "clear rois";
  EXPECT_THROW(controller.exit_pick_mode(ViewerPoint(2, 3)), std::runtime_error);
  EXPECT_FALSE(controller.state.pick_mode.active);
  EXPECT_FALSE(controller.state.pick_mode.callback);
  EXPECT_THAT(steps, IsEmpty()) << "no panel enabled, no event, no callback";
}

TEST_F(PickMode, APanelThatCannotBeLockedFailsToTheCallerWithPickModeStored) {
  struct Stuck final : PlainPanel {
    using PlainPanel::PlainPanel;
    void setEnabled(bool) override { throw std::runtime_error("stuck"); }
  } stuck("stuck", shared_module);
  controller.register_panel(stuck);
  EXPECT_THROW(controller.enter_pick_mode(Interaction{"rect"}, "roi_rect", recording_callback()), std::runtime_error);
  EXPECT_TRUE(controller.state.pick_mode.active);
  EXPECT_THROW(controller.exit_pick_mode(ViewerRect(0, 0, 1, 1)), std::runtime_error);
  EXPECT_FALSE(controller.state.pick_mode.active);
  EXPECT_THAT(steps, IsEmpty()) << "no event, no callback";
}

// ---- The conversion
// --------------------------------------------------------------------------------------------------

TEST(PickGeometry, OfARectangleIsItsCentreAndSizeInFractions) {
  const Probe controller;
  // Image of 100 rows and 200 columns; (20 + 40 / 2) / 200, (10 + 20 / 2) / 100, 40 / 200, 20 / 100.
  EXPECT_EQ(controller._qt_geometry_to_pick("rect", ViewerRect(20, 10, 40, 20), {100, 200}),
            PickGeometry(PickRect{0.2, 0.2, 0.2, 0.2}));
}

TEST(PickGeometry, OfAPointIsInFractions) {
  const Probe controller;
  EXPECT_EQ(controller._qt_geometry_to_pick("point", ViewerPoint(50, 25), {100, 200}),
            PickGeometry(PickPoint{0.25, 0.25}));
}

TEST(PickGeometry, OfSeveralKeepsTheDrawingOrder) {
  const Probe controller;
  EXPECT_EQ(
      controller._qt_geometry_to_pick("points", std::vector{ViewerPoint(150, 75), ViewerPoint(50, 25)}, {100, 200}),
      PickGeometry(PickPoints{{{0.75, 0.75}, {0.25, 0.25}}}));
  EXPECT_EQ(controller._qt_geometry_to_pick(
                "rects", std::vector{ViewerRect(100, 50, 100, 50), ViewerRect(0, 0, 50, 25)}, {100, 200}),
            PickGeometry(PickRects{{{0.75, 0.75, 0.5, 0.5}, {0.125, 0.125, 0.25, 0.25}}}));
}

TEST(PickGeometry, OfNoneAtAllIsAnEmptyList) {
  const Probe controller;
  EXPECT_EQ(controller._qt_geometry_to_pick("points", std::vector<ViewerPoint>(), {100, 200}),
            PickGeometry(PickPoints{}));
  EXPECT_EQ(controller._qt_geometry_to_pick("rects", std::vector<ViewerRect>(), {100, 200}), PickGeometry(PickRects{}));
}

TEST(PickGeometry, IsNeitherRoundedNorClamped) {
  const Probe controller;
  // (-50 + 300 / 2) / 200 = 0.5; (-25 + 0.5 / 2) / 100 = -0.2475
  EXPECT_EQ(controller._qt_geometry_to_pick("rect", ViewerRect(-50, -25, 300, 0.5), {100, 200}),
            PickGeometry(PickRect{0.5, -0.2475, 1.5, 0.005}));
  EXPECT_EQ(controller._qt_geometry_to_pick("point", ViewerPoint(-1, 101), {100, 200}),
            PickGeometry(PickPoint{-0.005, 1.01}));
  EXPECT_EQ(controller._qt_geometry_to_pick("point", ViewerPoint(1, 1), {3, 3}),
            PickGeometry(PickPoint{1.0 / 3, 1.0 / 3}));
}

TEST(PickGeometry, OfAnImageWithoutPixelsIsAbsentWhateverTheModeAndGeometry) {
  const Probe controller;
  for (const char* mode : {"rect", "point", "points", "rects", "circle"}) {
    EXPECT_EQ(controller._qt_geometry_to_pick(mode, ViewerPoint(1, 1), {0, 200}), std::nullopt) << mode;
    EXPECT_EQ(controller._qt_geometry_to_pick(mode, ViewerPoint(1, 1), {100, 0}), std::nullopt) << mode;
  }
}

TEST(PickGeometry, OfAModeWithoutAGeometryIsAbsent) {
  const Probe controller;
  for (const char* mode : {"circle", "polygon", "Rect", "rectangle", "", "lasso"}) {
    EXPECT_EQ(controller._qt_geometry_to_pick(mode, ViewerRect(1, 1, 1, 1), {100, 200}), std::nullopt) << mode;
  }
}

TEST(PickGeometry, AShapeOfAnotherLengthThanTwoIsAFailureEvenBeforeItsNumbersAreLookedAt) {
  const Probe controller;
  for (const std::vector<int>& shape : {std::vector<int>{}, {100}, {100, 200, 3}, {0, 0, 0}}) {
    EXPECT_THROW(static_cast<void>(controller._qt_geometry_to_pick("circle", ViewerPoint(1, 1), shape)),
                 std::invalid_argument)
        << shape.size();
  }
}

TEST(PickGeometry, AnotherKindOfGeometryThanTheModeAsksForIsTheViewersMistake) {
  const Probe controller;
  const std::vector<std::pair<std::string, ViewerGeometry>> mistakes = {{"rect", ViewerPoint(1, 1)},
                                                                        {"point", ViewerRect(1, 1, 1, 1)},
                                                                        {"points", ViewerPoint(1, 1)},
                                                                        {"rects", ViewerRect(1, 1, 1, 1)}};
  for (const auto& [mode, geometry] : mistakes) {
    EXPECT_THROW(static_cast<void>(controller._qt_geometry_to_pick(mode, geometry, {100, 200})), std::logic_error)
        << mode;
  }
}

}  // namespace
}  // namespace orvexa::test

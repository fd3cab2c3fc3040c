#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct ModeCase {
  const char* name;
  const char* module;
  const char* mode;
};

class PanelMode : public testing::TestWithParam<ModeCase> {};

TEST_P(PanelMode, FollowsFromTheModulePath) {
  Probe controller;
  EXPECT_EQ(controller.get_panel_mode(PlainPanel("Panel", GetParam().module)), GetParam().mode);
}

INSTANTIATE_TEST_SUITE_P(
    ModulePaths, PanelMode,
    testing::Values(ModeCase{"Batch", "orvexa.ui.batchprocessing_mode.file_list", "batch"},
                    ModeCase{"Watcher", "orvexa.ui.filewatcher_mode.settings", "watcher"},
                    ModeCase{"Analysis", "orvexa.ui.analysis_mode.masks", "analysis"},
                    ModeCase{"NoneOfTheThree", "orvexa.ui.status_bar", "all"}, ModeCase{"NoPath", "", "all"},
                    ModeCase{"BatchBeforeAnalysis", "orvexa.analysis_mode.batchprocessing_mode.x", "batch"},
                    ModeCase{"BatchBeforeWatcher", "orvexa.filewatcher_mode.batchprocessing_mode.x", "batch"},
                    ModeCase{"WatcherBeforeAnalysis", "orvexa.analysis_mode.filewatcher_mode.x", "watcher"},
                    ModeCase{"NoDotAfterIt", "orvexa.ui.analysis_mode", "all"},
                    ModeCase{"NoDotBeforeIt", "analysis_mode.masks", "all"},
                    ModeCase{"OtherCase", "orvexa.ui.Analysis_Mode.masks", "all"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Panels, RegisteringLogsNameAndModeAndKeepsTheOrder) {
  Probe controller;
  PlainPanel files("FileListPanel", batch_module);
  PlainPanel status("StatusBarPanel", shared_module);
  const LogCapture log;
  controller.register_panel(files);
  controller.register_panel(status);
  EXPECT_THAT(controller._ui_panels, ElementsAre(&files, &status));
  EXPECT_THAT(log.lines(), ElementsAre("info: Controller.register_panel: Registering panel FileListPanel",
                                       "debug: Controller.register_panel: Panel FileListPanel detected as mode: batch",
                                       "info: Controller.register_panel: Registering panel StatusBarPanel",
                                       "debug: Controller.register_panel: Panel StatusBarPanel detected as mode: all"));
}

TEST(Panels, OneThatIsRegisteredTwiceIsRefreshedTwice) {
  Probe controller;
  RefreshedPanel panel("MaskPanel", analysis_module);
  controller.register_panel(panel);
  controller.register_panel(panel);
  EXPECT_EQ(panel.refreshes, 0) << "registering refreshes nothing";
  controller.refresh_all_panels();
  EXPECT_EQ(panel.refreshes, 2);
}

TEST(Panels, RefreshAllRefreshesTheCurrentModeAndAllInOrderAndSkipsTheOthers) {
  Probe controller;
  controller.state.processing_mode = "batch";
  RefreshedPanel status("StatusBarPanel", shared_module);
  RefreshedPanel masks("MaskPanel", analysis_module);
  RefreshedPanel files("FileListPanel", batch_module);
  PlainPanel logo("LogoPanel", shared_module);
  RefreshedPanel watch("WatchPanel", watcher_module);
  for (controller::Panel* panel : std::vector<controller::Panel*>{&status, &masks, &files, &logo, &watch}) {
    controller.register_panel(*panel);
  }
  const LogCapture log;
  controller.refresh_all_panels();
  EXPECT_THAT(
      log.lines(),
      ElementsAre("debug: Refreshing panels for mode: batch", "debug: Refreshing StatusBarPanel (mode: all)",
                  "debug: Skipping MaskPanel (panel mode: analysis, current: batch)",
                  "debug: Refreshing FileListPanel (mode: batch)", "warning: Panel LogoPanel has no refresh method",
                  "debug: Skipping WatchPanel (panel mode: watcher, current: batch)",
                  "info: Refreshed 2 panels, skipped 2 for mode 'batch'"));
  EXPECT_EQ(status.refreshes + files.refreshes, 2);
  EXPECT_EQ(masks.refreshes + watch.refreshes, 0);
}

TEST(Panels, WithNoProcessingModeRefreshAllTakesAnalysisAndSaysSo) {
  Probe controller;
  controller.state.processing_mode = "";
  RefreshedPanel masks("MaskPanel", analysis_module);
  RefreshedPanel status("StatusBarPanel", shared_module);
  RefreshedPanel files("FileListPanel", batch_module);
  for (RefreshedPanel* panel : {&masks, &status, &files}) controller.register_panel(*panel);
  const LogCapture log;
  controller.refresh_all_panels();
  EXPECT_EQ(masks.refreshes, 1);
  EXPECT_EQ(status.refreshes, 1);
  EXPECT_EQ(files.refreshes, 0);
  EXPECT_EQ(log.lines().front(), "debug: Refreshing panels for mode: analysis");
  EXPECT_EQ(log.lines().back(), "info: Refreshed 2 panels, skipped 1 for mode 'analysis'");
}

TEST(Panels, AFailingPanelEndsTheRefreshWithoutTheClosingLine) {
  Probe controller;
  RefreshedPanel first("First", shared_module);
  RefreshedPanel broken("Broken", shared_module, [] { throw std::runtime_error("no widget"); });
  RefreshedPanel last("Last", shared_module);
  for (RefreshedPanel* panel : {&first, &broken, &last}) controller.register_panel(*panel);
  const LogCapture log;
  EXPECT_THROW(controller.refresh_all_panels(), std::runtime_error);
  EXPECT_EQ(first.refreshes, 1);
  EXPECT_EQ(last.refreshes, 0);
  EXPECT_EQ(log.lines().back(), "debug: Refreshing Broken (mode: all)");
  EXPECT_THROW(controller.refresh_specific_panel("Broken"), std::runtime_error);
}

TEST(Panels, AFailingStatusPanelEndsTheStatusRefresh) {
  Probe controller;
  RefreshedPanel broken("StatusBarPanel", shared_module, [] { throw std::runtime_error("no widget"); });
  RefreshedPanel last("StatusBarPanel", shared_module);
  for (RefreshedPanel* panel : {&broken, &last}) controller.register_panel(*panel);
  EXPECT_THROW(controller.refresh_only_status(), std::runtime_error);
  EXPECT_EQ(last.refreshes, 0);
}

TEST(Panels, OneOfAnotherModeThatCannotRefreshIsSkippedWithoutAWarning) {
  Probe controller;
  PlainPanel files("FileListPanel", batch_module);
  controller.register_panel(files);
  const LogCapture log;
  controller.refresh_all_panels();
  EXPECT_THAT(log.lines(), ElementsAre("debug: Refreshing panels for mode: analysis",
                                       "debug: Skipping FileListPanel (panel mode: batch, current: analysis)",
                                       "info: Refreshed 0 panels, skipped 1 for mode 'analysis'"));
}

TEST(Panels, TheModeIsFoundOutAgainAtEveryRefresh) {
  Probe controller;
  RefreshedPanel panel("MaskPanel", batch_module);
  controller.register_panel(panel);
  controller.refresh_all_panels();
  EXPECT_EQ(panel.refreshes, 0);
  panel.module = analysis_module;
  controller.refresh_all_panels();
  EXPECT_EQ(panel.refreshes, 1);
}

TEST(Panels, ARefreshMayRegisterAnotherPanelWhichIsThenRefreshedToo) {
  Probe controller;
  RefreshedPanel late("Late", shared_module);
  RefreshedPanel opener("Opener", shared_module);
  opener.on_refresh = [&] { controller.register_panel(late); };
  controller.register_panel(opener);
  controller.refresh_all_panels();
  EXPECT_EQ(late.refreshes, 1);
}

TEST(Panels, RefreshOnlyStatusWithNoStatusBarPanelDoesNothingAndLogsNothing) {
  Probe controller;
  RefreshedPanel masks("MaskPanel", analysis_module);
  controller.register_panel(masks);
  const LogCapture log;
  controller.refresh_only_status();
  EXPECT_EQ(masks.refreshes, 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Panels, RefreshOnlyStatusHandlesEveryStatusBarPanelWhateverTheMode) {
  Probe controller;
  controller.state.processing_mode = "watcher";
  RefreshedPanel one("StatusBarPanel", batch_module);
  PlainPanel dead("StatusBarPanel", shared_module);
  RefreshedPanel two("StatusBarPanel", shared_module);
  controller.register_panel(one);
  controller.register_panel(dead);
  controller.register_panel(two);
  const LogCapture log;
  controller.refresh_only_status();
  EXPECT_EQ(one.refreshes, 1);
  EXPECT_EQ(two.refreshes, 1);
  EXPECT_THAT(log.lines(), ElementsAre("debug: Refreshing status panel StatusBarPanel",
                                       "warning: Status panel StatusBarPanel has no refresh method",
                                       "debug: Refreshing status panel StatusBarPanel"));
}

TEST(Panels, RefreshSpecificPanelTakesTheFirstOfThatNameWhateverTheMode) {
  Probe controller;
  RefreshedPanel first("FileListPanel", batch_module);
  RefreshedPanel second("FileListPanel", analysis_module);
  controller.register_panel(first);
  controller.register_panel(second);
  const LogCapture log;
  controller.refresh_specific_panel("FileListPanel");
  EXPECT_EQ(first.refreshes, 1);
  EXPECT_EQ(second.refreshes, 0);
  EXPECT_THAT(log.lines(), ElementsAre("debug: Refreshing specific panel FileListPanel"));
}

TEST(Panels, RefreshSpecificPanelStopsAtAFirstMatchThatCannotRefresh) {
  Probe controller;
  PlainPanel first("MaskPanel", analysis_module);
  RefreshedPanel second("MaskPanel", analysis_module);
  controller.register_panel(first);
  controller.register_panel(second);
  const LogCapture log;
  controller.refresh_specific_panel("MaskPanel");
  EXPECT_EQ(second.refreshes, 0);
  EXPECT_THAT(log.lines(), ElementsAre("warning: Panel MaskPanel has no refresh method"));
}

TEST(Panels, RefreshSpecificPanelOfAnUnknownNameIsOnlyLogged) {
  Probe controller;
  const LogCapture log;
  controller.refresh_specific_panel("Nobody");
  EXPECT_THAT(log.lines(), ElementsAre("warning: Panel Nobody not found among registered panels"));
}

TEST(ProcessingMode, SwitchingToBatchRefreshesTheAnalysisAndAllPanelsBeforeBatchIsStored) {
  auto owned = std::make_unique<ScriptedState>();
  ScriptedState& state = *owned;
  Probe controller(std::move(owned));
  std::vector<std::string> events;
  state.on_reset = [&](ScriptedState& s) { events.push_back("reset in " + s.processing_mode); };
  state.on_derive = [&](ScriptedState& s) { events.push_back("derive in " + s.processing_mode + ": " + *s.message); };
  RefreshedPanel masks("MaskPanel", analysis_module,
                       [&] { events.push_back("analysis panel in " + state.processing_mode); });
  RefreshedPanel status("StatusBarPanel", shared_module,
                        [&] { events.push_back(state.message ? "status with message" : "status without message"); });
  RefreshedPanel files("FileListPanel", batch_module, [&] { events.push_back("batch panel"); });
  for (RefreshedPanel* panel : {&masks, &status, &files}) controller.register_panel(*panel);
  state.current_capture = small_capture();

  controller.set_processing_mode("batch");

  EXPECT_THAT(events, ElementsAre("reset in analysis", "analysis panel in analysis", "status without message",
                                  "derive in batch: Processing mode set: batch"));
  EXPECT_EQ(state.processing_mode, "batch");
  EXPECT_EQ(state.message, "Processing mode set: batch");
  EXPECT_EQ(state.current_capture, nullptr);
  EXPECT_EQ(state.phase, controller::Phase::EMPTY);
}

TEST(ProcessingMode, IsNotValidated) {
  Probe controller;
  controller.set_processing_mode("gardening");
  EXPECT_EQ(controller.state.processing_mode, "gardening");
  EXPECT_EQ(controller.state.message, "Processing mode set: gardening");
}

TEST(ProcessingMode, AFailingPanelLeavesTheOldModeInPlace) {
  Probe controller;
  RefreshedPanel broken("Broken", shared_module, [] { throw std::runtime_error("no widget"); });
  controller.register_panel(broken);
  EXPECT_THROW(controller.set_processing_mode("batch"), std::runtime_error);
  EXPECT_EQ(controller.state.processing_mode, "analysis");
  EXPECT_EQ(controller.state.message, std::nullopt);
}

}  // namespace
}  // namespace orvexa::test

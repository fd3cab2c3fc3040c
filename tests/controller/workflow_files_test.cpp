#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/common/serialisation.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class WorkflowFiles : public testing::Test {
 protected:
  WorkflowFiles() { controller.register_panel(panel); }

  void fill_cache() { controller._mask_result_cache[0] = small_capture(); }

  std::unique_ptr<ScriptedState> owned = std::make_unique<ScriptedState>();
  ScriptedState& state = *owned;
  const model::ResultOperationInfo area = result_operation("area", "Shape");
  std::function<void(std::string_view)> on_access;
  const model::ResultRegistryOverride registry{{&area}, [this](std::string_view key) {
                                                 if (on_access) on_access(key);
                                               }};
  Probe controller{std::move(owned)};
  RefreshedPanel panel{"MaskPanel", analysis_module};
  TemporaryFolder folder;
};

// ---- Making current
// --------------------------------------------------------------------------------------------------

TEST_F(WorkflowFiles, ANewWorkflowWithoutATitleIsCalledUntitledAndIsCurrent) {
  const auto workflow = controller.new_empty_workflow();
  EXPECT_EQ(workflow->title, "untitled");
  EXPECT_EQ(state.current_workflow, workflow);
  EXPECT_THAT(workflow->mask_operations, IsEmpty());
  EXPECT_THAT(workflow->result_operations, IsEmpty());
  EXPECT_EQ(controller.new_empty_workflow("Tray")->title, "Tray");
  EXPECT_EQ(state.current_workflow->title, "Tray");
}

TEST_F(WorkflowFiles, SettingAWorkflowEmptiesTheMaskCacheSeedsAvailabilityClearsTheErrorAndDerivesThePhaseLast) {
  state.current_capture = small_capture();
  state.error = "older";
  state.message = "before";
  fill_cache();
  const auto workflow = workflow_of({"erode"});
  std::vector<std::string> derived;
  state.on_derive = [&](ScriptedState& s) {
    derived.push_back(s.current_workflow->title + "|" + s.error.value_or("no error") + "|" +
                      s.enabled_operations_cache.at(0));
    EXPECT_THAT(cached_indices(controller), IsEmpty());
  };
  int changes = 0;
  const controller::EventConnection heard(
      controller.events.workflow_result_operations_changed.connect([&] { ++changes; }));
  controller.set_workflow(workflow);
  EXPECT_EQ(state.current_workflow, workflow);
  EXPECT_THAT(derived, ElementsAre("given|no error|area"));
  EXPECT_EQ(state.phase, Phase::WORKFLOW_READY);
  EXPECT_THAT(workflow->result_operations, IsEmpty()) << "what is available is not added here";
  EXPECT_EQ(state.message, "before");
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(panel.refreshes, 0);
}

TEST_F(WorkflowFiles, SettingAWorkflowWithoutACaptureLeavesTheAvailableOperationsButClearsTheError) {
  state.enabled_operations_cache = {"kept"};
  state.error = "older";
  controller.set_workflow(workflow_of({"erode"}));
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("kept"));
  EXPECT_EQ(state.error, std::nullopt);
}

TEST_F(WorkflowFiles, SettingAWorkflowWhileAvailabilityIsUnknownLeavesTheAvailableOperationsAndCompletes) {
  state.current_capture = small_capture();
  state.enabled_operations_cache = {"kept"};
  on_access = [](std::string_view) { throw std::runtime_error("registry not there"); };
  controller.set_workflow(workflow_of({"erode"}));
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("kept"));
  EXPECT_EQ(state.phase, Phase::WORKFLOW_READY);
}

TEST_F(WorkflowFiles, AvailabilityIsAskedWhenTheWorkflowIsCurrentAndTheMaskCacheEmptyButTheErrorNotYetCleared) {
  state.current_capture = small_capture();
  state.error = "older";
  fill_cache();
  const auto workflow = workflow_of({"erode"});
  int asked = 0;
  on_access = [&](std::string_view) {
    ++asked;
    EXPECT_EQ(state.current_workflow, workflow);
    EXPECT_THAT(cached_indices(controller), IsEmpty());
    EXPECT_EQ(state.error, "older");
  };
  controller.set_workflow(workflow);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(state.error, std::nullopt);
}

TEST_F(WorkflowFiles, SettingNoWorkflowIsRefusedAndTheOneThatIsCurrentStays) {
  const auto old = workflow_of({"erode"});
  state.current_workflow = old;
  state.current_capture = small_capture();
  state.error = "older";
  fill_cache();
  try {
    controller.set_workflow(nullptr);
    FAIL() << "nothing was raised";
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(), "There is no workflow to make the current one.");
  }
  EXPECT_EQ(state.current_workflow, old);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_EQ(state.error, "older");
}

TEST_F(WorkflowFiles, ClearingWhenThereIsNoWorkflowSetsNoMessageAndRefreshesNothing) {
  controller.clear_workflow();
  EXPECT_EQ(state.message, std::nullopt);
  EXPECT_EQ(panel.refreshes, 0);
}

TEST_F(WorkflowFiles, ClearingDropsTheWorkflowAndRefreshesButKeepsBothCaches) {
  controller.set_workflow(workflow_of({"erode"}));
  fill_cache();
  state.enabled_operations_cache = {"kept"};
  state.error = "older";
  panel.on_refresh = [&] {
    EXPECT_EQ(state.current_workflow, nullptr);
    EXPECT_EQ(state.message, "Workflow cleared");
  };
  controller.clear_workflow();
  EXPECT_EQ(state.current_workflow, nullptr);
  EXPECT_EQ(state.message, "Workflow cleared");
  EXPECT_EQ(panel.refreshes, 1);
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("kept"));
  EXPECT_EQ(state.error, "older");
}

// ---- Saving
// ----------------------------------------------------------------------------------------------------------

TEST_F(WorkflowFiles, SavingWithNoWorkflowIsAnErrorAndWritesNoFile) {
  EXPECT_FALSE(controller.save_workflow_to_file(folder / "w.yaml"));
  EXPECT_EQ(state.error, "No workflow to save");
  EXPECT_EQ(state.phase, Phase::EMPTY);
  EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(WorkflowFiles, SavingWritesTheMapOfTheWorkflowAndNamesTheFile) {
  state.current_workflow = workflow_of({"erode"}, {"area"});
  state.current_workflow->mask_operations[0].params = {{"radius", 2}, {"text", "012"}};
  state.error = "older";
  EXPECT_TRUE(controller.save_workflow_to_file(folder / "pflänze 1.yaml"));
  EXPECT_EQ(common::load_yaml(folder / "pflänze 1.yaml"), state.current_workflow->to_dict());
  EXPECT_EQ(state.message, "Workflow saved to pflänze 1.yaml");
  EXPECT_EQ(state.error, "older");
  EXPECT_EQ(panel.refreshes, 0);
}

TEST_F(WorkflowFiles, AFailureToSaveIsPutIntoTheErrorAloneAndNothingIsRefreshed) {
  state.current_workflow = workflow_of({"erode"});
  state.message = "before";
  EXPECT_FALSE(controller.save_workflow_to_file(folder / "no such folder/w.yaml"));
  ASSERT_TRUE(state.error);
  EXPECT_THAT(*state.error, StartsWith("Failed to save workflow: "));
  EXPECT_GT(state.error->size(), std::string("Failed to save workflow: ").size());
  EXPECT_EQ(state.message, "before");
  EXPECT_EQ(state.phase, Phase::EMPTY);
  EXPECT_EQ(panel.refreshes, 0);
}

// ---- Loading
// ---------------------------------------------------------------------------------------------------------

TEST_F(WorkflowFiles, SavingAndLoadingTheSameFileGivesTheSameMap) {
  state.current_workflow = workflow_of({"erode", "not_known_here"}, {"area"});
  state.current_workflow->mask_operations[0].params = {{"radius", 2}, {"text", "012"}, {"share", 0.1}, {"flag", true}};
  state.current_workflow->result_operations[0].others = {{"comment", "yes"}};
  const Value saved = state.current_workflow->to_dict();
  ASSERT_TRUE(controller.save_workflow_to_file(folder / "w.yaml"));
  ASSERT_TRUE(controller.load_workflow_from_file(folder / "w.yaml"));
  EXPECT_EQ(state.current_workflow->to_dict(), saved);
  ASSERT_TRUE(controller.import_workflow_yaml(folder / "w.yaml"));
  EXPECT_EQ(state.current_workflow->to_dict(), saved);
}

TEST_F(WorkflowFiles, LoadingInstallsTheWorkflowOfTheFileAndNamesIt) {
  const auto file = folder.write("w.yaml", "title: Tray\nmask_operations:\n- op: erode\n  params: {radius: 2}\n");
  state.current_capture = small_capture();
  state.error = "older";
  fill_cache();
  const LogCapture log;
  EXPECT_TRUE(controller.load_workflow_from_file(file));
  EXPECT_EQ(state.current_workflow->title, "Tray");
  EXPECT_THAT(keys_of(state.current_workflow->mask_operations), ElementsAre("erode"));
  EXPECT_EQ(state.message, "Workflow loaded from w.yaml");
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_EQ(state.phase, Phase::WORKFLOW_READY);
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_THAT(state.enabled_operations_cache, ElementsAre("area"));
  EXPECT_EQ(panel.refreshes, 0);
  EXPECT_THAT(log.lines(), IsEmpty()) << "there was no workflow to clear";
}

TEST_F(WorkflowFiles, AFileInANewerFormatIsLoadedAndEditedAndKeepsWhatThisProgramDoesNotKnow) {
  const auto file = folder.write("w.yaml", "format: 2\ntitle: Tray\nmask_operations: []\ninvented_later: [1, two]\n");
  ASSERT_TRUE(controller.load_workflow_from_file(file));
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_EQ(state.message, "Workflow loaded from w.yaml");
  state.current_workflow->mask_operations.push_back(model::mask_op("erode"));
  ASSERT_TRUE(controller.save_workflow_to_file(file));
  const Value saved = common::load_yaml(file);
  EXPECT_EQ(saved.at("format"), 2);
  EXPECT_EQ(saved.at("invented_later"), Value::array({1, "two"}));
  EXPECT_EQ(saved.at("mask_operations").at(0).at("op"), "erode");
}

TEST_F(WorkflowFiles, LoadingFirstEmptiesTheMaskStepsOfTheWorkflowThatWasCurrentAndSaysSo) {
  const auto file = folder.write("w.yaml", "title: Tray\n");
  const auto old = workflow_of({"erode", "dilate"}, {"area"});
  state.current_workflow = old;
  const LogCapture log;
  EXPECT_TRUE(controller.load_workflow_from_file(file));
  EXPECT_THAT(old->mask_operations, IsEmpty());
  EXPECT_THAT(keys_of(old->result_operations), ElementsAre("area"));
  EXPECT_NE(state.current_workflow, old);
  EXPECT_THAT(log.lines(),
              ElementsAre("info: load_workflow_from_file: Clearing existing workflow and masks before loading"));
}

struct BadFile {
  const char* name;
  const char* content;  ///< null = there is no file
};

class FailedLoad : public WorkflowFiles, public testing::WithParamInterface<BadFile> {};

TEST_P(FailedLoad, KeepsThePreviousWorkflowWithoutItsMaskStepsReportsAndRefreshes) {
  const auto file = folder / "bad.yaml";
  if (GetParam().content != nullptr) folder.write("bad.yaml", GetParam().content);
  const auto old = workflow_of({"erode", "dilate"}, {"area"});
  state.current_workflow = old;
  state.message = "before";
  fill_cache();
  panel.on_refresh = [&] { EXPECT_TRUE(state.error); };
  EXPECT_FALSE(controller.load_workflow_from_file(file));
  EXPECT_EQ(state.current_workflow, old);
  EXPECT_THAT(old->mask_operations, IsEmpty());
  EXPECT_THAT(keys_of(old->result_operations), ElementsAre("area"));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  ASSERT_TRUE(state.error);
  EXPECT_THAT(*state.error, StartsWith("Failed to load workflow: "));
  EXPECT_GT(state.error->size(), std::string("Failed to load workflow: ").size());
  EXPECT_EQ(state.message, "before");
  EXPECT_EQ(state.phase, Phase::EMPTY) << "the error alone is set";
  EXPECT_EQ(panel.refreshes, 1);
}

INSTANTIATE_TEST_SUITE_P(Files, FailedLoad,
                         testing::Values(BadFile{"NotThere", nullptr}, BadFile{"EmptyDocument", ""},
                                         BadFile{"OnlyAComment", "# nothing\n"}, BadFile{"NotYaml", "a: [1, 2"},
                                         BadFile{"AList", "- op: erode\n"}, BadFile{"AText", "erode\n"},
                                         BadFile{"AnUnknownKey", "title: a\nmasks: []\n"},
                                         BadFile{"AStepWithoutAnOperation", "mask_operations: [{params: {}}]\n"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WorkflowFiles, AFailedLoadEmptiesTheMaskCacheAlsoWithoutAPreviousWorkflow) {
  fill_cache();
  EXPECT_FALSE(controller.load_workflow_from_file(folder / "not there.yaml"));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(state.current_workflow, nullptr);
}

TEST_F(WorkflowFiles, AFailureWhileTheLoadedWorkflowIsMadeCurrentIsReportedToo) {
  state.on_derive = [](ScriptedState&) { throw std::runtime_error("no phase"); };
  EXPECT_FALSE(controller.load_workflow_from_file(folder.write("w.yaml", "title: Tray\n")));
  EXPECT_EQ(state.error, "Failed to load workflow: no phase");
  EXPECT_EQ(panel.refreshes, 1);
}

TEST_F(WorkflowFiles, InBatchModeTheWorkflowOfTheFileStaysStepForStepWhenACaptureIsLoadedAfterIt) {
  // The capture offers `area`, which the file does not use; the file uses `glow`, which is not offered.
  const auto file =
      folder.write("w.yaml", "title: Tray\nmask_operations: [{op: erode}]\nresult_operations: [{op: glow}]\n");
  controller.image_loader = [](const std::filesystem::path&) { return small_capture(); };
  controller.set_processing_mode("batch");
  ASSERT_TRUE(controller.load_workflow_from_file(file));
  const Value loaded = state.current_workflow->to_dict();
  controller.load_capture_from_file("a.png");
  ASSERT_TRUE(state.current_capture);
  EXPECT_EQ(state.current_workflow->to_dict(), loaded);
  EXPECT_THAT(keys_of(state.current_workflow->result_operations), ElementsAre("glow"));
}

// ---- The plain pair
// --------------------------------------------------------------------------------------------------

TEST_F(WorkflowFiles, ExportingWithNoWorkflowFailsToTheCaller) {
  try {
    controller.export_workflow_yaml(folder / "w.yaml");
    FAIL() << "nothing was raised";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "No workflow loaded");
  }
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_EQ(state.message, std::nullopt);
  EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(WorkflowFiles, ExportingWritesTheMapAndNamesTheFileGivenAsTextToo) {
  state.current_workflow = workflow_of({"erode"});
  const std::string file = (folder / "w.yaml").string();
  controller.export_workflow_yaml(file);
  EXPECT_EQ(state.message, "Exported w.yaml");
  EXPECT_EQ(common::load_yaml(file), state.current_workflow->to_dict());
}

TEST_F(WorkflowFiles, AFailureToExportReachesTheCallerAndSetsNoText) {
  state.current_workflow = workflow_of({"erode"});
  EXPECT_THROW(controller.export_workflow_yaml(folder / "no such folder/w.yaml"), std::runtime_error);
  EXPECT_EQ(state.error, std::nullopt);
  EXPECT_EQ(state.message, std::nullopt);
}

TEST_F(WorkflowFiles, ImportingMakesTheWorkflowCurrentWithoutAMessageAndLeavesTheOldOnesSteps) {
  const auto old = workflow_of({"erode"});
  state.current_workflow = old;
  fill_cache();
  const LogCapture log;
  const auto imported = controller.import_workflow_yaml(folder.write("w.yaml", "title: Tray\n"));
  EXPECT_EQ(imported->title, "Tray");
  EXPECT_EQ(state.current_workflow, imported);
  EXPECT_THAT(keys_of(old->mask_operations), ElementsAre("erode"));
  EXPECT_THAT(cached_indices(controller), IsEmpty());
  EXPECT_EQ(state.message, std::nullopt);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WorkflowFiles, AFailureToImportReachesTheCallerAndLeavesEverythingAsItWas) {
  const auto old = workflow_of({"erode"});
  state.current_workflow = old;
  fill_cache();
  EXPECT_THROW(controller.import_workflow_yaml(folder / "not there.yaml"), std::runtime_error);
  EXPECT_THROW(controller.import_workflow_yaml(folder.write("empty.yaml", "")), std::exception);
  EXPECT_EQ(state.current_workflow, old);
  EXPECT_THAT(keys_of(old->mask_operations), ElementsAre("erode"));
  EXPECT_THAT(cached_indices(controller), ElementsAre(0));
  EXPECT_EQ(state.error, std::nullopt);
}

}  // namespace
}  // namespace orvexa::test

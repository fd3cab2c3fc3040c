#include "orvexa/ui/workbench/workbench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <latch>

#include "orvexa/common/serialisation.h"
#include "support/captures.h"
#include "ui/support/block_picture.h"
#include "ui/support/desktop.h"

namespace orvexa::test {
namespace {

using common::Value;
using controller::Phase;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const Value bright = {{"low", 0.5}};  // between the ground of 20 and the block of 200 counts of 255

class WorkbenchTest : public DesktopTest {
 protected:
  void open_block() { open_capture(write_image("block.png", block_picture())); }

  std::vector<std::string> mask_keys() const {
    std::vector<std::string> keys;
    for (const auto& step : state().current_workflow->mask_operations) keys.push_back(step.op);
    return keys;
  }
  std::vector<std::string> measured() const {
    std::vector<std::string> keys;
    for (const auto& entry : state().current_workflow->result_operations) keys.push_back(entry.op);
    return keys;
  }
  void apply(const std::string& operation, const Value& params) const {
    workbench->apply_mask(operation, params);
    ASSERT_TRUE(wait_until_idle());
    ASSERT_EQ(state().error, std::nullopt);
  }
};

// ---- Captures
// --------------------------------------------------------------------------------------------------------

TEST_F(WorkbenchTest, ACaptureIsLoadedOnAWorkerWhileTheWindowLives) {
  const auto file = write_image("block.png", block_picture());
  const QSignalSpy busy(workbench.get(), &ui::Workbench::busy_changed);
  workbench->open_capture(file);
  EXPECT_TRUE(workbench->is_busy());
  EXPECT_FALSE(state().current_capture);
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(busy.size(), 2);
  EXPECT_TRUE(busy.at(0).at(0).toBool());
  EXPECT_FALSE(busy.at(1).at(0).toBool());
  ASSERT_TRUE(state().current_capture);
  EXPECT_EQ(state().current_capture->name, "block");
  EXPECT_EQ(state().message, "Loaded capture: block with 1 measurements");
  EXPECT_EQ(state().current_file, file);
  EXPECT_THAT(workbench->memory().recent(ui::Memory::List::captures), ElementsAre(file));
}

TEST_F(WorkbenchTest, ABrokenFileIsASentenceAndNoCapture) {
  workbench->open_capture(folder.write("broken.png", "no picture at all"));
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(state().current_capture);
  ASSERT_TRUE(state().error);
  EXPECT_THAT(*state().error, HasSubstr("broken.png"));
  EXPECT_EQ(state().phase, Phase::ERROR);
}

TEST_F(WorkbenchTest, NoPictureOfTheOldCaptureRemainsOnceAnotherOneIsAskedFor) {
  open_block();
  apply("threshold_range", bright);
  ASSERT_EQ(workbench->step_results().steps().size(), 1U);
  const QSignalSpy changed(workbench.get(), &ui::Workbench::capture_changed);
  workbench->open_capture(write_image("other.png", flat_image<std::uint8_t>(5, 5, 9)));
  EXPECT_EQ(changed.size(), 1);
  EXPECT_TRUE(workbench->step_results().steps().empty());
  EXPECT_FALSE(workbench->previewer().answer());
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(workbench->step_results().steps().size(), 1U) << "the workflow's step on the new capture";
}

TEST_F(WorkbenchTest, WhileAWorkerRunsNoCommandIsTaken) {
  const auto file = write_image("block.png", block_picture());
  std::latch may_end(1);
  controller().image_loader = [&](const std::filesystem::path& path) {
    may_end.wait();
    return model::load_capture_from_image(path);
  };
  workbench->open_capture(file);
  workbench->open_folder(folder.path());
  workbench->new_workflow();
  workbench->apply_mask("threshold_range", bright);
  workbench->set_mode("batch");
  EXPECT_EQ(workbench->edit_mask(0, bright), QString("Something is running; wait until it has ended."));
  EXPECT_FALSE(workbench->open_workflow(folder / "any.yaml"));
  EXPECT_FALSE(workbench->save_workflow(folder / "any.yaml"));
  may_end.count_down();
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(state().processing_mode, "analysis");
  EXPECT_EQ(state().current_folder, std::nullopt);
  EXPECT_TRUE(mask_keys().empty());
  EXPECT_EQ(workbench->history().undo_step(), nullptr);
}

// ---- The workflow
// ----------------------------------------------------------------------------------------------------

TEST_F(WorkbenchTest, AnAppliedStepHasTheKnownPixelsAndIsTold) {
  open_block();
  int told = 0;
  const controller::EventConnection heard(
      controller().events.mask_operation_added.connect([&](const std::shared_ptr<model::CaptureSet>& masked) {
        ++told;
        EXPECT_EQ(masked->mask->count(), 600);
      }));
  apply("threshold_range", bright);
  EXPECT_EQ(told, 1);
  EXPECT_THAT(mask_keys(), ElementsAre("threshold_range"));
  ASSERT_EQ(workbench->step_results().steps().size(), 1U);
  EXPECT_EQ(workbench->step_results().steps()[0].pixels, 600);
  EXPECT_FALSE(workbench->step_results().steps()[0].thumbnail.isNull());
  EXPECT_EQ(workbench->history().undo_step()->text, "add Threshold: range");
  EXPECT_TRUE(workbench->has_unsaved_changes());
}

TEST_F(WorkbenchTest, AStepThatCannotRunIsNotPartOfTheWorkflow) {
  open_block();
  workbench->apply_mask("erode", Value::object());
  ASSERT_TRUE(wait_until_idle());
  EXPECT_TRUE(mask_keys().empty());
  ASSERT_TRUE(state().error);
  EXPECT_THAT(*state().error, HasSubstr("Failed to add mask to workflow"));
  EXPECT_EQ(workbench->history().undo_step(), nullptr);
}

TEST_F(WorkbenchTest, EditAndUndoGiveThePixelsOfBefore) {
  open_block();
  apply("threshold_range", bright);
  const model::Workflow before = *state().current_workflow;
  ASSERT_EQ(workbench->edit_mask(0, {{"low", 0.01}}), std::nullopt);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(workbench->step_results().steps()[0].pixels, 60 * 80);
  workbench->undo();
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(*state().current_workflow, before);
  EXPECT_EQ(workbench->step_results().steps()[0].pixels, 600);
  EXPECT_EQ(state().message, "Undone: change Threshold: range");
  workbench->redo();
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(workbench->step_results().steps()[0].pixels, 60 * 80);
}

TEST_F(WorkbenchTest, AWrongParameterIsASentenceAndChangesNothing) {
  open_block();
  apply("threshold_range", bright);
  const model::Workflow before = *state().current_workflow;
  const auto problem = workbench->edit_mask(0, {{"low", "high"}});
  ASSERT_TRUE(problem);
  EXPECT_THAT(problem->toStdString(), HasSubstr("low"));
  EXPECT_EQ(*state().current_workflow, before);
}

TEST_F(WorkbenchTest, WhatAStepMakesAvailableIsNamedAndIsPartOfTheSameStepOfTheHistory) {
  open_block();
  workbench->set_result_operations({"area"});
  ASSERT_THAT(measured(), ElementsAre("area"));
  apply("threshold_range", bright);
  // A perimeter needs a mask, which was not there before.
  EXPECT_THAT(measured(), Contains("perimeter"));
  EXPECT_THAT(*state().message, HasSubstr("measured from now on: "));
  EXPECT_THAT(*state().message, HasSubstr("Perimeter"));
  workbench->undo();
  EXPECT_TRUE(mask_keys().empty());
  EXPECT_THAT(measured(), ElementsAre("area"));
}

TEST_F(WorkbenchTest, EverythingCanBeUndoneUpToTheBeginningAndDoneAgain) {
  open_block();
  const model::Workflow beginning = *state().current_workflow;
  apply("threshold_range", bright);
  apply("erode", {{"radius", 1}});
  workbench->set_result_operations({"area", "perimeter"});
  workbench->set_title("leaves");
  ASSERT_EQ(workbench->edit_result_operation("perimeter", Value::object()), std::nullopt);
  workbench->remove_mask(1);
  const model::Workflow end = *state().current_workflow;
  int steps = 0;
  for (; workbench->history().undo_step() != nullptr; ++steps) workbench->undo();
  EXPECT_EQ(*state().current_workflow, beginning);
  EXPECT_FALSE(workbench->has_unsaved_changes());
  while (workbench->history().redo_step() != nullptr) workbench->redo();
  EXPECT_EQ(*state().current_workflow, end);
  EXPECT_GE(steps, 5);
}

TEST_F(WorkbenchTest, AWorkflowIsSavedAndLoadedAgain) {
  open_block();
  apply("threshold_range", bright);
  const auto file = folder / "leaves.yaml";
  ASSERT_TRUE(workbench->save_workflow(file));
  EXPECT_FALSE(workbench->has_unsaved_changes());
  const model::Workflow saved = *state().current_workflow;
  workbench->new_workflow();
  EXPECT_TRUE(mask_keys().empty());
  ASSERT_TRUE(workbench->open_workflow(file));
  EXPECT_EQ(*state().current_workflow, saved);
  EXPECT_FALSE(workbench->has_unsaved_changes());
}

TEST_F(WorkbenchTest, AFileThatIsNoWorkflowLeavesTheOneThatWasThereAsItWas) {
  open_block();
  apply("threshold_range", bright);
  const model::Workflow before = *state().current_workflow;
  EXPECT_FALSE(workbench->open_workflow(folder.write("notes.yaml", "- just\n- a list\n")));
  EXPECT_EQ(*state().current_workflow, before);
  ASSERT_TRUE(state().error);
  EXPECT_THAT(*state().error, HasSubstr("Failed to load workflow"));
}

TEST_F(WorkbenchTest, AWorkflowThatIsSavedElsewhereMeansTheSameFiles) {
  open_block();
  const auto mask_file = folder / "here" / "mask.png";
  std::filesystem::create_directories(mask_file.parent_path());
  common::write_file_atomically(mask_file, model::encode_png(block_picture()));
  auto workflow = std::make_shared<model::Workflow>();
  workflow->folder = folder / "here";
  workflow->mask_operations.push_back(model::mask_op("mask_from_file", {{"file", "mask.png"}}));
  controller().set_workflow(workflow);
  std::filesystem::create_directories(folder / "there");
  ASSERT_TRUE(workbench->save_workflow(folder / "there" / "w.yaml"));
  const Value saved = common::load_yaml(folder / "there" / "w.yaml");
  EXPECT_EQ(saved.at("mask_operations").at(0).at("params").at("file"), "../here/mask.png");
}

// ---- Preview
// ---------------------------------------------------------------------------------------------------------

TEST_F(WorkbenchTest, ThePreviewIsTheStepOnceApplied) {
  open_block();
  workbench->preview(0, "threshold_range", bright);
  ASSERT_TRUE(wait_until([this] { return workbench->previewer().answer().has_value(); }));
  const ui::Previewer::Answer answer = *workbench->previewer().answer();
  EXPECT_EQ(answer.pixels, 600);
  EXPECT_TRUE(answer.failure.isEmpty());
  apply("threshold_range", bright);
  EXPECT_EQ(*answer.mask, *workbench->step_results().steps()[0].capture->mask);
  EXPECT_FALSE(workbench->previewer().answer()) << "what was committed is no preview any more";
}

TEST_F(WorkbenchTest, OnlyTheNewestOfManyQuestionsIsAnsweredLast) {
  open_block();
  for (int percent = 1; percent <= 50; ++percent) workbench->preview(0, "threshold_range", {{"low", percent / 100.0}});
  ASSERT_TRUE(wait_until([this] {
    const auto& answer = workbench->previewer().answer();
    return answer && answer->pixels == 600;  // limits above the ground's 8 % leave the block alone
  }));
  workbench->preview(0, "threshold_range", {{"low", 0.9}});
  ASSERT_TRUE(wait_until([this] { return workbench->previewer().answer()->pixels == 0; }));
}

TEST_F(WorkbenchTest, APreviewThatCannotBeMadeIsASentence) {
  open_block();
  workbench->preview(0, "erode", Value::object());
  ASSERT_TRUE(wait_until([this] { return workbench->previewer().answer().has_value(); }));
  EXPECT_FALSE(workbench->previewer().answer()->mask);
  EXPECT_FALSE(workbench->previewer().answer()->failure.isEmpty());
}

// ---- Runs
// ------------------------------------------------------------------------------------------------------------

TEST_F(WorkbenchTest, ResultsAreMeasuredOnTheWorker) {
  open_block();
  apply("threshold_range", bright);
  workbench->set_result_operations({"area"});
  const QSignalSpy ended(workbench.get(), &ui::Workbench::results_ended);
  workbench->run_results(folder / "out");
  EXPECT_TRUE(workbench->is_busy());
  ASSERT_TRUE(wait_until_idle());
  ASSERT_EQ(ended.size(), 1);
  EXPECT_TRUE(ended.at(0).at(0).toBool());
  ASSERT_TRUE(state().last_results);
  EXPECT_EQ(state().last_results->at("area").metrics.at("area"), 600);
  EXPECT_TRUE(std::filesystem::is_regular_file(folder / "out" / "block" / "metrics.json"));
}

TEST_F(WorkbenchTest, ABatchTellsEachFileAndComesBackWithTheStateOfBefore) {
  open_block();
  apply("threshold_range", bright);
  workbench->set_result_operations({"area"});
  const auto good = write_image("a.png", block_picture());
  const auto broken = folder.write("b.png", "no picture");
  std::vector<controller::BatchFileEntry> entries;
  QObject::connect(workbench.get(), &ui::Workbench::batch_file_done,
                   [&](const controller::BatchFileEntry& entry) { entries.push_back(entry); });
  std::optional<controller::BatchSummary> summary;
  QObject::connect(workbench.get(), &ui::Workbench::batch_ended,
                   [&](const controller::BatchSummary& ended) { summary = ended; });
  workbench->run_batch({.files = {good, broken}, .output_folder = folder / "out"});
  ASSERT_TRUE(wait_until_idle());
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->total_files, 2);
  EXPECT_EQ(summary->successful_files.size(), 1U);
  EXPECT_EQ(summary->failed_files.size(), 1U);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_TRUE(std::holds_alternative<controller::BatchFileSuccess>(entries[0]));
  EXPECT_TRUE(std::holds_alternative<controller::BatchFileFailure>(entries[1]));
  ASSERT_TRUE(state().current_capture);
  EXPECT_EQ(state().current_capture->name, "block");
}

TEST_F(WorkbenchTest, ACancelledBatchEndsAfterTheFileThatIsWorkedOn) {
  open_block();
  std::latch has_begun(1);
  std::latch may_end(1);
  controller().image_loader = [&](const std::filesystem::path& path) {
    if (path.filename() == "1.png") {
      has_begun.count_down();
      may_end.wait();
    }
    return model::load_capture_from_image(path);
  };
  std::vector<std::filesystem::path> files;
  for (const char* name : {"1.png", "2.png", "3.png"}) files.push_back(write_image(name, block_picture()));
  std::optional<controller::BatchSummary> summary;
  QObject::connect(workbench.get(), &ui::Workbench::batch_ended,
                   [&](const controller::BatchSummary& ended) { summary = ended; });
  workbench->run_batch({.files = files, .output_folder = folder / "out"});
  has_begun.wait();
  workbench->cancel();
  may_end.count_down();
  ASSERT_TRUE(wait_until_idle());
  ASSERT_TRUE(summary);
  EXPECT_LT(summary->successful_files.size(), 3U);
  EXPECT_FALSE(summary->errors.empty());
}

TEST_F(WorkbenchTest, TheCaptureIsOpenAgainWhenPeopleComeBackToTheAnalysis) {
  open_block();
  workbench->set_mode("batch");
  ASSERT_TRUE(wait_until_idle());
  EXPECT_FALSE(state().current_capture);
  EXPECT_TRUE(state().current_workflow) << "the batch runs it";
  workbench->set_mode("analysis");
  ASSERT_TRUE(wait_until_idle());
  ASSERT_TRUE(state().current_capture);
  EXPECT_EQ(state().current_capture->name, "block");
}

TEST_F(WorkbenchTest, TheWorkbenchMayGoInTheMiddleOfARunAndNothingIsToldAfterwards) {
  open_block();
  int told = 0;
  QObject::connect(workbench.get(), &ui::Workbench::batch_ended, [&] { ++told; });
  QObject::connect(&workbench->previewer(), &ui::Previewer::answered, [&] { ++told; });
  workbench->preview(0, "threshold_range", bright);
  workbench->run_batch({.files = {write_image("a.png", block_picture()), write_image("b.png", block_picture())},
                        .output_folder = folder / "out"});
  workbench.reset();
  QCoreApplication::processEvents();
  EXPECT_EQ(told, 0);
}

// ---- After a crash
// ---------------------------------------------------------------------------------------------------

TEST_F(WorkbenchTest, UnsavedChangesOfAProgramThatIsGoneAreOfferedAndTakenOver) {
  open_block();
  const auto kept_folder = folder / "XDG_DATA_HOME";
  // What a crash leaves: the copy, and a lock of a process that does not run.
  apply("threshold_range", bright);
  std::filesystem::path kept;
  ASSERT_TRUE(wait_until([&] {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kept_folder)) {
      if (entry.path().extension() == ".yaml") kept = entry.path();
    }
    return !kept.empty();
  }));
  EXPECT_TRUE(workbench->autosave().left_behind().empty()) << "its own copy is not left behind";
  const auto left = kept.parent_path() / "crashed.yaml";
  std::filesystem::copy_file(kept, left);
  EXPECT_THAT(workbench->autosave().left_behind(), ElementsAre(left));
  const model::Workflow unsaved = *state().current_workflow;
  workbench->new_workflow();
  ASSERT_TRUE(workbench->recover_workflow(left));
  EXPECT_EQ(*state().current_workflow, unsaved);
  EXPECT_TRUE(workbench->has_unsaved_changes());
  EXPECT_FALSE(std::filesystem::exists(left));
  workbench.reset();
  EXPECT_FALSE(std::filesystem::exists(kept)) << "a program that ends as it should leaves nothing behind";
}

}  // namespace
}  // namespace orvexa::test

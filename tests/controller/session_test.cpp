// The whole way with nothing faked: picture files, the registries, the executor.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/common/files.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

using controller::Phase;
using testing::Contains;
using testing::ElementsAre;

/// 8 x 10 pixels of 10 with a rectangle of 3 x 4 pixels of 200 in it.
std::filesystem::path write_dish(const TemporaryFolder& folder) {
  cv::Mat pixels(8, 10, CV_8UC1, cv::Scalar(10));
  pixels(cv::Rect(2, 3, 4, 3)).setTo(200);
  common::write_file_atomically(folder / "dish.png", model::encode_png(model::Image(std::move(pixels))));
  return folder / "dish.png";
}

TEST(Session, InteractiveWorkLeadsFromAPictureToSavedResultsAndABatchRunOfItsWorkflowFileGivesTheSame) {
  const TemporaryFolder folder;
  const auto dish = write_dish(folder);
  Probe desk;
  desk.load_capture_from_file(dish);
  EXPECT_EQ(desk.state.message, "Loaded capture: dish with 1 measurements");
  ASSERT_TRUE(desk.state.current_workflow);
  EXPECT_EQ(desk.state.current_workflow->title, "dish");
  EXPECT_THAT(keys_of(desk.state.current_workflow->result_operations), Contains("area"));

  const auto masked = desk.apply_mask_to_workflow("threshold_range", {{"low", 0.5}});
  ASSERT_TRUE(masked) << desk.state.error.value_or("");
  EXPECT_EQ(masked->mask->count(), 12);
  desk.sync_result_operations_to_workflow({"area"});
  ASSERT_TRUE(desk.generate_results_v2((folder / "out").string())) << desk.state.error.value_or("");
  EXPECT_EQ(desk.state.last_results->at("area").metrics.at("area"), 12);
  desk.state.derive_phase();
  EXPECT_EQ(desk.state.phase, Phase::RESULTS_READY);
  ASSERT_TRUE(desk.save_workflow_to_file(folder / "dish.yaml"));

  Probe batch;
  batch.set_processing_mode("batch");
  ASSERT_TRUE(batch.load_workflow_from_file(folder / "dish.yaml"));
  batch.load_capture_from_file(dish);
  ASSERT_TRUE(batch.generate_results_v2((folder / "out").string())) << batch.state.error.value_or("");
  EXPECT_EQ(batch.state.last_results->at("area").metrics, desk.state.last_results->at("area").metrics);
  const std::filesystem::path results = *batch.state.last_saved_results_folder;
  EXPECT_NE(results, *desk.state.last_saved_results_folder);
  const Value ran = common::load_yaml(results / "workflow.yaml");
  const Value given = common::load_yaml(folder / "dish.yaml");
  EXPECT_EQ(ran.at("mask_operations"), given.at("mask_operations"));
  EXPECT_EQ(ran.at("result_operations"), given.at("result_operations"));

  batch._save_numerical_results_to_txt(*batch.state.last_results, folder / "numbers.txt", "dish");
  EXPECT_THAT(read_all(folder / "numbers.txt"), testing::HasSubstr("\narea=12\n"));
}

TEST(Session, WhatWasTunedWithPreviewsIsWhatIsCommittedInspectedAndFinallyReset) {
  const TemporaryFolder folder;
  const auto dish = write_dish(folder);
  Probe desk;
  desk.set_current_folder(dish.parent_path());
  desk.set_current_file(dish);
  desk.load_capture_from_file(dish);
  ASSERT_TRUE(desk.state.current_capture) << desk.state.error.value_or("");
  desk.sync_result_operations_to_workflow({"area"});

  // The rectangle has 200 / 255 = 0.78 of white.
  desk.set_mask_operation("threshold_range", Value{{"low", 0.9}});
  EXPECT_EQ(desk.state.message, "Warning: Generated mask is empty - no regions detected with current parameters");
  desk.update_mask_operation_params({{"low", 0.5}});
  EXPECT_EQ(desk.state.message, "Mask preview updated: Threshold: range (12 pixels)");
  const model::Image tinted = desk.get_mask_preview_images()->at("GRY").overlay_images.at("GRY").pixels();
  EXPECT_EQ(tinted.row<std::uint8_t>(3)[3 * 2], 255) << "the rectangle's corner is outlined";
  EXPECT_EQ(tinted.row<std::uint8_t>(0)[0], 10);
  const auto threshold =
      desk.apply_mask_to_workflow(*desk.state.current_mask_operation, desk.state.mask_operation_params);
  ASSERT_TRUE(threshold) << desk.state.error.value_or("");
  EXPECT_EQ(threshold->mask, desk.state.preview_mask);

  // Of 3 x 4 pixels the inner 1 x 2 are left.
  const Value shape = {{"radius", 1}, {"shape", "square"}};
  const auto preview = desk.run_mask_preview("erode", shape);
  EXPECT_EQ(preview.mask->count(), 2);
  const auto eroded = desk.apply_mask_to_workflow("erode", shape);
  ASSERT_TRUE(eroded) << desk.state.error.value_or("");
  EXPECT_EQ(eroded->mask, preview.mask);

  EXPECT_EQ(desk.generate_mask_intermediate_results(0)->mask.count(), 12);
  EXPECT_EQ(desk.generate_mask_intermediate_results(1)->mask.count(), 2);
  const auto area = desk.generate_operation_intermediate_results(0);
  ASSERT_TRUE(area);
  EXPECT_EQ(area->operation_result.metrics.at("area"), 2);

  // The two left columns of the rectangle, picked on the picture of 8 rows of 10 pixels.
  std::optional<model::Mask> picked;
  desk.enter_pick_mode(
      {.mode = "rect"}, "roi_rect",
      [&](const std::string& key, const model::Interaction&, const controller::PickGeometry& pick) {
        const auto& rect = std::get<model::PickRect>(pick);
        picked = desk.run_mask_preview(key, {{"rect", {rect.cx_norm, rect.cy_norm, rect.w_norm, rect.h_norm}}}).mask;
      });
  desk.exit_pick_mode(controller::ViewerRect(2, 3, 2, 3));
  ASSERT_TRUE(picked);
  EXPECT_EQ(picked->count(), 6);
  EXPECT_TRUE(picked->at(3, 2) && picked->at(5, 3) && !picked->at(3, 4));

  desk.reset_system_state();
  EXPECT_EQ(desk.state.message, "System state reset - ready for new file/folder");
  EXPECT_FALSE(desk.state.current_capture || desk.state.current_workflow || desk.state.preview_mask);
  EXPECT_EQ(desk.state.current_file, dish);
  EXPECT_EQ(desk.get_mask_result(0), nullptr);
  desk.load_capture_from_file(dish);
  EXPECT_TRUE(desk.state.current_workflow && desk.state.current_workflow->mask_operations.empty());
}

TEST(Session, AHeaderFileGoesThroughTheStandardLoader) {
  const TemporaryFolder folder;
  write_dish(folder);
  const auto header =
      folder.write("HDR_dish.INF", "[Capture]\nName = red dish\n[Measurement MSP]\nImage RED = dish.png\n");
  Probe controller;
  controller.load_capture_from_file(header);
  ASSERT_TRUE(controller.state.current_capture) << controller.state.error.value_or("");
  EXPECT_EQ(controller.state.message, "Loaded capture: red dish with 1 measurements");
  EXPECT_THAT(controller.state.current_capture->get_measurement_types(), ElementsAre("MSP"));
}

TEST(Session, AFileThatCannotBeReadLeavesASentenceAboutItAndNoCapture) {
  const TemporaryFolder folder;
  const auto broken = folder.write("broken.png", "not a picture");
  Probe controller;
  controller.load_capture_from_file(broken);
  EXPECT_EQ(controller.state.current_capture, nullptr);
  ASSERT_TRUE(controller.state.error);
  EXPECT_THAT(*controller.state.error, testing::StartsWith("Failed to load capture from " + broken.string() + ": "));
  EXPECT_EQ(controller.state.phase, Phase::ERROR);
}

}  // namespace
}  // namespace orvexa::test

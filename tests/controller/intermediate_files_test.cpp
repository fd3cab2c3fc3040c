#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/controller/intermediate_files.h"
#include "orvexa/model/codecs/image_file.h"
#include "support/temporary_folder.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;

controller::Controller::MaskIntermediate left_pixel() {
  const model::Mask found = mask({"#..", "..."});
  const auto masked = small_capture()->apply_mask(found);
  common::OrderedMap<model::ImageMap> images;
  for (const auto& [name, measurement] : masked->measurements) images.insert_or_assign(name, measurement->images);
  return {.mask = found, .masked_images = images, .mask_operation = model::mask_op("erode")};
}

TEST(IntermediateFiles, OfAMaskStepAreTheMaskAndEachImageWithZeroOutsideIt) {
  const TemporaryFolder folder;
  const auto written = controller::save_mask_intermediate(
      {.output_base_dir = folder.path(), .capture_name = "a/b", .number = 3}, left_pixel());
  EXPECT_EQ(written, folder / "a_b_step_3_erode") << "a capture's name may hold what a file's may not";
  EXPECT_EQ(model::read_image_file(written / "images" / "MSP_RED.png").image,
            (image<std::uint8_t>({{1, 0, 0}, {0, 0, 0}})));
  EXPECT_EQ(model::read_image_file(written / "mask.png").image, (image<std::uint8_t>({{255, 0, 0}, {0, 0, 0}})));
}

TEST(IntermediateFiles, GivenImagesWhoseNamesBecomeAlike_ThenNoneIsLost) {
  const TemporaryFolder folder;
  auto intermediate = left_pixel();
  intermediate.masked_images = {{"A_B", {{"C", image<std::uint8_t>({{1}})}}},
                                {"A", {{"B_C", image<std::uint8_t>({{2}})}}}};
  const auto written =
      controller::save_mask_intermediate({.output_base_dir = folder.path(), .capture_name = "plot"}, intermediate);
  EXPECT_EQ(model::read_image_file(written / "images" / "A_B_C.png").image, (image<std::uint8_t>({{1}})));
  EXPECT_EQ(model::read_image_file(written / "images" / "A_B_C_2.png").image, (image<std::uint8_t>({{2}})));
}

TEST(IntermediateFiles, OfAResultOperationAreItsNumbersTablesAndPictures) {
  const TemporaryFolder folder;
  controller::Controller::OperationIntermediate found;
  found.operation_config = model::result_op("measure");
  found.masked_capture_used = small_capture();
  found.operation_result.metrics = {{"size", 6}, {"endless", std::numeric_limits<double>::infinity()}};
  found.operation_result.regions["ROI_1"].metrics = {{"size", 6}};
  found.operation_result.tables["parts"] = {.columns = {"part", "size"}, .rows = {{1, 6}}};
  found.operation_result.images.insert(
      {"map", {.picture = image<std::uint8_t>({{7}}), .numbers = image<float>({{0.5F}})}});
  const auto written = controller::save_operation_intermediate(
      {.output_base_dir = folder.path(), .capture_name = "plot", .number = 2}, found);
  EXPECT_EQ(written, folder / "plot_operation_2_measure");
  const Value metrics = common::load_yaml(written / "metrics.json");
  EXPECT_EQ(metrics.at("results").at("measure").at("metrics"), (Value{{"size", 6}}));
  EXPECT_TRUE(metrics.at("results").at("measure").at("reasons").contains("endless")) << "no file has a word for it";
  EXPECT_EQ(metrics.at("regions").at("ROI_1").at("metrics"), (Value{{"size", 6}}));
  EXPECT_EQ(read_all(written / "tables" / "measure_parts.tsv"), "part\tsize\n1\t6\n");
  EXPECT_EQ(model::read_image_file(written / "images" / "measure_map.png").image, (image<std::uint8_t>({{7}})));
  EXPECT_EQ(model::read_image_file(written / "images" / "measure_map.tif").image, (image<float>({{0.5F}})));
}

TEST(IntermediateFiles, GivenACancellation_ThenNoFolderIsLeft) {
  const TemporaryFolder folder;
  common::CancelEvent cancel;
  cancel.set();
  EXPECT_THROW(
      static_cast<void>(controller::save_mask_intermediate({.output_base_dir = folder / "new", .capture_name = "plot"},
                                                           left_pixel(), {.cancel_event = &cancel, .progress = {}})),
      model::CancelledError);
  EXPECT_THAT(folder.entries(), ElementsAre());
}

}  // namespace
}  // namespace orvexa::test

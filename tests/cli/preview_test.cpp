#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/plot.h"
#include "cli/process.h"

namespace orvexa::test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using Words = std::vector<std::string>;

struct PreviewSetup {
  TemporaryFolder folder;
  fs::path capture = write_plot(folder);  // the left 10 of 40 columns of NIR are 0.75 of white, all the rest 0.25
  fs::path mask = folder / "the mask.png";
  fs::path overlay = folder / "the overlay.png";

  Outcome operator()(Words more) const {
    more.insert(more.begin(), {"preview", capture.string()});
    return orvexa_command(more);
  }
  Outcome leaf(Words more) const {
    more.insert(more.begin(), {"--op", "threshold_range", "-p", "band=MSP.NIR", "-p", "low=0.5"});
    return (*this)(more);
  }
  [[nodiscard]] cv::Mat pixels(const fs::path& file) const {
    return model::read_image_file(file).image.read_only().clone();
  }
};

TEST(Preview, GivenAMaskFile_ThenItIsWhiteWhereTheOperationKeepsPixels) {
  const PreviewSetup preview;
  const Outcome outcome = preview.leaf({"--mask", preview.mask.string()});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  // 10 of 40 columns, 30 rows.
  EXPECT_EQ(outcome.out, "threshold_range: 300 of 1,200 pixels (25 %)\nMask: " + preview.mask.string() + "\n");
  const cv::Mat found = preview.pixels(preview.mask);
  EXPECT_EQ(cv::countNonZero(found), 300);
  EXPECT_EQ(cv::countNonZero(found.colRange(0, 10)), 300);
  EXPECT_FALSE(fs::exists(preview.overlay));
}

TEST(Preview, GivenAnOverlayFile_ThenTheMaskIsDrawnOnTheFirstImageWhenNoneIsInColour) {
  const PreviewSetup preview;
  const Outcome outcome = preview.leaf({"--overlay", preview.overlay.string()});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("Overlay on MSP.NIR: "));
  const cv::Mat found = preview.pixels(preview.overlay);
  EXPECT_EQ(found.type(), CV_8UC3);
  EXPECT_EQ(found.size(), cv::Size(40, 30));
  EXPECT_FALSE(fs::exists(preview.mask));
}

TEST(Preview, GivenAColourImage_ThenTheOverlayIsDrawnOnIt) {
  PreviewSetup preview;
  common::write_file_atomically(preview.folder / "plot_RGB.png",
                                model::encode_png(model::Image(cv::Mat(30, 40, CV_8UC3, cv::Scalar(10, 200, 30)))));
  preview.capture = preview.folder.write("HDR_colour.INF",
                                         "[Capture]\nWhiteLevel = 4000\n"
                                         "[Measurement MSP]\nImage NIR = plot_NIR.tif\nImage RED = plot_RED.tif\n"
                                         "[Measurement CLR]\nImage RGB = plot_RGB.png\n");
  const Outcome first = preview.leaf({"--overlay", preview.overlay.string(), "--json"});
  ASSERT_EQ(first.exit_code, 0) << first.err;
  EXPECT_EQ(first.json().at("image"), "CLR.RGB");
  const cv::Mat on_colour = preview.pixels(preview.overlay);
  EXPECT_EQ(on_colour.at<cv::Vec3b>(29, 39), cv::Vec3b(10, 200, 30)) << "outside the mask the picture is as it was";

  const Outcome named = preview.leaf({"--overlay", preview.overlay.string(), "--image", "MSP.RED", "--json"});
  EXPECT_EQ(named.json().at("image"), "MSP.RED");
  EXPECT_NE(preview.pixels(preview.overlay).at<cv::Vec3b>(29, 39), cv::Vec3b(10, 200, 30));
}

TEST(Preview, ShowsWhatARunWillWrite) {
  const PreviewSetup preview;
  const auto workflow = write_leaf_workflow(preview.folder);
  const fs::path results = preview.folder / "out" / "plot";
  ASSERT_EQ(
      orvexa_command({"run", workflow.string(), preview.capture.string(), "-o", (preview.folder / "out").string()})
          .exit_code,
      0);
  ASSERT_EQ(
      preview.leaf({"-p", "high=1", "--mask", preview.mask.string(), "--overlay", preview.overlay.string()}).exit_code,
      0);
  EXPECT_EQ(read_all(preview.mask), read_all(results / "masks" / "final.png"));
  EXPECT_EQ(read_all(preview.overlay), read_all(results / "overlays" / "MSP_NIR.png"));
}

TEST(Preview, GivenAWorkflow_ThenTheOperationWorksOnItsMask) {
  const PreviewSetup preview;
  const auto workflow = write_leaf_workflow(preview.folder);
  const Outcome outcome = preview({"-w", workflow.string(), "--op", "erode", "-p", "radius=1", "-p", "shape=square",
                                   "--json", "--mask", preview.mask.string()});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.json().at("op"), "erode");
  const auto found = static_cast<std::size_t>(cv::countNonZero(preview.pixels(preview.mask)));
  EXPECT_EQ(outcome.json().at("pixels"), found);
  // 10 x 30 pixels at the border: the square takes one column at its right side, and nothing where the image ends.
  EXPECT_EQ(found, 9u * 30u);
  EXPECT_DOUBLE_EQ(outcome.json().at("fraction").get<double>(), 270.0 / 1200.0);
}

TEST(Preview, GivenTheOperationInTheWorkflow_ThenItIsNotFedWithItsOwnMask) {
  const PreviewSetup preview;
  const auto workflow = write_leaf_workflow(preview.folder);
  // The workflow's own step keeps the left columns; on top of it nothing below 0.5 would be left.
  const Outcome outcome = preview({"-w", workflow.string(), "--op", "threshold_range", "-p", "band=MSP.NIR", "-p",
                                   "high=0.5", "--json", "--mask", preview.mask.string()});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.json().at("pixels"), 900);
}

TEST(Preview, GivenAnEmptyMask_ThenItIsWrittenWithWhatTheOperationRemarks) {
  const PreviewSetup preview;
  const Outcome outcome = preview({"--op", "threshold_auto", "-p", "band=MSP.RED", "--mask", preview.mask.string()});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("threshold_auto: 0 of 1,200 pixels (0 %)\nthreshold_auto: no_contrast: "));
  EXPECT_EQ(cv::countNonZero(preview.pixels(preview.mask)), 0);
}

struct RefusedPreview {
  const char* name;
  Words words;
  int exit_code;
  std::vector<std::string> texts;
};

class PreviewRefuses : public testing::TestWithParam<RefusedPreview> {};

TEST_P(PreviewRefuses, WithOneSentenceAndNoFile) {
  const PreviewSetup preview;
  preview.folder.write("bad.yaml", "mask_operations:\n  - op: threshold_atuo\n");
  preview.folder.write("fails.yaml",
                       "mask_operations:\n  - {op: threshold_range, params: {band: MSP.SWIR}}\n  - {op: fill_holes}\n");
  const fs::path here = fs::current_path();
  fs::current_path(preview.folder.path());
  const Outcome outcome = preview(GetParam().words);
  fs::current_path(here);
  EXPECT_EQ(outcome.exit_code, GetParam().exit_code);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(is_one_sentence(outcome.err));
  for (const std::string& text : GetParam().texts) EXPECT_THAT(outcome.err, HasSubstr(text));
  EXPECT_THAT(preview.folder.entries(),
              testing::ElementsAre("HDR_plot.INF", "bad.yaml", "fails.yaml", "plot_NIR.tif", "plot_RED.tif"));
}

INSTANTIATE_TEST_SUITE_P(
    Table, PreviewRefuses,
    testing::Values(
        RefusedPreview{"NoFileToWrite", {"--op", "erode"}, 2, {"--mask FILE or --overlay FILE is missing"}},
        RefusedPreview{"NoOperation", {"--mask", "m.png"}, 2, {"--op KEY is missing"}},
        RefusedPreview{"AnUnknownOperation",
                       {"--op", "erod", "--mask", "m.png"},
                       2,
                       {"no mask operation \"erod\" (did you mean \"erode\"?)"}},
        RefusedPreview{"AResultOperation", {"--op", "area", "--mask", "m.png"}, 2, {"area is a result operation"}},
        RefusedPreview{"AnUnknownParameter",
                       {"--op", "threshold_range", "-p", "lwo=1", "--mask", "m.png"},
                       2,
                       {"(did you mean \"low\"?)"}},
        RefusedPreview{"ParametersThatContradictEachOther",
                       {"--op", "threshold_range", "-p", "low=0.9", "-p", "high=0.1", "--mask", "m.png"},
                       1,
                       {"low", "high"}},
        RefusedPreview{"ABandThatIsNotThere",
                       {"--op", "threshold_range", "-p", "band=MSP.SWIR", "--mask", "m.png"},
                       1,
                       {"SWIR", "NIR"}},
        RefusedPreview{
            "AStepThatNeedsAMaskWithoutAWorkflow", {"--op", "erode", "--mask", "m.png"}, 1, {"needs a mask"}},
        RefusedPreview{"AWorkflowWithAProblem",
                       {"-w", "bad.yaml", "--op", "erode", "--mask", "m.png"},
                       1,
                       {"bad.yaml: mask step 1 (threshold_atuo)", "(did you mean \"threshold_auto\"?)"}},
        RefusedPreview{"AWorkflowWhoseStepFails",
                       {"-w", "fails.yaml", "--op", "erode", "--mask", "m.png"},
                       1,
                       {"A step of fails.yaml failed: ", "SWIR"}},
        RefusedPreview{"AnImageThatIsNotThere",
                       {"--op", "threshold_range", "--overlay", "o.png", "--image", "MSP.RAD"},
                       2,
                       {"no image \"MSP.RAD\" (did you mean \"MSP.RED\"?); it has MSP.NIR, MSP.RED."}},
        RefusedPreview{"AnImageWithoutAnOverlay",
                       {"--op", "threshold_range", "--mask", "m.png", "--image", "MSP.RED"},
                       2,
                       {"--image needs --overlay"}},
        RefusedPreview{"AFileThatIsNoPng",
                       {"--op", "threshold_range", "--mask", "m.jpg"},
                       2,
                       {"--mask is \"m.jpg\"; the name of a .png file is expected."}},
        RefusedPreview{"OneFileForBoth",
                       {"--op", "threshold_range", "--mask", "m.png", "--overlay", "./m.png"},
                       2,
                       {"name the same file"}},
        RefusedPreview{
            "AFolderThatIsNotThere", {"--op", "threshold_range", "--mask", "nowhere/m.png"}, 1, {"nowhere/m.png"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Preview, GivenAFileOfTheCapture_ThenItIsNotWrittenOver) {
  PreviewSetup preview;
  preview.capture = preview.folder / "grey.png";
  common::write_file_atomically(preview.capture,
                                model::encode_png(model::Image(cv::Mat(4, 4, CV_8UC1, cv::Scalar(9)))));
  fs::create_symlink("grey.png", preview.folder / "link.png");
  const std::string before = read_all(preview.capture);
  const Outcome outcome = preview({"--op", "threshold_range", "--overlay", (preview.folder / "link.png").string()});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(is_one_sentence(outcome.err));
  EXPECT_THAT(outcome.err, HasSubstr("a file of the capture"));
  EXPECT_EQ(read_all(preview.capture), before);
}

}  // namespace
}  // namespace orvexa::test

#include <gtest/gtest.h>

#include <limits>

#include "support/mask_operations.h"

namespace orvexa::model {
namespace {

/// A picture in a file, and a blank capture of its size.
struct MarkedPicture {
  explicit MarkedPicture(const Image& picture, const std::string& name = "mask.tif")
      : file(folder.write(name, common::as_text(encode_tiff(picture)))),
        capture(test::blank_capture(picture.shape())) {}

  [[nodiscard]] Mask run(Value params = Value::object(), const std::optional<Mask>& mask = std::nullopt) const {
    params["file"] = file.string();
    return test::applied("mask_from_file", *capture, mask, params);
  }
  [[nodiscard]] std::vector<std::string> drawing(const Value& params = Value::object()) const {
    return test::drawing(run(params));
  }
  [[nodiscard]] std::string refusal(const Value& params = Value::object()) const {
    return test::refusal([&] { static_cast<void>(run(params)); });
  }

  test::TemporaryFolder folder;
  std::filesystem::path file;
  std::shared_ptr<CaptureSet> capture;
};

using Drawing = std::vector<std::string>;

TEST(MaskFromFile, KeepsThePixelsAboveZero) {
  EXPECT_EQ(MarkedPicture(test::image<std::uint8_t>({{0, 1, 255}, {7, 0, 0}})).drawing(), (Drawing{".##", "#.."}));
  EXPECT_EQ(MarkedPicture(test::image<std::uint16_t>({{0, 1, 65535}})).drawing(), (Drawing{".##"}));
  EXPECT_EQ(MarkedPicture(test::image<float>({{-1.0f, 0.0f, 0.25f}})).drawing(), (Drawing{"..#"}));
}

TEST(MaskFromFile, KeepsThePixelsOfOneValue) {
  const MarkedPicture marked(test::image<std::uint8_t>({{0, 1, 2}, {2, 3, 0}}));
  EXPECT_EQ(marked.drawing({{"value", 2}}), (Drawing{"..#", "#.."}));
  EXPECT_EQ(marked.drawing({{"value", 0}}), (Drawing{"#..", "..#"}));
  EXPECT_EQ(marked.drawing({{"value", 2}, {"invert", true}}), (Drawing{"##.", ".##"}));
}

TEST(MaskFromFile, InvertedKeepsTheOthersButNothingThatIsNoNumber) {
  EXPECT_EQ(MarkedPicture(test::image<std::uint8_t>({{0, 1, 255}})).drawing({{"invert", true}}), (Drawing{"#.."}));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const MarkedPicture marked(test::image<float>({{nan, 0.0f, 1.0f}}));
  EXPECT_EQ(marked.drawing(), (Drawing{"..#"}));
  EXPECT_EQ(marked.drawing({{"invert", true}}), (Drawing{".#."}));
}

TEST(MaskFromFile, OfAColourPictureAnyChannelCounts) {
  cv::Mat pixels(1, 3, CV_8UC3, cv::Scalar::all(0));
  pixels.at<cv::Vec3b>(0, 0) = {0, 0, 9};
  pixels.at<cv::Vec3b>(0, 1) = {200, 0, 0};
  const MarkedPicture marked{Image(pixels.clone())};
  EXPECT_EQ(marked.drawing(), (Drawing{"##."}));
  EXPECT_EQ(marked.refusal({{"regions", true}}),
            "The picture mask.tif is in colour; a value or labels need a picture with one channel.");
  EXPECT_EQ(marked.refusal({{"value", 9}}), marked.refusal({{"regions", true}}));
}

TEST(MaskFromFile, MakesEachValueARegionThatIsCalledAfterIt) {
  const MarkedPicture marked(test::image<std::uint16_t>({{0, 9, 9}, {300, 0, 2}}));
  const Mask mask = marked.run({{"regions", true}});
  EXPECT_EQ(test::drawing(mask), (Drawing{".##", "#.#"}));
  ASSERT_NE(mask.labels(), nullptr);
  EXPECT_EQ(mask.labels()->names, (std::vector<std::string>{"ROI_2", "ROI_9", "ROI_300"}));
  const cv::Mat expected = (cv::Mat_<std::int32_t>(2, 3) << 0, 2, 2, 3, 0, 1);
  EXPECT_EQ(cv::countNonZero(mask.labels()->image != expected), 0);
  const Mask one = marked.run({{"regions", true}, {"value", 9}});
  EXPECT_EQ(one.labels()->names, (std::vector<std::string>{"ROI_9"}));
  EXPECT_EQ(test::drawing(one), (Drawing{".##", "..."}));
}

TEST(MaskFromFile, RefusesLabelsThatAreNoWholeNumbers) {
  EXPECT_EQ(MarkedPicture(test::image<float>({{0.0f, 1.5f}})).refusal({{"regions", true}}),
            "The picture mask.tif holds the value 1.5, which is no label: labels are whole numbers up to 16777216.");
  EXPECT_EQ(MarkedPicture(test::image<float>({{-3.0f, 2.0f}})).run({{"regions", true}}).labels()->names,
            (std::vector<std::string>{"ROI_2"}));
  EXPECT_EQ(MarkedPicture(test::image<std::uint8_t>({{1}})).refusal({{"regions", true}, {"invert", true}}),
            "mask_from_file: parameters \"regions\" and \"invert\" are both true, but what is outside the labels has "
            "none.");
}

TEST(MaskFromFile, NarrowsTheIncomingMaskAndKeepsItsRegions) {
  const MarkedPicture marked(test::image<std::uint8_t>({{1, 1, 0}, {0, 1, 1}}));
  EXPECT_EQ(test::drawing(marked.run({}, test::mask({"#.#", "##."}))), (Drawing{"#..", ".#."}));
  EXPECT_EQ(test::drawing(marked.run({}, Mask::empty({2, 3}))), (Drawing{"...", "..."}));
}

TEST(MaskFromFile, GivenAPictureWithoutMarks_ThenTheMaskIsEmptyWithANote) {
  const MarkedPicture marked(test::image<std::uint8_t>({{0, 0}}));
  EXPECT_EQ(marked.run().count(), 0);
  EXPECT_EQ(test::note_of("mask_from_file", *marked.capture, std::nullopt, {{"file", marked.file.string()}}),
            "no_pixels: no pixel of mask.tif counts, so the mask is empty");
  EXPECT_TRUE(marked.run({{"regions", true}}).labels()->names.empty());
}

TEST(MaskFromFile, SaysWhatIsWrongWithTheFile) {
  const MarkedPicture marked(test::image<std::uint8_t>({{1, 2}}));
  const auto blank = test::blank_capture({3, 4});
  EXPECT_EQ(
      test::refusal([&] {
        static_cast<void>(test::applied("mask_from_file", *blank, std::nullopt, {{"file", marked.file.string()}}));
      }),
      "The file mask.tif is 2 x 1 pixels, but the images of the capture are 4 x 3; both must have the same "
      "size.");
  EXPECT_EQ(test::refusal([&] { static_cast<void>(test::applied("mask_from_file", *blank, std::nullopt)); }),
            "The parameter \"file\" names no file.");
  const std::string missing = (marked.folder / "gone.png").string();
  EXPECT_EQ(test::refusal([&] {
              static_cast<void>(test::applied("mask_from_file", *blank, std::nullopt, {{"file", missing}}));
            }),
            "The parameter \"file\" is \"" + missing + "\", but there is no such file.");
}

TEST(MaskFromFile, ReadsBackTheMaskThatARunWrote) {
  const Mask mask = test::random_mask(3, 21, 34, 0.4);
  const test::TemporaryFolder folder;
  const auto file = folder.write("final.png", common::as_text(encode_mask_png(mask)));
  EXPECT_EQ(test::applied("mask_from_file", *test::blank_capture({21, 34}), std::nullopt, {{"file", file.string()}}),
            mask);
}

TEST(MaskFromFile, RefusesAValueThatIsNoLabelForRegions) {
  const MarkedPicture marked(test::image<std::uint8_t>({{0, 1, 2}}));
  EXPECT_EQ(marked.refusal({{"regions", true}, {"value", 0}}),
            "mask_from_file: parameter \"value\" is 0.0, but with \"regions\" it must be above 0, because only values "
            "above 0 are labels.");
  EXPECT_EQ(marked.refusal({{"regions", true}, {"value", 1}}), "");
  EXPECT_EQ(marked.drawing({{"value", 0}}), (Drawing{"#.."}));
}

}  // namespace
}  // namespace orvexa::model

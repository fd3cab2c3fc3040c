#include "orvexa/model/pictures/outlines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captures.h"

namespace orvexa::model {
namespace {

using testing::ElementsAre;

/// A letter a colour: kept, rejected, changed, divided, mark; '.' where nothing is drawn.
std::vector<std::string> letters(const Image& picture) {
  const std::vector<std::pair<char, cv::Vec3b>> names{{'.', {0, 0, 0}},     {'k', {0, 220, 0}},   {'r', {230, 30, 30}},
                                                      {'c', {40, 90, 255}}, {'d', {255, 220, 0}}, {'m', {255, 0, 255}}};
  std::vector<std::string> rows;
  for (int y = 0; y < picture.height(); ++y) {
    rows.emplace_back();
    for (int x = 0; x < picture.width(); ++x) {
      char letter = '?';
      for (const auto& [name, color] : names) {
        if (picture.read_only().at<cv::Vec3b>(y, x) == color) letter = name;
      }
      rows.back() += letter;
    }
  }
  return rows;
}

TEST(LineDrawing, OutlinesComponentsByTheirPixelsBesideOthers) {
  const Components parts = label_components(test::mask({".....#",  //
                                                        "####.#",  //
                                                        "####..",  //
                                                        "####..",  //
                                                        "####.#"}));
  LineDrawing drawing(parts.shape);
  drawing.outline(parts, {Pen::rejected, Pen::kept, Pen::none}, {});
  // The square reaches the border of the image at the left and below, which is a rim like any other.
  EXPECT_THAT(letters(drawing.finished({})), ElementsAre(".....r",  //
                                                         "kkkk.r",  //
                                                         "k..k..",  //
                                                         "k..k..",  //
                                                         "kkkk.."));
}

TEST(LineDrawing, OutlinesHolesAndStepsOfARim) {
  const Components part = label_components(test::mask({"#####..",  //
                                                       "#######",  //
                                                       "###.###",  //
                                                       "#######",  //
                                                       "#######"}));
  LineDrawing drawing(part.shape);
  drawing.outline(part, {Pen::kept}, {});
  EXPECT_THAT(letters(drawing.finished({})), ElementsAre("kkkkk..",  //
                                                         "k..k.kk",  //
                                                         "k.k.k.k",  //
                                                         "k..k..k",  //
                                                         "kkkkkkk"));
}

TEST(LineDrawing, KeepsChosenComponentsGreenAndOthersRed) {
  const Components parts = label_components(test::mask({"#.#"}));
  EXPECT_THAT(letters(kept_and_rejected(parts, {0, 1}, {})), ElementsAre("r.k"));
}

TEST(LineDrawing, DividesLabelsWhereTwoMeetAndNotAtTheBackground) {
  const cv::Mat labels = (cv::Mat_<std::int32_t>(3, 5) << 1, 1, 2, 2, 0,  //
                          1, 1, 2, 2, 0,                                  //
                          0, 0, 0, 3, 3);
  LineDrawing drawing({3, 5});
  drawing.divide(labels, Pen::divided, {});
  EXPECT_THAT(letters(drawing.finished({})), ElementsAre(".dd..", ".ddd.", "....."));
}

TEST(LineDrawing, PutsTheLaterPenOverTheEarlierOne) {
  LineDrawing drawing({7, 7});
  drawing.outline(PixelRect{0, 0, 7, 7}, Pen::divided);
  drawing.cross({3, 3}, Pen::mark);
  drawing.outline(PixelRect{2, 3, 2, 3}, Pen::kept);
  EXPECT_THAT(letters(drawing.finished({})),
              ElementsAre("dddmddd", "d..m..d", "d..m..d", "mmmmmmm", "d..m..d", "d..m..d", "dddmddd"));
}

// 1,600 columns: lines are 2 pixels wide.
TEST(LineDrawing, DrawsWiderLinesInLargePictures) {
  LineDrawing drawing({400, 1600});
  drawing.outline(PixelRect{100, 100, 200, 300}, Pen::kept);
  const Image picture = drawing.finished({});
  int wide = 0;
  for (int x = 90; x < 110; ++x) wide += picture.read_only().at<cv::Vec3b>(200, x) == cv::Vec3b(0, 220, 0) ? 1 : 0;
  EXPECT_EQ(wide, 2);
  int high = 0;
  for (int y = 90; y < 110; ++y) high += picture.read_only().at<cv::Vec3b>(y, 150) == cv::Vec3b(0, 220, 0) ? 1 : 0;
  EXPECT_EQ(high, 2);
}

}  // namespace
}  // namespace orvexa::model

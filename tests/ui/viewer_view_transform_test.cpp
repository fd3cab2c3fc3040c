#include <gtest/gtest.h>

#include "orvexa/ui/viewer/view_transform.h"

namespace orvexa::ui::viewer {
namespace {

TEST(ViewTransform, FitsAWideImageInTheMiddleOfTheView) {
  const ViewTransform view = ViewTransform::fitting({400, 100}, {200, 200});
  EXPECT_DOUBLE_EQ(view.scale, 0.5);
  EXPECT_EQ(view.origin, QPointF(0, 75));
  EXPECT_EQ(view.to_view({400, 100}), QPointF(200, 125));
}

TEST(ViewTransform, KeepsWhatLiesAtTheAnchorWhenItIsScaled) {
  const ViewTransform view{.scale = 0.5, .origin = {10, 20}};
  const QPointF anchor(110, 70);
  const QPointF under_anchor = view.to_image(anchor);
  EXPECT_EQ(under_anchor, QPointF(200, 100));
  EXPECT_EQ(view.scaled(3, anchor).to_image(anchor), under_anchor);
}

TEST(ViewTransform, ScalesWithinLimits) {
  EXPECT_DOUBLE_EQ(ViewTransform().scaled(1000, {}).scale, ViewTransform::largest_scale);
  EXPECT_DOUBLE_EQ(ViewTransform().scaled(0, {}).scale, ViewTransform::smallest_scale);
}

TEST(ViewTransform, LeavesAPartOfTheImageInTheView) {
  const QSize image(100, 100);
  const QSize view(200, 200);
  EXPECT_EQ((ViewTransform{.scale = 1, .origin = {-1000, 1000}}.kept_in_view(image, view).origin), QPointF(-76, 176));
  EXPECT_EQ((ViewTransform{.scale = 1, .origin = {7, 9}}.kept_in_view(image, view).origin), QPointF(7, 9));
}

}  // namespace
}  // namespace orvexa::ui::viewer

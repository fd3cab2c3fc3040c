#include "orvexa/ui/plots/histogram_view.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::test {
namespace {

using ui::HistogramData;
using ui::HistogramView;

/// Counts 0 to 100 of an image whose white is 100, ten pixels each.
HistogramData hundred_counts() {
  HistogramData data;
  data.name = "CLR.image";
  data.first = -0.005;
  data.step = 0.01;
  data.is_of_counts = true;
  data.whole.assign(101, 10);
  data.inside = data.whole;
  return data;
}

class HistogramViewTest : public testing::Test {
 protected:
  HistogramViewTest() {
    view.resize(420, 170);
    view.set_data(hundred_counts());
    show_limits();
    QObject::connect(&view, &HistogramView::limit_moved, &view, [this](int limit, double value) {
      limits.at(static_cast<std::size_t>(limit)) = value;
      show_limits();
    });
    view.show();
  }
  void show_limits() {
    view.set_limits({{.name = "Low", .value = limits[0]}, {.name = "High", .value = limits[1]}},
                    HistogramView::Kept::between);
  }
  void drag(double from, double to) {
    const QPoint start(static_cast<int>(std::lround(view.x_of(from))), 80);
    const QPoint end(static_cast<int>(std::lround(view.x_of(to))), 80);
    QTest::mousePress(&view, Qt::LeftButton, {}, start);
    QTest::mouseMove(&view, end);
    QTest::mouseRelease(&view, Qt::LeftButton, {}, end);
  }

  std::array<std::optional<double>, 2> limits{0.2, 0.8};
  HistogramView view;
};

TEST_F(HistogramViewTest, EachLimitIsDraggedToAWholeCount) {
  drag(0.2, 0.35);
  EXPECT_EQ(limits[0], 0.35);
  drag(0.8, 0.6);
  EXPECT_EQ(limits[1], 0.6);
}

TEST_F(HistogramViewTest, ALimitNeverPassesTheOther) {
  drag(0.2, 0.95);
  EXPECT_EQ(limits[0], 0.8);
  EXPECT_EQ(limits[1], 0.8);
}

TEST_F(HistogramViewTest, ALimitWithoutAValueIsTakenFromTheEnd) {
  limits[1].reset();
  show_limits();
  const QPoint end(view.width() - 9, 80);
  const QPoint to(static_cast<int>(std::lround(view.x_of(0.5))), 80);
  QTest::mousePress(&view, Qt::LeftButton, {}, end);
  QTest::mouseMove(&view, to);
  QTest::mouseRelease(&view, Qt::LeftButton, {}, to);
  ASSERT_TRUE(limits[1]);
  EXPECT_NEAR(*limits[1], 0.5, 0.0101);
}

TEST_F(HistogramViewTest, ArrowKeysMoveTheChosenLimitByOneCountAndWithShiftByTen) {
  QTest::keyClick(&view, Qt::Key_Right);
  EXPECT_EQ(limits[0], 0.21);
  QTest::keyClick(&view, Qt::Key_Up);
  QTest::keyClick(&view, Qt::Key_Left);
  EXPECT_EQ(limits[1], 0.79);
  QTest::keyClick(&view, Qt::Key_Left, Qt::ShiftModifier);
  EXPECT_EQ(limits[1], 0.69);
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Home);
  EXPECT_EQ(limits[0], 0.0);
}

TEST_F(HistogramViewTest, TheAxisZoomsAndComesBack) {
  const double whole = view.x_of(0.8) - view.x_of(0.2);
  QTest::keyClick(&view, Qt::Key_Plus);
  EXPECT_NEAR(view.x_of(0.25) - view.x_of(0.2), whole / 12 / 0.8, 1e-9);
  QTest::keyClick(&view, Qt::Key_0);
  EXPECT_NEAR(view.x_of(0.8) - view.x_of(0.2), whole, 1e-9);
}

TEST(HistogramDataTest, PercentsAndValuesBelongTogether) {
  HistogramData data;
  data.whole = data.inside = {1, 0, 3};
  EXPECT_EQ(data.percent_below(1), 25);
  EXPECT_EQ(data.percent_below(2), 25);
  EXPECT_EQ(data.percent_below(3), 100);
  EXPECT_EQ(data.percent_below(2.5), 62.5);
  EXPECT_EQ(data.value_at_percent(62.5), 2.5);
  EXPECT_EQ(data.value_at_percent(100), 3);
  EXPECT_EQ(data.value_at_percent(0), 0);
}

TEST(HistogramDataTest, LimitsNameParametersThatTheirOperationHas) {
  int count = 0;
  for (const model::MaskOperationInfo* info : model::get_all_mask_operation_infos()) {
    const ui::HistogramLimits* limits = ui::histogram_limits(info->key);
    if (limits == nullptr) continue;
    ++count;
    for (const std::string_view name : {limits->low, limits->high}) {
      const auto is_it = [&](const model::ParameterInfo& parameter) {
        return parameter.name == name && parameter.type == model::ParameterType::real;
      };
      EXPECT_TRUE(std::any_of(info->parameters.begin(), info->parameters.end(), is_it)) << info->key << ' ' << name;
    }
  }
  EXPECT_EQ(count, 5);
}

}  // namespace
}  // namespace orvexa::test

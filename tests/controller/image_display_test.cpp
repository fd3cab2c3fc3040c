#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/fakes.h"
#include "support/log_capture.h"

namespace orvexa::test {
namespace {

using controller::EventConnection;
using testing::ElementsAre;
using testing::IsEmpty;

class ImageDisplay : public testing::Test {
 protected:
  Probe controller;
  std::vector<std::string> shown;
  std::optional<model::ImageEntry> last_image;
  EventConnection viewer{controller.events.image_selected.connect(
      [this](const std::string& context, const std::string& key, const model::ImageEntry& image_data) {
        shown.push_back(context + " | " + key + " | " + controller.state.message.value_or("no message"));
        last_image = image_data;
      })};
  const model::Image picture = flat_image<std::uint8_t>(2, 3, 7);
};

TEST_F(ImageDisplay, AsksTheViewerWithContextKeyAndImageAndThenSetsTheMessage) {
  controller.show_image_in_viewer(picture, "Raw Images > CLR", "CLR", "RGB");
  EXPECT_THAT(shown, ElementsAre("Raw Images > CLR | RGB | no message"));
  EXPECT_EQ(last_image->base().read_only().data, picture.read_only().data) << "passed through untouched";
  EXPECT_EQ(controller.state.message, "Displaying: Raw Images > CLR");
  EXPECT_EQ(controller.state.error, std::nullopt);
}

TEST_F(ImageDisplay, WithContextAloneTheImageIsCalledUnknown) {
  controller.show_image_in_viewer(picture, "Raw Images > CLR");
  EXPECT_THAT(shown, ElementsAre("Raw Images > CLR | Unknown | no message"));
}

TEST_F(ImageDisplay, TheMeasurementMakesNoDifference) {
  controller.show_image_in_viewer(picture, "Raw Images > CLR", "MSP", "RGB");
  controller.state.message.reset();
  controller.show_image_in_viewer(picture, "Raw Images > CLR", "FLU", "RGB");
  EXPECT_THAT(shown, ElementsAre("Raw Images > CLR | RGB | no message", "Raw Images > CLR | RGB | no message"));
}

TEST_F(ImageDisplay, ARecipeStaysOne) {
  controller.show_image_in_viewer(model::ImageEntry::masked(picture, mask({"#..", "#.."})), "Masks > step 1");
  EXPECT_TRUE(last_image->is_recipe());
}

TEST_F(ImageDisplay, WithoutRefreshIsTheSame) {
  controller.show_image_in_viewer_without_refresh(picture, "Raw Images > MSP", "MSP", "NIR");
  EXPECT_EQ(controller.state.message, "Displaying: Raw Images > MSP");
  controller.state.message.reset();
  controller.show_image_in_viewer_without_refresh(picture, "Raw Images > MSP");
  EXPECT_THAT(shown, ElementsAre("Raw Images > MSP | NIR | no message", "Raw Images > MSP | Unknown | no message"));
}

TEST_F(ImageDisplay, RefreshesNoPanelAndLogsNothing) {
  RefreshedPanel panel("StatusBarPanel", shared_module);
  controller.register_panel(panel);
  const LogCapture log;
  controller.show_image_in_viewer(picture, "Raw Images > CLR");
  controller.show_image_in_viewer_without_refresh(picture, "Raw Images > CLR");
  EXPECT_EQ(panel.refreshes, 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ImageDisplay, AFailingViewerBecomesTheErrorWhileTheMessageStaysAsItWas) {
  const EventConnection failing(
      controller.events.image_selected.connect([](const std::string&, const std::string&, const model::ImageEntry&) {
        throw std::runtime_error("no tab of that name");
      }));
  controller.state.message = "before";
  const LogCapture log;
  controller.show_image_in_viewer(picture, "Raw Images > CLR");
  EXPECT_EQ(controller.state.error, "Failed to display image: no tab of that name");
  EXPECT_EQ(controller.state.message, "before");
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace orvexa::test

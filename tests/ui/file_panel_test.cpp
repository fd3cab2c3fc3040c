#include "orvexa/ui/analysis_mode/file_panel.h"

#include <QDropEvent>
#include <QIcon>
#include <QMimeData>
#include <QUrl>

#include "orvexa/ui/text.h"
#include "support/captures.h"
#include "ui/support/desktop.h"
#include "ui/support/typing.h"

namespace orvexa::test {
namespace {

using ui::analysis_mode::FilePanel;
namespace fs = std::filesystem;

model::Image red(int height, int width) {
  return model::Image(cv::Mat(height, width, CV_8UC3, cv::Scalar(200, 30, 10)));
}

class FilePanelTest : public DesktopTest {
 protected:
  FilePanelTest() : pictures(folder / "pictures"), panel(std::make_unique<FilePanel>(*workbench)) {
    fs::create_directories(pictures);
    controller().register_panel(*panel);
    panel->resize(300, 420);
    panel->show();
    list = panel->findChild<QListView*>("file_list");
    filter = panel->findChild<QLineEdit*>("file_filter");
    EXPECT_TRUE(QTest::qWaitForWindowActive(panel.get()));
  }
  ~FilePanelTest() override { workbench.reset(); }

  void write_pictures() const {
    write_image("pictures/apple.png", red(20, 40));
    write_image("pictures/bean.png", flat_image<std::uint8_t>(30, 30, 90));
    write_image("pictures/Bean2.png", flat_image<std::uint8_t>(30, 30, 90));
  }
  void open_folder(int rows) {
    workbench->open_folder(pictures);
    ASSERT_TRUE(wait_until([&] { return shown_rows() == rows; })) << shown_rows();
  }
  [[nodiscard]] int shown_rows() const { return list->model()->rowCount(); }
  [[nodiscard]] QModelIndex row(const QString& name) const {
    for (int i = 0; i < shown_rows(); ++i) {
      const QModelIndex index = list->model()->index(i, 0);
      if (index.data().toString().section('\n', 0, 0) == name) return index;
    }
    return {};
  }
  void click(const QString& name) {
    ASSERT_TRUE(row(name).isValid());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, list->visualRect(row(name)).center());
  }
  [[nodiscard]] QString sentence() const { return panel->findChild<QLabel*>("file_sentence")->text(); }

  void drop(const fs::path& path) {
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(ui::qt_path(path))});
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(panel.get(), &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent event(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(panel.get(), &event);
  }

  fs::path pictures;
  std::unique_ptr<FilePanel> panel;
  QListView* list = nullptr;
  QLineEdit* filter = nullptr;
};

TEST_F(FilePanelTest, AClickOpensAnImageAndMarksIt) {
  write_pictures();
  open_folder(3);
  click("bean.png");
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(state().current_file, pictures / "bean.png");
  ASSERT_TRUE(state().current_capture);
  EXPECT_TRUE(row("bean.png").data().toString().contains("open now"));
  EXPECT_TRUE(row("bean.png").data(Qt::FontRole).value<QFont>().bold());
  EXPECT_FALSE(row("apple.png").data().toString().contains("open now"));
  EXPECT_EQ(shown_rows(), 3) << "opening a file must not empty the list";
}

TEST_F(FilePanelTest, ByKeyboardAloneArrowsMoveAndReturnOpens) {
  write_pictures();
  open_folder(3);
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Home);
  QTest::keyClick(list, Qt::Key_Down);
  const QString name = list->currentIndex().data().toString().section('\n', 0, 0);
  EXPECT_EQ(name, "apple.png") << "upper case comes first";
  EXPECT_FALSE(workbench->is_busy());
  EXPECT_FALSE(state().current_file);
  QTest::keyClick(list, Qt::Key_Return);
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(state().current_file, pictures / "apple.png");
  EXPECT_TRUE(list->hasFocus()) << "people go on where they were";
}

TEST_F(FilePanelTest, TheFilterShowsNamesThatContainTheText) {
  write_pictures();
  open_folder(3);
  QTest::keyClick(panel.get(), Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
  ASSERT_TRUE(filter->hasFocus());
  QTest::keyClicks(filter, "bEa");
  EXPECT_EQ(shown_rows(), 2);
  EXPECT_FALSE(row("apple.png").isValid());
  QTest::keyClicks(filter, "x");
  EXPECT_TRUE(sentence().contains("bEax")) << sentence().toStdString();
  QTest::keyClick(filter, Qt::Key_Escape);
  EXPECT_EQ(shown_rows(), 3);
  EXPECT_TRUE(sentence().isEmpty());
}

TEST_F(FilePanelTest, SmallPicturesArriveOfImagesAndCaptures) {
  write_pictures();
  folder.write("pictures/HDR_plot.INF", "[Capture]\nName = plot\n[Measurement CLR]\nImage RGB = apple.png\n");
  folder.write("pictures/broken.png", "this is no picture");
  open_folder(5);
  EXPECT_EQ(list->model()->index(0, 0).data().toString(), "HDR_plot.INF\ncapture") << "captures come first";
  // 200, 30, 10 in the middle: the picture is 48 x 24 in a square of 48.
  const auto middle = [&](const QString& name) {
    return row(name).data(Qt::DecorationRole).value<QIcon>().pixmap(48).toImage().pixelColor(24, 24);
  };
  for (const char* name : {"apple.png", "HDR_plot.INF"}) {
    EXPECT_TRUE(wait_until([&] { return middle(name) == QColor(200, 30, 10); })) << name;
  }
  EXPECT_TRUE(wait_until([&] { return middle("broken.png").alpha() > 0; })) << "a sign that it cannot be read";
}

TEST_F(FilePanelTest, AnEmptyAndAMissingFolderAreToldInWords) {
  workbench->open_folder(pictures);
  EXPECT_TRUE(wait_until([&] { return sentence().contains("no image"); })) << sentence().toStdString();
  workbench->open_folder(folder / "nowhere");
  EXPECT_TRUE(wait_until([&] { return sentence().contains("cannot be read"); })) << sentence().toStdString();
}

TEST_F(FilePanelTest, F5FindsWhatHasArrived) {
  write_pictures();
  open_folder(3);
  write_image("pictures/late.png", red(4, 4));
  QTest::keyClick(panel.get(), Qt::Key_F5);
  EXPECT_TRUE(wait_until([&] { return shown_rows() == 4; }));
}

TEST_F(FilePanelTest, ADroppedFolderIsShownAndADroppedFileOpened) {
  write_pictures();
  drop(pictures);
  ASSERT_TRUE(wait_until([&] { return shown_rows() == 3; }));
  drop(write_image("elsewhere.png", red(4, 4)));
  ASSERT_TRUE(wait_until_idle());
  EXPECT_EQ(state().current_file, folder / "elsewhere.png");
  EXPECT_TRUE(wait_until([&] { return row("elsewhere.png").isValid(); })) << "its folder is shown";
  drop(folder.write("notes.txt", "no picture"));
  EXPECT_TRUE(state().error.value_or("").find("notes.txt") != std::string::npos) << state().error.value_or("");
}

TEST_F(FilePanelTest, AFolderIsTypedAndRemembered) {
  write_pictures();
  auto* edit = panel->findChild<QLineEdit*>("file_folder_edit");
  paste_and_return(edit, ui::qt_path(pictures));
  ASSERT_TRUE(wait_until([&] { return shown_rows() == 3; }));
  EXPECT_EQ(state().current_folder, pictures);
  EXPECT_EQ(workbench->memory().recent(ui::Memory::List::folders), std::vector<fs::path>{pictures});
}

}  // namespace
}  // namespace orvexa::test

#include "orvexa/ui/main_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QCommandLinkButton>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <latch>
#include <map>

#include "orvexa/ui/text.h"
#include "support/captures.h"
#include "ui/support/block_picture.h"
#include "ui/support/desktop.h"
#include "ui/support/typing.h"

namespace orvexa::test {
namespace {

using testing::HasSubstr;

/// The whole window, on a desk of its own.
class MainWindowTest : public DesktopTest {
 protected:
  MainWindowTest() {
    workbench.reset();  // the window has one of its own
    open_window();
  }

  void open_window() {
    window = std::make_unique<ui::MainWindow>();
    window->show();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
  }

  controller::AppState& window_state() const { return window->workbench().controller().state; }
  bool wait_until_ready() const {
    return wait_until(
        [this] { return !window->workbench().is_busy() && !window->workbench().step_results().is_working(); });
  }
  template <typename T>
  T* find(const char* name) const {
    T* found = window->findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name;
    return found;
  }
  void open(const std::filesystem::path& file) const {
    window->open(file);
    ASSERT_TRUE(wait_until_ready());
  }
  std::string status() const { return find<QLabel>("status_text")->text().toStdString(); }

  /// Does something in the next dialog as soon as it is there.
  template <typename Dialog>
  static void in_the_next_dialog(std::function<void(Dialog&)> act) {
    auto* timer = new QTimer;
    timer->setInterval(5);
    QObject::connect(timer, &QTimer::timeout, [timer, act = std::move(act)] {
      auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
      // A key that is pressed before the dialog is active goes to nobody.
      if (dialog == nullptr || !dialog->isVisible() || !dialog->isActiveWindow()) return;
      timer->deleteLater();
      timer->stop();
      act(*dialog);
    });
    timer->start();
  }
  /// Writes a path into a dialog for files and accepts it.
  static void choose(QFileDialog& dialog, const std::filesystem::path& path) {
    auto* name = dialog.findChild<QLineEdit*>("fileNameEdit");
    ASSERT_NE(name, nullptr);
    paste_and_return(name, ui::qt_path(path));
    // The names that the dialog offers to complete may take the first Return for themselves.
    auto* again = new QTimer(&dialog);
    QObject::connect(again, &QTimer::timeout, name, [name] {
      if (name->isVisible()) QTest::keyClick(name, Qt::Key_Return);
    });
    again->start(200);
  }

  std::unique_ptr<ui::MainWindow> window;
};

TEST_F(MainWindowTest, TheFirstStartOffersWaysToBegin) {
  for (const char* name : {"welcome_folder", "welcome_capture", "welcome_samples", "welcome_workflow"}) {
    EXPECT_TRUE(find<QCommandLinkButton>(name)->isVisible()) << name;
  }
}

TEST_F(MainWindowTest, ASampleIsOpenAfterOneChoice) {
  in_the_next_dialog<QFileDialog>([this](QFileDialog& dialog) { choose(dialog, folder.path()); });
  QTest::mouseClick(find<QCommandLinkButton>("welcome_samples"), Qt::LeftButton);
  ASSERT_TRUE(wait_until([this] { return !window->workbench().is_busy() && window_state().current_capture; }));
  EXPECT_TRUE(std::filesystem::is_directory(folder / "orvexa-samples"));
  EXPECT_FALSE(find<QCommandLinkButton>("welcome_samples")->isVisible());
  EXPECT_THAT(window->windowTitle().toStdString(), HasSubstr(window_state().current_capture->name));
}

TEST_F(MainWindowTest, ACaptureIsOpenedByKeyboardAlone) {
  const auto file = write_image("block.png", block_picture());
  in_the_next_dialog<QFileDialog>([&](QFileDialog& dialog) { choose(dialog, file); });
  QTest::keyClick(window.get(), Qt::Key_O, Qt::ControlModifier);
  ASSERT_TRUE(wait_until([this] { return !window->workbench().is_busy() && window_state().current_capture; }));
  EXPECT_EQ(window_state().current_capture->name, "block");
  EXPECT_EQ(status(), "Displaying: Raw Images > GRY") << "its default image";
}

TEST_F(MainWindowTest, TheModesAreChangedByTheirShortcutsAndByTheirButtons) {
  const auto is_mode = [this](const char* mode) { return window_state().processing_mode == mode; };
  QTest::keyClick(window.get(), Qt::Key_2, Qt::ControlModifier);
  EXPECT_TRUE(wait_until([&] { return is_mode("batch"); })) << "a button that is pressed by its keys answers later";
  EXPECT_TRUE(find<QToolButton>("mode_batch")->isChecked());
  QTest::mouseClick(find<QToolButton>("mode_watcher"), Qt::LeftButton);
  EXPECT_EQ(window_state().processing_mode, "watcher");
  QTest::keyClick(window.get(), Qt::Key_1, Qt::ControlModifier);
  EXPECT_TRUE(wait_until([&] { return is_mode("analysis"); }));
}

TEST_F(MainWindowTest, UndoAndRedoSayWhatTheyWouldDo) {
  open(write_image("block.png", block_picture()));
  auto* undo = find<QAction>("undo");
  EXPECT_FALSE(undo->isEnabled());
  window->workbench().apply_mask("threshold_range", {{"low", 0.5}});
  ASSERT_TRUE(wait_until_ready());
  EXPECT_TRUE(undo->isEnabled());
  EXPECT_EQ(undo->text(), "Undo: add Threshold: range");
  QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_TRUE(window_state().current_workflow->mask_operations.empty());
  EXPECT_EQ(find<QAction>("redo")->text(), "Redo: add Threshold: range");
  QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(window_state().current_workflow->mask_operations.size(), 1U);
}

TEST_F(MainWindowTest, WhileAWorkerRunsEveryActionThatChangesSomethingIsDisabled) {
  const auto file = write_image("block.png", block_picture());
  std::latch may_end(1);
  window->workbench().controller().image_loader = [&](const std::filesystem::path& path) {
    may_end.wait();
    return model::load_capture_from_image(path);
  };
  window->open(file);
  ASSERT_TRUE(window->workbench().is_busy());
  for (const char* name : {"open_capture", "open_folder", "open_samples", "new_workflow", "load_workflow",
                           "save_workflow", "save_workflow_as", "undo", "redo", "run"}) {
    EXPECT_FALSE(find<QAction>(name)->isEnabled()) << name;
  }
  for (const char* name : {"mode_analysis", "mode_batch", "mode_watcher"}) {
    EXPECT_FALSE(find<QToolButton>(name)->isEnabled()) << name;
  }
  EXPECT_TRUE(find<QToolButton>("status_cancel")->isVisible());
  EXPECT_TRUE(find<QToolButton>("status_cancel")->isEnabled());
  may_end.count_down();
  ASSERT_TRUE(wait_until_ready());
  EXPECT_TRUE(find<QAction>("open_capture")->isEnabled());
  EXPECT_FALSE(find<QToolButton>("status_cancel")->isVisible());
}

TEST_F(MainWindowTest, AnErrorIsASentenceThatCanBeCopiedWithItsDetails) {
  const auto broken = folder.write("broken.png", "no picture");
  open(broken);
  EXPECT_THAT(status(), HasSubstr("broken.png"));
  auto* copy = find<QToolButton>("copy_details");
  ASSERT_TRUE(copy->isVisible());
  QTest::mouseClick(copy, Qt::LeftButton);
  const std::string copied = QApplication::clipboard()->text().toStdString();
  EXPECT_THAT(copied, HasSubstr("Orvexa"));
  EXPECT_THAT(copied, HasSubstr(*window_state().error));
}

TEST_F(MainWindowTest, UnsavedChangesAreAskedAboutBeforeTheWindowCloses) {
  open(write_image("block.png", block_picture()));
  window->workbench().apply_mask("threshold_range", {{"low", 0.5}});
  ASSERT_TRUE(wait_until_ready());
  in_the_next_dialog<QMessageBox>([](QMessageBox& question) { QTest::keyClick(&question, Qt::Key_Escape); });
  EXPECT_FALSE(window->close());
  EXPECT_TRUE(window->isVisible());

  const auto file = folder / "kept.yaml";
  in_the_next_dialog<QMessageBox>([&](QMessageBox& question) {
    in_the_next_dialog<QFileDialog>([&](QFileDialog& dialog) { choose(dialog, file); });
    QTest::keyClick(question.button(QMessageBox::Save), Qt::Key_Space);
  });
  EXPECT_TRUE(window->close());
  EXPECT_TRUE(std::filesystem::is_regular_file(file));
}

TEST_F(MainWindowTest, ThereIsNothingToAskWhenNothingWasChanged) {
  open(write_image("block.png", block_picture()));
  EXPECT_TRUE(window->close());
}

TEST_F(MainWindowTest, AWorkflowAndACaptureGivenTogetherAreBothOpened) {
  const auto file = write_image("block.png", block_picture());
  const auto workflow = folder.write(
      "w.yaml",
      "title: bright\nmask_operations:\n- op: threshold_range\n  params: {low: 0.5}\nresult_operations:\n- op: area\n");
  window->open_all({workflow, file});
  ASSERT_TRUE(wait_until([this] { return !window->workbench().is_busy() && window_state().current_capture; }));
  ASSERT_TRUE(wait_until_ready());
  EXPECT_EQ(window_state().current_workflow->title, "bright");
  EXPECT_EQ(window->workbench().step_results().steps().at(0).pixels, 600);
}

TEST_F(MainWindowTest, EveryActionShowsItsShortcutInItsTip) {
  int actions = 0;
  for (const QAction* action : window->findChildren<QAction*>()) {
    if (action->objectName().isEmpty() || action->menu() != nullptr || action->shortcut().isEmpty()) continue;
    EXPECT_TRUE(action->toolTip().contains(action->shortcut().toString(QKeySequence::NativeText)))
        << action->objectName().toStdString() << ": " << action->toolTip().toStdString();
    ++actions;
  }
  EXPECT_GE(actions, 12);
}

TEST_F(MainWindowTest, NoTwoThingsThatCanBeSeenTogetherShareAShortcut) {
  open(write_image("block.png", block_picture()));
  for (const char* mode : {"analysis", "batch", "watcher"}) {
    window->workbench().set_mode(mode);
    ASSERT_TRUE(wait_until_ready());
    std::map<std::string, std::string> taken;
    const auto take = [&](const QKeySequence& shortcut, const QString& by) {
      if (shortcut.isEmpty()) return;
      const auto [entry, is_new] = taken.try_emplace(shortcut.toString().toStdString(), by.toStdString());
      EXPECT_TRUE(is_new) << mode << ": " << entry->first << " belongs to " << entry->second << " and "
                          << by.toStdString();
    };
    for (const QAction* action : window->findChildren<QAction*>()) {
      if (action->shortcutContext() == Qt::WindowShortcut && action->menu() == nullptr) {
        take(action->shortcut(), action->text());
      }
    }
    for (const QShortcut* shortcut : window->findChildren<QShortcut*>()) {
      const auto* owner = qobject_cast<QWidget*>(shortcut->parent());
      if (shortcut->context() == Qt::WindowShortcut && owner != nullptr && owner->isVisible()) {
        take(shortcut->key(), owner->objectName() + " " + owner->metaObject()->className());
      }
    }
    for (const QAbstractButton* button : window->findChildren<QAbstractButton*>()) {
      // Letters behind Alt come from the words themselves; the toolkit goes from one to the next.
      if (button->isVisible() && !button->shortcut().toString().startsWith("Alt+")) {
        take(button->shortcut(), button->objectName());
      }
    }
    EXPECT_GE(taken.size(), 12U) << mode;
  }
}

TEST_F(MainWindowTest, WhatCanBeReachedByKeyboardHasANameForPeopleWhoDoNotSeeIt) {
  open(write_image("block.png", block_picture()));
  for (const char* mode : {"analysis", "batch", "watcher"}) {
    window->workbench().set_mode(mode);
    ASSERT_TRUE(wait_until_ready());
    for (const QWidget* widget : window->findChildren<QWidget*>()) {
      if (!widget->isVisible() || (widget->focusPolicy() & Qt::TabFocus) == 0) continue;
      if (widget->focusProxy() != nullptr) continue;  // a part of the one that is told
      const QAccessibleInterface* told = QAccessible::queryAccessibleInterface(const_cast<QWidget*>(widget));
      if (told == nullptr) continue;
      EXPECT_FALSE(told->text(QAccessible::Name).isEmpty())
          << widget->metaObject()->className() << " " << widget->objectName().toStdString() << " in "
          << (widget->parentWidget() != nullptr ? widget->parentWidget()->objectName().toStdString() : "nothing");
    }
  }
}

TEST_F(MainWindowTest, TheWindowOpensAndClosesFiftyTimesWithABatchAndAPreviewRunning) {
  const auto file = write_image("block.png", block_picture());
  const auto other = write_image("other.png", block_picture());
  for (int round = 0; round < 50; ++round) {
    window.reset();
    open_window();
    open(file);
    ASSERT_TRUE(window_state().current_capture) << window_state().error.value_or("");
    window->workbench().preview(0, "threshold_range", {{"low", 0.5}});
    if (round % 2 == 0) {
      window->workbench().run_batch({.files = {file, other, file}, .output_folder = folder / "out"});
    }
  }
  window.reset();
}

}  // namespace
}  // namespace orvexa::test

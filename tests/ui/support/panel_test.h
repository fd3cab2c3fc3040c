#pragma once

#include <QAbstractButton>
#include <memory>

#include "ui/support/desktop.h"

namespace orvexa::test {

/// A test of one panel that works on a workbench of its own.
template <typename Panel>
class PanelTest : public DesktopTest {
 protected:
  ~PanelTest() override { workbench.reset(); }  // before the panel, as in the window

  template <typename T>
  [[nodiscard]] T* part(const char* name) const {
    T* found = panel->template findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name;
    return found;
  }
  void click(const char* name) const {
    auto* button = part<QAbstractButton>(name);
    ASSERT_TRUE(button->isEnabled()) << name;
    QTest::mouseClick(button, Qt::LeftButton, Qt::NoModifier, QPoint(10, button->height() / 2));
  }

  std::unique_ptr<Panel> panel;
};

}  // namespace orvexa::test

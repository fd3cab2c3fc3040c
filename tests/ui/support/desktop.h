#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "orvexa/common/files.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/image.h"
#include "orvexa/ui/workbench/workbench.h"
#include "support/temporary_folder.h"

namespace orvexa::test {

/// Longest time that a test waits for something that a worker does; ordinarily it takes milliseconds.
inline constexpr int patience_ms = 60'000;

/// Lets the window live until the condition holds.
inline bool wait_until(const std::function<bool()>& condition) {
  return QTest::qWaitFor(condition, patience_ms);
}

/// A workbench of its own for each test, with settings and data in a folder that is gone afterwards.
class DesktopTest : public testing::Test {
 protected:
  DesktopTest() {
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
      ::setenv(name, (folder.path() / name).c_str(), /*overwrite=*/1);
    }
    // The toolkit looks at the environment for the first settings only.
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                       QString::fromStdString((folder.path() / "XDG_CONFIG_HOME").native()));
    workbench = std::make_unique<ui::Workbench>();
  }

  [[nodiscard]] controller::Controller& controller() const { return workbench->controller(); }
  [[nodiscard]] controller::AppState& state() const { return controller().state; }

  /// Writes an image file into the test's folder.
  std::filesystem::path write_image(const std::string& name, const model::Image& image) const {
    const std::filesystem::path file = folder.path() / name;
    common::write_file_atomically(file, model::encode_png(image));
    return file;
  }

  /// Waits for the workers.
  [[nodiscard]] bool is_idle() const { return !workbench->is_busy() && !workbench->step_results().is_working(); }
  bool wait_until_idle() const {
    return wait_until([this] { return is_idle(); });
  }
  void open_capture(const std::filesystem::path& file) const {
    workbench->open_capture(file);
    ASSERT_TRUE(wait_until_idle());
    ASSERT_TRUE(state().current_capture) << state().error.value_or("");
  }

  TemporaryFolder folder;
  std::unique_ptr<ui::Workbench> workbench;
};

}  // namespace orvexa::test

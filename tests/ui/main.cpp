#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>
#include <QStandardPaths>

/// The widgets' tests run without a screen and touch nothing of the user's.
int main(int argument_count, char** arguments) {
  testing::InitGoogleTest(&argument_count, arguments);
  ::setenv("QT_QPA_PLATFORM", "offscreen", /*overwrite=*/0);
  const QApplication application(argument_count, arguments);
  return RUN_ALL_TESTS();
}

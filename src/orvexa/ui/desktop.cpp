#include "orvexa/ui/desktop.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>
#include <filesystem>
#include <vector>

#include "orvexa/common/memory.h"
#include "orvexa/common/version.h"
#include "orvexa/ui/main_window.h"
#include "orvexa/ui/program_icon.h"
#include "orvexa/ui/text.h"

namespace orvexa::ui {

int run_desktop(int argument_count, char** arguments) {
  common::set_up_memory();
  const QApplication application(argument_count, arguments);
  QCoreApplication::setOrganizationName("orvexa");
  QCoreApplication::setApplicationName("orvexa-desktop");
  QCoreApplication::setApplicationVersion(to_qt(common::program_version()));
  QGuiApplication::setApplicationDisplayName("Orvexa");
  QGuiApplication::setDesktopFileName("orvexa-desktop");
  QGuiApplication::setWindowIcon(program_icon());

  QCommandLineParser parser;
  parser.setApplicationDescription(QCoreApplication::translate("desktop", "Measures things in camera pictures."));
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument("FILE",
                               QCoreApplication::translate("desktop",
                                                           "A capture, an image, a folder or a workflow (.yaml) "
                                                           "to open; several are opened one after the other."),
                               "[FILE...]");
  parser.process(application);

  MainWindow window;
  window.show();
  QTimer::singleShot(0, &window, [&window, files = parser.positionalArguments()] {
    window.offer_recovery();
    std::vector<std::filesystem::path> paths;
    for (const QString& file : files) paths.push_back(path_from_qt(file));
    window.open_all(paths);
  });
  return QApplication::exec();
}

}  // namespace orvexa::ui

#include "orvexa/ui/outside.h"

#include <QDesktopServices>
#include <QUrl>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

bool open_outside(const std::filesystem::path& path) {
  return QDesktopServices::openUrl(QUrl::fromLocalFile(qt_path(path)));
}

}  // namespace orvexa::ui

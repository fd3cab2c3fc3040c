#include "orvexa/ui/text.h"

#include <QCoreApplication>
#include <QFile>
#include <algorithm>
#include <cmath>

#include "orvexa/common/text.h"

namespace orvexa::ui {

QString to_qt(std::string_view utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

std::string from_qt(const QString& text) {
  return text.toStdString();
}

QString qt_path(const std::filesystem::path& path) {
  return QFile::decodeName(QByteArray::fromStdString(path.native()));
}

std::filesystem::path path_from_qt(const QString& path) {
  return QFile::encodeName(path).toStdString();
}

QString grouped(std::int64_t number) {
  return to_qt(common::grouped_integer_text(number));
}

QString duration_text(double seconds) {
  const auto whole = static_cast<qint64>(std::llround(std::max(seconds, 0.0)));
  if (whole < 60) return QCoreApplication::translate("duration", "%1 s").arg(whole);
  if (whole < 3600) return QCoreApplication::translate("duration", "%1 min %2 s").arg(whole / 60).arg(whole % 60);
  return QCoreApplication::translate("duration", "%1 h %2 min").arg(whole / 3600).arg(whole / 60 % 60);
}

}  // namespace orvexa::ui

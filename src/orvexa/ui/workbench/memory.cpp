#include "orvexa/ui/workbench/memory.h"

#include <QVariant>

#include "orvexa/ui/text.h"

namespace orvexa::ui {

namespace {

constexpr int remembered_paths = 12;  // what a menu shows without scrolling

QString list_name(Memory::List list) {
  switch (list) {
    case Memory::List::folders:
      return "recent/folders";
    case Memory::List::captures:
      return "recent/captures";
    case Memory::List::workflows:
      return "recent/workflows";
    case Memory::List::output_folders:
      break;
  }
  return "recent/output_folders";
}

/// Keys of settings use '/' for groups, and operations' keys have none.
QString parameters_name(const std::string& operation_key) {
  return "parameters/" + to_qt(operation_key);
}

}  // namespace

Memory::Memory() : _settings(QSettings::IniFormat, QSettings::UserScope, "orvexa", "orvexa-desktop") {}

std::vector<std::filesystem::path> Memory::recent(List list) const {
  std::vector<std::filesystem::path> paths;
  for (const QString& text : _settings.value(list_name(list)).toStringList()) paths.push_back(path_from_qt(text));
  return paths;
}

void Memory::remember(List list, const std::filesystem::path& path) {
  std::error_code unknown;
  const std::filesystem::path whole = std::filesystem::absolute(path, unknown).lexically_normal();
  const QString text = qt_path(unknown ? path : whole);
  QStringList texts = _settings.value(list_name(list)).toStringList();
  texts.removeAll(text);
  texts.prepend(text);
  _settings.setValue(list_name(list), QStringList(texts.mid(0, remembered_paths)));
}

void Memory::forget(List list, const std::filesystem::path& path) {
  QStringList texts = _settings.value(list_name(list)).toStringList();
  texts.removeAll(qt_path(path));
  _settings.setValue(list_name(list), texts);
}

std::optional<common::Value> Memory::parameters(const std::string& operation_key) const {
  const QString text = _settings.value(parameters_name(operation_key)).toString();
  if (text.isEmpty()) return std::nullopt;
  common::Value parameters = common::Value::parse(from_qt(text), nullptr, /*allow_exceptions=*/false);
  if (!parameters.is_object()) return std::nullopt;
  return parameters;
}

void Memory::remember_parameters(const std::string& operation_key, const common::Value& parameters) {
  _settings.setValue(parameters_name(operation_key), to_qt(parameters.dump()));
}

QByteArray Memory::layout(const QString& part) const {
  return _settings.value("layout/" + part).toByteArray();
}

void Memory::remember_layout(const QString& part, const QByteArray& layout) {
  _settings.setValue("layout/" + part, layout);
}

QVariant Memory::choice(const QString& name, const QVariant& otherwise) const {
  return _settings.value("choices/" + name, otherwise);
}

void Memory::remember_choice(const QString& name, const QVariant& value) {
  _settings.setValue("choices/" + name, value);
}

}  // namespace orvexa::ui

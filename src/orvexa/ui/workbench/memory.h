#pragma once

#include <QByteArray>
#include <QSettings>
#include <QStringList>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/value.h"

namespace orvexa::ui {

/// What the program remembers from one start to the next, in the user's configuration folder.
class Memory {
 public:
  Memory();

  /// Lists of what was used last, the newest first and each once.
  enum class List { folders, captures, workflows, output_folders };
  [[nodiscard]] std::vector<std::filesystem::path> recent(List list) const;
  void remember(List list, const std::filesystem::path& path);
  void forget(List list, const std::filesystem::path& path);

  /// The parameters that an operation was last used with; absent when it never was, or what is kept cannot be read.
  [[nodiscard]] std::optional<common::Value> parameters(const std::string& operation_key) const;
  void remember_parameters(const std::string& operation_key, const common::Value& parameters);

  /// How a part of the window was laid out; empty when it never was.
  [[nodiscard]] QByteArray layout(const QString& part) const;
  void remember_layout(const QString& part, const QByteArray& layout);

  /// Small choices by name: "viewer/overlay_colour", "watcher/poll_seconds".
  [[nodiscard]] QVariant choice(const QString& name, const QVariant& otherwise) const;
  void remember_choice(const QString& name, const QVariant& value);

 private:
  QSettings _settings;
};

}  // namespace orvexa::ui

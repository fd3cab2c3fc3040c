#pragma once

#include <QString>
#include <filesystem>
#include <string>
#include <string_view>

namespace orvexa::ui {

/// Between the texts of the toolkit and those of everything below, which are UTF-8. Bytes that are no UTF-8 (they come
/// from files) become replacement characters.
[[nodiscard]] QString to_qt(std::string_view utf8);
[[nodiscard]] std::string from_qt(const QString& text);

/// Paths keep their bytes where the toolkit can express them.
[[nodiscard]] QString qt_path(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path path_from_qt(const QString& path);

/// "1,234,567".
[[nodiscard]] QString grouped(std::int64_t number);

/// A length of time in words: "8 s", "3 min 20 s", "2 h 5 min".
[[nodiscard]] QString duration_text(double seconds);

}  // namespace orvexa::ui

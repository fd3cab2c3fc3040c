#include "orvexa/controller/results_comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <set>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/image.h"

namespace orvexa::controller {

using common::Path;
using common::Value;

namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t max_text_bytes = std::uintmax_t{4} << 30;

std::string value_text(const Value& value) {
  constexpr std::size_t shown = 60;
  if (value.is_structured()) return std::string(common::kind_text(value));
  const std::string text = value.is_string() ? '"' + value.get<std::string>() + '"' : common::json_line(value);
  return text.size() <= shown ? text : common::to_valid_utf8(text.substr(0, shown)) + "...";
}

std::string is_but(const std::string& found, const std::string& expected) {
  return fmt::format("is {}, but {} was expected", found, expected);
}

// ---- Documents ----

class ValueComparison {
 public:
  explicit ValueComparison(const std::string& file) : _file(file) {}

  void compare(const std::string& place, const Value& found, const Value& expected) {
    if (found.is_object() && expected.is_object()) {
      compare_maps(place, found, expected);
    } else if (found.is_array() && expected.is_array()) {
      compare_lists(place, found, expected);
    } else if (found != expected) {
      add(place, is_but(value_text(found), value_text(expected)));
      if (found.is_number() && expected.is_number()) {
        differences.back().largest = std::abs(found.get<double>() - expected.get<double>());
      }
    }
  }

  std::vector<Difference> differences;

 private:
  void compare_maps(const std::string& place, const Value& found, const Value& expected) {
    for (const auto& [key, value] : expected.items()) {
      const auto there = found.find(key);
      if (there == found.end()) {
        add(inside(place, key), fmt::format("is missing; {} was expected", value_text(value)));
      } else {
        compare(inside(place, key), *there, value);
      }
    }
    for (const auto& [key, value] : found.items()) {
      if (!expected.contains(key)) {
        add(inside(place, key), fmt::format("is {}, but nothing was expected", value_text(value)));
      }
    }
  }

  void compare_lists(const std::string& place, const Value& found, const Value& expected) {
    if (found.size() != expected.size()) {
      add(place, fmt::format("has {} entries, but {} were expected", found.size(), expected.size()));
    }
    for (std::size_t i = 0; i < std::min(found.size(), expected.size()); ++i) {
      compare(fmt::format("{}[{}]", place, i), found[i], expected[i]);
    }
  }

  static std::string inside(const std::string& place, const std::string& key) {
    return place.empty() ? key : place + "." + key;
  }

  void add(const std::string& place, std::string text) {
    differences.push_back({.file = _file, .place = place, .text = std::move(text)});
  }

  const std::string& _file;
};

// ---- Tables ----

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::vector<std::string_view> lines_of(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  return split(text, '\n');
}

std::optional<double> number_in(std::string_view field) {
  double value = 0;
  const auto [end, failure] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (field.empty() || failure != std::errc{} || end != field.data() + field.size()) return std::nullopt;
  return value;
}

std::string field_text(std::string_view field) {
  return field.empty() ? "empty" : '"' + common::to_valid_utf8(field) + '"';
}

std::vector<Difference> compare_tables(const std::string& file, std::string_view found_text,
                                       std::string_view expected_text) {
  std::vector<Difference> differences;
  const auto found = lines_of(found_text);
  const auto expected = lines_of(expected_text);
  if (found.size() != expected.size()) {
    differences.push_back(
        {.file = file,
         .place = "",
         .text = fmt::format("has {} rows, but {} were expected", found.size() - 1, expected.size() - 1)});
  }
  const auto columns = split(expected.front(), '\t');
  for (std::size_t row = 0; row < std::min(found.size(), expected.size()); ++row) {
    if (found[row] == expected[row]) continue;
    const auto found_fields = split(found[row], '\t');
    const auto expected_fields = split(expected[row], '\t');
    const std::string row_text = row == 0 ? "the header" : fmt::format("row {}", row);
    if (found_fields.size() != expected_fields.size()) {
      differences.push_back(
          {.file = file,
           .place = row_text,
           .text = fmt::format("has {} fields, but {} were expected", found_fields.size(), expected_fields.size())});
      continue;
    }
    for (std::size_t i = 0; i < expected_fields.size(); ++i) {
      if (found_fields[i] == expected_fields[i]) continue;
      Difference difference{
          .file = file,
          .place = fmt::format("{}, column {}", row_text, i < columns.size() ? common::to_valid_utf8(columns[i]) : ""),
          .text = is_but(field_text(found_fields[i]), field_text(expected_fields[i]))};
      const auto a = number_in(found_fields[i]);
      const auto b = number_in(expected_fields[i]);
      if (a && b) difference.largest = std::abs(*a - *b);
      differences.push_back(std::move(difference));
    }
  }
  return differences;
}

// ---- Pictures ----

std::string picture_text(const model::Image& image) {
  return fmt::format("{} x {} pixels, {}{}", image.width(), image.height(), model::pixel_type_text(image.type()),
                     image.is_color() ? " in colour" : "");
}

struct PixelDifferences {
  std::int64_t pixels = 0;
  int x = 0;  ///< the first one
  int y = 0;
  std::string found;
  std::string expected;
  double largest = 0;  ///< between two numbers; 0 where each differing pixel has a NaN or an infinity
};

template <typename T>
std::string pixel_text(std::span<const T> pixel) {
  std::string text;
  for (const T value : pixel) {
    text += text.empty() ? "" : ", ";
    text += std::is_integral_v<T> ? fmt::format("{}", value) : common::number_text(static_cast<double>(value));
  }
  return pixel.size() == 1 ? text : "(" + text + ")";
}

template <typename T>
bool is_same(T a, T b) {
  return a == b || (std::isnan(static_cast<double>(a)) && std::isnan(static_cast<double>(b)));
}

template <typename T>
PixelDifferences pixel_differences(const model::Image& found, const model::Image& expected,
                                   const model::RunContext& context) {
  PixelDifferences differences;
  const auto channels = static_cast<std::size_t>(expected.channels());
  for (int y = 0; y < expected.height(); ++y) {
    context.check();
    const std::span<const T> a = found.row<T>(y);
    const std::span<const T> b = expected.row<T>(y);
    for (std::size_t x = 0; x < static_cast<std::size_t>(expected.width()); ++x) {
      const auto pixel_a = a.subspan(x * channels, channels);
      const auto pixel_b = b.subspan(x * channels, channels);
      if (std::equal(pixel_a.begin(), pixel_a.end(), pixel_b.begin(), is_same<T>)) continue;
      if (differences.pixels++ == 0) {
        differences.x = static_cast<int>(x);
        differences.y = y;
        differences.found = pixel_text(pixel_a);
        differences.expected = pixel_text(pixel_b);
      }
      for (std::size_t i = 0; i < channels; ++i) {
        const double difference = std::abs(static_cast<double>(pixel_a[i]) - static_cast<double>(pixel_b[i]));
        if (std::isfinite(difference)) differences.largest = std::max(differences.largest, difference);
      }
    }
  }
  return differences;
}

/// A difference between pixels, of counts as a whole number.
Value number_value(const model::Image& image, double difference) {
  return image.type() == model::PixelType::f32 ? Value(difference) : Value(static_cast<std::int64_t>(difference));
}

std::vector<Difference> compare_pictures(const std::string& file, const model::Image& found,
                                         const model::Image& expected, const model::RunContext& context) {
  if (found.shape() != expected.shape() || found.type() != expected.type() || found.channels() != expected.channels()) {
    return {{.file = file, .place = "", .text = is_but(picture_text(found), picture_text(expected))}};
  }
  const auto compared = [&] {
    switch (expected.type()) {
      case model::PixelType::u8:
        return pixel_differences<std::uint8_t>(found, expected, context);
      case model::PixelType::u16:
        return pixel_differences<std::uint16_t>(found, expected, context);
      case model::PixelType::f32:
        break;
    }
    return pixel_differences<float>(found, expected, context);
  }();
  if (compared.pixels == 0) return {};
  Difference difference{.file = file,
                        .place = fmt::format("x {}, y {}", compared.x, compared.y),
                        .text = is_but(compared.found, compared.expected) +
                                fmt::format("; {} of {} pixels differ", common::grouped_integer_text(compared.pixels),
                                            common::grouped_integer_text(expected.shape().pixels()))};
  if (compared.largest > 0) {
    difference.text += ", the largest difference is " + common::scalar_text(number_value(expected, compared.largest));
    difference.largest = compared.largest;
  }
  return {std::move(difference)};
}

// ---- Folders ----

std::set<std::string> files_of(const Path& folder) {
  std::set<std::string> names;
  std::error_code failure;
  for (fs::recursive_directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (!entry->is_directory()) names.insert(entry->path().lexically_relative(folder).generic_string());
  }
  if (failure) {
    throw std::runtime_error(
        fmt::format("{}: the folder cannot be listed: {}.", common::path_text(folder), failure.message()));
  }
  return names;
}

/// Whether a run may write a file of this name: one that it did not write is then wrong, not merely beside it.
bool could_be_a_result(const std::string& name) {
  static const std::vector<std::string> folders{"masks/", "overlays/", "images/", "tables/"};
  return name == "metrics.json" || name == "metrics.tsv" ||
         std::ranges::any_of(folders, [&](const std::string& folder) { return name.starts_with(folder); });
}

std::vector<Difference> compare_files(const std::string& name, const Path& found, const Path& expected,
                                      const model::RunContext& context) {
  const common::Bytes expected_bytes = common::read_file(expected);
  common::Bytes found_bytes;
  try {
    found_bytes = common::read_file(found);
    if (found_bytes == expected_bytes) return {};
    if (name.ends_with(".png") || name.ends_with(".tif")) {
      return compare_pictures(name, model::read_image(found_bytes, name).image,
                              model::read_image(expected_bytes, name).image, context);
    }
    const common::DocumentLimits limits{.max_bytes = max_text_bytes, .max_nodes = 1'000'000'000};
    if (name.ends_with(".json")) {
      return compare_values(name, common::parse_json(common::as_text(found_bytes), name, limits),
                            common::parse_json(common::as_text(expected_bytes), name, limits));
    }
  } catch (const model::CancelledError&) {
    throw;
  } catch (const std::exception& failure) {
    return {{.file = name, .place = "", .text = std::string("cannot be compared: ") + failure.what()}};
  }
  return compare_tables(name, common::as_text(found_bytes), common::as_text(expected_bytes));
}

}  // namespace

std::vector<Difference> compare_values(const std::string& file, const Value& found, const Value& expected) {
  ValueComparison comparison(file);
  comparison.compare("", found, expected);
  return std::move(comparison.differences);
}

FolderComparison compare_results(const Path& folder, const Path& expected, const model::RunContext& context) {
  FolderComparison comparison;
  const std::set<std::string> found_names = files_of(folder);
  std::set<std::string> expected_names = files_of(expected);
  for (const char* recipe : {"workflow.yaml", "provenance.json"}) expected_names.erase(recipe);
  for (const std::string& name : expected_names) {
    context.check();
    if (!found_names.contains(name)) {
      comparison.differences.push_back({.file = name, .place = "", .text = "is missing"});
      continue;
    }
    comparison.compared.push_back(name);
    for (Difference& difference : compare_files(name, folder / name, expected / name, context)) {
      comparison.differences.push_back(std::move(difference));
    }
  }
  for (const std::string& name : found_names) {
    if (expected_names.contains(name) || name == "workflow.yaml" || name == "provenance.json") continue;
    if (could_be_a_result(name)) {
      comparison.differences.push_back({.file = name, .place = "", .text = "is there, but the run does not write it"});
    } else {
      comparison.not_compared.push_back(name);
    }
  }
  return comparison;
}

}  // namespace orvexa::controller

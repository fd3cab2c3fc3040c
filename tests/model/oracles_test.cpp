// Every operation against answers of independent programs, kept under tests/golden/oracles; tools/oracles computes
// them.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <ostream>
#include <set>

#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/reference.h"
#include "orvexa/model/workflow/parameter_files.h"
#include "support/mask_operations.h"
#include "support/result_operations.h"
#include "support/temporary_folder.h"

namespace orvexa::model {
namespace {

struct OracleCase {
  std::string kind;  ///< "mask" or "result"
  std::string key;
  Value expected;
  friend void PrintTo(const OracleCase& one, std::ostream* out) { *out << one.expected.at("name"); }
};

std::filesystem::path golden_folder() {
  return test::source_folder() / "tests" / "golden" / "oracles";
}

std::vector<OracleCase> all_cases() {
  std::vector<OracleCase> cases;
  for (const char* kind : {"mask", "result"}) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(golden_folder() / kind)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      const Value record = Value::parse(test::read_all(file));
      for (const Value& expected : record.at("cases")) cases.push_back({kind, file.stem().string(), expected});
    }
  }
  return cases;
}

std::string case_name(const testing::TestParamInfo<OracleCase>& info) {
  return info.param.kind + "_" + info.param.key + "_" + info.param.expected.at("name").get<std::string>();
}

/// Where a picture of a case lies; absent for a real one that this machine does not have.
std::optional<std::filesystem::path> find_picture(const std::string& place) {
  constexpr std::string_view real = "data:";
  if (!place.starts_with(real)) return golden_folder() / place;
  const auto data = test::real_data();
  if (!data) return std::nullopt;
  return *data / place.substr(real.size());
}

Image read_picture(const std::string& place) {
  return read_image_file(find_picture(place).value()).image;
}

Mask mask_at(const std::string& place) {
  return Mask(read_picture(place).read_only().clone());
}

std::shared_ptr<const RegionLabels> labels_at(const std::string& place) {
  auto labels = std::make_shared<RegionLabels>();
  read_picture(place).read_only().convertTo(labels->image, CV_32S);
  double highest = 0;
  cv::minMaxIdx(labels->image, nullptr, &highest);
  for (int k = 1; k <= int(highest); ++k) labels->names.push_back("ROI_" + std::to_string(k));
  return labels;
}

ReferenceLevel level_of(const Value& level) {
  if (level.is_string()) return {.picture = read_picture(level.get<std::string>())};
  return {.constants = {level.get<double>()}};
}

std::shared_ptr<const Reference> reference_of(const Value& levels) {
  return std::make_shared<const Reference>(Reference{.white = level_of(levels.at("white")),
                                                     .dark = level_of(levels.at("dark")),
                                                     .reflectance = levels.value("reflectance", 1.0)});
}

class Oracles : public testing::TestWithParam<OracleCase> {
 protected:
  void SetUp() override {
    const Value& expected = GetParam().expected;
    std::vector<std::string> places;
    for (const auto& [name, place] : expected.at("images").items()) places.push_back(place.get<std::string>());
    if (expected.contains("mask")) places.push_back(expected.at("mask").get<std::string>());
    for (const std::string& place : places) {
      // Other people's pictures are not part of the sources; every operation also has cases with pictures of our own.
      if (!find_picture(place))
        GTEST_SKIP() << place << " is not part of the sources: no folder shared/data beside them";
    }
  }

  [[nodiscard]] static std::shared_ptr<CaptureSet> make_capture(const Value& expected) {
    MeasurementMap measurements;
    for (const auto& [name, place] : expected.at("images").items()) {
      const std::size_t dot = name.find('.');
      auto& measurement = measurements[name.substr(0, dot)];
      if (!measurement) measurement = std::make_shared<BaseMeasurement>();
      measurement->images.insert_or_assign(name.substr(dot + 1), read_picture(place.get<std::string>()));
    }
    const Value white = expected.value("white", Value::object());
    for (const auto& [name, level] : white.items()) {
      measurements.at(name)->declared_white_level = level.get<double>();
    }
    const Value references = expected.value("references", Value::object());
    for (const auto& [name, levels] : references.items()) {
      const std::size_t dot = name.find('.');
      measurements.at(name.substr(0, dot))->references.insert_or_assign(name.substr(dot + 1), reference_of(levels));
    }
    BandMap bands;
    const Value bands_declared = expected.value("bands", Value::object());
    for (const auto& [name, band] : bands_declared.items()) {
      bands.insert_or_assign(name, BandInfo{band.at(0).get<double>(), band.at(1).get<double>()});
    }
    auto header = expected.contains("scale") ? test::header_with_scale(expected.at("scale").get<double>()) : nullptr;
    return std::make_shared<CaptureSet>(CaptureSet::Arguments{.name = "case",
                                                              .header = std::move(header),
                                                              .measurements = std::move(measurements),
                                                              .bands = std::move(bands)});
  }

  [[nodiscard]] static std::optional<Mask> incoming_mask(const Value& expected, Shape shape) {
    std::optional<Mask> mask;
    if (expected.contains("mask")) mask = mask_at(expected.at("mask").get<std::string>());
    if (!expected.contains("labels")) return mask;
    return mask.value_or(Mask::full(shape)).with_labels(labels_at(expected.at("labels").get<std::string>()));
  }

  /// For the table of accuracy: what differs most in this case.
  void record(double difference, const std::string& where) {
    if (difference < _largest) return;
    _largest = difference;
    RecordProperty("kind", GetParam().kind);
    RecordProperty("operation", GetParam().key);
    RecordProperty("largest_difference", std::to_string(difference));
    RecordProperty("scientific", (std::ostringstream() << difference).str());
    RecordProperty("where", where);
  }

  void compare_mask(const Value& expected, const Mask& found);
  void compare_labels(const Value& expected, const Mask& found);
  void compare_metrics(const Value& expected, const Value& metrics, const Value& looser, const std::string& where);
  void compare_value(const std::string& name, const Value& expected, const Value& found, const Value& looser);
  void compare_tables(const Value& expected, const OperationResult& found, const Value& looser);

 private:
  double _largest = -1;
};

void Oracles::compare_mask(const Value& expected, const Mask& found) {
  const auto may_differ = expected.value("may_differ", std::int64_t{0});
  std::int64_t differing = std::abs(found.count() - expected.at("expected_area").get<std::int64_t>());
  if (expected.contains("expected_mask")) {
    const Mask wanted = mask_at(expected.at("expected_mask").get<std::string>());
    ASSERT_EQ(found.shape(), wanted.shape());
    cv::Mat difference;
    cv::bitwise_xor(found.read_only(), wanted.read_only(), difference);
    differing = cv::countNonZero(difference);
  } else if (may_differ == 0) {
    const cv::Mat& pixels = found.read_only();
    ASSERT_TRUE(pixels.isContinuous());
    const std::string_view bytes(pixels.ptr<char>(), pixels.total());
    EXPECT_EQ(common::sha256_hex(common::as_byte_span(bytes)), expected.at("expected_sha256").get<std::string>());
  }
  EXPECT_LE(differing, may_differ) << "pixels";
  record(double(differing), "pixels");
  if (expected.contains("expected_labels")) compare_labels(expected, found);
}

void Oracles::compare_labels(const Value& expected, const Mask& found) {
  ASSERT_NE(found.labels(), nullptr);
  const auto wanted = labels_at(expected.at("expected_labels").get<std::string>());
  cv::Mat inside;
  found.labels()->image.copyTo(inside, found.read_only());
  double highest = 0;
  cv::minMaxIdx(inside, nullptr, &highest);
  EXPECT_EQ(highest, double(wanted->names.size())) << "regions";
  cv::Mat other;
  cv::compare(inside, wanted->image, other, cv::CMP_NE);
  const std::int64_t differing = cv::countNonZero(other);
  EXPECT_LE(differing, expected.value("labels_may_differ", std::int64_t{0})) << "labels";
  record(double(differing), "labels");
}

void Oracles::compare_value(const std::string& name, const Value& expected, const Value& found, const Value& looser) {
  if (!expected.is_number_float()) {
    EXPECT_EQ(found, expected) << name;
    record(0, name);
    return;
  }
  ASSERT_TRUE(found.is_number()) << name;
  const double wanted = expected.get<double>();
  const double difference = std::abs(found.get<double>() - wanted);
  double allowed = 1e-9 * std::max(1.0, std::abs(wanted));
  for (const auto& [pattern, tolerance] : looser.items()) {
    if (!common::fnmatch(name, pattern)) continue;
    allowed = tolerance.value("absolute", 0.0) + tolerance.value("relative", 0.0) * std::abs(wanted);
  }
  EXPECT_LE(difference, allowed) << name << " is " << found << ", expected " << expected;
  record(difference / std::max(1.0, std::abs(wanted)), name);
}

void Oracles::compare_metrics(const Value& expected, const Value& metrics, const Value& looser,
                              const std::string& where) {
  for (const auto& [name, value] : expected.items()) {
    ASSERT_TRUE(metrics.contains(name)) << name << " of " << where;
    compare_value(name, value, metrics.at(name), looser);
  }
}

void Oracles::compare_tables(const Value& expected, const OperationResult& found, const Value& looser) {
  for (const auto& [name, table] : expected.items()) {
    ASSERT_TRUE(found.tables.contains(name)) << name;
    const ResultTable& own = found.tables.at(name);
    const Value& rows = table.at("rows");
    ASSERT_EQ(own.rows.size(), rows.size()) << name;
    for (std::size_t column = 0; column < table.at("columns").size(); ++column) {
      const auto title = table.at("columns").at(column).get<std::string>();
      const auto at = std::find(own.columns.begin(), own.columns.end(), title);
      ASSERT_NE(at, own.columns.end()) << title;
      const auto place = static_cast<std::size_t>(at - own.columns.begin());
      for (std::size_t row = 0; row < rows.size(); ++row) {
        compare_value(title, rows.at(row).at(column), own.rows[row].at(place), looser);
      }
    }
  }
}

TEST_P(Oracles, Agree) {
  const auto& [kind, key, expected] = GetParam();
  const auto capture = make_capture(expected);
  const auto mask = incoming_mask(expected, capture->get_shape());
  if (kind == "mask") {
    const Value params = resolved_mask_params(key, expected.at("params"), golden_folder());
    compare_mask(expected, test::applied(key, *capture, mask, params));
    return;
  }
  const OperationResult found = test::measured(key, *capture, mask, expected.at("params"));
  const Value looser = expected.value("looser", Value::object());
  const Value tables = expected.value("tables", Value::object());
  const Value undefined = expected.value("undefined", Value::array());
  ASSERT_FALSE(expected.at("metrics").empty() && tables.empty() && undefined.empty()) << "nothing is compared";
  compare_metrics(expected.at("metrics"), found.metrics, looser, "the whole mask");
  const Value regions = expected.value("regions", Value::object());
  for (const auto& [region, metrics] : regions.items()) {
    ASSERT_TRUE(found.regions.contains(region)) << region;
    compare_metrics(metrics, found.regions.at(region).metrics, looser, region);
  }
  for (const Value& name : undefined) {
    EXPECT_TRUE(found.reasons.contains(name.get<std::string>())) << name << " has no reason";
  }
  compare_tables(tables, found, looser);
}

/// Operations with a case that no machine has to skip: "mask erode", "result area".
std::set<std::string> operations_with_own_pictures() {
  std::set<std::string> operations;
  for (const OracleCase& one : all_cases()) {
    const bool is_own = one.expected.at("images").dump().find("data:") == std::string::npos &&
                        !one.expected.value("mask", std::string()).starts_with("data:");
    if (is_own) operations.insert(one.kind + " " + one.key);
  }
  return operations;
}

TEST(OracleFiles, EveryOperationHasCasesThatNoMachineSkips) {
  const std::set<std::string> covered = operations_with_own_pictures();
  for (const MaskOperationInfo* info : get_all_mask_operation_infos()) {
    EXPECT_TRUE(covered.contains("mask " + info->key)) << info->key;
  }
  for (const auto& [key, info] : get_available_result_operations()) {
    EXPECT_TRUE(covered.contains("result " + key)) << key;
  }
}

INSTANTIATE_TEST_SUITE_P(Oracles, Oracles, testing::ValuesIn(all_cases()), case_name);

}  // namespace
}  // namespace orvexa::model

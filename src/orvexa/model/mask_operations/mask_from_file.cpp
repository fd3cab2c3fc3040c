#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/entities/capture_loader.h"
#include "orvexa/model/mask_operations/file_parameter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/bands.h"

namespace orvexa::model {

namespace {

constexpr double no_number = std::numeric_limits<double>::quiet_NaN();

/// The picture as one number a pixel: its value, or the greatest of the three of a colour.
class Values {
 public:
  explicit Values(const Image& picture) {
    for (int channel = 0; channel < picture.channels(); ++channel) {
      _planes.push_back(Band{.image = picture, .channel = channel, .white = {}, .name = {}, .measurement = {}});
    }
  }

  void read_row(int y, std::span<double> values) const {
    _planes.front().read_row(y, values);
    std::vector<double> other(_planes.size() > 1 ? values.size() : 0);
    for (std::size_t k = 1; k < _planes.size(); ++k) {
      _planes[k].read_row(y, other);
      for (std::size_t x = 0; x < values.size(); ++x) {
        values[x] = std::isnan(values[x] + other[x]) ? no_number : std::max(values[x], other[x]);
      }
    }
  }

 private:
  std::vector<Band> _planes;
};

/// The different values above 0 in ascending order.
/// @throws std::runtime_error with a sentence when one is no whole number that a label can be.
std::vector<double> labels_in(const Values& values, Shape shape, const std::string& file, const RunContext& context) {
  constexpr double largest_label = 16777216;  // the largest whole number up to which a 32-bit float has all
  std::vector<double> labels;
  std::vector<double> row(static_cast<std::size_t>(shape.width));
  std::vector<char> is_met;
  for (int y = 0; y < shape.height; ++y) {
    context.check();
    values.read_row(y, row);
    for (const double value : row) {
      if (!(value > 0)) continue;
      if (value != std::trunc(value) || value > largest_label) {
        throw std::runtime_error(
            fmt::format("The picture {} holds the value {}, which is no label: labels are whole numbers up to {:.0f}.",
                        file, common::number_text(value), largest_label));
      }
      const auto label = static_cast<std::size_t>(value);
      if (label >= is_met.size()) is_met.resize(label + 1, 0);
      is_met[label] = 1;
    }
  }
  for (std::size_t label = 1; label < is_met.size(); ++label) {
    if (is_met[label] != 0) labels.push_back(static_cast<double>(label));
  }
  return labels;
}

class MaskFromFile final : public MaskOperation {
  void check(const Value& params) const override {
    if (params.at("regions").get<bool>() && params.at("invert").get<bool>()) {
      throw std::invalid_argument(
          "mask_from_file: parameters \"regions\" and \"invert\" are both true, but what is outside the labels has "
          "none.");
    }
    const Value& value = params.at("value");
    if (params.at("regions").get<bool>() && !value.is_null() && !(value.get<double>() > 0)) {
      throw std::invalid_argument(fmt::format(
          "mask_from_file: parameter \"value\" is {}, but with \"regions\" it must be above 0, because only "
          "values above 0 are labels.",
          common::number_text(value.get<double>())));
    }
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    const std::filesystem::path path = named_file(params, "file");
    const std::string name = common::path_text(path.filename());
    const Image picture = load_picture(path);
    const Shape shape = picture.shape();
    expect_size_of_capture(path, shape, source.get_shape());
    const bool makes_regions = params.at("regions").get<bool>();
    if (picture.is_color() && (makes_regions || !params.at("value").is_null())) {
      throw std::runtime_error(
          fmt::format("The picture {} is in colour; a value or labels need a picture with one channel.", name));
    }
    const Values values(picture);
    const std::optional<double> wanted =
        params.at("value").is_null() ? std::nullopt : std::optional(params.at("value").get<double>());
    Mask mask = pixels_of(values, shape, wanted, params.at("invert").get<bool>());
    context().check();
    if (mask.count() == 0) note = "no_pixels: no pixel of " + name + " counts, so the mask is empty";
    return makes_regions ? with_regions(mask, values, wanted, name) : mask;
  }

  static Image load_picture(const std::filesystem::path& path) {
    const auto capture = load_capture_from_image(path);
    const std::string measurement = capture->get_measurement_types().front();
    return *capture->find_image(measurement, capture->image_names(measurement).front());
  }

  [[nodiscard]] Mask pixels_of(const Values& values, Shape shape, std::optional<double> wanted,
                               bool is_inverted) const {
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      std::vector<double> row(static_cast<std::size_t>(shape.width));
      for (int y = y0; y < y1; ++y) {
        values.read_row(y, row);
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (std::size_t x = 0; x < row.size(); ++x) {
          const bool is_set = wanted ? row[x] == *wanted : row[x] > 0;
          out[x] = !std::isnan(row[x]) && is_set != is_inverted ? 255 : 0;
        }
      }
    });
    return Mask(std::move(pixels));
  }

  /// Each value becomes a region that is called after it.
  [[nodiscard]] Mask with_regions(const Mask& mask, const Values& values, std::optional<double> wanted,
                                  const std::string& file) const {
    const Shape shape = mask.shape();
    std::vector<double> found = labels_in(values, shape, file, context());
    if (wanted) std::erase_if(found, [&](double label) { return label != *wanted; });
    auto labels = std::make_shared<RegionLabels>();
    for (const double label : found) labels->names.push_back(fmt::format("ROI_{:.0f}", label));
    std::vector<std::int32_t> number_of(found.empty() ? 1 : static_cast<std::size_t>(found.back()) + 1, 0);
    for (std::size_t k = 0; k < found.size(); ++k) {
      number_of[static_cast<std::size_t>(found[k])] = static_cast<std::int32_t>(k + 1);
    }
    labels->image.create(shape.height, shape.width, CV_32SC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      std::vector<double> row(static_cast<std::size_t>(shape.width));
      for (int y = y0; y < y1; ++y) {
        values.read_row(y, row);
        auto* out = labels->image.ptr<std::int32_t>(y);
        for (std::size_t x = 0; x < row.size(); ++x) {
          const bool is_label = row[x] > 0 && row[x] < static_cast<double>(number_of.size());
          out[x] = is_label ? number_of[static_cast<std::size_t>(row[x])] : 0;
        }
      }
    });
    return mask.with_labels(std::move(labels));
  }
};

}  // namespace

const MaskOperationInfo& mask_from_file_info() {
  static const MaskOperationInfo info{
      .key = "mask_from_file",
      .display_name = "Mask from a file",
      .category = "Files",
      .summary = "Keeps the pixels that a picture marks, such as a mask that was drawn by hand.",
      .description =
          "The picture has the size of the capture's images. A pixel is kept when its value there is above 0 or, with "
          "a value, equal to it; of a colour picture when one of its three channels is above 0. With invert the others "
          "are kept instead. A value that is not a number is never kept. With regions each value above 0 is a label: "
          "its pixels become a region that is called ROI_ and the value, in ascending order; labels are whole numbers "
          "up to 16,777,216. The file is named relative to the workflow file or by its absolute path; its SHA-256 is "
          "written into the record of the run. A page of a multi-page TIFF is named like stack.tif[2], counted from 0.",
      .source = "Definition of this program",
      .parameters = {{.name = "file",
                      .type = ParameterType::file,
                      .default_value = "",
                      .help = "The picture: a .png, .tif, .bmp, .gif or .jpg file of the capture's size."},
                     {.name = "value",
                      .type = ParameterType::real,
                      .default_value = nullptr,
                      .unit = "counts",
                      .help = "The value that marks a pixel; without one every value above 0 does."},
                     {.name = "regions",
                      .type = ParameterType::boolean,
                      .default_value = false,
                      .help = "Makes each value above 0 a region."},
                     {.name = "invert",
                      .type = ParameterType::boolean,
                      .default_value = false,
                      .help = "Keeps the pixels that the picture does not mark instead."}},
      .make = [] { return std::make_unique<MaskFromFile>(); }};
  return info;
}

}  // namespace orvexa::model

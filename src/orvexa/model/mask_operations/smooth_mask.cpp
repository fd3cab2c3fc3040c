#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

namespace {

constexpr int largest_radius = 100;

/// How many pixels of a mask a disc around each pixel of a row holds; what is outside the image counts for nothing.
/// Rows are asked for from top to bottom.
class DiscCounter {
 public:
  /// @param mask  lives as long as this; an empty one stands for a mask that is set everywhere.
  DiscCounter(const cv::Mat& mask, Shape shape, const StructuringElement& disc)
      : _mask(mask),
        _shape(shape),
        _disc(disc),
        _sums(2 * static_cast<std::size_t>(disc.radius()) + 1,
              std::vector<std::uint16_t>(static_cast<std::size_t>(shape.width + 2 * disc.radius() + 1), 0)),
        _row_of_sums(_sums.size(), -1) {}

  void count(int y, std::span<std::uint16_t> counts) {
    std::ranges::fill(counts, std::uint16_t{0});
    const int radius = _disc.radius();
    for (int row = std::max(0, y - radius); row <= std::min(_shape.height - 1, y + radius); ++row) {
      add_chord(sums_of(row), _disc.half_widths[static_cast<std::size_t>(std::abs(row - y))], counts);
    }
  }

 private:
  using Sums = std::vector<std::uint16_t>;

  void add_chord(const Sums& sums, int half_width, std::span<std::uint16_t> counts) const {
    const std::uint16_t* end = sums.data() + _disc.radius() + half_width + 1;
    const std::uint16_t* begin = sums.data() + _disc.radius() - half_width;
    std::uint16_t* out = counts.data();
    for (std::size_t x = 0; x < counts.size(); ++x) out[x] = static_cast<std::uint16_t>(out[x] + end[x] - begin[x]);
  }

  /// Element i: how many of the columns before i - radius are set, modulo 2^16, which differences of at most 2^16 - 1
  /// do not feel.
  const Sums& sums_of(int row) {
    const std::size_t place = static_cast<std::size_t>(row) % _sums.size();
    Sums& sums = _sums[place];
    if (_row_of_sums[place] == row) return sums;
    _row_of_sums[place] = row;
    const std::uint8_t* pixels = _mask.empty() ? nullptr : _mask.ptr<std::uint8_t>(row);
    std::uint16_t sum = 0;
    auto at = static_cast<std::size_t>(_disc.radius());
    for (int x = 0; x < _shape.width; ++x) {
      sum = static_cast<std::uint16_t>(sum + (pixels == nullptr ? 1 : pixels[x] & 1));
      sums[++at] = sum;
    }
    std::fill(sums.begin() + static_cast<std::ptrdiff_t>(at) + 1, sums.end(), sum);
    return sums;
  }

  const cv::Mat _mask;
  Shape _shape;
  const StructuringElement& _disc;
  std::vector<Sums> _sums;  ///< of as many rows as the disc has
  std::vector<int> _row_of_sums;
};

class SmoothMask final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource&, const Mask* current, const Value& params) override {
    const StructuringElement disc = disc_element(params.at("radius").get<double>());
    const auto bounds = params.at("limit") == "roi" ? current->bounds() : std::nullopt;
    const cv::Mat inside = bounds ? bounds->read_only() : cv::Mat();
    const Shape shape = current->shape();
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      DiscCounter set(current->read_only(), shape, disc);
      DiscCounter all(inside, shape, disc);
      std::vector<std::uint16_t> set_counts(static_cast<std::size_t>(shape.width));
      std::vector<std::uint16_t> all_counts(static_cast<std::size_t>(shape.width));
      bool is_known = false;
      for (int y = y0; y < y1; ++y) {
        context().check();
        set.count(y, set_counts);
        // Away from the image's upper and lower border all rows have the same number of pixels to look at.
        const bool is_like_others = inside.empty() && y >= disc.radius() && y < shape.height - disc.radius();
        if (!is_known || !is_like_others) all.count(y, all_counts);
        is_known = is_like_others;
        decide(current->row(y), set_counts, all_counts, pixels.ptr<std::uint8_t>(y));
      }
    });
    return Mask(std::move(pixels));
  }

  static void decide(std::span<const std::uint8_t> before, const std::vector<std::uint16_t>& set,
                     const std::vector<std::uint16_t>& all, std::uint8_t* after) {
    for (std::size_t x = 0; x < before.size(); ++x) {
      const int more = 2 * set[x] - all[x];
      const std::uint8_t majority = more > 0 ? 255 : 0;
      after[x] = more == 0 ? before[x] : majority;
    }
  }
};

}  // namespace

const MaskOperationInfo& smooth_mask_info() {
  static const MaskOperationInfo info{
      .key = "smooth_mask",
      .display_name = "Smooth the rim",
      .category = "Shape of the mask",
      .summary = "Smooths the rim of the mask: each pixel becomes what most pixels of a disc around it are.",
      .description =
          std::string(
              "A pixel is set when more than half of the pixels with dx^2 + dy^2 <= r^2 around it are set, not set "
              "when fewer are, and stays as it is when exactly half are. Only pixels inside the limit are counted, so "
              "that a mask is not rounded where the image cuts it off; with the limit roi that also holds for the rim "
              "of the regions of interest chosen so far. Straight rims stay where they are, corners are rounded, "
              "specks and holes smaller than half of the disc vanish. r = 0 changes nothing. The result stays inside "
              "the regions of interest, or inside the image where there are none.") +
          added_pixels_text(),
      .source = "P. Soille, Morphological Image Analysis, 2nd edition, Springer 2003 (rank filter of rank one half)",
      .parameters = {{.name = "radius",
                      .type = ParameterType::real,
                      .default_value = 2.0,
                      .min = 0.0,
                      .max = double(largest_radius),
                      .unit = "px",
                      .help = "Radius of the disc."},
                     {.name = "limit",
                      .type = ParameterType::choice,
                      .default_value = "image",
                      .help = "Which pixels are counted: all of the image, or those inside the regions of interest.",
                      .choices = {"image", "roi"}}},
      ._preview_unconstrained = true,
      .needs_mask = true,
      .make = [] { return std::make_unique<SmoothMask>(); }};
  return info;
}

}  // namespace orvexa::model

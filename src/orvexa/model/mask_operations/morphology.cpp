#include "orvexa/model/mask_operations/morphology.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "orvexa/common/parallel.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

using Word = std::uint64_t;
constexpr int word_bits = 64;
static_assert(std::endian::native == std::endian::little, "pack_row and unpack_row take the lowest byte for the first");

/// A mask with one bit a pixel, the leftmost lowest; bits right of the image are 0.
struct BitMask {
  BitMask(int rows, int columns)
      : height(rows),
        width(columns),
        words(static_cast<std::size_t>((columns + word_bits - 1) / word_bits)),
        bits(words * static_cast<std::size_t>(rows), 0) {}
  [[nodiscard]] Word* row(int y) { return bits.data() + static_cast<std::size_t>(y) * words; }
  [[nodiscard]] const Word* row(int y) const { return bits.data() + static_cast<std::size_t>(y) * words; }
  /// The bits of a row's last word that are inside the image.
  [[nodiscard]] Word last_word() const {
    const int used = width % word_bits;
    return used == 0 ? ~Word{0} : (Word{1} << used) - 1;
  }

  int height;
  int width;
  std::size_t words;
  std::vector<Word> bits;
};

void pack_row(const std::uint8_t* pixels, int width, Word* bits) {
  for (int x = 0; x < width; x += 8) {
    Word eight = 0;
    std::memcpy(&eight, pixels + x, static_cast<std::size_t>(std::min(8, width - x)));
    // The product gathers the lowest bits of the eight bytes in the highest byte, in their order.
    const Word packed = ((eight & 0x0101010101010101u) * 0x0102040810204080u) >> 56;
    bits[x / word_bits] |= packed << (x % word_bits);
  }
}

constexpr std::array<Word, 256> make_byte_table() {
  std::array<Word, 256> table{};
  for (std::size_t packed = 0; packed < table.size(); ++packed) {
    for (std::size_t bit = 0; bit < 8; ++bit) {
      if ((packed >> bit & 1) != 0) table[packed] |= Word{0xFF} << (8 * bit);
    }
  }
  return table;
}

void unpack_row(const Word* bits, int width, std::uint8_t* pixels) {
  static constexpr std::array<Word, 256> bytes_of = make_byte_table();
  for (int x = 0; x < width; x += 8) {
    const Word eight = bytes_of[(bits[x / word_bits] >> (x % word_bits)) & 0xFF];
    std::memcpy(pixels + x, &eight, static_cast<std::size_t>(std::min(8, width - x)));
  }
}

BitMask packed(const cv::Mat& mask, const RunContext& context) {
  BitMask result(mask.rows, mask.cols);
  for_each_stripe(mask.rows, mask.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) pack_row(mask.ptr<std::uint8_t>(y), mask.cols, result.row(y));
  });
  return result;
}

cv::Mat unpacked(const BitMask& mask, const RunContext& context) {
  cv::Mat result(mask.height, mask.width, CV_8UC1);
  for_each_stripe(mask.height, mask.width, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) unpack_row(mask.row(y), mask.width, result.ptr<std::uint8_t>(y));
  });
  return result;
}

void invert(BitMask& mask) {
  for (Word& word : mask.bits) word = ~word;
  for (int y = 0; y < mask.height; ++y) mask.row(y)[mask.words - 1] &= mask.last_word();
}

void intersect(BitMask& mask, const BitMask& other) {
  for (std::size_t i = 0; i < mask.bits.size(); ++i) mask.bits[i] &= other.bits[i];
}

/// out = in, in moved by `shift` (1..63) to the left, and to the right.
void spread(const std::vector<Word>& in, int shift, std::vector<Word>& out) {
  const int back = word_bits - shift;
  const std::size_t last = in.size() - 1;
  for (std::size_t i = 0; i <= last; ++i) {
    const Word before = i > 0 ? in[i - 1] : 0;
    const Word after = i < last ? in[i + 1] : 0;
    out[i] = in[i] | in[i] << shift | before >> back | in[i] >> shift | after << back;
  }
}

/// A row that is widened further and further to both sides.
class WideningRow {
 public:
  WideningRow(std::size_t words, Word last_word) : _row(words), _next(words), _last_word(last_word) {}

  void start(const Word* row) {
    std::copy_n(row, _row.size(), _row.begin());
    _half_width = 0;
  }
  [[nodiscard]] const std::vector<Word>& words() const { return _row; }
  /// Every set pixel of the row as it was at the start becomes the run of `half_width` to both sides of it; never less
  /// than before.
  void widen_to(int half_width) {
    while (_half_width < half_width) {
      // Every run is at least w + 1 long by now (half of it may lie outside the image), so a step of that length leaves
      // no gap.
      const int shift = std::min({half_width - _half_width, _half_width + 1, word_bits - 1});
      spread(_row, shift, _next);
      _next.back() &= _last_word;
      std::swap(_row, _next);
      _half_width += shift;
    }
  }

 private:
  std::vector<Word> _row;
  std::vector<Word> _next;
  Word _last_word;
  int _half_width = 0;
};

bool is_blank(const Word* row, std::size_t words) {
  return std::all_of(row, row + words, [](Word word) { return word == 0; });
}

/// Rows y0..y1-1 of the dilated mask.
void dilate_strip(const BitMask& mask, const StructuringElement& element, int y0, int y1, const RunContext& context,
                  BitMask& result) {
  WideningRow row(mask.words, mask.last_word());
  const auto add_to = [&](int y) {
    if (y < y0 || y >= y1) return;
    Word* out = result.row(y);
    for (std::size_t i = 0; i < mask.words; ++i) out[i] |= row.words()[i];
  };
  const int radius = element.radius();
  for (int source = std::max(0, y0 - radius); source < std::min(mask.height, y1 + radius); ++source) {
    context.check();
    if (is_blank(mask.row(source), mask.words)) continue;
    row.start(mask.row(source));
    const int farthest = std::max(std::abs(source - y0), std::abs(source - (y1 - 1)));
    for (int dy = std::min(radius, farthest); dy >= 0; --dy) {
      row.widen_to(std::min(mask.width, element.half_widths[static_cast<std::size_t>(dy)]));
      add_to(source - dy);
      if (dy > 0) add_to(source + dy);
    }
  }
}

BitMask dilated(const BitMask& mask, const StructuringElement& element, const RunContext& context) {
  BitMask result(mask.height, mask.width);
  // A strip also looks at the rows within the radius above and below it, so it is taller than the radius.
  const int strip_height = std::max(128, std::min(2 * element.radius(), mask.height));
  const int strips = (mask.height + strip_height - 1) / strip_height;
  common::parallel_for(static_cast<std::size_t>(strips), [&](std::size_t strip) {
    const int y0 = static_cast<int>(strip) * strip_height;
    dilate_strip(mask, element, y0, std::min(mask.height, y0 + strip_height), context, result);
  });
  return result;
}

class Morphology final : public MaskOperation {
 public:
  explicit Morphology(std::vector<MorphologyStep> steps) : _steps(std::move(steps)) {}

 private:
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const auto& unit = params.at("unit").get_ref<const std::string&>();
    const double radius = params.at("radius").get<double>() / pixel_length(get_display_name(), unit, source);
    const bool is_disc = params.at("shape").get_ref<const std::string&>() == "disc";
    const auto iterations = params.at("iterations").get<std::size_t>();
    std::vector<MorphologyStep> steps;
    for (const MorphologyStep step : _steps) steps.insert(steps.end(), iterations, step);
    std::optional<Mask> limit;
    if (params.at("limit").get_ref<const std::string&>() == "roi") limit = current->bounds();
    return Mask(morphology(current->read_only(), steps, is_disc ? disc_element(radius) : square_element(radius),
                           limit ? limit->read_only() : cv::Mat(), context()));
  }

  std::vector<MorphologyStep> _steps;
};

constexpr double rounding = 1e-9;  ///< a radius of 0.6 mm at 0.2 mm a pixel is 3 pixels, not 2.9999999999999996
/// No image is larger, so a larger radius reaches nothing more.
constexpr double largest_radius = 1e6;

}  // namespace

StructuringElement disc_element(double radius) {
  radius = std::min(radius, largest_radius) * (1 + rounding);
  StructuringElement element;
  for (int dy = 0; dy <= static_cast<int>(radius); ++dy) {
    // The root is floored and then put right, as a root may be rounded over or under a whole number.
    const double square = radius * radius - double(dy) * dy;
    int half_width = static_cast<int>(std::sqrt(square));
    while (double(half_width) * half_width > square) --half_width;
    while (double(half_width + 1) * (half_width + 1) <= square) ++half_width;
    element.half_widths.push_back(half_width);
  }
  return element;
}

StructuringElement square_element(double radius) {
  const int reach = static_cast<int>(std::min(radius, largest_radius) * (1 + rounding));
  return {std::vector<int>(static_cast<std::size_t>(reach) + 1, reach)};
}

cv::Mat morphology(const cv::Mat& mask, const std::vector<MorphologyStep>& steps, const StructuringElement& element,
                   const cv::Mat& limit, const RunContext& context) {
  BitMask bits = packed(mask, context);
  std::optional<BitMask> inside;
  if (!limit.empty()) inside = packed(limit, context);
  const auto keep_inside = [&] {
    if (inside) intersect(bits, *inside);
  };
  keep_inside();
  for (const MorphologyStep step : steps) {
    // Erosion is the dilation of what is not in the mask; outside the limit nothing is, so nothing comes in from there.
    const bool is_erosion = step == MorphologyStep::erosion;
    if (is_erosion) invert(bits);
    if (is_erosion) keep_inside();
    bits = dilated(bits, element, context);
    if (is_erosion) invert(bits);
    keep_inside();
  }
  return unpacked(bits, context);
}

MaskOperationInfo morphology_info(const MorphologyOperation& operation) {
  return {
      .key = operation.key,
      .display_name = operation.display_name,
      .category = "Shape of the mask",
      .summary = operation.summary,
      .description = std::string(operation.definition) +
                     " The element B is a disc, dx^2 + dy^2 <= r^2, or a square, |dx| <= r and |dy| <= r, with the "
                     "radius r in pixels, or in millimetres by the capture's scale; r need not be whole, and r = 0 "
                     "changes nothing. Outside the limit counts as foreground for erosion and as background for "
                     "dilation, so that nothing is eroded from there. The limit is the border of the image or, where "
                     "it is set to roi, the rim of the regions of interest chosen so far; whatever it is, the result "
                     "stays inside these." +
                     (operation.grows ? added_pixels_text() : ""),
      .source =
          "J. Serra, Image Analysis and Mathematical Morphology, Academic Press 1982; P. Soille, Morphological "
          "Image Analysis, 2nd edition, Springer 2003",
      .parameters = {{.name = "radius",
                      .type = ParameterType::real,
                      .default_value = 1.0,
                      .min = 0.0,
                      .max = 200.0,
                      .unit = "px or mm",
                      .help = "Radius of the element, in the unit chosen below."},
                     length_unit_parameter(),
                     {.name = "shape",
                      .type = ParameterType::choice,
                      .default_value = "disc",
                      .help = "Shape of the element.",
                      .choices = {"disc", "square"}},
                     {.name = "iterations",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1.0,
                      .max = 50.0,
                      .help = "How often the element is applied in each direction."},
                     {.name = "limit",
                      .type = ParameterType::choice,
                      .default_value = "image",
                      .help = "Where the element's world ends: at the border of the image, or at the rim of the "
                              "regions of interest, so that what they cut off is not eroded at the cut.",
                      .choices = {"image", "roi"}}},
      ._preview_unconstrained = operation.grows,
      .needs_mask = true,
      .check_capture = check_scale_for(operation.display_name),
      .make = [steps = operation.steps] { return std::make_unique<Morphology>(steps); }};
}

}  // namespace orvexa::model

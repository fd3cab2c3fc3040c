#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"
#include "orvexa/model/measures/color_planes.h"

namespace orvexa::model {

namespace {

constexpr const char* key = "grabcut";
/// Components of each mixture of colours: the library cannot fit them to fewer pixels.
constexpr int least_pixels = 5;

/// Whoever draws random numbers from the library after us finds them where they were.
class RandomNumbersOfLibrary {
 public:
  explicit RandomNumbersOfLibrary(int seed) : _before(cv::theRNG()) { cv::setRNGSeed(seed); }
  ~RandomNumbersOfLibrary() { cv::theRNG() = _before; }
  RandomNumbersOfLibrary(const RandomNumbersOfLibrary&) = delete;
  RandomNumbersOfLibrary& operator=(const RandomNumbersOfLibrary&) = delete;

 private:
  cv::RNG _before;
};

/// The picture that is cut: blocks of `factor` x `factor` pixels of a part of the image, each in the mean colour of
/// those of its pixels that count.
struct WorkingPicture {
  PixelRect part;
  int factor = 1;
  cv::Mat colors = {};  ///< CV_8UC3
  cv::Mat labels = {};  ///< CV_8UC1 of cv::GC_BGD, cv::GC_PR_FGD; `nothing` where no pixel of the block counts
  static constexpr std::uint8_t nothing = 255;
};

PixelRect box_of(const Mask& mask) {
  const cv::Rect box = cv::boundingRect(mask.read_only());
  return {box.x, box.y, box.x + box.width, box.y + box.height};
}

/// Sums of one row of blocks.
struct BlockSums {
  std::array<double, 3> color{};
  int n = 0;
  bool is_in_rect = false;
};

/// Adds a row of pixels to the blocks that it crosses.
void add_row(const std::vector<Band>& rgb, const Mask* mask, const WorkingPicture& picture, const PixelRect& rect,
             int y, std::array<std::vector<double>, 3>& row, std::vector<BlockSums>& blocks) {
  for (std::size_t k = 0; k < 3; ++k) rgb[k].read_normalised_row(y, row[k]);
  for (int x = picture.part.x0; x < picture.part.x1; ++x) {
    if (mask != nullptr && !mask->at(y, x)) continue;
    const auto column = static_cast<std::size_t>(x);
    if (!std::isfinite(row[0][column] + row[1][column] + row[2][column])) continue;
    BlockSums& block = blocks[static_cast<std::size_t>((x - picture.part.x0) / picture.factor)];
    for (std::size_t k = 0; k < 3; ++k) block.color[k] += std::clamp(row[k][column], 0.0, 1.0);
    ++block.n;
    block.is_in_rect = block.is_in_rect || (x >= rect.x0 && x < rect.x1 && y >= rect.y0 && y < rect.y1);
  }
}

WorkingPicture working_picture(const std::vector<Band>& rgb, const Mask* mask, const PixelRect& rect, int longest_side,
                               const RunContext& context) {
  const Shape shape = rgb.front().shape();
  WorkingPicture picture{.part = mask != nullptr ? box_of(*mask) : PixelRect{0, 0, shape.width, shape.height}};
  const int part_width = picture.part.x1 - picture.part.x0;
  const int part_height = picture.part.y1 - picture.part.y0;
  picture.factor = std::max(1, (std::max(part_width, part_height) + longest_side - 1) / longest_side);
  const int factor = picture.factor;
  picture.colors.create((part_height + factor - 1) / factor, (part_width + factor - 1) / factor, CV_8UC3);
  picture.labels.create(picture.colors.size(), CV_8UC1);
  for_each_stripe(picture.colors.rows, picture.colors.cols * factor * factor, context, [&](int row0, int row1) {
    std::array<std::vector<double>, 3> row;
    for (std::vector<double>& plane : row) plane.resize(static_cast<std::size_t>(shape.width));
    for (int block_row = row0; block_row < row1; ++block_row) {
      std::vector<BlockSums> blocks(static_cast<std::size_t>(picture.colors.cols));
      const int y0 = picture.part.y0 + block_row * factor;
      for (int y = y0; y < std::min(y0 + factor, picture.part.y1); ++y)
        add_row(rgb, mask, picture, rect, y, row, blocks);
      auto* color = picture.colors.ptr<cv::Vec3b>(block_row);
      std::uint8_t* label = picture.labels.ptr<std::uint8_t>(block_row);
      for (std::size_t x = 0; x < blocks.size(); ++x) {
        const BlockSums& block = blocks[x];
        for (int k = 0; k < 3; ++k) {
          const double mean = block.n > 0 ? block.color[static_cast<std::size_t>(k)] / block.n : 0;
          color[x][k] = static_cast<std::uint8_t>(std::lround(255 * mean));
        }
        label[x] = block.is_in_rect ? std::uint8_t{cv::GC_PR_FGD} : std::uint8_t{cv::GC_BGD};
        if (block.n == 0) label[x] = WorkingPicture::nothing;
      }
    }
  });
  return picture;
}

/// The library knows no pixels that do not count: they become background in colours of the known background, taken in
/// turn, so that what they show has no influence and the mixture of the background's colours stays what it is.
void fill_what_does_not_count(WorkingPicture& picture) {
  std::vector<cv::Vec3b> background;
  for (int y = 0; y < picture.labels.rows; ++y) {
    for (int x = 0; x < picture.labels.cols; ++x) {
      if (picture.labels.at<std::uint8_t>(y, x) == cv::GC_BGD) background.push_back(picture.colors.at<cv::Vec3b>(y, x));
    }
  }
  std::size_t next = 0;
  for (int y = 0; y < picture.labels.rows; ++y) {
    for (int x = 0; x < picture.labels.cols; ++x) {
      std::uint8_t& label = picture.labels.at<std::uint8_t>(y, x);
      if (label != WorkingPicture::nothing) continue;
      label = cv::GC_BGD;
      picture.colors.at<cv::Vec3b>(y, x) = background[next];
      next = (next + 1) % background.size();
    }
  }
}

class Grabcut final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const ColorPlanes planes = find_color_planes(source, key, params.at("image").get_ref<const std::string&>());
    Value& chosen = chosen_bands["bands"] = Value::array();
    for (const Band& band : planes.rgb) chosen.push_back(band.name);
    const Shape shape = source.get_shape();
    context().check();
    if (current != nullptr && current->count() == 0) {
      note = "no_foreground: the incoming mask is empty, and so is this one";
      return Mask::empty(shape);
    }
    const PixelRect rect = pixels_of(pick_rect_from(params.at("rect")), shape.height, shape.width);
    WorkingPicture picture =
        working_picture(planes.rgb, current, rect, params.at("working_side").get<int>(), context());
    const auto count_of = [&](int label) { return cv::countNonZero(picture.labels == label); };
    if (count_of(cv::GC_PR_FGD) < least_pixels || count_of(cv::GC_BGD) < least_pixels) {
      const bool has_foreground = count_of(cv::GC_PR_FGD) >= least_pixels;
      note = fmt::format("{}: fewer than {} pixels of the incoming mask lie {} the rectangle, so the mask is empty",
                         has_foreground ? "no_background" : "no_foreground", least_pixels,
                         has_foreground ? "outside" : "inside");
      return Mask::empty(shape);
    }
    fill_what_does_not_count(picture);
    cut(picture, params.at("iterations").get<int>(), params.at("seed").get<int>());
    note = picture.factor == 1
               ? fmt::format("cut at full size, {} x {} pixels", picture.labels.cols, picture.labels.rows)
               : fmt::format("cut at 1/{} of the size, {} x {} pixels", picture.factor, picture.labels.cols,
                             picture.labels.rows);
    Mask mask = foreground(picture, rect, planes.rgb);
    if ((current != nullptr ? mask & *current : mask).count() == 0) {
      note = "no_foreground: nothing inside the rectangle is unlike the background, so the mask is empty; " + note;
    }
    return mask;
  }

  void cut(WorkingPicture& picture, int iterations, int seed) const {
    const RandomNumbersOfLibrary random(seed);
    cv::Mat background;
    cv::Mat foreground;
    for (int i = 0; i < iterations; ++i) {
      context().check();
      cv::grabCut(picture.colors, picture.labels, {}, background, foreground, 1,
                  i == 0 ? cv::GC_INIT_WITH_MASK : cv::GC_EVAL);
    }
  }

  /// In the size of the image: what the cut left inside the rectangle.
  [[nodiscard]] Mask foreground(const WorkingPicture& picture, const PixelRect& rect,
                                const std::vector<Band>& rgb) const {
    const auto [height, width] = rgb.front().shape();
    cv::Mat pixels(height, width, CV_8UC1);
    for_each_stripe(height, width, context(), [&, columns = width](int y0, int y1) {
      pixels.rowRange(y0, y1).setTo(0);
      std::array<std::vector<double>, 3> row;
      for (std::vector<double>& plane : row) plane.resize(static_cast<std::size_t>(columns));
      for (int y = std::max({y0, rect.y0, picture.part.y0}); y < std::min({y1, rect.y1, picture.part.y1}); ++y) {
        const std::uint8_t* label = picture.labels.ptr<std::uint8_t>((y - picture.part.y0) / picture.factor);
        for (std::size_t k = 0; k < 3; ++k) rgb[k].read_row(y, row[k]);
        std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
        for (int x = std::max(rect.x0, picture.part.x0); x < std::min(rect.x1, picture.part.x1); ++x) {
          const auto column = static_cast<std::size_t>(x);
          const bool is_valid = std::isfinite(row[0][column] + row[1][column] + row[2][column]);
          if (is_valid && label[(x - picture.part.x0) / picture.factor] == cv::GC_PR_FGD) out[x] = 255;
        }
      }
    });
    return Mask(std::move(pixels));
  }
};

}  // namespace

const MaskOperationInfo& grabcut_info() {
  static const MaskOperationInfo info{
      .key = key,
      .display_name = "Cut out (GrabCut)",
      .category = "Thresholds",
      .summary = "Cuts the object inside a rectangle out by its colours and edges.",
      .description =
          "What lies outside the rectangle is background; inside, mixtures of 5 Gaussian distributions of R, G, B are "
          "fitted to background and foreground in turn with a minimum cut of the 8-connected pixels, whose links are "
          "weaker across edges of colour, as often as iterations says; the foreground that is left is kept. Colours "
          "are taken in 8 bits: R, G, B as fractions of white, cut to 0 to 1, times 255, rounded. Only the pixels of "
          "the incoming mask have influence: the work is done in its bounding box, where pixels outside it, and pixels "
          "that are not a number, count as background in colours of the known background, taken in turn. Fewer than 5 "
          "pixels of the incoming mask inside or outside the rectangle give an empty mask with the note no_foreground "
          "or no_background: leave a rim of background around the object. A cut that leaves nothing also says "
          "no_foreground. The same seed gives the same mask every time. The work takes about 0.7 s a megapixel and "
          "iteration, several times that where object and background are hard to tell apart, and 250 MB a megapixel, "
          "and it can be cancelled between iterations only, so a picture whose longer side exceeds working_side is cut "
          "in blocks of as many whole pixels as are needed, each in its mean colour, and the edge of the mask follows "
          "the blocks; the note says at which size the cut was made. With working_side as large as the picture every "
          "pixel is cut on its own.",
      .source =
          "C. Rother, V. Kolmogorov, A. Blake, \"GrabCut\": interactive foreground extraction using iterated graph "
          "cuts, ACM Transactions on Graphics 23(3), 2004, 309-314, doi:10.1145/1015706.1015720",
      .parameters = {color_image_parameter(),
                     {.name = "rect",
                      .type = ParameterType::rect,
                      .default_value = Value::array({0.5, 0.5, 0.8, 0.8}),
                      .unit = "fraction of the image",
                      .help = "Centre, width and height of a rectangle around the object with a rim of background.",
                      .interaction = Interaction{"rect"}},
                     {.name = "iterations",
                      .type = ParameterType::integer,
                      .default_value = 5,
                      .min = 1.0,
                      .max = 10.0,
                      .help = "How often the colours are fitted and the picture is cut."},
                     {.name = "seed",
                      .type = ParameterType::integer,
                      .default_value = 0,
                      .min = 0.0,
                      .max = 2147483647.0,
                      .help = "The seed of the random numbers behind the first distributions."},
                     {.name = "working_side",
                      .type = ParameterType::integer,
                      .default_value = 1000,
                      .min = 64.0,
                      .max = 100000.0,
                      .unit = "px",
                      .help = "The longer side that the cut picture has at most; larger ones are cut in blocks."}},
      .check_capture = check_color_capture(key),
      .make = [] { return std::make_unique<Grabcut>(); }};
  return info;
}

}  // namespace orvexa::model

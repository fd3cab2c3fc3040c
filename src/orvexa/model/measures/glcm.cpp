#include "orvexa/model/measures/glcm.h"

#include <algorithm>
#include <cmath>

#include "orvexa/model/measures/same_region.h"

namespace orvexa::model {

namespace {

constexpr std::size_t symbol_count = 32896;
constexpr std::uint16_t no_pair = 65535;

struct Levels {
  std::uint8_t low = 0;
  std::uint8_t high = 0;
};

/// The levels of each symbol.
const std::vector<Levels>& levels_of_symbols() {
  static const std::vector<Levels> all = [] {
    std::vector<Levels> levels(symbol_count);
    for (unsigned high = 0; high < 256; ++high) {
      for (unsigned low = 0; low <= high; ++low) {
        const auto a = static_cast<std::uint8_t>(low);
        const auto b = static_cast<std::uint8_t>(high);
        levels[pair_symbol(a, b)] = {a, b};
      }
    }
    return levels;
  }();
  return all;
}

/// The picture in levels and where it has one.
struct LevelMap {
  cv::Mat levels;    ///< CV_8UC1
  cv::Mat is_valid;  ///< CV_8UC1, or empty where every pixel is
};

std::uint8_t level_of(double fraction, const GlcmSettings& settings) {
  const double place = std::floor((fraction - settings.low) / (settings.high - settings.low) * settings.levels);
  return static_cast<std::uint8_t>(std::clamp(place, 0.0, settings.levels - 1.0));
}

LevelMap level_map(const Band& band, const GlcmSettings& settings, const RunContext& context) {
  const int height = band.shape().height;
  const int width = band.shape().width;
  LevelMap map{cv::Mat(height, width, CV_8UC1), {}};
  if (band.image.type() == PixelType::f32) map.is_valid.create(height, width, CV_8UC1);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    std::vector<double> row(static_cast<std::size_t>(width));
    for (int y = y0; y < y1; ++y) {
      band.read_normalised_row(y, row);
      std::uint8_t* level = map.levels.ptr<std::uint8_t>(y);
      std::uint8_t* valid = map.is_valid.empty() ? nullptr : map.is_valid.ptr<std::uint8_t>(y);
      for (int x = 0; x < width; ++x) {
        const double fraction = row[static_cast<std::size_t>(x)];
        const bool is_number = std::isfinite(fraction);
        level[x] = is_number ? level_of(fraction, settings) : std::uint8_t{0};
        if (valid != nullptr) valid[x] = is_number ? 255 : 0;
      }
    }
  });
  return map;
}

/// Finds the pairs that begin in runs of one direction.
class Pairs {
 public:
  Pairs(const LevelMap& map, const SameRegion& same, int dy, int dx) : _map(map), _same(same), _dy(dy), _dx(dx) {}

  /// Calls `pair(x, symbol)` for the pixels of the run, with `no_pair` for those without.
  template <typename Pair>
  void each(const RegionPixels::Run& run, bool is_any_region, const Pair& pair) const {
    const SameRegion::Row here = _same.row(run.y);
    const SameRegion::Row there = _same.row(run.y + _dy);
    const std::int32_t label = is_any_region || here.label == nullptr ? 0 : here.label[run.x0];
    const std::uint8_t* level = _map.levels.ptr<std::uint8_t>(run.y);
    const std::uint8_t* other = there.set == nullptr ? nullptr : _map.levels.ptr<std::uint8_t>(run.y + _dy);
    for (int x = run.x0; x < run.x1; ++x) {
      const bool is_pair = other != nullptr && _same.holds(there, x + _dx, label) && is_valid(run.y, x) &&
                           is_valid(run.y + _dy, x + _dx);
      pair(x, is_pair ? pair_symbol(level[x], other[x + _dx]) : no_pair);
    }
  }

 private:
  [[nodiscard]] bool is_valid(int y, int x) const {
    return _map.is_valid.empty() || _map.is_valid.at<std::uint8_t>(y, x) != 0;
  }

  const LevelMap& _map;
  const SameRegion& _same;
  int _dy;
  int _dx;
};

CooccurrenceFeatures features_of_table(std::span<const std::uint32_t> table) {
  std::vector<ValueCount> pairs;
  for (std::size_t symbol = 0; symbol < table.size(); ++symbol) {
    if (table[symbol] != 0) pairs.push_back({static_cast<std::int32_t>(symbol), table[symbol]});
  }
  return cooccurrence_features(pairs);
}

void count_invalid(const LevelMap& map, const RegionPixels& pixels, RegionTexture& texture, const RunContext& context) {
  texture.invalid.assign(pixels.regions().regions().size(), 0);
  if (map.is_valid.empty()) return;
  const std::vector<std::uint32_t> counts = pixels.count(
      pixels.group_count(), context, [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> table) {
        for (const RegionPixels::Run& run : runs) {
          const std::uint8_t* valid = map.is_valid.ptr<std::uint8_t>(run.y);
          table[run.group] += static_cast<std::uint32_t>(std::count(valid + run.x0, valid + run.x1, std::uint8_t{0}));
        }
      });
  for (std::size_t group = 0; group < counts.size(); ++group) {
    texture.invalid_in_whole += counts[group];
    if (group < texture.invalid.size()) texture.invalid[group] = counts[group];
  }
}

}  // namespace

CooccurrenceFeatures cooccurrence_features(std::span<const ValueCount> pairs) {
  CooccurrenceFeatures features;
  if (pairs.empty()) return features;
  const std::vector<Levels>& levels = levels_of_symbols();
  std::int64_t sum_of_levels = 0;
  std::int64_t sum_of_steps = 0;
  std::int64_t sum_of_squared_steps = 0;
  for (const ValueCount& pair : pairs) {
    const auto [low, high] = levels[static_cast<std::size_t>(pair.value)];
    const std::int64_t step = high - low;
    features.pairs += pair.count;
    sum_of_levels += pair.count * (low + high);
    sum_of_steps += pair.count * step;
    sum_of_squared_steps += pair.count * step * step;
  }
  const auto n = static_cast<double>(features.pairs);
  features.dissimilarity = static_cast<double>(sum_of_steps) / n;
  features.contrast = static_cast<double>(sum_of_squared_steps) / n;
  const double mean = static_cast<double>(sum_of_levels) / (2 * n);
  double variance = 0;
  double covariance = 0;
  for (const ValueCount& pair : pairs) {
    const auto [low, high] = levels[static_cast<std::size_t>(pair.value)];
    const double share = static_cast<double>(pair.count) / n;
    const double step = high - low;
    features.homogeneity += share / (1 + step * step);
    // Two equal cells of the matrix where the levels differ.
    const double cell = low == high ? share : share / 2;
    features.asm_ += share * cell;
    features.entropy -= share * std::log2(cell);
    variance += share * ((low - mean) * (low - mean) + (high - mean) * (high - mean)) / 2;
    covariance += share * (low - mean) * (high - mean);
  }
  features.entropy = std::max(0.0, features.entropy);
  features.energy = std::sqrt(features.asm_);
  const auto [first_low, first_high] = levels[static_cast<std::size_t>(pairs.front().value)];
  const bool has_one_level = pairs.size() == 1 && first_low == first_high;
  if (!has_one_level) features.correlation = covariance / variance;
  return features;
}

RegionTexture measure_glcm(const Band& band, const RegionPixels& pixels, const GlcmSettings& settings,
                           const RunContext& context) {
  RegionTexture texture;
  const LevelMap map = level_map(band, settings, context);
  const SameRegion same(pixels.regions());
  texture.regions.resize(pixels.regions().regions().size());
  const int d = settings.distance;
  const std::array<std::array<int, 2>, glcm_directions> steps{{{0, d}, {-d, d}, {-d, 0}, {-d, -d}}};
  const auto table_size = static_cast<std::size_t>(settings.levels * (settings.levels + 1) / 2);
  for (std::size_t direction = 0; direction < glcm_directions; ++direction) {
    const Pairs pairs(map, same, steps[direction][0], steps[direction][1]);
    const std::vector<std::uint32_t> table = pixels.count(
        table_size, context, [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> counts) {
          for (const RegionPixels::Run& run : runs) {
            pairs.each(run, true, [&](int, std::uint16_t symbol) {
              if (symbol != no_pair) ++counts[symbol];
            });
          }
        });
    texture.whole[direction] = features_of_table(table);
    if (pixels.regions().is_single()) {
      texture.regions.front()[direction] = texture.whole[direction];
      continue;
    }
    pixels.count_symbols(
        context, no_pair,
        [&](const RegionPixels::Run& run, std::span<std::uint16_t> out) {
          pairs.each(run, false,
                     [&](int x, std::uint16_t symbol) { out[static_cast<std::size_t>(x - run.x0)] = symbol; });
        },
        [&](std::size_t group, std::span<const ValueCount> counts) {
          texture.regions[group][direction] = cooccurrence_features(counts);
        });
  }
  count_invalid(map, pixels, texture, context);
  if (pixels.regions().is_single()) texture.invalid = {texture.invalid_in_whole};
  return texture;
}

}  // namespace orvexa::model

#include "orvexa/model/measures/profiles.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace orvexa::model {

namespace {

constexpr double invalid = std::numeric_limits<double>::quiet_NaN();

/// The count at a pixel of a band.
double count_at(const Band& band, int y, int x) {
  const auto at = [&](auto type) {
    using T = decltype(type);
    const auto row = band.image.row<T>(y);
    const auto channels = static_cast<std::size_t>(band.image.channels());
    return static_cast<double>(row[static_cast<std::size_t>(x) * channels + static_cast<std::size_t>(band.channel)]);
  };
  switch (band.image.type()) {
    case PixelType::u8:
      return at(std::uint8_t{});
    case PixelType::u16:
      return at(std::uint16_t{});
    case PixelType::f32:
      break;
  }
  return at(float{});
}

/// A place that is a pixel's but for rounding is that pixel.
double snapped(double place) {
  const double nearest = std::round(place);
  return std::abs(place - nearest) < 1e-9 ? nearest : place;
}

/// Between the four pixels around; pixels without weight need not be there.
double value_at(const Band& band, const Mask& mask, Place place) {
  const double x = snapped(place.x);
  const double y = snapped(place.y);
  if (!(x >= 0 && y >= 0 && x <= band.shape().width - 1 && y <= band.shape().height - 1)) return invalid;
  const int x0 = static_cast<int>(std::floor(x));
  const int y0 = static_cast<int>(std::floor(y));
  const double right = x - x0;
  const double below = y - y0;
  double sum = 0;
  for (const int dy : {0, 1}) {
    for (const int dx : {0, 1}) {
      const double weight = (dx == 1 ? right : 1 - right) * (dy == 1 ? below : 1 - below);
      if (weight == 0) continue;
      if (!mask.at(y0 + dy, x0 + dx)) return invalid;
      sum += weight * count_at(band, y0 + dy, x0 + dx);
    }
  }
  return std::isfinite(sum) ? sum : invalid;
}

/// Sums over the pixels of each ring.
struct Rings {
  explicit Rings(std::size_t rings, std::size_t bands)
      : pixels(rings, 0), n(bands, std::vector<std::int64_t>(rings, 0)), sum(bands, std::vector<double>(rings, 0)) {}
  void add(const Rings& other) {
    for (std::size_t ring = 0; ring < pixels.size(); ++ring) {
      pixels[ring] += other.pixels[ring];
      for (std::size_t band = 0; band < n.size(); ++band) {
        n[band][ring] += other.n[band][ring];
        sum[band][ring] += other.sum[band][ring];
      }
    }
  }
  std::vector<std::int64_t> pixels;
  std::vector<std::vector<std::int64_t>> n;
  std::vector<std::vector<double>> sum;
};

double farthest_of(const Mask& mask, Place centre, const RunContext& context) {
  const auto [height, width] = mask.shape();
  const int rows_a_stripe = stripe_height(width);
  std::vector<double> farthest(static_cast<std::size_t>(stripe_count(height, width)), 0);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    double& own = farthest[static_cast<std::size_t>(y0 / rows_a_stripe)];
    for (int y = y0; y < y1; ++y) {
      const auto row = mask.row(y);
      const auto first = std::find(row.begin(), row.end(), std::uint8_t{255});
      if (first == row.end()) continue;
      const auto last = std::find(row.rbegin(), row.rend(), std::uint8_t{255});
      // Along a row the farthest pixel is one of the two ends.
      for (const auto x : {first - row.begin(), row.rend() - last - 1}) {
        own = std::max(own, std::hypot(static_cast<double>(x) - centre.x, y - centre.y));
      }
    }
  });
  return *std::ranges::max_element(farthest);
}

/// Puts the pixels of rows into rings.
class RingReader {
 public:
  RingReader(const std::vector<Band>& bands, const Mask& mask, Place centre, double ring_width)
      : _bands(bands), _mask(mask), _centre(centre), _ring_width(ring_width) {}

  void add_rows(int y0, int y1, Rings& rings) const {
    std::vector<std::vector<double>> rows(_bands.size(),
                                          std::vector<double>(static_cast<std::size_t>(_mask.shape().width)));
    for (int y = y0; y < y1; ++y) {
      const auto set = _mask.row(y);
      if (std::ranges::find(set, std::uint8_t{255}) == set.end()) continue;
      for (std::size_t band = 0; band < _bands.size(); ++band) _bands[band].read_row(y, rows[band]);
      for (std::size_t x = 0; x < set.size(); ++x) {
        if (set[x] != 0) add_pixel(ring_at(y, x, rings.pixels.size()), x, rows, rings);
      }
    }
  }

 private:
  [[nodiscard]] std::size_t ring_at(int y, std::size_t x, std::size_t count) const {
    const double distance = std::hypot(static_cast<double>(x) - _centre.x, y - _centre.y);
    return std::min(count - 1, static_cast<std::size_t>(distance / _ring_width));
  }
  static void add_pixel(std::size_t ring, std::size_t x, const std::vector<std::vector<double>>& rows, Rings& rings) {
    ++rings.pixels[ring];
    for (std::size_t band = 0; band < rows.size(); ++band) {
      const double value = rows[band][x];
      if (!std::isfinite(value)) continue;
      ++rings.n[band][ring];
      rings.sum[band][ring] += value;
    }
  }

  const std::vector<Band>& _bands;
  const Mask& _mask;
  Place _centre;
  double _ring_width;
};

}  // namespace

Place place_of(const PickPoint& point, Shape shape) {
  return {point.x_norm * shape.width - 0.5, point.y_norm * shape.height - 0.5};
}

Profile line_profile(const std::vector<Band>& bands, const Mask& mask, Place from, Place to, int width,
                     std::optional<int> samples, const RunContext& context) {
  // Only the pixels of a line are needed, but a band may be the grey of a colour image.
  std::vector<Band> planes = bands;
  for (Band& band : planes) {
    if (band.channel == Band::grey_channel) band = {band.plane(context), 0, band.white, band.name, band.measurement};
  }
  const double length = std::hypot(to.x - from.x, to.y - from.y);
  const int count = samples.value_or(static_cast<int>(std::ceil(length - 1e-6)) + 1);
  const Place across = length > 0 ? Place{-(to.y - from.y) / length, (to.x - from.x) / length} : Place{0, 1};
  Profile profile;
  profile.values.assign(planes.size(), {});
  for (int k = 0; k < count; ++k) {
    context.check();
    const double share = count > 1 ? static_cast<double>(k) / (count - 1) : 0;
    profile.distances.push_back(share * length);
    for (std::size_t band = 0; band < planes.size(); ++band) {
      double sum = 0;
      int n = 0;
      for (int w = 0; w < width; ++w) {
        const double aside = w - (width - 1) / 2.0;
        const Place place{from.x + share * (to.x - from.x) + aside * across.x,
                          from.y + share * (to.y - from.y) + aside * across.y};
        const double value = value_at(planes[band], mask, place);
        if (std::isnan(value)) continue;
        sum += value;
        ++n;
      }
      profile.values[band].push_back(n > 0 ? sum / n : invalid);
    }
  }
  return profile;
}

Profile radial_profile(const std::vector<Band>& bands, const Mask& mask, Place centre, std::optional<int> rings,
                       const RunContext& context) {
  const double farthest = farthest_of(mask, centre, context);
  const int count = rings.value_or(static_cast<int>(std::floor(farthest)) + 1);
  const double ring_width = rings && farthest > 0 ? farthest / count : 1;
  const auto [height, width] = mask.shape();
  const int rows_a_stripe = stripe_height(width);
  std::vector<Rings> partial(static_cast<std::size_t>(stripe_count(height, width)),
                             Rings(static_cast<std::size_t>(count), bands.size()));
  const RingReader reader(bands, mask, centre, ring_width);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    reader.add_rows(y0, y1, partial[static_cast<std::size_t>(y0 / rows_a_stripe)]);
  });
  Rings total(static_cast<std::size_t>(count), bands.size());
  for (const Rings& own : partial) total.add(own);
  Profile profile;
  profile.pixels = total.pixels;
  profile.values.assign(bands.size(), {});
  for (std::size_t ring = 0; ring < total.pixels.size(); ++ring) {
    profile.distances.push_back((static_cast<double>(ring) + 0.5) * ring_width);
    for (std::size_t band = 0; band < bands.size(); ++band) {
      const std::int64_t n = total.n[band][ring];
      profile.values[band].push_back(n > 0 ? total.sum[band][ring] / static_cast<double>(n) : invalid);
    }
  }
  return profile;
}

std::optional<Place> centroid_of(const Mask& mask, const RunContext& context) {
  struct Sums {
    std::int64_t n = 0;
    std::int64_t x = 0;
    std::int64_t y = 0;
  };
  const auto [height, width] = mask.shape();
  const int rows_a_stripe = stripe_height(width);
  std::vector<Sums> partial(static_cast<std::size_t>(stripe_count(height, width)));
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    Sums& own = partial[static_cast<std::size_t>(y0 / rows_a_stripe)];
    for (int y = y0; y < y1; ++y) {
      const auto set = mask.row(y);
      for (std::size_t x = 0; x < set.size(); ++x) {
        if (set[x] == 0) continue;
        ++own.n;
        own.x += static_cast<std::int64_t>(x);
        own.y += y;
      }
    }
  });
  Sums total;
  for (const Sums& own : partial) total = {total.n + own.n, total.x + own.x, total.y + own.y};
  if (total.n == 0) return {};
  const auto n = static_cast<double>(total.n);
  return Place{static_cast<double>(total.x) / n, static_cast<double>(total.y) / n};
}

}  // namespace orvexa::model

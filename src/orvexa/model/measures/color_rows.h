#pragma once

#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/color.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::model {

/// The colours of a picture: its planes R, G, B and, where their counts are whole numbers, the linear light of every
/// count, so that the power of the encoding is taken once a count and not once a pixel. Read through `ColorRow`, by any
/// number of threads.
class ColorSource {
 public:
  /// @param rgb  the planes R, G, B of one size.
  explicit ColorSource(std::vector<Band> rgb);

  [[nodiscard]] Shape shape() const { return _rgb.front().shape(); }

 private:
  friend class ColorRow;
  std::vector<Band> _rgb;
  std::array<std::vector<double>, 3> _lights;  ///< by count; empty for a float plane
};

/// One row of a picture's colours at a time. Each thread has its own.
class ColorRow {
 public:
  /// @param colors  must live as long as this.
  explicit ColorRow(const ColorSource& colors);

  /// Makes `y` the row that the others speak of; nothing to do when it is already.
  void read(int y);

  /// Whether the three values are finite numbers; the others may be asked only then.
  [[nodiscard]] bool is_valid(std::size_t x) const { return std::isfinite(_rows[0][x] + _rows[1][x] + _rows[2][x]); }
  /// Fractions of white, cut to 0..1: sRGB ends there.
  [[nodiscard]] Rgb encoded(std::size_t x) const { return {share(0, x), share(1, x), share(2, x)}; }
  [[nodiscard]] Lab lab(std::size_t x) const { return lab_of_light({light(0, x), light(1, x), light(2, x)}); }

 private:
  [[nodiscard]] double share(std::size_t k, std::size_t x) const;
  [[nodiscard]] double light(std::size_t k, std::size_t x) const;

  const ColorSource& _colors;
  std::array<std::vector<double>, 3> _rows;
  int _y = -1;
};

/// The mean in CIELAB of the valid pixels whose centres lie not farther than `radius` from the centre of a pixel;
/// absent when there is none.
[[nodiscard]] std::optional<Lab> mean_lab_around(const ColorSource& colors, const PixelPoint& centre, int radius);

}  // namespace orvexa::model

#include "orvexa/model/measures/spectral_indices.h"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"
#include "orvexa/model/measures/band_roles.h"

namespace orvexa::model {

namespace {

using Values = std::span<const double>;

constexpr double invalid = std::numeric_limits<double>::quiet_NaN();

/// A quotient whose denominator is a sum of terms. Fractions of white are rounded, so that terms which cancel in counts
/// leave a rest of some 1e-17; such a denominator is zero, and the pixel invalid.
/// @param magnitude  sum of the terms' absolute values.
double quotient(double numerator, double denominator, double magnitude) {
  constexpr double rounding = 16 * std::numeric_limits<double>::epsilon();
  if (!(std::abs(denominator) > rounding * magnitude)) return invalid;
  return numerator / denominator;
}

double normalised_difference(double a, double b) {
  return quotient(a - b, a + b, std::abs(a) + std::abs(b));
}

std::vector<SpectralIndex> make_indices() {
  std::vector<SpectralIndex> all;
  const auto add = [&all](SpectralIndex index) { all.push_back(std::move(index)); };
  add({.key = "ndvi",
       .display_name = "Normalised difference vegetation index",
       .formula = "(N - R) / (N + R)",
       .source = "J. W. Rouse, R. H. Haas, J. A. Schell, D. W. Deering, Monitoring vegetation systems in the Great "
                 "Plains with ERTS, Third ERTS Symposium, NASA SP-351, 1974, 309-317",
       .roles = {"N", "R"},
       .value = [](Values v) { return normalised_difference(v[0], v[1]); }});
  add({.key = "gndvi",
       .display_name = "Green normalised difference vegetation index",
       .formula = "(N - G) / (N + G)",
       .source = "A. A. Gitelson, Y. J. Kaufman, M. N. Merzlyak, Use of a green channel in remote sensing of global "
                 "vegetation from EOS-MODIS, Remote Sens. Environ. 58(3), 1996, 289-298, "
                 "doi:10.1016/S0034-4257(96)00072-7",
       .roles = {"N", "G"},
       .value = [](Values v) { return normalised_difference(v[0], v[1]); }});
  add({.key = "ndre",
       .display_name = "Normalised difference red edge index",
       .formula = "(N - RE) / (N + RE)",
       .source = "A. Gitelson, M. N. Merzlyak, Spectral reflectance changes associated with autumn senescence, J. "
                 "Plant Physiol. 143(3), 1994, 286-292, doi:10.1016/S0176-1617(11)81633-0",
       .roles = {"N", "RE"},
       .value = [](Values v) { return normalised_difference(v[0], v[1]); }});
  add({.key = "savi",
       .display_name = "Soil-adjusted vegetation index",
       .formula = "(1 + L) * (N - R) / (N + R + L), L = 0.5",
       .source = "A. R. Huete, A soil-adjusted vegetation index (SAVI), Remote Sens. Environ. 25(3), 1988, 295-309, "
                 "doi:10.1016/0034-4257(88)90106-X",
       .roles = {"N", "R"},
       .needs_reflectance = true,
       .value = [](Values v) {
         return quotient(1.5 * (v[0] - v[1]), v[0] + v[1] + 0.5, std::abs(v[0]) + std::abs(v[1]) + 0.5);
       }});
  add({.key = "osavi",
       .display_name = "Optimised soil-adjusted vegetation index (without the factor 1.16)",
       .formula = "(N - R) / (N + R + 0.16)",
       .source = "G. Rondeaux, M. Steven, F. Baret, Optimization of soil-adjusted vegetation indices, Remote Sens. "
                 "Environ. 55(2), 1996, 95-107, doi:10.1016/0034-4257(95)00186-7",
       .roles = {"N", "R"},
       .needs_reflectance = true,
       .value = [](Values v) {
         return quotient(v[0] - v[1], v[0] + v[1] + 0.16, std::abs(v[0]) + std::abs(v[1]) + 0.16);
       }});
  add({.key = "msavi2",
       .display_name = "Modified soil-adjusted vegetation index 2",
       .formula = "(2 * N + 1 - sqrt((2 * N + 1)^2 - 8 * (N - R))) / 2",
       .source = "J. Qi, A. Chehbouni, A. R. Huete, Y. H. Kerr, S. Sorooshian, A modified soil adjusted vegetation "
                 "index, Remote Sens. Environ. 48(2), 1994, 119-126, doi:10.1016/0034-4257(94)90134-1",
       .roles = {"N", "R"},
       .needs_reflectance = true,
       .value = [](Values v) {
         const double a = 2 * v[0] + 1;
         return (a - std::sqrt(a * a - 8 * (v[0] - v[1]))) / 2;
       }});
  add({.key = "evi",
       .display_name = "Enhanced vegetation index",
       .formula = "2.5 * (N - R) / (N + 6 * R - 7.5 * B + 1)",
       .source =
           "A. R. Huete, H. Q. Liu, K. Batchily, W. van Leeuwen, A comparison of vegetation indices over a global "
           "set of TM images for EOS-MODIS, Remote Sens. Environ. 59(3), 1997, 440-451, "
           "doi:10.1016/S0034-4257(96)00112-5",
       .roles = {"N", "R", "B"},
       .needs_reflectance = true,
       .value = [](Values v) {
         return quotient(2.5 * (v[0] - v[1]), v[0] + 6 * v[1] - 7.5 * v[2] + 1,
                         std::abs(v[0]) + 6 * std::abs(v[1]) + 7.5 * std::abs(v[2]) + 1);
       }});
  add({.key = "evi2",
       .display_name = "Enhanced vegetation index 2 (without blue)",
       .formula = "2.5 * (N - R) / (N + 2.4 * R + 1)",
       .source = "Z. Jiang, A. R. Huete, K. Didan, T. Miura, Development of a two-band enhanced vegetation index "
                 "without a blue band, Remote Sens. Environ. 112(10), 2008, 3833-3845, doi:10.1016/j.rse.2008.06.006",
       .roles = {"N", "R"},
       .needs_reflectance = true,
       .value = [](Values v) {
         return quotient(2.5 * (v[0] - v[1]), v[0] + 2.4 * v[1] + 1, std::abs(v[0]) + 2.4 * std::abs(v[1]) + 1);
       }});
  add({.key = "gari",
       .display_name = "Green atmospherically resistant vegetation index",
       .formula = "(N - (G - (B - R))) / (N + (G - (B - R)))",
       .source = "A. A. Gitelson, Y. J. Kaufman, M. N. Merzlyak, Use of a green channel in remote sensing of global "
                 "vegetation from EOS-MODIS, Remote Sens. Environ. 58(3), 1996, 289-298, "
                 "doi:10.1016/S0034-4257(96)00072-7",
       .roles = {"N", "G", "B", "R"},
       .value = [](Values v) {
         const double green = v[1] - (v[2] - v[3]);
         return quotient(v[0] - green, v[0] + green, std::abs(v[0]) + std::abs(v[1]) + std::abs(v[2]) + std::abs(v[3]));
       }});
  add({.key = "vari",
       .display_name = "Visible atmospherically resistant index",
       .formula = "(G - R) / (G + R - B)",
       .source = "A. A. Gitelson, Y. J. Kaufman, R. Stark, D. Rundquist, Novel algorithms for remote estimation of "
                 "vegetation fraction, Remote Sens. Environ. 80(1), 2002, 76-87, doi:10.1016/S0034-4257(01)00289-9",
       .roles = {"R", "G", "B"},
       .value = [](Values v) {
         return quotient(v[1] - v[0], v[1] + v[0] - v[2], std::abs(v[1]) + std::abs(v[0]) + std::abs(v[2]));
       }});
  add({.key = "exg",
       .display_name = "Excess green on chromatic coordinates",
       .formula = "2 * g - r - b with r, g, b = R, G, B / (R + G + B)",
       .source = "D. M. Woebbecke, G. E. Meyer, K. Von Bargen, D. A. Mortensen, Color indices for weed identification "
                 "under various soil, residue, and lighting conditions, Trans. ASAE 38(1), 1995, 259-269, "
                 "doi:10.13031/2013.27838",
       .roles = {"R", "G", "B"},
       .value = [](Values v) {
         return quotient(2 * v[1] - v[0] - v[2], v[0] + v[1] + v[2], std::abs(v[0]) + std::abs(v[1]) + std::abs(v[2]));
       }});
  add({.key = "exr",
       .display_name = "Excess red (raw, factor 1.3)",
       .formula = "1.3 * R - G",
       .source = "G. E. Meyer, T. Mehta, M. F. Kocher, D. A. Mortensen, A. Samal, Textural imaging and discriminant "
                 "analysis for distinguishing weeds for spot spraying, Trans. ASAE 41(4), 1998, 1189-1197",
       .roles = {"R", "G"},
       .value = [](Values v) { return 1.3 * v[0] - v[1]; }});
  add({.key = "exgr",
       .display_name = "Excess green minus excess red (raw, factor 1.3)",
       .formula = "(2 * G - R - B) - (1.3 * R - G)",
       .source = "G. E. Meyer, J. C. Neto, Verification of color vegetation indices for automated crop imaging "
                 "applications, Comput. Electron. Agric. 63(2), 2008, 282-293, doi:10.1016/j.compag.2008.03.009",
       .roles = {"R", "G", "B"},
       .value = [](Values v) { return (2 * v[1] - v[0] - v[2]) - (1.3 * v[0] - v[1]); }});
  add({.key = "gli",
       .display_name = "Green leaf index",
       .formula = "(2 * G - R - B) / (2 * G + R + B)",
       .source = "M. Louhaichi, M. M. Borman, D. E. Johnson, Spatially located platform and aerial photography for "
                 "documentation of grazing impacts on wheat, Geocarto Int. 16(1), 2001, 65-70, "
                 "doi:10.1080/10106040108542184",
       .roles = {"R", "G", "B"},
       .value = [](Values v) {
         return quotient(2 * v[1] - v[0] - v[2], 2 * v[1] + v[0] + v[2],
                         2 * std::abs(v[1]) + std::abs(v[0]) + std::abs(v[2]));
       }});
  add({.key = "ngrdi",
       .display_name = "Normalised green-red difference index",
       .formula = "(G - R) / (G + R)",
       .source = "C. J. Tucker, Red and photographic infrared linear combinations for monitoring vegetation, Remote "
                 "Sens. Environ. 8(2), 1979, 127-150, doi:10.1016/0034-4257(79)90013-0",
       .roles = {"R", "G"},
       .value = [](Values v) { return normalised_difference(v[1], v[0]); }});
  add({.key = "tgi",
       .display_name = "Triangular greenness index",
       .formula = "-0.5 * (190 * (R - G) - 120 * (R - B))",
       .source =
           "E. R. Hunt, P. C. Doraiswamy, J. E. McMurtrey, C. S. T. Daughtry, E. M. Perry, B. Akhmedov, A visible "
           "band index for remote sensing leaf chlorophyll content at the canopy scale, Int. J. Appl. Earth Obs. "
           "Geoinf. 21, 2013, 103-112, doi:10.1016/j.jag.2012.07.020",
       .roles = {"R", "G", "B"},
       .needs_reflectance = true,
       .value = [](Values v) { return -0.5 * (190 * (v[0] - v[1]) - 120 * (v[0] - v[2])); }});
  add({.key = "gcc",
       .display_name = "Green chromatic coordinate",
       .formula = "G / (R + G + B)",
       .source =
           "A. D. Richardson, J. P. Jenkins, B. H. Braswell, D. Y. Hollinger, S. V. Ollinger, M.-L. Smith, Use of "
           "digital webcam images to track spring green-up in a deciduous broadleaf forest, Oecologia 152, 2007, "
           "323-334, doi:10.1007/s00442-006-0657-z",
       .roles = {"R", "G", "B"},
       .value = [](Values v) {
         return quotient(v[1], v[0] + v[1] + v[2], std::abs(v[0]) + std::abs(v[1]) + std::abs(v[2]));
       }});
  const std::string chlorophyll_source =
      "A. A. Gitelson, Y. Gritz, M. N. Merzlyak, Relationships between leaf chlorophyll content and spectral "
      "reflectance and algorithms for non-destructive chlorophyll assessment in higher plant leaves, J. Plant Physiol. "
      "160(3), 2003, 271-282, doi:10.1078/0176-1617-00887";
  add({.key = "ci_green",
       .display_name = "Chlorophyll index, green",
       .formula = "N / G - 1",
       .source = chlorophyll_source,
       .roles = {"N", "G"},
       .value = [](Values v) { return v[0] / v[1] - 1; }});
  add({.key = "ci_rededge",
       .display_name = "Chlorophyll index, red edge",
       .formula = "N / RE - 1",
       .source = chlorophyll_source,
       .roles = {"N", "RE"},
       .value = [](Values v) { return v[0] / v[1] - 1; }});
  add({.key = "mcari",
       .display_name = "Modified chlorophyll absorption in reflectance index",
       .formula = "((RE - R) - 0.2 * (RE - G)) * RE / R",
       .source = "C. S. T. Daughtry, C. L. Walthall, M. S. Kim, E. Brown de Colstoun, J. E. McMurtrey, Estimating corn "
                 "leaf chlorophyll concentration from leaf and canopy reflectance, Remote Sens. Environ. 74(2), 2000, "
                 "229-239, doi:10.1016/S0034-4257(00)00113-9",
       .roles = {"RE", "R", "G"},
       .needs_reflectance = true,
       .value = [](Values v) { return ((v[0] - v[1]) - 0.2 * (v[0] - v[2])) * (v[0] / v[1]); }});
  add({.key = "ari",
       .display_name = "Anthocyanin reflectance index",
       .formula = "1 / G - 1 / RE",
       .source =
           "A. A. Gitelson, M. N. Merzlyak, O. B. Chivkunova, Optical properties and nondestructive estimation of "
           "anthocyanin content in plant leaves, Photochem. Photobiol. 74(1), 2001, 38-45, "
           "doi:10.1562/0031-8655(2001)074<0038:OPANEO>2.0.CO;2",
       .roles = {"G", "RE"},
       .needs_reflectance = true,
       .value = [](Values v) { return 1 / v[0] - 1 / v[1]; }});
  add({.key = "psri",
       .display_name = "Plant senescence reflectance index",
       .formula = "(R - B) / RE2",
       .source =
           "M. N. Merzlyak, A. A. Gitelson, O. B. Chivkunova, V. Y. Rakitin, Non-destructive optical detection of "
           "pigment changes during leaf senescence and fruit ripening, Physiol. Plant. 106(1), 1999, 135-141, "
           "doi:10.1034/j.1399-3054.1999.106119.x",
       .roles = {"R", "B", "RE2"},
       .value = [](Values v) { return (v[0] - v[1]) / v[2]; }});
  add({.key = "ndwi",
       .display_name = "Normalised difference water index (green and near infrared)",
       .formula = "(G - N) / (G + N)",
       .source = "S. K. McFeeters, The use of the Normalized Difference Water Index (NDWI) in the delineation of open "
                 "water features, Int. J. Remote Sens. 17(7), 1996, 1425-1432, doi:10.1080/01431169608948714",
       .roles = {"G", "N"},
       .value = [](Values v) { return normalised_difference(v[0], v[1]); }});
  add({.key = "pri",
       .display_name = "Photochemical reflectance index",
       .formula = "(R531 - R570) / (R531 + R570)",
       .source = "J. A. Gamon, J. Peñuelas, C. B. Field, A narrow-waveband spectral index that tracks diurnal changes "
                 "in photosynthetic efficiency, Remote Sens. Environ. 41(1), 1992, 35-44, "
                 "doi:10.1016/0034-4257(92)90059-S",
       .roles = {"R531", "R570"},
       .value = [](Values v) { return normalised_difference(v[0], v[1]); }});
  return all;
}

std::vector<Band> expect_reflectance(bool is_needed, std::vector<Band> bands) {
  for (const Band& band : bands) {
    if (is_needed && !band.white.is_declared) {
      throw std::runtime_error("needs reflectance: WhiteLevel or a reference is not declared");
    }
  }
  return bands;
}

/// @param make_row_function  makes, for the number of columns, a function that works out a row of values from rows of
/// fractions of white; one for each stripe.
template <typename MakeRowFunction>
IndexMap map_of(const std::vector<Band>& bands, const RunContext& context, const MakeRowFunction& make_row_function) {
  IndexMap map;
  for (const Band& band : bands) map.bands.push_back(band.name);
  const auto [height, width] = bands.front().shape();
  map.values.create(height, width, CV_64FC1);
  const auto columns = static_cast<std::size_t>(width);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    std::vector<std::vector<double>> rows(bands.size(), std::vector<double>(columns));
    auto work_out = make_row_function(columns);
    for (int y = y0; y < y1; ++y) {
      for (std::size_t k = 0; k < bands.size(); ++k) bands[k].read_normalised_row(y, rows[k]);
      work_out(rows, std::span(map.values.ptr<double>(y), columns));
    }
  });
  return map;
}

}  // namespace

const std::vector<SpectralIndex>& spectral_indices() {
  static const std::vector<SpectralIndex> all = make_indices();
  return all;
}

const SpectralIndex& get_spectral_index(std::string_view key) {
  std::vector<std::string> known;
  for (const SpectralIndex& index : spectral_indices()) {
    if (index.key == key) return index;
    known.push_back(index.key);
  }
  throw std::invalid_argument("There is no spectral index \"" + std::string(key) + "\"" +
                              common::did_you_mean(key, known) + ".");
}

std::vector<Band> index_bands(const ImageSource& source, const SpectralIndex& index, const RoleBands& named) {
  return expect_reflectance(index.needs_reflectance, find_roles(source, index.roles, named));
}

std::vector<Band> index_bands(const ImageSource& source, const Expression& expression, const RoleBands& named) {
  return expect_reflectance(expression.needs_reflectance(), find_bands(source, expression.names(), named));
}

IndexMap compute_index(const ImageSource& source, const SpectralIndex& index, const RunContext& context,
                       const RoleBands& named) {
  return map_of(index_bands(source, index, named), context, [&](std::size_t columns) {
    return [&index, columns, pixel = std::vector<double>(index.roles.size())](std::span<const std::vector<double>> rows,
                                                                              std::span<double> out) mutable {
      for (std::size_t x = 0; x < columns; ++x) {
        for (std::size_t k = 0; k < rows.size(); ++k) pixel[k] = rows[k][x];
        const double value = index.value(pixel);
        out[x] = std::isfinite(value) ? value : invalid;
      }
    };
  });
}

IndexMap compute_index(const ImageSource& source, const Expression& expression, const RunContext& context,
                       const RoleBands& named) {
  return map_of(index_bands(source, expression, named), context, [&](std::size_t columns) {
    return [rows_of_expression = Expression::Rows(expression, columns)](std::span<const std::vector<double>> rows,
                                                                        std::span<double> out) mutable {
      rows_of_expression.evaluate(rows, out);
    };
  });
}

}  // namespace orvexa::model

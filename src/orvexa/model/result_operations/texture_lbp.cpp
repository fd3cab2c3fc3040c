#include <numeric>
#include <span>

#include "orvexa/model/measures/local_binary_pattern.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

class TextureLbp final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

/// n, n_invalid and one share a pattern.
std::vector<std::string> metric_names(const std::string& band) {
  std::vector<std::string> names{band + ".lbp.n", band + ".lbp.n_invalid"};
  for (std::size_t pattern = 0; pattern + 1 < lbp_patterns; ++pattern) {
    names.push_back(band + ".lbp.uniform_" + std::to_string(pattern));
  }
  names.push_back(band + ".lbp.other");
  return names;
}

OperationResult TextureLbp::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  OperationResult result;
  const RegionPixels pixels(regions, context());
  for (const auto& [name, band, reason] : wanted_bands(capture, params.at("bands"), result)) {
    const std::vector<std::string> names = metric_names(name);
    for (std::size_t k = 0; k < names.size(); ++k)
      result.units[names[k]] = k < 2 ? "px" : "fraction of the valid pixels";
    if (!band) {
      leave_out_everywhere(result, regions, names, reason);
      continue;
    }
    const PatternCounts counts = count_patterns(*band, pixels, context());
    write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
      if (row.is_empty()) {
        for (const std::string& metric : names) row.leave_out(metric, row.empty_reason());
        return;
      }
      const auto own = index < 0 ? std::span<const std::uint32_t>(counts.whole)
                                 : std::span<const std::uint32_t>(counts.regions)
                                       .subspan(lbp_patterns * static_cast<std::size_t>(index), lbp_patterns);
      const std::int64_t n = std::accumulate(own.begin(), own.end(), std::int64_t{0});
      row.expect_more(names.size());
      row.set(names[0], Value(n));
      row.set(names[1], Value(region.area - n));
      for (std::size_t pattern = 0; pattern < lbp_patterns; ++pattern) {
        if (n == 0) {
          row.leave_out(names[2 + pattern], "No pixel has all its neighbours in the region.");
        } else {
          row.set(names[2 + pattern], static_cast<double>(own[pattern]) / static_cast<double>(n));
        }
      }
    });
  }
  return result;
}

}  // namespace

const ResultOperationInfo& texture_lbp_info() {
  static const ResultOperationInfo info{
      .key = "texture_lbp",
      .display_name = "Texture: local binary patterns",
      .category = "Texture",
      .summary = "Describes texture by the shares of the patterns that pixels form with their neighbours.",
      .description =
          "Eight neighbours on a circle of one pixel around each pixel, those in the diagonals interpolated "
          "bilinearly, are compared with it: a neighbour that is at least as bright is 1. A pattern is uniform when "
          "there are at most two changes between 0 and 1 on the way round the circle. `<plane>.lbp.uniform_0` to "
          "`uniform_8` = the share of the pixels with a uniform pattern of that many ones, `<plane>.lbp.other` = the "
          "share of all other patterns; they add up to 1 and do not change when the picture is turned by a right angle "
          "or its brightness by a growing function that keeps straight lines straight. n = pixels that have a pattern, "
          "those whose 3 x 3 pixels are all finite numbers and in the same region (for the whole: in the mask); "
          "n_invalid = the other pixels. A plane without such a pixel has no shares.",
      .source =
          "T. Ojala, M. Pietikäinen, T. Mäenpää, Multiresolution gray-scale and rotation invariant texture "
          "classification with local binary patterns, IEEE Trans. Pattern Anal. Mach. Intell. 24(7), 2002, "
          "971-987, doi:10.1109/TPAMI.2002.1017623",
      .parameters = {bands_parameter(), each_region_parameter()},
      .check_capture = check_wanted_bands,
      .operation_class = {.make = [] { return std::make_unique<TextureLbp>(); }}};
  return info;
}

}  // namespace orvexa::model

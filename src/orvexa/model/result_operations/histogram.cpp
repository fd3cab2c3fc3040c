#include <cmath>
#include <limits>
#include <stdexcept>

#include "orvexa/common/text.h"
#include "orvexa/model/pictures/line_plot.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/result_operations/wanted_bands.h"

namespace orvexa::model {

namespace {

/// Counts of one group in a table: the bins, then what lies under and over the range, then what is no number.
struct TableLayout {
  std::size_t bins;
  [[nodiscard]] std::size_t underflow() const { return bins; }
  [[nodiscard]] std::size_t overflow() const { return bins + 1; }
  [[nodiscard]] std::size_t invalid() const { return bins + 2; }
  [[nodiscard]] std::size_t size() const { return bins + 3; }
};

/// The place in the table of a value; bins are [low, high) and the last one also holds the white level itself.
std::size_t place_of(double value, double white, const TableLayout& layout) {
  if (!std::isfinite(value)) return layout.invalid();
  if (value < 0) return layout.underflow();
  if (value > white) return layout.overflow();
  const auto bins = static_cast<double>(layout.bins);
  return std::min(layout.bins - 1, static_cast<std::size_t>(value * bins / white));
}

/// The place of every count that an image of whole numbers can hold.
std::vector<std::uint32_t> places_of_counts(const Band& band, const TableLayout& layout) {
  const std::size_t values = band.image.type() == PixelType::u8 ? 256 : 65536;
  std::vector<std::uint32_t> places(values);
  for (std::size_t value = 0; value < values; ++value) {
    places[value] = static_cast<std::uint32_t>(place_of(static_cast<double>(value), band.white.counts, layout));
  }
  return places;
}

class HistogramOperation final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
  [[nodiscard]] std::vector<std::uint32_t> count_band(const RegionPixels& pixels, const Band& band,
                                                      const TableLayout& layout) const;
};

std::vector<std::uint32_t> HistogramOperation::count_band(const RegionPixels& pixels, const Band& band,
                                                          const TableLayout& layout) const {
  if (band.image.type() != PixelType::f32) {
    return pixels.count_places(band, places_of_counts(band, layout), layout.size(), context());
  }
  const int width = band.shape().width;
  return pixels.count(pixels.group_count() * layout.size(), context(),
                      [&](std::span<const RegionPixels::Run> runs, std::span<std::uint32_t> table) {
                        std::vector<double> row(static_cast<std::size_t>(width));
                        int row_read = -1;
                        for (const RegionPixels::Run& run : runs) {
                          if (run.y != row_read) {
                            band.read_row(run.y, row);
                            row_read = run.y;
                          }
                          std::uint32_t* own = table.data() + run.group * layout.size();
                          for (int x = run.x0; x < run.x1; ++x) {
                            ++own[place_of(row[static_cast<std::size_t>(x)], band.white.counts, layout)];
                          }
                        }
                      });
}

std::vector<std::uint32_t> sum_of_groups(const std::vector<std::uint32_t>& table, const TableLayout& layout) {
  std::vector<std::uint32_t> sum(layout.size(), 0);
  for (std::size_t begin = 0; begin < table.size(); begin += layout.size()) {
    for (std::size_t place = 0; place < sum.size(); ++place) sum[place] += table[begin + place];
  }
  return sum;
}

ResultTable table_of(const std::vector<std::uint32_t>& counts, std::int64_t n, double white,
                     const TableLayout& layout) {
  ResultTable table{.columns = {"from", "to", "count", "fraction"}, .rows = {}};
  const double width = white / static_cast<double>(layout.bins);
  for (std::size_t bin = 0; bin < layout.bins; ++bin) {
    const Value fraction = n > 0 ? Value(counts[bin] / static_cast<double>(n)) : Value("");
    table.rows.push_back(
        {static_cast<double>(bin) * width, static_cast<double>(bin + 1) * width, counts[bin], fraction});
  }
  return table;
}

std::vector<std::string> metric_names(const std::string& band) {
  std::vector<std::string> names;
  for (const char* metric : {"n", "n_invalid", "underflow", "overflow", "bins"}) {
    names.push_back(band + ".histogram." + metric);
  }
  return names;
}

Image plot_of(const std::vector<std::uint32_t>& counts, const Band& band, const TableLayout& layout) {
  PlotLine line{.name = band.name, .values = {}};
  for (std::size_t bin = 0; bin < layout.bins; ++bin) line.values.push_back(counts[bin]);
  return line_plot({line},
                   {.title = "Histogram of " + band.name + " in " + std::to_string(layout.bins) + " bins, pixels",
                    .along = "counts",
                    .from = 0,
                    .to = band.white.counts,
                    .is_filled = true});
}

OperationResult HistogramOperation::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const TableLayout layout{params.at("bins").get<std::size_t>()};
  OperationResult result;
  const RegionPixels pixels(regions, context());
  // Every number of every region is held and written as text.
  constexpr std::size_t most_numbers = std::size_t{1} << 24;
  if (pixels.group_count() > most_numbers / layout.size()) {
    throw std::runtime_error(
        "histogram: " + common::grouped_integer_text(static_cast<std::int64_t>(regions.regions().size())) +
        " regions with " + common::grouped_integer_text(static_cast<std::int64_t>(layout.bins)) +
        " bins each are more than the " + common::grouped_integer_text(static_cast<std::int64_t>(most_numbers)) +
        " numbers a band may have; choose fewer bins, or only the whole mask with each_region: false.");
  }

  const std::vector<WantedBand> wanted = wanted_bands(capture, params.at("bands"), result);
  for (const WantedBand& band : wanted) {
    for (const std::string& metric : metric_names(band.name)) result.units[metric] = "px";
  }
  for (const auto& [name, band, reason] : wanted) {
    const std::vector<std::string> metrics = metric_names(name);
    if (!band) {
      leave_out_everywhere(result, regions, metrics, reason);
      continue;
    }
    const Band counted = band->raw();
    const std::vector<std::uint32_t> table = count_band(pixels, counted, layout);
    const std::vector<std::uint32_t> whole = sum_of_groups(table, layout);
    const auto own_counts = [&](int index) {
      if (index < 0 || regions.is_single()) return std::span<const std::uint32_t>(whole);
      return std::span(table).subspan(static_cast<std::size_t>(index) * layout.size(), layout.size());
    };
    write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
      if (row.is_empty()) {
        for (const std::string& metric : metrics) row.leave_out(metric, row.empty_reason());
        return;
      }
      const std::span<const std::uint32_t> counts = own_counts(index);
      row.set(metrics[0], Value(region.area - counts[layout.invalid()]));
      row.set(metrics[1], Value(counts[layout.invalid()]));
      row.set(metrics[2], Value(counts[layout.underflow()]));
      row.set(metrics[3], Value(counts[layout.overflow()]));
      row.set(metrics[4], Value(counts.first(layout.bins)));
    });
    result.images.insert_or_assign(name, ResultImage{.picture = plot_of(whole, counted, layout), .numbers = {}});
    result.tables[name] = table_of(whole, regions.whole().area - whole[layout.invalid()], counted.white.counts, layout);
  }
  return result;
}

}  // namespace

const ResultOperationInfo& histogram_info() {
  static const ResultOperationInfo info{
      .key = "histogram",
      .display_name = "Histogram",
      .category = "Intensity",
      .summary = "Counts the pixels of each image inside the mask by their value.",
      .description =
          "For every chosen plane: `<plane>.histogram.bins`, the numbers of pixels in equal bins from 0 to the white "
          "level (the declared one, else the greatest count of the type, 1 for float), whatever the data are. Values "
          "are the counts of the file, also where the capture has a reference. A bin holds its lower edge and not its "
          "upper one; the last bin also holds the white level itself. Beside it underflow (below 0), overflow (above "
          "the white level), n (valid pixels, all of these) and n_invalid (not a number or infinite). The table of a "
          "plane has the edges in counts, the counts of the whole mask and their fractions of n; the picture of a "
          "plane draws them. A mask or region without pixels has none of them. A chosen plane that the capture lacks "
          "is left out with its reason; when it lacks all of them, that is an error.",
      .source = "R. C. Gonzalez, R. E. Woods, Digital Image Processing, section on histogram processing",
      .parameters = {bands_parameter(),
                     {.name = "bins",
                      .type = ParameterType::integer,
                      .default_value = 256,
                      .min = 2,
                      .max = 65536,
                      .help = "Number of equal bins from 0 to the white level."},
                     each_region_parameter()},
      .check_capture = check_wanted_bands,
      .operation_class = {.make = [] { return std::make_unique<HistogramOperation>(); }}};
  return info;
}

}  // namespace orvexa::model

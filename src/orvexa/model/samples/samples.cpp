#include "orvexa/model/samples/samples.h"

#include <fmt/format.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/parallel.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/samples/drawings.h"

namespace orvexa::model {

namespace {

using common::Path;
using common::Value;
using samples::Drawing;

constexpr int largest_count = 100'000;

/// Writes header and images; @return the header's path.
Path write_capture(const Drawing& drawing, const Path& folder) {
  for (const auto& [file, image] : drawing.images) {
    const bool is_png = Path(file).extension() == ".png";
    common::write_file_atomically(folder / file, is_png ? encode_png(image) : encode_tiff(image));
  }
  Path header = folder / ("HDR_" + drawing.name + ".INF");
  common::write_file_atomically(header, drawing.header);
  return header;
}

void write_workflow_and_answers(SampleReport& report, const Path& folder, const Workflow& workflow,
                                const Value& answers) {
  report.workflow = folder / (report.name + ".yaml");
  report.expected = folder / "expected.json";
  common::save_yaml(report.workflow, workflow.to_dict());
  const Value document{
      {"format", 1}, {"workflow", common::path_text(report.workflow.filename())}, {"captures", answers}};
  common::write_file_atomically(report.expected, common::json_text(document));
}

void make_folder(const Path& folder) {
  std::error_code problem;
  std::filesystem::create_directories(folder, problem);
  if (problem) {
    throw std::runtime_error(common::path_text(folder) + ": this folder cannot be made (" + problem.message() + ").");
  }
}

SampleReport write_sample(const Path& parent, const char* shows, const Drawing& drawing, const Workflow& workflow) {
  const Path folder = parent / drawing.name;
  make_folder(folder);
  SampleReport report{.name = drawing.name, .shows = shows, .captures = {}, .workflow = {}, .expected = {}};
  report.captures.push_back(write_capture(drawing, folder));
  Value answers = Value::object();
  answers[drawing.name] = drawing.expected;
  write_workflow_and_answers(report, folder, workflow, answers);
  return report;
}

SampleReport write_series(const Path& parent, int count) {
  const Path folder = parent / "series";
  make_folder(folder);
  SampleReport report{.name = "series",
                      .shows = "Small numbered plots of a few plants in three bands, for trying a batch.",
                      .captures = std::vector<Path>(static_cast<std::size_t>(count)),
                      .workflow = {},
                      .expected = {}};
  std::vector<std::pair<std::string, Value>> answers(report.captures.size());
  common::parallel_for(report.captures.size(), [&](std::size_t i) {
    const Drawing drawing = samples::draw_series_plot(fmt::format("plot_{:04}", i + 1), static_cast<int>(i) + 1);
    report.captures[i] = write_capture(drawing, folder);
    answers[i] = {drawing.name, drawing.expected};
  });
  Value by_name = Value::object();
  for (auto& [name, answer] : answers) by_name.emplace(name, std::move(answer));
  write_workflow_and_answers(report, folder, samples::series_workflow(), by_name);
  return report;
}

}  // namespace

std::vector<SampleReport> write_samples(const Path& folder, const SampleOptions& options) {
  if (options.count < 0 || options.count > largest_count) {
    throw std::invalid_argument("The number of small captures is from 0 to 100,000, not " +
                                std::to_string(options.count) + ".");
  }
  make_folder(folder);
  struct Kind {
    const char* shows;
    Drawing (*draw)();
    Workflow (*workflow)();
  };
  const std::array kinds{
      Kind{"Eight leaves on a tray, a colour picture.", samples::draw_leaf_tray, samples::leaf_tray_workflow},
      Kind{"Three rows of six plants in five 16-bit bands and a colour preview.", samples::draw_plot_five_bands,
           samples::plot_five_bands_workflow},
      Kind{"Two leaves in chlorophyll fluorescence, one of them partly stressed.", samples::draw_leaf_fluorescence,
           samples::leaf_fluorescence_workflow},
      Kind{"Twenty-six seeds and beads in a dish, a colour picture.", samples::draw_dish_objects,
           samples::dish_objects_workflow},
      Kind{"Twelve tiles of known reflectance under uneven light, with pictures of white and dark.",
           samples::draw_reflectance_tiles, samples::reflectance_tiles_workflow},
  };
  std::vector<SampleReport> reports(kinds.size());
  common::parallel_for(kinds.size(), [&](std::size_t i) {
    reports[i] = write_sample(folder, kinds[i].shows, kinds[i].draw(), kinds[i].workflow());
  });
  if (options.count > 0) reports.push_back(write_series(folder, options.count));
  return reports;
}

}  // namespace orvexa::model

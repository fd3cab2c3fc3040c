#include "orvexa/controller/intermediate_files.h"

#include <fmt/format.h>

#include <string_view>
#include <tuple>
#include <vector>

#include "orvexa/common/serialisation.h"
#include "orvexa/common/text.h"
#include "orvexa/model/codecs/image_file.h"
#include "orvexa/model/workflow/metrics_files.h"
#include "orvexa/model/workflow/provenance.h"
#include "orvexa/model/workflow/results_folder.h"

namespace orvexa::controller {

namespace {

std::string folder_name(const IntermediatePlace& place, std::string_view kind, const std::string& op) {
  return fmt::format("{}_{}_{}_{}", place.capture_name, kind, place.number, op);
}

void write_text(model::ResultsFolder& folder, const Path& file, std::string_view text,
                const model::RunContext& context) {
  folder.write(file, common::as_byte_span(text), context);
}

void write_provenance(model::ResultsFolder& folder, const model::ProvenanceRecord& record,
                      const model::RunContext& context) {
  write_text(folder, "provenance.json", common::json_text(model::provenance_document(record)), context);
}

void write_image(model::ResultsFolder& folder, const Path& stem, const model::Image& image,
                 const model::RunContext& context) {
  if (image.type() == model::PixelType::f32) {
    folder.write(Path(stem) += ".tif", model::encode_tiff(image, context), context);
  } else {
    folder.write(Path(stem) += ".png", model::encode_png(image, context), context);
  }
}

model::MetricsReport report_of(const IntermediatePlace& place, const Controller::OperationIntermediate& intermediate) {
  model::OperationResult result = intermediate.operation_result;
  model::drop_values_that_are_no_numbers(result);
  std::vector<std::string> regions;
  for (const auto& [name, region] : result.regions) regions.push_back(name);
  model::MetricsReport report{.capture_name = common::to_valid_utf8(place.capture_name)};
  report.bundle.results.insert({intermediate.operation_config.op, std::move(result)});
  report.regions = model::gather_regions(regions, report.bundle);
  if (const auto& header = intermediate.masked_capture_used->header) {
    std::tie(report.date, report.time) = header->get_capture_name_and_time();
  }
  return report;
}

}  // namespace

Path save_mask_intermediate(const IntermediatePlace& place, const Controller::MaskIntermediate& intermediate,
                            const model::RunContext& context) {
  model::ResultsFolder folder(place.output_base_dir, folder_name(place, "step", intermediate.mask_operation.op));
  folder.write("mask.png", model::encode_mask_png(intermediate.mask, context), context);
  model::FileNames names;
  for (const auto& [measurement, images] : intermediate.masked_images) {
    for (const auto& [name, image] : images) {
      if (!image.is_array()) continue;
      context.check();
      write_image(folder, Path("images") / names.unique(fmt::format("{}_{}", measurement, name)), image.pixels(),
                  context);
    }
  }
  write_provenance(folder, intermediate.provenance, context);
  return folder.publish();
}

Path save_operation_intermediate(const IntermediatePlace& place, const Controller::OperationIntermediate& intermediate,
                                 const model::RunContext& context) {
  const std::string& op = intermediate.operation_config.op;
  model::ResultsFolder folder(place.output_base_dir, folder_name(place, "operation", op));
  const model::MetricsReport report = report_of(place, intermediate);
  write_text(folder, "metrics.json", common::json_text(model::metrics_document(report)), context);
  write_text(folder, "metrics.tsv", model::metrics_table(report), context);
  model::FileNames tables;
  for (const auto& [name, table] : intermediate.operation_result.tables) {
    write_text(folder, Path("tables") / (tables.unique(fmt::format("{}_{}", op, name)) + ".tsv"),
               model::table_text(table), context);
  }
  model::FileNames images;
  for (const auto& [name, image] : intermediate.operation_result.images) {
    const Path stem = Path("images") / images.unique(fmt::format("{}_{}", op, name));
    write_image(folder, stem, image.picture, context);
    if (image.numbers) write_image(folder, stem, *image.numbers, context);
  }
  write_provenance(folder, intermediate.provenance, context);
  return folder.publish();
}

}  // namespace orvexa::controller

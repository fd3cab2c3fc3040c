#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/session.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/workflow/provenance.h"

namespace orvexa::cli {

namespace {

common::Value band_document(const model::BandInfo& band) {
  common::Value document = common::Value::object();
  if (band.centre_nm) document["centre_nm"] = *band.centre_nm;
  if (band.width_nm) document["width_nm"] = *band.width_nm;
  return document;
}

common::Value capture_document(const model::CaptureSet& capture) {
  const model::Shape shape = capture.get_shape();
  common::Value document = {{"capture", common::to_valid_utf8(capture.name)}};
  if (capture.header) {
    const auto [date, time] = capture.header->get_capture_name_and_time();
    document["date"] = date;
    document["time"] = time;
    document["camera"] = capture.header->camera;
  }
  document["height"] = shape.height;
  document["width"] = shape.width;
  if (const auto scale = capture.millimetres_per_pixel()) document["millimetres_per_pixel"] = *scale;

  common::Value measurements = common::Value::array();
  for (const std::string& measurement : capture.get_measurement_types()) {
    common::Value images = common::Value::array();
    for (const std::string& name : capture.image_names(measurement)) {
      const auto image = capture.find_image(measurement, name);
      if (!image) continue;
      const model::WhiteLevel white = capture.white_level(measurement, name);
      common::Value entry = {{"name", name},
                             {"type", model::pixel_type_text(image->type())},
                             {"channels", image->channels()},
                             {"white_level", white.counts},
                             {"white_level_is_declared", white.is_declared}};
      if (const auto band = capture.find_band(name)) entry["band"] = band_document(*band);
      images.push_back(std::move(entry));
    }
    measurements.push_back({{"name", measurement}, {"images", std::move(images)}});
  }
  document["measurements"] = std::move(measurements);
  if (const auto references = model::reference_records(capture); !references.empty()) {
    document["references"] = model::references_document(references);
  }

  common::Value files = common::Value::array();
  for (const model::SourceFile& source : capture.sources) {
    files.push_back({{"path", common::path_text(source.path)}, {"bytes", source.bytes}, {"sha256", source.sha256}});
  }
  document["files"] = std::move(files);
  return document;
}

std::string band_text(const common::Value& image) {
  if (!image.contains("band")) return "";
  const common::Value& band = image.at("band");
  std::string text;
  if (band.contains("centre_nm")) text += fmt::format("centre {} nm", short_value_text(band.at("centre_nm")));
  if (band.contains("width_nm")) {
    text += fmt::format("{}width {} nm", text.empty() ? "" : ", ", short_value_text(band.at("width_nm")));
  }
  return text;
}

/// A path below the current folder without what leads there; any other as it is.
std::string short_path_text(const std::string& path) {
  std::error_code unknown;
  const std::filesystem::path here = std::filesystem::current_path(unknown);
  if (unknown) return common::visible_text(path);
  const std::filesystem::path from_here = std::filesystem::path(path).lexically_proximate(here);
  return common::visible_text(*from_here.begin() == ".." ? path : from_here.string());
}

/// "4000", "250, 245, 240" or the name of a file.
std::string level_text(const common::Value& level) {
  if (level.is_object()) {
    const std::string page = level.contains("page") ? fmt::format("[{}]", level.at("page").get<int>()) : "";
    return short_path_text(level.at("path").get<std::string>()) + page;
  }
  if (!level.is_array()) return short_value_text(level);
  std::vector<std::string> numbers;
  for (const common::Value& number : level) numbers.push_back(short_value_text(number));
  return common::joined(numbers, ", ");
}

/// What makes reflectance of counts; empty where nothing does.
std::string references_text(const common::Value& document) {
  if (!document.contains("references")) return "";
  TextTable table({false, false, false, true});
  table.add({"Reference", "White", "Dark", "Reflectance of white"});
  for (const common::Value& reference : document.at("references")) {
    table.add({reference.at("image"), level_text(reference.at("white")), level_text(reference.at("dark")),
               short_value_text(reference.at("reflectance"))});
  }
  return table.text() + "\n";
}

/// The document as lines for the eye.
std::string capture_text(const common::Value& document) {
  TextTable facts;
  const auto add = [&](const char* label, const std::string& value) {
    if (!value.empty()) facts.add({label, common::visible_text(value)});
  };
  add("Capture", document.at("capture"));
  add("Date", document.value("date", ""));
  add("Time", document.value("time", ""));
  add("Camera", document.value("camera", ""));
  add("Size", fmt::format("{} x {} pixels (width x height)", document.at("width").get<int>(),
                          document.at("height").get<int>()));
  add("Scale", document.contains("millimetres_per_pixel")
                   ? short_value_text(document.at("millimetres_per_pixel")) + " mm per pixel"
                   : "not declared");

  TextTable images({false, false, false, false, true});
  images.add({"Measurement", "Image", "Type", "Channels", "White level", "", "Band"});
  for (const common::Value& measurement : document.at("measurements")) {
    for (const common::Value& image : measurement.at("images")) {
      images.add({measurement.at("name"), image.at("name"), image.at("type"),
                  image.at("channels") == 3 ? "R, G, B" : "1", short_value_text(image.at("white_level")),
                  image.at("white_level_is_declared") ? "declared" : "by type", band_text(image)});
    }
  }

  TextTable files({false, true});
  files.add({"File", "Bytes", "SHA-256"});
  for (const common::Value& file : document.at("files")) {
    files.add({short_path_text(file.at("path").get<std::string>()),
               common::grouped_integer_text(file.at("bytes").get<std::int64_t>()),
               file.at("sha256").get<std::string>().substr(0, 16)});
  }
  return facts.text() + "\n" + images.text() + "\n" + references_text(document) + files.text();
}

int info_command(Console& console, const GivenWords& given) {
  controller::Controller controller;
  controller.set_processing_mode("batch");
  load_capture(controller, given.text("CAPTURE"));
  const common::Value document = capture_document(*controller.state.current_capture);
  if (console.json) {
    console.answer_json(document);
  } else {
    console.answer(capture_text(document));
  }
  return exit_done;
}

}  // namespace

const CommandInfo& info_command_info() {
  static const CommandInfo info{
      .name = "info",
      .summary = "Show what a capture holds: measurements, images, sizes, types, white level, date",
      .arguments = {{.name = "CAPTURE",
                     .help = "A header file HDR_*.INF, or an ordinary image file",
                     .kind = WordKind::file}},
      .examples = {"orvexa info captures/HDR_plot_0007.INF"},
      .run = info_command};
  return info;
}

}  // namespace orvexa::cli

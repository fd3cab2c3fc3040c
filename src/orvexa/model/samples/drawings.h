#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/model/image.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::model::samples {

/// A drawn capture with what is known about it.
struct Drawing {
  std::string name;
  std::string header;                                 ///< text of HDR_<name>.INF
  std::vector<std::pair<std::string, Image>> images;  ///< file name to pixels; .png and .tif
  /// {"metrics": {name: value}, "regions": {region: {name: value}}} of the workflow's results
  common::Value expected = common::Value::object();
  /// Each drawn object's label 1.. and 0 elsewhere, 32-bit: the truth behind the answers.
  cv::Mat labels;
};

[[nodiscard]] Drawing draw_leaf_tray();
[[nodiscard]] Workflow leaf_tray_workflow();

[[nodiscard]] Drawing draw_plot_five_bands();
[[nodiscard]] Workflow plot_five_bands_workflow();

/// Plot number `number` of a series: 160 x 120 pixels, green, red and near infrared, 2 to 6 plants.
[[nodiscard]] Drawing draw_series_plot(const std::string& name, int number);
[[nodiscard]] Workflow series_workflow();

[[nodiscard]] Drawing draw_leaf_fluorescence();
[[nodiscard]] Workflow leaf_fluorescence_workflow();

[[nodiscard]] Drawing draw_dish_objects();
[[nodiscard]] Workflow dish_objects_workflow();

[[nodiscard]] Drawing draw_reflectance_tiles();
[[nodiscard]] Workflow reflectance_tiles_workflow();

}  // namespace orvexa::model::samples

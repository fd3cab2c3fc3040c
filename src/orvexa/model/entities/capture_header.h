#pragma once

#include <optional>
#include <string>
#include <utility>

#include "orvexa/common/ordered_map.h"

namespace orvexa::model {

/// What the header file of a capture says besides its images.
struct CaptureHeader {
  std::string name;
  std::string date;  ///< as written; empty when the header has none
  std::string time;  ///< as written; empty when the header has none
  std::string camera;
  std::optional<double> millimetres_per_pixel;
  /// For all measurements that declare none of their own and whose pixels can hold it: the white of 12-bit bands is not
  /// that of the 8-bit preview beside them.
  std::optional<double> white_level;

  /// (date, time)
  [[nodiscard]] std::pair<std::string, std::string> get_capture_name_and_time() const { return {date, time}; }
};

}  // namespace orvexa::model

#include "orvexa/controller/numerical_results.h"

#include <fmt/format.h>

#include <map>

#include "orvexa/common/text.h"

namespace orvexa::controller {

std::string numerical_results_text(const model::ResultMap& results, const std::string& capture_name,
                                   common::TimePoint generated) {
  std::map<std::string, std::string> values;  // bytes of UTF-8 sort as code points do
  for (const auto& [key, result] : results) {
    if (!result.metrics.is_object()) continue;
    for (const auto& [name, value] : result.metrics.items()) {
      if (value.is_number() || value.is_boolean()) values[name] = common::scalar_text(value);
    }
  }
  std::string text =
      "# Orvexa Numerical Results\n# Generated: " + common::local_time_text(generated, "%Y-%m-%d %H:%M:%S") +
      "\n# Capture: " + capture_name + "\n#\n";
  for (const auto& [name, value] : values) text += fmt::format("{}={}\n", name, value);
  return text;
}

}  // namespace orvexa::controller

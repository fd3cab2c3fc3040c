#include "orvexa/common/version.h"

#include <array>
#include <utility>

namespace orvexa::common {

std::string_view program_version() {
  return ORVEXA_VERSION;
}

std::string_view build_text() {
  return ORVEXA_BUILD;
}

std::string_view built_with(std::string_view library) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> versions{{
      {"giflib", ORVEXA_WITH_GIF},
      {"oneTBB", ORVEXA_WITH_TBB},
      {"yaml-cpp", ORVEXA_WITH_YAML},
  }};
  for (const auto& [name, version] : versions) {
    if (name == library) return version;
  }
  return {};
}

}  // namespace orvexa::common

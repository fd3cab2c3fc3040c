#pragma once

#include <string>
#include <string_view>

#include "orvexa/controller/batch_reports.h"

namespace orvexa::test {

inline std::string table_text(const controller::BatchTable& table) {
  std::string text;
  table.write([&](std::string_view piece) { text += piece; });
  return text;
}

}  // namespace orvexa::test

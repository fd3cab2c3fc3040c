#include "support/places.h"

namespace orvexa::test {

std::filesystem::path source_folder() {
  return ORVEXA_SOURCE_DIR;
}

std::string program() {
  return ORVEXA_COMMAND;
}

}  // namespace orvexa::test

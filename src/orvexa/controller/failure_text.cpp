#include "orvexa/controller/failure_text.h"

#include <exception>

namespace orvexa::controller {

std::string failure_text() {
  try {
    throw;
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "an unknown failure";
  }
}

}  // namespace orvexa::controller

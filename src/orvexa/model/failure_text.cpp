#include "orvexa/model/failure_text.h"

#include <fmt/format.h>

#include <exception>
#include <new>
#include <opencv2/core.hpp>

namespace orvexa::model {

std::string failure_text() {
  constexpr const char* no_memory = "There is not enough memory.";
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return no_memory;
  } catch (const cv::Exception& failure) {
    if (failure.code == cv::Error::StsNoMem) return no_memory;
    return fmt::format("The image library failed in {}: {}.", failure.func, failure.err);
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "It failed without saying why.";
  }
}

}  // namespace orvexa::model

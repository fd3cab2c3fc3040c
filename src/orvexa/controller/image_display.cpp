#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

void Controller::show_image_in_viewer(const model::ImageEntry& image_data, const std::string& context_info,
                                      const std::string& /*measurement_type*/, const std::string& image_key) {
  try {
    events.image_selected.emit(context_info, image_key, image_data);
    state.message = "Displaying: " + context_info;
  } catch (...) {
    state.error = "Failed to display image: " + model::failure_text();
  }
}

void Controller::show_image_in_viewer_without_refresh(const model::ImageEntry& image_data,
                                                      const std::string& context_info,
                                                      const std::string& measurement_type,
                                                      const std::string& image_key) {
  show_image_in_viewer(image_data, context_info, measurement_type, image_key);
}

}  // namespace orvexa::controller

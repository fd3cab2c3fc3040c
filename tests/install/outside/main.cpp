#include <iostream>

#include "orvexa/controller/controller.h"

int main() {
  orvexa::controller::Controller controller;
  const auto workflow = controller.new_empty_workflow("from outside");
  const bool is_known = controller.get_available_mask_operations().contains("threshold_auto");
  std::cout << workflow->title << ": " << workflow->mask_operations.size() << " steps, threshold_auto is "
            << (is_known ? "known" : "unknown") << "\n";
}

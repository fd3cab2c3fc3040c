#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

const MaskOperationInfo& erode_info() {
  static const MaskOperationInfo info = morphology_info(
      {.key = "erode",
       .display_name = "Erode",
       .summary = "Shrinks the mask at its rims.",
       .definition = "Erosion keeps the pixels p for which the element at p lies wholly inside the mask.",
       .grows = false,
       .steps = {MorphologyStep::erosion}});
  return info;
}

}  // namespace orvexa::model

#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

const MaskOperationInfo& dilate_info() {
  static const MaskOperationInfo info = morphology_info(
      {.key = "dilate",
       .display_name = "Dilate",
       .summary = "Grows the mask at its rims.",
       .definition = "Dilation sets the pixels p for which the element at p touches the mask. It stays inside the "
                     "regions of interest chosen so far, or inside the image where there are none.",
       .grows = true,
       .steps = {MorphologyStep::dilation}});
  return info;
}

}  // namespace orvexa::model

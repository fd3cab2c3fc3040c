#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

const MaskOperationInfo& open_info() {
  static const MaskOperationInfo info = morphology_info(
      {.key = "open",
       .display_name = "Open",
       .summary = "Removes what is too narrow for the element: specks, hairs and thin bridges.",
       .definition = "Opening is erosion followed by dilation, so it keeps the pixels that some element wholly inside "
                     "the mask covers. With several iterations all erosions come first.",
       .grows = false,
       .steps = {MorphologyStep::erosion, MorphologyStep::dilation}});
  return info;
}

}  // namespace orvexa::model

#include "orvexa/model/mask_operations/morphology.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

const MaskOperationInfo& close_info() {
  static const MaskOperationInfo info = morphology_info(
      {.key = "close",
       .display_name = "Close",
       .summary = "Fills what is too narrow for the element: small holes, gaps and notches.",
       .definition = "Closing is dilation followed by erosion. With several iterations all dilations come first. It "
                     "stays inside the regions of interest chosen so far, or inside the image where there are none.",
       .grows = true,
       .steps = {MorphologyStep::dilation, MorphologyStep::erosion}});
  return info;
}

}  // namespace orvexa::model

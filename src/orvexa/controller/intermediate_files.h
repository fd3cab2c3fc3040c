#pragma once

#include <string>

#include "orvexa/common/files.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/run_context.h"

namespace orvexa::controller {

/// Where intermediate results go and what they are named after.
struct IntermediatePlace {
  Path output_base_dir;
  std::string capture_name;
  int number = 1;  ///< of the step, counted from 1 among those of its kind
};

/// Writes what the mask steps up to one of them leave into a new folder `<capture>_step_<number>_<op>`: mask.png, and
/// images/<measurement>_<image>, each image with 0 outside the mask in its own type (.png, 32-bit float .tif). Beside
/// it provenance.json says where it came from, as that of a run, but for the bands that the mask steps chose.
/// @return the folder, which appears complete or not at all.
/// @throws std::runtime_error with a sentence; model::CancelledError.
[[nodiscard]] Path save_mask_intermediate(const IntermediatePlace& place,
                                          const Controller::MaskIntermediate& intermediate,
                                          const model::RunContext& context = {});

/// Writes what one result operation found into a new folder `<capture>_operation_<number>_<op>`: metrics.json,
/// metrics.tsv, tables and images as in a results folder, and provenance.json as above.
[[nodiscard]] Path save_operation_intermediate(const IntermediatePlace& place,
                                               const Controller::OperationIntermediate& intermediate,
                                               const model::RunContext& context = {});

}  // namespace orvexa::controller

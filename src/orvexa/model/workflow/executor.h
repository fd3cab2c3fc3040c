#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvexa/common/cancel.h"
#include "orvexa/common/ordered_map.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::model {

using ProgressCallback = std::function<void(const std::string&)>;

/// What a run gives back: results by operation, the folder it made, and each region's metrics over all operations, as
/// in metrics.json (an empty map where a region has none).
struct RunOutput {
  ResultBundle bundle;
  std::filesystem::path results_folder;
  common::OrderedMap<common::Value> region_metrics;
  std::vector<MaskNote> mask_notes;  ///< what mask steps remarked, such as a picture without contrast
};

/// Runs workflows on captures. Stateless: one instance may serve one run after another. Virtual so that a test can put
/// something else in its place.
class Executor {
 public:
  virtual ~Executor() = default;

  /// The mask after the workflow's mask steps 0..until_index, all of them when it is absent; all true when there are no
  /// steps.
  /// @param cancel_event  may be null; must outlive the call.
  /// @throws std::runtime_error with a sentence that names the step that failed and why; std::out_of_range with a
  /// sentence when there is no such step; CancelledError.
  [[nodiscard]] virtual Mask build_mask(const CaptureSet& capture, const Workflow& workflow,
                                        std::optional<int> until_index = std::nullopt,
                                        const common::CancelEvent* cancel_event = nullptr);

  struct Run {
    std::shared_ptr<const CaptureSet> capture = nullptr;
    std::shared_ptr<const Workflow> wf = nullptr;
    std::filesystem::path output_base_dir = {};
    std::string capture_name = {};
    ProgressCallback progress_cb = {};  ///< may be empty
    const common::CancelEvent* cancel_event = nullptr;
  };
  /// Runs the workflow and writes its outputs into a new folder inside `output_base_dir`. The folder appears complete
  /// or not at all. A result operation that fails puts its sentence under `error` and the others go on; a mask step
  /// that fails ends the run, and one that cannot work ends it before anything is made. A result operation that stands
  /// in the workflow again is not run again: the first one's result gets a sentence under `error` and keeps its
  /// metrics. An operation whose required measurement or mask operation is missing reports that under `error`.
  ///
  /// What is written is chosen by the workflow's `outputs` (absent = all of it); workflow.yaml and provenance.json are
  /// always there:
  /// - "masks": masks/NN_<op>.png of each step's accumulated mask and masks/final.png, one bit a pixel; where the final
  ///   mask has named regions also masks/regions.tif: k at the pixels of the k-th region of metrics.tsv, else 0.
  /// - "overlays": overlays/<measurement>_<image>.png, the final mask drawn on each image.
  /// - "images": images/<operation>_<name>.png and, where there are numbers behind it, .tif (32-bit float).
  /// - "numbers": metrics.json, metrics.tsv, tables/<operation>_<name>.tsv.
  /// @throws std::runtime_error with a sentence; CancelledError ("... cancelled by user").
  [[nodiscard]] virtual RunOutput run_and_save(const Run& run);
};

}  // namespace orvexa::model

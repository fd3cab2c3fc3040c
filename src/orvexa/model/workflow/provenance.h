#pragma once

#include <memory>
#include <string>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::model {

/// One step of a run as the record keeps it.
struct StepRecord {
  std::string op;
  common::Value params = common::Value::object();        ///< completed; as given where they could not be completed
  common::Value chosen_bands = common::Value::object();  ///< as the operation reported them; null where nobody asked
};

/// The reference that made reflectance of an image's counts.
struct ReferenceRecord {
  std::string image;  ///< "MSP.NIR"
  std::shared_ptr<const Reference> reference;
};
/// Those of all images that have one.
[[nodiscard]] std::vector<ReferenceRecord> reference_records(const ImageSource& capture);

/// [{"image", "white", "dark", "reflectance"}]; white and dark are a number, three of them, or {"path", "sha256",
/// "page" where one was asked for}.
[[nodiscard]] common::Value references_document(const std::vector<ReferenceRecord>& references);

/// Where results came from.
struct ProvenanceRecord {
  std::string capture_name = {};
  std::string part = {};  ///< "result operation 3 (area)" where that was all that ran
  std::vector<SourceFile> sources = {};
  std::vector<ReferenceRecord> references = {};
  std::vector<SourceFile> files = {};  ///< that parameters name, and what belongs to them
  std::string workflow_sha256 = {};    ///< where there are such files, see `workflow_sha256`
  std::vector<StepRecord> mask_steps = {};
  std::vector<StepRecord> result_steps = {};
  common::TimePoint started = {};
  common::TimePoint finished = {};
};

/// What a run of the workflow on the capture reads, when it begins; what the steps do is added as they do it.
[[nodiscard]] ProvenanceRecord begun_record(const CaptureSet& capture, const Workflow& workflow,
                                            std::string capture_name);

/// Versions of the libraries whose code touches pixels, numbers and files.
[[nodiscard]] common::Value library_versions();

/// The content of provenance.json:
/// {"format": 1, "program": {"name", "version", "build"}, "libraries": {name: version}, "capture", "part" where it is
/// one,
///  "inputs": [{"path" (absolute), "sha256", "bytes", "page" where one was asked for}], the file that was loaded
///  first, "references" as `references_document` where there are any, "files": [{"path", "sha256", "bytes"}] that
///  parameters name and "workflow_sha256" where there are any, "started", "finished" (local time with its offset from
///  UTC), "duration_seconds", "threads", "mask_operations": [{"op", "params", "bands" where they are known}],
///  "result_operations": likewise}
[[nodiscard]] common::Value provenance_document(const ProvenanceRecord& record);

}  // namespace orvexa::model

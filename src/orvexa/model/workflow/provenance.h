#pragma once

#include <string>
#include <vector>

#include "orvexa/common/clock.h"
#include "orvexa/common/value.h"
#include "orvexa/model/entities/capture_set.h"

namespace orvexa::model {

/// One step of a run as the record keeps it.
struct StepRecord {
  std::string op;
  common::Value params = common::Value::object();        ///< completed; as given where they could not be completed
  common::Value chosen_bands = common::Value::object();  ///< as the operation reported them
};

/// Where results came from.
struct ProvenanceRecord {
  std::string capture_name = {};
  std::vector<SourceFile> sources = {};
  std::vector<StepRecord> mask_steps = {};
  std::vector<StepRecord> result_steps = {};
  common::TimePoint started = {};
  common::TimePoint finished = {};
};

/// Versions of the libraries whose code touches pixels, numbers and files.
[[nodiscard]] common::Value library_versions();

/// The content of provenance.json:
/// {"format": 1, "program": {"name", "version", "build"}, "libraries": {name: version}, "capture",
///  "inputs": [{"path" (absolute), "sha256", "bytes", "page" where one was asked for}], the file that was loaded
///  first, "started", "finished" (local time with its offset from UTC),
///  "duration_seconds", "threads",
///  "mask_operations": [{"op", "params", "bands"}], "result_operations": [{"op", "params", "bands"}]}
[[nodiscard]] common::Value provenance_document(const ProvenanceRecord& record);

}  // namespace orvexa::model

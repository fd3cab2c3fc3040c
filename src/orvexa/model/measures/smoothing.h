#pragma once

#include <string_view>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameters and, behind them, those of the filter that an operation on a band may let run before it: `smooth`
/// (none, gaussian, median, bilateral), `smooth_sigma`, `smooth_radius`, `smooth_range`.
[[nodiscard]] ParameterList with_smoothing(ParameterList parameters);

/// Sentences about the filters for the operation's description.
[[nodiscard]] const char* smoothing_text();

/// @param operation  its key, for the sentence.
/// @param params  completed and each checked.
/// @throws std::invalid_argument with a sentence for a size that the chosen filter does not have, or does not look at.
void check_smoothing(std::string_view operation, const Value& params);

/// The band's plane alone, filtered as the parameters say; name and white level are the band's. The whole picture is
/// filtered, whatever the mask: a filter belongs to the picture that is looked at. None and median keep the picture's
/// type, gaussian and bilateral give counts in 32-bit float. Values that are not finite do not count and stay as they
/// are.
[[nodiscard]] Band smoothed(const Band& band, const Value& params, const RunContext& context);

}  // namespace orvexa::model

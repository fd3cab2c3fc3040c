#pragma once

#include <string>

namespace orvexa::model {

/// The failure that is being handled as a text for people: its own words, but a sentence of ours where it comes from
/// the image library or from a lack of memory. Only inside a `catch`.
[[nodiscard]] std::string failure_text();

}  // namespace orvexa::model

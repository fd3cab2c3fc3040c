#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

#include "orvexa/common/cancel.h"

namespace orvexa::model {

/// A run was cancelled: not a failure of anything. Its text is "Processing cancelled by user".
class CancelledError : public std::runtime_error {
 public:
  CancelledError() : std::runtime_error("Processing cancelled by user") {}
};

/// What a running operation looks at and reports to. Both parts may be missing.
struct RunContext {
  const common::CancelEvent* cancel_event = nullptr;
  std::function<void(const std::string&)> progress;

  /// @throws CancelledError once the flag is set. Called at least ten times a second inside long work.
  void check() const {
    if (cancel_event != nullptr && cancel_event->is_set()) throw CancelledError();
  }
};

/// Calls `rows(y0, y1)` for stripes that cover [0, height), on several threads, with a look at the cancellation flag
/// before each stripe. The stripes' height depends only on the sizes, never on the number of threads, so a reduction
/// that adds one partial result a stripe in stripe order is the same every time.
/// @param width  pixels a row, to choose the stripes' height (about a quarter of a megapixel each).
void for_each_stripe(int height, int width, const RunContext& context, const std::function<void(int y0, int y1)>& rows);

/// Calls `piece(begin, end)` for pieces that cover [0, count) in order, with a look at the flag before each: for loops
/// over long lists that cannot run side by side.
void for_each_piece(std::size_t count, const RunContext& context,
                    const std::function<void(std::size_t begin, std::size_t end)>& piece);

/// How many stripes that makes and which one a row begins: for arrays of partial results.
[[nodiscard]] int stripe_count(int height, int width);
[[nodiscard]] int stripe_height(int width);

}  // namespace orvexa::model

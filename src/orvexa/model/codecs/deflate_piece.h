#pragma once

#include <cstdint>
#include <span>

#include "orvexa/common/files.h"

namespace orvexa::model::codecs {

/// Compresses a piece of a deflate stream (RFC 1951) quickly. Pieces begin and end with a whole byte and look at
/// nothing before them, so they can be made side by side and put one after another; the last one ends the stream.
///
/// Filtered rows of a photograph are differences whose frequencies alone give away nearly all there is to save; only
/// where most bytes repeat the one before them, as in masks and drawings, runs are looked for too. That took a tenth of
/// the time of zlib's level 6 for files of about the same size.
[[nodiscard]] common::Bytes deflate_piece(std::span<const std::uint8_t> bytes, bool is_last);

/// A whole stream as RFC 1950 frames it: two bytes before, the Adler-32 of the content behind.
[[nodiscard]] common::Bytes zlib_stream(std::span<const std::uint8_t> bytes);

}  // namespace orvexa::model::codecs

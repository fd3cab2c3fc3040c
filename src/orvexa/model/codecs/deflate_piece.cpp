#include "orvexa/model/codecs/deflate_piece.h"

#include <isa-l/igzip_lib.h>

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvexa::model::codecs {

namespace {

/// How many bytes the stream may take for so many: stored blocks of at most 64 KiB, each with five bytes before it, and
/// the ends of the piece and of its last block.
std::size_t most_bytes(std::size_t size) {
  return size + (size / 32768 + 1) * 5 + 1024;
}

}  // namespace

common::Bytes deflate_piece(std::span<const std::uint8_t> bytes, bool is_last) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max() / 2) {
    throw std::invalid_argument("A piece of a deflate stream holds 2 GiB at most.");
  }
  std::vector<std::uint8_t> workspace(ISAL_DEF_LVL1_DEFAULT);
  isal_zstream stream{};
  isal_deflate_init(&stream);
  stream.level = 1;
  stream.level_buf = workspace.data();
  stream.level_buf_size = static_cast<std::uint32_t>(workspace.size());
  stream.gzip_flag = IGZIP_DEFLATE;
  stream.flush = is_last ? NO_FLUSH : FULL_FLUSH;
  stream.end_of_stream = is_last ? 1 : 0;
  common::Bytes out(most_bytes(bytes.size()));
  stream.next_in = const_cast<std::uint8_t*>(bytes.data());
  stream.avail_in = static_cast<std::uint32_t>(bytes.size());
  stream.next_out = reinterpret_cast<std::uint8_t*>(out.data());
  stream.avail_out = static_cast<std::uint32_t>(out.size());
  const int status = isal_deflate(&stream);
  if (status != COMP_OK || stream.avail_in != 0 || stream.avail_out == 0) {
    throw std::logic_error("A piece of a deflate stream did not fit: ISA-L says " + std::to_string(status) + ".");
  }
  out.resize(stream.total_out);
  return out;
}

std::uint32_t adler32(std::span<const std::uint8_t> bytes) {
  return isal_adler32(1, bytes.data(), bytes.size());
}

common::Bytes zlib_stream(std::span<const std::uint8_t> bytes) {
  common::Bytes out{std::byte{0x78}, std::byte{0x01}};  // deflate with a window of 32 KiB; quickest level
  const common::Bytes piece = deflate_piece(bytes, true);
  out.insert(out.end(), piece.begin(), piece.end());
  const std::uint32_t adler = adler32(bytes);
  for (const int shift : {24, 16, 8, 0}) out.push_back(static_cast<std::byte>(adler >> shift & 0xff));
  return out;
}

}  // namespace orvexa::model::codecs

#include "orvexa/model/codecs/deflate_piece.h"

#include <zlib.h>

#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace orvexa::model::codecs {

namespace {

bool mostly_repeats(std::span<const std::uint8_t> bytes) {
  std::size_t repeats = 0;
  for (std::size_t i = 1; i < bytes.size(); ++i) repeats += bytes[i] == bytes[i - 1] ? 1 : 0;
  return repeats > bytes.size() / 2;
}

}  // namespace

common::Bytes deflate_piece(std::span<const std::uint8_t> bytes, bool is_last) {
  constexpr int level = 1;
  constexpr int raw_stream = -15;
  constexpr int most_memory = 9;
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, raw_stream, most_memory,
                   mostly_repeats(bytes) ? Z_RLE : Z_HUFFMAN_ONLY) != Z_OK) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<z_stream, decltype(&deflateEnd)> end(&stream, &deflateEnd);
  constexpr std::size_t end_of_piece = 16;
  common::Bytes out(deflateBound(&stream, static_cast<uLong>(bytes.size())) + end_of_piece);
  stream.next_in = const_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = deflate(&stream, is_last ? Z_FINISH : Z_FULL_FLUSH);
  if (status != (is_last ? Z_STREAM_END : Z_OK) || stream.avail_in != 0 || stream.avail_out == 0) {
    throw std::logic_error("A piece of a deflate stream did not fit: zlib says " + std::to_string(status) + ".");
  }
  out.resize(stream.total_out);
  return out;
}

common::Bytes zlib_stream(std::span<const std::uint8_t> bytes) {
  common::Bytes out{std::byte{0x78}, std::byte{0x01}};  // deflate with a window of 32 KiB; quickest level
  const common::Bytes piece = deflate_piece(bytes, true);
  out.insert(out.end(), piece.begin(), piece.end());
  const auto adler = static_cast<std::uint32_t>(adler32_z(1, bytes.data(), bytes.size()));
  for (const int shift : {24, 16, 8, 0}) out.push_back(static_cast<std::byte>(adler >> shift & 0xff));
  return out;
}

}  // namespace orvexa::model::codecs

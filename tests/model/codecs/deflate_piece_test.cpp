#include "orvexa/model/codecs/deflate_piece.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <random>
#include <vector>

namespace orvexa::model::codecs {
namespace {

using Octets = std::vector<std::uint8_t>;

constexpr int raw = -15;
constexpr int framed = 15;

/// What zlib reads from a stream; a failure when it is not whole, not right, or has something behind it.
Octets inflated(const common::Bytes& stream, std::size_t size, int frame = raw) {
  Octets out(size + 1);  // room for one too many
  z_stream z{};
  EXPECT_EQ(inflateInit2(&z, frame), Z_OK);
  z.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(stream.data()));
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(inflate(&z, Z_FINISH), Z_STREAM_END) << (z.msg == nullptr ? "" : z.msg);
  EXPECT_EQ(z.avail_in, 0U);
  out.resize(z.total_out);
  inflateEnd(&z);
  return out;
}

Octets noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Octets bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

TEST(DeflatePiece, GivenNothingOrAFewBytes_ThenTheyAreReadBack) {
  for (const Octets& bytes : {Octets{}, Octets{7}, Octets{0, 255}, Octets(9, 9)}) {
    EXPECT_EQ(inflated(deflate_piece(bytes, true), bytes.size()), bytes);
    EXPECT_EQ(inflated(zlib_stream(bytes), bytes.size(), framed), bytes);
  }
}

TEST(DeflatePiece, GivenNoise_ThenItIsReadBackAndHardlyGrows) {
  const Octets bytes = noise(300'000, 1);
  const common::Bytes packed = deflate_piece(bytes, true);
  EXPECT_EQ(inflated(packed, bytes.size()), bytes);
  EXPECT_LT(packed.size(), bytes.size() + bytes.size() / 64);
}

TEST(DeflatePiece, GivenLongRuns_ThenTheSizeIsATinyPart) {
  const Octets bytes(1'000'000, 0);
  const common::Bytes packed = deflate_piece(bytes, true);
  EXPECT_EQ(inflated(packed, bytes.size()), bytes);
  EXPECT_LT(packed.size(), bytes.size() / 500);
}

TEST(DeflatePiece, GivenPiecesOneAfterAnother_ThenTheyAreOneStreamWhateverIsInThem) {
  Octets all;
  common::Bytes stream;
  const std::vector<Octets> pieces{{}, {5}, noise(70'000, 2), Octets(90'000, 3), {}, noise(10, 3), Octets(12, 0)};
  for (std::size_t k = 0; k < pieces.size(); ++k) {
    const common::Bytes packed = deflate_piece(pieces[k], k + 1 == pieces.size());
    stream.insert(stream.end(), packed.begin(), packed.end());
    all.insert(all.end(), pieces[k].begin(), pieces[k].end());
  }
  EXPECT_EQ(inflated(stream, all.size()), all);
}

}  // namespace
}  // namespace orvexa::model::codecs

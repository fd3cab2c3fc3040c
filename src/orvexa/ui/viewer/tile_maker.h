#pragma once

#include <QImage>
#include <compare>
#include <memory>
#include <optional>
#include <vector>

#include "orvexa/model/run_context.h"
#include "orvexa/ui/viewer/picture.h"

namespace orvexa::ui::viewer {

/// The picture alone, or with the mask and the drawing over it.
enum class Layer { plain, overlaid };

/// Pictures are shown in levels: a pixel of level k stands for 2^k x 2^k pixels of the image, and each level is cut
/// into square tiles.
struct TileKey {
  Layer layer = Layer::plain;
  int level = 0;
  int column = 0;
  int row = 0;
  friend auto operator<=>(const TileKey&, const TileKey&) = default;
};

/// Side of a tile, in pixels of its level; the last ones in a row or column are smaller.
inline constexpr int tile_side = 256;

/// Size of a level: the image's, divided by 2^level and rounded up.
[[nodiscard]] model::Shape level_shape(model::Shape image, int level);
/// The first level that is a single tile.
[[nodiscard]] int top_level(model::Shape image);

/// Makes tiles of one picture at a time and keeps what they are made from. For one thread.
class TileMaker {
 public:
  /// Takes up a picture: works out its pixels, its range and its coarser levels, as far as they are not known from the
  /// picture before. The finest level is never kept: its tiles are made from the image itself.
  /// @throws model::CancelledError
  void take_up(const std::shared_ptr<const Picture>& picture, const model::RunContext& context);
  /// Of the picture that was taken up.
  [[nodiscard]] DisplayedRange range() const { return _range; }

  /// A tile of the picture that was taken up, 32-bit RGB. The colour of a pixel of a coarser level is the mean of the
  /// pixels it stands for; of a drawing it shows any pixel that was drawn, so that thin lines do not fade away.
  /// @param overlay  for the overlaid layer; null = nothing. Parts of another size than the picture are left out.
  [[nodiscard]] QImage tile(const TileKey& key, const MaskOverlay* overlay) const;

 private:
  /// 8 bits a channel, before any colour map.
  struct Level {
    model::Shape shape;
    std::vector<std::uint8_t> pixels;
  };
  void make_table();
  void make_levels(const model::RunContext& context);
  /// 8 bits a channel of pixels x0..x1-1 of row y of the image.
  void write_span(int y, int x0, int x1, std::uint8_t* to) const;
  void draw_mask(QImage& tile, const TileKey& key, const MaskOverlay& overlay) const;
  void copy_drawing(QImage& tile, const TileKey& key, const model::Image& drawing) const;

  std::shared_ptr<const Picture> _picture;
  std::optional<model::Image> _pixels;
  std::optional<DisplayedRange> _automatic_range;  ///< of `_pixels`, once it was needed
  DisplayedRange _range;
  std::vector<std::uint8_t> _table;  ///< count -> 0..255, for 8 and 16 bits
  std::vector<Level> _levels;        ///< from level 1 on
};

}  // namespace orvexa::ui::viewer

#pragma once

#include <QObject>
#include <QPainter>
#include <QRect>
#include <map>
#include <memory>
#include <vector>

#include "orvexa/ui/viewer/tile_maker.h"
#include "orvexa/ui/viewer/view_transform.h"
#include "orvexa/ui/workbench/worker.h"

namespace orvexa::ui::viewer {

/// The tiles of what is shown, made on a worker and drawn on the UI thread. What was shown stays until all visible
/// tiles of what takes its place are there, so that nothing flickers while a parameter is tuned; only another size of
/// image, or none, takes effect at once.
class TileStore : public QObject {
  Q_OBJECT

 public:
  explicit TileStore(Mailbox::Address mailbox);

  /// @param picture  null = nothing is shown from now on. With another size of image nothing is wanted until `want` is
  /// called.
  void show_picture(const std::shared_ptr<const Picture>& picture);
  /// @param overlay  for the overlaid layer; null = nothing.
  void show_overlay(const std::shared_ptr<const MaskOverlay>& overlay);

  /// What the view can see.
  struct Visible {
    int level = 0;
    QRect tiles = {};  ///< columns and rows; empty = nothing
    bool is_plain_seen = true;
    bool is_overlaid_seen = false;
    friend bool operator==(const Visible&, const Visible&) = default;
  };
  void want(const Visible& visible);

  /// Draws what there is of a layer: a wanted tile that is not there yet as a part of a coarser one.
  void draw(QPainter& painter, const ViewTransform& transform, const QRect& clip, Layer layer) const;
  /// Whether the newest picture and overlay are shown, with every tile that is wanted.
  [[nodiscard]] bool is_complete() const;

 Q_SIGNALS:
  /// There is something else to draw.
  void changed();
  /// The counts between which the newest picture is shown; once for each.
  void range_found(double low, double high);

 private:
  using Tiles = std::map<TileKey, QImage>;
  /// A picture under an overlay, and what was made of the two.
  struct Frame {
    std::shared_ptr<const Picture> picture;
    std::shared_ptr<const MaskOverlay> overlay;
    Tiles tiles;
    [[nodiscard]] bool is_of(const Frame& other) const { return picture == other.picture && overlay == other.overlay; }
  };
  using Keys = std::vector<TileKey>;

  /// Has made what is missing, unless something is being made.
  void advance();
  void order(const Frame& frame, Keys keys);
  void take(const Frame& made);
  /// Tiles of the layers that are seen, and for each the coarsest one, which stands in for those that are missing.
  [[nodiscard]] Keys missing_keys(const Frame& frame, const QRect& tiles) const;
  /// Tiles around the visible ones, which are seen next.
  [[nodiscard]] QRect tiles_nearby(const Frame& frame) const;
  void forget_far_tiles();
  void draw_tile(QPainter& painter, const ViewTransform& transform, const QRect& clip, const TileKey& key) const;

  Visible _visible;
  Frame _shown;
  Frame _coming;  ///< what takes its place when all of its tiles that can be seen are made
  Frame _next;    ///< what was asked for last, without tiles; what is being made is finished before
  std::shared_ptr<const Picture> _told;  ///< whose range was told
  bool _is_ordered = false;              ///< whether the worker makes tiles

  std::shared_ptr<TileMaker> _maker;  ///< touched by the worker alone
  Worker _worker;                     ///< last, so that it ends first
};

}  // namespace orvexa::ui::viewer

#include "orvexa/ui/viewer/tile_store.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::ui::viewer {

namespace {

model::Shape shape_of(const Picture& picture) {
  return picture.entry->shape();
}

/// Where a pixel edge of a level lies in the view: on a whole pixel, so that neighbouring tiles neither overlap nor
/// gape.
int edge_in_view(double origin, double scale, int edge, int level, int size) {
  const auto in_image = std::min<std::int64_t>(std::int64_t{edge} << level, size);
  return static_cast<int>(std::lround(origin + scale * static_cast<double>(in_image)));
}

struct Span {
  int begin;
  int end;
};

/// Those of a tile's pixels along one axis that lie between `from` and `to` in the view, and one more on each side.
Span seen_pixels(double origin, double pixel_px, Span view, Span tile) {
  const double first = std::floor((view.begin - origin) / pixel_px) - 1;
  const double last = std::ceil((view.end - origin) / pixel_px) + 1;
  return {static_cast<int>(std::clamp<double>(first, tile.begin, tile.end)),
          static_cast<int>(std::clamp<double>(last, tile.begin, tile.end))};
}

}  // namespace

TileStore::TileStore(Mailbox::Address mailbox)
    : _maker(std::make_shared<TileMaker>()), _worker(std::move(mailbox), "viewer") {}

void TileStore::show_picture(const std::shared_ptr<const Picture>& picture) {
  if (picture == _next.picture) return;
  const bool is_same_image = picture && _next.picture && picture->entry == _next.picture->entry;
  const bool is_same_size = picture && _next.picture && shape_of(*picture) == shape_of(*_next.picture);
  if (!is_same_size) _visible = {};  // tiles of another size of image: the view says anew what it sees
  _next.picture = picture;
  _told.reset();
  if (!is_same_image) {
    // Nobody waits for the rest of another image.
    _worker.drop();
    _is_ordered = false;
    _coming = {};
    if (!picture || (_shown.picture && shape_of(*_shown.picture) != shape_of(*picture))) _shown = {};
    Q_EMIT changed();
  }
  advance();
}

void TileStore::show_overlay(const std::shared_ptr<const MaskOverlay>& overlay) {
  if (overlay == _next.overlay) return;
  _next.overlay = overlay;
  advance();
}

void TileStore::want(const Visible& visible) {
  if (visible == _visible) return;
  _visible = visible;
  advance();
}

bool TileStore::is_complete() const {
  if (!_next.picture) return true;
  return _shown.is_of(_next) && missing_keys(_shown, _visible.tiles).empty();
}

void TileStore::advance() {
  if (_is_ordered || !_next.picture || _visible.tiles.isEmpty()) return;
  if (!_shown.is_of(_next)) {
    if (!_coming.is_of(_next)) {
      _coming = _next;
      if (_shown.picture == _coming.picture) {
        for (const auto& [key, tile] : _shown.tiles) {
          if (key.layer == Layer::plain) _coming.tiles.emplace(key, tile);
        }
      }
    }
    Keys keys = missing_keys(_coming, _visible.tiles);
    if (!keys.empty()) return order(_coming, std::move(keys));
    _shown = std::exchange(_coming, {});
    Q_EMIT changed();
  }
  Keys keys = missing_keys(_shown, _visible.tiles);
  if (keys.empty()) keys = missing_keys(_shown, tiles_nearby(_shown));
  if (!keys.empty()) order(_shown, std::move(keys));
}

void TileStore::order(const Frame& frame, Keys keys) {
  _is_ordered = true;
  _worker.start(
      [this, maker = _maker, picture = frame.picture, overlay = frame.overlay,
       keys = std::move(keys)](const Worker::Job& job) {
        const model::RunContext context{.cancel_event = &job.cancel_event(), .progress = {}};
        Frame made{.picture = picture, .overlay = overlay, .tiles = {}};
        try {
          maker->take_up(picture, context);
          for (const TileKey& key : keys) {
            context.check();
            made.tiles.emplace(key, maker->tile(key, overlay.get()));
          }
        } catch (const model::CancelledError&) {
          return;
        } catch (...) {
          // Out of memory, in all likelihood; the view stays as it is.
          common::logger.exception("The image could not be shown: " + model::failure_text());
          return;
        }
        job.deliver([this, made = std::move(made), range = maker->range()] {
          if (made.picture == _next.picture && made.picture != _told) {
            _told = made.picture;
            Q_EMIT range_found(range.low, range.high);
          }
          take(made);
        });
      },
      [this] { _is_ordered = false; });
}

void TileStore::take(const Frame& made) {
  _is_ordered = false;
  if (_shown.is_of(made)) {
    for (const auto& [key, tile] : made.tiles) _shown.tiles.insert_or_assign(key, tile);
    forget_far_tiles();
    Q_EMIT changed();
  } else if (_coming.is_of(made)) {
    for (const auto& [key, tile] : made.tiles) _coming.tiles.insert_or_assign(key, tile);
    // Also when something newer was asked for meanwhile: who tunes a parameter sees the masks on the way.
    if (missing_keys(_coming, _visible.tiles).empty()) {
      _shown = std::exchange(_coming, {});
      Q_EMIT changed();
    }
  }
  advance();
}

TileStore::Keys TileStore::missing_keys(const Frame& frame, const QRect& tiles) const {
  Keys keys;
  for (const Layer layer : {Layer::plain, Layer::overlaid}) {
    if (!(layer == Layer::plain ? _visible.is_plain_seen : _visible.is_overlaid_seen)) continue;
    const TileKey coarsest{.layer = layer, .level = top_level(shape_of(*frame.picture))};
    if (!frame.tiles.contains(coarsest)) keys.push_back(coarsest);
    for (int row = tiles.top(); row <= tiles.bottom(); ++row) {
      for (int column = tiles.left(); column <= tiles.right(); ++column) {
        const TileKey key{.layer = layer, .level = _visible.level, .column = column, .row = row};
        if (key != coarsest && !frame.tiles.contains(key)) keys.push_back(key);
      }
    }
  }
  return keys;
}

QRect TileStore::tiles_nearby(const Frame& frame) const {
  const auto [height, width] = level_shape(shape_of(*frame.picture), _visible.level);
  const QRect all(0, 0, (width + tile_side - 1) / tile_side, (height + tile_side - 1) / tile_side);
  return _visible.tiles.adjusted(-1, -1, 1, 1) & all;
}

void TileStore::forget_far_tiles() {
  // Room for several screens, so that going back and forth between two places or two levels makes nothing anew.
  constexpr std::size_t fewest_tiles = 256;
  const QRect& seen = _visible.tiles;
  const auto tiles_a_screen = static_cast<std::size_t>(seen.width()) * static_cast<std::size_t>(seen.height());
  if (_shown.tiles.size() <= std::max(fewest_tiles, 6 * tiles_a_screen)) return;
  const QRect near = seen.adjusted(-2, -2, 2, 2);
  const int top = top_level(shape_of(*_shown.picture));
  std::erase_if(_shown.tiles, [&](const auto& tile) {
    const TileKey& key = tile.first;
    return key.level != top && (key.level != _visible.level || !near.contains(key.column, key.row));
  });
}

void TileStore::draw(QPainter& painter, const ViewTransform& transform, const QRect& clip, Layer layer) const {
  if (!_shown.picture) return;
  const QRect& tiles = _visible.tiles;
  for (int row = tiles.top(); row <= tiles.bottom(); ++row) {
    for (int column = tiles.left(); column <= tiles.right(); ++column) {
      draw_tile(painter, transform, clip, {.layer = layer, .level = _visible.level, .column = column, .row = row});
    }
  }
}

void TileStore::draw_tile(QPainter& painter, const ViewTransform& transform, const QRect& clip,
                          const TileKey& key) const {
  const model::Shape image = shape_of(*_shown.picture);
  const model::Shape level = level_shape(image, key.level);
  const double pixel_px = std::ldexp(transform.scale, key.level);
  const QPoint corner(key.column * tile_side, key.row * tile_side);
  const Span columns = seen_pixels(transform.origin.x(), pixel_px, {clip.left(), clip.right() + 1},
                                   {corner.x(), std::min(corner.x() + tile_side, level.width)});
  const Span rows = seen_pixels(transform.origin.y(), pixel_px, {clip.top(), clip.bottom() + 1},
                                {corner.y(), std::min(corner.y() + tile_side, level.height)});
  const auto edge_x = [&](int x) {
    return edge_in_view(transform.origin.x(), transform.scale, x, key.level, image.width);
  };
  const auto edge_y = [&](int y) {
    return edge_in_view(transform.origin.y(), transform.scale, y, key.level, image.height);
  };
  const QRect target(QPoint(edge_x(columns.begin), edge_y(rows.begin)),
                     QPoint(edge_x(columns.end) - 1, edge_y(rows.end) - 1));
  if (target.isEmpty()) return;
  const QRect source(columns.begin, rows.begin, columns.end - columns.begin, rows.end - rows.begin);

  TileKey found = key;
  const int top = top_level(image);
  while (found.level < top && !_shown.tiles.contains(found)) {
    ++found.level;
    found.column /= 2;
    found.row /= 2;
  }
  const auto tile = _shown.tiles.find(found);
  if (tile == _shown.tiles.end()) return;
  if (found.level == key.level) {
    painter.drawImage(target, tile->second, source.translated(-corner));
    return;
  }
  const double shrunk = std::ldexp(1.0, key.level - found.level);
  const QPointF place(source.x() * shrunk - found.column * tile_side, source.y() * shrunk - found.row * tile_side);
  painter.drawImage(QRectF(target), tile->second, QRectF(place, QSizeF(source.size()) * shrunk));
}

}  // namespace orvexa::ui::viewer

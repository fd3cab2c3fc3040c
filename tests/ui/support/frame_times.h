#pragma once

#include <QElapsedTimer>
#include <QtGlobal>
#include <algorithm>
#include <vector>

#include "orvexa/ui/viewer/image_view.h"

namespace orvexa::test {

/// How long it takes to paint an image while a hand pans and zooms it: milliseconds of each repaint, in order. Tiles
/// are made meanwhile as they are for a person; what is not there yet is painted from coarser ones.
/// @param between_frames  lets the window live between two frames.
template <typename LetLive>
std::vector<double> frame_times(ui::viewer::ImageView& view, int frames, const LetLive& between_frames) {
  std::vector<double> times;
  for (int i = 0; i < frames; ++i) {
    // Ten steps in, ten steps out, with a drift to the lower right and back.
    const double zoom = i / 10 % 2 == 0 ? 1.15 : 1 / 1.15;
    const double drift = i / 40 % 2 == 0 ? -13.0 : 13.0;
    auto moved = view.view().scaled(view.view().scale * zoom, QPointF(view.width() / 3.0, view.height() / 2.0));
    moved.origin += QPointF(drift, drift);
    QElapsedTimer timer;
    timer.start();
    view.set_view(moved);
    view.repaint();
    times.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    between_frames();
  }
  return times;
}

/// The value that a share of the times does not exceed.
inline double percentile(std::vector<double> times, double share) {
  std::sort(times.begin(), times.end());
  const auto rank = static_cast<std::size_t>(share * static_cast<double>(times.size() - 1));
  return times.at(rank);
}

}  // namespace orvexa::test

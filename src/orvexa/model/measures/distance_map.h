#pragma once

#include <opencv2/core.hpp>

#include <optional>

#include "orvexa/model/image.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Sides of a picture beyond which pixels that are not set follow. Beyond the other sides nothing is: what lies outside
/// an image counts as foreground.
struct BackgroundSides {
  bool left = false;
  bool top = false;
  bool right = false;
  bool bottom = false;
};

/// For a picture cut out of an image by the tight box of a set: every side on which the image goes on, so that the
/// distances are those in the whole image.
[[nodiscard]] BackgroundSides background_sides(const PixelRect& box, Shape image);

/// Squared Euclidean distance of the centre of each set pixel to that of the nearest pixel that is not set, exact, as
/// CV_32SC1 in pixels squared; 0 where the picture is not set. Linear in the pixels, on several threads.
/// @param picture  CV_8UC1 of 0 and 255; may be empty.
/// @param beyond  by default as in an image: a set pixel at the border of the picture is no nearer to the background.
/// @return nothing when there is no pixel that is not set, in the picture or beyond a side: then no pixel has a
/// distance.
/// @throws std::invalid_argument for another type; std::runtime_error for a distance above 46340 pixels.
/// Source: A. Meijster, J. B. T. M. Roerdink, W. H. Hesselink, A general algorithm for computing distance transforms in
/// linear time, Mathematical Morphology and its Applications to Image and Signal Processing, Kluwer, 2000, 331-340; the
/// same lower envelope of parabolas: P. F. Felzenszwalb, D. P. Huttenlocher, Distance transforms of sampled functions,
/// Theory of Computing 8(19), 2012, 415-428, doi:10.4086/toc.2012.v008a019.
[[nodiscard]] std::optional<cv::Mat> squared_distance_map(const cv::Mat& picture, const RunContext& context = {},
                                                          const BackgroundSides& beyond = {});

}  // namespace orvexa::model

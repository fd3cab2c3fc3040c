#include "orvexa/model/measures/components.h"

#include <algorithm>
#include <numeric>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

struct StripeLabels {
  int y0 = 0;
  int count = 0;  ///< labels 1..count in this stripe's rows
  cv::Mat stats;
  std::vector<int> order;      ///< the labels in the raster order of their first pixels
  std::vector<int> global;     ///< label in the stripe -> label in the whole mask; 0 -> 0
  std::size_t first_node = 0;  ///< node of label 1 in the forest of joined labels
};

/// Labels of several stripes that turn out to be one component (union-find with path halving).
class Forest {
 public:
  explicit Forest(std::size_t size) : _parent(size) { std::iota(_parent.begin(), _parent.end(), std::size_t{0}); }
  std::size_t root(std::size_t node) {
    while (_parent[node] != node) node = _parent[node] = _parent[_parent[node]];
    return node;
  }
  void join(std::size_t a, std::size_t b) {
    a = root(a);
    b = root(b);
    _parent[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<std::size_t> _parent;
};

StripeLabels label_stripe(const cv::Mat& mask, cv::Mat& labels, int y0, int y1, int connectivity) {
  StripeLabels stripe;
  stripe.y0 = y0;
  cv::Mat rows = labels.rowRange(y0, y1);
  cv::Mat centroids;
  stripe.count =
      cv::connectedComponentsWithStats(mask.rowRange(y0, y1), rows, stripe.stats, centroids, connectivity, CV_32S) - 1;
  // The library numbers by blocks of pixels, so its order is not that of the first pixels.
  std::vector<char> is_seen(static_cast<std::size_t>(stripe.count) + 1, 0);
  is_seen[0] = 1;
  stripe.order.reserve(static_cast<std::size_t>(stripe.count));
  for (int y = y0; y < y1 && stripe.order.size() < static_cast<std::size_t>(stripe.count); ++y) {
    const std::int32_t* row = labels.ptr<std::int32_t>(y);
    for (int x = 0; x < labels.cols; ++x) {
      char& seen = is_seen[static_cast<std::size_t>(row[x])];
      if (seen == 0) {
        seen = 1;
        stripe.order.push_back(row[x]);
      }
    }
  }
  return stripe;
}

void join_at_seam(const cv::Mat& labels, const StripeLabels& above, const StripeLabels& below, int connectivity,
                  Forest& forest) {
  const std::int32_t* upper = labels.ptr<std::int32_t>(below.y0 - 1);
  const std::int32_t* lower = labels.ptr<std::int32_t>(below.y0);
  const int reach = connectivity == 8 ? 1 : 0;
  const auto node = [](const StripeLabels& stripe, int label) {
    return stripe.first_node + static_cast<std::size_t>(label - 1);
  };
  for (int x = 0; x < labels.cols; ++x) {
    if (lower[x] == 0) continue;
    for (int u = std::max(0, x - reach); u <= std::min(labels.cols - 1, x + reach); ++u) {
      if (upper[u] != 0) forest.join(node(above, upper[u]), node(below, lower[x]));
    }
  }
}

void add_part(Components::Component& component, const cv::Mat& stats, int label, int y0) {
  const std::int32_t* row = stats.ptr<std::int32_t>(label);
  const int x = row[cv::CC_STAT_LEFT];
  const int y = row[cv::CC_STAT_TOP] + y0;
  const PixelRect box{x, y, x + row[cv::CC_STAT_WIDTH], y + row[cv::CC_STAT_HEIGHT]};
  PixelRect& whole = component.box;
  whole = component.area == 0 ? box
                              : PixelRect{std::min(whole.x0, box.x0), std::min(whole.y0, box.y0),
                                          std::max(whole.x1, box.x1), std::max(whole.y1, box.y1)};
  component.area += row[cv::CC_STAT_AREA];
}

}  // namespace

Components label_components(const cv::Mat& mask, int connectivity, const RunContext& context) {
  if (connectivity != 4 && connectivity != 8) throw std::invalid_argument("Connectivity is 4 or 8.");
  Components result;
  if (mask.empty()) return result;
  if (mask.type() != CV_8UC1) throw std::invalid_argument("Components are labelled on one 8-bit channel.");

  result.labels.create(mask.rows, mask.cols, CV_32SC1);
  std::vector<StripeLabels> stripes(static_cast<std::size_t>(stripe_count(mask.rows, mask.cols)));
  const int step = stripe_height(mask.cols);
  for_each_stripe(mask.rows, mask.cols, context, [&](int y0, int y1) {
    stripes[static_cast<std::size_t>(y0 / step)] = label_stripe(mask, result.labels, y0, y1, connectivity);
  });

  std::size_t nodes = 0;
  for (StripeLabels& stripe : stripes) {
    stripe.first_node = nodes;
    nodes += static_cast<std::size_t>(stripe.count);
  }
  Forest forest(nodes);
  for (std::size_t i = 1; i < stripes.size(); ++i) {
    join_at_seam(result.labels, stripes[i - 1], stripes[i], connectivity, forest);
  }

  std::vector<int> label_of_root(nodes, 0);
  for (StripeLabels& stripe : stripes) {
    context.check();
    stripe.global.assign(static_cast<std::size_t>(stripe.count) + 1, 0);
    for (const int label : stripe.order) {
      int& global = label_of_root[forest.root(stripe.first_node + static_cast<std::size_t>(label - 1))];
      if (global == 0) {
        result.components.emplace_back();
        global = static_cast<int>(result.components.size());
      }
      stripe.global[static_cast<std::size_t>(label)] = global;
      add_part(result.components[static_cast<std::size_t>(global - 1)], stripe.stats, label, stripe.y0);
    }
  }
  for_each_stripe(mask.rows, mask.cols, context, [&](int y0, int y1) {
    const std::vector<int>& global = stripes[static_cast<std::size_t>(y0 / step)].global;
    for (int y = y0; y < y1; ++y) {
      std::int32_t* row = result.labels.ptr<std::int32_t>(y);
      for (int x = 0; x < mask.cols; ++x) row[x] = global[static_cast<std::size_t>(row[x])];
    }
  });
  return result;
}

Components label_components(const Mask& mask, int connectivity, const RunContext& context) {
  return label_components(mask.read_only(), connectivity, context);
}

}  // namespace orvexa::model

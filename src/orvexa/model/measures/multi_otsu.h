#pragma once

#include <optional>
#include <vector>

#include "orvexa/model/measures/histogram.h"

namespace orvexa::model {

/// The levels that part the values into `classes` with the greatest variance between them, sum of n_k (m_k - m)^2, in
/// the histogram's own values and ascending: the last levels of all classes but the highest. Exact over every filled
/// bin; of equally good levels the lowest, the first one deciding first. Absent when there are fewer filled bins than
/// classes.
/// Sources: P.-S. Liao, T.-S. Chen, P.-C. Chung, A Fast Algorithm for Multilevel Thresholding, J. Information Science
/// and Engineering 17(5), 2001, 713-727; the best cuts by dynamic programming, which move one way only.
/// @param classes  at least 2.
[[nodiscard]] std::optional<std::vector<double>> multi_otsu_levels(const Histogram& histogram, int classes,
                                                                   const RunContext& context = {});

}  // namespace orvexa::model

// Figures that hold on a noisy machine.
#pragma once

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

namespace quarlo::bench {

// The mean without the slowest tenth, in which something else interrupted. REQUIRES: there is a value.
inline double trimmedMean(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  values.resize(std::max<std::size_t>(values.size() * 9 / 10, 1));
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

// The value below which this share of the values lies (0.5: the median). REQUIRES: there is a value.
inline double quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

}  // namespace quarlo::bench

#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

/// The middle one of the values, of which there is at least one.
inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

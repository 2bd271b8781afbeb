#include "readers/PointReader.h"

#include <algorithm>
#include <limits>

PointSurvey::PointSurvey() {
    bounds.fill(std::numeric_limits<double>::infinity());
    for (size_t axis = 3; axis < 6; ++axis) bounds[axis] = -bounds[axis];
}

void PointSurvey::include(const PointSurvey& other) {
    count += other.count;
    skipped += other.skipped;
    for (size_t axis = 0; axis < 3; ++axis) {
        bounds[axis] = std::min(bounds[axis], other.bounds[axis]);
        bounds[axis + 3] = std::max(bounds[axis + 3], other.bounds[axis + 3]);
    }
    largestColour = std::max(largestColour, other.largestColour);
    largestIntensity = std::max(largestIntensity, other.largestIntensity);
    intensities.include(other.intensities);
}

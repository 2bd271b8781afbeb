#include "edit/Match.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

void Match::setActive(bool matchColourIn, bool matchIntensityIn, const unsigned char* targetIn, float colourToleranceIn,
                      float intensityToleranceIn) {
    matchColour = matchColourIn;
    matchIntensity = matchIntensityIn;
    if (!isActive()) return;
    constexpr float STEPS = 5.0F;
    colourTolerance = colourToleranceIn * STEPS;
    intensityTolerance = intensityToleranceIn * STEPS;
    std::copy_n(targetIn, target.size(), target.begin());
}

bool Match::testPoint(const unsigned char* colour) const {
    const auto isNear = [&](size_t channel, float tolerance) {
        return static_cast<float>(std::abs(int{colour[channel]} - int{target[channel]})) <= tolerance;
    };
    for (size_t channel = 0; matchColour && channel < 3; ++channel) {
        if (!isNear(channel, colourTolerance)) return false;
    }
    return !matchIntensity || isNear(3, intensityTolerance);
}

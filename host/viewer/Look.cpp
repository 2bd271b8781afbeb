#include "viewer/Look.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <cmath>
#include <vector>

// What the engine takes for "the point's own colour" and for "its intensity as grey".
static constexpr int OWN_COLOURS = 1;
static constexpr int GREY_INTENSITY = 0;

std::string_view nameOf(Colouring colouring) {
    switch (colouring) {
    case Colouring::RGB:
        return "rgb";
    case Colouring::INTENSITY:
        return "intensity";
    case Colouring::CLASS:
        return "class";
    case Colouring::HEIGHT:
        return "height";
    case Colouring::DISTANCE:
        return "distance";
    }
    return "rgb";
}

IntensityRange chooseIntensityRange(std::span<const unsigned char> values) {
    if (values.empty()) return {};
    std::array<size_t, 256> histogram{};
    for (const unsigned char value : values) ++histogram[value];
    const size_t left = values.size() / 50; // out at either end
    size_t low = 0;
    for (size_t below = histogram[0]; below <= left && low < 255;) below += histogram[++low];
    size_t high = 255;
    for (size_t above = histogram[255]; above <= left && high > 0;) above += histogram[--high];
    return {static_cast<float>(low) / 255.0F, static_cast<float>(std::max(low, high)) / 255.0F};
}

namespace {
// A channel's value becomes gain x value + offset.
struct Tone {
    float gain = 1.0F;
    float offset = 0.0F;

    // The engine first spreads values around the middle by (contrast + 100) / 100 and then adds brightness / 300.
    [[nodiscard]] float contrast() const { return (gain - 1.0F) * 100.0F; }
    [[nodiscard]] float brightness() const { return (offset + gain * 0.5F - 0.5F) * 300.0F; }
};
} // namespace

// Not down to black, so that no point looks like a hole in the cloud.
static Tone stretch(IntensityRange range) {
    constexpr float DARKEST = 0.1F;
    if (!(range.high > range.low)) range = {}; // one value only
    const float gain = (1.0F - DARKEST) / (range.high - range.low);
    return {gain, DARKEST - range.low * gain};
}

void applyLook(int cloud, const CloudLook& look, const DrawingScale& scale) {
    const bool isIntensity = look.colouring == Colouring::INTENSITY;
    Tone tone = isIntensity ? stretch(scale.intensity) : Tone{};
    if (look.smooth) tone = {tone.gain * scale.exposure, tone.offset * scale.exposure};
    // A smooth point is pointSize x (pointRatio / 5) x 10 / distance pixels large, and at least pointSize x 1.5.
    const float pointSize = look.smooth ? look.pointSize / 1.5F : look.pointSize;
    const auto pointRatio = static_cast<float>(scale.pixelsAtUnit / 2.0) / pointSize;
    // Of the opacity itself the engine only uses that it is not 100: how much a layer covers is its `strength`.
    const float strength = 1.0F + 3.0F * (1.0F - look.opacity / 100.0F);
    setPointCloudProperties(cloud, look.detail, isIntensity ? GREY_INTENSITY : OWN_COLOURS, look.smooth ? 1 : 0,
                            look.colouring == Colouring::CLASS ? 1 : 0, look.ignoresClip ? 1 : 0, pointSize, pointRatio,
                            0.0F, 0.0F, 0.0F, tone.brightness(), tone.contrast(), look.opacity, 20.0F, strength, 0.0F);
}

std::array<unsigned char, 3> classColour(unsigned char number) {
    static constexpr std::array<std::array<unsigned char, 3>, 19> NAMED = {{
        {160, 160, 160}, // never classified
        {200, 200, 200}, // unassigned
        {168, 124, 80},  // ground
        {176, 214, 110}, // low vegetation
        {104, 178, 72},  // medium vegetation
        {40, 122, 52},   // high vegetation
        {222, 96, 66},   // building
        {255, 0, 200},   // low point, noise
        {240, 228, 160}, // model key point, reserved
        {64, 132, 224},  // water
        {120, 84, 140},  // rail
        {112, 116, 124}, // road surface
        {230, 200, 60},  // overlap, reserved
        {250, 220, 90},  // wire guard
        {250, 170, 40},  // wire conductor
        {90, 100, 190},  // transmission tower
        {200, 130, 200}, // wire connector
        {90, 190, 190},  // bridge deck
        {255, 60, 120},  // high noise
    }};
    if (number < NAMED.size()) return NAMED[number];
    // Steps of the golden ratio around the colour circle keep neighbouring numbers apart.
    const double hue = std::fmod(number * 0.61803398875, 1.0) * 6.0;
    const auto channel = [hue](double offset) {
        const double distance = std::fabs(std::fmod(hue + offset, 6.0) - 3.0);
        return static_cast<unsigned char>(70.0 + 170.0 * std::clamp(distance - 1.0, 0.0, 1.0));
    };
    return {channel(0.0), channel(4.0), channel(2.0)};
}

void applyClassColours(const std::array<bool, 256>& hidden) {
    std::vector<unsigned char> table;
    for (size_t number = 0; number < hidden.size(); ++number) {
        const auto colour = classColour(static_cast<unsigned char>(number));
        table.insert(table.end(), colour.begin(), colour.end());
        table.push_back(hidden[number] ? 1 : 0);
    }
    setLasClassifications(table.data());
}

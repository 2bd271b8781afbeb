#include "voxel/MinecraftBlock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

struct rgb {
    double r; // 0 to 255
    double g;
    double b;
};

struct hsv {
    double h; // degrees
    double s; // 0 to 1
    double v; // as large as the colour's numbers
};

constexpr std::array<MinecraftBlock, 10> blockList{{
    {1, 0, 125, 125, 125},  // stone
    {24, 0, 216, 203, 155}, // sandstone
    {159, 0, 249, 255, 255},
    {159, 1, 249, 128, 29}, // 159: terracotta in its colours
    {159, 4, 255, 216, 61},
    {159, 11, 60, 68, 169},
    {159, 12, 130, 84, 50},
    {159, 13, 93, 124, 21},
    {159, 14, 176, 46, 38},
    {159, 15, 29, 28, 33},
}};

hsv rgb2hsv(const rgb& in) {
    const double v = std::max({in.r, in.g, in.b});
    const double delta = v - std::min({in.r, in.g, in.b});
    constexpr double GREY = 0.00001;
    if (delta < GREY) return {0.0, 0.0, v};
    if (!(v > 0.0)) return {std::numeric_limits<double>::quiet_NaN(), 0.0, v};
    double h;
    if (in.r >= v) {
        h = (in.g - in.b) / delta;
    } else if (in.g >= v) {
        h = (in.b - in.r) / delta + 2.0;
    } else {
        h = (in.r - in.g) / delta + 4.0;
    }
    h *= 60.0;
    if (h < 0.0) h += 360.0;
    return {h, delta / v, v};
}

float distanceBetween(const hsv& a, const hsv& b) {
    const double around = std::fabs(a.h - b.h);
    const auto dh = static_cast<float>(std::min(360.0 - around, around) / 180.0);
    const auto ds = static_cast<float>(a.s - b.s);
    const auto dv = static_cast<float>(std::fabs(a.v - b.v) / 255.0);
    return std::sqrt(dh * dh + ds * ds + dv * dv);
}

const std::array<hsv, blockList.size()> BLOCK_COLOURS = [] {
    std::array<hsv, blockList.size()> colours{};
    for (size_t i = 0; i < blockList.size(); ++i) {
        colours[i] = rgb2hsv({double{blockList[i].red}, double{blockList[i].green}, double{blockList[i].blue}});
    }
    return colours;
}();

} // namespace

MinecraftBlock getMinecraftBlock(const OPCInterface::Voxel& voxel, bool grey) {
    const auto count = static_cast<float>(voxel.pointCount);
    const auto mean = [count](int32_t sum) { return double{static_cast<float>(sum) / count}; };
    const double intensity = mean(voxel.sumIntensity);
    const hsv colour = rgb2hsv(grey ? rgb{intensity, intensity, intensity}
                                    : rgb{mean(voxel.sumRed), mean(voxel.sumGreen), mean(voxel.sumBlue)});
    size_t best = 0; // stays where sums that wrapped around give a colour without a hue
    double nearest = std::numeric_limits<double>::max();
    for (size_t i = 0; i < blockList.size(); ++i) {
        const double distance = double{distanceBetween(colour, BLOCK_COLOURS[i])};
        if (nearest > distance) { // the earlier of two that are as near
            nearest = distance;
            best = i;
        }
    }
    return blockList[best];
}

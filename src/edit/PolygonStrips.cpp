#include "edit/PolygonStrips.h"

#include <algorithm>

namespace {

// An edge stands in each strip that it reaches into. With thousands of corners the strips are made higher, so that this
// is the most that can come together.
constexpr size_t MOST_ENTRIES = size_t{1} << 20;

// Differences of pixels are those of 32-bit integers, wrap-around included.
double difference(int32_t a, int32_t b) {
    return static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)));
}

std::vector<int32_t> heights(std::span<const ScreenCorner> corners) {
    std::vector<int32_t> all;
    for (const ScreenCorner& corner : corners) all.push_back(corner.y);
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    const size_t most = std::max<size_t>(2, MOST_ENTRIES / std::max<size_t>(1, corners.size()));
    if (all.size() <= most) return all;
    std::vector<int32_t> some;
    for (size_t i = 0; i + 1 < most; ++i) some.push_back(all[i * all.size() / (most - 1)]);
    some.push_back(all.back());
    return some;
}

} // namespace

PolygonStrips::PolygonStrips(std::span<const ScreenCorner> corners) : levels(heights(corners)) {
    const auto forEachStrip = [&](size_t i, auto use) {
        const int32_t y = corners[i].y;
        const int32_t otherY = corners[i == 0 ? corners.size() - 1 : i - 1].y;
        const auto low = std::upper_bound(levels.begin(), levels.end(), std::min(y, otherY)) - levels.begin();
        const auto high = std::lower_bound(levels.begin(), levels.end(), std::max(y, otherY)) - levels.begin();
        for (auto strip = low; strip <= high; ++strip) use(static_cast<size_t>(strip));
    };
    // Numbers of edges first, then where each strip begins, then the edges to their places.
    starts.assign(levels.size() + 2, 0);
    for (size_t i = 0; i < corners.size(); ++i) forEachStrip(i, [&](size_t strip) { ++starts[strip + 1]; });
    for (size_t strip = 1; strip < starts.size(); ++strip) starts[strip] += starts[strip - 1];
    edges.resize(starts.back());
    std::vector<size_t> next = starts;
    for (size_t i = 0; i < corners.size(); ++i) {
        const ScreenCorner& a = corners[i];
        const ScreenCorner& b = corners[i == 0 ? corners.size() - 1 : i - 1];
        const Edge edge{double(a.x), double(a.y), double(b.y), difference(b.x, a.x), difference(b.y, a.y)};
        forEachStrip(i, [&](size_t strip) { edges[next[strip]++] = edge; });
    }
}

bool PolygonStrips::contains(double x, double y) const {
    const auto strip = static_cast<size_t>(
        std::upper_bound(levels.begin(), levels.end(), y, [](double place, int32_t level) { return place < level; }) -
        levels.begin());
    bool isInside = false;
    for (size_t i = starts[strip]; i < starts[strip + 1]; ++i) {
        const Edge& edge = edges[i];
        if ((y < edge.otherY) == (y < edge.y)) continue;
        const double crossing = edge.x + (y - edge.y) * edge.width / edge.height;
        if (crossing > x) isInside = !isInside;
    }
    return isInside;
}

#include "sample/TownPlanner.h"

#include <algorithm>
#include <cmath>

// The lie of the land: a river from west to east in the southern third, the town on a terrace north of it, hills
// further north and in the south-east. Every height and line is a formula of the place and the seed.

static constexpr double BRIDGE_X = 150;
static constexpr double BANK_WIDTH = 9;

// 0 below `from`, 1 above `to`, smooth in between.
static double ramp(double value, double from, double to) {
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

double TownPlanner::riverMiddle(double x) const {
    return 52 + 44 * smoothNoise(seed + 11, x / 120, 0.5);
}

double TownPlanner::riverHalfWidth(double x) const {
    return 9 + 4 * smoothNoise(seed + 12, x / 50, 0.5);
}

double TownPlanner::naturalHeight(double x, double y) const {
    const double rolling = smoothNoise(seed + 1, x / 90, y / 90) * 3 + smoothNoise(seed + 2, x / 35, y / 35) * 1.2;
    const double rough = smoothNoise(seed + 3, x / 7, y / 7) * 0.25;
    const double northHill = ramp(y, 215, 320) * (10 + 14 * smoothNoise(seed + 4, x / 110, y / 110));
    const double southHill = ramp(x, 200, 380) * ramp(60 - y, 0, 70) * 16;
    const double land = 4.5 + rolling + rough + northHill + southHill;

    const double distance = std::abs(y - riverMiddle(x)) - riverHalfWidth(x);
    const double bank = ramp(distance, -1, BANK_WIDTH);
    return bank * land * (0.75 + 0.25 * ramp(distance, 0, 50)) + (1 - bank) * SampleTown::WATER_LEVEL;
}

void TownPlanner::shapeTerrain() {
    town.terrain.clear();
    for (int y = 0; y <= static_cast<int>(SampleTown::DEPTH); ++y) {
        for (int x = 0; x <= static_cast<int>(SampleTown::WIDTH); ++x) {
            town.terrain.push_back(static_cast<float>(naturalHeight(x, y)));
        }
    }
}

// Calls `paint` with each pixel of the ground in a box, and with the place of its middle.
static void forPixels(std::vector<GroundKind>& ground, std::array<double, 4> box,
                      const std::function<void(GroundKind&, double x, double y)>& paint) {
    constexpr int COLUMNS = static_cast<int>(SampleTown::WIDTH) * 4;
    constexpr int ROWS = static_cast<int>(SampleTown::DEPTH) * 4;
    const int west = std::max(0, static_cast<int>(box[0] * 4));
    const int east = std::min(COLUMNS - 1, static_cast<int>(box[2] * 4));
    const int south = std::max(0, static_cast<int>(box[1] * 4));
    const int north = std::min(ROWS - 1, static_cast<int>(box[3] * 4));
    for (int row = south; row <= north; ++row) {
        for (int column = west; column <= east; ++column) {
            paint(ground[static_cast<size_t>(row) * COLUMNS + static_cast<size_t>(column)], (column + 0.5) / 4,
                  (row + 0.5) / 4);
        }
    }
}

void TownPlanner::paintLand() {
    constexpr auto PIXELS = static_cast<size_t>(SampleTown::WIDTH * SampleTown::DEPTH) * 16;
    town.ground.assign(PIXELS, GroundKind::MEADOW);
    constexpr int COLUMNS = static_cast<int>(SampleTown::WIDTH) * 4;
    constexpr int ROWS = static_cast<int>(SampleTown::DEPTH) * 4;
    for (int column = 0; column < COLUMNS; ++column) {
        const double x = (column + 0.5) / 4;
        const double middle = riverMiddle(x);
        const double half = riverHalfWidth(x);
        // Edges of fields and woods wander a little.
        const double wander = 6 * smoothNoise(seed + 13, x / 14, 0.5);
        for (int row = 0; row < ROWS; ++row) {
            const double y = (row + 0.5) / 4;
            GroundKind& kind = town.ground[static_cast<size_t>(row) * COLUMNS + static_cast<size_t>(column)];
            const double distance = std::abs(y - middle) - half;
            if (distance < 0) {
                kind = GroundKind::WATER;
            } else if (distance < 3 + wander * 0.3) {
                kind = GroundKind::BANK;
            } else if ((y < middle && x > 245 + wander && distance > 14) || (y > 244 + wander && x > 132 + wander)) {
                kind = GroundKind::FOREST_FLOOR;
            }
        }
    }
    paintRectangle({70, 18, 1, 0, 62, 15}, GroundKind::CROP, GroundKind::MEADOW);
    paintRectangle({200, 20, 1, 0, 38, 15}, GroundKind::PLOUGHED, GroundKind::MEADOW);
    paintRectangle({34, 262, 1, 0, 28, 30}, GroundKind::PLOUGHED, GroundKind::MEADOW);
    paintRectangle({95, 262, 1, 0, 29, 30}, GroundKind::CROP, GroundKind::MEADOW);
}

void TownPlanner::paintRectangle(const Footprint& area, GroundKind kind, GroundKind onlyOn) {
    const double reach = area.halfLength + area.halfWidth;
    forPixels(town.ground, {area.x - reach, area.y - reach, area.x + reach, area.y + reach},
              [&](GroundKind& pixel, double x, double y) {
                  const auto [u, v] = area.toLocal(x, y);
                  const bool isInside = std::abs(u) <= area.halfLength && std::abs(v) <= area.halfWidth;
                  if (isInside && (pixel == onlyOn || onlyOn == kind)) pixel = kind;
              });
}

// A street with pavements on both sides. Where two streets meet, carriageway wins over pavement.
void TownPlanner::paintStreet(const Street& street, double width, GroundKind surface, double pavement) {
    const double reach = width / 2 + pavement;
    double travelled = 0;
    for (size_t i = 0; i + 1 < street.size(); ++i) {
        const Node a = street[i];
        const Node b = street[i + 1];
        const double length = std::sqrt((b.x - a.x) * (b.x - a.x) + (b.y - a.y) * (b.y - a.y));
        const Footprint line{a.x, a.y, (b.x - a.x) / length, (b.y - a.y) / length, length, reach};
        const auto paint = [&](GroundKind& pixel, double x, double y) {
            const auto [u, v] = line.toLocal(x, y);
            const double along = std::clamp(u, 0.0, length);
            const double distance = std::sqrt((u - along) * (u - along) + v * v);
            if (distance > reach || pixel == GroundKind::WATER) return;
            const bool isMarking = surface == GroundKind::ASPHALT && std::abs(v) < 0.13 && along == u &&
                                   static_cast<int64_t>((travelled + u) / 3) % 2 == 0;
            if (distance <= width / 2) {
                if (pixel != GroundKind::MARKING) pixel = isMarking ? GroundKind::MARKING : surface;
            } else if (pixel != GroundKind::ASPHALT && pixel != GroundKind::MARKING) {
                pixel = GroundKind::PAVEMENT;
            }
        };
        forPixels(town.ground,
                  {std::min(a.x, b.x) - reach, std::min(a.y, b.y) - reach, std::max(a.x, b.x) + reach,
                   std::max(a.y, b.y) + reach},
                  paint);
        travelled += length;
    }
}

void TownPlanner::planStreets() {
    const auto mainY = [&](double x) { return 126 + 16 * smoothNoise(seed + 14, x / 130, 0.5); };
    const auto upperY = [&](double x) { return 198 + 16 * smoothNoise(seed + 15, x / 110, 0.5); };
    Street path, mainStreet, upperStreet;
    for (int step = -2; step <= static_cast<int>(SampleTown::WIDTH) / 5 + 2; ++step) {
        const double x = step * 5;
        path.push_back({x, riverMiddle(x) + riverHalfWidth(x) + 10});
        mainStreet.push_back({x, mainY(x)});
        upperStreet.push_back({x, upperY(x)});
    }
    // Gravel first: asphalt covers it where they meet.
    paintStreet(path, 2.4, GroundKind::GRAVEL, 0);
    paintStreet({{238, upperY(238)}, {243, 245}, {236, 270}, {246, 305}}, 3.5, GroundKind::GRAVEL, 0);
    paintStreet({{BRIDGE_X, 37}, {190, 39}, {235, 38}, {300, 24}, {405, 20}}, 3.5, GroundKind::GRAVEL, 0);

    streets = {mainStreet, upperStreet};
    for (double x : {62.0, BRIDGE_X, 238.0, 326.0}) {
        Street across;
        for (int step = 0; step <= 8; ++step) {
            const double t = step / 8.0;
            const double bend = 5 * (smoothNoise(seed + 16, x, t * 2) - 0.5) * t * (1 - t) * 4;
            across.push_back({x + bend, mainY(x) + t * (upperY(x) - mainY(x))});
        }
        streets.push_back(across);
    }
    for (size_t i = 0; i < streets.size(); ++i) {
        paintStreet(streets[i], i == 0 ? 7.5 : 6, GroundKind::ASPHALT, i == 0 ? 2.2 : 1.6);
    }
    paintStreet({{BRIDGE_X, -5}, {BRIDGE_X, mainY(BRIDGE_X)}}, 7, GroundKind::ASPHALT, 1.2);
    paintRectangle({193, 163, 1, 0, 30, 16}, GroundKind::PAVEMENT, GroundKind::MEADOW);
    paintRectangle({275, 158, 1, 0, 21, 11}, GroundKind::ASPHALT, GroundKind::MEADOW);
    paintBridge();
}

void TownPlanner::paintBridge() {
    const double middle = riverMiddle(BRIDGE_X);
    const double half = riverHalfWidth(BRIDGE_X) + BANK_WIDTH;
    town.deckFrom = middle - half;
    town.deckTo = middle + half;
    town.deckHeightFrom = naturalHeight(BRIDGE_X, town.deckFrom);
    town.deckHeightTo = naturalHeight(BRIDGE_X, town.deckTo);
    const Footprint deck{BRIDGE_X, middle, 0, 1, half, 4.9};
    paintRectangle(deck, GroundKind::BRIDGE, GroundKind::BRIDGE);
    for (double side : {-4.6, 4.6}) {
        const Footprint parapet{BRIDGE_X + side, middle, 0, 1, half, 0.2};
        town.boxes.push_back({parapet, TownBox::PARAPET, 1.1, {168, 160, 148}});
    }
}

#include "sample/TownPlanner.h"

#include <algorithm>
#include <cmath>

void TownPlanner::layOut() {
    shapeTerrain();
    paintLand();
    planStreets();
    buildChurch();
    for (const Street& street : streets) buildAlong(street, 5.2);
    layGardens();
    parkCars();
    plantTrees();
    castLight();
    fillLists();
}

// The places of a grid over a footprint, about `step` apart and up to its edges.
static void forGrid(const Footprint& area, double step, const std::function<void(double x, double y)>& visit) {
    const int along = std::max(1, static_cast<int>(2 * area.halfLength / step));
    const int across = std::max(1, static_cast<int>(2 * area.halfWidth / step));
    for (int i = 0; i <= along; ++i) {
        for (int k = 0; k <= across; ++k) {
            const auto [x, y] =
                area.toWorld({area.halfLength * (2.0 * i / along - 1), area.halfWidth * (2.0 * k / across - 1)});
            visit(x, y);
        }
    }
}

static bool isInTown(double x, double y) {
    return x >= 0 && y >= 0 && x < SampleTown::WIDTH && y < SampleTown::DEPTH;
}

bool TownPlanner::isFree(const Footprint& area) const {
    bool free = true;
    forGrid(area, 1,
            [&](double x, double y) { free = free && isInTown(x, y) && town.groundKind(x, y) == GroundKind::MEADOW; });
    return free;
}

bool TownPlanner::build(TownBuilding building) {
    Footprint margin = building.footprint;
    margin.halfLength += 1.2;
    margin.halfWidth += 1.2;
    if (!isFree(margin)) return false;
    paintRectangle(margin, GroundKind::BUILT, GroundKind::MEADOW);
    building.base = town.groundHeight(building.footprint.x, building.footprint.y);
    town.buildings.push_back(building);
    return true;
}

static constexpr SampleColour WALLS[] = {{222, 211, 190}, {231, 225, 214}, {205, 170, 140}, {171, 98, 78},
                                         {214, 196, 158}, {196, 201, 198}, {150, 84, 66}};
static constexpr SampleColour ROOFS[] = {{164, 82, 60}, {142, 70, 54}, {178, 96, 70},
                                         {108, 92, 88}, {84, 84, 90},  {150, 88, 62}};

TownBuilding TownPlanner::designHouse(const Footprint& footprint, bool inCentre) {
    TownBuilding house;
    house.footprint = footprint;
    house.eaves = inCentre ? 5.8 + 2.9 * static_cast<int>(random.between(0, 2.99)) : random.between(3.4, 6.2);
    house.rise = footprint.halfWidth * random.between(0.65, 0.95);
    house.roof = random.chance(0.72) ? RoofKind::GABLE : RoofKind::HIP;
    if (inCentre && random.chance(0.15)) house.roof = RoofKind::FLAT;
    house.wallColour = WALLS[static_cast<size_t>(random.between(0, std::size(WALLS)))] * random.between(0.92, 1.05);
    house.roofColour = ROOFS[static_cast<size_t>(random.between(0, std::size(ROOFS)))] * random.between(0.9, 1.08);
    if (house.roof == RoofKind::FLAT) house.roofColour = {138, 136, 132};
    if (house.roof == RoofKind::GABLE) house.chimney = random.between(-0.6, 0.6) * footprint.halfLength;
    return house;
}

// Houses on both sides of a street, ridges along it more often than not; wide and close together in the centre.
void TownPlanner::buildAlong(const Street& street, double setback) {
    for (double side : {1.0, -1.0}) {
        double wait = random.between(4, 12);
        for (size_t i = 0; i + 1 < street.size(); ++i) {
            const Node a = street[i];
            const Node b = street[i + 1];
            const double length = std::sqrt((b.x - a.x) * (b.x - a.x) + (b.y - a.y) * (b.y - a.y));
            const double ux = (b.x - a.x) / length;
            const double uy = (b.y - a.y) / length;
            wait -= length;
            while (wait < 0) {
                const double at = length + wait;
                wait += 2;
                const bool inCentre = std::abs(a.x - 190) < 75 && a.y < 215;
                Footprint plot{0, 0, ux, uy, random.between(4.6, inCentre ? 8.5 : 7.0), random.between(3.8, 5.2)};
                if (random.chance(inCentre ? 0.1 : 0.35)) {
                    std::swap(plot.ux, plot.uy);
                    plot.ux = -plot.ux;
                }
                const double depth = plot.ux == ux ? plot.halfWidth : plot.halfLength;
                const double back = side * (setback + (inCentre ? 0.8 : random.between(2.5, 6)) + depth);
                plot.x = a.x + at * ux - back * uy;
                plot.y = a.y + at * uy + back * ux;
                if (!build(designHouse(plot, inCentre))) continue;
                wait += (plot.ux == ux ? plot.halfLength : plot.halfWidth) * 2 +
                        (inCentre ? random.between(1.5, 4) : random.between(5, 12));
            }
        }
    }
}

// North of the market place, with its tower to the west.
void TownPlanner::buildChurch() {
    TownBuilding nave;
    nave.footprint = {200, 171, 1, 0, 13, 6};
    nave.eaves = 9;
    nave.rise = 7;
    nave.wallColour = {196, 184, 162};
    nave.roofColour = {92, 94, 100};
    TownBuilding tower = nave;
    tower.footprint = {183.5, 171, 1, 0, 3.4, 3.4};
    tower.roof = RoofKind::SPIRE;
    tower.eaves = 23;
    tower.rise = 14;
    tower.roofColour = {86, 122, 104};
    for (TownBuilding* part : {&nave, &tower}) {
        part->base = town.groundHeight(193, 171);
        paintRectangle(part->footprint, GroundKind::BUILT, GroundKind::BUILT);
        town.buildings.push_back(*part);
    }
}

// Lawns around the houses, and a hedge on one or two sides of some of them.
void TownPlanner::layGardens() {
    for (const TownBuilding& house : town.buildings) {
        Footprint garden = house.footprint;
        garden.halfLength += random.between(4, 7);
        garden.halfWidth += random.between(5, 9);
        paintRectangle(garden, GroundKind::LAWN, GroundKind::MEADOW);
        for (double side : {-1.0, 1.0}) {
            if (random.chance(0.45)) plantHedge(garden, side);
        }
    }
}

// Along one end of a garden, -1 or 1, if nothing is in the way.
void TownPlanner::plantHedge(const Footprint& garden, double side) {
    const auto [x, y] = garden.toWorld({side * garden.halfLength, 0});
    const Footprint hedge{x, y, -garden.uy, garden.ux, garden.halfWidth, 0.45};
    bool fits = true;
    forGrid(hedge, 0.5, [&](double px, double py) { fits = fits && isOpen(px, py); });
    if (!fits) return;
    const double height = random.between(1.1, 1.9);
    town.boxes.push_back({hedge, TownBox::HEDGE, height, SampleColour{62, 92, 44} * random.between(0.85, 1.1)});
}

void TownPlanner::parkCar(double x, double y, double ux, double uy) {
    static constexpr SampleColour PAINTS[] = {{176, 28, 30},   {28, 58, 128},   {214, 216, 218}, {38, 40, 44},
                                              {128, 134, 140}, {236, 234, 226}, {38, 96, 62}};
    if (!isInTown(x, y) || town.groundKind(x, y) == GroundKind::BRIDGE) return;
    const SampleColour paint = PAINTS[static_cast<size_t>(random.between(0, std::size(PAINTS)))];
    town.boxes.push_back({Footprint{x, y, ux, uy, 2.1, 0.9}, TownBox::CAR, 1.5, paint});
}

void TownPlanner::parkCars() {
    for (const Street& street : streets) {
        for (size_t i = 1; i + 2 < street.size(); ++i) {
            const Node a = street[i];
            const Node b = street[i + 1];
            const double length = std::sqrt((b.x - a.x) * (b.x - a.x) + (b.y - a.y) * (b.y - a.y));
            const double ux = (b.x - a.x) / length;
            const double uy = (b.y - a.y) / length;
            if (!random.chance(0.3)) continue;
            const double side = random.chance(0.5) ? 2.3 : -2.3;
            const double at = random.between(0.2, 0.8) * length;
            parkCar(a.x + at * ux - side * uy, a.y + at * uy + side * ux, ux, uy);
        }
    }
    for (double y : {151.0, 165.0}) {
        for (int bay = 0; bay < 14; ++bay) {
            const double x = 257 + 2.8 * bay;
            if (random.chance(0.75) && town.groundKind(x, y) == GroundKind::ASPHALT) parkCar(x, y, 0, 1);
        }
    }
}

bool TownPlanner::isOpen(double x, double y) const {
    if (!isInTown(x, y)) return false;
    const GroundKind kind = town.groundKind(x, y);
    return kind == GroundKind::MEADOW || kind == GroundKind::LAWN || kind == GroundKind::FOREST_FLOOR ||
           kind == GroundKind::BANK;
}

void TownPlanner::plant(double x, double y, double size, bool isConifer) {
    bool fits = isOpen(x, y);
    for (double dx : {-0.6, 0.6}) {
        for (double dy : {-0.6, 0.6}) fits = fits && isOpen(x + dx * 2, y + dy * 2);
    }
    if (!fits) return;
    TownTree tree;
    tree.x = x;
    tree.y = y;
    tree.base = town.groundHeight(x, y);
    tree.isConifer = isConifer;
    tree.height = size * (isConifer ? random.between(10, 19) : random.between(7, 13));
    tree.stem = tree.height * (isConifer ? 0.12 : random.between(0.2, 0.3));
    tree.radius = tree.height * (isConifer ? random.between(0.16, 0.2) : random.between(0.28, 0.36));
    const SampleColour broad = random.chance(0.08)  ? SampleColour{168, 128, 52}
                               : random.chance(0.4) ? SampleColour{96, 128, 52}
                                                    : SampleColour{74, 112, 46};
    tree.colour = (isConifer ? SampleColour{48, 84, 54} : broad) * random.between(0.82, 1.15);
    town.trees.push_back(tree);
}

// Woods stand dense, the banks have a tree here and there, gardens and meadows fewer still.
void TownPlanner::plantTrees() {
    constexpr double SPACING = 4.5;
    for (int row = 0; row < static_cast<int>(SampleTown::DEPTH / SPACING); ++row) {
        for (int column = 0; column < static_cast<int>(SampleTown::WIDTH / SPACING); ++column) {
            const double px = 2 + SPACING * column + random.between(-2, 2);
            const double py = 2 + SPACING * row + random.between(-2, 2);
            if (!isInTown(px, py)) continue;
            const double clump = smoothNoise(seed + 21, px / 28, py / 28);
            switch (town.groundKind(px, py)) {
            case GroundKind::FOREST_FLOOR:
                if (random.chance(0.85)) plant(px, py, 1, clump > 0.48);
                break;
            case GroundKind::BANK:
                if (random.chance(clump * 0.5)) plant(px, py, random.between(0.7, 1), false);
                break;
            case GroundKind::LAWN:
                if (random.chance(0.11)) plant(px, py, random.between(0.45, 0.8), random.chance(0.2));
                break;
            case GroundKind::MEADOW:
                if (random.chance(clump > 0.6 ? 0.25 : 0.025)) plant(px, py, random.between(0.6, 1), false);
                break;
            default:
                break;
            }
        }
    }
}

// A raster of two pixels a metre with the height of whatever is seen from above, for castLight().
class TownPlanner::Surface {
public:
    static constexpr int COLUMNS = static_cast<int>(SampleTown::WIDTH) * 2;
    static constexpr int ROWS = static_cast<int>(SampleTown::DEPTH) * 2;

    Surface() : heights(static_cast<size_t>(COLUMNS) * ROWS) {}

    static size_t indexOf(int column, int row) {
        return static_cast<size_t>(row) * COLUMNS + static_cast<size_t>(column);
    }
    void raise(double x, double y, double height) {
        if (!isInTown(x, y)) return;
        float& pixel = heights[indexOf(static_cast<int>(x * 2), static_cast<int>(y * 2))];
        pixel = std::max(pixel, static_cast<float>(height));
    }
    // 0, and so below everything, outside of the town.
    [[nodiscard]] double at(double x, double y) const {
        return isInTown(x, y) ? heights[indexOf(static_cast<int>(x * 2), static_cast<int>(y * 2))] : 0;
    }

private:
    std::vector<float> heights;
};

TownPlanner::Surface TownPlanner::drawSurface() const {
    Surface surface;
    forGrid({SampleTown::WIDTH / 2, SampleTown::DEPTH / 2, 1, 0, SampleTown::WIDTH / 2, SampleTown::DEPTH / 2}, 0.25,
            [&](double x, double y) {
                if (isInTown(x, y)) surface.raise(x, y, town.groundHeight(x, y));
            });
    for (const TownBuilding& house : town.buildings) {
        forGrid(house.footprint, 0.4, [&](double x, double y) {
            surface.raise(x, y, house.base + house.roofHeight(house.footprint.toLocal(x, y)));
        });
    }
    for (const TownBox& box : town.boxes) {
        forGrid(box.footprint, 0.4, [&](double x, double y) {
            if (isInTown(x, y)) surface.raise(x, y, town.groundHeight(x, y) + box.height);
        });
    }
    for (const TownTree& tree : town.trees) {
        forGrid({tree.x, tree.y, 1, 0, tree.radius, tree.radius}, 0.4, [&](double x, double y) {
            const double distance = std::sqrt((x - tree.x) * (x - tree.x) + (y - tree.y) * (y - tree.y));
            if (distance < tree.radius * 0.9) surface.raise(x, y, tree.base + tree.crownAt(distance)[1]);
        });
    }
    return surface;
}

// Shadows of everything that stands still, and the slope's turn towards the sun in the south-west: each place looks for
// something on its way to the sun that stands higher than the ray.
void TownPlanner::castLight() {
    constexpr double SUN_X = -0.6, SUN_Y = -0.8, SUN_RISE = 0.95; // horizontal direction, height gained by a metre
    const Surface surface = drawSurface();
    for (int row = 0; row < Surface::ROWS; ++row) {
        for (int column = 0; column < Surface::COLUMNS; ++column) {
            const double x = (column + 0.5) / 2;
            const double y = (row + 0.5) / 2;
            const double height = town.groundHeight(x, y);
            bool isShaded = false;
            for (double metres = 1; metres < 34 && !isShaded; metres += 0.75) {
                isShaded = surface.at(x + SUN_X * metres, y + SUN_Y * metres) > height + metres * SUN_RISE + 0.2;
            }
            const double ahead = town.groundHeight(std::max(0.0, x + SUN_X * 2), std::max(0.0, y + SUN_Y * 2));
            const double slope = std::clamp(0.86 + (height - ahead) * 0.22, 0.6, 1.0);
            town.lights.push_back(static_cast<uint8_t>(255 * slope * (isShaded ? 0.55 : 1)));
        }
    }
}

// Sorts indices into cells: `boundsOf(i)` gives west, south, east and north of what item i may concern.
void TownPlanner::fillLists() {
    constexpr int COLUMNS = static_cast<int>(SampleTown::WIDTH / CELL);
    constexpr int ROWS = static_cast<int>(SampleTown::DEPTH / CELL);
    const auto fill = [&](size_t count, const std::function<std::array<double, 4>(size_t)>& boundsOf) {
        std::vector<std::vector<uint16_t>> cells(static_cast<size_t>(COLUMNS) * ROWS);
        for (size_t i = 0; i < count; ++i) {
            const auto [west, south, east, north] = boundsOf(i);
            for (int row = std::max(0, static_cast<int>(south / CELL)); row < ROWS && row <= north / CELL; ++row) {
                for (int column = std::max(0, static_cast<int>(west / CELL)); column < COLUMNS && column <= east / CELL;
                     ++column) {
                    cells[static_cast<size_t>(row) * COLUMNS + static_cast<size_t>(column)].push_back(
                        static_cast<uint16_t>(i));
                }
            }
        }
        SampleTown::CellLists lists;
        for (const auto& cell : cells) {
            lists.starts.push_back(static_cast<uint32_t>(lists.items.size()));
            lists.items.insert(lists.items.end(), cell.begin(), cell.end());
        }
        lists.starts.push_back(static_cast<uint32_t>(lists.items.size()));
        return lists;
    };
    const auto around = [](const Footprint& area, double margin) {
        const double dx = area.halfLength * std::abs(area.ux) + area.halfWidth * std::abs(area.uy) + margin * 1.5;
        const double dy = area.halfLength * std::abs(area.uy) + area.halfWidth * std::abs(area.ux) + margin * 1.5;
        return std::array<double, 4>{area.x - dx, area.y - dy, area.x + dx, area.y + dy};
    };
    town.buildingsNear = fill(town.buildings.size(),
                              [&](size_t i) { return around(town.buildings[i].footprint, SampleTown::WALL_REACH); });
    town.boxesNear = fill(town.boxes.size(), [&](size_t i) { return around(town.boxes[i].footprint, 0); });
    town.treesNear = fill(town.trees.size(), [&](size_t i) {
        const TownTree& tree = town.trees[i];
        return around({tree.x, tree.y, 1, 0, tree.radius, tree.radius}, 0);
    });
}

#include "sample/SampleScene.h"
#include "sample/SampleRandom.h"

#include <algorithm>
#include <cmath>

// A point begins as a place in the plane, where the scanner's beam comes down, and then looks for what it hits there:
// crowns let some beams through, walls draw a share of those that come down near them, the ground takes the rest.
// Nothing is traced; the shares are chosen to look like a survey, with facades thinner than roofs.

static constexpr int SWATHS = 6;

static constexpr uint8_t UNCLASSIFIED = 1, GROUND = 2, LOW_VEGETATION = 3, MEDIUM_VEGETATION = 4, HIGH_VEGETATION = 5,
                         BUILDING = 6, WATER = 9, ROAD = 11, BRIDGE = 17;

namespace {

struct Hit {
    double x, y, z;
    SampleColour colour;
    double intensity;
    uint8_t pointClass;
};

// One beam on its way down at (x, y).
class Beam {
public:
    Beam(const SampleTown& target, SampleRandom& source, uint64_t noiseSeed, double atX, double atY)
        : town(target), random(source), seed(noiseSeed), x(atX), y(atY) {}

    Hit trace();

private:
    bool hitBuilding(const TownBuilding& building);
    void hitRoof(const TownBuilding& building, Footprint::Place place);
    void hitWall(const TownBuilding& building, Footprint::Place place);
    bool hitBox(const TownBox& box);
    bool hitTree(const TownTree& tree);
    void hitGround();

    const SampleTown& town;
    SampleRandom& random;
    uint64_t seed;
    double x, y;
    Hit hit{};
};

} // namespace

static uint8_t vegetationClass(double height) {
    return height < 0.5 ? LOW_VEGETATION : height < 2 ? MEDIUM_VEGETATION : HIGH_VEGETATION;
}

Hit Beam::trace() {
    const SampleTown::Near near = town.near(x, y);
    // Crowns first: they hang over roofs and cars.
    for (uint16_t i : near.trees) {
        if (hitTree(town.trees[i])) return hit;
    }
    for (uint16_t i : near.buildings) {
        if (hitBuilding(town.buildings[i])) return hit;
    }
    for (uint16_t i : near.boxes) {
        if (hitBox(town.boxes[i])) return hit;
    }
    hitGround();
    return hit;
}

bool Beam::hitTree(const TownTree& tree) {
    const double dx = x - tree.x;
    const double dy = y - tree.y;
    const double squared = dx * dx + dy * dy;
    if (squared >= tree.radius * tree.radius) return false;
    const double distance = std::sqrt(squared);
    const double fate = random.next();
    if (fate < 0.06 && distance < tree.radius * 0.6 && distance > 0.01) {
        const double stem = 0.012 * tree.height + 0.05;
        const double height = random.between(0, tree.stem * 1.3);
        const double turn = stem / distance;
        hit = {tree.x + dx * turn,
               tree.y + dy * turn,
               tree.base + height,
               SampleColour{98, 80, 62} * random.between(0.8, 1.1),
               62,
               vegetationClass(height)};
        return true;
    }
    if (fate > 0.74) return false;

    // Most beams end near the top of the crown, few get deep into it.
    const auto [low, high] = tree.crownAt(distance);
    const double depth = random.next() * random.next() * random.next();
    const double height = high - depth * (high - low) - random.next() * 0.35 * (tree.isConifer ? 1.5 : 1);
    const double inside = (height - tree.stem) / (tree.height - tree.stem);
    const double sunward = (-0.6 * dx - 0.8 * dy) / tree.radius;
    const double leaf = 0.62 + 0.34 * inside + 0.16 * sunward + random.between(-0.12, 0.12);
    hit = {x,
           y,
           tree.base + std::max(height, tree.stem * 0.8),
           tree.colour * leaf,
           84 + 40 * random.next(),
           vegetationClass(height)};
    return true;
}

bool Beam::hitBuilding(const TownBuilding& building) {
    static constexpr double OVERHANG = 0.35;
    const Footprint& plan = building.footprint;
    const auto place = plan.toLocal(x, y);
    const double beyondU = std::abs(place.u) - plan.halfLength;
    const double beyondV = std::abs(place.v) - plan.halfWidth;
    const double beyond = std::max(beyondU, beyondV);
    if (beyond > SampleTown::WALL_REACH) return false;
    const double reach = beyond > 0 ? SampleTown::WALL_REACH : 1.2;
    if (beyond > -reach && random.chance(0.7 * (1 - std::abs(beyond) / reach))) {
        hitWall(building, place);
        return true;
    }
    if (beyond > (building.roof == RoofKind::FLAT ? 0 : OVERHANG)) return false;
    hitRoof(building, place);
    return true;
}

void Beam::hitRoof(const TownBuilding& building, Footprint::Place place) {
    const Footprint& plan = building.footprint;
    double height = building.roofHeight(place);
    SampleColour colour = building.roofColour;
    // Which way the surface leans, from the ridge down.
    const bool leansAcross =
        building.roof == RoofKind::GABLE ||
        std::abs(place.v) / plan.halfWidth > 1 - (plan.halfLength - std::abs(place.u)) / plan.halfWidth;
    const double sign = (leansAcross ? place.v : place.u) < 0 ? -1 : 1;
    const double leanX = sign * (leansAcross ? -plan.uy : plan.ux);
    const double leanY = sign * (leansAcross ? plan.ux : plan.uy);
    double light = building.roof == RoofKind::FLAT ? 1 : 0.92 + 0.26 * (-0.6 * leanX - 0.8 * leanY);

    if (building.chimney != 0 && std::abs(place.u - building.chimney) < 0.4 && std::abs(place.v - 0.6) < 0.4) {
        height = building.eaves + building.rise + 0.9 - (random.chance(0.3) ? random.next() * 1.2 : 0);
        colour = {138, 84, 66};
    } else if (building.roof == RoofKind::FLAT &&
               std::max(std::abs(place.u) - plan.halfLength, std::abs(place.v) - plan.halfWidth) > -0.35) {
        height += 0.5;
        light = 0.85;
    }
    // Courses of tiles.
    const auto course = static_cast<int64_t>(std::abs(leansAcross ? place.v : place.u) / 0.33);
    light *= 0.96 + 0.04 * static_cast<double>(course % 2) + random.between(-0.05, 0.05);
    hit = {x,       y, building.base + height + random.between(-0.02, 0.02), colour * light, 66 + 24 * random.next(),
           BUILDING};
}

void Beam::hitWall(const TownBuilding& building, Footprint::Place place) {
    const Footprint& plan = building.footprint;
    const bool isGableEnd = std::abs(place.u) - plan.halfLength > std::abs(place.v) - plan.halfWidth;
    place.u = std::clamp(place.u, -plan.halfLength, plan.halfLength);
    place.v = std::clamp(place.v, -plan.halfWidth, plan.halfWidth);
    double& fixed = isGableEnd ? place.u : place.v;
    const double half = isGableEnd ? plan.halfLength : plan.halfWidth;
    const double sign = fixed < 0 ? -1 : 1;
    fixed = sign * half;
    const double top = building.roof == RoofKind::SPIRE ? building.eaves : building.roofHeight(place);
    const double height = top * random.next();

    // Windows: one every 2.7 metres and storey, none at the corners and under the gable.
    const double along = isGableEnd ? place.v + plan.halfWidth : place.u + plan.halfLength;
    const double length = 2 * (isGableEnd ? plan.halfWidth : plan.halfLength);
    const double bays = std::max(1.0, static_cast<double>(static_cast<int64_t>(length / 2.7)));
    const double inBay = along * bays / length - static_cast<double>(static_cast<int64_t>(along * bays / length));
    const double inStorey = height / 2.9 - static_cast<double>(static_cast<int64_t>(height / 2.9));
    const bool isWindow =
        std::abs(inBay - 0.5) < 0.2 && inStorey > 0.32 && inStorey < 0.8 && height < building.eaves - 0.3;
    const double outX = sign * (isGableEnd ? plan.ux : -plan.uy);
    const double outY = sign * (isGableEnd ? plan.uy : plan.ux);
    const double light = 0.86 + 0.2 * (-0.6 * outX - 0.8 * outY) + random.between(-0.03, 0.03);
    const SampleColour colour = isWindow ? SampleColour{58, 68, 82} : building.wallColour;
    const double sunk = isWindow ? 0.1 : 0;
    fixed = sign * (half - sunk);
    const auto [wallX, wallY] = plan.toWorld(place);
    hit = {wallX, wallY, building.base + height, colour * light, isWindow ? 24.0 : 104 + 20 * random.next(), BUILDING};
}

bool Beam::hitBox(const TownBox& box) {
    const auto [u, v] = box.footprint.toLocal(x, y);
    const double beyond = std::max(std::abs(u) - box.footprint.halfLength, std::abs(v) - box.footprint.halfWidth);
    if (beyond > 0) return false;
    if (box.kind == TownBox::HEDGE) {
        const double height = box.height * (1 - random.next() * random.next());
        const double leaf = 0.6 + 0.4 * height / box.height + random.between(-0.12, 0.12);
        hit = {x,
               y,
               town.groundHeight(x, y) + height,
               box.colour * leaf,
               92 + 30 * random.next(),
               vegetationClass(height)};
        return true;
    }
    double height = box.height;
    SampleColour colour = box.colour;
    if (box.kind == TownBox::CAR) {
        const bool isCabin = u > -1.5 && u < 0.75 && std::abs(v) < 0.75;
        const bool isPane = isCabin && (u < -1.05 || u > 0.3);
        height = isPane ? 1.15 : isCabin ? 1.45 : 0.85;
        if (isPane) colour = {40, 46, 54};
    }
    const bool isSide = beyond > -0.12 && random.chance(0.7);
    // The parapet's outer side reaches below the deck.
    if (isSide) height = random.between(box.kind == TownBox::PARAPET ? -0.8 : 0, height);
    hit = {
        x,   y,           town.groundHeight(x, y) + height, colour * ((isSide ? 0.78 : 1) * random.between(0.95, 1.05)),
        118, UNCLASSIFIED};
    if (box.kind == TownBox::PARAPET) hit.pointClass = BRIDGE;
    return true;
}

namespace {

struct GroundLook {
    SampleColour colour;
    double speckle; // share by which neighbouring points differ
    double intensity;
    uint8_t pointClass;
};

} // namespace

// In the order of GroundKind.
static constexpr GroundLook LOOKS[] = {{{116, 138, 70}, 0.12, 126, GROUND},  // MEADOW
                                       {{104, 146, 68}, 0.08, 134, GROUND},  // LAWN
                                       {{198, 178, 96}, 0.1, 140, GROUND},   // CROP
                                       {{128, 98, 72}, 0.1, 78, GROUND},     // PLOUGHED
                                       {{92, 88, 56}, 0.16, 88, GROUND},     // FOREST_FLOOR
                                       {{134, 132, 88}, 0.14, 96, GROUND},   // BANK
                                       {{58, 96, 110}, 0.04, 10, WATER},     // WATER
                                       {{94, 94, 98}, 0.05, 36, ROAD},       // ASPHALT
                                       {{232, 232, 226}, 0.03, 214, ROAD},   // MARKING
                                       {{162, 156, 148}, 0.05, 84, GROUND},  // PAVEMENT
                                       {{176, 162, 134}, 0.08, 92, GROUND},  // GRAVEL
                                       {{112, 110, 110}, 0.05, 44, BRIDGE},  // BRIDGE
                                       {{136, 128, 112}, 0.06, 88, GROUND}}; // BUILT

void Beam::hitGround() {
    GroundKind kind = town.groundKind(x, y);
    double base = town.groundHeight(x, y);
    // The neighbouring swaths look under the bridge.
    if (kind == GroundKind::BRIDGE && random.chance(0.3)) {
        const double below = town.terrainHeight(x, y);
        kind = below < SampleTown::WATER_LEVEL + 0.2 ? GroundKind::WATER : GroundKind::BANK;
        base = std::max(below, SampleTown::WATER_LEVEL);
    }
    const GroundLook& look = LOOKS[static_cast<size_t>(kind)];
    double tone = town.light(x, y) * (1 + look.speckle * random.between(-1, 1));
    double height = 0.015 * random.between(-1, 1);
    switch (kind) {
    case GroundKind::CROP:
    case GroundKind::PLOUGHED: {
        // Rows 1.5 metres apart.
        const double row = (y + 0.1 * x) / 1.5 - static_cast<double>(static_cast<int64_t>((y + 0.1 * x) / 1.5));
        const double ridge = std::abs(row - 0.5) * 2;
        height += (kind == GroundKind::CROP ? 0.5 : 0.15) * ridge * random.next();
        tone *= 0.85 + 0.2 * ridge;
        break;
    }
    case GroundKind::MEADOW:
    case GroundKind::LAWN:
    case GroundKind::BANK:
    case GroundKind::FOREST_FLOOR:
        height += 0.08 * random.next();
        tone *= 0.84 + 0.32 * smoothNoise(seed + 31, x / 6, y / 6);
        break;
    case GroundKind::WATER:
        tone *= 0.9 + 0.2 * smoothNoise(seed + 32, x / 9, y / 2.5);
        break;
    default:
        tone *= 0.95 + 0.1 * smoothNoise(seed + 33, x / 3, y / 3);
        break;
    }
    hit = {x, y, base + height, look.colour * tone, look.intensity * (0.9 + 0.2 * random.next()), look.pointClass};
}

SampleScene::SampleScene(uint64_t points, uint64_t townSeed) : count(points), seed(townSeed), town(townSeed) {}

std::array<double, 6> SampleScene::bounds() const {
    return {0, 0, 0, SampleTown::WIDTH, SampleTown::DEPTH, SampleTown::HIGHEST};
}

// Where the scanner points for the beam `index`, without the jitter: swath by swath, every other one flown back, and
// zigzag across.
static std::array<double, 2> aim(uint64_t index, uint64_t count) {
    constexpr double SWATH_WIDTH = SampleTown::DEPTH / SWATHS;
    const double progress = static_cast<double>(index) / static_cast<double>(count) * SWATHS;
    const auto swath = std::min(static_cast<int>(progress), SWATHS - 1);
    const double along = progress - swath;
    const double lines = std::sqrt(static_cast<double>(count) / SWATHS * (SampleTown::WIDTH / SWATH_WIDTH)) + 1;
    const double line = along * lines;
    const auto whole = static_cast<uint64_t>(line);
    const double across = whole % 2 == 0 ? line - static_cast<double>(whole) : 1 - (line - static_cast<double>(whole));
    return {SampleTown::WIDTH * (swath % 2 == 0 ? along : 1 - along), SWATH_WIDTH * (swath + across)};
}

// Mirrors what falls outside back in, so that no edge gathers points.
static double foldInto(double value, double limit) {
    if (value < 0) value = -value;
    if (value > limit) value = 2 * limit - value;
    return std::clamp(value, 0.0, limit);
}

static double toMillimetres(double metres) {
    return static_cast<double>(std::llround(metres * 1000)) / 1000;
}

static unsigned char toByte(double value) {
    return static_cast<unsigned char>(std::clamp(value + 0.5, 0.0, 255.0));
}

void SampleScene::fill(PointBatch& batch, uint64_t first, size_t points) const {
    first = std::min(first, count);
    points = static_cast<size_t>(std::min<uint64_t>(points, count - first));
    batch.resize(points);
    const double spacing =
        std::sqrt(SampleTown::WIDTH * SampleTown::DEPTH / static_cast<double>(std::max<uint64_t>(count, 1)));
    const double jitter = std::min(spacing, 20.0);
    for (size_t i = 0; i < points; ++i) {
        SampleRandom random(seed, first + i);
        const auto [aimX, aimY] = aim(first + i, count);
        const double x = foldInto(aimX + random.between(-jitter, jitter), SampleTown::WIDTH);
        const double y = foldInto(aimY + random.between(-jitter, jitter), SampleTown::DEPTH);
        const Hit hit = Beam(town, random, seed, x, y).trace();

        double* const position = &batch.positions[i * 3];
        unsigned char* const attributes = &batch.attributes[i * 5];
        position[0] = foldInto(toMillimetres(foldInto(hit.x, SampleTown::WIDTH)), SampleTown::WIDTH);
        position[1] = foldInto(toMillimetres(foldInto(hit.y, SampleTown::DEPTH)), SampleTown::DEPTH);
        position[2] = toMillimetres(std::clamp(hit.z, 0.0, SampleTown::HIGHEST));
        attributes[0] = toByte(hit.colour.red);
        attributes[1] = toByte(hit.colour.green);
        attributes[2] = toByte(hit.colour.blue);
        attributes[3] = toByte(hit.intensity);
        attributes[4] = hit.pointClass;
    }
}

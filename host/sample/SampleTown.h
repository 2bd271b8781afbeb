#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct SampleColour {
    double red, green, blue; // 0..255
    SampleColour operator*(double factor) const { return {red * factor, green * factor, blue * factor}; }
};

enum class GroundKind : uint8_t {
    MEADOW,
    LAWN,
    CROP,
    PLOUGHED,
    FOREST_FLOOR,
    BANK,
    WATER,
    ASPHALT,
    MARKING,
    PAVEMENT,
    GRAVEL,
    BRIDGE,
    BUILT
};

// A rectangle in the plane, turned so that its length lies along the unit vector (ux, uy).
struct Footprint {
    double x = 0, y = 0;
    double ux = 1, uy = 0;
    double halfLength = 0, halfWidth = 0;

    struct Place {
        double u, v; // from the centre, along the length and across it
    };
    [[nodiscard]] Place toLocal(double px, double py) const {
        return {(px - x) * ux + (py - y) * uy, (py - y) * ux - (px - x) * uy};
    }
    [[nodiscard]] std::array<double, 2> toWorld(Place place) const {
        return {x + place.u * ux - place.v * uy, y + place.u * uy + place.v * ux};
    }
};

enum class RoofKind : uint8_t { GABLE, HIP, SPIRE, FLAT };

struct TownBuilding {
    Footprint footprint;
    RoofKind roof = RoofKind::GABLE;
    double base = 0;  // height of the ground
    double eaves = 0; // above the base
    double rise = 0;  // of the roof, above the eaves
    SampleColour wallColour{}, roofColour{};
    double chimney = 0; // its place along the ridge, 0 for none

    // Height of the roof's surface above the base.
    [[nodiscard]] double roofHeight(Footprint::Place place) const;
};

struct TownTree {
    double x = 0, y = 0, base = 0;
    double height = 0, stem = 0; // to the top, to where the crown begins
    double radius = 0;           // of the crown
    bool isConifer = false;
    SampleColour colour{};

    // Heights of the crown's lower and upper surface above the base, `distance` from the stem and within the radius.
    [[nodiscard]] std::array<double, 2> crownAt(double distance) const;
};

// A parked car, a hedge, or the parapet of the bridge.
struct TownBox {
    enum Kind : uint8_t { CAR, HEDGE, PARAPET };
    Footprint footprint;
    Kind kind = CAR;
    double height = 0; // above the ground, or the bridge's deck, that it stands on
    SampleColour colour{};
};

// A made-up little town by a river, from 0 to WIDTH and from 0 to DEPTH, in metres: terrain, streets, and what
// stands on them. Laid out once for a seed, then only read, by any number of threads.
class SampleTown {
public:
    static constexpr double WIDTH = 400, DEPTH = 300;
    static constexpr double WATER_LEVEL = 1;
    static constexpr double HIGHEST = 80; // nothing rises above; the lowest is 0

    explicit SampleTown(uint64_t seed);

    // Of the ground, the bridge's deck and the water.
    [[nodiscard]] double groundHeight(double x, double y) const;
    // Of the land, also under water and under the bridge.
    [[nodiscard]] double terrainHeight(double x, double y) const;
    [[nodiscard]] GroundKind groundKind(double x, double y) const;
    // Share of the sun's light on the ground.
    [[nodiscard]] double light(double x, double y) const;

    // What may be hit near a place: buildings up to WALL_REACH away, and trees and boxes above it.
    static constexpr double WALL_REACH = 3;
    struct Near {
        std::span<const uint16_t> buildings, trees, boxes; // indices into the vectors below
    };
    [[nodiscard]] Near near(double x, double y) const;

    std::vector<TownBuilding> buildings;
    std::vector<TownTree> trees;
    std::vector<TownBox> boxes;

private:
    friend class TownPlanner;

    // Lists of indices for each cell of a raster, one behind the other.
    struct CellLists {
        std::vector<uint32_t> starts;
        std::vector<uint16_t> items;
        [[nodiscard]] std::span<const uint16_t> at(size_t cell) const {
            return std::span(items).subspan(starts[cell], starts[cell + 1] - starts[cell]);
        }
    };

    std::vector<float> terrain;     // one height a metre
    std::vector<GroundKind> ground; // four by four a square metre
    std::vector<uint8_t> lights;    // two by two a square metre, 0..255
    CellLists buildingsNear, treesNear, boxesNear;
    double deckFrom = 0, deckTo = 1; // the bridge's ends in y
    double deckHeightFrom = 0, deckHeightTo = 0;
};

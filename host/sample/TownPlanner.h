#pragma once

#include "sample/SampleRandom.h"
#include "sample/SampleTown.h"

#include <functional>

// Lays out a SampleTown: first the lie of the land, then streets, then what stands along them, each step only where the
// ground is still free. A planner lives for the construction of one town.
class TownPlanner {
public:
    static constexpr double CELL = 4; // metres between the cells of the lists of near things

    TownPlanner(SampleTown& target, uint64_t townSeed) : town(target), seed(townSeed), random(townSeed, 1) {}
    void layOut();

private:
    struct Node {
        double x, y;
    };
    using Street = std::vector<Node>;

    // The land, in TownLand.cpp.
    [[nodiscard]] double riverMiddle(double x) const;
    [[nodiscard]] double riverHalfWidth(double x) const;
    [[nodiscard]] double naturalHeight(double x, double y) const;
    void shapeTerrain();
    void paintLand();
    void planStreets();
    void paintStreet(const Street& street, double width, GroundKind surface, double pavement);
    void paintRectangle(const Footprint& area, GroundKind kind, GroundKind onlyOn);
    void paintBridge();

    // What stands on it, in TownPlanner.cpp.
    [[nodiscard]] bool isFree(const Footprint& area) const;
    [[nodiscard]] bool isOpen(double x, double y) const;
    bool build(TownBuilding building);
    void buildAlong(const Street& street, double setback);
    TownBuilding designHouse(const Footprint& footprint, bool inCentre);
    void buildChurch();
    void layGardens();
    void plantHedge(const Footprint& garden, double side);
    void parkCars();
    void parkCar(double x, double y, double ux, double uy);
    void plant(double x, double y, double size, bool isConifer);
    void plantTrees();
    class Surface;
    [[nodiscard]] Surface drawSurface() const;
    void castLight();
    void fillLists();

    SampleTown& town;
    uint64_t seed;
    SampleRandom random;
    std::vector<Street> streets; // those with houses along them
};

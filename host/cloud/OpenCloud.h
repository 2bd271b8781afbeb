#pragma once

#include "readers/PointReader.h"

#include <array>
#include <cstdint>
#include <string>

// What a command tells about a file as a whole.
struct CloudFacts {
    int version = 0;
    int nodes = 0;
    int64_t points = 0;          // now in the file
    int64_t pointsBuilt = 0;     // when it was built
    std::array<double, 6> box{}; // smallest x, y, z, then largest
    double spacing = 0;          // of the points of the root, in units of the file
    double indexParameter = 0;   // as the build was told
    bool isProtected = false;
    uint64_t fileSize = 0; // in bytes
};

// A point file opened through the engine, closed with the object. Needs an EngineSession that outlives it.
class OpenCloud {
public:
    // Throws CommandFailure, which names the file.
    explicit OpenCloud(const std::string& path);
    ~OpenCloud();
    OpenCloud(const OpenCloud&) = delete;
    OpenCloud& operator=(const OpenCloud&) = delete;

    [[nodiscard]] int id() const { return cloud; }
    [[nodiscard]] CloudFacts facts() const;

    // Replaces the contents of `batch` by the points of one node, and returns their number. Throws CommandFailure when
    // they cannot be read.
    size_t readNode(int node, PointBatch& batch) const;

private:
    const std::string path;
    int cloud = -1;
};

#pragma once

#include "cloud/CloudSource.h"
#include "readers/PointReader.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// What a command tells about a file as a whole.
struct CloudFacts {
    int version = 0;
    int nodes = 0;
    int64_t points = 0;          // now in the file; 0 in a voxel model
    int64_t pointsBuilt = 0;     // when it was built
    std::array<double, 6> box{}; // smallest x, y, z, then largest
    double spacing = 0;          // of the points of the root, in units of the file
    double indexParameter = 0;   // as the build was told
    bool isProtected = false;
    bool isOnPointServer = false; // which does not tell its spacing
    int64_t voxelColours = 0;     // cells of a voxel model with a stored colour

    [[nodiscard]] bool isVoxel() const;
};

// A point file or voxel model, here or elsewhere, opened through the engine and closed with the object. Needs an
// EngineSession that outlives it.
class OpenCloud {
public:
    static constexpr int VOXEL_VERSION = 90;

    // path  a file, or what else cloud/CloudSource.h knows. Throws CommandFailure, which names it.
    explicit OpenCloud(const std::string& path);
    ~OpenCloud();
    OpenCloud(const OpenCloud&) = delete;
    OpenCloud& operator=(const OpenCloud&) = delete;

    [[nodiscard]] int id() const { return cloud; }
    // As messages and results show it.
    [[nodiscard]] const std::string& label() const { return name; }
    [[nodiscard]] bool isRemote() const { return kind != SourceKind::LOCAL_FILE; }
    [[nodiscard]] CloudFacts facts() const;

    // Replaces the contents of `batch` by the points of one node, and returns their number. Throws CommandFailure when
    // they cannot be read. Any thread.
    size_t readNode(int node, PointBatch& batch) const;

    // Attributes like those of a point, 5 bytes each, of at most so many cells of a voxel model, spread over all of it.
    // None if it has no colours or they cannot be read.
    [[nodiscard]] std::vector<unsigned char> sampleVoxelColours(size_t most) const;

private:
    const std::string path; // as given
    const std::string name;
    const SourceKind kind;
    int cloud = -1;
};

#pragma once

#include "serve/Catalogue.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

// A point file in the form of the wire: the bodies of the three answers that a point server gives. docs/network.md
// describes them.
//
// Needs an EngineSession that outlives it. It keeps its file open and serves it as it was, also when another file takes
// its name meanwhile. All operations but the making may be called from several threads.
class ServedCloud {
public:
    // Reads the tree. Throws CommandFailure when the file is damaged or may not be served. For one thread at a time.
    explicit ServedCloud(const CatalogueEntry& entryToServe);

    // JSON of at most 1023 bytes.
    [[nodiscard]] std::string info() const;

    // 3 bytes a node; of a voxel model the file's block of header and tree. Nothing when that can't be read.
    [[nodiscard]] std::optional<std::string> tree() const;

    // 17 bytes a point. Nothing for a number outside the tree, and when the node can't be read.
    [[nodiscard]] std::optional<std::string> node(uint64_t number) const;

private:
    using Corner = std::array<double, 3>;

    void readTree();
    [[nodiscard]] bool isVoxelModel() const { return entry.version == 90; }
    [[nodiscard]] bool isUnread(int number, const std::vector<double>& positions,
                                const std::vector<char>& attributes) const;

    const CatalogueEntry entry;
    int cloud = -1;              // in the engine; a voxel model is served from its file alone
    std::vector<Corner> corners; // smallest x, y, z of the nodes
};

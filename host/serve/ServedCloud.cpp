#include "serve/ServedCloud.h"
#include "cloud/CloudSource.h"
#include "cloud/CloudTree.h"
#include "support/Failure.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <limits>
#include <utility>

// A point of the wire: three 32-bit floats relative to the smallest corner of the node, then the attributes.
static constexpr size_t POSITION_BYTES = 3 * sizeof(float);
static constexpr size_t ATTRIBUTE_BYTES = 5;
static constexpr size_t POINT_BYTES = POSITION_BYTES + ATTRIBUTE_BYTES;
static constexpr size_t NODE_BYTES = 3; // in the tree
static constexpr int64_t HEADER_SIZE = 124;

ServedCloud::ServedCloud(const CatalogueEntry& entryToServe) : entry(entryToServe) {
    if (isVoxelModel()) {
        if (entry.reserved < HEADER_SIZE || std::cmp_greater(entry.reserved, entry.size)) {
            throw CommandFailure(entry.file, "the file is too short for the tree that its header announces");
        }
        return;
    }
    cloud = openCloudSource(entry.file);
    if (cloud < 0) throw CommandFailure(entry.file, nimbrelLastError());
    try {
        // The wire has no word for a protection, so that whoever got the cloud could use it for ever.
        if (isProtected(cloud) == 1) throw CommandFailure(entry.file, "is protected, and not served");
        readTree();
    } catch (...) {
        closePointCloud(cloud); // the one that was opened last, so that no other id is touched
        throw;
    }
}

void ServedCloud::readTree() {
    std::array<double, 6> box{};
    getOrigin(cloud, box.data());
    const auto boxes = CloudTree::ofCloud(cloud, entry.file).boxes(box);
    corners.reserve(boxes.size());
    for (const CloudTree::Box& next : boxes) corners.push_back({next[0], next[1], next[2]});
}

std::string ServedCloud::info() const {
    // The wire counts points in 32 bits; a client counts those of the nodes itself.
    const int64_t points = std::min<int64_t>(entry.points, std::numeric_limits<int32_t>::max());
    return fmt::format(R"({{"BoundingBox":[{}],"Nodes":{},"Version":{},"Points":{},"Reserved":{}}})",
                       fmt::join(entry.box, ","), entry.nodes, entry.version, points, entry.reserved);
}

std::optional<std::string> ServedCloud::tree() const {
    if (isVoxelModel()) {
        std::string block(static_cast<size_t>(entry.reserved), '\0');
        std::ifstream stream(entry.file, std::ios::binary);
        if (!stream.read(block.data(), static_cast<std::streamsize>(block.size()))) return std::nullopt;
        return block;
    }
    std::string structure(corners.size() * NODE_BYTES, '\0');
    getTreeStructure(cloud, structure.data());
    return structure;
}

// A node that could not be read comes as black points in its corner, which no node really is that has a point
// elsewhere.
bool ServedCloud::isUnread(int number, const std::vector<double>& positions,
                           const std::vector<char>& attributes) const {
    const Corner& corner = corners[static_cast<size_t>(number)];
    if (*nimbrelLastError() == '\0') return false;
    if (std::any_of(attributes.begin(), attributes.end(), [](char byte) { return byte != 0; })) return false;
    for (size_t i = 0; i < positions.size(); ++i) {
        if (positions[i] != corner[i % 3]) return false;
    }
    return true;
}

std::optional<std::string> ServedCloud::node(uint64_t number) const {
    if (number >= corners.size()) return std::nullopt;
    const int index = static_cast<int>(number);
    const auto count = static_cast<size_t>(std::max(0, getNodePointCount(cloud, index)));
    // Kept from request to request, since a thread serves many.
    thread_local std::vector<double> positions;
    thread_local std::vector<char> attributes;
    positions.resize(count * 3);
    attributes.resize(count * ATTRIBUTE_BYTES);
    if (count > 0) getNodePoints(cloud, index, positions.data(), attributes.data());
    if (count > 0 && isUnread(index, positions, attributes)) return std::nullopt;
    std::string body(count * POINT_BYTES, '\0');
    const Corner& corner = corners[number];
    char* out = body.data();
    for (size_t i = 0; i < count; ++i, out += POINT_BYTES) {
        float relative[3];
        for (size_t axis = 0; axis < 3; ++axis) {
            relative[axis] = static_cast<float>(positions[i * 3 + axis] - corner[axis]);
        }
        std::memcpy(out, relative, POSITION_BYTES);
        std::memcpy(out + POSITION_BYTES, attributes.data() + i * ATTRIBUTE_BYTES, ATTRIBUTE_BYTES);
    }
    return body;
}

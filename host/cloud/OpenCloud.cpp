#include "cloud/OpenCloud.h"
#include "cloud/CloudSource.h"
#include "readers/PointReader.h"
#include "support/Failure.h"

#include <nimbrel/NimbrelEngine.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

// The two values of the header that no export hands out. docs/format.md has the layout.
static constexpr size_t HEADER_SIZE = 124;
static constexpr size_t POINT_COUNT_OFFSET = 12;
static constexpr size_t SPACING_OFFSET = 92;
static constexpr size_t INDEX_PARAMETER_OFFSET = 100;
static constexpr double SPACING_STEPS = 10000.0; // to a unit

// What stands in a voxel model, whose colours no export hands out either.
static constexpr int64_t VOXEL_NODES_PER_BYTE = 4;
static constexpr int64_t VOXEL_COLOUR_BYTES = 3;
static constexpr int64_t LEAST_COLOUR_BYTES = 4; // the engine takes less for padding

static int64_t voxelColoursAt(int64_t nodes) {
    return static_cast<int64_t>(HEADER_SIZE) + (nodes + VOXEL_NODES_PER_BYTE - 1) / VOXEL_NODES_PER_BYTE;
}

bool CloudFacts::isVoxel() const {
    return version == OpenCloud::VOXEL_VERSION;
}

template <typename T>
static T headerValue(const std::array<char, HEADER_SIZE>& header, size_t offset) {
    T value;
    std::memcpy(&value, header.data() + offset, sizeof(T));
    return value;
}

// What people most often get wrong about what the engine did not open; empty when it is something else.
static std::string commonMistake(const std::string& path, SourceKind kind) {
    if (kind == SourceKind::POINT_SERVER) {
        const size_t slash = path.find('/', path.find("//") + 2);
        if (slash != std::string::npos && slash + 1 < path.size()) return {};
        return "names a server, but none of the point files on it";
    }
    if (kind != SourceKind::LOCAL_FILE) return {};
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return {};
    if (access(path.c_str(), R_OK) != 0) return std::string("cannot be opened: ") + std::strerror(errno);
    try {
        return "is no point file but " + openPoints(path, {})->describe() + "; 'nimbrel build' makes one of it";
    } catch (const FileError&) {
        return {};
    }
}

OpenCloud::OpenCloud(const std::string& pathToOpen)
    : path(pathToOpen), name(labelOfSource(path)), kind(kindOfSource(path)), cloud(openCloudSource(path)) {
    if (cloud >= 0) return;
    const std::string reason = nimbrelLastError();
    const std::string mistake = commonMistake(path, kind);
    if (!mistake.empty()) throw CommandFailure(name, mistake);
    throw CommandFailure(name, reason.empty() ? "cannot be opened" : reason);
}

OpenCloud::~OpenCloud() {
    closePointCloud(cloud);
}

CloudFacts OpenCloud::facts() const {
    std::array<char, HEADER_SIZE> header{};
    getHeader(cloud, header.data());
    CloudFacts facts;
    facts.version = getVersion(cloud);
    facts.nodes = getNodeCount(cloud);
    facts.points = getPointCount(cloud);
    facts.pointsBuilt = headerValue<int64_t>(header, POINT_COUNT_OFFSET);
    getOrigin(cloud, facts.box.data());
    facts.spacing = static_cast<double>(headerValue<int64_t>(header, SPACING_OFFSET)) / SPACING_STEPS;
    facts.indexParameter = headerValue<double>(header, INDEX_PARAMETER_OFFSET);
    facts.isProtected = isProtected(cloud) == 1;
    facts.isOnPointServer = kind == SourceKind::POINT_SERVER;
    if (facts.isVoxel()) {
        facts.points = facts.pointsBuilt = 0; // the engine counts nodes there
        const int64_t colours = getReserved(cloud) - voxelColoursAt(facts.nodes);
        facts.voxelColours = colours >= LEAST_COLOUR_BYTES ? colours / VOXEL_COLOUR_BYTES : 0;
    }
    return facts;
}

std::vector<unsigned char> OpenCloud::sampleVoxelColours(size_t most) const {
    const CloudFacts all = facts();
    const int64_t every = all.voxelColours / static_cast<int64_t>(most) + 1;
    std::vector<unsigned char> result;
    std::ifstream file(path, std::ios::binary);
    for (int64_t cell = 0; cell < all.voxelColours; cell += every) {
        std::array<unsigned char, VOXEL_COLOUR_BYTES> stored{};
        file.seekg(voxelColoursAt(all.nodes) + cell * VOXEL_COLOUR_BYTES);
        if (!file.read(reinterpret_cast<char*>(stored.data()), VOXEL_COLOUR_BYTES)) return {};
        const auto blue = static_cast<unsigned char>(stored[2] & 0xF0U);
        const auto intensity = static_cast<unsigned char>((stored[2] & 0x0FU) << 4);
        for (const unsigned char value : {stored[0], stored[1], blue, intensity, static_cast<unsigned char>(0)}) {
            result.push_back(value);
        }
    }
    return result;
}

size_t OpenCloud::readNode(int node, PointBatch& batch) const {
    const int count = getNodePointCount(cloud, node);
    batch.resize(count > 0 ? static_cast<size_t>(count) : 0);
    if (count > 0) {
        getNodePoints(cloud, node, batch.positions.data(), reinterpret_cast<char*>(batch.attributes.data()));
        // The points themselves do not show that they could not be read.
        const std::string reason = nimbrelLastError();
        if (!reason.empty()) throw CommandFailure(name, reason);
    }
    return batch.size();
}

#include "cloud/OpenCloud.h"
#include "support/Failure.h"
#include "support/WidePath.h"

#include <nimbrel/NimbrelEngine.h>

#include <cstring>
#include <filesystem>
#include <system_error>

// The two values of the header that no export hands out. docs/format.md has the layout.
static constexpr size_t HEADER_SIZE = 124;
static constexpr size_t POINT_COUNT_OFFSET = 12;
static constexpr size_t SPACING_OFFSET = 92;
static constexpr size_t INDEX_PARAMETER_OFFSET = 100;
static constexpr double SPACING_STEPS = 10000.0; // to a unit

template <typename T>
static T headerValue(const std::array<char, HEADER_SIZE>& header, size_t offset) {
    T value;
    std::memcpy(&value, header.data() + offset, sizeof(T));
    return value;
}

OpenCloud::OpenCloud(const std::string& pathToOpen)
    : path(pathToOpen), cloud(loadPointCloudFile(widePath(pathToOpen).c_str())) {
    if (cloud >= 0) return;
    const std::string reason = nimbrelLastError();
    throw CommandFailure(path, reason.empty() ? "cannot be opened as a point file" : reason);
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
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (!error) facts.fileSize = size;
    return facts;
}

size_t OpenCloud::readNode(int node, PointBatch& batch) const {
    const int count = getNodePointCount(cloud, node);
    batch.resize(count > 0 ? static_cast<size_t>(count) : 0);
    if (count > 0) {
        getNodePoints(cloud, node, batch.positions.data(), reinterpret_cast<char*>(batch.attributes.data()));
        // The points themselves do not show that they could not be read.
        const std::string reason = nimbrelLastError();
        if (!reason.empty()) throw CommandFailure(path, reason);
    }
    return batch.size();
}

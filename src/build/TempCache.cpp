#include "build/TempCache.h"

#include "build/OPCCreator.h"
#include "format/PointRecord.h"
#include "ground/Log.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <system_error>
#include <unistd.h>

namespace {
constexpr size_t BUFFERED_POINTS = 65536;

void noteFailure(const char* what) {
    setLastError(std::string(what) + ": " + std::error_code(errno, std::system_category()).message());
}
} // namespace

TempCache::TempCache() {
    boundsMin.fill(std::numeric_limits<double>::max());
    boundsMax.fill(-std::numeric_limits<double>::max());
}

TempCache::~TempCache() {
    closeTempCache();
}

bool TempCache::createTempCache(const std::wstring& pathIn) {
    batchSizes.clear();
    count = 0;
    boundsMin.fill(std::numeric_limits<double>::max());
    boundsMax.fill(-std::numeric_limits<double>::max());
    if (!closeTempCache()) return false;
    path = toUtf8(pathIn);
    isReading = false;
    position = 0;
    file.open(path.c_str(), memory_mapped_file::if_exists_truncate, memory_mapped_file::if_doesnt_exist_create);
    if (!file.is_open()) noteFailure("the staging file can't be made");
    return file.is_open();
}

void TempCache::includeInBounds(const double* point) {
    const double turned[3] = {point[0], -point[2], point[1]};
    for (size_t axis = 0; axis < 3; ++axis) {
        boundsMin[axis] = std::min(boundsMin[axis], turned[axis]);
        boundsMax[axis] = std::max(boundsMax[axis], turned[axis]);
    }
}

bool TempCache::writeOut() {
    if (!file.write(buffer.data(), position, buffer.size())) {
        noteFailure("the staging file can't take more points");
        return false;
    }
    position += buffer.size();
    count += static_cast<int64_t>(buffer.size() / FloatRecord::SIZE);
    return true;
}

bool TempCache::addCachePoints(const double* positions, const unsigned char* attributes, int batchCount) {
    if (!file.is_open() || isReading) return false;
    if (count == 0 && batchCount > 0) std::copy_n(positions, 3, origin.begin());
    const int64_t countBefore = count;
    bool isWhole = true;
    for (int done = 0; done < batchCount && isWhole;) {
        const size_t part = std::min(BUFFERED_POINTS, static_cast<size_t>(batchCount - done));
        buffer.resize(part * FloatRecord::SIZE);
        for (size_t i = 0; i < part; ++i, positions += 3, attributes += ATTRIBUTE_BYTES) {
            includeInBounds(positions);
            FloatRecord::encode(buffer.data() + i * FloatRecord::SIZE, positions, origin.data(), attributes);
        }
        isWhole = writeOut();
        done += static_cast<int>(part);
    }
    // What was written, so that a transfer never asks for more than there is.
    batchSizes.push_back(isWhole ? batchCount : static_cast<int>(count - countBefore));
    return isWhole;
}

void TempCache::getCacheBoundingBox(double* out) const {
    std::copy(boundsMin.begin(), boundsMin.end(), out);
    std::copy(boundsMax.begin(), boundsMax.end(), out + 3);
}

void TempCache::rewindCache() {
    if (!file.is_open()) return;
    isReading = true;
    position = 0;
}

void TempCache::transferToOPC(OPCCreator& creator, int batch, const double* a, const double* b) {
    if (!file.is_open() || batch < 0 || static_cast<size_t>(batch) >= batchSizes.size()) return;
    const double offset[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    std::vector<double> positions;
    std::vector<unsigned char> attributes;
    for (int left = batchSizes[static_cast<size_t>(batch)]; left > 0;) {
        const auto part = static_cast<size_t>(std::min(left, TRANSFER_SIZE));
        buffer.resize(part * FloatRecord::SIZE);
        if (!file.read(buffer.data(), position, buffer.size())) {
            setLastError("the staging file ends before its points do");
            return;
        }
        position += buffer.size();
        positions.resize(part * 3);
        attributes.resize(part * ATTRIBUTE_BYTES);
        for (size_t i = 0; i < part; ++i) {
            const unsigned char* record = buffer.data() + i * FloatRecord::SIZE;
            double* point = positions.data() + i * 3;
            FloatRecord::decode(record, origin.data(), point);
            for (size_t axis = 0; axis < 3; ++axis) point[axis] += offset[axis];
            std::copy_n(record + FloatRecord::ATTRIBUTES, ATTRIBUTE_BYTES, attributes.data() + i * ATTRIBUTE_BYTES);
        }
        creator.addPoints(positions.data(), attributes.data(), static_cast<int>(part));
        left -= static_cast<int>(part);
    }
}

bool TempCache::closeTempCache() {
    if (!file.is_open()) return true;
    if (file.close() != 0) return false;
    std::error_code failure;
    if (std::filesystem::is_regular_file(path, failure)) ::unlink(path.c_str()); // a device stays
    path.clear();
    buffer = {};
    return true;
}

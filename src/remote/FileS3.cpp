#include "remote/FileS3.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "remote/ConnectionPool.h"
#include "remote/S3Utils.h"

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string_view>

static constexpr size_t CACHED_NODES = 10000;

// What a node may take when the store does not tell how long the object is: far more than any builder writes.
static constexpr int64_t MOST_UNCHECKED = int64_t{64} << 20;

LRUCache<std::wstring, NodeBytes>& dataCache() {
    static LRUCache<std::wstring, NodeBytes> cache(CACHED_NODES);
    return cache;
}

// Bytes of neighbours in the file that are asked for in one range: a few typical nodes. More would keep the other
// connections idle.
static constexpr int64_t MOST_TOGETHER = int64_t{1} << 20;

FileS3::FileS3() : ahead(connectionCount(), MOST_TOGETHER) {}

void FileS3::openFile(const std::wstring& path, bool /*writable*/, long long /*start*/) {
    filename = path;
    url = path.starts_with(L"https://") ? toUtf8(path) : S3Utils::getSignedURL(path);
}

bool FileS3::saveData(const char* /*in*/, long long /*byteLocation*/, int /*size*/) {
    return false;
}

bool FileS3::backs(int64_t byteLocation, int64_t size) {
    if (byteLocation < 0 || size < 0) return false;
    if (objectSize == -1) return size <= MOST_UNCHECKED;
    return byteLocation <= objectSize && size <= objectSize - byteLocation;
}

// An object that was replaced would give bytes of another file under this one's tree.
bool FileS3::isSameObject(const std::string& versionSeen) const {
    return version.empty() || versionSeen.empty() || version == versionSeen;
}

std::wstring FileS3::cacheKey(long long nodeIndex) const {
    return filename + L"_" + contentMark + std::to_wstring(nodeIndex);
}

bool FileS3::readData(char* out, long long nodeIndex, long long byteLocation, int size) {
    if (byteLocation < 0 || size <= 0 || !enabled) return false;
    const auto length = static_cast<size_t>(size);
    const bool isCached = nodeIndex != 0; // 0: the root, which is read anew each time
    const std::wstring key = isCached ? cacheKey(nodeIndex) : std::wstring();
    if (isCached) {
        const NodeBytes known = dataCache().get(key).value_or(nullptr);
        if (known && known->size() == length) {
            std::memcpy(out, known->data(), length);
            return true;
        }
    }
    const S3Utils::ObjectAnswer answer = S3Utils::readObject(
        url, byteLocation, size,
        [out](int64_t position, const char* data, size_t count) { std::memcpy(out + position, data, count); },
        &closing);
    if (!answer.whole || !isSameObject(answer.version)) {
        setLastError(answer.whole ? "the file changed in the store" : answer.reason);
        return false;
    }
    if (isCached) dataCache().put(key, std::make_shared<const std::vector<char>>(out, out + length));
    return true;
}

bool FileS3::readTogether(std::span<const NodeExtent> extents) {
    const auto isKnown = [this](const NodeExtent& extent) {
        return dataCache().get(cacheKey(extent.nodeIndex)).has_value();
    };
    while (!extents.empty() && isKnown(extents.front())) extents = extents.subspan(1);
    while (!extents.empty() && isKnown(extents.back())) extents = extents.first(extents.size() - 1);
    if (extents.size() < 2 || !enabled) return true; // nothing to gain
    const int64_t start = extents.front().byteLocation;
    const int64_t size = extents.back().byteLocation + extents.back().size - start;
    if (!backs(start, size)) return true; // which of them lie outside shows one by one
    std::vector<char> bytes(static_cast<size_t>(size));
    const S3Utils::ObjectAnswer answer = S3Utils::readObject(
        url, start, size,
        [&bytes](int64_t position, const char* data, size_t count) {
            std::memcpy(bytes.data() + position, data, count);
        },
        &closing);
    if (!answer.whole || !isSameObject(answer.version)) return false;
    for (const NodeExtent& extent : extents) {
        const auto begin = bytes.begin() + (extent.byteLocation - start);
        dataCache().put(cacheKey(extent.nodeIndex),
                        std::make_shared<const std::vector<char>>(begin, begin + extent.size));
    }
    return true;
}

// The object's first bytes, in memory that grows as they come: the size may be what a damaged header announces.
std::vector<unsigned char> FileS3::readStart(int64_t size) {
    std::vector<unsigned char> bytes;
    const S3Utils::ObjectAnswer answer = S3Utils::readObject(
        url, 0, size,
        [&bytes](int64_t position, const char* data, size_t count) {
            bytes.resize(static_cast<size_t>(position));
            bytes.insert(bytes.end(), data, data + count);
        },
        &closing);
    if (!answer.whole) throw std::runtime_error(answer.reason);
    if (!isSameObject(answer.version)) throw std::runtime_error("the file changed in the store");
    if (answer.objectSize != -1) objectSize = answer.objectSize;
    version = answer.version;
    return bytes;
}

void FileS3::readHeader(OPCHeader* header) {
    const std::vector<unsigned char> image = readStart(header->headerSize);
    header->setHeaderData(reinterpret_cast<const char*>(image.data()));
    const int64_t length = NodeRecord::imageSize(*header);
    if (length < header->headerSize || (objectSize != -1 && length > objectSize)) {
        throw std::runtime_error("the file is too short for the tree that its header announces");
    }
    treeStructure = readStart(length);

    // Another file under the same name has another tree or another version, and must not get this one's nodes.
    const std::string_view tree(reinterpret_cast<const char*>(treeStructure.data()), treeStructure.size());
    contentMark = std::to_wstring(std::hash<std::string_view>{}(tree) ^ std::hash<std::string>{}(version)) + L"_";
}

// Which windows see a node, and the loading of its points that follows from it.
//
// The load job decodes into a block of its own and hands it to the batch complete, so that a reader of the batch finds
// all of a node or nothing, and a failed read leaves no trace. Filling the batch in place would need a third state that
// every reader of it had to know.

#include "format/EditJournal.h"
#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "format/PointRecord.h"
#include "format/VertexDecoder.h"
#include "ground/Pools.h"
#include "ground/ThreadPool.h"
#include "stream/GPUBatch.h"
#include "stream/LoadNotification.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"
#include "stream/ReadAhead.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace {

constexpr int WINDOWS = 8;

uint8_t windowBit(int window) {
    return window < 0 || window >= WINDOWS ? uint8_t{0} : static_cast<uint8_t>(1U << window);
}

} // namespace

bool OPCNode::isVisible(int window) {
    return ((windowVisibility >> (window & 31)) & 1) != 0;
}

void OPCNode::setVisible(int window) {
    windowVisibility |= windowBit(window);
}

void OPCNode::clearWindowVisibility() {
    walkNodes(*this, [](OPCInterface& node) {
        static_cast<OPCNode&>(node).windowVisibility = 0;
        return true;
    });
}

void OPCNode::unregisterWindow(int window) {
    const uint8_t bit = windowBit(window);
    walkNodes(*this, [&](OPCInterface& next) {
        auto& node = static_cast<OPCNode&>(next);
        const uint8_t before = node.windowVisibility.fetch_and(static_cast<uint8_t>(~bit));
        node.withdrawLoad(window);
        if (bit != 0 && before == bit) {
            std::lock_guard lock(node.nodeMutex);
            // Asked again: the visibility pass may just have shown the node in another window.
            if (node.windowVisibility == 0) node.freeVertices();
        }
        return true;
    });
}

void OPCNode::unload(bool recursive) {
    if (!recursive) return unloadThis();
    walkNodes(*this, [](OPCInterface& node) {
        static_cast<OPCNode&>(node).unloadThis();
        return true;
    });
}

void OPCNode::unloadThis() {
    std::lock_guard lock(nodeMutex);
    windowVisibility = 0;
    freeVertices();
}

// The caller holds nodeMutex.
void OPCNode::freeVertices() {
    GPUBatch* batch = existingBatch(0);
    if (!batch || !batch->clear()) return;
    notifyLoad(false, static_cast<uint64_t>(nodeIndex), nullptr, pointCount, boundingBox.data());
}

// Cantor's pairing of an address in the node and the window, so that unregisterWindow can name the job that cache
// queued. Wraps around.
unsigned long long OPCNode::loadJobId(int window) const {
    const unsigned long long a = reinterpret_cast<uintptr_t>(&children);
    const auto w = static_cast<unsigned long long>(window);
    return (a + w) * (a + w + 1) / 2 + w;
}

void OPCNode::cache(int window, std::queue<OPCInterface*>* queue) {
    if (!isVisible(window)) return;
    if (!getGPUBatch(window)->isResident()) requestLoad(window);
    for (const auto& child : children) queue->push(child.get());
}

void OPCNode::requestLoad(int window) {
    ReadAhead* ahead = file ? file->readAhead() : nullptr;
    if (ahead && getDiskSize() > 0) return ahead->request(*this, window);
    getDiskThreadPool().AddJob([this] { load(nullptr); }, loadJobId(window));
}

void OPCNode::withdrawLoad(int window) {
    if (ReadAhead* ahead = file ? file->readAhead() : nullptr) ahead->withdraw(*this, window);
    getDiskThreadPool().DeleteJob(loadJobId(window));
}

bool OPCNode::readTogether(std::span<OPCNode* const> run) {
    std::vector<PointCloudFile::NodeExtent> extents;
    for (OPCNode* node : run) {
        extents.push_back({node->nodeIndex, node->pointDataByteLocation, static_cast<int>(node->getDiskSize())});
    }
    return run.front()->file->readTogether(extents);
}

void OPCNode::loadFetched(const std::vector<unsigned char>& stored) {
    load(&stored);
}

// The load job, which reads the node unless its bytes were fetched. Loads nothing when no window sees the node any
// more, or when the job of another window came first.
void OPCNode::load(const std::vector<unsigned char>* fetched) {
    std::lock_guard lock(nodeMutex);
    GPUBatch* batch = getGPUBatch(0);
    if (!isVisibleAnyWindows() || batch->isResident()) return;
    const int count = pointCount;
    const int size = count * Vertex::SIZE;
    verticesOutdated = false; // before reading: what is saved meanwhile counts as newer
    std::unique_ptr<unsigned char[]> vertices;
    try {
        vertices = std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(size));
        // Absent it stays, and is asked for again at the next camera.
        const std::span<unsigned char> out(vertices.get(), static_cast<size_t>(size));
        if (!(fetched ? decode(*fetched, out) : loadPointDataToGPUFormat(out))) return;
        if (fetched) markSelected(out);
    } catch (const std::exception&) {
        return; // no memory: as a failed read, since an exception would end the process from here
    }
    unsigned char* const arrived = vertices.get();
    batch->fill(std::move(vertices), size);
    notifyLoad(true, static_cast<uint64_t>(nodeIndex), arrived, count, boundingBox.data());
}

bool OPCNode::loadPointData(std::vector<unsigned char>& buffer) {
    if (!file) return false;
    const int64_t size = getDiskSize();
    if (size > std::numeric_limits<int>::max()) return false;
    // A network source serves by node and knows no places.
    if (!file->isNetwork() && size > 0 && !file->backs(pointDataByteLocation, size)) return false;
    buffer.resize(static_cast<size_t>(size));
    if (size == 0) return true;
    return file->readData(reinterpret_cast<char*>(buffer.data()), nodeIndex, pointDataByteLocation,
                          static_cast<int>(size));
}

bool OPCNode::savePointData(std::vector<unsigned char>& buffer) {
    return saveChange(buffer, NodeChange::SAME_COUNT);
}

bool OPCNode::savePoints(std::vector<unsigned char>& buffer, short count) {
    if (!saveChange(buffer, count)) return false;
    pointCount = count;
    return true;
}

bool OPCNode::saveChange(std::span<const unsigned char> points, short count) {
    if (!isWritable()) return false;
    std::vector<unsigned char> whole;
    const size_t size = static_cast<size_t>(std::max<int16_t>(originalPointCount, 0)) * bytesPerVertex;
    if (!NodeRecord::isStream(version) && !points.empty() && points.size() < size) {
        // The points deleted earlier go along unchanged, so that the change holds all of the node: it then loses no
        // point when it is replayed over another state of the file, such as a backup.
        whole.resize(size);
        std::copy(points.begin(), points.end(), whole.begin());
        if (!file->readData(reinterpret_cast<char*>(whole.data()) + points.size(), nodeIndex,
                            pointDataByteLocation + std::ssize(points), static_cast<int>(size - points.size()))) {
            return false;
        }
        points = whole;
    }
    const bool hasCount = count != NodeChange::SAME_COUNT;
    const std::vector<unsigned char> record = hasCount ? recordWith(count) : std::vector<unsigned char>();
    const bool saved = file->saveNode({nodeIndex, count, points}, pointDataByteLocation, record,
                                      nodeIndex * recordSize + OPCHeader::Layout::SIZE);
    if (saved && !points.empty()) verticesOutdated = true;
    return saved;
}

// Decodes again what changed in the source. The caller holds nodeMutex, so that nobody loads or unloads meanwhile.
void OPCNode::refreshVertices(GPUBatch& batch) {
    if (verticesOutdated.exchange(false) && batch.isResident()) {
        const int size = batch.size;
        auto vertices = std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(size));
        if (decodeStored({vertices.get(), static_cast<size_t>(size)})) batch.fill(std::move(vertices), size);
    }
    std::lock_guard lock(batch.mutex);
    if (!batch.data) return;
    refreshSelected({batch.data.get(), static_cast<size_t>(batch.size)});
    batch.changed = true;
}

bool OPCNode::loadPointDataToGPUFormat(std::span<unsigned char> out) {
    if (out.empty() || pointCount == 0) {
        std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
        return true;
    }
    bool sound = true;
    GPUBatch* batch = existingBatch(0);
    if (!batch || !batch->copyTo(out)) sound = decodeStored(out);
    markSelected(out);
    return sound;
}

// Decodes the stored points to `out`, with zeros where they give none; false, with zeros alone, when the read fails.
bool OPCNode::decodeStored(std::span<unsigned char> out) {
    std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
    std::vector<unsigned char> stored;
    return loadPointData(stored) && decode(stored, out);
}

// Decodes the node's stored bytes to `out`, with zeros where they give none; false, with zeros alone, when no points
// can be made of them.
bool OPCNode::decode(const std::vector<unsigned char>& stored, std::span<unsigned char> out) {
    std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
    const bool network = file && file->isNetwork();
    const bool stream = NodeRecord::isStream(version);
    if (!network && !stream && bytesPerVertex < ATTRIBUTE_BYTES) return false;
    const auto room =
        static_cast<int>(std::min<size_t>(out.size() / Vertex::SIZE, std::numeric_limits<int16_t>::max()));
    const int count = std::min<int>(room, pointCount);
    if (network) {
        decodeFloatVertices(stored, count, out.data());
    } else if (stream) {
        decodeStreamVertices(stored, getFilter(), count, out.data());
    } else {
        decodeFixedVertices(stored, bytesPerVertex, count, out.data());
    }
    return true;
}

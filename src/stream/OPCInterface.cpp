#include "stream/OPCInterface.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "format/PointRecord.h"
#include "stream/GPUBatch.h"
#include "stream/NodeWalk.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace {

// The mutex of a node's batch map and selection bits: one of 64, chosen by address.
std::mutex& detailMutex(const OPCInterface* node) {
    static std::array<std::mutex, 64> mutexes;
    return mutexes[(reinterpret_cast<uintptr_t>(node) / sizeof(OPCInterface)) % mutexes.size()];
}

// How many of the first `count` bits are set. Listings count the bits of every node before their start, page by page,
// so that they are counted a word at a time where the library's layout is known.
size_t countSetBits(const std::vector<bool>& bits, size_t count) {
    size_t done = 0;
    size_t total = 0;
#if defined(__GLIBCXX__)
    constexpr size_t WORD = std::numeric_limits<std::_Bit_type>::digits;
    for (const std::_Bit_type* word = bits.begin()._M_p; count - done >= WORD; done += WORD, ++word) {
        total += static_cast<size_t>(std::popcount(*word));
    }
#endif
    for (; done < count; ++done) total += bits[done] ? 1 : 0;
    return total;
}

} // namespace

OPCInterface::OPCInterface() : recordSize(NodeRecord::Fixed::SIZE), version(OPCHeader::VERSION_FIXED) {}

OPCInterface::~OPCInterface() = default;

GPUBatch* OPCInterface::getGPUBatch(int /*window*/) {
    return batchAt(0);
}

GPUBatch* OPCInterface::existingBatch(int /*window*/) {
    return existingBatchAt(0);
}

GPUBatch* OPCInterface::batchAt(int key) {
    std::lock_guard lock(detailMutex(this));
    if (!gpuBatches) gpuBatches = std::make_unique<std::map<int, GPUBatch>>();
    return &(*gpuBatches)[key];
}

GPUBatch* OPCInterface::existingBatchAt(int key) {
    std::lock_guard lock(detailMutex(this));
    if (!gpuBatches) return nullptr;
    const auto entry = gpuBatches->find(key);
    return entry == gpuBatches->end() ? nullptr : &entry->second;
}

std::vector<bool> OPCInterface::getSelectionBits() {
    std::lock_guard lock(detailMutex(this));
    return selectionBits;
}

void OPCInterface::setSelectionBits(std::vector<bool> bits) {
    std::lock_guard lock(detailMutex(this));
    selectionBits = std::move(bits);
}

void OPCInterface::markSelected(std::span<unsigned char> vertices) {
    std::lock_guard lock(detailMutex(this));
    const size_t count = std::min(selectionBits.size(), vertices.size() / Vertex::SIZE);
    for (size_t i = 0; i < count; ++i) {
        if (selectionBits[i]) vertices[i * Vertex::SIZE + Vertex::SELECTION] = 1;
    }
}

bool OPCInterface::hasSelectionBits() const {
    std::lock_guard lock(detailMutex(this));
    return !selectionBits.empty();
}

int OPCInterface::countSelected() const {
    std::lock_guard lock(detailMutex(this));
    const size_t count = std::min(selectionBits.size(), static_cast<size_t>(std::max<int16_t>(pointCount, 0)));
    return static_cast<int>(countSetBits(selectionBits, count));
}

bool OPCInterface::isWritable() const {
    return file && !file->isNetwork() && !file->isReadOnly();
}

void OPCInterface::refreshSelected(std::span<unsigned char> vertices) {
    std::lock_guard lock(detailMutex(this));
    for (size_t i = 0; i < vertices.size() / Vertex::SIZE; ++i) {
        vertices[i * Vertex::SIZE + Vertex::SELECTION] = i < selectionBits.size() && selectionBits[i];
    }
}

void OPCInterface::setBoundingBox(const double* box) {
    std::copy_n(box, boundingBox.size(), boundingBox.begin());
}

uint32_t OPCInterface::getDiskSize() {
    const auto count = static_cast<uint32_t>(std::max<int16_t>(pointCount, 0));
    if (file && file->isNetwork()) return count * FloatRecord::SIZE;
    return NodeRecord::isStream(version) ? diskSize : count * bytesPerVertex;
}

double OPCInterface::getFilter() {
    return filterScaled / NodeRecord::FILTER_SCALE;
}

void OPCInterface::getVoxelData(VoxelMap* /*map*/, const ModelGrid& /*grid*/, std::atomic<int32_t>* /*progress*/) {}

void OPCInterface::forgetBuffers() {
    std::vector<GPUBatch*> batches; // stay where they are as long as their node
    walkNodes(*this, [&batches](OPCInterface& node) {
        std::lock_guard lock(detailMutex(&node));
        if (!node.gpuBatches) return true;
        for (auto& [key, batch] : *node.gpuBatches) batches.push_back(&batch);
        return true;
    });
    for (GPUBatch* batch : batches) {
        std::lock_guard lock(batch->mutex);
        batch->vbo = 0;
        batch->visited = false;
    }
}

void OPCInterface::getVBODeleteData(std::vector<int>* out) {
    walkNodes(*this, [out](OPCInterface& node) {
        std::lock_guard lock(detailMutex(&node));
        if (!node.gpuBatches) return true;
        for (const auto& [key, batch] : *node.gpuBatches) {
            // The table of clouds is held exclusively here, so that no render thread is at the name.
            if (batch.vbo != 0) out->push_back(static_cast<int>(batch.vbo));
        }
        return true;
    });
}

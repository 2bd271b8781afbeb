#include "build/VoxelFileBuild.h"

#include "format/OPCHeader.h"
#include "ground/Log.h"

#include <algorithm>
#include <limits>
#include <new>

namespace {

constexpr int UNUSED_BLOCK = 1; // no raw points are kept, so the scratch file stays a hole

// What a voxel a point takes, or what no disk holds where that overflows. The file grows when that is too little.
int64_t outputSizeFor(int64_t pointCount) {
    int64_t size = 0;
    const bool overflows =
        __builtin_mul_overflow(std::max<int64_t>(pointCount, 0), 4, &size) || __builtin_add_overflow(size, 256, &size);
    return overflows ? std::numeric_limits<int64_t>::max() : size;
}

} // namespace

bool VoxelFileBuild::isPossible(const std::array<double, 6>& box, float voxelSize) {
    return VoxelGrid::make({box}, voxelSize).has_value();
}

VoxelFileBuild::VoxelFileBuild(const std::wstring& path, const std::array<double, 6>& boxIn, int64_t pointCount,
                               float voxelSize, bool withColoursIn)
    : box(boxIn), withColours(withColoursIn), disk(path, outputSizeFor(pointCount), UNUSED_BLOCK),
      tree(VoxelGrid::make({boxIn}, voxelSize).value()) {}

int64_t VoxelFileBuild::addPoints(const double* positions, const unsigned char* attributes, int count) {
    if (!disk.isSound() || refused > 0) {
        refused += count;
        return 0;
    }
    try {
        const int64_t added = tree.addPoints(positions, attributes, count);
        placed += added;
        outside += count - added;
        return added;
    } catch (const std::bad_alloc&) {
        // Some may be in, but nobody knows which: the build can't become whole any more.
        setLastError("there is not enough memory for the voxels");
        refused += count;
        return 0;
    }
}

void VoxelFileBuild::compile(const CompileSettings& /*settings*/, double /*filterSize*/,
                             std::atomic<int64_t>& compiledCount) {
    tree.compile(compiledCount);
}

void VoxelFileBuild::abort() {
    aborted = true;
    tree.abort();
}

void VoxelFileBuild::write(std::span<const unsigned char> bytes) {
    constexpr size_t AT_ONCE = size_t{1} << 24;
    for (; !bytes.empty(); bytes = bytes.subspan(std::min(AT_ONCE, bytes.size()))) {
        if (aborted || !disk.isSound()) return;
        disk.writeCompressedData(bytes.data(), static_cast<int>(std::min(AT_ONCE, bytes.size())));
    }
}

bool VoxelFileBuild::finalise(double indexParameter) {
    if (aborted || refused > 0 || !disk.isSound()) return false;
    const int64_t nodes = tree.getTotalNodeCount();
    if (nodes > std::numeric_limits<int32_t>::max()) {
        setLastError("the model has more nodes than a voxel file can count");
        return false;
    }
    disk.seekPosition(OPCHeader::Layout::SIZE);
    write(tree.shapeBytes());
    if (withColours) tree.writeColours([this](std::span<const unsigned char> bytes) { write(bytes); });
    if (aborted || !disk.isSound()) return false;
    nodesWritten = static_cast<int32_t>(nodes);

    OPCHeader header;
    header.version = OPCHeader::VERSION_VOXEL;
    header.nodeCount = nodesWritten;
    header.pointCount = nodes;
    header.boundingBox = box;
    header.indexParameter = indexParameter;
    header.reserved = disk.getFilePosition();
    return disk.writeHeader(header);
}

void VoxelFileBuild::copyCounters(BuildReport& report) const {
    report.outside = outside;
    report.noRoom = refused;
    report.nodes = nodesWritten;
    report.written = nodesWritten > 0 ? placed.load() : 0;
}

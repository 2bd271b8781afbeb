#include "build/PointFileBuild.h"

#include "build/OPCDisk.h"
#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

std::array<double, 6> widened(std::array<double, 6> box) {
    for (size_t axis = 0; axis < 3; ++axis) {
        box[axis] -= OPCTreeDataNode::BOUND_MARGIN;
        box[axis + 3] += OPCTreeDataNode::BOUND_MARGIN;
    }
    return box;
}

// What the announced points take in the largest form, or what no disk holds where that overflows.
int64_t outputSizeFor(int64_t pointCount) {
    int64_t size = 0;
    if (pointCount < 0) return 0;
    return __builtin_mul_overflow(pointCount, FloatRecord::SIZE, &size) ? std::numeric_limits<int64_t>::max() : size;
}

} // namespace

PointFileBuild::PointFileBuild(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount,
                               bool isStream)
    : context(std::make_unique<OPCDisk>(path, outputSizeFor(pointCount), OPCDisk::POINTS_BUFFER_SIZE_2), isStream),
      root(widened(box), 0, 1), adder(context, root) {}

bool PointFileBuild::diskReady() const {
    return context.disk->isSound();
}

int64_t PointFileBuild::addPoints(const double* positions, const unsigned char* attributes, int count) {
    if (count <= 0) return 0;
    if (!diskReady()) {
        context.noRoom += count;
        return 0;
    }
    const int64_t refusedBefore = context.outside + context.noRoom;
    adder.add(positions, attributes, static_cast<size_t>(count));
    return count - (context.outside + context.noRoom - refusedBefore);
}

int64_t PointFileBuild::countNodes() {
    int64_t nodes = 0;
    visitInPreOrder(root, [&](const OPCTreeDataNode&) { ++nodes; });
    return nodes;
}

void PointFileBuild::compile(const CompileSettings& settings, double filterSize, std::atomic<int64_t>& compiledCount) {
    context.filterScaled = std::max<int64_t>(1, std::llround(filterSize * NodeRecord::FILTER_SCALE));
    const int version = context.isStream ? OPCHeader::VERSION_STREAM : OPCHeader::VERSION_FIXED;
    // Room for the header and the tree ahead of all point data.
    context.disk->seekPosition(OPCHeader::Layout::SIZE + countNodes() * NodeRecord::sizeFor(version));
    TreeCompiler(context, root, compiledCount).compile(settings, aborted);
}

bool PointFileBuild::finalise(double indexParameter) {
    if (aborted || !diskReady()) return false;
    const int64_t nodes = countNodes();
    if (nodes > std::numeric_limits<int32_t>::max()) {
        setLastError("the tree has more nodes than a point file can count");
        return false;
    }
    int64_t points = 0;
    visitInPreOrder(root, [&](const OPCTreeDataNode& node) { points += node.pointCount; });
    pointsWritten = points;
    nodesWritten = static_cast<int32_t>(nodes);

    OPCHeader header;
    header.version = context.isStream ? OPCHeader::VERSION_STREAM : OPCHeader::VERSION_FIXED;
    header.nodeCount = nodesWritten;
    header.pointCount = pointsWritten;
    for (size_t axis = 0; axis < 3; ++axis) {
        header.boundingBox[axis] = root.minBound[axis];
        header.boundingBox[axis + 3] = root.maxBound[axis];
    }
    const double spacing = root.cellSize * NodeRecord::FILTER_SCALE;
    header.spacingScaled = spacing > -9.0e18 && spacing < 9.0e18 ? static_cast<int64_t>(spacing) : 0;
    header.indexParameter = indexParameter;
    header.changed = true;
    // The tree first: a header without its tree would look like a whole file to whoever finds it after a crash.
    return writeNodeHeaders(nodes) && context.disk->writeHeader(header);
}

// The records in pre-order, behind the header.
bool PointFileBuild::writeNodeHeaders(int64_t nodes) {
    constexpr size_t RECORDS_AT_ONCE = 65536;
    const int version = context.isStream ? OPCHeader::VERSION_STREAM : OPCHeader::VERSION_FIXED;
    const auto recordSize = static_cast<size_t>(NodeRecord::sizeFor(version));
    const int64_t endOfData = context.disk->getFilePosition();
    context.disk->seekPosition(OPCHeader::Layout::SIZE);

    std::vector<unsigned char> records;
    records.reserve(std::min(static_cast<size_t>(nodes), RECORDS_AT_ONCE) * recordSize);
    const auto write = [&] {
        context.disk->writeCompressedData(records.data(), static_cast<int>(records.size()));
        records.clear();
    };
    visitInPreOrder(root, [&](const OPCTreeDataNode& node) {
        NodeRecord record;
        record.bitMask = node.bitMask();
        record.bytesPerVertex = static_cast<uint8_t>(FixedRecord::strideFor(node.ordinateBytes));
        record.pointCount = static_cast<int16_t>(node.pointCount);
        record.originalPointCount = record.pointCount;
        record.diskSize = static_cast<uint32_t>(node.compressedSize);
        record.filterScaled = static_cast<uint32_t>(context.filterScaled);
        record.pointDataByteLocation = node.dataOffset;
        records.resize(records.size() + recordSize);
        record.encode(std::span(records).last(recordSize), version);
        if (records.size() == RECORDS_AT_ONCE * recordSize) write();
    });
    write();
    context.disk->seekPosition(endOfData);
    return context.disk->isSound();
}

void PointFileBuild::copyCounters(BuildReport& report) const {
    report.outside = context.outside;
    report.noRoom = context.noRoom;
    report.undividable = context.undividable;
    report.noise = context.noise;
    report.duplicates = context.duplicates;
    report.sameCell = context.sameCell;
    report.nodes = nodesWritten;
    report.written = pointsWritten;
}

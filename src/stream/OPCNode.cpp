#include "stream/OPCNode.h"

#include "format/EditJournal.h"
#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "ground/Pools.h"
#include "stream/NodeWalk.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

// The tree: making it from its records, walking it, and writing records back. Loading stands in OPCNodeLoading.cpp.

namespace {

int versionOf(const OPCHeader& header) {
    // The header's gate has no lower limit; what is no version is read as the fixed form, like any other but 18.
    return header.version < 0 ? OPCHeader::VERSION_FIXED : header.version;
}

} // namespace

OPCNode::OPCNode(std::shared_ptr<PointCloudFile> fileIn, const Box& box, int64_t index, int fileVersion) {
    file = std::move(fileIn);
    boundingBox = box;
    nodeIndex = index;
    version = static_cast<uint8_t>(fileVersion);
    recordSize = static_cast<uint8_t>(NodeRecord::sizeFor(version));
    double squares = 0.0;
    for (size_t axis = 0; axis < 3; ++axis) squares += (box[axis + 3] - box[axis]) * (box[axis + 3] - box[axis]);
    radius = static_cast<float>(std::sqrt(squares) * 0.5);
}

OPCNode::~OPCNode() {
    unloadThis();
    // Children go last to first. Each hands its own over before it goes, so that a deep tree does not nest destructors.
    std::vector<std::unique_ptr<OPCInterface>> doomed = std::move(children);
    while (!doomed.empty()) {
        const std::unique_ptr<OPCInterface> last = std::move(doomed.back());
        doomed.pop_back();
        for (auto& child : last->getChildren()) doomed.push_back(std::move(child));
        last->getChildren().clear();
    }
}

std::unique_ptr<OPCInterface> OPCNode::makeTree(const std::shared_ptr<PointCloudFile>& file, const OPCHeader& header) {
    struct Announced {
        OPCNode* parent; // null for the root
        Box box;
    };
    std::vector<Announced> announced{{nullptr, header.boundingBox}};
    std::unique_ptr<OPCInterface> root;
    const int version = versionOf(header);
    // Pre-order is the order of the records: the first child lies on top of the list, above the second.
    for (int64_t index = 0; !announced.empty(); ++index) {
        if (index >= header.nodeCount) throw std::runtime_error("the tree has more nodes than the header announces");
        const Announced next = announced.back();
        announced.pop_back();
        std::unique_ptr<OPCNode> node(new OPCNode(file, next.box, index, version)); // the constructor is private
        if (!node->readNodeStructure()) throw std::runtime_error("the tree has a damaged record");
        constexpr unsigned BOTH_CHILDREN = NodeRecord::FIRST_CHILD | NodeRecord::SECOND_CHILD;
        node->children.reserve(static_cast<size_t>(std::popcount(node->bitMask & BOTH_CHILDREN)));
        if (node->bitMask & NodeRecord::SECOND_CHILD) {
            announced.push_back({node.get(), node->childBox(NodeRecord::SECOND_CHILD)});
        }
        if (node->bitMask & NodeRecord::FIRST_CHILD) {
            announced.push_back({node.get(), node->childBox(NodeRecord::FIRST_CHILD)});
        }
        if (next.parent) {
            next.parent->children.push_back(std::move(node));
        } else {
            root = std::move(node);
        }
    }
    return root;
}

OPCNode::Box OPCNode::childBox(uint8_t childBit) const {
    const auto axis = static_cast<size_t>(NodeRecord::splitAxis(bitMask));
    const double middle = (boundingBox[axis] + boundingBox[axis + 3]) * 0.5;
    Box box = boundingBox;
    box[childBit == NodeRecord::FIRST_CHILD ? axis + 3 : axis] = middle;
    return box;
}

bool OPCNode::readNodeStructure() {
    if (!file) return false;
    const bool network = file->isNetwork();
    const int64_t size = network ? NodeRecord::Wire::SIZE : recordSize;
    const int64_t offset = nodeIndex * size + (network ? 0 : OPCHeader::Layout::SIZE);
    if (offset > file->getTreeStructureSize() || file->getTreeStructureSize() - offset < size) return false;
    const std::span<const unsigned char> bytes(file->getTreeStructure() + offset, static_cast<size_t>(size));
    const NodeRecord record = network ? NodeRecord::decodeWire(bytes) : NodeRecord::decode(bytes, version);
    if (record.pointCount < 0 || record.originalPointCount < 0) return false;
    takeRecord(record);
    return true;
}

void OPCNode::takeRecord(const NodeRecord& record) {
    bitMask = record.bitMask;
    bytesPerVertex = record.bytesPerVertex;
    pointCount = record.pointCount;
    originalPointCount = record.originalPointCount;
    diskSize = record.diskSize;
    filterScaled = record.filterScaled;
    pointDataByteLocation = record.pointDataByteLocation;
}

std::vector<unsigned char> OPCNode::recordWith(short count) const {
    NodeRecord record;
    record.bitMask = bitMask;
    record.bytesPerVertex = bytesPerVertex;
    record.pointCount = count;
    record.originalPointCount = originalPointCount;
    record.diskSize = diskSize;
    record.filterScaled = filterScaled;
    record.pointDataByteLocation = pointDataByteLocation;
    std::vector<unsigned char> bytes(recordSize);
    record.encode(bytes, version);
    return bytes;
}

bool OPCNode::writeNodeStructure() {
    std::vector<unsigned char> none;
    return savePoints(none, pointCount);
}

void OPCNode::populateNodeTreeList(std::vector<OPCInterface*>* list) {
    walkNodes(*this, [list](OPCInterface& node) {
        list->push_back(&node);
        return true;
    });
}

void OPCNode::getNodeCenter(double* out) {
    for (size_t axis = 0; axis < 3; ++axis) out[axis] = (boundingBox[axis] + boundingBox[axis + 3]) * 0.5;
}

void OPCNode::getTotalPointCount(long long* total) {
    walkNodes(*this, [total](OPCInterface& node) {
        *total += node.getPointCount();
        return true;
    });
}

int OPCNode::getSelections(char* out) {
    const std::vector<bool> bits = getSelectionBits();
    const size_t count = std::min(bits.size(), static_cast<size_t>(std::max<int16_t>(pointCount, 0)));
    int selected = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!bits[i]) continue;
        out[i] = 1;
        ++selected;
    }
    return selected;
}

void OPCNode::getTreeStructure(char* out, int64_t& position) {
    walkNodes(*this, [out, &position](OPCInterface& node) {
        NodeRecord record;
        record.bitMask = node.getBitMask();
        record.pointCount = node.getPointCount();
        record.encodeWire({reinterpret_cast<unsigned char*>(out) + position, NodeRecord::Wire::SIZE});
        position += NodeRecord::Wire::SIZE;
        return true;
    });
}

ThreadPool& OPCNode::getProcessingThreadPool() {
    return processingPool();
}

ThreadPool& OPCNode::getDiskThreadPool() {
    return diskPool();
}

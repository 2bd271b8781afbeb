// Deleting, restoring and classifying points. The nodes that an operation touches are listed first and then worked on
// by all cores: the list costs a look at each node, and a tree that is deep or lopsided spreads as well as any other.

#include "edit/StoredPoints.h"
#include "format/NodeRecord.h"
#include "format/PointRecord.h"
#include "ground/Log.h"
#include "ground/Parallel.h"
#include "ground/Pools.h"
#include "stream/GPUBatch.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"

namespace {

// Calls work(OPCNode&) on all cores for the nodes of a subtree that isTouched(node) names.
template <typename IsTouched, typename Work>
void workOnSubtree(OPCInterface& root, IsTouched isTouched, Work work) {
    std::vector<OPCInterface*> touched;
    walkNodes(root, [&](OPCInterface& node) {
        if (isTouched(node)) touched.push_back(&node);
        return true;
    });
    forEachInParallel(processingPool(), touched.size(), [&](size_t i) { work(static_cast<OPCNode&>(*touched[i])); });
}

// The stored bytes of a node that is about to change; false, with the reason for the host, if they can't be had or are
// too short for points.
bool load(OPCNode& node, std::vector<unsigned char>& stored) {
    const bool hasRoom = NodeRecord::isStream(node.getVersion()) || node.getBytesPerVertex() >= ATTRIBUTE_BYTES;
    if (hasRoom && node.loadPointData(stored)) return true;
    setLastError(UNREAD_POINTS);
    return false;
}

void deleteSelected(OPCNode& node) {
    (void)node.historySnapshot(); // a deletion loses nothing, so that it does not need room for a backup
    std::vector<unsigned char> stored;
    if (!load(node, stored)) return;
    const std::vector<bool> bits = node.getSelectionBits();
    const int count = node.getPointCount();
    const int kept = NodeRecord::isStream(node.getVersion())
                         ? markDeleted(stored, count, bits)
                         : moveBehind(stored, node.getBytesPerVertex(), count, bits);
    if (kept != count && !node.savePoints(stored, static_cast<short>(kept))) return;
    node.setSelectionBits({});
    node.unload(false);
}

void restore(OPCNode& node) {
    (void)node.historySnapshot();
    const short count = node.getOriginalPointCount();
    std::vector<unsigned char> stored; // stays empty where the count alone changes
    if (NodeRecord::isStream(node.getVersion())) {
        if (!load(node, stored)) return; // marks and count stay together
        setDeletedMarks(stored, count, {});
    }
    if (node.savePoints(stored, count)) node.unload(false);
}

void classify(OPCNode& node, unsigned char value) {
    std::vector<unsigned char> stored;
    if (!node.historySnapshot() || !load(node, stored)) return;
    const std::vector<bool> bits = node.getSelectionBits();
    const int count = node.getPointCount();
    const bool changed = NodeRecord::isStream(node.getVersion())
                             ? setStreamClass(stored, count, bits, value)
                             : setFixedClass(stored, node.getBytesPerVertex(), count, bits, value);
    if (changed) node.savePointData(stored);
}

} // namespace

void OPCNode::deleteSelectedPoints() {
    if (!isWritable()) return;
    workOnSubtree(
        *this, [](const OPCInterface& node) { return node.hasSelectionBits(); }, deleteSelected);
}

void OPCNode::restorePointCloud() {
    if (!isWritable()) return;
    // A count above the built one is damage: lowering it would hide points.
    const auto isShort = [](OPCInterface& node) { return node.getPointCount() < node.getOriginalPointCount(); };
    workOnSubtree(*this, isShort, restore);
}

void OPCNode::setLasValueOnSelectedPoints(unsigned char& value) {
    if (!isWritable()) return;
    const auto isSelected = [](const OPCInterface& node) { return node.hasSelectionBits(); };
    workOnSubtree(*this, isSelected, [value](OPCNode& node) { classify(node, value); });
}

void OPCNode::resetSelectionColours() {
    std::lock_guard lock(nodeMutex);
    if (GPUBatch* batch = existingBatch(0)) refreshVertices(*batch);
}

#include "edit/HistoryGroup.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"

void OPCNode::setHistoryGroup(HistoryGroup* group) {
    history = group;
    walkNodes(*this, [](OPCInterface& node) {
        static_cast<OPCNode&>(node).snapshotTaken = false;
        return true;
    });
}

bool OPCNode::historySnapshot() {
    HistoryGroup* group = history;
    if (!group || snapshotTaken) return true;
    if (group->getType() == HistoryType::POINTS && !HistoryGroup::hasSpace()) return false;
    group->addHistoryItem(HistoryItem(*this, *group));
    snapshotTaken = true;
    return true;
}

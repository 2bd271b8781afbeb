#include "stream/OPC.h"

#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "format/PointRecord.h"
#include "ground/Log.h"
#include "stream/OPCNode.h"
#include "stream/OVMNode.h"
#include "stream/ReadAhead.h"

#include <algorithm>
#include <cstring>
#include <new>

OPC::OPC(std::shared_ptr<PointCloudFile> fileIn) : file(std::move(fileIn)), header(std::make_unique<OPCHeader>()) {
    try {
        loaded = read();
    } catch (const std::exception& failure) {
        nodes.clear();
        rootNode.reset();
        const bool noMemory = dynamic_cast<const std::bad_alloc*>(&failure) != nullptr;
        const char* reason = noMemory ? "there is not enough memory for the tree" : failure.what();
        logText(std::string(reason) + "\n");
        setLastError(reason);
    }
}

OPC::~OPC() {
    if (ReadAhead* ahead = file->readAhead()) ahead->stop();
    logText("Destroying OPC\n");
}

bool OPC::read() {
    setLastError("");
    file->readHeader(header.get());
    logText("Node Count: " + std::to_string(header->nodeCount) + "\nPoint Count: " +
            std::to_string(header->pointCount) + "\nVersion: " + std::to_string(header->version) + "\n");
    if (!header->isValid()) {
        // Hosts know this case by the three lines alone. A source may have told the reason already.
        if (lastError().empty()) setLastError("the header is not that of a point file");
        return false;
    }
    if (header->version >= OPCHeader::VERSION_VOXEL) {
        rootNode = std::make_unique<OVMNode>(file, *header);
    } else {
        rootNode = OPCNode::makeTree(file, *header);
    }
    rootNode->populateNodeTreeList(&nodes);
    return true;
}

OPCInterface* OPC::getNode(int nodeIndex) const {
    if (nodeIndex < 0 || static_cast<size_t>(nodeIndex) >= nodes.size()) return nullptr;
    return nodes[static_cast<size_t>(nodeIndex)];
}

int OPC::getSelections(char* out, int nodeIndex) const {
    OPCInterface* node = getNode(nodeIndex);
    return node ? node->getSelections(out) : 0;
}

void OPC::getPoints(double* xyz, char* colour, int nodeIndex) const {
    OPCInterface* node = getNode(nodeIndex);
    if (!node) return;
    const auto count = static_cast<size_t>(node->getPointCount());
    if (node->getVersion() == OPCHeader::VERSION_VOXEL) { // holds no points: zeros, without the corner
        std::fill_n(xyz, 3 * count, 0.0);
        std::fill_n(colour, ATTRIBUTE_BYTES * count, '\0');
        return;
    }
    std::vector<unsigned char> vertices(count * Vertex::SIZE);
    if (!node->loadPointDataToGPUFormat(vertices)) {
        setLastError("the points of node " + std::to_string(nodeIndex) + " can't be read");
    }
    const double* corner = node->getBoundingBox();
    for (const unsigned char* vertex = vertices.data(); vertex != vertices.data() + vertices.size();
         vertex += Vertex::SIZE) {
        float position[3];
        std::memcpy(position, vertex + Vertex::POSITION, sizeof(position));
        for (int axis = 0; axis < 3; ++axis) *xyz++ = double{position[axis]} + corner[axis];
        std::memcpy(colour, vertex + Vertex::COLOUR, ATTRIBUTE_BYTES);
        colour += ATTRIBUTE_BYTES;
    }
}

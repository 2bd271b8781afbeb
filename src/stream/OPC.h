#pragma once

#include "stream/OPCInterface.h"

#include <string>

class OPCHeader;

// One opened file: its header and its tree. Made once and not reopened. All operations may be called from any thread.
class OPC {
public:
    // Reads header and tree. Never throws: what is no sound point file leaves the object not loaded, and
    // nimbrelLastError tells why.
    explicit OPC(std::shared_ptr<PointCloudFile> fileIn);
    virtual ~OPC();
    OPC(const OPC&) = delete;
    OPC& operator=(const OPC&) = delete;

    [[nodiscard]] bool isLoaded() const { return loaded; }

    // Null unless loaded.
    [[nodiscard]] std::unique_ptr<OPCInterface>& getRootNode() { return rootNode; }

    // The node at a place in pre-order; null outside the tree.
    [[nodiscard]] OPCInterface* getNode(int nodeIndex) const;
    [[nodiscard]] size_t countNodes() const { return nodes.size(); }

    // Calls use(OPCHeader&) with the header locked, and returns its result.
    template <typename Use>
    auto withHeader(Use use) {
        std::lock_guard lock(headerMutex);
        return use(*header);
    }

    // As OPCInterface::getSelections, 0 outside the tree.
    int getSelections(char* out, int nodeIndex) const;

    // Copies the points of one node, in the file's coordinates: 3 doubles and 5 bytes a point. Reads the file unless
    // the node is resident; a failed read gives the node's minimum corner in black. Outside the tree: nothing.
    void getPoints(double* xyz, char* colour, int nodeIndex) const;

private:
    [[nodiscard]] bool read(); // false for a header that is no point file's; other faults are thrown

    bool loaded = false;
    std::shared_ptr<PointCloudFile> file; // shared with the PointCloud and the nodes
    std::mutex headerMutex;               // guards header
    std::unique_ptr<OPCHeader> header;
    std::unique_ptr<OPCInterface> rootNode;
    std::vector<OPCInterface*> nodes; // in pre-order, so that nodes[i] has the nodeIndex i
};

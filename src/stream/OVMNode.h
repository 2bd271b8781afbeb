#pragma once

#include "stream/OPCInterface.h"

class OPCHeader;
struct VoxelBox;

// A voxel model, a file of version 90: one object for the whole tree, which is in memory from the start.
//
// It is a root without children, and the engine sees one node with one point. What is left to do for a window is to
// choose the cells to draw: the visibility pass goes down from the root while cells are large enough on the screen, and
// puts those where it stops into the window's batch. So each window has a batch of its own, and nothing is ever loaded.
//
// Selecting, editing, colliding and exporting voxels are not offered on a model: their operations do nothing.
class OVMNode final : public OPCInterface {
public:
    // The nodes of the model opened last, which every model tells as its number of points. Hosts know it so.
    static std::atomic<int> TOTAL_NODES;

    // Takes tree and colours from the file's tree image. Throws std::runtime_error when the image does not hold the
    // tree that the header announces; colours that are missing leave their cells grey. `header` is sound.
    OVMNode(std::shared_ptr<PointCloudFile> fileIn, const OPCHeader& header);
    ~OVMNode() override;

    void populateNodeTreeList(std::vector<OPCInterface*>* list) override { list->push_back(this); }
    std::vector<std::unique_ptr<OPCInterface>>& getChildren() override { return children; }
    bool isNodeInFrustum(const double* /*planes*/) override { return true; }

    // Marks the model as visible in the window and fills the window's batch, or takes the mark away; a model that no
    // window sees any more gives all its batches up. Windows beyond 7 see nothing.
    void checkVisibility(const ViewCriteria& view, bool forceVisible) override;

    void unload(bool recursive) override; // the batches of all windows
    bool isVisible(int window) override;
    bool isVisibleAnyWindows() override { return windowVisibility != 0; }
    void clearWindowVisibility() override { windowVisibility = 0; }
    bool isRoot() override { return true; }
    void getNodeCenter(double* out) override;
    void getTotalPointCount(long long* total) override { *total += TOTAL_NODES; }
    void getWindowPointCount(int window, int64_t* count) override; // cells of the last visibility pass

    // The centre of a cell near `target`, among the cells that hold it and have less than two children. Clips nothing,
    // and leaves the class in `colour`.
    bool findClosestPoint(const ClipBox& clip, const glm::dmat4& matrix, const glm::dvec4& projectedTarget,
                          const glm::dvec4& target, double* result, unsigned char* colour) override;

    void getTreeStructure(char* out, int64_t& position) override; // one record: no children, one point
    double getRadius() override { return double{radius}; }
    ThreadPool& getProcessingThreadPool() override;
    ThreadPool& getDiskThreadPool() override;
    GPUBatch* getGPUBatch(int window) override { return batchAt(window); }
    GPUBatch* existingBatch(int window) override { return existingBatchAt(window); }

    // A cell is no point: the one that the model counts as is all zeros.
    bool loadPointDataToGPUFormat(std::span<unsigned char> out) override;

    // Not offered.
    bool writeNodeStructure() override { return false; }
    bool readNodeStructure() override { return false; }
    void unregisterWindow(int /*window*/) override {}
    void getWindowPoints(int /*window*/, PointListing& /*listing*/) override {}
    int getSelections(char* /*out*/) override { return 0; }
    bool savePointData(std::vector<unsigned char>& /*buffer*/) override { return false; }
    bool loadPointData(std::vector<unsigned char>& /*buffer*/) override { return false; }
    void cache(int /*window*/, std::queue<OPCInterface*>* /*queue*/) override {}

private:
    struct Cell;
    static constexpr uint32_t HAS_LEFT = 1U << 31;

    [[nodiscard]] uint32_t readTree(std::span<const unsigned char> bits);
    void readColours(std::span<const unsigned char> stored, uint32_t nodes);
    void mixColour(uint32_t node);
    [[nodiscard]] Cell root() const;
    template <typename Visit>
    void visitChildren(const Cell& cell, Visit visit) const;
    [[nodiscard]] std::vector<unsigned char> visibleCells(const ViewCriteria& view) const;
    void appendVertex(std::vector<unsigned char>& out, const Cell& cell) const;
    void unloadUnseen();

    // Of each node, in pre-order: the number of its right child, 0 for none, and HAS_LEFT if the node that follows it
    // is its left child. Settled when the model is made, like the colours.
    std::vector<uint32_t> links;
    std::vector<unsigned char> colours; // VoxelColour of each node; an inner node has the mean of its children's
};

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <glm/fwd.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <span>
#include <vector>

class AnalysisRun;
class ClipBox;
class CollisionHits;
class GPUBatch;
class HistoryGroup;
class PointCloudFile;
class PointEditor;
class PolygonSelection;
class ThreadPool;
class TriangleFindings;
class VoxelMap;
struct MeshPrisms;
struct ModelGrid;
struct SelectionFilters;
struct ViewCriteria;

// A part of a list that goes over many nodes and clouds: what to leave out at its start, and what was done so far.
struct PointListing {
    double* positions; // out: 3 doubles a point
    char* colours;     // out: 5 bytes a point
    int64_t start;     // points to leave out
    int64_t count;     // points to write at most
    int64_t written = 0;
    int64_t seen = 0; // points met, those left out included
};

// One node of a cloud's tree: the face that the whole engine works against.
//
// A tree is as deep as its file says, up to one node a level, so no operation over a subtree recurses on the call
// stack; NodeWalk.h has the walk. A node owns its children. Box, masks, strides and the tree's shape are settled when
// the tree is made and may be read by any thread from then on; what changes later is atomic or names its mutex.
class OPCInterface {
public:
    // What a cell of a grid holds: where it lies, and the sums over its points.
    struct Voxel {
        int64_t cellX; // of the point that made the record
        int64_t cellY;
        int64_t cellZ;
        int32_t sumRed; // these wrap around
        int32_t sumGreen;
        int32_t sumBlue;
        int32_t sumIntensity;
        int32_t pointCount;
    };

    OPCInterface();
    virtual ~OPCInterface();
    OPCInterface(const OPCInterface&) = delete;
    OPCInterface& operator=(const OPCInterface&) = delete;

    // Appends the nodes of the subtree in pre-order.
    virtual void populateNodeTreeList(std::vector<OPCInterface*>* list) = 0;

    // The node's record to the byte source; false when the source is read-only or takes none.
    virtual bool writeNodeStructure() = 0;

    // The node's fields from its record in the tree image; false, leaving the node as it was, when the image does not
    // hold the record or the record is damaged. For the making of a tree alone: it may not run beside other threads.
    virtual bool readNodeStructure() = 0;

    [[nodiscard]] virtual std::vector<std::unique_ptr<OPCInterface>>& getChildren() = 0;

    // Whether the node's bounding sphere is not wholly outside any of six planes, 24 doubles. Touching is inside.
    [[nodiscard]] virtual bool isNodeInFrustum(const double* planes) = 0;

    // Marks the nodes of the subtree that a window now sees, and unmarks and unloads those that it does not see any
    // more. With `forceVisible` this node passes however small it is on the screen. For one thread at a time.
    virtual void checkVisibility(const ViewCriteria& view, bool forceVisible) = 0;

    // Clears the window's bit in the subtree, withdraws the loads that were asked for it, and frees the vertices of
    // nodes that no window sees any more. Windows beyond 7 have no bit.
    virtual void unregisterWindow(int window) = 0;

    // Frees the node's vertices and clears its visibility in all windows; with `recursive`, over the subtree.
    virtual void unload(bool recursive) = 0;

    [[nodiscard]] virtual bool isVisible(int window) = 0;
    [[nodiscard]] virtual bool isVisibleAnyWindows() = 0;

    // Clears the visibility of the subtree in all windows. Touches no job and no vertices.
    virtual void clearWindowVisibility() = 0;

    [[nodiscard]] virtual bool isRoot() = 0;

    // out  3 doubles, the centre of the box
    virtual void getNodeCenter(double* out) = 0;

    // Adds the points of the subtree to `total`.
    virtual void getTotalPointCount(long long* total) = 0;

    // Adds the points that the window sees and that are resident. A node that is not both ends the descent.
    virtual void getWindowPointCount(int window, int64_t* count) = 0;

    // Lists the points that the window sees and that are resident, in the file's coordinates. Unlike the count, it
    // looks below nodes that are not.
    virtual void getWindowPoints(int window, PointListing& listing) = 0;

    // The resident point nearest to `target`, in the nodes whose boxes hold it, if it is nearer than result[3]: its
    // place and distance go to `result`, its attributes to `colour`. Distances are between places put through `matrix`,
    // over all four components; `projectedTarget` is that of the target. Points that an active `clip` does not hold
    // are passed over. True if there was one.
    virtual bool findClosestPoint(const ClipBox& clip, const glm::dmat4& matrix, const glm::dvec4& projectedTarget,
                                  const glm::dvec4& target, double* result, unsigned char* colour) = 0;

    // Sets out[i] to 1 for each selected point i, leaving the others, and returns the number of selected points.
    virtual int getSelections(char* out) = 0;

    // Marks the points of the subtree whose distance from a place is at most `radius`, or with `deselect` unmarks them;
    // with an active painter they are painted instead, except that deselecting takes whole nodes all the same. Points
    // that do not pass the filters stay as they are, and so do nodes that can't be read. Runs on all cores, and returns
    // when it is done. A voxel model has no points of its own to select: it does nothing here and below.
    virtual void selectPointsBySphere(const glm::dvec3& /*centre*/, double /*radius*/, bool /*deselect*/,
                                      const SelectionFilters& /*filters*/) {}

    // The same for what lies in a box, or with `outside` not in it: six planes as ClipBox has them.
    virtual void selectPointsByCube(const std::array<glm::dvec3, 12>& /*planes*/, bool /*deselect*/, bool /*outside*/,
                                    const SelectionFilters& /*filters*/) {}

    // The same for what lies in a polygon on the screen.
    virtual void selectPointsByPolygon(const PolygonSelection& /*polygon*/, bool /*deselect*/, bool /*outside*/,
                                       const SelectionFilters& /*filters*/) {}

    // Over every point of the subtree, without a look at any. Clearing frees the bits.
    virtual void selectAllPoints() {}
    virtual void invertSelectedPoints() {}
    virtual void clearSelectedPoints() {}

    // Paints every point of the subtree in its file, deleted ones apart. A node without room for a backup ends the
    // descent.
    virtual void paintAllPoints(const PointEditor& /*painter*/) {}

    // Adds the selected points of the subtree.
    virtual void getSelectedPointsCount(int64_t* /*count*/) {}

    // Lists the selected points of the subtree, in the file's coordinates.
    virtual void getSelectedPoints(PointListing& /*listing*/) {}

    // Writes the subtree as 3-byte records from `position` on, and moves it behind them.
    virtual void getTreeStructure(char* out, int64_t& position) = 0;

    // Half the diagonal of the box.
    [[nodiscard]] virtual double getRadius() = 0;

    // Writes the node's stored bytes in place; false when the source is read-only or takes none. A length that differs
    // must have been accounted for by the caller.
    virtual bool savePointData(std::vector<unsigned char>& buffer) = 0;

    // As savePointData and writeNodeStructure with a new point count, but as one: a process that is killed at any
    // instant leaves a file that opens with both or with neither. False leaves the node as it was.
    virtual bool savePoints(std::vector<unsigned char>& /*buffer*/, short /*count*/) { return false; }

    // Deletes the selected points of the subtree, in the file too, and returns when that is done. They stay in the
    // file, behind the others or marked. A node of a source that is read-only is passed over.
    virtual void deleteSelectedPoints() {}

    // Brings back every point of the subtree that was deleted since the file was built. Selection bits stay.
    virtual void restorePointCloud() {}

    // Sets the class of the selected points of the subtree, in the file. Resident vertices keep the old one for now.
    virtual void setLasValueOnSelectedPoints(unsigned char& /*value*/) {}

    // Begins to record the subtree's changes in a group, or ends that with null. The group is one for all nodes.
    virtual void setHistoryGroup(HistoryGroup* /*group*/) {}

    // Called before a change: adds the node to the group being recorded, once. False when there is no room for its
    // bytes; what the snapshot was for should then leave the node alone.
    virtual bool historySnapshot() { return true; }

    // Called after a change of selection bits or of the stored bytes: brings the resident vertices up to date and asks
    // for their upload.
    virtual void resetSelectionColours() {}

    // The analyses of a subtree; the matrices lead to the world. What has no points of its own, such as a voxel model,
    // does nothing in any of them.

    // Adds the places at which this cloud's points touch those of `other`, one a pair of nodes at most.
    virtual void doCollisionTest(OPCInterface& /*other*/, const glm::dmat4& /*matrixA*/, const glm::dmat4& /*matrixB*/,
                                 CollisionHits& /*hits*/, AnalysisRun& /*run*/) {}

    // Adds the points that lie in the prisms, each as often as prisms hold it.
    virtual void doMeshCollisionTest(const MeshPrisms& /*prisms*/, const glm::dmat4& /*matrix*/,
                                     CollisionHits& /*hits*/, AnalysisRun& /*run*/) {}

    // Gives the points in the prisms, in the file, their distance from the triangle as class; the last prism counts.
    virtual void classifyPointsByDistance(const MeshPrisms& /*prisms*/, const glm::dmat4& /*matrix*/,
                                          double /*thickness*/, AnalysisRun& /*run*/) {}

    // Tells `findings` of the points within `radius` of `centre`, in the file's coordinates, that `prism` contains.
    virtual void selectPointsBySphere2(const glm::dvec3& /*centre*/, double /*radius*/, const ClipBox& /*prism*/,
                                       TriangleFindings& /*findings*/) {}

    // Reads the node's stored bytes; false when there are none to read, or not all of them lie in the source.
    virtual bool loadPointData(std::vector<unsigned char>& buffer) = 0;

    [[nodiscard]] virtual ThreadPool& getProcessingThreadPool() = 0;
    [[nodiscard]] virtual ThreadPool& getDiskThreadPool() = 0;

    // Writes the node's vertices to `out`, which has room for a whole number of them, with the selection as it stands:
    // a copy of the resident ones, else decoded from the source. Points that `out` has no room for are left away, room
    // beyond the points is filled with zeros. False, with zeros in `out`, when the read fails. Takes the batch's mutex.
    virtual bool loadPointDataToGPUFormat(std::span<unsigned char> out) = 0;

    // The node's batch, made on first use and there as long as the node. A point node has one for all windows, so
    // that the window is ignored; a voxel model has one for each.
    virtual GPUBatch* getGPUBatch(int window);

    virtual uint8_t getBytesPerVertex() { return bytesPerVertex; }
    virtual uint8_t getBitMask() { return bitMask; }
    virtual void updatePointCount(int count) { pointCount = static_cast<int16_t>(count); }
    virtual void setPointCount(short count) { pointCount = count; }
    virtual short getPointCount() { return pointCount; }
    virtual void setOriginalPointCount(short count) { originalPointCount = count; }
    virtual short getOriginalPointCount() { return originalPointCount; }
    virtual void setPointDataByteLocation(long long location) { pointDataByteLocation = location; }
    virtual long long getPointDataByteLocation() { return pointDataByteLocation; }
    virtual const double* getBoundingBox() { return boundingBox.data(); }
    virtual std::vector<bool> getSelectionBits();
    virtual void setSelectionBits(std::vector<bool> bits);
    [[nodiscard]] bool hasSelectionBits() const; // whether there are any, set or not
    [[nodiscard]] int countSelected() const;     // set bits, of points that the node has
    [[nodiscard]] bool isFrom(const PointCloudFile& source) const { return file.get() == &source; }
    [[nodiscard]] bool isWritable() const;          // the node has a source that takes changes
    virtual void setBoundingBox(const double* box); // for the making of a tree alone
    virtual int getVersion() { return version; }
    virtual uint32_t getDiskSize(); // bytes of the node's points in its source
    virtual double getFilter();     // grid step of version 18 points

    // Asks for the node's vertices if `window` sees the node and they are not there, and appends the children to
    // `queue`. Does nothing for a node that the window does not see.
    virtual void cache(int window, std::queue<OPCInterface*>* queue) = 0;

    // Appends the GPU buffer names of the subtree, for the render thread to delete.
    void getVBODeleteData(std::vector<int>* out);

    // Adds the stored points of the subtree to the cells of a grid, and 1 to `progress` for each node, also one whose
    // points can't be read. Returns when all is done. For the root; other kinds of nodes have no points to add.
    virtual void getVoxelData(VoxelMap* map, const ModelGrid& grid, std::atomic<int32_t>* progress);

    // Forgets the GPU buffers of the subtree without deleting them, because their context is gone.
    void forgetBuffers();

    // The node's batch if it was made, else null.
    virtual GPUBatch* existingBatch(int window);

protected:
    // Sets the selection byte of each vertex in `vertices` to the selection as it stands.
    void refreshSelected(std::span<unsigned char> vertices);

    // The batch of a key, made on first use; and the same, null if it was not made.
    GPUBatch* batchAt(int key);
    GPUBatch* existingBatchAt(int key);

    // Sets the selection byte of each selected vertex in `vertices`; those of the others stay.
    void markSelected(std::span<unsigned char> vertices);

    std::mutex nodeMutex;                      // orders loading against unloading; before the batch's mutex
    std::atomic<uint8_t> windowVisibility{0};  // bit n: visible in host window n
    std::atomic<bool> snapshotTaken{false};    // for the group being recorded
    std::atomic<bool> verticesOutdated{false}; // the stored bytes changed since the resident vertices were decoded
    uint8_t bitMask = 0;
    uint8_t bytesPerVertex = 17;
    uint8_t recordSize;                         // of the node's tree record
    uint8_t version;                            // of the file; one that is no version at all counts as 17
    std::atomic<int16_t> pointCount{0};         // points now in the node
    std::atomic<int16_t> originalPointCount{0}; // points when the file was built
    float radius = 0;                           // half the diagonal of the box
    uint32_t diskSize = 0;                      // version 18: bytes of the point stream
    uint32_t filterScaled = 0;                  // version 18: grid step as stored, so that it is written back exactly
    std::atomic<int64_t> pointDataByteLocation{0};
    int64_t nodeIndex = 0;                // place in pre-order, 0 for the root
    std::array<double, 6> boundingBox{};  // minimum x, y, z, maximum x, y, z
    std::shared_ptr<PointCloudFile> file; // shared with the whole tree and its cloud; null in a node of its own
    std::vector<std::unique_ptr<OPCInterface>> children;

private:
    // Both are guarded by a mutex that many nodes share, innermost of all. One in each of a million nodes would be a
    // sixth of their memory, and it is held for no longer than it takes to look up or copy.
    std::unique_ptr<std::map<int, GPUBatch>> gpuBatches; // null until the first is made
    std::vector<bool> selectionBits;                     // a bit a point; empty while nothing was ever selected
};

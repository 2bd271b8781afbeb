#pragma once

#include "stream/OPCInterface.h"

class OPCHeader;
class OPCNodeParser;
class SelectionShape;
struct NodeRecord;

// A node of a point file, version 17 or 18, or of a point server.
class OPCNode final : public OPCInterface {
public:
    // Makes the tree that the file's tree image announces, with all boxes, and returns its root. Throws
    // std::runtime_error when the image does not hold the tree or a record is damaged. `header` is sound.
    static std::unique_ptr<OPCInterface> makeTree(const std::shared_ptr<PointCloudFile>& file, const OPCHeader& header);

    // A node without file and children.
    OPCNode() = default;
    ~OPCNode() override;

    void populateNodeTreeList(std::vector<OPCInterface*>* list) override;
    bool writeNodeStructure() override;
    bool readNodeStructure() override;
    std::vector<std::unique_ptr<OPCInterface>>& getChildren() override { return children; }
    bool isNodeInFrustum(const double* planes) override;
    void checkVisibility(const ViewCriteria& view, bool forceVisible) override;
    void unregisterWindow(int window) override;
    void unload(bool recursive) override;
    bool isVisible(int window) override;
    bool isVisibleAnyWindows() override { return windowVisibility != 0; }
    void clearWindowVisibility() override;
    bool isRoot() override { return nodeIndex == 0; }
    void getNodeCenter(double* out) override;
    void getTotalPointCount(long long* total) override;
    void getWindowPointCount(int window, int64_t* count) override;
    void getWindowPoints(int window, PointListing& listing) override;
    bool findClosestPoint(const ClipBox& clip, const glm::dmat4& matrix, const glm::dvec4& projectedTarget,
                          const glm::dvec4& target, double* result, unsigned char* colour) override;
    int getSelections(char* out) override;
    void selectPointsBySphere(const glm::dvec3& centre, double reach, bool deselect,
                              const SelectionFilters& filters) override;
    void selectPointsByCube(const std::array<glm::dvec3, 12>& planes, bool deselect, bool outside,
                            const SelectionFilters& filters) override;
    void selectPointsByPolygon(const PolygonSelection& polygon, bool deselect, bool outside,
                               const SelectionFilters& filters) override;
    void selectAllPoints() override;
    void invertSelectedPoints() override;
    void clearSelectedPoints() override;
    void paintAllPoints(const PointEditor& painter) override;
    void getSelectedPointsCount(int64_t* count) override;
    void getSelectedPoints(PointListing& listing) override;
    void getTreeStructure(char* out, int64_t& position) override;
    double getRadius() override { return double{radius}; }
    bool savePointData(std::vector<unsigned char>& buffer) override;
    bool loadPointData(std::vector<unsigned char>& buffer) override;
    bool savePoints(std::vector<unsigned char>& buffer, short count) override;
    void deleteSelectedPoints() override;
    void restorePointCloud() override;
    void setLasValueOnSelectedPoints(unsigned char& value) override;
    void setHistoryGroup(HistoryGroup* group) override;
    bool historySnapshot() override;
    void resetSelectionColours() override;
    void doCollisionTest(OPCInterface& other, const glm::dmat4& matrixA, const glm::dmat4& matrixB, CollisionHits& hits,
                         AnalysisRun& run) override;
    void doMeshCollisionTest(const MeshPrisms& prisms, const glm::dmat4& matrix, CollisionHits& hits,
                             AnalysisRun& run) override;
    void classifyPointsByDistance(const MeshPrisms& prisms, const glm::dmat4& matrix, double thickness,
                                  AnalysisRun& run) override;
    void selectPointsBySphere2(const glm::dvec3& centre, double radius, const ClipBox& prism,
                               TriangleFindings& findings) override;
    ThreadPool& getProcessingThreadPool() override;
    ThreadPool& getDiskThreadPool() override;
    bool loadPointDataToGPUFormat(std::span<unsigned char> out) override;
    void cache(int window, std::queue<OPCInterface*>* queue) override;
    void getVoxelData(VoxelMap* map, const ModelGrid& grid, std::atomic<int32_t>* progress) override;

    // Has the source read nodes of one tree in one go, which follow each other in the file.
    static bool readTogether(std::span<OPCNode* const> run);

    // The load job with the bytes that a read-ahead fetched. For the disk thread.
    void loadFetched(const std::vector<unsigned char>& stored);

    // Marks the node as visible in a window, as the visibility pass does. Windows beyond 7 have no bit.
    void setVisible(int window);

private:
    using Box = std::array<double, 6>;
    struct SelectionScratch;
    struct SelectionWalk;

    OPCNode(std::shared_ptr<PointCloudFile> fileIn, const Box& box, int64_t index, int fileVersion);

    [[nodiscard]] Box childBox(uint8_t childBit) const;
    [[nodiscard]] unsigned long long loadJobId(int window) const;
    void takeRecord(const NodeRecord& record);
    void leaveView(int window);
    void requestLoad(int window);
    void withdrawLoad(int window);
    void load(const std::vector<unsigned char>* fetched);
    void unloadThis();
    void freeVertices();
    bool decodeStored(std::span<unsigned char> out);
    void refreshVertices(GPUBatch& batch);
    [[nodiscard]] std::vector<unsigned char> recordWith(short count) const;
    bool saveChange(std::span<const unsigned char> points, short count);

    void selectPoints(const SelectionShape& shape, bool deselect, const SelectionFilters& filters);
    int selectOnBoundary(const SelectionWalk& walk, SelectionScratch& scratch);
    bool findPassing(const SelectionWalk& walk, SelectionScratch& scratch);
    void changePassing(const SelectionWalk& walk, SelectionScratch& scratch);
    int changeWhole(int task, const PointEditor& painter, SelectionScratch& scratch);
    void changeWholeSubtree(int task, const PointEditor& painter);
    void paintPassing(const PointEditor& painter, SelectionScratch& scratch);
    static void paintPoint(int index, const PointEditor& painter, int32_t& turn, OPCNodeParser& parser);
    bool decode(const std::vector<unsigned char>& stored, std::span<unsigned char> out);
};

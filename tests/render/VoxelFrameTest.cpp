#include "render/FrameTest.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"

// A model of two unit cubes, built through the exports, and two windows that show it in different detail. A pixel is a
// tenth of a unit.
TEST_F(FrameTest, ShowsAVoxelModelInEachWindowsOwnDetail) {
    const std::wstring path = dir.widePath("model");
    const double box[6] = {0, 0, 0, 8, 4, 2};
    const double positions[] = {2.5, 1.5, 1.5, 2.25, 1.75, 1.25, 6.5, 3.5, 0.5};
    const unsigned char attributes[] = {100, 200, 50, 240, 2, 103, 202, 60, 240, 2, 250, 0, 255, 16, 6};
    createOPC(path.c_str(), box, 3, "key", 2, 1.0F);
    ASSERT_TRUE(addPoints(positions, attributes, 3));
    indexOPC(0, 0.0001, 0, 1);
    opcCache.WaitAll();
    const int id = loadPointCloudFile(path.c_str());
    ASSERT_NE(-1, id) << nimbrelLastError();
    const Pixel near{101, 201, 0x30};
    const Pixel far{250, 0, 0xF0};

    const auto detail = [&](int value) {
        setProperties(id, [value](PointCloudProperties& p) { p.lodFactor = value, p.smoothing = 1, p.opacity = 50; });
    };
    // A frame shows 2 cells of so many pixels in all.
    const auto expectCells = [&](int window, size_t pixels, const char* what) {
        freshFrame(window);
        EXPECT_EQ(pixels, picture->drawn().size()) << what;
        EXPECT_EQ(near, picture->at(25, 15)) << what;
        EXPECT_EQ(far, picture->at(65, 35)) << what;
        EXPECT_EQ(2, getWindowPointCount(window)) << what;
        EXPECT_FALSE(glIsEnabled(GL_CULL_FACE)) << what;
    };
    detail(1000);
    look(0);
    look(1);
    expectCells(0, 200, "the leaves");
    EXPECT_NEAR(9.0F / 20.0F, picture->depthAt(25, 15), 1e-6F) << "the upper face";
    EXPECT_NEAR(10.0F / 20.0F, picture->depthAt(65, 35), 1e-6F);
    detail(40);
    look(0);
    look(0);
    expectCells(0, 1600, "as many cells, but of 2 by 4 by 2");
    expectCells(1, 200, "the other window's camera stands as it was");
    EXPECT_EQ(0, getWindowPointCount(2));

    // What else a host may ask. Windows are not withdrawn from a model.
    unregisterWindow(1);
    expectCells(1, 200, "after unregisterWindow");
    EXPECT_EQ(90, getVersion(id));
    const int nodes = getNodeCount(id);
    EXPECT_EQ(nodes, getPointCount(id));
    EXPECT_EQ(1, getNodePointCount(id, 0));
    double xyz[4] = {9, 9, 9, 9};
    char bytes[6] = {9, 9, 9, 9, 9, 9};
    getNodePoints(id, 0, xyz, bytes);
    EXPECT_EQ((std::vector<double>{0, 0, 0, 9}), std::vector<double>(xyz, xyz + 4));
    EXPECT_EQ((std::vector<char>{0, 0, 0, 0, 0, 9}), std::vector<char>(bytes, bytes + 6));
    std::vector<char> structure(static_cast<size_t>(nodes) * 3, 'x');
    getTreeStructure(id, structure.data());
    EXPECT_EQ((std::vector<char>{0, 1, 0, 'x'}), std::vector<char>(structure.begin(), structure.begin() + 4));
    NimbrelMatrix unit{};
    for (int i = 0; i < 4; ++i) unit.m[5 * i] = 1;
    const double place[3] = {2.5, 1.25, 1.5};
    double result[4] = {0, 0, 0, 1};
    unsigned char colour[5] = {};
    EXPECT_EQ(id, findWorldPoint(unit, unit, place, result, colour));
    EXPECT_EQ((std::vector<double>{2.5, 1.5, 1.5, 0.25}), std::vector<double>(result, result + 4));
    EXPECT_EQ((Bytes{101, 201, 0x30, 240, 0}), Bytes(colour, colour + 5));

    // Out of every window's sight, the cells go.
    OPCInterface& root = *pointClouds[0]->getOPC().getRootNode();
    view = glm::translate(view, glm::dvec3(100, 0, 0));
    look(0);
    EXPECT_TRUE(root.getGPUBatch(0)->isResident()) << "window 1 sees the model";
    freshFrame(0);
    EXPECT_TRUE(picture->drawn().empty());
    look(1);
    EXPECT_FALSE(root.getGPUBatch(0)->isResident());
    EXPECT_FALSE(root.getGPUBatch(1)->isResident());
    freshFrame(1);
    EXPECT_EQ(0U, root.getGPUBatch(1)->vbo);
}

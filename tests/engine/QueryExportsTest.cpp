#include "engine/EngineTest.h"

#include <cstring>

namespace {
using QueryExports = EngineTest;

template <typename T, size_t N>
bool allAre(const T (&values)[N], T expected) {
    return std::all_of(values, values + N, [expected](T value) { return value == expected; });
}
} // namespace

TEST_F(QueryExports, LookIntoACloud) {
    const int id = loadSmallCloud();
    EXPECT_EQ(4, getPointCount(id));
    EXPECT_EQ(3, getNodeCount(id));
    EXPECT_EQ(2, getNodePointCount(id, 0));
    EXPECT_EQ(1, getNodePointCount(id, 2));

    char structure[10] = {};
    structure[9] = 'x';
    getTreeStructure(id, structure);
    const char expected[10] = {7, 2, 0, 4, 1, 0, 4, 1, 0, 'x'};
    EXPECT_EQ(0, std::memcmp(expected, structure, 10));

    double xyz[4] = {-1, -1, -1, -1};
    char colour[6] = {};
    getNodePoints(id, 2, xyz, colour);
    EXPECT_EQ(4.0 + double{20000 * 0.0001F}, xyz[0]); // the corner is added
    EXPECT_EQ(double{30000 * 0.0001F}, xyz[1]);
    EXPECT_EQ(double{10000 * 0.0001F}, xyz[2]);
    EXPECT_EQ(-1, xyz[3]);
    const char attributes[6] = {40, 41, 42, 43, 44, 0};
    EXPECT_EQ(0, std::memcmp(attributes, colour, 6));
}

TEST_F(QueryExports, FailedReadGivesTheCornerInBlack) {
    PointFileMaker maker(17);
    maker.box = {1, 2, 3, 4, 5, 6};
    maker.add({.pointCount = 1, .location = 1 << 20});
    const int id = loadPointCloudFile(dir.writeWide("hollow", maker.make()).c_str());
    double xyz[3] = {-1, -1, -1};
    char colour[5] = {9, 9, 9, 9, 9};
    getNodePoints(id, 0, xyz, colour);
    EXPECT_EQ(1, xyz[0]);
    EXPECT_EQ(2, xyz[1]);
    EXPECT_EQ(3, xyz[2]);
    EXPECT_TRUE(allAre(colour, '\0'));
    EXPECT_STREQ("the points of node 0 can't be read", nimbrelLastError());
}

TEST_F(QueryExports, LeaveOutputsUntouchedWhereThereIsNothing) {
    loadSmallCloud();
    const std::pair<int, int> cases[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 3}, {0, 1 << 30}};
    for (const auto& [id, node] : cases) {
        double xyz[6] = {7, 7, 7, 7, 7, 7};
        char bytes[124];
        std::fill(std::begin(bytes), std::end(bytes), '\7');
        getNodePoints(id, node, xyz, bytes);
        EXPECT_EQ(0, getNodePointCount(id, node));
        EXPECT_EQ(0, getNodeSelections(id, node, bytes));
        if (id != 0) {
            getBoundingBox(id, xyz);
            getTreeStructure(id, bytes);
            getHeader(id, bytes);
            getOrigin(id, xyz);
            setHeader(id, bytes);
            setProtection(id, 1, 0);
            EXPECT_EQ(0, getPointCount(id) + getNodeCount(id) + getVersion(id) + getReserved(id) + isProtected(id));
            EXPECT_EQ(0, headerChanged(id));
        }
        EXPECT_TRUE(allAre(xyz, 7.0)) << id << ", " << node;
        EXPECT_TRUE(allAre(bytes, '\7')) << id << ", " << node;
    }
}

TEST_F(QueryExports, BoundingBoxFollowsThePlacement) {
    const int id = loadSmallCloud();
    double box[6];
    getBoundingBox(id, box);
    const double plain[6] = {0, 0, 0, 8, 4, 2};
    EXPECT_TRUE(std::equal(box, box + 6, plain));
    // A quarter turn about z and a shift, with scale 2: x goes to y, y to -x.
    const double matrix[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
    setPointCloudPosition(id, matrix);
    setScale(id, 2.0);
    getBoundingBox(id, box);
    const double placed[6] = {10, 20, 30, 2, 36, 34};
    EXPECT_TRUE(std::equal(box, box + 6, placed));
}

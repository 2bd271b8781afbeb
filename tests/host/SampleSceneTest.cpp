#include "sample/SampleScene.h"
#include "TestFiles.h"

#include <map>

static PointBatch allOf(const SampleScene& scene, size_t step) {
    PointBatch all, batch;
    for (uint64_t first = 0; first < scene.size(); first += step) {
        scene.fill(batch, first, step);
        all.positions.insert(all.positions.end(), batch.positions.begin(), batch.positions.end());
        all.attributes.insert(all.attributes.end(), batch.attributes.begin(), batch.attributes.end());
    }
    return all;
}

TEST(SampleScene, IsTheSameWhateverTheBatches) {
    const SampleScene scene(20011, 3);
    const PointBatch whole = allOf(scene, 20011);
    ASSERT_EQ(20011u, whole.size());
    for (size_t step : {1, 777, 65536}) {
        const PointBatch pieces = allOf(SampleScene(20011, 3), step);
        EXPECT_EQ(whole.positions, pieces.positions) << step;
        EXPECT_EQ(whole.attributes, pieces.attributes) << step;
    }
    EXPECT_NE(whole.positions, allOf(SampleScene(20011, 4), 20011).positions);
}

TEST(SampleScene, GivesExactlyWhatIsThere) {
    const SampleScene scene(10, 1);
    PointBatch batch;
    const std::tuple<uint64_t, size_t, size_t> cases[] = {
        {0, 10, 10}, {0, 100, 10}, {8, 5, 2}, {10, 1, 0}, {UINT64_MAX, SIZE_MAX, 0}, {3, 0, 0}};
    for (const auto& [first, points, expected] : cases) {
        scene.fill(batch, first, points);
        EXPECT_EQ(expected, batch.size()) << first << ", " << points;
    }
    SampleScene(0, 1).fill(batch, 0, 5);
    EXPECT_EQ(0u, batch.size());
}

TEST(SampleScene, CoversTheSameExtentAtAnyDensity) {
    for (uint64_t points : {uint64_t{20000}, uint64_t{300000}}) {
        const SampleScene scene(points, 1);
        const PointBatch batch = allOf(scene, 65536);
        const auto bounds = scene.bounds();
        std::array<double, 6> found = {1e9, 1e9, 1e9, -1e9, -1e9, -1e9};
        for (size_t i = 0; i < batch.positions.size(); ++i) {
            found[i % 3] = std::min(found[i % 3], batch.positions[i]);
            found[i % 3 + 3] = std::max(found[i % 3 + 3], batch.positions[i]);
        }
        for (size_t axis = 0; axis < 3; ++axis) {
            EXPECT_GE(found[axis], bounds[axis]);
            EXPECT_LE(found[axis + 3], bounds[axis + 3]);
        }
        EXPECT_NEAR(400, found[3] - found[0], 5);
        EXPECT_NEAR(300, found[4] - found[1], 5);
        EXPECT_GT(found[5] - found[2], 30); // the church
    }
}

// Every kind of thing is there in a plausible share, whatever the seed.
TEST(SampleScene, LooksLikeATownByARiver) {
    for (uint64_t seed : {1, 2, 99}) {
        const PointBatch batch = allOf(SampleScene(200000, seed), 65536);
        std::map<int, double> share;
        for (size_t i = 0; i < batch.size(); ++i) share[batch.attributes[i * 5 + 4]] += 100.0 / 200000;
        const std::tuple<int, double, double> expected[] = {{1, 0.1, 2}, {2, 45, 75}, {3, 0.02, 3},
                                                            {4, 0.3, 4}, {5, 6, 25},  {6, 6, 18},
                                                            {9, 4, 12},  {11, 4, 12}, {17, 0.1, 1}};
        EXPECT_EQ(std::size(expected), share.size()) << seed;
        for (const auto& [pointClass, low, high] : expected) {
            EXPECT_GT(share[pointClass], low) << "class " << pointClass << ", seed " << seed;
            EXPECT_LT(share[pointClass], high) << "class " << pointClass << ", seed " << seed;
        }
    }
}

// Neighbours in the file are neighbours in the scene, and no swath holds more than its sixth.
TEST(SampleScene, ComesInTheOrderOfAScan) {
    const PointBatch batch = allOf(SampleScene(60000, 1), 60000);
    for (size_t i = 0; i < batch.size(); ++i) {
        const size_t swath = i / 10000;
        const double swathStart = 50.0 * static_cast<double>(swath);
        // Points on walls lie up to a wall's reach and the jitter away from the beam.
        EXPECT_GT(batch.positions[i * 3 + 1], swathStart - 8) << i;
        EXPECT_LT(batch.positions[i * 3 + 1], swathStart + 58) << i;
    }
}

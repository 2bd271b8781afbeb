#include "sample/SampleScene.h"
#include "TestFiles.h"

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

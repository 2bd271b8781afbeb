#include "build/TempCache.h"
#include "build/OPCCreator.h"
#include "support/TempDir.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

constexpr unsigned char GREY[5] = {1, 2, 3, 4, 5};

TEST(TempCache, CountsAndBoxesInItsOwnFrame) {
    const TempDir dir;
    TempCache cache;
    double box[6];
    cache.getCacheBoundingBox(box);
    EXPECT_EQ(std::numeric_limits<double>::max(), box[0]);
    EXPECT_EQ(-std::numeric_limits<double>::max(), box[5]);
    const double first[3] = {1, 2, 3};
    EXPECT_FALSE(cache.addCachePoints(first, GREY, 1)) << "without a file";
    EXPECT_EQ(0, cache.getCacheCount());

    ASSERT_TRUE(cache.createTempCache(dir.widePath("stage")));
    EXPECT_TRUE(cache.addCachePoints(first, GREY, 1));
    cache.getCacheBoundingBox(box);
    for (const int corner : {0, 3}) {
        EXPECT_EQ(1, box[corner]);
        EXPECT_EQ(-3, box[corner + 1]);
        EXPECT_EQ(2, box[corner + 2]);
    }
    EXPECT_TRUE(cache.addCachePoints(nullptr, nullptr, 0));
    EXPECT_EQ(1, cache.getCacheCount());

    // Four bytes an ordinate relative to the first point, then the attributes.
    const double second[3] = {2, 0, 3};
    EXPECT_TRUE(cache.addCachePoints(second, GREY, 1));
    const std::vector<unsigned char> expected{0, 0, 0,    0,    0, 0, 0, 0,    0, 0, 0, 0, 1, 2, 3, 4, 5,
                                              0, 0, 0x80, 0x3F, 0, 0, 0, 0xC0, 0, 0, 0, 0, 1, 2, 3, 4, 5};
    EXPECT_EQ(expected, dir.read("stage"));

    ASSERT_TRUE(cache.createTempCache(dir.widePath("next")));
    EXPECT_FALSE(std::filesystem::exists(dir.path("stage")));
    EXPECT_EQ(0, cache.getCacheCount());
    EXPECT_TRUE(cache.closeTempCache());
    EXPECT_FALSE(std::filesystem::exists(dir.path("next")));
    EXPECT_TRUE(cache.closeTempCache());
    EXPECT_FALSE(cache.createTempCache(dir.widePath("missing/stage")));
}

TEST(TempCache, TransfersBatchesInOrderAndMoved) {
    const TempDir dir;
    TempCache cache;
    ASSERT_TRUE(cache.createTempCache(dir.widePath("stage")));
    const int sizes[] = {3, 0, 1000001};
    for (const int size : sizes) {
        std::vector<double> positions(static_cast<size_t>(size) * 3, 10.0);
        std::vector<unsigned char> attributes(static_cast<size_t>(size) * 5, 1);
        ASSERT_TRUE(cache.addCachePoints(positions.data(), attributes.data(), size));
    }
    cache.rewindCache();
    const double late[3] = {0, 0, 0};
    EXPECT_FALSE(cache.addCachePoints(late, GREY, 1)) << "after the rewind";

    OPCCreator creator;
    ASSERT_TRUE(creator.createOPC(dir.widePath("a.opc"), {11, 8, 9, 13, 10, 11}, 1000004, 0));
    const double a[3] = {1, 2, 3};
    const double b[3] = {3, 1, 3};
    for (const int outOfRange : {-1, 3}) cache.transferToOPC(creator, outOfRange, a, b);
    EXPECT_EQ(0, creator.getOPCProgress(0));
    int64_t total = 0;
    for (int batch = 0; batch < 3; ++batch) {
        cache.transferToOPC(creator, batch, a, b);
        total += sizes[batch];
        EXPECT_EQ(total, creator.report().offered);
        EXPECT_EQ(total, creator.getOPCProgress(0)) << "moved into the box";
    }
    creator.cancelOPC();
}

} // namespace

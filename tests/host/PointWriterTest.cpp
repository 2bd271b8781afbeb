#include "writers/PointWriter.h"
#include "TestFiles.h"
#include "readers/PlyReader.h"
#include "readers/TextReader.h"

#include <csignal>
#include <cstring>
#include <limits>
#include <random>

#include <sys/resource.h>

using namespace std::string_literals;

// (1.5, -2, 0.25) in red 1, green 2, blue 255 with intensity 128 and class 6, and (3, 0, 7) in white.
static PointBatch twoPoints() {
    return {{1.5, -2, 0.25, 3, 0, 7}, {1, 2, 255, 128, 6, 255, 255, 255, 0, 2}};
}

static constexpr std::array<double, 6> BOUNDS = {1.5, -2, 0.25, 3, 0, 7};

static std::string written(const std::string& name, const std::vector<PointBatch>& batches,
                           const std::array<double, 6>& bounds = BOUNDS) {
    const TemporaryFolder folder;
    const auto writer = createPoints(folder.file(name), bounds);
    for (const PointBatch& batch : batches) writer->write(batch);
    writer->finish();
    return bytesOf(folder.file(name));
}

template <class T>
static T valueAt(const std::string& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

TEST(PointWriter, WritesCsv) {
    EXPECT_EQ("x,y,z,red,green,blue,intensity,class\n1.5,-2,0.25,1,2,255,128,6\n3,0,7,255,255,255,0,2\n",
              written("points.csv", {twoPoints()}));
}

TEST(PointWriter, WritesPly) {
    const std::string expected = "ply\nformat binary_little_endian 1.0\nelement vertex 2\n"
                                 "comment ...................\nproperty double x\nproperty double y\n"
                                 "property double z\nproperty uchar red\nproperty uchar green\n"
                                 "property uchar blue\nproperty uchar intensity\n"
                                 "property uchar classification\nend_header\n"
                                 "\0\0\0\0\0\0\xf8\x3f\0\0\0\0\0\0\0\xc0\0\0\0\0\0\0\xd0\x3f\x01\x02\xff\x80\x06"
                                 "\0\0\0\0\0\0\x08\x40\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x1c\x40\xff\xff\xff\0\x02"s;
    EXPECT_EQ(expected, written("points.ply", {twoPoints()}));
}

// Offsets and values by the LAS 1.4 specification, spelt out here once more on purpose.
TEST(PointWriter, WritesLas) {
    const std::string bytes = written("points.LAS", {twoPoints()});
    ASSERT_EQ(375u + 2 * 36, bytes.size());
    EXPECT_EQ("LASF\0\0\x10\0"s, bytes.substr(0, 8));
    EXPECT_EQ("\x01\x04"s, bytes.substr(24, 2));
    EXPECT_EQ("\x77\x01\x77\x01\0\0\0\0\0\0\x07\x24\0"s, bytes.substr(94, 13));
    EXPECT_EQ(std::string(24, '\0'), bytes.substr(107, 24)); // the counts of older versions
    const std::array<double, 12> doubles = {1e-4, 1e-4, 1e-4, 1, -2, 0, 3, 1.5, 0, -2, 7, 0.25};
    for (size_t i = 0; i < 12; ++i) EXPECT_DOUBLE_EQ(doubles[i], valueAt<double>(bytes, 131 + i * 8)) << i;
    EXPECT_EQ(std::string(20, '\0'), bytes.substr(227, 20));
    EXPECT_EQ("\x02\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"s + std::string(112, '\0'), bytes.substr(247, 128));

    // x = 1 + 5000 steps, y = -2, z = 2500 steps; bytes times 257.
    EXPECT_EQ("\x88\x13\0\0\0\0\0\0\xc4\x09\0\0\x80\x80\x11\0\x06\0\0\0\0\0\0\0\0\0\0\0\0\0\x01\x01\x02\x02\xff\xff"s,
              bytes.substr(375, 36));
    EXPECT_EQ("\x20\x4e\0\0\x20\x4e\0\0\x70\x11\x01\0\0\0\x11\0\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\xff\xff\xff\xff\xff\xff"s,
              bytes.substr(411, 36));
}

TEST(PointWriter, ChoosesTheLasScaleForTheBounds) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::tuple<std::array<double, 6>, double, double> cases[] = {
        {{635619.85, 0, 0, 638982.55, 1, 1}, 1e-4, 635619},
        {{-100000, 0, 0, 100000, 1, 1}, 1e-4, -100000},
        {{-200000, 0, 0, 200000, 1, 1}, 1e-3, -200000},
        {{-2e9, 0, 0, 2e9, 1, 1}, 10, -2e9},
        {{infinity, infinity, infinity, -infinity, -infinity, -infinity}, 1e-4, 0},
    };
    for (const auto& [bounds, scale, offset] : cases) {
        const std::string bytes = written("points.las", {}, bounds);
        EXPECT_DOUBLE_EQ(scale, valueAt<double>(bytes, 131));
        EXPECT_EQ(offset, valueAt<double>(bytes, 155));
        EXPECT_EQ(0u, valueAt<uint64_t>(bytes, 247));
        EXPECT_EQ(0, valueAt<double>(bytes, 179)); // no points, no bounds
    }
}

TEST(PointWriter, RefusesPointsThatDoNotFitIntoLas) {
    const TemporaryFolder folder;
    for (double x : {1e9, std::numeric_limits<double>::quiet_NaN()}) {
        const auto writer = createPoints(folder.file("points.las"), BOUNDS);
        EXPECT_EQ("a point lies too far outside of the bounds", errorOf([&] {
                      writer->write({{x, 0, 0}, {0, 0, 0, 0, 0}});
                  }));
    }
}

TEST(PointWriter, ComesBackThroughOurReaders) {
    PointBatch batch;
    batch.resize(100000);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> coordinate(-131072, 131072);
    for (double& value : batch.positions) value = coordinate(random);
    for (unsigned char& byte : batch.attributes) byte = static_cast<unsigned char>(random());
    for (const char* name : {"points.ply", "points.csv"}) {
        const TemporaryFolder folder;
        const auto writer = createPoints(folder.file(name), BOUNDS);
        writer->write(batch);
        writer->write({});
        writer->finish();
        const auto reader =
            std::string(name) == "points.ply" ? openPly(folder.file(name), {}) : openText(folder.file(name), {});
        const PointBatch read = readAll(*reader, 7777);
        EXPECT_EQ(batch.positions, read.positions) << name;
        EXPECT_EQ(batch.attributes, read.attributes) << name;
    }
}

TEST(PointWriter, RefusesPathsThatItCannotWrite) {
    const TemporaryFolder folder;
    EXPECT_EQ("points are written to .las, .ply and .csv only",
              errorOf([&] { createPoints(folder.file("points.txt"), BOUNDS); }));
    EXPECT_EQ("points are written to .las, .ply and .csv only",
              errorOf([&] { createPoints(folder.file("folder.las/points"), BOUNDS); }));
    EXPECT_EQ("cannot be created: No such file or directory",
              errorOf([&] { createPoints(folder.file("none/points.las"), BOUNDS); }));
    std::filesystem::create_directory(folder.file("taken.csv"));
    const auto writer = createPoints(folder.file("taken.csv"), BOUNDS);
    EXPECT_EQ("cannot be written: Is a directory", errorOf([&] { writer->finish(); }));
    EXPECT_FALSE(std::filesystem::exists(folder.file("taken.csv.part")));
}

// A limit on the size of files stands for a full disk.
TEST(PointWriter, ReportsAFullDiskAndLeavesTheOldFile) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = before;
    small.rlim_cur = 1 << 20;
    setrlimit(RLIMIT_FSIZE, &small);
    PointBatch batch;
    batch.resize(100000);
    for (const char* name : {"points.las", "points.ply", "points.csv"}) {
        const TemporaryFolder folder;
        const std::string path = folder.write(name, "old");
        const std::string error = errorOf([&] {
            const auto writer = createPoints(path, BOUNDS);
            EXPECT_TRUE(std::filesystem::exists(path + ".part"));
            for (int i = 0; i < 10; ++i) writer->write(batch);
            writer->finish();
        });
        EXPECT_EQ("cannot be written: File too large", error);
        EXPECT_EQ("old", bytesOf(path));
        EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);
}

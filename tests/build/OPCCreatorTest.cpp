#include "build/OPCCreator.h"
#include "format/FileMemoryMap.h"
#include "format/OPCHeader.h"
#include "stream/OPC.h"
#include "support/TempDir.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/resource.h>
#include <thread>
#include <utility>

namespace {

using Bytes = std::vector<unsigned char>;
using Box = std::array<double, 6>;
using Attributes = std::array<unsigned char, 5>;

struct Points {
    std::vector<double> positions;
    Bytes attributes;
    [[nodiscard]] int count() const { return static_cast<int>(attributes.size() / 5); }
    void add(double x, double y, double z, const Attributes& own) {
        positions.insert(positions.end(), {x, y, z});
        attributes.insert(attributes.end(), own.begin(), own.end());
    }
};

// A number in the bits that either form keeps.
Attributes numbered(unsigned number) {
    return {static_cast<unsigned char>(number << 3), static_cast<unsigned char>(number >> 5 << 3),
            static_cast<unsigned char>(number >> 10 << 4), static_cast<unsigned char>(number >> 14 << 3),
            static_cast<unsigned char>(number >> 19 & 15)};
}

unsigned numberOf(const unsigned char* attributes) {
    return attributes[0] >> 3U | attributes[1] >> 3U << 5 | attributes[2] >> 4U << 10 | attributes[3] >> 3U << 14 |
           static_cast<unsigned>(attributes[4]) << 19;
}

// Numbered points spread over a volume, on a grid of a tenth of a millimetre.
Points volume(unsigned count, double width, double height) {
    std::mt19937 random(3);
    const auto ordinate = [&](double range) { return static_cast<double>(random() % 100000) * 1e-5 * range; };
    Points points;
    for (unsigned i = 0; i < count; ++i) points.add(ordinate(width), ordinate(width), ordinate(height), numbered(i));
    return points;
}

struct Cloud {
    std::shared_ptr<FileMemoryMap> file = std::make_shared<FileMemoryMap>();
    std::unique_ptr<OPC> opc;

    explicit Cloud(const std::wstring& path) {
        file->openFile(path, false, 0);
        opc = std::make_unique<OPC>(file);
    }
    [[nodiscard]] int nodes() const {
        return opc->withHeader([](const OPCHeader& header) { return header.nodeCount; });
    }
    [[nodiscard]] Points points(int node) const {
        Points result;
        const auto count = static_cast<size_t>(opc->getNode(node)->getPointCount());
        result.positions.resize(count * 3);
        result.attributes.resize(count * 5);
        opc->getPoints(result.positions.data(), reinterpret_cast<char*>(result.attributes.data()), node);
        return result;
    }
};

void build(const std::wstring& path, const Points& points, const Box& box, int type, BuildReport* report = nullptr,
           std::array<double, 3> filters = {0, 0.0001, 0}) {
    OPCCreator creator;
    ASSERT_TRUE(creator.createOPC(path, box, points.count(), type));
    ASSERT_TRUE(creator.addPoints(points.positions.data(), points.attributes.data(), points.count()));
    creator.indexOPC(filters[0], filters[1], filters[2], 0.75);
    ASSERT_EQ(BuildReport::FINISHED, creator.report().state);
    EXPECT_EQ(0, creator.getOPCProgress(2));
    if (report) *report = creator.report();
}

TEST(OPCCreator, WritesAFileOfOneNodeByteForByte) {
    const TempDir dir;
    Points points;
    // Neither snapped nor filtered: the filters belong to leaves that a parent reads.
    points.add(0.0, 0.0, 0.0, {1, 2, 3, 4, 1});
    points.add(1.0, 2.0, 2.99995, {255, 255, 255, 255, 15});
    build(dir.widePath("17.opc"), points, {0, 0, 0, 1, 2, 3}, 0);
    const Bytes record{16, 11, 2, 0, 2, 0, 138, 0, 0, 0, 0, 0, 0, 0};
    // Ordinates from the widened box's corner at -0.01, big-endian, in ten-thousandths. The 32-bit float of the raw
    // record lies just below 0.01, 1.01 and 2.01, and the fraction is cut off.
    const Bytes data17{0,    99,   0,    99,   0,    99,   1,    2,    3,    4,    1,
                       0x27, 0x73, 0x4E, 0x83, 0x75, 0x93, 0xFF, 0xFF, 0xFF, 0xFF, 15};
    const Bytes file = dir.read("17.opc");
    ASSERT_EQ(138 + data17.size(), file.size());
    EXPECT_EQ(record, Bytes(file.begin() + 124, file.begin() + 138));
    EXPECT_EQ(data17, Bytes(file.begin() + 138, file.end()));
    EXPECT_EQ((Bytes{1, 0, 0, 0, 17, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}),
              Bytes(file.begin(), file.begin() + 20));
    // Spacing (1.02 + 2.02 + 3.02) / 3 / 75 in ten-thousandths, then 0.75.
    EXPECT_EQ((Bytes{13, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE8, 0x3F}),
              Bytes(file.begin() + 92, file.begin() + 108));

    // In a grid of a metre the first point is in the node's first cell, which the form cannot hold.
    BuildReport report;
    build(dir.widePath("18.opc"), points, {0, 0, 0, 1, 2, 3}, 1, &report, {0, 1.0, 0});
    EXPECT_EQ(1, report.sameCell);
    EXPECT_EQ(1, report.written);
    const Bytes stream = dir.read("18.opc");
    // Cells 1, 2, 3 interleave to bits 0 and 2, 4 and 5; all colours' bits set, class 15.
    const Bytes expected{16,  4, 0, 0, 0, 0x10, 0x27, 0, 0,    1,    0,    1,   0,
                         145, 0, 0, 0, 0, 0,    0,    0, 0x35, 0xFE, 0xFF, 0xFF};
    EXPECT_EQ(expected, Bytes(stream.begin() + 124, stream.end()));
}

// By the letter of a full list, a volume filled evenly lost most of its points; here the child keeps them. Points in one
// place are one point of the stream form, and nodes of a wide cloud are small enough for their records.
TEST(OPCCreator, KeepsEveryPointOnceAndInItsPlace) {
    Points filled = volume(300000, 40.0, 40.0);
    for (unsigned i = 0; i < 5000; ++i) filled.add(3.0, 3.0, 3.0, numbered(300000 + i));
    Points wide;
    for (unsigned i = 0; i < 300; ++i) wide.add(i * 1.0e7 - 1.5e9, (i % 17) * 1.0e8, (i % 5) * 3.0e8, numbered(i));
    const std::tuple<const Points&, Box, int, int64_t> cases[] = {
        // and the least number of points in a cell with another
        {filled, {0, 0, 0, 40, 40, 40}, 0, 0},
        {filled, {0, 0, 0, 40, 40, 40}, 1, 4000},
        {wide, {-2.0e9, 0, 0, 2.0e9, 2.0e9, 2.0e9}, 0, 0},
        {wide, {-2.0e9, 0, 0, 2.0e9, 2.0e9, 2.0e9}, 1, 0},
    };
    for (const auto& [points, box, type, sameCell] : cases) {
        SCOPED_TRACE(testing::Message() << points.count() << " points of type " << type);
        const TempDir dir;
        BuildReport report;
        build(dir.widePath("a.opc"), points, box, type, &report);
        EXPECT_EQ(points.count(), report.written + report.sameCell);
        EXPECT_GE(report.sameCell, sameCell);
        const Cloud cloud(dir.widePath("a.opc"));
        ASSERT_TRUE(cloud.opc->isLoaded());
        EXPECT_EQ(report.nodes, cloud.nodes());
        std::vector<bool> seen(points.attributes.size() / 5);
        for (int node = 0; node < cloud.nodes(); ++node) {
            const Points found = cloud.points(node);
            // Two roundings of a ten-thousandth, and those of 32-bit floats on the way.
            const double tolerance = 6e-7 * cloud.opc->getNode(node)->getRadius() + 3e-4;
            for (int i = 0; i < found.count(); ++i) {
                const unsigned number = numberOf(&found.attributes[static_cast<size_t>(i) * 5]);
                ASSERT_LT(number, seen.size());
                ASSERT_FALSE(seen[number]) << "stored twice";
                seen[number] = true;
                for (size_t axis = 0; axis < 3; ++axis) {
                    ASSERT_NEAR(points.positions[size_t{number} * 3 + axis],
                                found.positions[static_cast<size_t>(i) * 3 + axis], tolerance);
                }
            }
        }
        EXPECT_EQ(report.written, std::count(seen.begin(), seen.end(), true));
    }
}

// An inner node takes from each child at most one point a cell of its own grid.
TEST(OPCCreator, SamplesOnePointACellOfEachChild) {
    const TempDir dir;
    build(dir.widePath("a.opc"), volume(60000, 30.0, 0.5), {0, 0, 0, 30, 30, 0.5}, 0);
    const Cloud cloud(dir.widePath("a.opc"));
    int innerNodes = 0;
    for (int node = 0; node < cloud.nodes(); ++node) {
        OPCInterface& inner = *cloud.opc->getNode(node);
        if (inner.getChildren().empty()) continue;
        ++innerNodes;
        const double* box = inner.getBoundingBox();
        const double cell = (box[3] - box[0] + box[4] - box[1] + box[5] - box[2]) / 3.0 / 75.0;
        const double* lowBox = inner.getChildren()[0]->getBoundingBox();
        const int axis = lowBox[3] < box[3] ? 0 : lowBox[4] < box[4] ? 1 : 2;
        const Points found = cloud.points(node);
        EXPECT_GT(found.count(), 500);
        std::map<std::array<long, 4>, int> perCell;
        int shared = 0;
        for (int i = 0; i < found.count(); ++i) {
            const double* p = &found.positions[static_cast<size_t>(i) * 3];
            const std::array<long, 4> key{p[axis] > lowBox[axis + 3], std::lround(std::floor((p[0] - box[0]) / cell)),
                                          std::lround(std::floor((p[1] - box[1]) / cell)),
                                          std::lround(std::floor((p[2] - box[2]) / cell))};
            if (++perCell[key] > 1) ++shared;
        }
        // A coordinate that was rounded on the way can cross into the next cell; that is a point in a thousand.
        EXPECT_LT(shared, 5 + found.count() / 200);
    }
    EXPECT_GE(innerNodes, 3);
}

TEST(OPCCreator, RepeatsItselfWhateverTheThreadsDo) {
    const TempDir dir;
    const Points points = volume(120000, 50.0, 5.0);
    for (const int type : {0, 1}) {
        std::vector<std::vector<Bytes>> builds;
        for (const char* name : {"a.opc", "b.opc"}) {
            build(dir.widePath(name), points, {0, 0, 0, 50, 50, 5}, type);
            const Cloud cloud(dir.widePath(name));
            std::vector<Bytes> nodes(static_cast<size_t>(cloud.nodes()));
            for (int node = 0; node < cloud.nodes(); ++node) {
                cloud.opc->getNode(node)->loadPointData(nodes[static_cast<size_t>(node)]);
            }
            builds.push_back(std::move(nodes));
        }
        EXPECT_GT(builds[0].size(), 8U);
        EXPECT_EQ(builds[0], builds[1]) << type;
    }
}

TEST(OPCCreator, FiltersLeavesAndCountsWhatTheyDrop) {
    const TempDir dir;
    Points points = volume(30000, 10.0, 0.01);
    for (unsigned i = 0; i < 100; ++i) points.add(i * 0.1, 5.0, 5.0 + i, numbered(i)); // stragglers
    BuildReport report;
    build(dir.widePath("a.opc"), points, {0, 0, 0, 10, 10, 200}, 0, &report, {0.5, 0.0001, 0});
    EXPECT_GE(report.noise, 90);
    EXPECT_EQ(points.count(), report.written + report.noise);
    build(dir.widePath("b.opc"), points, {0, 0, 0, 10, 10, 200}, 0, &report, {0, 0.0001, 0.2});
    EXPECT_GT(report.duplicates, 20000);
    EXPECT_EQ(points.count(), report.written + report.duplicates);
}

// Sizes are stored as they were used: 0.0003 as 3, and a step below or beside the grid as the nearest it can be.
TEST(OPCCreator, StoresTheGridItEncodedWith) {
    const TempDir dir;
    for (const auto& [size, stored] :
         {std::pair{0.0003, 3}, {0.0, 1}, {0.00026, 3}, {20.0, 100000}, {std::nan(""), 1}}) {
        Points points;
        points.add(1, 1, 1, {});
        build(dir.widePath("a.opc"), points, {0, 0, 0, 15, 15, 15}, 1, nullptr, {0, size, 0});
        const Bytes file = dir.read("a.opc");
        EXPECT_EQ(stored, file[129] | file[130] << 8 | file[131] << 16) << size;
    }
}

TEST(OPCCreator, RefusesWhatIsOutsideAndWorksThroughItsStages) {
    const TempDir dir;
    OPCCreator creator;
    const double xyz[9] = {0.5, 0.5, 0.5, 2, 0.5, 0.5, std::nan(""), 0, 0};
    const unsigned char attributes[15] = {};
    EXPECT_FALSE(creator.addPoints(xyz, attributes, 1)) << "no build";
    creator.indexOPC(0, 0, 0, 1);
    EXPECT_FALSE(creator.createOPC(dir.widePath("a.opc"), {0, 0, 0, 1, 1, 1}, 10, 7));
    ASSERT_TRUE(creator.createOPC(dir.widePath("missing/a.opc"), {0, 0, 0, 1, 1, 1}, 10, 0));
    EXPECT_FALSE(creator.addPoints(xyz, attributes, 1)) << "no file";
    EXPECT_EQ(0, creator.getOPCProgress(0));
    EXPECT_EQ(1, creator.report().noRoom);
    creator.indexOPC(0, 0, 0, 1);
    EXPECT_EQ(BuildReport::FAILED, creator.report().state);
    ASSERT_TRUE(creator.createOPC(dir.widePath("a.opc"), {0, 0, 0, 1, 1, 1}, 10, 0));
    EXPECT_TRUE(creator.addPoints(xyz, attributes, 0));
    EXPECT_TRUE(creator.addPoints(xyz, attributes, -5));
    EXPECT_EQ(0, creator.getOPCProgress(0));
    EXPECT_TRUE(creator.addPoints(xyz, attributes, 3));
    EXPECT_EQ(1, creator.getOPCProgress(0));
    EXPECT_EQ(2, creator.report().outside);
    EXPECT_EQ(3, creator.report().offered);
    EXPECT_EQ(BuildReport::UNDER_WAY, creator.report().state);
    creator.announceIndexing();
    EXPECT_EQ(1, creator.getOPCProgress(2));
    EXPECT_EQ(1, creator.getOPCProgress(7));
    creator.indexOPC(0, 0, 0, 1);
    EXPECT_EQ(1, creator.getOPCProgress(1));
    EXPECT_EQ(0, creator.getOPCProgress(2));
    EXPECT_FALSE(creator.addPoints(xyz, attributes, 1)) << "finished";
    EXPECT_FALSE(std::filesystem::exists(dir.path("a.opc.scratch")));
}

TEST(OPCCreator, CancelsAtAnyTime) {
    const TempDir dir;
    const Points points = volume(400000, 40.0, 10.0);
    const Box box{0, 0, 0, 40, 40, 10};
    OPCCreator creator;
    for (int round = 0; round < 6; ++round) {
        ASSERT_TRUE(creator.createOPC(dir.widePath("a.opc"), box, points.count(), round % 2));
        creator.addPoints(points.positions.data(), points.attributes.data(), points.count());
        std::atomic<bool> isStarted{false};
        std::thread indexing([&] {
            isStarted = true;
            creator.indexOPC(0, 0.0001, 0, 1);
        });
        while (!isStarted || (round > 1 && creator.getOPCProgress(1) == 0 && creator.getOPCProgress(2) != 0)) {
            std::this_thread::yield();
        }
        // A further build cancels the one under way, too.
        if (round == 5) {
            ASSERT_TRUE(creator.createOPC(dir.widePath("b.opc"), box, 1, 0));
        }
        creator.cancelOPC();
        indexing.join();
        EXPECT_FALSE(creator.addPoints(points.positions.data(), points.attributes.data(), 1));
        EXPECT_FALSE(std::filesystem::exists(dir.path("a.opc.scratch")));
        const auto state = creator.report().state;
        EXPECT_TRUE(state == BuildReport::CANCELLED || state == BuildReport::FINISHED) << state;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.path("b.opc.scratch")));
}

// A limit on file sizes stands in for a full disk. Returns 0 when all went as it should.
int buildOnAFullDisk(bool fillsUpWhileAdding) {
    const TempDir dir;
    std::signal(SIGXFSZ, SIG_IGN);
    const auto limitFiles = [](rlim_t size) {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = size;
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    OPCCreator creator;
    const Points points = volume(200000, 40.0, 4.0);
    if (!creator.createOPC(dir.widePath("a.opc"), {0, 0, 0, 40, 40, 4}, 10, 0)) return 1;
    if (fillsUpWhileAdding) limitFiles(1500000);
    const bool isWhole = creator.addPoints(points.positions.data(), points.attributes.data(), points.count());
    if (isWhole == fillsUpWhileAdding) return 2;
    const int64_t added = creator.getOPCProgress(0);
    if (added + creator.report().noRoom != points.count()) return 3;
    if (fillsUpWhileAdding && (added < 16383 || added > 120000)) return 4;
    limitFiles(fillsUpWhileAdding ? RLIM_INFINITY : 1000000);
    creator.indexOPC(0, 0.0001, 0, 1);
    if (!fillsUpWhileAdding) return creator.report().state == BuildReport::FAILED ? 0 : 5;
    // Room again: what was taken is all there.
    return creator.report().state == BuildReport::FINISHED && creator.report().written == added ? 0 : 6;
}

TEST(OPCCreator, LosesNothingItTookWhenTheDiskFillsUp) {
    // In a process of its own: the limit holds for all of it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(buildOnAFullDisk(true)), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::exit(buildOnAFullDisk(false)), testing::ExitedWithCode(0), "");
}

} // namespace

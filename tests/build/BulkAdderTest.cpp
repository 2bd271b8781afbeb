#include "build/BulkAdder.h"
#include "build/OPCDisk.h"
#include "support/TempDir.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

// The obvious way to add a point: down the tree one by one, each record rounded to floats as it is stored.
struct PlainNode {
    struct Record {
        float relative[3];
        unsigned char tag;
    };
    std::array<double, 6> box;
    std::vector<Record> records;
    std::unique_ptr<PlainNode> low, high;

    [[nodiscard]] int axis() const {
        const double d[3] = {box[3] - box[0], box[4] - box[1], box[5] - box[2]};
        return d[2] > d[0] && d[2] > d[1] ? 2 : d[0] < d[1] ? 1 : 0;
    }
    [[nodiscard]] double side() const { return std::max({box[3] - box[0], box[4] - box[1], box[5] - box[2]}); }

    void add(const double* position, unsigned char tag, double limit, int64_t& lost) {
        if (!low) {
            if (side() < limit && records.size() < 16383) {
                Record record{{}, tag};
                for (size_t i = 0; i < 3; ++i) record.relative[i] = static_cast<float>(position[i] - box[i]);
                records.push_back(record);
                return;
            }
            if (!(side() > double{0.0001F})) {
                ++lost;
                return;
            }
            split(limit, lost);
        }
        const auto split = static_cast<size_t>(axis());
        (position[split] <= low->box[split + 3] ? low : high)->add(position, tag, limit, lost);
    }

    void split(double limit, int64_t& lost) {
        const auto axisIndex = static_cast<size_t>(axis());
        const double plane = (box[axisIndex] + box[axisIndex + 3]) * 0.5;
        low = std::make_unique<PlainNode>();
        high = std::make_unique<PlainNode>();
        low->box = high->box = box;
        low->box[axisIndex + 3] = high->box[axisIndex] = plane;
        for (const Record& record : records) {
            double position[3];
            for (size_t i = 0; i < 3; ++i) position[i] = double{record.relative[i]} + box[i];
            (position[axisIndex] <= plane ? low : high)->add(position, record.tag, limit, lost);
        }
        records.clear();
    }
};

struct Points {
    std::vector<double> positions;
    std::vector<unsigned char> attributes;
    void add(double x, double y, double z) {
        positions.insert(positions.end(), {x, y, z});
        for (int i = 0; i < 5; ++i) attributes.push_back(static_cast<unsigned char>(positions.size() * 7));
    }
};

// Scan lines over a plane, a dense clump, points on the planes of the first splits, and some outside.
Points mixedPoints(double width) {
    Points points;
    std::mt19937 random(5);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
    for (int i = 0; i < 120000; ++i) {
        const double line = std::floor(i / 400.0) / 300.0;
        points.add((i % 400) / 400.0 * width, line * width, unit(random) * 0.02 * width);
        if (i % 3 == 0) points.add(width * (0.3 + 0.001 * unit(random)), width * 0.7, width * 0.01 * unit(random));
        if (i % 100 == 0) points.add(width * 0.5, width * 0.5, width * 0.25);
        if (i % 1000 == 0) points.add(i % 2000 ? -width : NONE, 0, 0);
    }
    return points;
}

void expectSame(OPCTreeDataNode& node, const PlainNode& plain, BuildContext& context) {
    for (size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(plain.box[i], node.minBound[i]);
        ASSERT_EQ(plain.box[i + 3], node.maxBound[i]);
    }
    ASSERT_EQ(plain.low == nullptr, node.isLeaf);
    if (!node.isLeaf) {
        expectSame(*node.children[0], *plain.low, context);
        expectSame(*node.children[1], *plain.high, context);
        return;
    }
    std::vector<BuildPoint> points;
    ASSERT_TRUE(node.readOverflowPoints(context, points));
    ASSERT_EQ(plain.records.size(), points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        for (size_t axis = 0; axis < 3; ++axis) {
            ASSERT_EQ(double{plain.records[i].relative[axis]} + plain.box[axis], points[i].position[axis]);
        }
        ASSERT_EQ(plain.records[i].tag, points[i].attributes[4]);
    }
}

TEST(BulkAdder, BuildsTheTreeOfAddingOneByOne) {
    // Widths, whether the form is the stream, and sizes of batches, the last one repeated.
    const std::tuple<const char*, double, bool, std::vector<int>> cases[] = {
        {"one batch", 100.0, false, {1 << 20}},
        {"small and large batches", 100.0, false, {1, 7, 16383, 1, 5, 60000}},
        {"wider than a node may be", 5.0e6, false, {50000}},
        {"wider than a node of a stream may be", 3000.0, true, {50000}}};
    for (const auto& [name, width, isStream, batches] : cases) {
        SCOPED_TRACE(name);
        const TempDir dir;
        const Points points = mixedPoints(width);
        const std::array<double, 6> box{0, 0, 0, width, width, width * 0.5};
        BuildContext context(std::make_unique<OPCDisk>(dir.widePath("a"), 1, OPCDisk::POINTS_BUFFER_SIZE_2), isStream);
        OPCTreeDataNode root(box, 0, 1);
        BulkAdder adder(context, root);
        PlainNode plain;
        plain.box = box;
        int64_t lost = 0;
        int64_t outside = 0;
        const size_t count = points.attributes.size() / 5;
        for (size_t i = 0; i < count; ++i) {
            const double* position = &points.positions[i * 3];
            if (position[0] >= 0) {
                plain.add(position, points.attributes[i * 5 + 4], context.dimensionLimit, lost);
            } else {
                ++outside;
            }
        }
        for (size_t first = 0, batch = 0; first < count; ++batch) {
            const size_t size =
                std::min(count - first, static_cast<size_t>(batches[std::min(batch, batches.size() - 1)]));
            adder.add(&points.positions[first * 3], &points.attributes[first * 5], size);
            first += size;
        }
        // What is not a number is on neither side of 0 in the test above, and outside for both.
        EXPECT_EQ(outside, context.outside);
        EXPECT_EQ(lost, context.undividable);
        EXPECT_EQ(0, context.noRoom);
        expectSame(root, plain, context);
    }
}

TEST(BulkAdder, DropsOnlyWhatTheSmallestNodeCannotTake) {
    const std::tuple<const char*, double, double, double> cases[] = {
        // lower corner, side and place of all points
        {"nodes divided as far as they may be", 0, 1, 0.3},
        {"doubles so coarse that a node has none between its faces", 1e17, 64, 1e17 + 16},
    };
    for (const auto& [name, corner, side, place] : cases) {
        const TempDir dir;
        BuildContext context(std::make_unique<OPCDisk>(dir.widePath("a"), 1, OPCDisk::POINTS_BUFFER_SIZE_2), false);
        OPCTreeDataNode root({corner, corner, corner, corner + side, corner + side, corner + side}, 0, 1);
        BulkAdder adder(context, root);
        Points points;
        for (int i = 0; i < 20000; ++i) points.add(place, place, place);
        adder.add(points.positions.data(), points.attributes.data(), 20000);
        EXPECT_EQ(20000 - 16383, context.undividable) << name;
    }
}

} // namespace

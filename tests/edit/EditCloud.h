#pragma once

#include "format/NodeRecord.h"
#include "support/PointFileMaker.h"

#include <algorithm>
#include <random>
#include <string>

// A cloud to edit, in either stored form, and a look at what its file holds that shares nothing with the edits.

using Random = std::mt19937;

inline int upTo(Random& random, int most) {
    return std::uniform_int_distribution(0, most)(random);
}

// Seven nodes of two levels below the root with `count` points each.
inline Bytes makeEditCloud(int version, int count, unsigned seed) {
    Random random(seed);
    PointFileMaker maker(version);
    for (const uint8_t mask : std::initializer_list<uint8_t>{7, 7, 4, 4, 7, 4, 4}) {
        PointFileMaker::Node node{.mask = mask, .pointCount = count};
        for (int i = 0; i < count; ++i) {
            if (version == 18) {
                const int delta = 1 + upTo(random, 300); // one byte or two
                if (delta > 127) node.stored.push_back(static_cast<unsigned char>(delta | 128));
                putLittle(node.stored, static_cast<uint64_t>(delta > 127 ? delta >> 7 : delta), 1);
                putLittle(node.stored, random() & 0xFFFFFEU, 3);
            } else {
                const auto place = [&] { return static_cast<uint32_t>(upTo(random, 9999)); };
                const auto x = place(), y = place();
                const Bytes point = fixedPoint(x, y, place(), static_cast<unsigned char>(random()));
                node.stored.insert(node.stored.end(), point.begin(), point.end());
            }
        }
        maker.add(node);
    }
    return maker.make();
}

struct StoredNode {
    NodeRecord record;
    std::vector<Bytes> points; // in the order of the file, deleted ones too

    [[nodiscard]] std::vector<std::string> places(int version) const {
        std::vector<std::string> out;
        for (const Bytes& point : points) out.emplace_back(point.begin(), point.end() - (version == 18 ? 3 : 5));
        if (version != 18) std::sort(out.begin(), out.end()); // deleting changes the order
        return out;
    }
    [[nodiscard]] bool isMarked(size_t i) const { return (points[i][points[i].size() - 3] & 1) != 0; }
};

inline std::vector<StoredNode> storedNodes(const Bytes& file) {
    const int version = file[4];
    std::vector<StoredNode> nodes(7);
    for (size_t n = 0; n < nodes.size(); ++n) {
        const auto size = static_cast<size_t>(NodeRecord::sizeFor(version));
        NodeRecord& record = nodes[n].record;
        record = NodeRecord::decode(std::span(file).subspan(124 + n * size, size), version);
        auto at = file.begin() + record.pointDataByteLocation;
        for (int i = 0; i < record.originalPointCount; ++i) {
            auto end = at;
            while (version == 18 && (*end++ & 128) != 0) continue;
            end += version == 18 ? 3 : record.bytesPerVertex;
            nodes[n].points.emplace_back(at, end);
            at = end;
        }
    }
    return nodes;
}

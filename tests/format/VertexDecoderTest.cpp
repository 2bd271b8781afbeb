#include "format/VertexDecoder.h"
#include "format/OPCNodeParser.h"
#include "format/PointRecord.h"
#include "format/PointStream.h"
#include "support/PointFileMaker.h"

#include <gtest/gtest.h>
#include <random>

// The decoder against the parser, which reads a point at a time, to the bit.

namespace {

Bytes randomBytes(std::mt19937& random, size_t size) {
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes randomStream(std::mt19937& random, int points, bool damaged) {
    Bytes stream;
    for (int i = 0; i < points; ++i) {
        unsigned char delta[10];
        const uint64_t value = (uint64_t{random()} << 31 ^ random()) >> (random() % 64);
        const unsigned char* end = PointStream::putDelta(delta, value & 0x7FFFFFFFFFFFFFFFULL);
        stream.insert(stream.end(), delta, const_cast<unsigned char*>(end));
        stream = stream + randomBytes(random, 3); // half of the points are marked
    }
    if (damaged) {
        stream.insert(stream.begin() + static_cast<ptrdiff_t>(random() % (stream.size() + 1)), 9, 0x80);
        stream.resize(stream.size() - random() % stream.size());
    }
    stream.shrink_to_fit();
    return stream;
}

Bytes parsedVertices(Bytes stored, double filter, int stride, int version, int count) {
    Bytes vertices;
    OPCNodeParser parser(stored, filter, stride, version);
    for (int i = 0; i < count; ++i) {
        const OPCPoint point = parser.getPoint(i, true);
        for (const double ordinate : {point.x, point.y, point.z}) {
            const auto narrowed = static_cast<float>(ordinate);
            uint32_t bits;
            std::memcpy(&bits, &narrowed, sizeof(bits));
            putLittle(vertices, bits, 4);
        }
        vertices.insert(vertices.end(), point.colour, point.colour + 4);
        vertices.push_back(point.classification);
        putLittle(vertices, 0, 3);
    }
    return vertices;
}

} // namespace

TEST(VertexDecoder, AgreesWithTheParserOnFixedRecords) {
    std::mt19937 random(1);
    for (const int stride : {0, 1, 4, 5, 6, 8, 10, 11, 12, 14, 16, 17, 18, 20, 23, 255}) {
        for (int round = 0; round < 20; ++round) {
            const int count = static_cast<int>(random() % 40);
            // Sometimes too few bytes for the last records, never a byte more than the block has.
            const size_t missing = random() % 4 == 0 ? random() % static_cast<size_t>(stride * count + 1) : 0;
            Bytes stored = randomBytes(random, static_cast<size_t>(stride * count) - missing);
            stored.shrink_to_fit();
            Bytes vertices(static_cast<size_t>(count) * Vertex::SIZE, 0xEE);
            decodeFixedVertices(stored, stride, count, vertices.data());
            ASSERT_EQ(parsedVertices(stored, 0.0, stride, 17, count), vertices) << stride << " x " << count;
        }
    }
}

TEST(VertexDecoder, AgreesWithTheParserOnStreams) {
    std::mt19937 random(2);
    for (int round = 0; round < 500; ++round) {
        const int points = 1 + static_cast<int>(random() % 40);
        const Bytes stored = randomStream(random, points, round % 2 == 1);
        const double filter = round % 3 == 0 ? 0.0003 : 10.0;
        Bytes vertices(static_cast<size_t>(points) * Vertex::SIZE, 0xEE);
        decodeStreamVertices(stored, filter, points, vertices.data());
        ASSERT_EQ(parsedVertices(stored, filter, 17, 18, points), vertices) << "round " << round;
    }
}

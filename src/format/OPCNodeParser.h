#pragma once

#include "format/OPCPoint.h"

#include <cstdint>
#include <span>

// A cursor over the stored bytes of one node, which the caller owns: built on the stack, allocates nothing, belongs to
// one thread. Walks that only want the vertices of a whole node use VertexDecoder.h, which is many times faster.
//
// Fixed records (every version but 18) are reached by index. A stream is decoded in order: callers ask for each index
// once, ascending, and may start again with a smaller one. Damaged bytes give zeros: a stream that ends early, or a
// delta longer than 9 bytes, ends the node's points there.
class OPCNodeParser {
public:
    OPCNodeParser(std::span<unsigned char> data, double filter, int bytesPerVertex, int version);

    // Point `i`, relative to the node's minimum corner. With `skipMarked`, indices of a stream count unmarked points
    // only; fixed records carry no mark. Asking a stream twice running for the same point gives a point of zeros.
    OPCPoint getPoint(int i, bool skipMarked);

    // The deleted mark of the stream's point that was decoded last. Fixed records have none.
    void setPoint(bool marked);
    [[nodiscard]] bool isPointSet() const;

    // Overwrites colour and class by red, green, blue, alpha, class: of fixed record `i`, or of the stream's point
    // that was decoded last. A stream's point comes out unmarked, on purpose: painting brings a point back.
    void paintPoint(const unsigned char* colourAndClass, int i);

private:
    [[nodiscard]] OPCPoint getFixedPoint(int i) const;
    [[nodiscard]] unsigned char* fixedRecord(int i) const;
    [[nodiscard]] bool decodeRecord();
    void rewind();

    std::span<unsigned char> data;
    int version;
    double filter;
    int stride;
    int currentPoint = -1; // the point decoded last
    size_t position = 0;   // of the next byte to decode
    uint64_t morton = 0;
    bool hasRecord = false; // a packed word lies before `position`
};

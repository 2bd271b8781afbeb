#pragma once

#include "readers/ArithmeticDecoder.h"
#include "readers/LazScheme.h"

#include <cstddef>
#include <cstring>
#include <memory>

// Decodes one item of the points of a chunk, one point after another, from the code that all items of the chunk share.
// An item that the engine has no use for is decoded all the same, since the next item's symbols follow its own.
class LazItemDecoder {
public:
    virtual ~LazItemDecoder() = default;

    // Writes the item of the next point, as many bytes as the item has.
    virtual void decode(ArithmeticDecoder& decoder, std::byte* item) = 0;
};

// A decoder for `item`, which LazScheme::parse() let through, of a pointwise compressor. `first` holds the item of the
// chunk's first point, which stands uncompressed.
std::unique_ptr<LazItemDecoder> makeItemDecoder(const LazItem& item, const std::byte* first);

// The decoders behind it, by version.
std::unique_ptr<LazItemDecoder> makeItemDecoderV1(const LazItem& item, const std::byte* first);
std::unique_ptr<LazItemDecoder> makeItemDecoderV2(const LazItem& item, const std::byte* first);

// The first 20 bytes of a record of format 0 to 5, field by field and without padding.
struct LazPoint10 {
    int32_t x, y, z;
    uint16_t intensity;
    uint8_t returns; // number, of how many, direction, edge
    uint8_t classification;
    uint8_t scanAngle; // signed, but predicted modulo 256
    uint8_t userData;
    uint16_t source;
};
static_assert(sizeof(LazPoint10) == 20, "files with this record exist");

template <typename T>
T loadItem(const std::byte* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <typename T>
void storeItem(std::byte* bytes, const T& value) {
    std::memcpy(bytes, &value, sizeof(T));
}

// Sums and products that wrap around as the encoder's do.
inline int32_t wrappingAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int64_t wrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int32_t wrappingMultiply(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

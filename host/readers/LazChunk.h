#pragma once

#include "readers/LazBytes.h"
#include "readers/LazScheme.h"

#include <cstddef>
#include <memory>
#include <span>

// The compressed points of one chunk, decoded from its first point on in portions of any size.
//
// Any bytes are accepted; from damaged ones come wrong points, or fewer than asked for. Belongs to one thread.
class LazChunk {
public:
    virtual ~LazChunk() = default;

    // Decodes the next points into `records`, which is zeroed and has room for a whole number of them. Returns how many
    // came out whole: fewer than there is room for when the bytes of the chunk end early.
    [[nodiscard]] virtual size_t decode(std::span<std::byte> records) = 0;
};

// A chunk of compressor 1 or 2 from `bytes` on, which it borrows. After its last point `bytes` stands behind it.
std::unique_ptr<LazChunk> openPointwiseChunk(const LazScheme& scheme, size_t recordLength, LazBytes& bytes);

// A chunk of compressor 3 in `bytes`, which it borrows. Decodes coordinates, returns, class, flags, intensity and
// colour; everything else stays zero. Throws FileError when `bytes` does not hold the layers that it announces.
std::unique_ptr<LazChunk> openLayeredChunk(const LazScheme& scheme, size_t recordLength,
                                           std::span<const std::byte> bytes);

// What the head of a layered chunk says: how many points and, with the head itself, how many bytes it has.
struct LazLayeredSize {
    uint64_t points = 0;
    uint64_t bytes = 0;

    // Bytes of a head: the first point, the number of points, and the size of each layer.
    static size_t headSize(const LazScheme& scheme, size_t recordLength);
    static LazLayeredSize parse(const LazScheme& scheme, size_t recordLength, std::span<const std::byte> head);
};

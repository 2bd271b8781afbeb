#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The delta stream of version 18: for each point, in the order of its Morton code, the difference to the code before
// it as unsigned LEB128 (seven bits a byte, least significant group first), then a packed word of three bytes.
struct PointStream {
    static constexpr int LARGEST_DELTA_BYTES = 9; // 63 bits
    static constexpr int PACKED_BYTES = 3;
    static constexpr int LARGEST_POINT_BYTES = LARGEST_DELTA_BYTES + PACKED_BYTES;
    static constexpr int ORDINATE_BITS = 21;
    static constexpr uint64_t ORDINATE_MASK = (uint64_t{1} << ORDINATE_BITS) - 1;

    // Bits of the packed word. The top bits of each colour are kept, and come back with zeros below them.
    static constexpr uint32_t MARKED = 1; // the point is deleted
    static constexpr uint32_t pack(const unsigned char* attributes) {
        return uint32_t{attributes[2]} >> 4 << 1 | uint32_t{attributes[1]} >> 3 << 5 | //
               uint32_t{attributes[0]} >> 3 << 10 | uint32_t{attributes[3]} >> 3 << 15 |
               (uint32_t{attributes[4]} & 0x0F) << 20;
    }
    static constexpr void unpack(uint32_t word, unsigned char* attributes) {
        attributes[0] = static_cast<unsigned char>((word >> 7) & 0xF8);
        attributes[1] = static_cast<unsigned char>((word >> 2) & 0xF8);
        attributes[2] = static_cast<unsigned char>((word << 3) & 0xF0);
        attributes[3] = static_cast<unsigned char>((word >> 12) & 0xF8);
        attributes[4] = static_cast<unsigned char>((word >> 20) & 0x0F);
    }
    static uint32_t load(const unsigned char* p) { return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16; }
    static void store(unsigned char* p, uint32_t word) {
        p[0] = static_cast<unsigned char>(word);
        p[1] = static_cast<unsigned char>(word >> 8);
        p[2] = static_cast<unsigned char>(word >> 16);
    }

    // Interleaves 21-bit integers, X in bits 0, 3, 6..., Y one higher, Z two higher; and takes one of them out again
    // (shift the code right by 0, 1 or 2). Spreading by masks and shifts: each step halves the length of the groups
    // and moves the upper one up, as in H. S. Warren, Hacker's Delight, section 7-3.
    static constexpr uint64_t spread(uint64_t v) {
        v &= ORDINATE_MASK;
        v = (v | v << 32) & 0x001F00000000FFFFULL;
        v = (v | v << 16) & 0x001F0000FF0000FFULL;
        v = (v | v << 8) & 0x100F00F00F00F00FULL;
        v = (v | v << 4) & 0x10C30C30C30C30C3ULL;
        v = (v | v << 2) & 0x1249249249249249ULL;
        return v;
    }
    static constexpr uint64_t gather(uint64_t v) {
        v &= 0x1249249249249249ULL;
        v = (v | v >> 2) & 0x10C30C30C30C30C3ULL;
        v = (v | v >> 4) & 0x100F00F00F00F00FULL;
        v = (v | v >> 8) & 0x001F0000FF0000FFULL;
        v = (v | v >> 16) & 0x001F00000000FFFFULL;
        v = (v | v >> 32) & ORDINATE_MASK;
        return v;
    }
    static constexpr uint64_t morton(uint64_t x, uint64_t y, uint64_t z) {
        return spread(x) | spread(y) << 1 | spread(z) << 2;
    }

    // Writes `delta` and returns the byte behind it.
    static unsigned char* putDelta(unsigned char* out, uint64_t delta) {
        for (; delta >= 0x80; delta >>= 7) *out++ = static_cast<unsigned char>(delta | 0x80);
        *out++ = static_cast<unsigned char>(delta);
        return out;
    }
};

// Steps through the records of a stream without decoding places. Ends where OPCNodeParser ends, at damaged bytes too.
class StreamRecords {
public:
    explicit StreamRecords(std::span<unsigned char> dataIn) : data(dataIn) {}

    // Goes to the next record; false at the end of the sound ones.
    bool next() {
        size_t at = end;
        const size_t limit = at + PointStream::LARGEST_DELTA_BYTES;
        do {
            if (at == data.size() || at == limit) return false;
        } while (data[at++] >= 0x80);
        if (data.size() - at < PointStream::PACKED_BYTES) return false;
        start = end;
        end = at + PointStream::PACKED_BYTES;
        return true;
    }

    // Of the record that next() went to.
    [[nodiscard]] unsigned char* packedWord() const { return data.data() + end - PointStream::PACKED_BYTES; }
    [[nodiscard]] std::span<const unsigned char> delta() const {
        return data.subspan(start, end - PointStream::PACKED_BYTES - start);
    }
    [[nodiscard]] bool isMarked() const { return (*packedWord() & PointStream::MARKED) != 0; }
    void mark(bool value) const {
        unsigned char& byte = *packedWord();
        byte = static_cast<unsigned char>(value ? byte | PointStream::MARKED : byte & ~PointStream::MARKED);
    }

private:
    std::span<unsigned char> data;
    size_t start = 0; // of the record
    size_t end = 0;   // behind it
};

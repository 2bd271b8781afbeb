#include "format/VertexDecoder.h"

#include "format/PointRecord.h"
#include "format/PointStream.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

// Each form has one portable loop and, on x86-64, one for the instructions that it gains most from, chosen at run time:
// byte shuffles for fixed records, and bit extraction for the stream. Both give the same bits. The portable stream
// loop is also what finishes a node, since the quick ones read a few bytes past the record at hand.

namespace {

void putVertex(unsigned char* out, const float* position, const unsigned char* attributes) {
    std::memcpy(out + Vertex::POSITION, position, 3 * sizeof(float));
    std::memcpy(out + Vertex::COLOUR, attributes, ATTRIBUTE_BYTES);
    std::memset(out + Vertex::SELECTION, 0, Vertex::SIZE - Vertex::SELECTION);
}

void zeroVertices(unsigned char* out, int count) {
    if (count > 0) std::memset(out, 0, static_cast<size_t>(count) * Vertex::SIZE);
}

void decodeFixedPortably(const unsigned char* in, int stride, int count, unsigned char* out) {
    const int ordinateBytes = FixedRecord::ordinateBytesFor(stride);
    for (int i = 0; i < count; ++i, in += stride, out += Vertex::SIZE) {
        float position[3];
        for (int axis = 0; axis < 3; ++axis) {
            position[axis] = static_cast<float>(fromByteArrayLittleEndian(in + axis * ordinateBytes, ordinateBytes)) *
                             FixedRecord::POSITION_STEP;
        }
        putVertex(out, position, in + 3 * ordinateBytes);
    }
}

// Where a stream stands.
struct StreamCursor {
    const unsigned char* in;
    const unsigned char* end;
    uint64_t morton = 0;

    // Reads the next record; false at the end of the sound bytes.
    bool next(uint32_t& packed) {
        uint64_t delta = 0;
        const unsigned char* at = in;
        for (int i = 0;; ++i) {
            if (i == PointStream::LARGEST_DELTA_BYTES || at == end) return false;
            const unsigned char byte = *at++;
            delta |= uint64_t{byte & 0x7FU} << (7 * i);
            if (byte < 0x80) break;
        }
        if (end - at < PointStream::PACKED_BYTES) return false;
        packed = PointStream::load(at);
        in = at + PointStream::PACKED_BYTES;
        morton += delta;
        return true;
    }
};

void putStreamVertex(unsigned char* out, uint64_t x, uint64_t y, uint64_t z, double filter, uint32_t packed) {
    const float position[3] = {static_cast<float>(static_cast<double>(static_cast<int64_t>(x)) * filter),
                               static_cast<float>(static_cast<double>(static_cast<int64_t>(y)) * filter),
                               static_cast<float>(static_cast<double>(static_cast<int64_t>(z)) * filter)};
    unsigned char attributes[ATTRIBUTE_BYTES];
    PointStream::unpack(packed, attributes);
    putVertex(out, position, attributes);
}

int decodeStreamPortably(StreamCursor& cursor, double filter, int count, unsigned char* out) {
    int done = 0;
    uint32_t packed = 0;
    while (done < count && cursor.next(packed)) {
        if (packed & PointStream::MARKED) continue;
        putStreamVertex(out, PointStream::gather(cursor.morton), PointStream::gather(cursor.morton >> 1),
                        PointStream::gather(cursor.morton >> 2), filter, packed);
        out += Vertex::SIZE;
        ++done;
    }
    return done;
}

#if defined(__x86_64__)

// One record at a time in a 16-byte register: three ordinates to the first lanes, turned into little-endian order and
// converted, and the colour to the fourth. Returns how many records it decoded, all but those whose 16 bytes would
// reach past the end.
__attribute__((target("ssse3"))) int decodeFixedShuffled(std::span<const unsigned char> data, int stride, int count,
                                                         unsigned char* out) {
    const int ordinateBytes = FixedRecord::ordinateBytesFor(stride);
    alignas(16) char order[16];
    alignas(16) char colourOrder[16];
    std::memset(order, -1, sizeof(order)); // -1 gives a zero byte
    std::memset(colourOrder, -1, sizeof(colourOrder));
    for (int axis = 0; axis < 3; ++axis) {
        for (int byte = 0; byte < ordinateBytes; ++byte) {
            order[4 * axis + byte] = static_cast<char>((axis + 1) * ordinateBytes - 1 - byte);
        }
    }
    for (int byte = 0; byte < 4; ++byte) colourOrder[12 + byte] = static_cast<char>(3 * ordinateBytes + byte);
    const __m128i positionShuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(order));
    const __m128i colourShuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(colourOrder));
    const __m128 step = _mm_set1_ps(FixedRecord::POSITION_STEP);

    const unsigned char* in = data.data();
    const int overreach = stride < 16 ? 2 : 0; // records from the end whose load could leave the buffer
    const int last = std::max(0, count - overreach);
    for (int i = 0; i < last; ++i, in += stride, out += Vertex::SIZE) {
        const __m128i record = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128 position = _mm_mul_ps(_mm_cvtepi32_ps(_mm_shuffle_epi8(record, positionShuffle)), step);
        const __m128i colour = _mm_shuffle_epi8(record, colourShuffle);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(_mm_castps_si128(position), colour));
        const uint32_t classification = in[stride - 1];
        std::memcpy(out + Vertex::CLASSIFICATION, &classification, sizeof(classification));
    }
    return last;
}

// Eight bytes hold most deltas: the lowest clear top bit tells the length, and one bit extraction joins the groups of
// seven; three more take the code apart. Stops short of the end, and at a delta of nine bytes.
__attribute__((target("bmi,bmi2"))) int decodeStreamExtracted(StreamCursor& cursor, double filter, int count,
                                                              unsigned char* out) {
    constexpr uint64_t TOP_BITS = 0x8080808080808080ULL;
    constexpr uint64_t EVERY_THIRD = 0x1249249249249249ULL;
    int done = 0;
    while (done < count && cursor.end - cursor.in >= 16) {
        uint64_t word;
        std::memcpy(&word, cursor.in, sizeof(word));
        const uint64_t stops = ~word & TOP_BITS;
        if (stops == 0) {
            uint32_t packed = 0;
            if (!cursor.next(packed)) return done;
            if (packed & PointStream::MARKED) continue;
            putStreamVertex(out, PointStream::gather(cursor.morton), PointStream::gather(cursor.morton >> 1),
                            PointStream::gather(cursor.morton >> 2), filter, packed);
            out += Vertex::SIZE;
            ++done;
            continue;
        }
        const uint64_t upToStop = stops ^ (stops - 1); // every bit up to the last byte's top bit
        cursor.morton += _pext_u64(word & upToStop, ~TOP_BITS);
        const unsigned char* packedAt = cursor.in + (std::countr_zero(stops) + 1) / 8;
        uint32_t packed;
        std::memcpy(&packed, packedAt, sizeof(packed));
        cursor.in = packedAt + PointStream::PACKED_BYTES;
        if (packed & PointStream::MARKED) continue;
        putStreamVertex(out, _pext_u64(cursor.morton, EVERY_THIRD), _pext_u64(cursor.morton, EVERY_THIRD << 1),
                        _pext_u64(cursor.morton, EVERY_THIRD << 2), filter, packed);
        out += Vertex::SIZE;
        ++done;
    }
    return done;
}

const bool HAS_SHUFFLE = __builtin_cpu_supports("ssse3");
const bool HAS_EXTRACT = __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");

#endif

} // namespace

void decodeFixedVertices(std::span<const unsigned char> data, int stride, int count, unsigned char* out) {
    if (stride < ATTRIBUTE_BYTES) return zeroVertices(out, count);
    const int whole =
        static_cast<int>(std::min(static_cast<size_t>(std::max(count, 0)), data.size() / static_cast<size_t>(stride)));
    int done = 0;
#if defined(__x86_64__)
    if (HAS_SHUFFLE && (stride == 11 || stride == 14 || stride == 17)) {
        done = decodeFixedShuffled(data, stride, whole, out);
    }
#endif
    decodeFixedPortably(data.data() + static_cast<ptrdiff_t>(done) * stride, stride, whole - done,
                        out + static_cast<ptrdiff_t>(done) * Vertex::SIZE);
    zeroVertices(out + static_cast<ptrdiff_t>(whole) * Vertex::SIZE, count - whole);
}

void decodeStreamVertices(std::span<const unsigned char> data, double filter, int count, unsigned char* out) {
    StreamCursor cursor{data.data(), data.data() + data.size()};
    int done = 0;
#if defined(__x86_64__)
    if (HAS_EXTRACT) done = decodeStreamExtracted(cursor, filter, count, out);
#endif
    done += decodeStreamPortably(cursor, filter, count - done, out + static_cast<ptrdiff_t>(done) * Vertex::SIZE);
    zeroVertices(out + static_cast<ptrdiff_t>(done) * Vertex::SIZE, count - done);
}

void decodeFloatVertices(std::span<const unsigned char> data, int count, unsigned char* out) {
    const int whole =
        static_cast<int>(std::min(static_cast<size_t>(std::max(count, 0)), data.size() / FloatRecord::SIZE));
    const unsigned char* in = data.data();
    for (int i = 0; i < whole; ++i, in += FloatRecord::SIZE, out += Vertex::SIZE) {
        std::memcpy(out, in, FloatRecord::SIZE);
        std::memset(out + Vertex::SELECTION, 0, Vertex::SIZE - Vertex::SELECTION);
    }
    zeroVertices(out, count - whole);
}

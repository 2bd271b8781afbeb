#include "readers/IntegerDecoder.h"
#include "readers/LazItemDecoder.h"

#include <algorithm>
#include <array>

// The items in their first versions, which compressors up to 1.2 wrote, and the waveform packet, which never got
// another. Each value is predicted from the point before, coordinates by the median of the last three differences.

namespace {

class Point10V1 : public LazItemDecoder {
public:
    explicit Point10V1(const std::byte* first) : last(loadItem<LazPoint10>(first)) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    void decodeAttributes(ArithmeticDecoder& decoder, bool smallSteps);

    LazPoint10 last;
    std::array<int32_t, 3> xSteps{}; // the last three, in a ring
    std::array<int32_t, 3> ySteps{};
    size_t ring = 0;
    IntegerDecoder x{32};
    IntegerDecoder y{32, 20};
    IntegerDecoder z{32, 20};
    IntegerDecoder intensity{16};
    IntegerDecoder scanAngle{8, 2};
    IntegerDecoder source{16};
    SymbolModel changes{64};
    std::vector<SymbolModel> returns{256, SymbolModel(256)}; // by the value before
    std::vector<SymbolModel> classification{256, SymbolModel(256)};
    std::vector<SymbolModel> userData{256, SymbolModel(256)};
};

class GpsTimeV1 : public LazItemDecoder {
public:
    explicit GpsTimeV1(const std::byte* first) : last(loadItem<int64_t>(first)) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    static constexpr uint32_t LARGEST_FACTOR = 509;
    static constexpr uint32_t WHOLE = 510; // the time itself follows; 511: unchanged

    void decodeStep(ArithmeticDecoder& decoder, uint32_t factor);

    int64_t last;
    int32_t lastStep = 0;
    int extremes = 0; // steps in a row that the factors do not reach
    SymbolModel factors{512};
    SymbolModel starts{3};
    IntegerDecoder step{32, 6};
};

class Rgb12V1 : public LazItemDecoder {
public:
    explicit Rgb12V1(const std::byte* first) { std::copy_n(first, last.size(), last.begin()); }
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    std::array<std::byte, 6> last;
    SymbolModel changes{64};
    IntegerDecoder value{8, 6};
};

class BytesV1 : public LazItemDecoder {
public:
    BytesV1(const std::byte* first, size_t size) : last(first, first + size), value(8, size) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    std::vector<std::byte> last;
    IntegerDecoder value;
};

class WavePacketV1 : public LazItemDecoder {
public:
    explicit WavePacketV1(const std::byte* first) : last(loadItem<Packet>(first + 1)) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    // What follows the index of the packet's description. The floats are predicted as integers.
    struct Packet {
        std::array<uint32_t, 2> offset; // lower half first; an 8-byte integer would bring padding
        int32_t size, returnPoint;
        std::array<int32_t, 3> direction;
    };
    static_assert(sizeof(Packet) == 28, "files with this record exist");

    int64_t decodeOffset(ArithmeticDecoder& decoder);

    Packet last;
    uint32_t lastKind = 0;
    int32_t lastStep = 0;
    SymbolModel index{256};
    std::array<SymbolModel, 4> kinds{SymbolModel(4), SymbolModel(4), SymbolModel(4), SymbolModel(4)};
    IntegerDecoder step{32};
    IntegerDecoder size{32};
    IntegerDecoder returnPoint{32};
    IntegerDecoder direction{32, 3};
};

} // namespace

static int32_t medianOf(const std::array<int32_t, 3>& steps) {
    return std::max(std::min(steps[0], steps[1]), std::min(std::max(steps[0], steps[1]), steps[2]));
}

void Point10V1::decode(ArithmeticDecoder& decoder, std::byte* item) {
    const int32_t xStep = x.decode(decoder, medianOf(xSteps));
    const int32_t yStep = y.decode(decoder, medianOf(ySteps), std::min(x.lastBits(), 19U));
    last.x = wrappingAdd(last.x, xStep);
    last.y = wrappingAdd(last.y, yStep);
    const uint32_t bits = (x.lastBits() + y.lastBits()) / 2;
    last.z = z.decode(decoder, last.z, std::min(bits, 19U));
    decodeAttributes(decoder, bits < 3);
    xSteps[ring] = xStep;
    ySteps[ring] = yStep;
    ring = (ring + 1) % 3;
    storeItem(item, last);
}

void Point10V1::decodeAttributes(ArithmeticDecoder& decoder, bool smallSteps) {
    const auto likeBefore = [&](std::vector<SymbolModel>& models, uint8_t before) {
        return static_cast<uint8_t>(decoder.decodeSymbol(models[before]));
    };
    const uint32_t changed = decoder.decodeSymbol(changes);
    if (changed & 32) last.intensity = static_cast<uint16_t>(intensity.decode(decoder, last.intensity));
    if (changed & 16) last.returns = likeBefore(returns, last.returns);
    if (changed & 8) last.classification = likeBefore(classification, last.classification);
    if (changed & 4) last.scanAngle = static_cast<uint8_t>(scanAngle.decode(decoder, last.scanAngle, smallSteps));
    if (changed & 2) last.userData = likeBefore(userData, last.userData);
    if (changed & 1) last.source = static_cast<uint16_t>(source.decode(decoder, last.source));
}

void GpsTimeV1::decode(ArithmeticDecoder& decoder, std::byte* item) {
    if (lastStep == 0) {
        const uint32_t start = decoder.decodeSymbol(starts);
        if (start == 1) {
            lastStep = step.decode(decoder, 0);
            last = wrappingAdd(last, int64_t{lastStep});
        } else if (start == 2) {
            last = static_cast<int64_t>(decoder.decodeWord64());
        }
    } else {
        const uint32_t factor = decoder.decodeSymbol(factors);
        if (factor <= LARGEST_FACTOR) {
            decodeStep(decoder, factor);
        } else if (factor == WHOLE) {
            last = static_cast<int64_t>(decoder.decodeWord64());
        }
    }
    storeItem(item, last);
}

void GpsTimeV1::decodeStep(ArithmeticDecoder& decoder, uint32_t factor) {
    const int32_t multiple = wrappingMultiply(static_cast<int32_t>(factor), lastStep);
    int32_t now = 0;
    if (factor == 0) {
        now = step.decode(decoder, lastStep / 4, 2);
    } else {
        const size_t context = factor == 1 ? 1 : factor < 10 ? 3 : factor < 50 ? 4 : 5;
        now = step.decode(decoder, multiple, context);
    }
    last = wrappingAdd(last, int64_t{now});
    if (factor == 1) {
        lastStep = now;
        extremes = 0;
    } else if ((factor == 0 || factor == LARGEST_FACTOR) && ++extremes > 3) {
        // The factors have not reached the step for a while, so that it becomes the new unit.
        lastStep = now;
        extremes = 0;
    }
}

void Rgb12V1::decode(ArithmeticDecoder& decoder, std::byte* item) {
    const uint32_t changed = decoder.decodeSymbol(changes);
    for (size_t i = 0; i < last.size(); ++i) {
        if ((changed >> i & 1) == 0) continue;
        last[i] = static_cast<std::byte>(value.decode(decoder, std::to_integer<int32_t>(last[i]), i));
    }
    storeItem(item, last);
}

void BytesV1::decode(ArithmeticDecoder& decoder, std::byte* item) {
    for (size_t i = 0; i < last.size(); ++i)
        last[i] = static_cast<std::byte>(value.decode(decoder, std::to_integer<int32_t>(last[i]), i));
    std::copy(last.begin(), last.end(), item);
}

int64_t WavePacketV1::decodeOffset(ArithmeticDecoder& decoder) {
    const int64_t before = static_cast<int64_t>(last.offset[0] | static_cast<uint64_t>(last.offset[1]) << 32);
    lastKind = decoder.decodeSymbol(kinds[lastKind]);
    if (lastKind == 0) return before;
    if (lastKind == 1) return wrappingAdd(before, int64_t{static_cast<uint32_t>(last.size)});
    if (lastKind == 3) return static_cast<int64_t>(decoder.decodeWord64());
    lastStep = step.decode(decoder, lastStep);
    return wrappingAdd(before, int64_t{lastStep});
}

void WavePacketV1::decode(ArithmeticDecoder& decoder, std::byte* item) {
    item[0] = static_cast<std::byte>(decoder.decodeSymbol(index));
    const auto offset = static_cast<uint64_t>(decodeOffset(decoder));
    last.offset = {static_cast<uint32_t>(offset), static_cast<uint32_t>(offset >> 32)};
    last.size = size.decode(decoder, last.size);
    last.returnPoint = returnPoint.decode(decoder, last.returnPoint);
    for (size_t axis = 0; axis < 3; ++axis)
        last.direction[axis] = direction.decode(decoder, last.direction[axis], axis);
    storeItem(item + 1, last);
}

std::unique_ptr<LazItemDecoder> makeItemDecoderV1(const LazItem& item, const std::byte* first) {
    switch (item.type) {
    case LazItemType::POINT10:
        return std::make_unique<Point10V1>(first);
    case LazItemType::GPSTIME11:
        return std::make_unique<GpsTimeV1>(first);
    case LazItemType::RGB12:
        return std::make_unique<Rgb12V1>(first);
    case LazItemType::WAVEPACKET13:
        return std::make_unique<WavePacketV1>(first);
    default:
        return std::make_unique<BytesV1>(first, item.size);
    }
}

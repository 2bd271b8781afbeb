#include "readers/IntegerDecoder.h"
#include "readers/LazItemDecoder.h"
#include "readers/LazMedian.h"
#include "readers/LazRgb.h"

#include <algorithm>
#include <array>

// The items in their second versions, which compressors from 2.0 on write for point formats 0 to 5. The contexts
// follow the returns of a pulse: a first return is predicted from first returns, a last one from last returns.

namespace {

class Point10V2 : public LazItemDecoder {
public:
    // The intensity is predicted per kind of return and starts at 0 for each of them.
    explicit Point10V2(const std::byte* first) : last(loadItem<LazPoint10>(first)) { last.intensity = 0; }
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    static constexpr size_t RETURN_KINDS = 16;

    void decodeAttributes(ArithmeticDecoder& decoder, uint32_t changed, size_t kind);
    void decodeCoordinates(ArithmeticDecoder& decoder, size_t kind);

    [[nodiscard]] size_t returnNumber() const { return last.returns & 7U; }
    [[nodiscard]] size_t returnCount() const { return last.returns >> 3 & 7U; }

    LazPoint10 last;
    std::array<LazMedian, RETURN_KINDS> xSteps;
    std::array<LazMedian, RETURN_KINDS> ySteps;
    std::array<uint16_t, RETURN_KINDS> intensities{};
    std::array<int32_t, 8> heights{}; // by the number of returns between this one and the last of its pulse
    IntegerDecoder x{32, 2};
    IntegerDecoder y{32, 22};
    IntegerDecoder z{32, 20};
    IntegerDecoder intensity{16, 4};
    IntegerDecoder source{16};
    SymbolModel changes{64};
    std::array<SymbolModel, 2> scanAngle{SymbolModel(256), SymbolModel(256)}; // by the scan direction
    std::vector<SymbolModel> returns{256, SymbolModel(256)};                  // by the value before
    std::vector<SymbolModel> classification{256, SymbolModel(256)};
    std::vector<SymbolModel> userData{256, SymbolModel(256)};
};

// Times of up to four interleaved sequences, each with a step of its own of which the next step is a multiple.
class GpsTimeV2 : public LazItemDecoder {
public:
    explicit GpsTimeV2(const std::byte* first) { sequences[0].time = loadItem<int64_t>(first); }
    void decode(ArithmeticDecoder& decoder, std::byte* item) override;

private:
    static constexpr uint32_t LARGEST_FACTOR = 500;
    static constexpr uint32_t NEGATIVE_FACTORS = 10; // symbols after LARGEST_FACTOR: -1 to -10
    static constexpr uint32_t UNCHANGED = LARGEST_FACTOR + NEGATIVE_FACTORS + 1;
    static constexpr uint32_t WHOLE = UNCHANGED + 1; // after it: change to one of three other sequences
    static constexpr uint32_t FACTOR_SYMBOLS = WHOLE + 4;
    static constexpr uint32_t START_UNCHANGED = 0; // after it: the first step of the sequence
    static constexpr uint32_t START_WHOLE = 2;     // after it: change to one of three other sequences
    static constexpr uint32_t START_SYMBOLS = START_WHOLE + 4;

    struct Sequence {
        int64_t time = 0;
        int32_t step = 0;
        int extremes = 0; // steps in a row that the factors do not reach
    };

    bool decodeOnce(ArithmeticDecoder& decoder);
    void decodeStart(ArithmeticDecoder& decoder, uint32_t start);
    void decodeStep(ArithmeticDecoder& decoder, uint32_t factor);
    void decodeWhole(ArithmeticDecoder& decoder);

    std::array<Sequence, 4> sequences;
    size_t current = 0;
    size_t newest = 0; // the sequence that was begun last
    SymbolModel factors{FACTOR_SYMBOLS};
    SymbolModel starts{START_SYMBOLS};
    IntegerDecoder value{32, 9};
};

class Rgb12V2 : public LazItemDecoder {
public:
    explicit Rgb12V2(const std::byte* first) : last(loadItem<LazRgb>(first)) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override {
        last = models.decode(decoder, last);
        storeItem(item, last);
    }

private:
    LazRgb last;
    LazRgbModels models;
};

class BytesV2 : public LazItemDecoder {
public:
    BytesV2(const std::byte* first, size_t size) : last(first, first + size), models(size, SymbolModel(256)) {}
    void decode(ArithmeticDecoder& decoder, std::byte* item) override {
        for (size_t i = 0; i < last.size(); ++i)
            last[i] = static_cast<std::byte>(std::to_integer<uint32_t>(last[i]) + decoder.decodeSymbol(models[i]));
        std::copy(last.begin(), last.end(), item);
    }

private:
    std::vector<std::byte> last;
    std::vector<SymbolModel> models;
};

} // namespace

// Kinds of returns by [returns of the pulse][number of the return]. The encoder has the same table.
static constexpr uint8_t RETURN_KIND[8][8] = {
    {15, 14, 13, 12, 11, 10, 9, 8},   //
    {14, 0, 1, 3, 6, 10, 10, 9},      //
    {13, 1, 2, 4, 7, 11, 11, 10},     //
    {12, 3, 4, 5, 8, 12, 12, 11},     //
    {11, 6, 7, 8, 9, 13, 13, 12},     //
    {10, 10, 11, 12, 13, 14, 14, 13}, //
    {9, 10, 11, 12, 13, 14, 15, 14},  //
    {8, 9, 10, 11, 12, 13, 14, 15},   //
};

// A context for numbers of `bits` bits: even numbers up to `most`, and one more for a single return.
static size_t contextOf(uint32_t bits, uint32_t most, bool single) {
    return (bits < most ? bits & ~1U : most) + (single ? 1U : 0U);
}

void Point10V2::decode(ArithmeticDecoder& decoder, std::byte* item) {
    const uint32_t changed = decoder.decodeSymbol(changes);
    if (changed & 32) last.returns = static_cast<uint8_t>(decoder.decodeSymbol(returns[last.returns]));
    const size_t kind = RETURN_KIND[returnCount()][returnNumber()];
    decodeAttributes(decoder, changed, kind);
    decodeCoordinates(decoder, kind);
    storeItem(item, last);
}

void Point10V2::decodeAttributes(ArithmeticDecoder& decoder, uint32_t changed, size_t kind) {
    const auto symbol = [&](SymbolModel& model) { return decoder.decodeSymbol(model); };
    if (changed & 16)
        intensities[kind] =
            static_cast<uint16_t>(intensity.decode(decoder, intensities[kind], std::min<size_t>(kind, 3)));
    last.intensity = intensities[kind];
    if (changed & 8) last.classification = static_cast<uint8_t>(symbol(classification[last.classification]));
    if (changed & 4) last.scanAngle = static_cast<uint8_t>(last.scanAngle + symbol(scanAngle[last.returns >> 6 & 1U]));
    if (changed & 2) last.userData = static_cast<uint8_t>(symbol(userData[last.userData]));
    if (changed & 1) last.source = static_cast<uint16_t>(source.decode(decoder, last.source));
}

void Point10V2::decodeCoordinates(ArithmeticDecoder& decoder, size_t kind) {
    const bool single = returnCount() == 1;
    const int32_t xStep = x.decode(decoder, xSteps[kind].get(), single ? 1 : 0);
    xSteps[kind].add(xStep);
    last.x = wrappingAdd(last.x, xStep);

    const int32_t yStep = y.decode(decoder, ySteps[kind].get(), contextOf(x.lastBits(), 20, single));
    ySteps[kind].add(yStep);
    last.y = wrappingAdd(last.y, yStep);

    const size_t number = returnNumber();
    const size_t level = number < returnCount() ? returnCount() - number : number - returnCount();
    const uint32_t bits = (x.lastBits() + y.lastBits()) / 2;
    last.z = z.decode(decoder, heights[level], contextOf(bits, 18, single));
    heights[level] = last.z;
}

void GpsTimeV2::decode(ArithmeticDecoder& decoder, std::byte* item) {
    // An encoder changes the sequence once at most. Damaged bytes may do so for ever.
    for (int i = 0; i < 4 && !decodeOnce(decoder); ++i) continue;
    storeItem(item, sequences[current].time);
}

// False after a change of the sequence, which a time in that sequence follows.
bool GpsTimeV2::decodeOnce(ArithmeticDecoder& decoder) {
    if (sequences[current].step == 0) {
        const uint32_t start = decoder.decodeSymbol(starts);
        if (start <= START_WHOLE) {
            decodeStart(decoder, start);
            return true;
        }
        current = (current + start - START_WHOLE) % sequences.size();
        return false;
    }
    const uint32_t factor = decoder.decodeSymbol(factors);
    if (factor > WHOLE) {
        current = (current + factor - WHOLE) % sequences.size();
        return false;
    }
    if (factor < UNCHANGED) decodeStep(decoder, factor);
    if (factor == WHOLE) decodeWhole(decoder);
    return true;
}

void GpsTimeV2::decodeStart(ArithmeticDecoder& decoder, uint32_t start) {
    if (start == START_UNCHANGED) return;
    if (start == START_WHOLE) {
        decodeWhole(decoder);
        return;
    }
    Sequence& sequence = sequences[current];
    sequence.step = value.decode(decoder, 0, 0);
    sequence.time = wrappingAdd(sequence.time, int64_t{sequence.step});
    sequence.extremes = 0;
}

void GpsTimeV2::decodeStep(ArithmeticDecoder& decoder, uint32_t factor) {
    Sequence& sequence = sequences[current];
    const auto near = [&](int32_t multiple, size_t context) {
        return value.decode(decoder, wrappingMultiply(multiple, sequence.step), context);
    };
    const auto positive = static_cast<int32_t>(factor);
    constexpr auto LARGEST = static_cast<int32_t>(LARGEST_FACTOR);
    constexpr auto SMALLEST = -static_cast<int32_t>(NEGATIVE_FACTORS);
    const int32_t negative = LARGEST - positive;

    int32_t now = 0;
    bool extreme = false;
    if (factor == 0) {
        now = value.decode(decoder, 0, 7);
        extreme = true;
    } else if (factor == 1) {
        now = near(1, 1);
        sequence.extremes = 0;
    } else if (factor < LARGEST_FACTOR) {
        now = near(positive, factor < 10 ? 2 : 3);
    } else if (factor == LARGEST_FACTOR) {
        now = near(LARGEST, 4);
        extreme = true;
    } else if (negative > SMALLEST) {
        now = near(negative, 5);
    } else {
        now = near(SMALLEST, 6);
        extreme = true;
    }
    sequence.time = wrappingAdd(sequence.time, int64_t{now});
    // The factors have not reached the step for a while, so that it becomes the new unit.
    if (extreme && ++sequence.extremes > 3) {
        sequence.step = now;
        sequence.extremes = 0;
    }
}

// A time too far from the others begins a sequence in place of the oldest one.
void GpsTimeV2::decodeWhole(ArithmeticDecoder& decoder) {
    newest = (newest + 1) % sequences.size();
    const auto upperBefore = static_cast<int32_t>(sequences[current].time >> 32);
    const auto upper = static_cast<uint32_t>(value.decode(decoder, upperBefore, 8));
    const uint64_t time = static_cast<uint64_t>(upper) << 32 | decoder.decodeBits(32);
    sequences[newest] = {static_cast<int64_t>(time), 0, 0};
    current = newest;
}

std::unique_ptr<LazItemDecoder> makeItemDecoderV2(const LazItem& item, const std::byte* first) {
    switch (item.type) {
    case LazItemType::POINT10:
        return std::make_unique<Point10V2>(first);
    case LazItemType::GPSTIME11:
        return std::make_unique<GpsTimeV2>(first);
    case LazItemType::RGB12:
        return std::make_unique<Rgb12V2>(first);
    default:
        return std::make_unique<BytesV2>(first, item.size);
    }
}

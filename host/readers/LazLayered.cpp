#include "readers/IntegerDecoder.h"
#include "readers/LazChunk.h"
#include "readers/LazItemDecoder.h"
#include "readers/LazMedian.h"
#include "readers/LazRgb.h"
#include "readers/PointReader.h"
#include "readers/RecordField.h"

#include <algorithm>
#include <array>
#include <optional>

// Point formats 6 to 10. Each attribute of a chunk is a code of its own, a layer, so that the layers that the engine
// has no use for need not be decoded: only the first layer tells the others what they depend on, the number of the
// return, the scanner channel and whether the GPS time changed. Each scanner channel learns apart from the others.

namespace {

// The attribute layers of a point, in the order of their sizes in the head of a chunk. GPS time is the last.
enum PointLayer : size_t { XY, Z, CLASSIFICATION, FLAGS, INTENSITY, SCAN_ANGLE, USER_DATA, SOURCE, GPS_TIME };
constexpr size_t POINT_LAYERS = GPS_TIME + 1;
constexpr size_t CHANNELS = 4;
constexpr size_t POINT14_SIZE = 30; // the colour follows

// The first 17 bytes of a record of format 6 to 10.
struct ExtendedRecord {
    static constexpr RecordField<std::array<int32_t, 3>> POSITION{0};
    static constexpr RecordField<uint16_t> INTENSITY{POSITION.end()};
    static constexpr RecordField<uint8_t> RETURNS{INTENSITY.end()}; // number, of how many
    static constexpr RecordField<uint8_t> FLAGS{RETURNS.end()};     // classification flags, channel, direction, edge
    static constexpr RecordField<uint8_t> CLASSIFICATION{FLAGS.end()};
};

struct Layer {
    explicit Layer(std::span<const std::byte> contents) : bytes(contents), decoder(bytes) {}
    LazBytes bytes;
    ArithmeticDecoder decoder; // of `bytes`
};

struct Point14 {
    std::array<int32_t, 3> position{};
    uint16_t intensity = 0;
    uint8_t returnNumber = 0; // 0 to 15
    uint8_t returnCount = 0;  // 0 to 15
    uint8_t flags = 0;        // four classification flags, direction, edge
    uint8_t classification = 0;
    bool gpsTimeChanged = false;

    static Point14 parse(const std::byte* record);
    void write(std::byte* record, size_t channel) const;
};

// What one scanner channel has learnt.
struct PointContext {
    explicit PointContext(const Point14& first) : last(first) {
        last.gpsTimeChanged = false;
        heights.fill(first.position[2]);
        intensities.fill(first.intensity);
    }

    Point14 last;
    std::array<LazMedian, 12> xSteps; // by kind of return and whether the GPS time changed
    std::array<LazMedian, 12> ySteps;
    std::array<int32_t, 8> heights{}; // by the number of returns to the last one
    std::array<uint16_t, 8> intensities{};

    std::vector<SymbolModel> changes{8, SymbolModel(128)};
    SymbolModel channelStep{3};
    std::vector<SymbolModel> returnCount{16, SymbolModel(16)};
    std::vector<SymbolModel> returnNumber{16, SymbolModel(16)};
    SymbolModel returnNumberSameTime{13};
    IntegerDecoder x{32, 2};
    IntegerDecoder y{32, 22};
    IntegerDecoder z{32, 20};
    std::vector<SymbolModel> classification{64, SymbolModel(256)};
    std::vector<SymbolModel> flags{64, SymbolModel(64)};
    IntegerDecoder intensity{16, 4};
};

class PointLayers {
public:
    explicit PointLayers(const std::byte* first);

    // A layer that is missing, which means that the attribute never changes, stays null.
    std::array<std::unique_ptr<Layer>, POINT_LAYERS> layers;

    void decode(std::byte* record);
    [[nodiscard]] size_t channel() const { return current; }      // of the last point
    [[nodiscard]] bool channelChanged() const { return changed; } // between the last point and the one before

private:
    void decodeReturns(PointContext& context, uint32_t changes);
    void decodeHorizontal(PointContext& context);
    void decodeAttributes(PointContext& context);
    [[nodiscard]] uint32_t decodeChanges();

    size_t current;
    bool changed = false;
    std::array<std::unique_ptr<PointContext>, CHANNELS> contexts;
};

class ColourLayer {
public:
    ColourLayer(const std::byte* first, size_t channel, uint16_t version);

    std::unique_ptr<Layer> layer; // null: the colour never changes

    void decode(std::byte* item, const PointLayers& point);

private:
    struct Context {
        LazRgb last;
        LazRgbModels models;
    };
    const bool oldContexts; // whether the encoder has the oddities that decode() tells of
    size_t current;
    std::array<std::unique_ptr<Context>, CHANNELS> contexts;
};

class LayeredChunk : public LazChunk {
public:
    LayeredChunk(const LazScheme& scheme, size_t length, std::span<const std::byte> bytes);
    size_t decode(std::span<std::byte> records) override;

private:
    void cutLayers(const LazScheme& scheme, std::span<const std::byte> bytes);
    [[nodiscard]] bool ended() const;

    const size_t recordLength;
    const std::span<const std::byte> first; // record of the first point
    bool started = false;
    PointLayers point;
    std::optional<ColourLayer> colour;
};

} // namespace

// Kinds of returns by [returns of the pulse][number of the return]. The encoder has the same table.
static constexpr uint8_t RETURN_KIND[16][16] = {
    {0, 1, 2, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5}, //
    {1, 0, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, //
    {2, 1, 2, 4, 4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3}, //
    {3, 3, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, //
    {4, 3, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, //
    {5, 3, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, //
    {3, 3, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4}, //
    {4, 3, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4}, //
    {4, 3, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4}, //
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4}, //
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4}, //
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 4, 4, 4}, //
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4, 4}, //
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4}, //
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5}, //
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5}, //
};

Point14 Point14::parse(const std::byte* record) {
    Point14 point;
    point.position = ExtendedRecord::POSITION.read(record);
    point.intensity = ExtendedRecord::INTENSITY.read(record);
    const uint8_t returns = ExtendedRecord::RETURNS.read(record);
    point.returnNumber = returns & 15;
    point.returnCount = returns >> 4;
    const uint8_t flags = ExtendedRecord::FLAGS.read(record);
    point.flags = static_cast<uint8_t>((flags & 15) | flags >> 6 << 4);
    point.classification = ExtendedRecord::CLASSIFICATION.read(record);
    return point;
}

void Point14::write(std::byte* record, size_t channel) const {
    ExtendedRecord::POSITION.write(record, position);
    ExtendedRecord::INTENSITY.write(record, intensity);
    ExtendedRecord::RETURNS.write(record, static_cast<uint8_t>(returnNumber | returnCount << 4));
    ExtendedRecord::FLAGS.write(record, static_cast<uint8_t>((flags & 15U) | channel << 4 | size_t{flags} >> 4 << 6));
    ExtendedRecord::CLASSIFICATION.write(record, classification);
}

PointLayers::PointLayers(const std::byte* first) : current(ExtendedRecord::FLAGS.read(first) >> 4 & 3) {
    contexts[current] = std::make_unique<PointContext>(Point14::parse(first));
}

// Bits of the change symbol, but for the number of the return in the lowest two.
static constexpr uint32_t RETURN_COUNT_CHANGED = 4;
static constexpr uint32_t GPS_TIME_CHANGED = 16;
static constexpr uint32_t CHANNEL_CHANGED = 64;

// What changed since the point before. Goes to the context of the point's channel if that is another one.
uint32_t PointLayers::decodeChanges() {
    ArithmeticDecoder& decoder = layers[XY]->decoder;
    PointContext& before = *contexts[current];
    const bool isFirst = before.last.returnNumber == 1;
    const bool isLast = before.last.returnNumber >= before.last.returnCount;
    const size_t kind = (isFirst ? 1U : 0U) + (isLast ? 2U : 0U) + (before.last.gpsTimeChanged ? 4U : 0U);
    const uint32_t changes = decoder.decodeSymbol(before.changes[kind]);
    changed = (changes & CHANNEL_CHANGED) != 0;
    if (changed) {
        current = (current + decoder.decodeSymbol(before.channelStep) + 1) % CHANNELS;
        // A new channel starts from the last point of the channel before it.
        if (!contexts[current]) contexts[current] = std::make_unique<PointContext>(before.last);
    }
    contexts[current]->last.gpsTimeChanged = (changes & GPS_TIME_CHANGED) != 0;
    return changes;
}

void PointLayers::decodeReturns(PointContext& context, uint32_t changes) {
    ArithmeticDecoder& decoder = layers[XY]->decoder;
    Point14& last = context.last;
    const uint8_t before = last.returnNumber;
    if (changes & RETURN_COUNT_CHANGED)
        last.returnCount = static_cast<uint8_t>(decoder.decodeSymbol(context.returnCount[last.returnCount]));

    uint32_t number = before;
    const uint32_t kind = changes & 3;
    if (kind == 1) number = before + 1U;
    if (kind == 2) number = before + 15U;
    if (kind == 3)
        number = last.gpsTimeChanged ? decoder.decodeSymbol(context.returnNumber[before])
                                     : before + decoder.decodeSymbol(context.returnNumberSameTime) + 2;
    last.returnNumber = number & 15;
}

// A context for numbers of `bits` bits: even numbers up to `most`, and one more for a single return.
static size_t contextOf(uint32_t bits, uint32_t most, bool single) {
    return (bits < most ? bits & ~1U : most) + (single ? 1U : 0U);
}

void PointLayers::decodeHorizontal(PointContext& context) {
    ArithmeticDecoder& decoder = layers[XY]->decoder;
    Point14& last = context.last;
    const bool single = last.returnCount == 1;
    const size_t kind = RETURN_KIND[last.returnCount][last.returnNumber] * 2U + (last.gpsTimeChanged ? 1U : 0U);

    const int32_t xStep = context.x.decode(decoder, context.xSteps[kind].get(), single ? 1 : 0);
    context.xSteps[kind].add(xStep);
    last.position[0] = wrappingAdd(last.position[0], xStep);

    const size_t yContext = contextOf(context.x.lastBits(), 20, single);
    const int32_t yStep = context.y.decode(decoder, context.ySteps[kind].get(), yContext);
    context.ySteps[kind].add(yStep);
    last.position[1] = wrappingAdd(last.position[1], yStep);
}

void PointLayers::decodeAttributes(PointContext& context) {
    Point14& last = context.last;
    const bool isFirst = last.returnNumber == 1;
    const bool isLast = last.returnNumber >= last.returnCount;
    if (layers[Z]) {
        const int toLast = std::abs(last.returnCount - last.returnNumber);
        int32_t& height = context.heights[static_cast<size_t>(std::min(toLast, 7))];
        const uint32_t bits = (context.x.lastBits() + context.y.lastBits()) / 2;
        height = context.z.decode(layers[Z]->decoder, height, contextOf(bits, 18, last.returnCount == 1));
        last.position[2] = height;
    }
    if (layers[CLASSIFICATION]) {
        const size_t model = (last.classification & 31U) * 2 + (isFirst && isLast ? 1 : 0);
        last.classification =
            static_cast<uint8_t>(layers[CLASSIFICATION]->decoder.decodeSymbol(context.classification[model]));
    }
    if (layers[FLAGS])
        last.flags = static_cast<uint8_t>(layers[FLAGS]->decoder.decodeSymbol(context.flags[last.flags]));
    if (layers[INTENSITY]) {
        const size_t kind = (isFirst ? 2U : 0U) + (isLast ? 1U : 0U);
        uint16_t& before = context.intensities[kind * 2 + (last.gpsTimeChanged ? 1 : 0)];
        before = static_cast<uint16_t>(context.intensity.decode(layers[INTENSITY]->decoder, before, kind));
        last.intensity = before;
    }
}

void PointLayers::decode(std::byte* record) {
    const uint32_t changes = decodeChanges();
    PointContext& context = *contexts[current];
    decodeReturns(context, changes);
    decodeHorizontal(context);
    decodeAttributes(context);
    context.last.write(record, current);
}

ColourLayer::ColourLayer(const std::byte* first, size_t channel, uint16_t version)
    : oldContexts(version < 4), current(channel) {
    contexts[current] = std::make_unique<Context>(Context{loadItem<LazRgb>(first), {}});
}

// Up to version 3 the encoder has two oversights, which became part of the format. It names the channel of a point only
// when that changes and lets channel 0 stand for all others, and after a change to a known channel the first colour is
// predicted from, and remembered for, the channel before.
void ColourLayer::decode(std::byte* item, const PointLayers& point) {
    const size_t channel = oldContexts && !point.channelChanged() ? 0 : point.channel();
    Context* from = contexts[current].get();
    if (channel != current) {
        const bool isNew = !contexts[channel];
        if (isNew) contexts[channel] = std::make_unique<Context>(Context{from->last, {}});
        if (isNew || !oldContexts) from = contexts[channel].get();
        current = channel;
    }
    if (layer) from->last = contexts[current]->models.decode(layer->decoder, from->last);
    storeItem(item, from->last);
}

// Number of layers of each item, in the order of their sizes.
static size_t layersOf(const LazItem& item) {
    switch (item.type) {
    case LazItemType::POINT14:
        return POINT_LAYERS;
    case LazItemType::RGBNIR14:
        return 2; // colour, infrared
    case LazItemType::BYTE14:
        return item.size;
    default:
        return 1;
    }
}

size_t LazLayeredSize::headSize(const LazScheme& scheme, size_t recordLength) {
    size_t layers = 0;
    for (const LazItem& item : scheme.items) layers += layersOf(item);
    return recordLength + sizeof(uint32_t) * (1 + layers);
}

LazLayeredSize LazLayeredSize::parse(const LazScheme& scheme, size_t recordLength, std::span<const std::byte> head) {
    LazLayeredSize size;
    const size_t end = headSize(scheme, recordLength);
    size.bytes = end;
    size.points = loadItem<uint32_t>(head.data() + recordLength);
    for (size_t at = recordLength + sizeof(uint32_t); at < end; at += sizeof(uint32_t))
        size.bytes += loadItem<uint32_t>(head.data() + at);
    return size;
}

static std::span<const std::byte> firstRecord(std::span<const std::byte> bytes, size_t recordLength) {
    if (bytes.size() < recordLength) throw FileError("a compressed chunk is shorter than its first point");
    return bytes.first(recordLength);
}

LayeredChunk::LayeredChunk(const LazScheme& scheme, size_t length, std::span<const std::byte> bytes)
    : recordLength(length), first(firstRecord(bytes, length)), point(first.data()) {
    if (scheme.items.size() > 1) {
        const LazItem& item = scheme.items[1];
        if (item.type == LazItemType::RGB14 || item.type == LazItemType::RGBNIR14)
            colour.emplace(first.data() + scheme.items[0].size, point.channel(), item.version);
    }
    cutLayers(scheme, bytes);
}

void LayeredChunk::cutLayers(const LazScheme& scheme, std::span<const std::byte> bytes) {
    const size_t headSize = LazLayeredSize::headSize(scheme, recordLength);
    if (bytes.size() < headSize || LazLayeredSize::parse(scheme, recordLength, bytes).bytes > bytes.size())
        throw FileError("the layers of a compressed chunk do not fit into it");

    const std::byte* sizes = bytes.data() + recordLength + sizeof(uint32_t);
    size_t position = headSize;
    const auto cut = [&](size_t number) {
        const size_t size = loadItem<uint32_t>(sizes + number * sizeof(uint32_t));
        position += size;
        return bytes.subspan(position - size, size);
    };
    for (size_t i = 0; i < POINT_LAYERS; ++i) {
        const std::span<const std::byte> contents = cut(i);
        if (i <= INTENSITY && !contents.empty()) point.layers[i] = std::make_unique<Layer>(contents);
    }
    // The number of a return and the horizontal coordinates are in every point.
    if (!point.layers[XY]) point.layers[XY] = std::make_unique<Layer>(bytes.first(0));
    if (!colour) return;
    const std::span<const std::byte> contents = cut(POINT_LAYERS);
    if (!contents.empty()) colour->layer = std::make_unique<Layer>(contents);
}

bool LayeredChunk::ended() const {
    const auto isOver = [](const std::unique_ptr<Layer>& layer) { return layer && layer->bytes.ended(); };
    return std::any_of(point.layers.begin(), point.layers.end(), isOver) || (colour && isOver(colour->layer));
}

size_t LayeredChunk::decode(std::span<std::byte> records) {
    size_t whole = 0;
    for (; records.size() >= recordLength; records = records.subspan(recordLength)) {
        if (started) {
            point.decode(records.data());
            if (colour) colour->decode(records.data() + POINT14_SIZE, point);
            if (ended()) break;
        } else {
            std::copy(first.begin(), first.end(), records.begin());
            started = true;
        }
        ++whole;
    }
    return whole;
}

std::unique_ptr<LazChunk> openLayeredChunk(const LazScheme& scheme, size_t recordLength,
                                           std::span<const std::byte> bytes) {
    return std::make_unique<LayeredChunk>(scheme, recordLength, bytes);
}

#include "readers/ArithmeticDecoder.h"

#include <algorithm>

// Both models count what they see and derive the probabilities from the counts every so often: soon at first and more
// rarely the longer the model has been learning. When the counts no longer fit their scale they are halved, which
// forgets old symbols. Every number here is part of the format, since the encoder goes through the same steps.

static constexpr uint32_t FRACTION_ONE = 1U << 31; // dividends of the scale, 31 bits of fraction
static constexpr unsigned FRACTION_BITS = 31;

static uint32_t nextCycle(uint32_t cycle, uint32_t longest) {
    return std::min(5 * cycle / 4, longest);
}

void BitModel::update() {
    bitCount += cycle;
    if (bitCount > 1U << SHIFT) {
        bitCount = (bitCount + 1) / 2;
        zeroCount = (zeroCount + 1) / 2;
        if (zeroCount == bitCount) ++bitCount;
    }
    const uint32_t scale = FRACTION_ONE / bitCount;
    zeroProbability = (zeroCount * scale) >> (FRACTION_BITS - SHIFT);
    cycle = nextCycle(cycle, 64);
    untilUpdate = cycle;
}

void SymbolModel::start() {
    counts.assign(symbolCount, 1);
    distribution.resize(symbolCount);
    if (symbolCount > SEARCHED_DIRECTLY) {
        unsigned tableBits = 3;
        while (symbolCount > 1U << (tableBits + 2)) ++tableBits;
        tableShift = SHIFT - tableBits;
        table.resize((size_t{1} << tableBits) + 2);
    }
    cycle = symbolCount;
    update();
    cycle = (symbolCount + 6) / 2;
    untilUpdate = cycle;
}

void SymbolModel::update() {
    total += cycle;
    if (total > 1U << SHIFT) {
        total = 0;
        for (uint16_t& count : counts) {
            count = static_cast<uint16_t>((count + 1) / 2);
            total += count;
        }
    }
    const uint32_t scale = FRACTION_ONE / total;
    uint32_t before = 0;
    for (uint32_t symbol = 0; symbol < symbolCount; ++symbol) {
        distribution[symbol] = static_cast<uint16_t>((scale * before) >> (FRACTION_BITS - SHIFT));
        before += counts[symbol];
    }
    fillTable();
    cycle = nextCycle(cycle, (symbolCount + 6) * 8);
    untilUpdate = cycle;
}

// A place of the table covers a stretch of the scale. The symbol of a value in it lies between the entry of the place
// and the next entry, so that the search has few symbols left.
void SymbolModel::fillTable() {
    if (table.empty()) return;
    size_t place = 0;
    table[0] = 0;
    for (uint32_t symbol = 1; symbol < symbolCount; ++symbol) {
        const size_t begin = static_cast<size_t>(distribution[symbol] >> tableShift);
        while (place < begin) table[++place] = static_cast<uint16_t>(symbol - 1);
    }
    while (place + 1 < table.size()) table[++place] = static_cast<uint16_t>(symbolCount - 1);
}

ArithmeticDecoder::ArithmeticDecoder(LazBytes& input) : bytes(input) {
    for (int i = 0; i < 4; ++i) value = (value << 8) | bytes.next();
    // No encoder writes this. Lowering it keeps value < length true from the start.
    value = std::min(value, length - 1);
}

uint32_t ArithmeticDecoder::decodeBits(unsigned bits) {
    uint32_t low = 0;
    unsigned lowBits = 0;
    // The length has 24 bits to give for certain, so that a long field comes in two parts.
    if (bits > 19) {
        lowBits = 16;
        low = decodeBits(lowBits);
        bits -= lowBits;
    }
    length >>= bits;
    const uint32_t high = value / length;
    value -= length * high;
    renormalise();
    // Of damaged bytes the quotient may have one bit more than asked for.
    return low | (high & ((1U << bits) - 1)) << lowBits;
}

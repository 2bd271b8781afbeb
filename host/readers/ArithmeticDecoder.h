#pragma once

#include "readers/LazBytes.h"

#include <cstdint>
#include <vector>

// The probability of a zero bit, learnt from the bits seen so far.
class BitModel {
private:
    friend class ArithmeticDecoder;
    static constexpr unsigned SHIFT = 13; // of the scale of zeroProbability
    void update();

    uint32_t zeroProbability = 1U << (SHIFT - 1);
    uint32_t zeroCount = 1;
    uint32_t bitCount = 2;
    uint32_t cycle = 4; // bits between two updates of the probability
    uint32_t untilUpdate = 4;
};

// The probabilities of `symbols` symbols, learnt from the symbols seen so far.
//
// Takes its memory when it is first used: a stream has hundreds of models and uses few of them.
class SymbolModel {
public:
    // 2 to 2048 symbols.
    explicit SymbolModel(uint32_t symbols) : symbolCount(symbols) {}

private:
    friend class ArithmeticDecoder;
    static constexpr unsigned SHIFT = 15;             // of the scale of the distribution
    static constexpr uint32_t SEARCHED_DIRECTLY = 16; // symbols up to which a table costs more than it saves

    void start();
    void update();
    void fillTable();

    uint32_t symbolCount;
    uint32_t total = 0; // sum of counts
    uint32_t cycle = 0; // symbols between two updates of the distribution
    uint32_t untilUpdate = 0;
    unsigned tableShift = 0; // from a scaled value to its place in the table
    std::vector<uint16_t> counts;
    std::vector<uint16_t> distribution; // per symbol: probability of all symbols before it
    std::vector<uint16_t> table;        // per stretch of the scale: last symbol that begins before it; empty: searched
};

// Decodes symbols from an arithmetic code as the LASzip format uses it: range coding after A. Said, "Introduction to
// Arithmetic Coding - Theory and Practice", 2004, with 32 bits and a byte at a time.
//
// Accepts any bytes: each symbol it returns is one of the model's, and bytes past the end are zeros, which
// LazBytes::ended() tells. Between two calls value < length and length >= MINIMUM_LENGTH; all ranges follow from that.
class ArithmeticDecoder {
public:
    // Takes the first bytes of a code from `input`, which it borrows.
    explicit ArithmeticDecoder(LazBytes& input);

    uint32_t decodeBit(BitModel& model) {
        const uint32_t border = model.zeroProbability * (length >> BitModel::SHIFT);
        const bool one = value >= border;
        if (one) {
            value -= border;
            length -= border;
        } else {
            length = border;
            ++model.zeroCount;
        }
        renormalise();
        if (--model.untilUpdate == 0) model.update();
        return one ? 1 : 0;
    }

    uint32_t decodeSymbol(SymbolModel& model) {
        if (model.untilUpdate == 0) model.start();
        const uint16_t* distribution = model.distribution.data();
        const uint32_t whole = length;
        length >>= SymbolModel::SHIFT;

        const uint32_t scaled = value / length; // at most 1 << SHIFT, for which the table has an entry
        uint32_t symbol = 0;
        uint32_t beyond = model.symbolCount;
        if (!model.table.empty()) {
            const uint32_t place = scaled >> model.tableShift;
            symbol = model.table[place];
            beyond = model.table[place + 1] + 1U;
        }
        while (beyond > symbol + 1) {
            const uint32_t middle = (symbol + beyond) / 2;
            if (distribution[middle] > scaled) {
                beyond = middle;
            } else {
                symbol = middle;
            }
        }

        // The last symbol also takes what the scaling rounds away.
        const uint32_t low = distribution[symbol] * length;
        const bool last = symbol + 1 == model.symbolCount;
        const uint32_t high = last ? whole : distribution[symbol + 1] * length;
        value -= low;
        length = high - low;
        renormalise();
        ++model.counts[symbol];
        if (--model.untilUpdate == 0) model.update();
        return symbol;
    }

    // Bits that carry no model; up to 32 of them.
    uint32_t decodeBits(unsigned bits);

    // Lower half first.
    uint64_t decodeWord64() {
        const uint64_t low = decodeBits(32);
        return low | static_cast<uint64_t>(decodeBits(32)) << 32;
    }

private:
    static constexpr uint32_t MINIMUM_LENGTH = 1U << 24;

    void renormalise() {
        while (length < MINIMUM_LENGTH) {
            value = (value << 8) | bytes.next();
            length <<= 8;
        }
    }

    LazBytes& bytes;
    uint32_t value = 0;
    uint32_t length = UINT32_MAX;
};

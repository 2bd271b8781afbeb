#pragma once

#include "readers/ArithmeticDecoder.h"

#include <vector>

// Decodes integers of `bits` bits as corrections of a prediction, in several contexts that learn apart.
//
// A correction is coded as the number k of its bits, which depends on the context, and then as a number of k bits. How
// large k was is itself a good context for what comes next: lastBits() tells.
class IntegerDecoder {
public:
    // 8, 16 or 32 bits.
    explicit IntegerDecoder(unsigned bits, size_t contexts = 1);

    // The integer itself: 0 to 2^bits - 1, or any int32_t for 32 bits. A prediction lies in the same range.
    int32_t decode(ArithmeticDecoder& decoder, int32_t prediction, size_t context = 0);

    // k of the number decoded last.
    [[nodiscard]] uint32_t lastBits() const { return k; }

private:
    static constexpr unsigned MODELLED_BITS = 8; // of a correction; the bits below are taken as they are

    uint32_t decodeCorrection(ArithmeticDecoder& decoder);

    const unsigned bitCount;
    uint32_t k = 0;
    std::vector<SymbolModel> bitCounts; // per context, of k
    BitModel single;                    // of the corrections 0 and 1
    std::vector<SymbolModel> leading;   // per k from 1 on, of the leading bits of the correction
};

#include "readers/IntegerDecoder.h"

#include <algorithm>

IntegerDecoder::IntegerDecoder(unsigned bits, size_t contexts)
    : bitCount(bits), bitCounts(contexts, SymbolModel(bits + 1)) {
    leading.reserve(bits);
    for (unsigned i = 1; i <= bits; ++i) leading.emplace_back(1U << std::min(i, MODELLED_BITS));
}

int32_t IntegerDecoder::decode(ArithmeticDecoder& decoder, int32_t prediction, size_t context) {
    k = decoder.decodeSymbol(bitCounts[context]);
    // Unsigned: a sum of 32 bits is meant to wrap around.
    const uint32_t sum = static_cast<uint32_t>(prediction) + decodeCorrection(decoder);
    const uint32_t mask = bitCount < 32 ? (1U << bitCount) - 1 : UINT32_MAX;
    return static_cast<int32_t>(sum & mask);
}

// The corrections of k bits are -(2^k - 1) to -2^(k-1) and 2^(k-1) + 1 to 2^k; zero and one belong to k = 0.
uint32_t IntegerDecoder::decodeCorrection(ArithmeticDecoder& decoder) {
    if (k == 0) return decoder.decodeBit(single);
    if (k == 32) return 1U << 31;
    const unsigned plainBits = k > MODELLED_BITS ? k - MODELLED_BITS : 0;
    uint32_t number = decoder.decodeSymbol(leading[k - 1]);
    if (plainBits > 0) number = number << plainBits | decoder.decodeBits(plainBits);
    return number >= 1U << (k - 1) ? number + 1 : number - ((1U << k) - 1);
}

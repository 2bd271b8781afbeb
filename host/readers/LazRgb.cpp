#include "readers/LazRgb.h"

#include <algorithm>

// Bits of the change symbol: two a channel for the low and the high byte, and this one.
static constexpr uint32_t IS_COLOURED = 64; // without it green and blue are copies of red

static int byteOf(uint16_t value, unsigned shift) {
    return value >> shift & 0xFF;
}

LazRgb LazRgbModels::decode(ArithmeticDecoder& decoder, const LazRgb& last) {
    const uint32_t changed = decoder.decodeSymbol(changes);
    LazRgb now{};
    const auto decodeByte = [&](size_t channel, unsigned shift, int expectedStep) {
        const size_t number = channel * 2 + (shift != 0 ? 1 : 0);
        int value = byteOf(last[channel], shift);
        if (changed >> number & 1) {
            const int correction = static_cast<int>(decoder.decodeSymbol(corrections[number]));
            value = (std::clamp(value + expectedStep, 0, 255) + correction) & 0xFF;
        }
        now[channel] = static_cast<uint16_t>(now[channel] | value << shift);
        return value - byteOf(last[channel], shift);
    };

    const int redLow = decodeByte(0, 0, 0);
    const int redHigh = decodeByte(0, 8, 0);
    if ((changed & IS_COLOURED) == 0) return {now[0], now[0], now[0]};
    const int greenLow = decodeByte(1, 0, redLow);
    decodeByte(2, 0, (redLow + greenLow) / 2);
    const int greenHigh = decodeByte(1, 8, redHigh);
    decodeByte(2, 8, (redHigh + greenHigh) / 2);
    return now;
}

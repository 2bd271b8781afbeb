#pragma once

#include "readers/ArithmeticDecoder.h"

#include <array>
#include <cstdint>
#include <vector>

// Red, green and blue, 16 bits each.
using LazRgb = std::array<uint16_t, 3>;

// Decodes colours byte by byte: red from the colour before, green from how red changed, and blue from both. Shared by
// the second version of the colour item and by the layered ones.
class LazRgbModels {
public:
    LazRgb decode(ArithmeticDecoder& decoder, const LazRgb& last);

private:
    SymbolModel changes{128};
    std::vector<SymbolModel> corrections{6, SymbolModel(256)}; // low and high byte of red, green, blue
};

#include "edit/PointEditor.h"

#include <algorithm>
#include <cstddef>

// The arithmetic is in 32-bit float and truncates where it does on purpose: painting a stored file gives the same bytes
// on every machine, drifts included (mixing in nothing still lowers some channels by 1).
//
// A point's turn is the value of the counter at that point. It counts up, and starts again behind the hundredth point
// or behind the first painted one, whichever comes later; the painted ones are those at its end.

namespace {

constexpr int64_t HUNDRED = 100;

// The lowest byte of the integer part, whatever the number.
unsigned char toByte(float value) {
    constexpr float LIMIT = 1e18F;
    return static_cast<unsigned char>(static_cast<int64_t>(std::clamp(value, -LIMIT, LIMIT)));
}

} // namespace

void PointEditor::setColour(const unsigned char* rgb, int coverageIn, int strengthIn) {
    mode = BLEND;
    std::copy_n(rgb, target.size(), target.begin());
    coverage = coverageIn;
    strength = strengthIn;
}

void PointEditor::setLuminance(int levelIn, bool brightness) {
    mode = brightness ? BRIGHTNESS : CONTRAST;
    level = levelIn;
}

void PointEditor::process(unsigned char* colour) const {
    int32_t turn = takeTurns(1);
    process(colour, turn);
}

int32_t PointEditor::takeTurns(int count) const {
    int32_t first = counter.load(std::memory_order_relaxed);
    if (mode != BLEND || coverage == HUNDRED) return first;
    while (!counter.compare_exchange_weak(first, turnAfter(first, count), std::memory_order_relaxed)) {
    }
    return first;
}

// A turn that an earlier, sparser stroke left beyond the period counts as the last of it.
int32_t PointEditor::turnAfter(int32_t turn, int count) const {
    const int64_t period = std::max(HUNDRED, HUNDRED - coverage);
    return static_cast<int32_t>((std::min<int64_t>(turn, period - 1) + count) % period);
}

void PointEditor::process(unsigned char* colour, int32_t& turn) const {
    if (mode == BRIGHTNESS) return brighten(colour);
    if (mode == CONTRAST) return changeContrast(colour);
    if (coverage != HUNDRED) {
        const int64_t next = int64_t{turn} + 1;
        turn = turnAfter(turn, 1);
        if (next < HUNDRED - coverage) return;
    }
    blend(colour);
}

void PointEditor::blend(unsigned char* colour) const {
    const auto mixedIn = static_cast<float>(strength);
    const auto kept = static_cast<float>(HUNDRED - strength);
    for (size_t channel = 0; channel < target.size(); ++channel) {
        const unsigned char rest = toByte(static_cast<float>(colour[channel]) / 100.0F * kept);
        colour[channel] =
            static_cast<unsigned char>(toByte(static_cast<float>(target[channel]) / 100.0F * mixedIn) + rest);
    }
}

void PointEditor::brighten(unsigned char* colour) const {
    for (int channel = 0; channel < 3; ++channel) {
        colour[channel] = static_cast<unsigned char>(std::clamp<int64_t>(int64_t{colour[channel]} + level, 0, 255));
    }
}

void PointEditor::changeContrast(unsigned char* colour) const {
    const float factor = (static_cast<float>(level) / 10.0F + 10.0F) / 10.0F;
    for (int channel = 0; channel < 3; ++channel) {
        const float value = ((static_cast<float>(colour[channel]) / 255.0F - 0.5F) * factor + 0.5F) * 255.0F;
        colour[channel] = toByte(std::clamp(value, 0.0F, 255.0F));
    }
}

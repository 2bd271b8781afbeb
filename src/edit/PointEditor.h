#pragma once

#include <array>
#include <atomic>
#include <cstdint>

// Turns a selection into a stroke of paint: while it is active, points that pass are recoloured and not selected.
//
// Not locked; written between operations, and read by many threads during one. What it was set to stays until it is set
// again, whether active or not.
class PointEditor {
public:
    // Paints towards a colour.
    //
    // rgb       3 bytes
    // coverage  per cent of the points that are painted: of each hundred in a row the last ones
    // strength  per cent of the colour that is mixed in
    void setColour(const unsigned char* rgb, int coverageIn, int strengthIn);

    // Changes the brightness by `levelIn` steps, or else the contrast: -100 makes all grey, 100 doubles it.
    void setLuminance(int levelIn, bool brightness);

    void setActive(bool value) { active = value; }
    [[nodiscard]] bool isActive() const { return active; }

    // Paints one point: changes red, green and blue at `colour`.
    void process(unsigned char* colour) const;

    // For a caller who paints many: the turns of `count` points that follow each other, taken at once, and the
    // painting of the next of them. Threads that paint side by side each get turns of their own.
    [[nodiscard]] int32_t takeTurns(int count) const;
    void process(unsigned char* colour, int32_t& turn) const;

    // The point counter of the whole engine. Arming does not reset it: it runs on from its last value.
    static inline std::atomic<int32_t> counter{0};

private:
    enum Mode { BLEND = 0, BRIGHTNESS = 1, CONTRAST = 2 };

    [[nodiscard]] int32_t turnAfter(int32_t turn, int count) const;
    void blend(unsigned char* colour) const;
    void brighten(unsigned char* colour) const;
    void changeContrast(unsigned char* colour) const;

    int32_t mode = BLEND;
    std::array<unsigned char, 3> target{};
    int32_t coverage = 0; // per cent
    int32_t strength = 0; // per cent
    int32_t level = 0;
    bool active = false;
};

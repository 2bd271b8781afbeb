#pragma once

#include <cstdint>

// Random numbers that depend on what they are for and not on how many were drawn before: any point of the scene can be
// made without making those in front of it. Only whole-number arithmetic and correctly rounded operations, so that
// every machine gets the same scene.

// The finaliser of SplitMix64 (Steele, Lea and Flood 2014).
inline uint64_t mixBits(uint64_t bits) {
    bits += 0x9e3779b97f4a7c15;
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111eb;
    return bits ^ (bits >> 31);
}

class SampleRandom {
public:
    SampleRandom(uint64_t seed, uint64_t item) : state(mixBits(seed ^ mixBits(item))) {}

    // From 0 up to but not including 1.
    double next() {
        state = mixBits(state);
        return static_cast<double>(state >> 11) * 0x1p-53;
    }
    double between(double low, double high) { return low + (high - low) * next(); }
    bool chance(double probability) { return next() < probability; }

private:
    uint64_t state;
};

// Smooth noise of 0..1 over the plane, with features about one unit wide; for coordinates of up to a million.
inline double smoothNoise(uint64_t seed, double x, double y) {
    constexpr int64_t SHIFT = 1 << 20; // keeps the truncation below on the positive side
    const auto column = static_cast<int64_t>(x + SHIFT);
    const auto row = static_cast<int64_t>(y + SHIFT);
    const auto corner = [&](int64_t dx, int64_t dy) {
        const auto key = static_cast<uint64_t>(column + dx) << 32 | static_cast<uint64_t>(row + dy);
        return static_cast<double>(mixBits(seed ^ key) >> 11) * 0x1p-53;
    };
    const double u = x + SHIFT - static_cast<double>(column);
    const double v = y + SHIFT - static_cast<double>(row);
    const double a = u * u * (3 - 2 * u);
    const double b = v * v * (3 - 2 * v);
    const double low = corner(0, 0) + a * (corner(1, 0) - corner(0, 0));
    const double high = corner(0, 1) + a * (corner(1, 1) - corner(0, 1));
    return low + b * (high - low);
}

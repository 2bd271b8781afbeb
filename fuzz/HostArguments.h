#pragma once

#include "nimbrel/NimbrelEngine.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

// Bytes turned into arguments of exports: mostly plausible ones, for the small box of the seed clouds, and now and then
// what no host should pass. Buffers have exactly the size asked for, so that AddressSanitizer sees a byte beyond them.
class HostArguments {
public:
    explicit HostArguments(std::span<const uint8_t> bytesIn) : bytes(bytesIn) {}

    [[nodiscard]] bool isEmpty() const { return bytes.empty(); }

    // 0 when there are no more.
    uint8_t byte() {
        if (bytes.empty()) return 0;
        const uint8_t next = bytes.front();
        bytes = bytes.subspan(1);
        return next;
    }
    bool flag() { return (byte() & 1) != 0; }
    bool isRare() { return byte() % 16 == 15; }
    template <typename T, size_t N>
    const T& oneOf(const T (&choices)[N]) {
        return choices[byte() % N];
    }

    // For ids, nodes, windows, modes and sizes alike.
    int integer() {
        constexpr int ODD[] = {-1, INT_MIN, INT_MAX, INT_MAX - 1, -2, 255, 256, 32767, 65536};
        return isRare() ? oneOf(ODD) : byte() % 8;
    }
    int64_t longInteger() {
        constexpr int64_t ODD[] = {-1, INT64_MIN, INT64_MAX, INT64_MAX / 3, 1000000, int64_t{1} << 40};
        return isRare() ? oneOf(ODD) : byte() * int64_t{8};
    }
    // 0 to 8 in steps of 1/32, the size of the box.
    double real() {
        constexpr double ODD[] = {std::numeric_limits<double>::quiet_NaN(),
                                  HUGE_VAL,
                                  -HUGE_VAL,
                                  DBL_MAX,
                                  -DBL_MAX,
                                  DBL_MIN,
                                  std::numeric_limits<double>::denorm_min(),
                                  -0.0,
                                  -1.0,
                                  1e-9,
                                  1e9,
                                  1e19,
                                  100.0};
        return isRare() ? oneOf(ODD) : byte() / 32.0;
    }
    // Buffers live until the next call of forgetBuffers.
    template <typename T>
    T* buffer(size_t count) {
        const std::shared_ptr<T[]> made = std::make_unique<T[]>(count);
        buffers.push_back(made);
        return made.get();
    }
    // Filled; null now and then.
    template <typename T>
    T* numbers(size_t count) {
        T* made = buffer<T>(count);
        for (size_t i = 0; i < count; ++i) {
            if constexpr (std::is_floating_point_v<T>) {
                made[i] = static_cast<T>(real());
            } else {
                made[i] = static_cast<T>(isRare() ? integer() : byte());
            }
        }
        return orNull(made);
    }
    template <typename T>
    T* orNull(T* pointer) {
        return isRare() ? nullptr : pointer;
    }
    void forgetBuffers() { buffers.clear(); }

    // Views from above the box, projections onto it, placements, and what is none of these.
    NimbrelMatrix matrix() {
        constexpr NimbrelMatrix PLAUSIBLE[] = {
            {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}},            // identity
            {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -4, -2, -12, 1}},        // from above
            {{0.25, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, -0.1, 0, 0, 0, -1.1, 1}}, // orthographic
            {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.02, -1, 0, 0, -2.02, 0}},   // perspective
            {{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 4, -4, 0, 1}},          // turned
            {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},            // flat
            {{1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1}},            // degenerate
        };
        NimbrelMatrix made = oneOf(PLAUSIBLE);
        while (isRare()) made.m[byte() % 16] = real();
        return made;
    }
    const double* matrixOrNull() {
        auto* made = buffer<NimbrelMatrix>(1);
        *made = matrix();
        return orNull(made->m);
    }

private:
    std::span<const uint8_t> bytes;
    std::vector<std::shared_ptr<void>> buffers;
};

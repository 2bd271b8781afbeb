#pragma once

#include "readers/InputFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

// The bytes of a compressed stream, one after another: a block in memory, or a stretch of a file read as it goes.
//
// There is always a next byte. Past the end it is a zero, and ended() tells that one was handed out, so that a decoder
// can finish what it is at and nobody has to look before each byte. Belongs to one thread.
class LazBytes {
public:
    // Borrows `bytes`.
    explicit LazBytes(std::span<const std::byte> bytes) : at(bytes.data()), end(bytes.data() + bytes.size()) {}

    // From `offset` to the end of `file`, which it borrows.
    LazBytes(const InputFile& file, uint64_t offset) : behind(&file), position(offset) {}

    LazBytes(const LazBytes&) = delete;
    LazBytes& operator=(const LazBytes&) = delete;

    uint8_t next() {
        if (at == end && !refill()) {
            past = true;
            return 0;
        }
        return static_cast<uint8_t>(*at++);
    }

    void copyTo(std::span<std::byte> target) {
        for (std::byte& byte : target) byte = static_cast<std::byte>(next());
    }

    // Whether a byte past the end was asked for.
    [[nodiscard]] bool ended() const { return past; }

private:
    bool refill();

    const std::byte* at = nullptr; // of the next byte, in the memory given or in `block`
    const std::byte* end = nullptr;
    const InputFile* behind = nullptr; // null: there is only the memory given
    uint64_t position = 0;             // in the file, of what follows `end`
    std::vector<std::byte> block;
    bool past = false;
};

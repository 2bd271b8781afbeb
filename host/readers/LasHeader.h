#pragma once

#include "readers/InputFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Where the fields that the engine takes stand in a record of one point format.
struct LasPointFormat {
    // Formats from 6 on keep the class in a byte of its own and the flags in another.
    static constexpr uint8_t FIRST_EXTENDED = 6;
    static constexpr uint8_t LAST = 10;

    uint8_t number = 0;
    size_t length = 0;       // of a record without extra bytes
    size_t colourOffset = 0; // of red, green and blue, 16 bits each; 0 for a format without colour

    [[nodiscard]] bool extended() const { return number >= FIRST_EXTENDED; }
    [[nodiscard]] bool hasColour() const { return colourOffset != 0; }

    // Throws FileError for a number beyond LAST.
    static LasPointFormat of(uint8_t number);
};

// What a LAS or LAZ file says about its points.
//
// Only what reading needs is believed, and that after a check; bounds and counts by return are not even read.
struct LasHeader {
    uint8_t versionMinor = 0; // of version 1
    bool compressed = false;
    LasPointFormat format;
    uint16_t recordLength = 0;   // with extra bytes, at least format.length
    uint64_t announcedCount = 0; // as the file says; not backed by its size
    uint64_t dataOffset = 0;     // of the first record; may lie beyond the end of the file
    std::array<double, 3> scale{};
    std::array<double, 3> offset{};

    std::vector<std::byte> compression; // the record that describes the compression; empty where there is none
    std::vector<std::string> warnings;  // what is wrong but does not keep the points from being read

    // Throws FileError.
    static LasHeader read(const InputFile& file);
};

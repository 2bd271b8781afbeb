#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// A part of a record that the LASzip format compresses on its own. The values are those in the files.
enum class LazItemType : uint16_t {
    BYTE = 0,
    POINT10 = 6,
    GPSTIME11 = 7,
    RGB12 = 8,
    WAVEPACKET13 = 9,
    POINT14 = 10,
    RGB14 = 11,
    RGBNIR14 = 12,
    WAVEPACKET14 = 13,
    BYTE14 = 14,
};

struct LazItem {
    LazItemType type;
    uint16_t size; // in bytes of the record
    uint16_t version;
};

// How the points of a LAZ file are compressed: the contents of the variable length record that says so.
struct LazScheme {
    enum Compressor : uint16_t {
        POINTWISE = 1,         // all points in one code
        POINTWISE_CHUNKED = 2, // chunks of points, each a code of its own
        LAYERED_CHUNKED = 3,   // chunks in which each attribute is a code of its own
    };
    static constexpr uint32_t VARIABLE_CHUNKS = UINT32_MAX;

    Compressor compressor = POINTWISE;
    uint32_t chunkSize = 0; // points a chunk, or VARIABLE_CHUNKS
    std::vector<LazItem> items;

    // Throws FileError for anything that this reader does not decode, and when the items do not make up records of
    // `recordLength` bytes of point format `format`.
    static LazScheme parse(std::span<const std::byte> contents, uint8_t format, size_t recordLength);
};

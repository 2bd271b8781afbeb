#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// A LAS file put together field by field. Every offset here is written out from the LAS documents and not taken from
// the reader, so that an error there cannot hide.
class LasFile {
public:
    LasFile(unsigned minorVersion, unsigned format, unsigned recordLength)
        : bytes(minorVersion == 4   ? 375
                : minorVersion == 3 ? 235
                                    : 227,
                '\0'),
          length(recordLength) {
        bytes.replace(0, 4, "LASF");
        put<uint8_t>(24, 1);
        put(25, static_cast<uint8_t>(minorVersion));
        put(94, static_cast<uint16_t>(bytes.size()));
        put(96, static_cast<uint32_t>(bytes.size()));
        put(104, static_cast<uint8_t>(format));
        put(105, static_cast<uint16_t>(recordLength));
        for (const size_t offset : {131U, 139U, 147U}) put(offset, 0.5); // scale
        put(155, 100.0);                                                 // offset of x
        for (size_t i = 179; i < 227; i += 8) put(i, 1e300);             // bounds that nobody should believe
    }

    // Writes a value at an offset from the start of the file.
    template <typename T>
    LasFile& put(size_t offset, T value) {
        std::memcpy(bytes.data() + offset, &value, sizeof(T));
        return *this;
    }

    // Adds a variable length record and counts it.
    LasFile& addRecord(std::string_view user, uint16_t number, std::string_view contents) {
        std::string head(54, '\0');
        head.replace(2, user.size(), user);
        std::memcpy(&head[18], &number, 2);
        const auto size = static_cast<uint16_t>(contents.size());
        std::memcpy(&head[20], &size, 2);
        bytes.append(head).append(contents);
        put(96, static_cast<uint32_t>(bytes.size()));
        return put(100, ++records);
    }

    // Adds an empty point, without counting it. Its fields are then set by putInPoint().
    LasFile& addPoint() {
        pointStart = bytes.size();
        bytes.append(length, '\0');
        return *this;
    }
    template <typename T>
    LasFile& putInPoint(size_t offset, T value) {
        return put(pointStart + offset, value);
    }
    LasFile& addPointAt(int32_t x, int32_t y, int32_t z) {
        return addPoint().putInPoint(0, x).putInPoint(4, y).putInPoint(8, z);
    }

    // Number of points in the header.
    LasFile& count(uint32_t points) { return put(107, points); }

    std::string bytes;

private:
    size_t length;
    size_t pointStart = 0;
    uint32_t records = 0;
};

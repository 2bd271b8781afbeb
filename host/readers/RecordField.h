#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "the records of the field are little-endian");

// A field of a packed little-endian record: where it begins, and a copy of its value out of or into a record. The
// caller has checked that the record reaches to end().
template <typename T>
struct RecordField {
    size_t offset;

    [[nodiscard]] constexpr size_t end() const { return offset + sizeof(T); }

    [[nodiscard]] T read(const std::byte* record) const {
        T value;
        std::memcpy(&value, record + offset, sizeof(T));
        return value;
    }

    void write(std::byte* record, T value) const { std::memcpy(record + offset, &value, sizeof(T)); }
};

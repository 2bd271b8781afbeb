#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

static_assert(std::endian::native == std::endian::little, "records are copied in the machine's byte order");

// One little-endian field of a record: where it stands, and how it is copied out of and into the record's bytes. The
// caller guarantees that the span holds the record.
template <typename T>
class RecordField {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    constexpr explicit RecordField(size_t offsetIn) : offset(offsetIn) {}

    // Where the next field begins.
    [[nodiscard]] constexpr size_t end() const { return offset + sizeof(T); }

    [[nodiscard]] T get(std::span<const unsigned char> record) const {
        T value;
        std::memcpy(&value, record.data() + offset, sizeof(T));
        return value;
    }
    void put(std::span<unsigned char> record, T value) const { std::memcpy(record.data() + offset, &value, sizeof(T)); }

    size_t offset;
};

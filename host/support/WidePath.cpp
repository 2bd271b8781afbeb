#include "support/WidePath.h"
#include "support/Failure.h"

#include <cstdint>

// Decoded here rather than by mbstowcs, which depends on the locale: a host that runs in the C locale must open the
// same files.

// The bytes that follow the first one of a sequence; -1 for a byte that begins none.
static int countFollowers(unsigned char first) {
    if (first < 0x80) return 0;
    if (first >= 0xC2 && first < 0xE0) return 1;
    if (first >= 0xE0 && first < 0xF0) return 2;
    return first >= 0xF0 && first < 0xF5 ? 3 : -1;
}

std::optional<std::wstring> decodeUtf8(std::string_view bytes) {
    static constexpr uint32_t SMALLEST[] = {0, 0x80, 0x800, 0x10000}; // by number of followers; below is overlong
    std::wstring text;
    for (size_t i = 0; i < bytes.size();) {
        const auto first = static_cast<unsigned char>(bytes[i++]);
        const int followers = countFollowers(first);
        if (followers < 0 || bytes.size() - i < static_cast<size_t>(followers)) return std::nullopt;
        uint32_t code = followers == 0 ? first : first & (0x3FU >> followers);
        for (int k = 0; k < followers; ++k) {
            const auto next = static_cast<unsigned char>(bytes[i++]);
            if ((next & 0xC0) != 0x80) return std::nullopt;
            code = code << 6 | (next & 0x3FU);
        }
        if (code < SMALLEST[followers] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return std::nullopt;
        text.push_back(static_cast<wchar_t>(code));
    }
    return text;
}

std::string encodeUtf8(std::wstring_view text) {
    std::string bytes;
    for (const wchar_t character : text) {
        auto code = static_cast<uint32_t>(character);
        if (code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) code = 0xFFFD;
        const int followers = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
        static constexpr uint32_t MARKS[] = {0, 0xC0, 0xE0, 0xF0}; // of the first byte, by number of followers
        bytes += static_cast<char>(MARKS[followers] | code >> (6 * followers));
        for (int k = followers - 1; k >= 0; --k) bytes += static_cast<char>(0x80 | (code >> (6 * k) & 0x3F));
    }
    return bytes;
}

std::wstring widePath(const std::string& path) {
    const std::optional<std::wstring> wide = decodeUtf8(path);
    if (!wide) throw CommandFailure(path, "the name is not valid UTF-8, and only such files can be opened");
    return *wide;
}

#include "ground/Log.h"

#include <cstdint>
#include <cstdio>
#include <mutex>

namespace {
std::mutex lastErrorMutex; // guards lastErrorText
std::string lastErrorText;

constexpr char32_t REPLACEMENT = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = REPLACEMENT;
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}
} // namespace

void logText(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void setLastError(std::string message) {
    std::lock_guard lock(lastErrorMutex);
    lastErrorText = std::move(message);
}

std::string lastError() {
    std::lock_guard lock(lastErrorMutex);
    return lastErrorText;
}

std::string toUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (const wchar_t c : text) appendUtf8(out, static_cast<char32_t>(c));
    return out;
}

std::wstring toWide(std::string_view text) {
    std::wstring out;
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i++]);
        const int extra = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        char32_t c = extra == 0 ? lead : lead & (0x3FU >> extra);
        bool whole = lead < 0x80 || (lead >= 0xC2 && lead < 0xF5);
        for (int k = 0; k < extra && whole; ++k) {
            if (i < text.size() && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80) {
                c = (c << 6) | (static_cast<uint8_t>(text[i++]) & 0x3F);
            } else {
                whole = false;
            }
        }
        out += static_cast<wchar_t>(whole ? c : REPLACEMENT);
    }
    return out;
}

#include "stub/UrlText.h"

#include <charconv>
#include <openssl/rand.h>
#include <stdexcept>

static constexpr std::string_view DIGITS = "0123456789ABCDEF";

static bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

std::string percentEncode(std::string_view text, std::string_view kept) {
    std::string encoded;
    for (const char c : text) {
        if (isPlain(c) || kept.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', DIGITS[byte >> 4], DIGITS[byte & 15]};
        }
    }
    return encoded;
}

std::string percentDecode(std::string_view text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned byte = 0;
        const char* digits = text.data() + i + 1;
        if (text[i] == '%' && text.size() - i > 2 && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            decoded += static_cast<char>(byte);
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

std::string between(std::string_view text, std::string_view name, std::string_view end) {
    const size_t start = text.find(name);
    if (start == std::string_view::npos) return {};
    text.remove_prefix(start + name.size());
    const size_t stop = end.empty() ? text.size() : text.rfind(end);
    return stop == std::string_view::npos ? std::string() : percentDecode(text.substr(0, stop));
}

std::string toHex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return text;
}

std::string randomHex(size_t bytes) {
    std::string random(bytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(random.data()), static_cast<int>(bytes)) != 1) {
        throw std::runtime_error("there are no random numbers");
    }
    return toHex(random);
}

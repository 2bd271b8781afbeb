#pragma once

#include <openssl/crypto.h>
#include <string>
#include <string_view>

// Overwrites text that must not stay in memory. What the HTTP library and TLS copied of it is out of reach.
inline void wipe(std::string& text) {
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

// Text that is wiped when it goes.
class Secret {
public:
    explicit Secret(std::string textIn) : text(std::move(textIn)) {}
    ~Secret() { wipe(text); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    std::string text;
};

// A URL as it may be logged: what gives access, the signature, stands in its query.
inline std::string withoutQuery(std::string_view url) {
    const size_t query = url.find('?');
    return query == std::string_view::npos ? std::string(url) : std::string(url.substr(0, query)) + "?...";
}

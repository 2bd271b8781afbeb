#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

// Signs what one may do with one path until when, and checks it. The secret lives as long as the object. Any thread.
class UrlSigner {
public:
    enum Verdict { FINE, UNSIGNED, EXPIRED };

    UrlSigner(); // throws std::runtime_error

    // `path` with a query that lets `method` through for so long.
    [[nodiscard]] std::string sign(std::string_view method, std::string_view path, std::chrono::seconds validity) const;

    // Looks at path and query as they came in, byte for byte.
    [[nodiscard]] Verdict check(std::string_view method, std::string_view target) const;

    void setClockAhead(std::chrono::seconds ahead) { clockAhead = ahead.count(); }

private:
    [[nodiscard]] int64_t now() const; // in seconds since 1970
    [[nodiscard]] std::string signature(std::string_view method, std::string_view pathAndExpiry) const;

    const std::string secret;
    std::atomic<int64_t> clockAhead{0};
};

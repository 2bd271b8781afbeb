#pragma once

#include <openssl/ssl.h>
#include <optional>
#include <string>
#include <string_view>

// The scheme, host and port of a server that is spoken to over TLS.
struct HttpsOrigin {
    std::string text; // "https://host[:port]", as it was given, without a slash at the end
    std::string host;
    int port = 443;

    // Empty for anything but "https://host[:port]" with at most a slash behind it.
    static std::optional<HttpsOrigin> parse(std::string_view text);

    // What to ask this server for to get `url`, byte for byte; empty when the URL does not begin with the whole origin,
    // or holds bytes that can't stand in a request line.
    [[nodiscard]] std::string targetOf(const std::string& url) const;

    // Has the connections of a context accept certificates of this host alone. The HTTP library checks the name as
    // well, but takes a certificate's common name where its alternative names do not match.
    void expectIn(SSL_CTX* context) const;
};

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace httplib {
class ClientImpl;
}

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

    // A client that keeps its connection, and takes certificates of this host alone. The HTTP library checks the name
    // as well, but takes a certificate's common name where its alternative names do not match.
    [[nodiscard]] std::unique_ptr<httplib::ClientImpl> makeClient() const;
};

// The same for any server, "https://", "http://" or neither before its host and perhaps a port. Throws
// std::invalid_argument for anything else. The library has one for this too, but matches a regular expression with a
// depth that follows the length of the text, and knows no letters in IPv6 addresses.
std::unique_ptr<httplib::ClientImpl> makeClientOf(std::string_view server);

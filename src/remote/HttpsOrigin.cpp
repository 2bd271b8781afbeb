#include "remote/HttpsOrigin.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <openssl/x509v3.h>

static bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
}

static bool isAddressCharacter(char c) {
    return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || (c >= '0' && c <= '9') || c == ':' || c == '.';
}

static std::optional<int> parsePort(std::string_view text) {
    int port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (failure != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535) return std::nullopt;
    return port;
}

std::optional<HttpsOrigin> HttpsOrigin::parse(std::string_view text) {
    constexpr std::string_view SCHEME = "https://";
    if (!text.starts_with(SCHEME)) return std::nullopt;
    if (text.ends_with('/')) text.remove_suffix(1);
    if (text.size() <= SCHEME.size()) return std::nullopt;
    HttpsOrigin origin{std::string(text), {}};
    std::string_view rest = text.substr(SCHEME.size());
    if (rest.front() == '[') { // an IPv6 address
        const size_t end = rest.find(']');
        if (end == std::string_view::npos) return std::nullopt;
        origin.host = rest.substr(1, end - 1);
        rest.remove_prefix(end + 1);
        if (!std::all_of(origin.host.begin(), origin.host.end(), isAddressCharacter)) return std::nullopt;
    } else {
        origin.host = rest.substr(0, rest.find(':'));
        rest.remove_prefix(origin.host.size());
        if (!std::all_of(origin.host.begin(), origin.host.end(), isHostCharacter)) return std::nullopt;
    }
    if (origin.host.empty()) return std::nullopt;
    if (rest.empty()) return origin;
    const std::optional<int> port = rest.front() == ':' ? parsePort(rest.substr(1)) : std::nullopt;
    if (!port) return std::nullopt;
    origin.port = *port;
    return origin;
}

std::string HttpsOrigin::targetOf(const std::string& url) const {
    // The "/" keeps "https://host" from matching "https://host.elsewhere" and "https://host:1" from ":12".
    if (!url.starts_with(text) || url.size() == text.size() || url[text.size()] != '/') return {};
    const std::string target = url.substr(text.size());
    const bool isClean = std::all_of(target.begin(), target.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte > ' ' && byte != 0x7F;
    });
    return isClean ? target : std::string();
}

void HttpsOrigin::expectIn(SSL_CTX* context) const {
    X509_VERIFY_PARAM* expected = SSL_CTX_get0_param(context);
    X509_VERIFY_PARAM_set_hostflags(expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    unsigned char address[sizeof(in6_addr)];
    const bool isAddress =
        ::inet_pton(AF_INET, host.c_str(), address) == 1 || ::inet_pton(AF_INET6, host.c_str(), address) == 1;
    if (isAddress) {
        X509_VERIFY_PARAM_set1_ip_asc(expected, host.c_str());
    } else {
        X509_VERIFY_PARAM_set1_host(expected, host.c_str(), host.size());
    }
}

#include "remote/HttpsOrigin.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <httplib.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stdexcept>

static bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
}

static bool isAddressCharacter(char c) {
    return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || (c >= '0' && c <= '9') || c == ':' || c == '.';
}

static constexpr std::string_view SCHEME = "https://";
static constexpr std::string_view PLAIN_SCHEME = "http://";

static std::optional<int> parsePort(std::string_view text) {
    int port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (failure != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535) return std::nullopt;
    return port;
}

// "HOST[:PORT]"; false for anything else. The port stays as it is where there is none.
static bool parseServer(std::string_view text, std::string& host, int& port) {
    constexpr size_t LONGEST_HOST = 255;
    if (text.starts_with('[')) { // an IPv6 address
        const size_t end = text.find(']');
        if (end == std::string_view::npos) return false;
        host = text.substr(1, end - 1);
        text.remove_prefix(end + 1);
        if (!std::all_of(host.begin(), host.end(), isAddressCharacter)) return false;
    } else {
        host = text.substr(0, text.find(':'));
        text.remove_prefix(host.size());
        if (!std::all_of(host.begin(), host.end(), isHostCharacter)) return false;
    }
    if (host.empty() || host.size() > LONGEST_HOST) return false;
    if (text.empty()) return true;
    const std::optional<int> given = text.front() == ':' ? parsePort(text.substr(1)) : std::nullopt;
    if (given) port = *given;
    return given.has_value();
}

std::optional<HttpsOrigin> HttpsOrigin::parse(std::string_view text) {
    if (!text.starts_with(SCHEME)) return std::nullopt;
    if (text.ends_with('/')) text.remove_suffix(1);
    if (text.size() <= SCHEME.size()) return std::nullopt;
    HttpsOrigin origin{std::string(text), {}};
    if (!parseServer(text.substr(SCHEME.size()), origin.host, origin.port)) return std::nullopt;
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

static void expectHost(const std::string& host, SSL_CTX* context) {
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

std::unique_ptr<httplib::ClientImpl> HttpsOrigin::makeClient() const {
    auto client = std::make_unique<httplib::SSLClient>(host, port);
    if (client->ssl_context()) expectHost(host, client->ssl_context());
    client->set_keep_alive(true);
    client->set_tcp_nodelay(true);
    return client;
}

std::unique_ptr<httplib::ClientImpl> makeClientOf(std::string_view server) {
    if (server.starts_with(SCHEME)) {
        const std::optional<HttpsOrigin> origin = HttpsOrigin::parse(server);
        if (!origin) throw std::invalid_argument("the URL names no host");
        return origin->makeClient();
    }
    if (server.starts_with(PLAIN_SCHEME)) server.remove_prefix(PLAIN_SCHEME.size());
    std::string host;
    int port = 80;
    if (!parseServer(server, host, port)) throw std::invalid_argument("the URL names no host of a known protocol");
    auto client = std::make_unique<httplib::ClientImpl>(host, port);
    client->set_keep_alive(true);
    return client;
}

#include "stub/UrlSigner.h"
#include "stub/UrlText.h"

#include <charconv>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <stdexcept>

// The method, a line end, and the target up to the signature are signed. Nothing is taken apart before the signature is
// known to be right, and the signature comes last, so that there is one way only to read a target.

static constexpr std::string_view EXPIRES = "?expires=";
static constexpr std::string_view SIGNATURE = "&signature=";

UrlSigner::UrlSigner() : secret(randomHex(32)) {}

int64_t UrlSigner::now() const {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
               .count() +
           clockAhead;
}

std::string UrlSigner::signature(std::string_view method, std::string_view pathAndExpiry) const {
    std::string text(method);
    text += '\n';
    text += pathAndExpiry;
    unsigned char code[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
             reinterpret_cast<const unsigned char*>(text.data()), text.size(), code, &length) == nullptr) {
        throw std::runtime_error("OpenSSL cannot sign");
    }
    return toHex({reinterpret_cast<const char*>(code), length});
}

std::string UrlSigner::sign(std::string_view method, std::string_view path, std::chrono::seconds validity) const {
    std::string target(path);
    target += EXPIRES;
    target += std::to_string(now() + validity.count());
    const std::string code = signature(method, target);
    target += SIGNATURE;
    return target + code;
}

UrlSigner::Verdict UrlSigner::check(std::string_view method, std::string_view target) const {
    const size_t mark = target.rfind(SIGNATURE);
    const size_t expiry = target.rfind(EXPIRES, mark);
    if (mark == std::string_view::npos || expiry == std::string_view::npos) return UNSIGNED;
    const std::string_view given = target.substr(mark + SIGNATURE.size());
    const std::string expected = signature(method, target.substr(0, mark));
    if (given.size() != expected.size() || CRYPTO_memcmp(given.data(), expected.data(), expected.size()) != 0) {
        return UNSIGNED;
    }
    int64_t expires = 0;
    const char* digits = target.data() + expiry + EXPIRES.size();
    std::from_chars(digits, target.data() + mark, expires);
    return now() < expires ? FINE : EXPIRED;
}

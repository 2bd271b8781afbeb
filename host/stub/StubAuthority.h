#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

// A throwaway certificate authority: made with the object, its key held in memory only. Clients trust it when
// SSL_CERT_FILE names the file that write() made. Any thread.
class StubAuthority {
public:
    using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
    using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

    struct Identity {
        Certificate certificate;
        Key key;
    };

    // Throws std::runtime_error, as the rest does.
    StubAuthority();

    // Writes the authority's own certificate as PEM.
    void write(const std::filesystem::path& file) const;

    // A server's certificate for these host names and IP addresses.
    [[nodiscard]] Identity issue(const std::vector<std::string>& hosts) const;

private:
    Identity own;
};

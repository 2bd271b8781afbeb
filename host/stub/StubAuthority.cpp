#include "stub/StubAuthority.h"

#include <arpa/inet.h>
#include <cstdio>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <stdexcept>

// Elliptic keys, since an RSA key takes a noticeable part of a second to make and each test makes two.

static constexpr long LIFETIME = 30L * 24 * 3600; // in seconds
static constexpr long TOLERANCE = 3600;           // for clocks that differ

static void require(bool isFine) {
    if (!isFine) throw std::runtime_error("OpenSSL cannot make a certificate");
}

static void addExtension(X509* certificate, X509* issuer, int number, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, number, value.c_str()), X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

static void setSerialNumber(X509* certificate) {
    unsigned char bytes[8];
    require(RAND_bytes(bytes, sizeof bytes) == 1);
    uint64_t number = 0;
    for (const unsigned char byte : bytes) number = number << 8 | byte;
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1) == 1);
}

static StubAuthority::Identity makeIdentity(const char* name) {
    StubAuthority::Identity made{{X509_new(), X509_free}, {EVP_EC_gen("P-256"), EVP_PKEY_free}};
    X509* certificate = made.certificate.get();
    require(certificate && made.key && X509_set_version(certificate, 2) == 1);
    setSerialNumber(certificate);
    require(X509_gmtime_adj(X509_getm_notBefore(certificate), -TOLERANCE) != nullptr);
    require(X509_gmtime_adj(X509_getm_notAfter(certificate), LIFETIME) != nullptr);
    require(X509_set_pubkey(certificate, made.key.get()) == 1);
    const auto* text = reinterpret_cast<const unsigned char*>(name);
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1);
    return made;
}

static void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
    require(X509_sign(certificate, issuerKey, EVP_sha256()) != 0);
}

StubAuthority::StubAuthority() : own(makeIdentity("Throwaway authority of nimbrel-cloud-stub")) {
    X509* certificate = own.certificate.get();
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    sign(certificate, certificate, own.key.get());
}

void StubAuthority::write(const std::filesystem::path& file) const {
    const std::unique_ptr<FILE, int (*)(FILE*)> out(std::fopen(file.c_str(), "we"), std::fclose);
    if (!out || PEM_write_X509(out.get(), own.certificate.get()) != 1 || std::fflush(out.get()) != 0) {
        throw std::runtime_error(file.string() + ": cannot be written");
    }
}

static bool isAddress(const std::string& host) {
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(AF_INET, host.c_str(), address) == 1 || inet_pton(AF_INET6, host.c_str(), address) == 1;
}

StubAuthority::Identity StubAuthority::issue(const std::vector<std::string>& hosts) const {
    std::string names;
    for (const std::string& host : hosts) {
        if (!names.empty()) names += ",";
        names += isAddress(host) ? "IP:" : "DNS:";
        names += host;
    }
    Identity made = makeIdentity("nimbrel-cloud-stub");
    X509* certificate = made.certificate.get();
    addExtension(certificate, own.certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, own.certificate.get(), NID_ext_key_usage, "serverAuth");
    addExtension(certificate, own.certificate.get(), NID_subject_alt_name, names);
    sign(certificate, own.certificate.get(), own.key.get());
    return made;
}

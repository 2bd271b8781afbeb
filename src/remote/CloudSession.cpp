#include "remote/CloudSession.h"

#include "ground/Log.h"
#include "remote/Secret.h"

#include <algorithm>
#include <openssl/ssl.h>

CloudSession& CloudSession::instance() {
    // OpenSSL cleans up after itself at exit; begun before the session, it does so after the session's connections.
    [[maybe_unused]] static const int tlsIsUp = ::OPENSSL_init_ssl(0, nullptr);
    static CloudSession session;
    return session;
}

static std::optional<HttpsOrigin> endpointFrom(const char* text, const char* what) {
    std::optional<HttpsOrigin> endpoint = HttpsOrigin::parse(text);
    if (!endpoint && *text)
        setLastError(std::string("the ") + what + " endpoint is not of the form https://host[:port]");
    return endpoint;
}

void CloudSession::setEndpoints(const char* apiText, const char* objectText, const char* originText) {
    std::lock_guard lock(mutex);
    if (apiText) {
        const std::optional<HttpsOrigin> next = endpointFrom(apiText, "API");
        const bool isSame = api && next && api->text == next->text;
        if (!isSame) signOutLocked();
        api = next;
    }
    if (objectText) object = endpointFrom(objectText, "object");
    if (originText) {
        origin = originText;
        const bool isClean = std::none_of(origin.begin(), origin.end(), [](char c) { return c >= 0 && c < ' '; });
        if (!isClean) origin.clear();
    }
    openClient = signedClient = nullptr;
    dataConnections = nullptr;
}

void CloudSession::dropClients() {
    std::lock_guard lock(mutex);
    openClient = signedClient = nullptr;
    dataConnections = nullptr;
}

std::shared_ptr<HttpsClient> CloudSession::apiClient(bool authorised) {
    std::lock_guard lock(mutex);
    auto& client = authorised ? signedClient : openClient;
    if (!client && api) client = std::make_shared<HttpsClient>([this] { return api->makeClient(); });
    return client;
}

std::optional<CloudSession::ObjectStore> CloudSession::objectStore() {
    std::lock_guard lock(mutex);
    if (!object) return std::nullopt;
    if (!dataConnections) {
        const auto makeClient = [this] {
            auto client = object->makeClient();
            client->set_url_encode(false);
            return client;
        };
        dataConnections = std::make_shared<ConnectionPool>(makeClient, connectionCount());
    }
    return ObjectStore{*object, dataConnections};
}

std::optional<HttpsOrigin> CloudSession::objectEndpoint() {
    std::lock_guard lock(mutex);
    return object;
}

std::string CloudSession::webOrigin() {
    std::lock_guard lock(mutex);
    return origin;
}

bool CloudSession::isSignedIn() {
    std::lock_guard lock(mutex);
    return signedIn;
}

void CloudSession::signOut() {
    std::lock_guard lock(mutex);
    signOutLocked();
}

void CloudSession::signOutLocked() {
    signedIn = false;
    wipe(token);
    prefix.clear();
    account = {{}, 0, account.signIn + 1};
    listing.clear();
    tier = TIER_NOT_KNOWN;
}

void CloudSession::signIn(const std::string& tokenIn) {
    std::lock_guard lock(mutex);
    token = tokenIn;
    signedIn = true;
}

static std::string refresh(std::string& held, const std::string& newValue) {
    if (!newValue.empty()) held = newValue;
    return held;
}

std::string CloudSession::idToken(const std::string& newValue) {
    std::lock_guard lock(mutex);
    return refresh(token, newValue);
}

std::string CloudSession::prefixFolder(const std::string& newValue) {
    std::lock_guard lock(mutex);
    return refresh(prefix, newValue);
}

std::string CloudSession::uploadFilename(const std::string& newValue) {
    std::lock_guard lock(mutex);
    return refresh(uploadName, newValue);
}

std::string CloudSession::uploadID(const std::string& newValue) {
    std::lock_guard lock(mutex);
    return refresh(uploadNumber, newValue);
}

void CloudSession::forgetUpload() {
    std::lock_guard lock(mutex);
    uploadName.clear();
    uploadNumber.clear();
}

CloudSession::AccountRecord CloudSession::accountRecord() {
    std::lock_guard lock(mutex);
    return account;
}

void CloudSession::keepAccountRecord(const AccountRecord& record) {
    std::lock_guard lock(mutex);
    if (record.signIn == account.signIn) account = record;
}

std::wstring CloudSession::knownListing() {
    std::lock_guard lock(mutex);
    return listing;
}

void CloudSession::keepListing(const std::wstring& files) {
    std::lock_guard lock(mutex);
    if (signedIn) listing = files;
}

int CloudSession::knownTier() {
    std::lock_guard lock(mutex);
    return tier;
}

void CloudSession::keepTier(int value, uint64_t signIn) {
    std::lock_guard lock(mutex);
    if (signIn == account.signIn) tier = value;
}

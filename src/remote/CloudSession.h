#pragma once

#include "remote/ConnectionPool.h"
#include "remote/HttpsClient.h"
#include "remote/HttpsOrigin.h"

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

// Which service the process talks to and who is signed in: the state behind S3Utils, in one place. One thread signs in
// while others read and upload, so each operation sees and leaves a consistent state; nothing is sent under the lock.
class CloudSession {
public:
    // Made on first use. The engine makes it before the table of clouds, whose loads it outlives.
    static CloudSession& instance();

    // Null keeps a value. Another API endpoint signs out. All clients are made anew.
    void setEndpoints(const char* api, const char* object, const char* origin);

    // Lets go of all clients; requests under way finish on theirs.
    void dropClients();

    // Made when first asked for; null without an endpoint. Shared with whoever is sending, so that dropClients() need
    // not wait.
    [[nodiscard]] std::shared_ptr<HttpsClient> apiClient(bool authorised);
    [[nodiscard]] std::optional<HttpsOrigin> objectEndpoint();

    // Where objects are, and the connections for reading them.
    struct ObjectStore {
        HttpsOrigin endpoint;
        std::shared_ptr<ConnectionPool> connections;
    };
    [[nodiscard]] std::optional<ObjectStore> objectStore();
    [[nodiscard]] std::string webOrigin();

    [[nodiscard]] bool isSignedIn();
    void signOut();
    void signIn(const std::string& token);

    // Store their argument unless it is empty, and return what is held.
    std::string idToken(const std::string& newValue);
    std::string prefixFolder(const std::string& newValue);
    std::string uploadFilename(const std::string& newValue);
    std::string uploadID(const std::string& newValue);
    void forgetUpload();

    // The account's record as last fetched, and since when. A record that belongs to another sign-in is not kept.
    struct AccountRecord {
        std::string text; // JSON; empty for none
        std::time_t timeOfLastCall = 0;
        uint64_t signIn = 0; // number of the sign-in that it belongs to
    };
    [[nodiscard]] AccountRecord accountRecord();
    void keepAccountRecord(const AccountRecord& record);

    // The files as last listed in this sign-in, in the form for hosts; empty before the first listing.
    [[nodiscard]] std::wstring knownListing();
    void keepListing(const std::wstring& files);

    static constexpr int TIER_NOT_KNOWN = 1;
    [[nodiscard]] int knownTier();
    void keepTier(int value, uint64_t signIn);

private:
    void signOutLocked();

    std::mutex mutex; // guards everything below
    std::optional<HttpsOrigin> api;
    std::optional<HttpsOrigin> object;
    std::string origin;
    std::shared_ptr<HttpsClient> openClient;   // for calls before the sign-in
    std::shared_ptr<HttpsClient> signedClient; // for calls after it
    std::shared_ptr<ConnectionPool> dataConnections;
    bool signedIn = false;
    std::string token;
    std::string prefix; // without its closing "/"
    std::string uploadName;
    std::string uploadNumber;
    AccountRecord account;
    std::wstring listing;
    int tier = TIER_NOT_KNOWN;
};

#pragma once

#include "stub/CloudStub.h"
#include "stub/ObjectStore.h"
#include "stub/StoreService.h"
#include "stub/StubServer.h"

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// The web API's side of HTTP: sign-in, figures, the listing, signing, multipart jobs, deletion and mails. Any thread.
class WebApi {
public:
    // All outlive the API. `storeEndpoint` stands in front of signed paths, and may be set until requests come in.
    WebApi(const StubOptions& options, const std::string& storeEndpoint, ObjectStore& store);

    void addTo(StubServer& server, const StoreService& service);

    [[nodiscard]] int64_t roomFor(const std::string& key) const; // bytes that the key's account may still store
    [[nodiscard]] std::vector<StubMail> mails() const;

private:
    using Answer = std::optional<std::string>; // what goes into "value"; null without

    static constexpr size_t MOST_SESSIONS = 1000;

    void get(const StubServer::Exchange& exchange);
    void post(const StubServer::Exchange& exchange);
    void signIn(const StubServer::Exchange& exchange);
    [[nodiscard]] const StubUser* userOf(const httplib::Request& request) const;
    [[nodiscard]] std::string prefixOf(const StubUser& user) const; // with its closing slash

    [[nodiscard]] std::string figures(const StubUser& user) const;
    [[nodiscard]] std::string listing(const StubUser& user) const;
    [[nodiscard]] Answer signedUrl(const StubUser& user, const std::string& target) const;
    void multipart(const StubUser& user, const StubServer::Exchange& exchange);
    void complete(const StubUser& user, const std::string& name, const std::string& id, httplib::Response& response);
    [[nodiscard]] Answer beginUpload(const StubUser& user, const std::string& name, const std::string& target);
    [[nodiscard]] bool ownsUpload(const StubUser& user, const std::string& name, const std::string& id) const;
    [[nodiscard]] bool removeAll(const StubUser& user, const std::string& body);
    [[nodiscard]] bool sendMail(const std::string& target, const std::string& body);

    struct Session {
        std::string token;
        const StubUser* user;
    };

    const StubOptions& options;
    const std::string& storeEndpoint;
    ObjectStore& store;
    const StoreService* service = nullptr;
    mutable std::mutex mutex;     // guards everything below
    std::deque<Session> sessions; // the oldest first
    std::vector<StubMail> sentMails;
};

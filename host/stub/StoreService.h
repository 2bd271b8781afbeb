#pragma once

#include "stub/ObjectStore.h"
#include "stub/StubServer.h"
#include "stub/UrlSigner.h"

#include <chrono>
#include <functional>
#include <string>

// The object store's side of HTTP: GET of objects, whole or by range, and PUT of objects and of parts, each by a signed
// URL only. Any thread.
class StoreService {
public:
    // How many bytes more the account of a key may hold.
    using Room = std::function<int64_t(const std::string& key)>;

    // All outlive the service.
    StoreService(ObjectStore& store, const UrlSigner& signer, RequestLog& log, Room room);

    void addTo(StubServer& server);

    // Paths with their signatures, to put behind the store's endpoint.
    [[nodiscard]] std::string urlToGet(const std::string& key, std::chrono::seconds validity) const;
    [[nodiscard]] std::string urlToPut(const std::string& key, std::chrono::seconds validity) const;
    [[nodiscard]] std::string urlToPutPart(const std::string& upload, int number, std::chrono::seconds validity) const;

private:
    bool isAllowed(const StubServer::Exchange& exchange) const;
    void get(const StubServer::Exchange& exchange);
    void put(const StubServer::Exchange& exchange);
    [[nodiscard]] std::string keyToPut(const std::string& path) const;
    int receive(const StubServer::Exchange& exchange, const std::string& key);

    ObjectStore& store;
    const UrlSigner& signer;
    RequestLog& log;
    const Room room;
};

#include "remote/CloudTest.h"
#include "remote/ConnectionPool.h"

#include <csignal>
#include <random>

CloudTest::~CloudTest() {
    if (service) service->setFaults({});
    abortGlimmetUpload();
    setGlimmetEndpoints("", "", "");
    ConnectionPool::patience = {};
}

void CloudTest::waitForever() {
    constexpr std::chrono::seconds EVER{600};
    ConnectionPool::patience = {EVER, EVER, EVER, 1};
    resetGlimmetNetwork();
}

void CloudTest::startService(StubOptions options) {
    service.reset();
    options.folder = dir.path("service");
    if (options.users.empty()) options.users.push_back({"ada", "pass word"});
    // The server's threads are begun with the signal blocked, and this one goes back to what a host has.
    sigset_t pipe;
    sigset_t before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    service = std::make_unique<CloudStub>(std::move(options));
    std::signal(SIGPIPE, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::setenv("SSL_CERT_FILE", service->caFile().c_str(), 1);
    setGlimmetEndpoints(service->apiEndpoint().c_str(), (service->storeEndpoint() + "/").c_str(),
                        "https://web.example");
}

Bytes CloudTest::noise(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

std::vector<StubRequest> CloudTest::requestsTo(std::string_view target) const {
    std::vector<StubRequest> found;
    for (StubRequest& request : service->requests()) {
        if (request.target.starts_with(target)) found.push_back(std::move(request));
    }
    return found;
}

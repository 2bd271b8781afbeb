#include "stub/CloudStub.h"
#include "stub/ObjectStore.h"
#include "stub/RequestLog.h"
#include "stub/StoreService.h"
#include "stub/StubServer.h"
#include "stub/UrlSigner.h"
#include "stub/WebApi.h"

#include <algorithm>
#include <mutex>
#include <random>
#include <utility>

struct CloudStub::Parts {
    explicit Parts(StubOptions&& optionsToUse) : options(std::move(optionsToUse)), store(options.folder) {}

    // The servers come last, so that they end before what their requests use.
    const StubOptions options;
    std::string apiEndpoint, storeEndpoint;
    RequestLog log;
    UrlSigner signer;
    ObjectStore store;
    WebApi api{options, storeEndpoint, store};
    StoreService service{store, signer, log, [this](const std::string& key) { return api.roomFor(key); }};
    std::unique_ptr<StubServer> apiServer, storeServer;
};

CloudStub::CloudStub(StubOptions options) {
    if (!options.authority) options.authority = std::make_shared<const StubAuthority>();
    parts = std::make_unique<Parts>(std::move(options));
    Parts& all = *parts;
    all.options.authority->write(caFile());
    const StubAuthority::Identity identity = all.options.authority->issue(all.options.certificateHosts);
    all.storeServer = std::make_unique<StubServer>(true, identity, all.log);
    all.apiServer = std::make_unique<StubServer>(false, identity, all.log);
    all.service.addTo(*all.storeServer);
    all.api.addTo(*all.apiServer, all.service);
    all.storeServer->start(all.options.host, all.options.storePort);
    // The API hands out the store's endpoint, so it starts second.
    all.storeEndpoint = "https://" + all.options.host + ":" + std::to_string(all.storeServer->port());
    all.apiServer->start(all.options.host, all.options.apiPort);
    all.apiEndpoint = "https://" + all.options.host + ":" + std::to_string(all.apiServer->port());
}

CloudStub::~CloudStub() {
    parts->log.end();
}

std::string CloudStub::apiEndpoint() const {
    return parts->apiEndpoint;
}

std::string CloudStub::storeEndpoint() const {
    return parts->storeEndpoint;
}

std::filesystem::path CloudStub::caFile() const {
    return parts->options.folder / "ca.pem";
}

void CloudStub::setFaults(FaultHook hook) {
    parts->log.setHook(std::move(hook));
}

CloudStub::FaultHook CloudStub::failingUploads(double share, uint32_t seed) {
    struct Dice {
        explicit Dice(uint32_t seedToUse) : random(seedToUse) {}
        std::mutex mutex; // guards `random`
        std::mt19937 random;
    };
    const auto dice = std::make_shared<Dice>(seed);
    return [dice, share](const StubRequest& request) {
        StubFault fault;
        if (!request.isStore || request.method != "PUT") return fault;
        const std::scoped_lock lock(dice->mutex);
        const bool fails = std::uniform_real_distribution<double>(0.0, 1.0)(dice->random) < share;
        const uint32_t kind = dice->random() % 4;
        if (!fails) return fault;
        if (kind == 0) fault.reset = true;
        if (kind == 1) fault.status = 503;
        if (kind == 2) fault.status = 403;
        if (kind == 3) fault.cutAfter = 100000;
        return fault;
    };
}

std::vector<StubRequest> CloudStub::requests() const {
    return parts->log.all();
}

int64_t CloudStub::countRequests(const std::string& pathPrefix) const {
    return std::ranges::count_if(parts->log.all(),
                                 [&](const StubRequest& request) { return request.path.starts_with(pathPrefix); });
}

void CloudStub::forgetRequests() {
    parts->log.forget();
}

void CloudStub::setClockAhead(std::chrono::seconds ahead) {
    parts->signer.setClockAhead(ahead);
}

std::vector<std::string> CloudStub::keys() const {
    std::vector<std::string> found;
    for (const ObjectStore::Object& object : parts->store.list("")) found.push_back(object.key);
    return found;
}

std::filesystem::path CloudStub::objectFile(const std::string& key) const {
    return parts->store.fileOf(key);
}

void CloudStub::addObject(const std::string& key, const std::filesystem::path& source) {
    IncomingFile file(parts->store.incomingName());
    if (!file.append(source) || !file.moveTo(objectFile(key))) throw std::runtime_error(key + ": cannot be stored");
}

size_t CloudStub::openUploads() const {
    return parts->store.openUploads();
}

std::string CloudStub::signedUrl(const std::string& key, std::chrono::seconds validity) const {
    return parts->storeEndpoint + parts->service.urlToGet(key, validity);
}

std::vector<StubMail> CloudStub::mails() const {
    return parts->api.mails();
}

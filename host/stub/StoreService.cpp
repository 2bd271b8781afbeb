#include "stub/StoreService.h"
#include "stub/UrlText.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

// Paths are "/objects/KEY" and "/uploads/ID/NUMBER". They are trusted once their signature is right, since this service
// made them.

static constexpr std::string_view OBJECTS = "/objects/";
static constexpr std::string_view UPLOADS = "/uploads/";
static constexpr size_t BLOCK = size_t{1} << 18; // of a body, handed to the socket at a time

namespace {
// An object's bytes, open for as long as an answer goes out.
class OpenObject {
public:
    explicit OpenObject(const std::filesystem::path& file) : descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat status {};
        if (descriptor >= 0 && fstat(descriptor, &status) == 0) bytes = status.st_size;
    }
    ~OpenObject() {
        if (descriptor >= 0) close(descriptor);
    }
    OpenObject(const OpenObject&) = delete;
    OpenObject& operator=(const OpenObject&) = delete;

    [[nodiscard]] bool isOpen() const { return descriptor >= 0; }
    [[nodiscard]] int64_t size() const { return bytes; }
    // False at the end of the file and when it cannot be read.
    bool read(std::vector<char>& block, int64_t offset) const {
        const ssize_t count = pread(descriptor, block.data(), block.size(), offset);
        block.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return count > 0;
    }

private:
    const int descriptor;
    int64_t bytes = 0;
};

struct ByteRange {
    int64_t first = 0;
    int64_t count = 0;
    int status = 200;
};
} // namespace

StoreService::StoreService(ObjectStore& storeToServe, const UrlSigner& signerToAsk, RequestLog& logToUse,
                           Room roomToAsk)
    : store(storeToServe), signer(signerToAsk), log(logToUse), room(std::move(roomToAsk)) {}

void StoreService::addTo(StubServer& server) {
    server.onGet([this](const StubServer::Exchange& exchange) { get(exchange); });
    server.onPut([this](const StubServer::Exchange& exchange) { put(exchange); });
}

static std::string objectPath(const std::string& key) {
    return std::string(OBJECTS) + percentEncode(key, "/");
}

std::string StoreService::urlToGet(const std::string& key, std::chrono::seconds validity) const {
    return signer.sign("GET", objectPath(key), validity);
}

std::string StoreService::urlToPut(const std::string& key, std::chrono::seconds validity) const {
    return signer.sign("PUT", objectPath(key), validity);
}

std::string StoreService::urlToPutPart(const std::string& upload, int number, std::chrono::seconds validity) const {
    return signer.sign("PUT", std::string(UPLOADS) + upload + "/" + std::to_string(number), validity);
}

static void refuse(httplib::Response& response, int status, const std::string& code) {
    response.status = status;
    response.set_content("<Error><Code>" + code + "</Code></Error>", "application/xml");
}

bool StoreService::isAllowed(const StubServer::Exchange& exchange) const {
    const UrlSigner::Verdict verdict = signer.check(exchange.request.method, exchange.request.target);
    if (verdict == UrlSigner::FINE) return true;
    refuse(exchange.response, 403, verdict == UrlSigner::EXPIRED ? "RequestExpired" : "SignatureDoesNotMatch");
    return false;
}

// The HTTP library would cut the range out by itself, but lets one through that ends behind the object, and knows no
// way to ignore it. So the range is taken away from the request, which is the library's and not const there.
static httplib::Ranges takeRanges(const httplib::Request& request) {
    return std::exchange(const_cast<httplib::Request&>(request).ranges, {});
}

// Several ranges in one request count as none, as object stores have it. Status 416 when there is nothing in the range.
static ByteRange resolve(const httplib::Ranges& ranges, int64_t size) {
    if (ranges.size() != 1) return {0, size, 200};
    auto [first, last] = ranges.front();
    if (first < 0) {
        first = std::max<int64_t>(0, size - last); // the last so many
        last = size - 1;
    } else if (last < 0 || last >= size) {
        last = size - 1;
    }
    return first > last ? ByteRange{0, 0, 416} : ByteRange{first, last - first + 1, 206};
}

// Waits until `bytes` may have gone over a line of that speed.
static bool pace(RequestLog& log, size_t bytes, int64_t bytesPerSecond) {
    if (bytesPerSecond <= 0) return true;
    const double seconds = static_cast<double>(bytes) / static_cast<double>(bytesPerSecond);
    return log.wait(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds)));
}

void StoreService::get(const StubServer::Exchange& exchange) {
    httplib::Response& response = exchange.response;
    const httplib::Ranges ranges = takeRanges(exchange.request);
    if (!isAllowed(exchange)) return;
    const std::string path = exchange.request.target.substr(0, exchange.request.target.find('?'));
    const auto object = std::make_shared<const OpenObject>(store.fileOf(between(path, OBJECTS, {})));
    if (!object->isOpen()) return refuse(response, 404, "NoSuchKey");
    const StubFault& fault = exchange.fault;
    const ByteRange range = resolve(fault.ignoreRange ? httplib::Ranges() : ranges, object->size());
    if (range.status == 416) {
        response.set_header("Content-Range", "bytes */" + std::to_string(object->size()));
        return refuse(response, 416, "InvalidRange");
    }
    response.status = range.status;
    response.set_header("Accept-Ranges", "bytes");
    if (range.status == 206) {
        response.set_header("Content-Range", "bytes " + std::to_string(range.first) + "-" +
                                                 std::to_string(range.first + range.count - 1) + "/" +
                                                 std::to_string(object->size()));
    }
    const int64_t count = std::max<int64_t>(0, range.count - fault.shortBy);
    if (count == 0) return response.set_content("", "application/octet-stream");
    const auto send = [this, object, first = range.first, fault](size_t offset, size_t length,
                                                                 httplib::DataSink& sink) {
        if (fault.cutAfter >= 0) length = std::min(length, static_cast<size_t>(fault.cutAfter) - offset);
        std::vector<char> block(std::min(length, fault.bytesPerSecond > 0 ? BLOCK / 16 : BLOCK));
        if (length == 0 || !object->read(block, first + static_cast<int64_t>(offset))) return false;
        return pace(log, block.size(), fault.bytesPerSecond) && sink.write(block.data(), block.size());
    };
    response.set_content_provider(static_cast<size_t>(count), "application/octet-stream", send);
}

static void discard(const StubServer::Exchange& exchange) {
    (*exchange.body)([](const char*, size_t) { return true; });
}

// The key that a path of a PUT stands for; empty when its upload is over.
std::string StoreService::keyToPut(const std::string& path) const {
    if (path.starts_with(OBJECTS)) return between(path, OBJECTS, {});
    return store.keyOfUpload(between(path, UPLOADS, "/")).value_or("");
}

// Reads the body into a file and puts that in its place; the status to answer.
int StoreService::receive(const StubServer::Exchange& exchange, const std::string& key) {
    const int64_t most = room(key);
    const StubFault& fault = exchange.fault;
    IncomingFile file(store.incomingName());
    int64_t received = 0;
    bool isKept = true;
    const bool isWhole = (*exchange.body)([&](const char* data, size_t size) {
        received += static_cast<int64_t>(size);
        if (fault.cutAfter >= 0 && received > fault.cutAfter) {
            StubServer::resetConnection(exchange.request);
            return false;
        }
        // The rest is read all the same: it would be taken for the next request.
        isKept = isKept && received <= most && file.write(data, size);
        return pace(log, size, fault.bytesPerSecond);
    });
    if (!isWhole) return 400;
    if (!isKept) return 507;
    const std::string path = exchange.request.target.substr(0, exchange.request.target.find('?'));
    if (path.starts_with(OBJECTS)) return file.moveTo(store.fileOf(key)) ? 200 : 500;
    int number = 0;
    const std::string digits = path.substr(path.rfind('/') + 1);
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return store.takePart(between(path, UPLOADS, "/"), number, file) ? 200 : 404;
}

void StoreService::put(const StubServer::Exchange& exchange) {
    if (!exchange.request.has_header("Content-Length")) return refuse(exchange.response, 411, "MissingContentLength");
    if (!isAllowed(exchange)) return discard(exchange);
    const std::string key = keyToPut(exchange.request.target.substr(0, exchange.request.target.find('?')));
    if (key.empty()) {
        discard(exchange);
        return refuse(exchange.response, 404, "NoSuchUpload");
    }
    const int status = receive(exchange, key);
    if (status != 200) return refuse(exchange.response, status, "NotStored");
    exchange.response.status = 200;
}

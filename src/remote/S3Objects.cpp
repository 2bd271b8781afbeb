// Reading ranges of objects. An attempt is judged in two places: when its head has come, where a range that was ignored
// is refused before its bytes are taken, and at its end, where every byte must have come.

#include "ground/Log.h"
#include "remote/CloudSession.h"
#include "remote/RequestStop.h"
#include "remote/S3Utils.h"
#include "remote/Secret.h"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

constexpr int ATTEMPTS = 3;
constexpr size_t MOST_OF_A_REFUSAL = size_t{64} << 10; // what is read of an error's body, to keep the connection

bool isSuccess(int status) {
    return status == 200 || status == 206;
}

// The three numbers of "bytes FIRST-LAST/TOTAL"; -1 for what is not told.
struct ContentRange {
    int64_t first = -1;
    int64_t last = -1;
    int64_t total = -1;

    static ContentRange parse(const std::string& text) {
        ContentRange range;
        const char* at = text.data();
        const char* const end = at + text.size();
        const auto take = [&](std::string_view before, int64_t& number) {
            if (static_cast<size_t>(end - at) < before.size() || std::memcmp(at, before.data(), before.size()) != 0) {
                return false;
            }
            const auto [next, failure] = std::from_chars(at + before.size(), end, number);
            at = next;
            return failure == std::errc();
        };
        if (take("bytes ", range.first) && take("-", range.last)) take("/", range.total);
        return range;
    }
};

// One attempt at a range.
struct RangeAttempt {
    const int64_t offset;
    const int64_t size;
    const S3Utils::ObjectSink& sink;
    const ConnectionPool::Lease& connection;
    S3Utils::ObjectAnswer& result;
    int status = -1;        // of the head, whatever became of the body
    bool isRefused = false; // a success, but not with the bytes asked for
    int64_t received = 0;
    size_t refusal = 0; // bytes of an error's body

    [[nodiscard]] httplib::Request request(const std::string& target, const std::string& origin);
    bool takeHead(const httplib::Response& response);
    bool takeBody(const char* data, size_t length);
};

httplib::Request RangeAttempt::request(const std::string& target, const std::string& origin) {
    httplib::Request request;
    request.method = "GET";
    request.path = target;
    request.headers.emplace("Range", "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + size - 1));
    request.headers.emplace("Content-Type", "application/octet-stream");
    if (!origin.empty()) request.headers.emplace("Origin", origin);
    request.response_handler = [this](const httplib::Response& response) { return takeHead(response); };
    request.content_receiver = [this](const char* data, size_t length, uint64_t, uint64_t) {
        return takeBody(data, length);
    };
    return request;
}

bool RangeAttempt::takeHead(const httplib::Response& response) {
    status = response.status;
    if (!isSuccess(status)) return true;
    result.version = response.get_header_value("ETag");
    const ContentRange range = ContentRange::parse(response.get_header_value("Content-Range"));
    result.objectSize = range.total;
    const bool isElsewhere = range.first != -1 && (range.first != offset || range.last != offset + size - 1);
    const std::string length =
        response.has_header("Content-Encoding") ? std::string() : response.get_header_value("Content-Length");
    const bool hasOtherLength = !length.empty() && length != std::to_string(size);
    isRefused = isElsewhere || hasOtherLength;
    return !isRefused;
}

bool RangeAttempt::takeBody(const char* data, size_t length) {
    if (!connection.allowFor(length)) return false;
    if (!isSuccess(status)) return (refusal += length) <= MOST_OF_A_REFUSAL;
    isRefused = length > static_cast<size_t>(size - received);
    if (isRefused) return false;
    sink(received, data, length);
    received += static_cast<int64_t>(length);
    return true;
}

} // namespace

std::string S3Utils::getSignedURL(const std::wstring& name) {
    return callLambdaURL("/GetSignedURL/?file=" + refreshPrefix("") + toUtf8(name), true, 3, "", "", nullptr);
}

static void logFailure(const std::string& url, int64_t offset, int64_t size, int status) {
    std::string text =
        "bytes=" + std::to_string(offset) + "-" + std::to_string(size) + "\n" + withoutQuery(url) + "\nGone Wrong\n";
    if (status != -1) text += std::to_string(status) + "\n";
    logText(text);
}

// Sends the request and takes the answer; the HTTP status, or -1 with a reason.
static int exchange(const ConnectionPool::Lease& connection, httplib::Request& request, std::string& reason) {
    const BrokenPipeGuard noSignal;
    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    connection.restart();
    if (connection.client().send(request, response, error)) return response.status;
    reason = "the store does not answer: " + reasonOf(error);
    return -1;
}

static void readAttempts(const CloudSession::ObjectStore& store, const std::string& url, int64_t offset, int64_t size,
                         const S3Utils::ObjectSink& sink, RequestStop* stop, S3Utils::ObjectAnswer& result) {
    const ConnectionPool::Lease connection = store.connections->take();
    if (!connection) return;
    const RequestStop::Watch watch(stop, [&connection] { connection.interrupt(); });
    const std::string target = store.endpoint.targetOf(url);
    const std::string origin = CloudSession::instance().webOrigin();
    for (int i = 0; i < ATTEMPTS && !(stop && stop->requested()); ++i) {
        RangeAttempt attempt{offset, size, sink, connection, result};
        httplib::Request request = attempt.request(target, origin);
        const int status = exchange(connection, request, result.reason);
        if (isSuccess(status)) {
            result.whole = attempt.received == size;
            result.reason = result.whole ? "" : "the store sent fewer bytes than were asked for";
            return;
        }
        // Answered well, but with other bytes than those asked for: no further attempt will change that.
        if (attempt.isRefused) {
            result.reason = "the store did not send the bytes that were asked for";
            return;
        }
        logFailure(url, offset, size, status);
        if (attempt.status != -1 && !isSuccess(attempt.status)) {
            result.reason = "the store answered with status " + std::to_string(attempt.status);
        }
    }
}

S3Utils::ObjectAnswer S3Utils::readObject(const std::string& url, int64_t offset, int64_t size, const ObjectSink& sink,
                                          RequestStop* stop) {
    ObjectAnswer result;
    try {
        const auto store = CloudSession::instance().objectStore();
        if (!store) {
            result.reason = "no object store is set";
        } else if (store->endpoint.targetOf(url).empty()) {
            result.reason = "the URL does not lie in the object store";
        } else if (offset < 0 || size <= 0 || size > INT64_MAX - offset) {
            result.reason = "the range is empty";
        } else {
            readAttempts(*store, url, offset, size, sink, stop, result);
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Request failed, error: %s\n", failure.what());
        result = {};
        result.reason = failure.what();
    }
    return result;
}

bool S3Utils::readData(const std::string& url, char* buffer, long long offset, int size, bool reset) {
    if (reset) CloudSession::instance().dropClients();
    if (size <= 0) return false;
    const ObjectAnswer answer =
        readObject(url, offset, size, [buffer](int64_t position, const char* data, size_t length) {
            std::memcpy(buffer + position, data, length);
        });
    return answer.whole;
}

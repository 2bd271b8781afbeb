#include "remote/Network.h"

#include "ground/Log.h"
#include "remote/HttpsOrigin.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

std::string withBlanksReplaced(const std::string& text) {
    std::string replaced;
    for (const char c : text) c == ' ' ? replaced += "%20" : replaced += c;
    return replaced;
}

std::string describe(httplib::Error error) {
    std::ostringstream text;
    text << error;
    return text.str();
}

} // namespace

Network::Address Network::parse(const std::wstring& url) {
    const std::string text = withBlanksReplaced(toUtf8(url));
    const size_t schemeEnd = text.find(':');
    if (schemeEnd == std::string::npos) throw std::invalid_argument("the URL names no protocol");
    const std::string rest = text.substr(std::min(schemeEnd + 3, text.size())); // behind the two slashes
    const size_t slash = std::min(rest.find('/'), rest.size());
    const size_t colon = rest.find(':');
    if (colon >= slash) throw std::invalid_argument("the URL names no port");
    const size_t portStart = colon + 1;
    const std::string portText = rest.substr(portStart, slash - portStart);
    const bool isNumber = !portText.empty() && portText.size() <= 5 &&
                          std::all_of(portText.begin(), portText.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!isNumber || std::stoi(portText) > std::numeric_limits<uint16_t>::max()) {
        throw std::invalid_argument("the URL's port is not a number up to 65535");
    }
    if (colon == 0) throw std::invalid_argument("the URL names no host");
    // A request for nothing would be no HTTP.
    std::string pathText = slash < rest.size() ? rest.substr(slash) : "/";
    return {text.substr(0, schemeEnd), rest.substr(0, colon), portText, std::move(pathText)};
}

Network::Network(const std::wstring& url) : Network(parse(url)) {}

Network::Network(Address address)
    : protocol(std::move(address.protocol)), host(std::move(address.host)), port(std::move(address.port)),
      path(std::move(address.path)), connections([this] { return makeClientOf(protocol + "://" + host + ":" + port); },
                                                 std::max(connectionCount(), MOST_CONNECTIONS)) {
    networkState = true;
}

void Network::abandon() {
    networkState = false;
    connections.abandon();
}

std::string Network::lastFailure() const {
    std::lock_guard lock(mutex);
    return failure;
}

void Network::noteFailure(const std::string& text) {
    std::lock_guard lock(mutex);
    failure = text;
}

void Network::noteWait(std::chrono::nanoseconds wait) {
    const int64_t known = shortestWait;
    if (known == 0 || wait.count() < known) shortestWait = wait.count(); // of two at once either will do
}

Network::Outcome Network::exchange(const std::string& query, const Receiver& receiver) {
    if (!networkState) return Outcome::FAILED;
    const BrokenPipeGuard guard;
    try {
        const ConnectionPool::Lease lease = connections.take();
        if (!lease) return Outcome::FAILED;
        const auto start = std::chrono::steady_clock::now();
        bool hasBegun = false;
        bool fits = true;
        const httplib::Result result = lease.client().Get(path + query, [&](const char* bytes, size_t count) {
            if (!hasBegun) noteWait(std::chrono::steady_clock::now() - start);
            hasBegun = true;
            fits = receiver(bytes, count);
            return fits && lease.allowFor(count);
        });
        if (!fits) {
            logText("The answer is longer than expected\n");
            return Outcome::TOO_LONG;
        }
        if (result) {
            // What counts is the body; the status tells why it may be none of ours.
            const bool isWell = result->status >= 200 && result->status < 300;
            noteFailure(isWell ? "" : "the server answered with status " + std::to_string(result->status));
            return Outcome::ANSWERED;
        }
        noteFailure("the server does not answer: " + reasonOf(result.error()));
        logText(describe(result.error()) + "\n");
    } catch (const std::exception& problem) {
        noteFailure(std::string("the server does not answer: ") + problem.what());
        logText(std::string("Request failed, error: ") + problem.what() + "\n");
    }
    return Outcome::FAILED;
}

int Network::processQuery(const std::string& query, std::span<unsigned char> buffer) {
    size_t length = 0;
    const Outcome outcome = exchange(query, [&](const char* bytes, size_t count) {
        const size_t room = std::min(count, buffer.size() - length);
        std::memcpy(buffer.data() + length, bytes, room);
        length += room;
        return room == count;
    });
    if (outcome == Outcome::TOO_LONG) return -1;
    return outcome == Outcome::ANSWERED ? static_cast<int>(length) : 0;
}

bool Network::processQuery(const std::string& query, std::vector<unsigned char>& body, int64_t limit) {
    body.clear();
    const Outcome outcome = exchange(query, [&](const char* bytes, size_t count) {
        if (std::cmp_greater(count, limit - static_cast<int64_t>(body.size()))) return false;
        body.insert(body.end(), bytes, bytes + count);
        return true;
    });
    return outcome == Outcome::ANSWERED;
}

#pragma once

#include "remote/ConnectionPool.h"
#include "remote/RequestStop.h"

#include <chrono>
#include <string>

// One connection to one server, for whole requests and whole answers. Redirects are never followed. Any thread; one
// sends at a time, and others wait their turn.
class HttpsClient {
public:
    explicit HttpsClient(const ConnectionPool::MakeClient& makeClient) : connection(makeClient, 1) {}

    struct Answer {
        int status = -1;   // -1: there was no answer, or it broke off
        std::string error; // why there was none, in a few words
        std::string body;
    };

    // Sends a request and waits for the answer. One with a body of more than MOST_BODY bytes is no answer. With a
    // `stop`, the request fails as soon as that is requested.
    Answer exchange(httplib::Request request, RequestStop* stop = nullptr);

    static constexpr size_t MOST_BODY = size_t{64} << 20;
    static constexpr std::chrono::seconds MOST_TIME{120}; // for a body that comes in drops

private:
    ConnectionPool connection;
};

#pragma once

#include "remote/HttpsOrigin.h"
#include "remote/RequestStop.h"

#include <chrono>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

// One connection to one server, over TLS, whose certificate and host name are checked; kept alive between requests
// where asked. Redirects are never followed.
//
// One thread sends at a time; others wait their turn in exchange(). Only interrupt() may come in between.
class HttpsClient {
public:
    HttpsClient(const HttpsOrigin& origin, bool keepAlive);
    ~HttpsClient();
    HttpsClient(const HttpsClient&) = delete;
    HttpsClient& operator=(const HttpsClient&) = delete;

    // Sends targets as they are, rather than with the library's escaping. Called before the first request.
    void sendTargetsVerbatim() { http->set_url_encode(false); }

    struct Answer {
        int status = -1;        // -1: there was no answer, or it broke off
        int statusSeen = -1;    // that of the answer that broke off, or was refused by what takes it
        bool isRefused = false; // what takes the head or the body wanted no more of it
        std::string error;      // why there was none, in a few words
        std::string body;       // of an answer that no receiver of the caller's took
    };

    // Sends a request and waits for the answer. A body that the caller's receiver does not take is kept up to MOST_BODY
    // bytes; a longer one is no answer. With a `stop`, the request fails as soon as that is requested.
    Answer exchange(httplib::Request request, RequestStop* stop = nullptr);

    // Breaks off the request under way, if any. Any thread.
    void interrupt();

    static constexpr size_t MOST_BODY = size_t{64} << 20;
    static constexpr std::chrono::seconds MOST_TIME{120}; // for a body that comes in drops

private:
    void watchSocket(int handle);

    std::mutex turn;        // held for the length of a request; guards http
    std::mutex handleMutex; // guards socketHandle; innermost
    int socketHandle = -1;  // our own handle of the last socket, so that interrupt() never meets another file's
    std::unique_ptr<httplib::SSLClient> http;
};

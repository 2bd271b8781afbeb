#pragma once

#include "remote/ConnectionPool.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The client of one point server: asks for what lies at a path of it, over connections of its own.
//
// Every exchange is one GET, and whatever body comes back is the answer: the status is not looked at. What does not fit
// its buffer is cut off at the connection. docs/network.md describes the exchange. Any thread.
class Network {
public:
    // url  scheme, "://", host, ":", port, path. Throws std::exception when it is not of that form.
    explicit Network(const std::wstring& url);

    // False: no request is made from now on, and every query fails.
    void setNetworkState(bool state) { networkState = state; }

    // Puts the body into `buffer`. Returns its length; 0 when no answer came; -1 when it is longer than the buffer,
    // which then holds its beginning.
    int processQuery(const std::string& query, std::span<unsigned char> buffer);

    // The same for a body of up to `limit` bytes, with memory for no more than arrives. Returns whether an answer of at
    // most that length came.
    bool processQuery(const std::string& query, std::vector<unsigned char>& body, int64_t limit);

    // Why the last exchange failed, or the status of its answer when that is none of success, for people to read; empty
    // after others.
    [[nodiscard]] std::string lastFailure() const;

    // The shortest time from a request to the first byte of an answer so far; 0 before any.
    [[nodiscard]] std::chrono::nanoseconds roundTrip() const { return std::chrono::nanoseconds(shortestWait); }

    // Ends the exchanges under way, and lets none begin.
    void abandon();

private:
    struct Address {
        std::string protocol;
        std::string host;
        std::string port;
        std::string path;
    };
    // Takes the next bytes of a body; false when there is no room for them.
    using Receiver = std::function<bool(const char* bytes, size_t count)>;
    enum class Outcome { ANSWERED, TOO_LONG, FAILED };

    explicit Network(Address address);
    static Address parse(const std::wstring& url);
    void noteFailure(const std::string& text);
    void noteWait(std::chrono::nanoseconds wait);
    Outcome exchange(const std::string& query, const Receiver& receiver);

    std::atomic<bool> networkState{false}; // true once constructed
    const std::string protocol;
    const std::string host;
    const std::string port;
    const std::string path; // comes before every query
    ConnectionPool connections;
    std::atomic<int64_t> shortestWait{0}; // nanoseconds
    mutable std::mutex mutex;             // guards failure
    std::string failure;
};

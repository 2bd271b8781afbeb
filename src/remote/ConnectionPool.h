#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Connections that a client of one server keeps, clouds and the cloud service alike: 8, or one a core where there are
// more. Reads wait for the server rather than for a core, so that a machine with few cores needs as many.
//
// roundTrip  the shortest time that the server took to answer. From 10 ms on connections grow with it, up to 32: what
//            arrives in a second is bounded by requests under way over round trips
constexpr int MOST_CONNECTIONS = 32;
int connectionCount(std::chrono::nanoseconds roundTrip = {});

// Why an exchange came to nothing, for people; the HTTP library has no more than a word for it.
std::string reasonOf(httplib::Error error);

// Keeps the connections to one server open from request to request, and lends each to one thread at a time.
//
// It stands between the engine and servers that do not play by the rules. The HTTP library gives up on a server that is
// silent for as long as its time-outs, but would listen for ever to one that sends a byte now and then, or headers
// without end. The pool cuts such an exchange off. It also keeps a connection that breaks from ending the process by a
// signal, and lets a closing cloud abandon the requests that are under way.
//
// All operations may be called from any thread. No lease outlives its pool.
class ConnectionPool {
public:
    // What a server is allowed to take. Zero leaves a time-out of the library as it is.
    struct Patience {
        std::chrono::milliseconds connect{0};
        std::chrono::milliseconds read{0};
        std::chrono::milliseconds answer{15000}; // from the connection to the end of the headers
        size_t bytesPerSecond = 1024;            // of bodies, on the average since then
    };
    // What new pools take; for tests to shorten before there are any.
    static Patience patience;

    // Makes the client of a connection, set up for its server. What it throws gets out of the pool's making.
    using MakeClient = std::function<std::unique_ptr<httplib::ClientImpl>()>;
    ConnectionPool(const MakeClient& makeClient, int count);
    ~ConnectionPool();
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;

    // Ends the exchanges under way, and makes take() give empty leases from now on.
    void abandon();

private:
    struct Connection;

public:
    // A connection while one thread has it. Give it back by the end of its life, with the response of the library gone
    // or not.
    class Lease {
    public:
        Lease(ConnectionPool& poolIn, Connection* connectionIn);
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        // False when the pool was abandoned: there is no client then.
        explicit operator bool() const { return connection != nullptr; }
        [[nodiscard]] httplib::ClientImpl& client() const { return *connection->client; }

        // Bytes of the body have arrived, or are about to be sent: the exchange gets the time that these may take. Call
        // it from the content receiver, or before the request. False when the exchange was given up.
        bool allowFor(size_t bytes) const;

        // The patience begins anew, for a further request on the same lease.
        void restart() const;

        // Breaks off the exchange under way and all later ones of this lease, from any thread, while the lease lives.
        void interrupt() const;

    private:
        ConnectionPool& pool;
        Connection* const connection;
    };

    // The first connection that is free, waiting for one.
    [[nodiscard]] Lease take();

private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        std::unique_ptr<httplib::ClientImpl> client;
        bool busy = false;
        bool isInterrupted = false;     // the lease is to come to nothing
        bool isConnected = false;       // since `start`, as the watch saw it
        int socket = -1;                // a duplicate of the client's, so that it can be shut down at any time
        Clock::time_point start;        // of the patience
        std::atomic<size_t> allowed{0}; // bytes of bodies that have time
    };

    void keepSocket(Connection& connection, int socket);
    void watch();
    void check(Connection& connection, Clock::time_point now) const;
    [[nodiscard]] bool isAnyBusy() const;

    const Patience limits;
    std::vector<std::unique_ptr<Connection>> connections; // their fields but `allowed` are guarded by mutex
    std::mutex mutex;
    std::condition_variable freed;
    std::condition_variable taken; // for the watch
    std::atomic<bool> abandoned{false};
    bool ending = false;
    std::thread watcher; // made with the first lease
};

// While it lives, writing to a connection that the other side has closed is an error of the write, and raises no signal
// on the calling thread: the library writes without asking for that, and the default action would end the host.
class BrokenPipeGuard {
public:
    BrokenPipeGuard();
    ~BrokenPipeGuard();
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

private:
    bool wasBlocked = false;
};

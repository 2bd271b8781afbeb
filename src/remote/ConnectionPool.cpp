#include "remote/ConnectionPool.h"

#include "ground/Pools.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

// The library tells nobody its sockets but by the hook for socket options, and closes them when it likes. A duplicate
// names the same connection for as long as we keep it: shutting it down ends the exchange wherever it stands, in the
// making of the connection too, and can never hit a descriptor that was closed and given out anew.

namespace {

// How often running exchanges are looked at.
constexpr std::chrono::milliseconds TICK{50};

bool isPeerKnown(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    return ::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0;
}

} // namespace

int connectionCount(std::chrono::nanoseconds roundTrip) {
    constexpr int LEAST = 8;
    constexpr std::chrono::microseconds FOR_EACH{1250};
    const auto wanted = std::min<int64_t>(roundTrip / FOR_EACH, MOST_CONNECTIONS);
    return std::max({LEAST, maxCores(), static_cast<int>(wanted)});
}

std::string reasonOf(httplib::Error error) {
    switch (error) {
    case httplib::Error::Connection:
    case httplib::Error::ConnectionTimeout:
        return "no connection can be made";
    case httplib::Error::Read:
        return "the connection ended, or fell silent";
    case httplib::Error::Write:
        return "the connection ended";
    case httplib::Error::SSLConnection:
        return "no secure connection can be made";
    case httplib::Error::SSLServerVerification:
        return "its certificate is not trusted";
    default:
        return httplib::to_string(error);
    }
}

ConnectionPool::Patience ConnectionPool::patience;

ConnectionPool::ConnectionPool(const MakeClient& makeClient, int count) : limits(patience) {
    for (int i = 0; i < count; ++i) {
        auto made = std::make_unique<Connection>();
        Connection& connection = *made;
        connection.client = makeClient();
        if (limits.connect.count() > 0) connection.client->set_connection_timeout(limits.connect);
        if (limits.read.count() > 0) connection.client->set_read_timeout(limits.read);
        connection.client->set_socket_options([this, &connection](socket_t socket) { keepSocket(connection, socket); });
        connections.push_back(std::move(made));
    }
}

ConnectionPool::~ConnectionPool() {
    {
        std::lock_guard lock(mutex);
        ending = true;
    }
    taken.notify_all();
    if (watcher.joinable()) watcher.join();
    const BrokenPipeGuard guard; // a client says goodbye when it goes
    for (auto& connection : connections) {
        const int socket = connection->socket;
        connection.reset();
        if (socket >= 0) ::close(socket);
    }
}

// Called by the library between making a socket and connecting it.
void ConnectionPool::keepSocket(Connection& connection, int socket) {
    std::lock_guard lock(mutex);
    if (connection.socket >= 0) ::close(connection.socket);
    connection.socket = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    connection.isConnected = false;
}

void ConnectionPool::abandon() {
    {
        std::lock_guard lock(mutex);
        abandoned = true;
        for (const auto& connection : connections) {
            if (connection->busy && connection->socket >= 0) ::shutdown(connection->socket, SHUT_RDWR);
        }
    }
    freed.notify_all();
}

ConnectionPool::Lease ConnectionPool::take() {
    std::unique_lock lock(mutex);
    if (!watcher.joinable()) watcher = std::thread([this] { watch(); });
    const auto firstFree = [this] {
        return std::find_if(connections.begin(), connections.end(), [](const auto& next) { return !next->busy; });
    };
    freed.wait(lock, [&] { return abandoned || firstFree() != connections.end(); });
    if (abandoned) return {*this, nullptr};
    Connection* connection = firstFree()->get();
    connection->busy = true;
    connection->isInterrupted = false;
    connection->isConnected = false;
    connection->allowed = 0;
    taken.notify_one();
    return {*this, connection};
}

bool ConnectionPool::isAnyBusy() const {
    return std::any_of(connections.begin(), connections.end(), [](const auto& next) { return next->busy; });
}

void ConnectionPool::watch() {
    std::unique_lock lock(mutex);
    while (!ending) {
        if (!isAnyBusy()) {
            taken.wait(lock, [this] { return ending || isAnyBusy(); });
            continue;
        }
        taken.wait_for(lock, TICK, [this] { return ending; });
        const auto now = Clock::now();
        for (const auto& connection : connections) {
            if (connection->busy && connection->socket >= 0) check(*connection, now);
        }
    }
}

// Cuts the exchange off when it takes too long. While the connection is being made, the library's time-out holds.
void ConnectionPool::check(Connection& connection, Clock::time_point now) const {
    if (!abandoned && !connection.isInterrupted) {
        if (!connection.isConnected) {
            connection.isConnected = isPeerKnown(connection.socket);
            connection.start = now;
            return;
        }
        const std::chrono::duration<double> forBodies(static_cast<double>(connection.allowed) /
                                                      static_cast<double>(limits.bytesPerSecond));
        if (now - connection.start < limits.answer + forBodies) return;
    }
    ::shutdown(connection.socket, SHUT_RDWR);
}

ConnectionPool::Lease::Lease(ConnectionPool& poolIn, Connection* connectionIn)
    : pool(poolIn), connection(connectionIn) {}

ConnectionPool::Lease::~Lease() {
    if (!connection) return;
    {
        std::lock_guard lock(pool.mutex);
        connection->busy = false;
    }
    pool.freed.notify_one();
}

bool ConnectionPool::Lease::allowFor(size_t bytes) const {
    connection->allowed += bytes;
    return !pool.abandoned;
}

void ConnectionPool::Lease::restart() const {
    std::lock_guard lock(pool.mutex);
    connection->isConnected = false;
    connection->allowed = 0;
}

void ConnectionPool::Lease::interrupt() const {
    std::lock_guard lock(pool.mutex);
    if (!connection) return;
    connection->isInterrupted = true; // the watch sees to a socket that is yet to be made
    if (connection->socket >= 0) ::shutdown(connection->socket, SHUT_RDWR);
}

BrokenPipeGuard::BrokenPipeGuard() {
    sigset_t pipe;
    sigset_t before;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    wasBlocked = ::sigismember(&before, SIGPIPE) == 1;
}

BrokenPipeGuard::~BrokenPipeGuard() {
    if (wasBlocked) return;
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    // One that came meanwhile is taken away before the thread listens again. It came to this thread alone.
    const timespec now{};
    while (::sigtimedwait(&pipe, nullptr, &now) == -1 && errno == EINTR) {
    }
    ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

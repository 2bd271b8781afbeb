#include "stub/StubServer.h"

#include <list>
#include <sys/socket.h>

// The HTTP library closes idle connections by a timeout of whole seconds only, and its requests tell nothing about
// their sockets. The TLS layer below does: it reports each handshake, with the descriptor, and frees what was attached
// to the connection before the library closes the descriptor. So the open descriptors are known, for stop() to shut
// down and for a request to be cut off from its peer.

static constexpr size_t CONNECTIONS = 48;                   // served at a time
static constexpr int BACKLOG = 256;                         // the library has 5, and the others wait a second
static constexpr size_t LARGEST_PART = size_t{5} << 30;     // of bodies that go to the disk
static constexpr size_t LARGEST_API_BODY = size_t{1} << 20; // of those in memory
static constexpr const char* ANY_PATH = R"([\s\S]*)";

class OpenConnections {
public:
    void watch(SSL_CTX* context) {
        SSL_CTX_set_ex_data(context, contextSlot(), this);
        SSL_CTX_set_info_callback(context, noteHandshake);
    }

    // Now and whenever one begins later.
    void shutdownAll() {
        const std::scoped_lock lock(mutex);
        ending = true;
        for (const Connection& connection : open) shutdown(connection.descriptor, SHUT_RDWR);
    }

private:
    struct Connection {
        OpenConnections* owner;
        int descriptor;
        std::list<Connection>::iterator self;
    };

    static int contextSlot() {
        static const int slot = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
        return slot;
    }
    static int connectionSlot() {
        static const int slot = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, forget);
        return slot;
    }

    static void noteHandshake(const SSL* ssl, int where, int) {
        if (!(where & SSL_CB_HANDSHAKE_START) || SSL_get_ex_data(ssl, connectionSlot()) != nullptr) return;
        auto* owner = static_cast<OpenConnections*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), contextSlot()));
        const std::scoped_lock lock(owner->mutex);
        owner->open.push_back({owner, SSL_get_fd(ssl), {}});
        Connection& connection = owner->open.back();
        connection.self = std::prev(owner->open.end());
        // The callback's connection is const for reports only; this is the library's own thread for it.
        SSL_set_ex_data(const_cast<SSL*>(ssl), connectionSlot(), &connection);
        if (owner->ending) shutdown(connection.descriptor, SHUT_RDWR);
    }

    static void forget(void*, void* attached, CRYPTO_EX_DATA*, int, long, void*) {
        if (attached == nullptr) return;
        const auto* connection = static_cast<const Connection*>(attached);
        OpenConnections* owner = connection->owner;
        const std::scoped_lock lock(owner->mutex);
        owner->open.erase(connection->self);
    }

    std::mutex mutex; // guards everything below
    bool ending = false;
    std::list<Connection> open;
};

StubServer::StubServer(bool isStoreToServe, const StubAuthority::Identity& identity, RequestLog& logToUse)
    : isStore(isStoreToServe), log(logToUse), connections(std::make_unique<OpenConnections>()),
      server(identity.certificate.get(), identity.key.get()) {
    if (!server.is_valid()) throw std::runtime_error("there is no TLS server with this certificate");
    connections->watch(server.ssl_context());
    server.new_task_queue = [] { return new httplib::ThreadPool(CONNECTIONS); }; // NOLINT: the library deletes it
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(SIZE_MAX);
    server.set_keep_alive_timeout(30);
    server.set_read_timeout(30);
    server.set_write_timeout(30);
    server.set_payload_max_length(isStore ? LARGEST_PART : LARGEST_API_BODY);
    // Two programs on one port would take turns, so the library's SO_REUSEPORT stays out.
    server.set_socket_options([this](socket_t descriptor) {
        const int on = 1;
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        listening = descriptor;
    });
}

StubServer::~StubServer() {
    stop();
}

void StubServer::onGet(Work work) {
    server.Get(ANY_PATH, [this, work = std::move(work)](const httplib::Request& request, httplib::Response& response) {
        handle(request, response, nullptr, work);
    });
}

void StubServer::onPost(Work work) {
    server.Post(ANY_PATH, [this, work = std::move(work)](const httplib::Request& request, httplib::Response& response) {
        handle(request, response, nullptr, work);
    });
}

void StubServer::onPut(Work work) {
    server.Put(ANY_PATH, [this, work = std::move(work)](const httplib::Request& request, httplib::Response& response,
                                                        const httplib::ContentReader& body) {
        handle(request, response, &body, work);
    });
}

void StubServer::start(const std::string& host, int port) {
    boundPort = port == 0 ? server.bind_to_any_port(host) : server.bind_to_port(host, port) ? port : -1;
    if (boundPort <= 0) throw std::runtime_error("cannot listen on " + host + ":" + std::to_string(port));
    ::listen(listening, BACKLOG);
    thread = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield(); // before that, stop() would do nothing
}

void StubServer::stop() {
    if (!thread.joinable()) return;
    server.stop();
    connections->shutdownAll();
    thread.join();
}

// Connecting a socket to nowhere drops its connection with a reset, and leaves the descriptor to its owner.
void StubServer::resetConnection(const httplib::Request& request) {
    const sockaddr nowhere{AF_UNSPEC, {}};
    if (request.ssl != nullptr) connect(SSL_get_fd(request.ssl), &nowhere, sizeof nowhere);
}

static StubRequest describe(const httplib::Request& request, bool isStore) {
    StubRequest described;
    described.isStore = isStore;
    described.method = request.method;
    described.target = request.target;
    described.path = request.target.substr(0, request.target.find('?'));
    described.authorization = request.get_header_value("Authorization");
    described.forwardedFor = request.get_header_value("x-forwarded-for");
    described.contentType = request.get_header_value("Content-Type");
    described.origin = request.get_header_value("Origin");
    described.range = request.get_header_value("Range");
    described.body = request.body;
    return described;
}

void StubServer::handle(const httplib::Request& request, httplib::Response& response,
                        const httplib::ContentReader* body, const Work& work) {
    const StubFault fault = log.arrive(describe(request, isStore));
    const bool hasEnded = fault.delay.count() > 0 && !log.wait(fault.delay);
    if (fault.reset || hasEnded) return resetConnection(request);
    if (fault.status == 0) return work({request, response, fault, body});
    // What is not read would be taken for the next request.
    if (body != nullptr) (*body)([](const char*, size_t) { return true; });
    response.status = fault.status;
    if (!fault.location.empty()) response.set_header("Location", fault.location);
    response.set_content(fault.body, "application/xml");
}

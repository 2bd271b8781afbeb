#include "serve/PointServer.h"
#include "support/Failure.h"

#include <httplib.h>
#define PICOJSON_USE_INT64
#include <picojson.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/socket.h>

// The HTTP library keeps a thread at each connection until that closes. Its own pool has a fixed number of threads and
// lets any number of connections queue for them; this one makes threads as they are needed, and lets the rest wait in
// the system's queue, where a client sees a slow server rather than a silent one.

namespace {

constexpr const char* BYTES = "application/octet-stream";
constexpr const char* JSON = "application/json";
constexpr const char* TEXT = "text/plain";

class ConnectionThreads final : public httplib::TaskQueue {
public:
    explicit ConnectionThreads(size_t mostIn) : most(mostIn) {}

    void enqueue(std::function<void()> job) override {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return busy + jobs.size() < most; });
        jobs.push_back(std::move(job));
        if (threads.size() - busy < jobs.size()) threads.emplace_back([this] { work(); });
        changed.notify_all();
    }

    void shutdown() override {
        {
            std::lock_guard lock(mutex);
            ending = true;
        }
        changed.notify_all();
        for (std::thread& thread : threads) thread.join();
    }

private:
    void work() {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return ending || !jobs.empty(); });
            if (jobs.empty()) return;
            const std::function<void()> job = std::move(jobs.front());
            jobs.pop_front();
            ++busy;
            lock.unlock();
            job();
            lock.lock();
            --busy;
            changed.notify_all();
        }
    }

    const size_t most;
    std::mutex mutex; // guards everything below
    std::condition_variable changed;
    std::deque<std::function<void()>> jobs;
    size_t busy = 0;
    bool ending = false;
    std::vector<std::thread> threads;
};

// What a client sent, fit for a line of the log.
std::string printable(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c < ' ' || c > '~' || c == '"' || c == '\\') {
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(c));
        } else {
            out += c;
        }
    }
    return out;
}

std::string logLine(const httplib::Request& request, const httplib::Response& response) {
    return fmt::format("{} - - [{:%d/%b/%Y:%H:%M:%S} +0000] \"{} {} {}\" {} {}\n", request.remote_addr,
                       fmt::gmtime(std::time(nullptr)), printable(request.method), printable(request.target),
                       printable(request.version), response.status, response.body.size());
}

std::string escapePath(const std::string& name) {
    std::string out;
    for (const char c : name) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             std::string_view("/-._~").find(c) != std::string_view::npos;
        if (isPlain) {
            out += c;
        } else {
            fmt::format_to(std::back_inserter(out), "%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return out;
}

void fill(httplib::Response& response, int status, std::string body, const char* type) {
    response.status = status;
    response.body = std::move(body);
    response.set_header("Content-Type", type);
}

std::optional<uint64_t> wholeNumber(const std::string& text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// The port of either end's address, where it has one.
int portOf(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return -1;
}

} // namespace

PointServer::PointServer(Catalogue& catalogueToServe, const Settings& settings, Line log, Line note)
    : catalogue(catalogueToServe), noteLine(std::move(note)), server(std::make_unique<httplib::Server>()) {
    using Handled = httplib::Server::HandlerResponse;
    int listening = -1;
    // The library would let a second server share the port. It also lets few connections wait.
    server->set_socket_options([&listening](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        listening = socket;
    });
    server->set_tcp_nodelay(true); // headers and body are two writes
    server->set_keep_alive_max_count(1000000);
    server->set_payload_max_length(0);
    server->set_default_headers({{"Access-Control-Allow-Origin", "*"},
                                 {"Access-Control-Allow-Methods", "GET, HEAD, OPTIONS"},
                                 {"Access-Control-Allow-Headers", "*"}});
    server->new_task_queue = [most = settings.mostThreads] {
        return new ConnectionThreads(most);
    }; // owned by the server
    // Instead of the library's routing, which matches paths with regular expressions.
    server->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return answer(request, response) ? Handled::Handled : Handled::Unhandled;
    });
    server->set_logger([log = std::move(log)](const httplib::Request& request, const httplib::Response& response) {
        log(logLine(request, response));
    });
    const std::string name = fmt::format("{}:{}", settings.address, settings.port);
    if (settings.port == 0) {
        listeningPort = server->bind_to_any_port(settings.address);
    } else if (server->bind_to_port(settings.address, settings.port)) {
        listeningPort = settings.port;
    }
    if (listeningPort < 0)
        throw CommandFailure(name, "cannot be listened at: the port is taken or not allowed, or the address not ours");
    constexpr int MOST_WAITING = 512;
    ::listen(listening, MOST_WAITING);
    server->set_socket_options(nullptr);
}

PointServer::~PointServer() {
    stop();
}

void PointServer::start() {
    listener = std::thread([this] { server->listen_after_bind(); });
}

// Workers sleep in reads of idle connections, and nobody else knows these: an end to what they read wakes them, while
// an answer that is on its way still goes out.
void PointServer::endIdleConnections() const {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const auto number = wholeNumber(entry.path().filename().string());
        if (!number) continue;
        const int descriptor = static_cast<int>(*number);
        sockaddr_storage address{};
        socklen_t length = sizeof(address);
        if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) continue;
        if (portOf(address) == listeningPort) ::shutdown(descriptor, SHUT_RD);
    }
}

void PointServer::stop() {
    if (!listener.joinable()) return;
    while (!server->is_running()) std::this_thread::yield(); // the listener is about to begin
    server->stop();
    std::atomic<bool> ended{false};
    std::thread waker([&] {
        // Again and again, for a connection that was just being accepted.
        while (!ended) {
            endIdleConnections();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    listener.join();
    ended = true;
    waker.join();
}

// False for a request that is not for us, which the library then refuses.
bool PointServer::answer(const httplib::Request& request, httplib::Response& response) {
    if (request.method == "OPTIONS") {
        response.status = 204;
        return true;
    }
    if (request.method != "GET" && request.method != "HEAD") return false;
    if (request.path == "/") {
        answerList(response);
    } else if (const auto entry = catalogue.find(request.path)) {
        answerCloud(request, *entry, response);
    } else {
        fill(response, 404, "There is no such point file.\n", TEXT);
    }
    return true;
}

void PointServer::answerList(httplib::Response& response) {
    picojson::array files;
    for (const auto& [name, entry] : catalogue.list()) {
        picojson::object file;
        file["path"] = picojson::value(escapePath(name));
        file["version"] = picojson::value(int64_t{entry.version});
        file["nodes"] = picojson::value(int64_t{entry.nodes});
        file["points"] = picojson::value(entry.points);
        file["size"] = picojson::value(static_cast<int64_t>(entry.size));
        files.emplace_back(file);
    }
    fill(response, 200, picojson::value(files).serialize(true), JSON);
}

void PointServer::answerCloud(const httplib::Request& request, const CatalogueEntry& entry,
                              httplib::Response& response) {
    const std::shared_ptr<const ServedCloud> cloud = open(entry);
    if (!cloud) return fill(response, 403, "This point file can't be served.\n", TEXT);
    if (request.has_param("info")) return fill(response, 200, cloud->info(), JSON);
    std::optional<std::string> body;
    if (request.has_param("tree")) {
        body = cloud->tree();
    } else if (const auto number = wholeNumber(request.get_param_value("node"))) {
        body = cloud->node(*number);
    } else {
        return fill(response, 400, "Ask with ?info, ?tree or ?node=NUMBER.\n", TEXT);
    }
    if (!body) return fill(response, 404, "There is no such node, or it can't be read.\n", TEXT);
    fill(response, 200, std::move(*body), BYTES);
}

std::shared_ptr<const ServedCloud> PointServer::open(const CatalogueEntry& entry) {
    std::lock_guard lock(cloudsMutex);
    const auto [known, isNew] = clouds.try_emplace(entry.file);
    if (!isNew) return known->second;
    try {
        known->second = std::make_shared<const ServedCloud>(entry);
    } catch (const std::exception& failure) {
        noteLine(failure.what());
    }
    return known->second;
}

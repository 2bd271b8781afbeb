#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// A server on loopback that sends exactly the bytes it is told to, be they HTTP or not.
class RawServer {
public:
    // One connection, while a request on it is answered.
    class Peer {
    public:
        Peer(int socketIn, const std::atomic<bool>& endingIn) : socket(socketIn), ending(endingIn) {}
        // False when the client or the server is gone.
        bool send(std::string_view bytes) const;
        // Sends `piece` every few milliseconds until the client or the server is gone.
        void repeat(std::string_view piece, int pauseMs) const;
        // Sends nothing until the client or the server is gone.
        void keepSilent() const;

    private:
        const int socket;
        const std::atomic<bool>& ending;
    };

    // Answers a request for `target` and returns whether the connection stays. Called on a thread per connection.
    using Handler = std::function<bool(const std::string& target, const Peer& peer)>;

    explicit RawServer(Handler handlerIn);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] int port() const { return listeningPort; }
    // http://127.0.0.1:PORT, then the path.
    [[nodiscard]] std::wstring url(const std::wstring& path) const;
    // The first lines of all requests so far.
    [[nodiscard]] std::vector<std::string> requests() const;
    [[nodiscard]] int connections() const { return accepted; }

    // A whole answer with this body.
    static std::string answer(std::string_view body, const char* status = "200 OK");

private:
    void accept();
    void serve(int socket);

    const Handler handler;
    int listening = -1;
    int listeningPort = 0;
    std::atomic<bool> ending{false};
    std::atomic<int> accepted{0};
    mutable std::mutex mutex; // guards the two below
    std::vector<std::string> lines;
    std::vector<std::pair<int, std::thread>> peers; // socket and thread
    std::thread acceptor;
};

#pragma once

#include "stub/RequestLog.h"
#include "stub/StubAuthority.h"

#include <functional>
#include <httplib.h>
#include <memory>
#include <string>
#include <thread>

class OpenConnections;

// One HTTPS server: notes what comes in, lets happen what the hook wants to go wrong, and leaves the rest to its work.
class StubServer {
public:
    struct Exchange {
        const httplib::Request& request;
        httplib::Response& response;
        const StubFault& fault;
        const httplib::ContentReader* body; // of a PUT, which is not in memory; null for other methods
    };
    using Work = std::function<void(const Exchange&)>;

    // `log` outlives the server. Throws std::runtime_error.
    StubServer(bool isStore, const StubAuthority::Identity& identity, RequestLog& log);
    ~StubServer();
    StubServer(const StubServer&) = delete;
    StubServer& operator=(const StubServer&) = delete;

    // What to do with a request, on any of many threads. Set both before start().
    void onGet(Work work);
    void onPost(Work work);
    void onPut(Work work);

    // Listens from here on. Throws std::runtime_error when it cannot.
    void start(const std::string& host, int port);
    // Ends open connections and waits for what works on them.
    void stop();
    [[nodiscard]] int port() const { return boundPort; }

    // The peer learns of it as a reset, whatever it was about to send or to be sent.
    static void resetConnection(const httplib::Request& request);

private:
    void handle(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader* body,
                const Work& work);

    const bool isStore;
    RequestLog& log;
    std::unique_ptr<OpenConnections> connections; // outlives `server`
    httplib::SSLServer server;
    std::thread thread; // accepts
    int listening = -1; // the server's own descriptor
    int boundPort = 0;
};

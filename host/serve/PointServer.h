#pragma once

#include "serve/Catalogue.h"
#include "serve/ServedCloud.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

// Serves the point files of a catalogue over HTTP. A file is opened with the first request for it and stays open.
//
// Each connection has a thread of its own for as long as it lasts; beyond the limit, connections wait to be accepted.
class PointServer {
public:
    struct Settings {
        std::string address;
        int port = 0;           // 0 for one that is free
        size_t mostThreads = 0; // and connections
    };

    // Begins to listen, without serving yet. Throws CommandFailure when the address or the port can't be had.
    //
    // log   takes a line about each request, in the form of web servers' common log; called on several threads
    // note  takes what went wrong with a file; likewise
    using Line = std::function<void(const std::string& line)>;
    PointServer(Catalogue& catalogueToServe, const Settings& settings, Line log, Line note);
    ~PointServer(); // stop()
    PointServer(const PointServer&) = delete;
    PointServer& operator=(const PointServer&) = delete;

    [[nodiscard]] int port() const { return listeningPort; }

    // Serves on threads of its own.
    void start();

    // Lets the requests that are under way finish, and closes all connections.
    void stop();

private:
    bool answer(const httplib::Request& request, httplib::Response& response);
    void answerList(httplib::Response& response);
    void answerCloud(const httplib::Request& request, const CatalogueEntry& entry, httplib::Response& response);
    std::shared_ptr<const ServedCloud> open(const CatalogueEntry& entry);
    void endIdleConnections() const;

    Catalogue& catalogue;
    const Line noteLine;
    std::unique_ptr<httplib::Server> server;
    int listeningPort = -1;
    std::thread listener;
    std::mutex cloudsMutex;                                           // guards clouds, and lets one be opened at a time
    std::map<std::string, std::shared_ptr<const ServedCloud>> clouds; // by file; null for one that can't be served
};

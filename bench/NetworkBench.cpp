// How long a cloud of a point server takes from loadPointCloudNetwork to a fully loaded view, and how many requests a
// second a server answers.
//
//   NetworkBench FILE                                 a point file from disk, and from a server in this process that
//                                                     answers each request 0, 20 and 80 ms late
//   NetworkBench URL COUNT [CONNECTIONS] [SECONDS]    requests for URL0, URL1 ... to a server, over connections that
//                                                     stay open; 8 for 5 seconds unless told
//
// The server of the first form has all bodies in memory, so that what is measured is the client.

#include "nimbrel/NimbrelEngine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <httplib.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// The bodies of a point server, from a cloud that is open. The places of points do not matter here, and are those of
// the file.
struct Bodies {
    std::string info;
    std::string tree;
    std::vector<std::string> nodes;
};

Bodies bodiesOf(int id) {
    Bodies bodies;
    double box[6];
    getOrigin(id, box);
    const int nodes = getNodeCount(id);
    char text[512];
    std::snprintf(
        text, sizeof(text),
        R"({"BoundingBox":[%.17g,%.17g,%.17g,%.17g,%.17g,%.17g],"Nodes":%d,"Version":17,"Points":%lld,"Reserved":0})",
        box[0], box[1], box[2], box[3], box[4], box[5], nodes, static_cast<long long>(getPointCount(id)));
    bodies.info = text;
    bodies.tree.resize(static_cast<size_t>(nodes) * 3);
    getTreeStructure(id, bodies.tree.data());
    for (int node = 0; node < nodes; ++node) {
        const auto count = static_cast<size_t>(getNodePointCount(id, node));
        std::vector<double> xyz(count * 3);
        std::vector<char> colour(count * 5);
        if (count > 0) getNodePoints(id, node, xyz.data(), colour.data());
        std::string body;
        for (size_t i = 0; i < count; ++i) {
            for (size_t axis = 0; axis < 3; ++axis) {
                const auto ordinate = static_cast<float>(xyz[i * 3 + axis]);
                body.append(reinterpret_cast<const char*>(&ordinate), sizeof(ordinate));
            }
            body.append(&colour[i * 5], 5);
        }
        bodies.nodes.push_back(std::move(body));
    }
    return bodies;
}

// Loads all of a cloud for a camera above it; the time from `begin`.
double loadView(int id, Clock::time_point begin) {
    double box[6];
    getOrigin(id, box);
    const glm::dvec3 centre((box[0] + box[3]) / 2, (box[1] + box[4]) / 2, (box[2] + box[5]) / 2);
    const double extent = std::max({box[3] - box[0], box[4] - box[1], box[5] - box[2]});
    const glm::dvec3 eye = centre + glm::dvec3(0, 0, extent * 2);
    const glm::dmat4 view = glm::lookAt(eye, centre, glm::dvec3(0, 1, 0));
    const glm::dmat4 projection = glm::ortho(-extent, extent, -extent, extent, 0.1, extent * 4);
    setCamera(1, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), 45.0, 1 << 20, true);
    const double time = millisecondsSince(begin);
    if (getWindowPointCount(1) != getPointCount(id)) std::fprintf(stderr, "not all of the cloud is loaded\n");
    return time;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename Open>
void measure(const char* name, int rounds, Open open) {
    std::vector<double> opened, loaded;
    for (int round = 0; round < rounds; ++round) {
        const auto begin = Clock::now();
        const int id = open();
        if (id < 0) return static_cast<void>(std::fprintf(stderr, "%s: %s\n", name, nimbrelLastError()));
        opened.push_back(millisecondsSince(begin));
        loaded.push_back(loadView(id, begin));
        closePointCloud(id);
    }
    std::fprintf(stderr, "%-24s open after %8.1f ms, loaded after %8.1f ms\n", name, median(opened), median(loaded));
}

int benchLatency(const std::string& path) {
    const std::wstring file(path.begin(), path.end()); // ASCII
    const int id = loadPointCloudFile(file.c_str());
    if (id < 0) return 1;
    const Bodies bodies = bodiesOf(id);
    std::fprintf(stderr, "%d nodes, %lld points\n", getNodeCount(id), static_cast<long long>(getPointCount(id)));
    closePointCloud(id);
    measure("local disk", 5, [&] { return loadPointCloudFile(file.c_str()); });

    std::atomic<int> latencyMs{0};
    httplib::Server server;
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1000000);
    server.new_task_queue = [] { return new httplib::ThreadPool(64); }; // owned by the server
    server.set_pre_routing_handler([&](const httplib::Request& request, httplib::Response& response) {
        std::this_thread::sleep_for(std::chrono::milliseconds(latencyMs));
        if (request.has_param("info")) {
            response.body = bodies.info;
        } else if (request.has_param("tree")) {
            response.body = bodies.tree;
        } else {
            response.body = bodies.nodes.at(std::stoul(request.get_param_value("node")));
        }
        response.status = 200;
        return httplib::Server::HandlerResponse::Handled;
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread listener([&server] { server.listen_after_bind(); });
    const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(port) + L"/cloud";
    for (const int latency : {0, 20, 80}) {
        latencyMs = latency;
        const std::string name = "server, " + std::to_string(latency) + " ms a request";
        measure(name.c_str(), 5, [&] { return loadPointCloudNetwork(url.c_str()); });
    }
    server.stop();
    listener.join();
    return 0;
}

int benchServer(const std::string& url, int count, int connections, int seconds) {
    const size_t pathStart = url.find('/', url.find("://") + 3);
    std::atomic<int64_t> requests{0}, bytes{0}, failures{0};
    std::vector<std::thread> clients;
    const auto begin = Clock::now();
    for (int i = 0; i < connections; ++i) {
        clients.emplace_back([&, next = i * count / connections]() mutable {
            httplib::Client client(url.substr(0, pathStart));
            client.set_keep_alive(true);
            while (millisecondsSince(begin) < seconds * 1000.0) {
                const auto result =
                    client.Get(url.substr(pathStart) + std::to_string(next++ % count), [&](const char*, size_t size) {
                        bytes += static_cast<int64_t>(size);
                        return true;
                    });
                ++(result && result->status == 200 ? requests : failures);
            }
        });
    }
    for (std::thread& client : clients) client.join();
    const double time = millisecondsSince(begin) / 1000.0;
    std::fprintf(stderr, "%d connections: %.0f requests/s, %.0f MiB/s, %lld failed\n", connections,
                 static_cast<double>(requests) / time, static_cast<double>(bytes) / time / 1048576.0,
                 static_cast<long long>(failures));
    return 0;
}

} // namespace

// The engine's diagnostics would stand between the results, which therefore go to standard error.
int main(int argc, char** argv) {
    if (argc < 2 || !std::freopen("/dev/null", "w", stdout)) return 1;
    if (argc > 2) {
        return benchServer(argv[1], std::atoi(argv[2]), argc > 3 ? std::atoi(argv[3]) : 8,
                           argc > 4 ? std::atoi(argv[4]) : 5);
    }
    if (initEngine("bench") != 1) return 1;
    const int status = benchLatency(argv[1]);
    shutdownEngine();
    return status;
}

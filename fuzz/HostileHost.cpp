#include "HostileHost.h"

#include "HostCalls.h"
#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "render/HostPicture.h"
#include "support/HeadlessContext.h"
#include "support/RawServer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <thread>

// A picture to draw on.
struct HostileHost::Graphics {
    HeadlessContext context;
    HostPicture picture{64, 64};
};

// A point server with a cloud of a root over two leaves, which breaks off under /bad.
struct HostileHost::Server {
    static bool answer(const std::string& target, const RawServer::Peer& peer) {
        std::string body(17 * 20, '\0');
        if (target.ends_with("?info")) {
            body = R"({"BoundingBox":[0,0,0,8,4,2],"Nodes":3,"Version":18,"Points":60,"Reserved":0})";
        } else if (target.ends_with("?tree")) {
            body = {7, 20, 0, 4, 20, 0, 4, 20, 0};
        } else if (target.starts_with("/bad")) {
            body.resize(10);
        }
        return peer.send(RawServer::answer(body));
    }
    RawServer server{answer};
};

// Before the folder builds its clouds. The diagnostics go nowhere; findings come on standard error. A limit on the size
// of files stands for a full disk, which models of tiny voxels would otherwise fill.
static void prepare() {
    constexpr rlimit LARGEST_FILE{16 << 20, 16 << 20};
    ::setrlimit(RLIMIT_FSIZE, &LARGEST_FILE);
    std::signal(SIGXFSZ, SIG_IGN);
    if (!std::freopen("/dev/null", "w", stdout) || initEngine("key") != 1) std::abort();
}

HostileHost::HostileHost()
    : folder((prepare(), HostFolder())), server(std::make_unique<Server>()), graphics(std::make_unique<Graphics>()) {}

HostileHost::~HostileHost() = default;

void HostileHost::playShares(std::span<const uint8_t> bytes, size_t threads) {
    const std::string url = "http://127.0.0.1:" + std::to_string(server->server.port());
    const size_t share = bytes.size() / threads;
    const auto playShare = [&](size_t place) {
        const HostArguments arguments(place + 1 == threads ? bytes.subspan(share * place)
                                                           : bytes.subspan(share * place, share));
        HostThread thread{arguments, folder, url, place == 0, threads == 1};
        while (!thread.arguments.isEmpty()) thread.call();
    };
    std::vector<std::thread> others;
    for (size_t place = 1; place < threads; ++place) others.emplace_back(playShare, place);
    playShare(0);
    for (std::thread& other : others) other.join();
}

// Back to a fresh engine, as far as a host can get there.
void HostileHost::tidyUp() {
    cancelOPC();
    closeTempCache();
    stopHistoryRecording();
    nimbrelWaitForHistory();
    clearHistory();
    setGlimmetEndpoints("", "", "");
    setForceRender(false);
    savePPMImage(L""); // in place of one that waits for a frame
    setLasClassifications(std::vector<unsigned char>(1024, 0).data());
    while (!pointClouds.empty()) closePointCloud(pointClouds.back()->getID());
    selectPointsByVolume(nullptr, 0, false, false); // disarms what is armed
    initEngine("key");
}

void HostileHost::play(std::span<const uint8_t> bytes, size_t threads) {
    graphics->picture.bind();
    folder.refresh();
    playShares(bytes, threads);
    tidyUp();
    folder.check();
}

void HostileHost::shutDown(std::span<const uint8_t> bytes) {
    folder.refresh();
    shutdownEngine();
    playShares(bytes, 1);
}

#include "engine/EngineTest.h"
#include "format/PointCloudFile.h"
#include "ground/Log.h"
#include "remote/ConnectionPool.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "support/RawServer.h"

#include <chrono>
#include <cstring>
#include <future>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <set>
#include <thread>

// The client of point servers, against servers that answer byte by byte as these tests say.

namespace {

using Peer = RawServer::Peer;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

// A point of the wire: 32-bit floats, then attributes from `seed`.
Bytes wirePoint(float x, float y, float z, unsigned char seed) {
    Bytes out;
    for (const float ordinate : {x, y, z}) {
        uint32_t bits;
        std::memcpy(&bits, &ordinate, sizeof(bits));
        putLittle(out, bits, 4);
    }
    for (int k = 0; k < 5; ++k) out.push_back(static_cast<unsigned char>(seed + k));
    return out;
}

const char* const INFO =
    R"({"BoundingBox":[0,0,0,8,4.0,2e0],"Nodes":3,"Version":18,"Points":4,"Reserved":0,"More":[]})";
const Bytes TREE{7, 2, 0, 4, 1, 0, 4, 1, 0}; // a root of two points over two children of one
const Bytes NODES[] = {wirePoint(1.0F, 2.0F, 0.5F, 10) + wirePoint(0.25F, 0.0F, 1.0F, 20), wirePoint(3.5F, 0, 0, 30),
                       wirePoint(2.0F, 3.0F, 1.0F, 40)};

// The bodies of one cloud, by what is asked for.
std::string body(const std::string& target) {
    if (target.ends_with("?info")) return INFO;
    if (target.ends_with("?tree")) return text(TREE);
    return text(NODES[target.back() - '0']);
}

bool answerWell(const std::string& target, const Peer& peer) {
    return peer.send(RawServer::answer(body(target)));
}

class FileNetworkTest : public EngineTest {
protected:
    FileNetworkTest() { ConnectionPool::patience = {60000ms, 60000ms, 60000ms, 1}; } // longer than a test may take
    ~FileNetworkTest() override { ConnectionPool::patience = {}; }

    static void look(int window, bool wait) {
        const glm::dvec3 eye(4.0, 2.0, 12.0);
        const glm::dmat4 view = glm::translate(glm::dmat4(1.0), -eye);
        const glm::dmat4 projection = glm::ortho(-4.0, 4.0, -2.0, 2.0, 1.0, 20.0);
        setCamera(window, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), 45.0, 100000, wait);
    }
    static int residentNodes(int id) {
        int count = 0;
        for (int i = 0; i < getNodeCount(id); ++i) {
            count += findCloud(id)->getOPC().getNode(i)->getGPUBatch(0)->isResident() ? 1 : 0;
        }
        return count;
    }
};

} // namespace

TEST_F(FileNetworkTest, ReadsACloudExactlyAsItIsSent) {
    const RawServer server(answerWell);
    const int id = loadPointCloudNetwork(server.url(L"/a b/c.opc").c_str());
    ASSERT_EQ(0, id) << lastError();
    EXPECT_EQ((std::vector<std::string>{"GET /a%20b/c.opc?info HTTP/1.1", "GET /a%20b/c.opc?tree HTTP/1.1"}),
              server.requests());
    EXPECT_EQ(1, server.connections()); // kept
    EXPECT_EQ(3, getNodeCount(id));
    EXPECT_EQ(4, getPointCount(id));
    EXPECT_EQ(18, getVersion(id));
    EXPECT_TRUE(headerChanged(id));
    EXPECT_FALSE(findCloud(id)->isWritable());
    EXPECT_TRUE(findCloud(id)->getFile().isReadOnly());
    Bytes tree(TREE.size());
    getTreeStructure(id, reinterpret_cast<char*>(tree.data()));
    EXPECT_EQ(TREE, tree);

    look(0, true);
    EXPECT_EQ(3, residentNodes(id));
    double xyz[6];
    Bytes colour(10);
    getNodePoints(id, 2, xyz, reinterpret_cast<char*>(colour.data()));
    EXPECT_EQ((std::vector<double>{6.0, 3.0, 1.0}), std::vector<double>(xyz, xyz + 3)); // its corner is at 4, 0, 0
    unregisterWindow(0);
    EXPECT_EQ(0, residentNodes(id));
    getNodePoints(id, 0, xyz, reinterpret_cast<char*>(colour.data()));
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 0.5, 0.25, 0.0, 1.0}), std::vector<double>(xyz, xyz + 6));
    EXPECT_EQ((Bytes{10, 11, 12, 13, 14, 20, 21, 22, 23, 24}), colour);
}

TEST_F(FileNetworkTest, LoadsNothingFromAServerThatMisbehaves) {
    ConnectionPool::patience = {2000ms, 300ms, 600ms, 100000}; // as of a library that gives up soon
    const auto info = [](const char* nodes, const char* version, const char* rest) {
        return std::string(R"({"BoundingBox":[0,0,0,8,4,2],"Nodes":)") + nodes + R"(,"Version":)" + version + rest;
    };
    static constexpr char REST[] = R"(,"Points":4,"Reserved":0})";
    std::string nested = R"({"More":)" + std::string(450, '[') + std::string(450, ']') + "," + (INFO + 1);
    const auto sends = [](std::string bytes) {
        return [bytes = std::move(bytes)](const Peer& peer) { peer.send(bytes); };
    };
    const auto goesOn = [](const char* start, const char* piece, int pauseMs) {
        return [=](const Peer& peer) {
            if (peer.send(start)) peer.repeat(piece, pauseMs);
        };
    };
    const auto bodies = [&](const std::string& sent) { return sends(RawServer::answer(sent)); };
    using Answer = std::function<void(const Peer&)>;
    const std::tuple<const char*, const char*, Answer> cases[] = {
        {"is silent", "?info", [](const Peer& peer) { peer.keepSilent(); }},
        {"is no HTTP", "?info", sends("SSH-2.0-OpenSSH_9.2\r\n")},
        {"headers drip", "?info", goesOn("", "H", 20)},
        {"headers never end", "?info", goesOn("HTTP/1.1 200 OK\r\n", "X-More: and more\r\n", 1)},
        {"body drips", "?info", goesOn("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", " ", 50)},
        {"body never ends", "?info", goesOn("HTTP/1.1 200 OK\r\n\r\n", "many blanks", 0)},
        {"chunks never end", "?tree",
         goesOn("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "2\r\nab\r\n", 0)},
        {"ends before its length", "?info", sends("HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n{")},
        {"is compressed, and is not", "?info",
         sends("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n"
               "Content-Length: 4\r\n\r\n\x1F\x8B\x08\x08")},
        {"info of 1024 bytes", "?info", bodies(INFO + std::string(1024 - std::strlen(INFO), ' '))},
        {"info is no JSON", "?info", bodies("<html>404</html>")},
        {"info is nested", "?info", bodies(nested)},
        {"key is missing", "?info", bodies(R"({"BoundingBox":[0,0,0,8,4,2],"Nodes":3,"Version":17,"Points":4})")},
        {"count is a fraction", "?info", bodies(info("3.5", "17", REST))},
        {"box without end", "?info",
         bodies(R"({"BoundingBox":[0,0,0,8,4,1e999],"Nodes":3,"Version":17,"Points":4,"Reserved":0})")},
        {"no nodes", "?info", bodies(info("0", "17", REST))},
        {"all nodes there can be", "?info", bodies(info("2147483647", "17", REST))},
        {"points beyond 32 bits", "?info", bodies(info("3", "17", R"(,"Points":2147483648,"Reserved":0})"))},
        {"block of 2^62 bytes", "?info", bodies(info("3", "90", R"(,"Points":4,"Reserved":4611686018427387904})"))},
        {"tree is short", "?tree", bodies(text(TREE).substr(1))},
        {"tree is long", "?tree", bodies(text(TREE) + "x")},
        {"tree has more nodes than it has", "?tree", bodies(text({7, 2, 0, 7, 1, 0, 7, 1, 0}))},
    };
    std::string any(1 << 20, ' ');
    for (const auto& [name, query, answer] : cases) {
        const RawServer server([&query = query, &answer = answer](const std::string& target, const Peer& peer) {
            if (!target.ends_with(query)) return answerWell(target, peer);
            answer(peer);
            return false;
        });
        const auto start = steady_clock::now();
        EXPECT_EQ(-1, loadPointCloudNetwork(server.url(L"/c").c_str())) << name;
        getURLData(toUtf8(server.url(L"")).c_str(), (std::string("/c") + query).c_str(), any.data());
        EXPECT_LT(steady_clock::now() - start, 60s) << name; // the library alone would listen on
        EXPECT_NE("", lastError()) << name;
        EXPECT_TRUE(pointClouds.empty()) << name;
    }
    for (const wchar_t* url : {L"", L":", L"http://localhost", L"http://localhost/c", L"http://:80/c",
                               L"http://localhost:99999/c", L"ftp://localhost:21/c", L"http://[::1]:80/c"}) {
        EXPECT_EQ(-1, loadPointCloudNetwork(url)) << toUtf8(url);
    }
    EXPECT_EQ(-1, loadPointCloudNetwork((L"http://" + std::wstring(1 << 20, L'a') + L":80/c").c_str()));
    EXPECT_EQ(-1, loadPointCloudNetwork(nullptr));
}

TEST_F(FileNetworkTest, NodeThatIsNotAnsweredStaysAbsentUntilTheNextCamera) {
    const std::string whole = text(NODES[2]);
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"short", RawServer::answer(whole.substr(1)), false},
        {"long", RawServer::answer(whole + "x"), false},
        {"far too long", RawServer::answer(std::string(1 << 20, 'x')), false},
        {"nothing", "", false},
        {"an error page", RawServer::answer("Not Found", "404 Not Found"), false},
        {"an error of the right length", RawServer::answer(whole, "404 Not Found"), true}, // the status does not count
    };
    for (const auto& [name, answer, isLoaded] : cases) {
        std::atomic<bool> misbehaves{true};
        const RawServer server([&, &bytes = answer](const std::string& target, const Peer& peer) {
            if (!misbehaves || !target.ends_with("?node=2")) return answerWell(target, peer);
            return peer.send(bytes) && !bytes.empty();
        });
        const int id = loadPointCloudNetwork(server.url(L"/c").c_str());
        ASSERT_EQ(0, id) << name;
        look(0, true);
        EXPECT_EQ(isLoaded ? 3 : 2, residentNodes(id)) << name;
        misbehaves = false;
        look(0, true);
        EXPECT_EQ(3, residentNodes(id)) << name;
        closePointCloud(id);
    }
}

// Nodes in a chain, one more level each, that the server holds back until it is told to go on. Its round trip is a long
// one, so that as many as may ever be are asked for at once.
TEST_F(FileNetworkTest, AsksForSeveralNodesAtOnceAndGivesUpWhatNobodyWants) {
    static std::atomic<int> threads{0};
    registerCacheCallback([](bool loaded, uint64_t, unsigned char*, int, double, double, double) {
        if (!loaded) return;
        thread_local const int number = ++threads;
        EXPECT_EQ(1, number) << "the host hears from one thread";
    });
    const int readers = std::max(connectionCount(), MOST_CONNECTIONS);
    const int nodes = readers + 3;
    std::atomic<int> asked{0};
    std::promise<void> go;
    const RawServer server([&, gate = go.get_future().share()](const std::string& target, const Peer& peer) {
        if (target.find("?node") == std::string::npos) std::this_thread::sleep_for(50ms);
        if (target.ends_with("?info")) {
            return peer.send(RawServer::answer(R"({"BoundingBox":[0,0,0,8,4,2],"Nodes":)" + std::to_string(nodes) +
                                               R"(,"Version":17,"Points":9,"Reserved":0})"));
        }
        std::string tree;
        for (int i = 0; i < nodes; ++i) tree.append({i + 1 < nodes ? '\x05' : '\x04', '\x01', '\0'});
        if (target.ends_with("?tree")) return peer.send(RawServer::answer(tree));
        ++asked;
        if (target.starts_with("/silent")) peer.keepSilent();
        gate.wait();
        return peer.send(RawServer::answer(text(NODES[1])));
    });
    const int id = loadPointCloudNetwork(server.url(L"/c").c_str());
    ASSERT_EQ(0, id);
    look(0, false);
    while (asked < readers) std::this_thread::yield();
    unregisterWindow(0); // waits for no read
    go.set_value();
    look(1, true);
    EXPECT_EQ(nodes, residentNodes(id));
    const std::vector<std::string> all = server.requests();
    const std::set<std::string> first(all.begin() + 2, all.begin() + 2 + readers);
    for (int i = 0; i < readers; ++i) {
        EXPECT_EQ(1U, first.count("GET /c?node=" + std::to_string(i) + " HTTP/1.1")) << "coarse nodes first: " << i;
    }
    closePointCloud(id);

    asked = 0;
    ASSERT_EQ(0, loadPointCloudNetwork(server.url(L"/silent").c_str()));
    look(0, false);
    while (asked < readers) std::this_thread::yield();
    std::thread waiting([] { look(1, true); });
    const auto start = steady_clock::now();
    closePointCloud(0);
    waiting.join();
    EXPECT_LT(steady_clock::now() - start, 50s);
    EXPECT_TRUE(pointClouds.empty());
    EXPECT_EQ(readers, asked) << "what waited was dropped";
}

// For ThreadSanitizer: cameras of many windows, queries, unloading and closing while answers arrive.
TEST_F(FileNetworkTest, SurvivesEverythingAtOnce) {
    const RawServer server([](const std::string& target, const Peer& peer) {
        if (target.ends_with("1") && target.size() % 2 == 0) return false;
        return answerWell(target, peer);
    });
    for (int round = 0; round < 5; ++round) {
        const int id = loadPointCloudNetwork(server.url(round % 2 == 0 ? L"/c" : L"/cc").c_str());
        const int other = loadSmallCloud();
        ASSERT_EQ(0, id);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([=] {
                double xyz[6];
                char colour[10];
                for (int i = 0; i < 20; ++i) {
                    look(i % 8, i % 5 == t);
                    if (i % 3 == 0) unregisterWindow((i + t) % 8);
                    if (t == 0) getNodePoints(id, 0, xyz, colour);
                    if (t == 1 && i == 10) closePointCloud(id);
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        closePointCloud(other);
        EXPECT_TRUE(pointClouds.empty());
    }
}

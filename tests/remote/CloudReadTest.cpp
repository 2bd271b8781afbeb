#include "ground/Pools.h"
#include "remote/CloudTest.h"
#include "remote/FileS3.h"
#include "remote/LRUCache.h"
#include "remote/S3Utils.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <tuple>

using std::chrono::seconds;

TEST(LRUCache, DropsAndFreesWhatWasUsedLongestAgo) {
    LRUCache<int, std::shared_ptr<int>> cache(3);
    std::weak_ptr<int> values[6];
    const auto put = [&](int key, int value) {
        auto fresh = std::make_shared<int>(value);
        values[value] = fresh;
        cache.put(key, std::move(fresh));
    };
    const auto isLeft = [&](int value) { return !values[value].expired(); };
    for (int i = 0; i < 3; ++i) put(i, i);
    EXPECT_EQ(0, **cache.get(0)); // a use
    put(2, 3);                    // another one, of what was replaced
    put(7, 4);
    EXPECT_TRUE(isLeft(0));
    put(8, 5);
    EXPECT_TRUE(isLeft(3) && isLeft(4) && isLeft(5));
    EXPECT_FALSE(isLeft(0) || isLeft(1) || isLeft(2));
    EXPECT_FALSE(cache.get(1));
    EXPECT_EQ(3, **cache.get(2));
}

using CloudRead = CloudTest;

// Each buffer is a heap block of its exact size, so that AddressSanitizer sees a byte too many.
TEST_F(CloudRead, TakesExactlyTheRangeOrNothing) {
    const Bytes object = noise(300000);
    const std::string key = PREFIX + std::string("a b+ü#%.bin"); // signed URLs travel byte for byte
    service->addObject(key, dir.write("source", object));
    // What goes wrong with the first so many requests, whether the read succeeds, and the requests that it takes.
    const std::tuple<const char*, StubFault, int, bool, size_t> cases[] = {
        {"nothing", {}, 0, true, 1},
        {"503 twice", {.status = 503}, 2, true, 3},
        {"403 with a body", {.status = 403, .body = std::string(90000, 'x')}, 9, false, 3},
        {"reset once", {.reset = true}, 1, true, 2},
        {"reset", {.reset = true}, 9, false, 3},
        {"broken off once", {.cutAfter = 70000}, 1, true, 2},
        {"broken off", {.cutAfter = 70000}, 9, false, 3},
        {"short", {.shortBy = 1}, 9, false, 1},
        {"range ignored", {.ignoreRange = true}, 9, false, 1},
        {"204", {.status = 204, .body = ""}, 9, false, 3},
    };
    const std::string url = service->signedUrl(key, seconds(1000));
    for (const auto& [name, wrong, times, succeeds, requests] : cases) {
        service->setFaults([wrong = wrong, left = counterFrom(times)](const StubRequest&) {
            return (*left)-- > 0 ? wrong : StubFault();
        });
        service->forgetRequests();
        const auto buffer = std::make_unique<char[]>(100000);
        EXPECT_EQ(succeeds, S3Utils::readData(url, buffer.get(), 12345, 100000, false)) << name;
        EXPECT_TRUE(!succeeds || std::memcmp(object.data() + 12345, buffer.get(), 100000) == 0) << name;
        ASSERT_EQ(requests, service->requests().size()) << name;
        const StubRequest first = service->requests()[0];
        EXPECT_EQ("bytes=12345-112344", first.range);
        EXPECT_EQ("application/octet-stream", first.contentType);
        EXPECT_EQ("https://web.example", first.origin);
        EXPECT_EQ(url, service->storeEndpoint() + first.target);
    }
    service->setFaults({});
    testing::internal::CaptureStdout();
    char byte = 0;
    EXPECT_FALSE(S3Utils::readData(url, &byte, 300000, 1, false)); // behind the end
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_EQ(0U, log.find("bytes=300000-1\nhttps://127.0.0.1:"));
    EXPECT_NE(std::string::npos, log.find("?...\nGone Wrong\n416\n"));
    EXPECT_EQ(std::string::npos, log.find(url)) << "the signature is a secret";
    service->setClockAhead(seconds(1001));
    EXPECT_FALSE(S3Utils::readData(url, &byte, 0, 1, false));
    service->setClockAhead(seconds(0));
    service->forgetRequests();
    EXPECT_FALSE(S3Utils::readData(url, &byte, 0, 0, false));
    EXPECT_FALSE(S3Utils::readData(url, &byte, 0, 0, true));
    EXPECT_FALSE(S3Utils::readData("https://127.0.0.1:1/objects/a", &byte, 0, 1, false));
    resetGlimmetNetwork();
    EXPECT_EQ(0U, service->requests().size());
    EXPECT_TRUE(S3Utils::readData(url, &byte, 0, 1, false));
}

namespace {

// What a window sees of one cloud: position and colour of each point.
using Seen = std::vector<std::array<double, 8>>;

Seen see(int id) {
    double box[6];
    getOrigin(id, box);
    double view[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -50, -50, -60, 1};
    double projection[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.001, -1, 0, 0, -0.2, 0};
    const double eye[3] = {50, 50, 60};
    setCamera(1, view, projection, eye, 90, 100000, true);
    const int count = getWindowPointCount(1);
    std::vector<double> xyz(static_cast<size_t>(count) * 3);
    std::vector<char> colours(static_cast<size_t>(count) * 5);
    getWindowPoints(1, xyz.data(), colours.data(), 0, count);
    Seen seen(static_cast<size_t>(count));
    for (size_t i = 0; i < seen.size(); ++i) {
        for (size_t k = 0; k < 3; ++k) seen[i][k] = xyz[i * 3 + k];
        for (size_t k = 0; k < 5; ++k) seen[i][3 + k] = colours[i * 5 + k];
    }
    std::sort(seen.begin(), seen.end());
    return seen;
}

} // namespace

TEST_F(CloudRead, StreamsWhatALocalFileGives) {
    constexpr int POINTS = 200000;
    const std::wstring path = dir.widePath("built.opc");
    const double box[6] = {0, 0, 0, 100, 100, 10};
    ASSERT_TRUE(createOPC(path.c_str(), box, POINTS, "key", 1, 0));
    std::mt19937 random(3);
    std::vector<double> xyz(size_t{POINTS} * 3);
    for (size_t i = 0; i < xyz.size(); ++i)
        xyz[i] = static_cast<double>(random() % 10000) * (i % 3 == 2 ? 0.001 : 0.01);
    ASSERT_TRUE(addPoints(xyz.data(), noise(size_t{POINTS} * 5).data(), POINTS));
    indexOPC(0, 0.001, 0, 1);
    while (getOPCProgress(2) != 0) std::this_thread::yield();
    int id = loadPointCloudFile(path.c_str());
    const Seen expected = see(id);
    const auto nodes = static_cast<size_t>(getNodeCount(id));
    ASSERT_LT(8U, nodes);
    ASSERT_LT(100000U, expected.size());

    // The same file, or one of the same name and form with other points at its end. `state` stands in its header.
    ASSERT_EQ(0, signIn());
    const Bytes built = dir.read("built.opc");
    const auto open = [&](unsigned char state, bool isOther) {
        closePointCloud(id);
        Bytes bytes = built;
        bytes[80] = state;
        for (size_t i = bytes.size() - 1000; isOther && i < bytes.size(); ++i) bytes[i] ^= 0x10;
        service->addObject(PREFIX + std::string("cloud.opc"), dir.write("source", bytes));
        service->forgetRequests();
        id = loadPointCloudGlimmet(L"cloud.opc");
        EXPECT_EQ(0, id) << nimbrelLastError();
        return see(id);
    };
    EXPECT_EQ(expected, open(0, false));
    EXPECT_GT(nodes, requestsTo("/objects/").size()) << "neighbours come in one range";
    EXPECT_EQ(expected, open(0, false));
    EXPECT_EQ(3U, requestsTo("/objects/").size()) << "header, tree and root; the rest is known";
    EXPECT_NE(expected, open(1, true)) << "not the points known by that name";

    // Whatever fails, fails as a whole: a node is right or absent. Once nothing fails any more, all of them come.
    service->setFaults([counter = counterFrom(0)](const StubRequest& request) {
        StubFault fault;
        if (!request.isStore) return fault;
        const int count = ++*counter;
        if (count < 3) return fault; // header and tree
        if (count % 4 == 0) fault.status = 403;
        if (count % 4 == 1) fault.shortBy = 1;
        if (count % 4 == 2) fault.ignoreRange = true;
        if (count % 8 == 3) fault.reset = true;
        return fault;
    });
    const Seen some = open(2, false);
    EXPECT_LT(some.size(), expected.size());
    EXPECT_TRUE(std::includes(expected.begin(), expected.end(), some.begin(), some.end()));
    service->setFaults({});
    EXPECT_EQ(expected, see(id));

    // A close does not wait for a store that has gone silent, however long the connections would.
    waitForever();
    service->setFaults([counter = counterFrom(0)](const StubRequest& request) {
        return StubFault{.delay = seconds(request.isStore && ++*counter > 2 ? 600 : 0)};
    });
    service->forgetRequests();
    std::thread viewer([&] { open(3, false); });
    while (requestsTo("/objects/").size() < 3) std::this_thread::yield();
    const auto start = std::chrono::steady_clock::now();
    closePointCloud(0);
    viewer.join();
    EXPECT_GT(seconds(60), std::chrono::steady_clock::now() - start);
}

TEST_F(CloudRead, OpensNothingUnsound) {
    const Bytes sound = smallCloud().make();
    PointFileMaker greedy = smallCloud();
    greedy.nodeCount = 0x7FFFFFFF;
    PointFileMaker voxels = smallCloud();
    voxels.version = 90;
    voxels.reserved = -1;
    service->addObject(PREFIX + std::string("sound"), dir.write("source", sound));
    const std::tuple<const char*, Bytes> cases[] = {
        {"empty", {}},
        {"short", Bytes(sound.begin(), sound.begin() + 123)},
        {"header alone", Bytes(sound.begin(), sound.begin() + 124)},
        {"more nodes than bytes", greedy.make()},
        {"more tree than bytes", voxels.make()},
        {"noise", noise(5000)},
    };
    for (const auto& [name, bytes] : cases) {
        service->addObject(PREFIX + std::string("bad"), dir.write("bad", bytes));
        const std::string url = service->signedUrl(PREFIX + std::string("bad"), seconds(1000));
        EXPECT_EQ(-1, loadPointCloudGlimmet(std::wstring(url.begin(), url.end()).c_str())) << name;
        EXPECT_STRNE("", nimbrelLastError()) << name;
    }
    const std::string url = service->signedUrl(PREFIX + std::string("sound"), seconds(1000));
    EXPECT_EQ(-1, loadPointCloudGlimmet(L"https://127.0.0.1/elsewhere"));
    EXPECT_EQ(-1, loadPointCloudGlimmet(L"sound")); // nobody is signed in
    initEngine("");
    EXPECT_EQ(-1, loadPointCloudGlimmet(std::wstring(url.begin(), url.end()).c_str()));
    initEngine("key");
    EXPECT_EQ(0, loadPointCloudGlimmet(std::wstring(url.begin(), url.end()).c_str())); // no sign-in needed

    FileS3 file;
    file.openFile(std::wstring(url.begin(), url.end()), false, 0);
    char byte = 0;
    file.setEnabled(false);
    EXPECT_FALSE(file.readData(&byte, 1, 0, 1));
    file.setEnabled(true);
    service->forgetRequests();
    EXPECT_FALSE(file.readData(&byte, 1, -1, 1));
    EXPECT_FALSE(file.readData(&byte, 1, 0, 0));
    EXPECT_EQ(0U, service->requests().size());
    EXPECT_TRUE(file.readData(&byte, 1, 0, 1));
    EXPECT_TRUE(file.readData(&byte, 1, 0, 1)); // known
    char two[2];
    EXPECT_TRUE(file.readData(two, 1, 0, 2)); // of another length: not known
    EXPECT_TRUE(file.readData(&byte, 0, 0, 1));
    EXPECT_TRUE(file.readData(&byte, 0, 0, 1)); // the root is read each time
    EXPECT_EQ(4U, service->requests().size());
}

// Uploads and ranged reads beside curl, and the requests of a full view, against the stand-in service on loopback.
//
//   CloudBench FOLDER [MEBIBYTES] [POINTS]
//
// Client and server share the machine and its cores, curl's server as well: the figures compare, and say little about
// a line.

#include "nimbrel/NimbrelEngine.h"
#include "remote/ConnectionPool.h"
#include "remote/S3Utils.h"
#include "stub/CloudStub.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr int64_t MEBIBYTE = 1 << 20;
const std::string PREFIX = "eu/bench/";

// The engine logs to standard output, the results go to where that was.
FILE* results = nullptr;

template <typename Work>
double seconds(Work work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

void report(const char* what, int64_t bytes, double time) {
    std::fprintf(results, "%-44s %8.0f MiB/s\n", what, static_cast<double>(bytes) / MEBIBYTE / time);
    std::fflush(results);
}

std::wstring wide(const fs::path& path) {
    return path.wstring();
}

void writeNoise(const fs::path& path, int64_t size) {
    std::ofstream out(path, std::ios::binary);
    std::mt19937_64 random(1);
    std::vector<uint64_t> block(MEBIBYTE / 8);
    for (int64_t done = 0; done < size; done += MEBIBYTE) {
        for (uint64_t& word : block) word = random();
        out.write(reinterpret_cast<const char*>(block.data()), MEBIBYTE);
    }
    if (!out) std::abort();
}

void curl(const std::string& arguments, const std::string& url) {
    const std::string command = "curl --silent --show-error --fail " + arguments + " '" + url + "'";
    if (std::system(command.c_str()) != 0) std::fprintf(results, "curl failed\n");
}

void benchUpload(const fs::path& file, int64_t size) {
    const auto waitUntil = [](auto isReached) {
        while (!isReached()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    const double sending = seconds([&] {
        uploadGlimmetFile(wide(file).c_str());
        waitUntil([] { return getGlimmetUploadProgress() == 1.0F; });
    });
    const double completing = seconds([&] { waitUntil([] { return nimbrelGlimmetUploadState() != 1; }); });
    report("upload, sending the parts", size, sending);
    report("upload, until the service has joined them", size, sending + completing);
    if (nimbrelGlimmetUploadState() != 2) std::abort();
    const std::string url = S3Utils::callLambdaURL("/MultipartAction/?filename=curl.bin&job=smallupload&fileSize=0",
                                                   true, 3, "", "", nullptr);
    report("upload, curl, one connection", size,
           seconds([&] { curl("--output /dev/null --upload-file '" + file.string() + "'", url); }));
}

// Reads the object in ranges that `threads` take by turns.
void readAll(const std::string& url, int64_t size, int range, int threads) {
    std::atomic<int64_t> next{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < threads; ++i) {
        readers.emplace_back([&] {
            std::vector<char> buffer(static_cast<size_t>(range));
            for (int64_t at = next.fetch_add(range); at < size; at = next.fetch_add(range)) {
                const int length = static_cast<int>(std::min<int64_t>(range, size - at));
                if (!S3Utils::readData(url, buffer.data(), at, length, false)) std::abort();
            }
        });
    }
    for (std::thread& reader : readers) reader.join();
}

void benchReads(const std::string& url, int64_t size) {
    for (const int range : {128 << 10, 1 << 20}) {
        for (const int threads : {1, connectionCount()}) {
            char name[80];
            std::snprintf(name, sizeof(name), "ranges of %d KiB, %d at once", range >> 10, threads);
            report(name, size, seconds([&] { readAll(url, size, range, threads); }));
        }
    }
    report("whole object, curl, one connection", size, seconds([&] { curl("--output /dev/null", url); }));
}

void buildCloud(const fs::path& path, int points) {
    const double box[6] = {0, 0, 0, 1000, 1000, 50};
    std::mt19937 random(2);
    std::uniform_real_distribution<double> place(0, 1);
    std::vector<double> xyz;
    for (int i = 0; i < points; ++i)
        xyz.insert(xyz.end(), {place(random) * 1000, place(random) * 1000, place(random) * 50});
    const std::vector<unsigned char> attributes(static_cast<size_t>(points) * 5, 100);
    if (!createOPC(wide(path).c_str(), box, points, "key", 1, 0)) std::abort();
    addPoints(xyz.data(), attributes.data(), points);
    indexOPC(0, 0.01, 0, 1);
    while (getOPCProgress(2) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

// The camera looks down on all of the cloud; `viewSize` decides how fine.
void benchView(CloudStub& service, const char* name, int viewSize, std::chrono::milliseconds delay) {
    service.setFaults([delay](const StubRequest&) {
        StubFault fault;
        fault.delay = delay;
        return fault;
    });
    const int id = loadPointCloudGlimmet(L"cloud.opc");
    if (id < 0) std::abort();
    service.forgetRequests();
    const double view[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -500, -500, -600, 1};
    const double projection[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.0001, -1, 0, 0, -0.2, 0};
    const double eye[3] = {500, 500, 600};
    const double time = seconds([&] { setCamera(1, view, projection, eye, 90, viewSize, true); });
    std::fprintf(results, "%-20s %5lld requests, %6.0f ms, %9d points of a tree of %d nodes\n", name,
                 static_cast<long long>(service.countRequests("/objects/")), time * 1000, getWindowPointCount(1),
                 getNodeCount(id));
    closePointCloud(id);
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) return std::fprintf(stderr, "CloudBench FOLDER [MEBIBYTES] [POINTS]\n"), 2;
    results = ::fdopen(::dup(STDOUT_FILENO), "w");
    if (!results || !std::freopen("/dev/null", "w", stdout)) return 1;
    const fs::path folder = fs::path(arguments[1]) / "cloud";
    const int64_t size = (count > 2 ? std::atoll(arguments[2]) : 200) * MEBIBYTE;
    const int points = count > 3 ? std::atoi(arguments[3]) : 3000000;
    fs::remove_all(folder);
    fs::create_directories(folder);

    StubOptions options;
    options.folder = folder / "service";
    options.users = {{"bench", "secret"}};
    CloudStub service(options);
    ::setenv("SSL_CERT_FILE", service.caFile().c_str(), 1);
    ::setenv("CURL_CA_BUNDLE", service.caFile().c_str(), 1);
    setGlimmetEndpoints(service.apiEndpoint().c_str(), service.storeEndpoint().c_str(), "");
    if (initEngine("key") != 1 || loginGlimmet(L"bench", L"secret", 1) != 0) return 1;

    const fs::path file = folder / "noise.bin";
    writeNoise(file, size);
    benchUpload(file, size);
    benchReads(service.signedUrl(PREFIX + "noise.bin", std::chrono::hours(1)), size);

    buildCloud(folder / "cloud.opc", points);
    service.addObject(PREFIX + "cloud.opc", folder / "cloud.opc");
    benchView(service, "overview", 1000, std::chrono::milliseconds(20));
    benchView(service, "again", 1000, std::chrono::milliseconds(20));
    benchView(service, "every other node", 100000, std::chrono::milliseconds(20));
    service.setFaults({});
    shutdownEngine();
    fs::remove_all(folder);
    return 0;
}

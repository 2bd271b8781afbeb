#include "HostCalls.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

// Exports by who may call them, as the header says. A buffer whose size depends on the cloud is measured for it first; in
// company that size can change before the call, and the buffer has the largest there is.

namespace {

using Call = void (*)(HostThread& host, HostArguments& a);

constexpr size_t LARGEST_NODE = 32767;
constexpr int LARGEST_TREE = 1000; // of the host's files
constexpr int64_t PAGE = 300;      // points that a listing has room for

size_t roomForNode(const HostThread& host, int id, int node) {
    return host.isAlone ? static_cast<size_t>(getNodePointCount(id, node)) : LARGEST_NODE;
}

const wchar_t* keep(HostArguments& a, const std::wstring& text) {
    auto* kept = a.buffer<wchar_t>(text.size() + 1);
    std::copy_n(text.c_str(), text.size() + 1, kept);
    return a.orNull(kept);
}
const wchar_t* input(HostThread& host, HostArguments& a) {
    return keep(a, host.folder.input(a.byte()));
}
const wchar_t* output(HostThread& host, HostArguments& a) {
    return keep(a, host.folder.output(a.byte()));
}
const wchar_t* wideText(HostArguments& a) {
    constexpr const wchar_t* TEXTS[] = {L"", L"name", L"a\"b", L"x:y\r\nz", L"\x7FFFFFFF", L"https://127.0.0.1:1/x"};
    return a.orNull(a.oneOf(TEXTS));
}
const char* text(HostArguments& a) {
    constexpr const char* TEXTS[] = {"",        "key", "https://127.0.0.1:1", "http://127.0.0.1:99999", "x\r\ny",
                                     "\xFF://", "/"};
    return a.orNull(a.oneOf(TEXTS));
}

// Triangles for the analyses: the count always fits the buffer, if it is above 0.
struct Mesh {
    explicit Mesh(HostArguments& a) : count(a.integer()) {
        if (count > 8) count = 8;
        triangles = a.reals(9 * static_cast<size_t>(std::max(count, 0)));
    }
    int count;
    const double* triangles;
};

struct Batch {
    explicit Batch(HostArguments& a) {
        constexpr int LARGE = 120000; // what is spread over all cores
        const int size = a.isRare() ? LARGE : a.byte();
        uint32_t state = a.byte();
        const bool isOdd = a.isRare();
        xyz = a.filled<double>(3 * static_cast<size_t>(size), [&] {
            state = state * 1664525 + 1013904223;
            return isOdd ? a.real() : (state >> 16) / 8192.0;
        });
        attributes = a.filled<unsigned char>(5 * static_cast<size_t>(size), [&] { return state++; });
        count = a.isRare() ? std::min(a.integer(), size) : size;
    }
    double* xyz;
    unsigned char* attributes;
    int count;
};

// Reads all that the notification shows.
void watchLoads(bool loaded, uint64_t, unsigned char* vertices, int pointCount, double, double, double) {
    volatile unsigned char sum = 0;
    for (int i = 0; loaded && vertices && i < 20 * pointCount; ++i) sum = static_cast<unsigned char>(sum + vertices[i]);
}

void waitForBuild(const HostThread& host) {
    while (host.isAlone && getOPCProgress(2) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// clang-format off
constexpr Call ANY_THREAD[] = {
    // the table of clouds; the first ones often, since all else needs them
    [](HostThread& host, HostArguments& a) { loadPointCloudFile(input(host, a)); },
    [](HostThread& host, HostArguments& a) { loadPointCloudFile(input(host, a)); },
    [](HostThread& host, HostArguments& a) { loadPointCloudFile(input(host, a)); },
    [](HostThread& host, HostArguments& a) {
        const std::string url = host.server + (a.flag() ? "/cloud" : "/bad");
        loadPointCloudNetwork(a.isRare() ? wideText(a) : keep(a, std::wstring(url.begin(), url.end())));
    },
    [](HostThread&, HostArguments& a) { closePointCloud(a.integer()); },
    [](HostThread&, HostArguments& a) { setEnabled(a.integer(), !a.isRare()); },
    [](HostThread&, HostArguments& a) { setMask(a.integer(), a.isRare()); },
    [](HostThread&, HostArguments& a) { setScale(a.integer(), a.real()); },
    [](HostThread&, HostArguments& a) { setPointCloudPosition(a.integer(), a.matrixOrNull()); },
    [](HostThread&, HostArguments& a) {
        setPointCloudProperties(a.integer(), a.integer(), a.integer(), a.integer(), a.integer(), a.integer(),
                                a.single(), a.single(), a.single(), a.single(), a.single(), a.single(), a.single(),
                                a.single(), a.single(), a.single(), a.single());
    },
    [](HostThread&, HostArguments& a) { unregisterWindow(a.integer()); },
    [](HostThread&, HostArguments&) { nimbrelVersion(); },
    [](HostThread&, HostArguments&) { if (std::strlen(nimbrelLastError()) > 1000) std::abort(); },
    [](HostThread&, HostArguments& a) { registerCacheCallback(a.orNull(watchLoads)); },
    // queries
    [](HostThread&, HostArguments& a) { getBoundingBox(a.integer(), a.reals(6)); },
    [](HostThread&, HostArguments& a) { getPointCount(a.integer()); },
    [](HostThread&, HostArguments& a) { getNodeCount(a.integer()); },
    [](HostThread& host, HostArguments& a) {
        const int id = a.integer();
        const int nodes = host.isAlone ? std::max(getNodeCount(id), 0) : LARGEST_TREE;
        if (nodes <= LARGEST_TREE) getTreeStructure(id, a.orNull(a.buffer<char>(3 * static_cast<size_t>(nodes))));
    },
    [](HostThread& host, HostArguments& a) {
        const int id = a.integer();
        const int node = a.integer();
        const size_t room = roomForNode(host, id, node);
        getNodePoints(id, node, a.orNull(a.buffer<double>(3 * room)), a.orNull(a.buffer<char>(5 * room)));
    },
    [](HostThread&, HostArguments& a) { getNodePointCount(a.integer(), a.integer()); },
    [](HostThread& host, HostArguments& a) {
        const int id = a.integer();
        const int node = a.integer();
        getNodeSelections(id, node, a.orNull(a.buffer<char>(roomForNode(host, id, node))));
    },
    // editing and history
    [](HostThread&, HostArguments&) { deleteSelectedPoints(); },
    [](HostThread&, HostArguments& a) { restorePointCloud(a.integer()); },
    [](HostThread&, HostArguments& a) { setLasValueOnSelectedPoints(a.integer()); },
    [](HostThread& host, HostArguments& a) { startHistoryRecording(output(host, a), a.byte() % 3); },
    [](HostThread& host, HostArguments& a) { startHistoryRecording(output(host, a), a.integer()); },
    [](HostThread&, HostArguments&) { stopHistoryRecording(); },
    [](HostThread&, HostArguments&) { undo(); },
    [](HostThread&, HostArguments&) { redo(); },
    [](HostThread&, HostArguments&) { nimbrelWaitForHistory(); },
    [](HostThread&, HostArguments&) { clearHistory(); },
    // headers
    [](HostThread&, HostArguments& a) { getHeader(a.integer(), a.orNull(a.buffer<char>(124))); },
    [](HostThread& host, HostArguments& a) {
        if (!a.isRare()) return;
        host.folder.spoilAll(); // ids can repeat, so that even an unchanged header can become that of another cloud
        const int id = a.integer();
        char* header = a.buffer<char>(124);
        getHeader(id, header);
        for (int i = a.byte() % 8; i > 0; --i) header[a.byte() % 124] = static_cast<char>(a.byte());
        setHeader(id, a.orNull(header));
    },
    [](HostThread&, HostArguments& a) { getVersion(a.integer()); },
    [](HostThread&, HostArguments& a) { getReserved(a.integer()); },
    [](HostThread&, HostArguments& a) { getOrigin(a.integer(), a.reals(6)); },
    [](HostThread&, HostArguments& a) { headerChanged(a.integer()); },
    [](HostThread&, HostArguments& a) { isProtected(a.integer()); },
    [](HostThread&, HostArguments& a) { setProtection(a.integer(), a.isRare() ? a.longInteger() : 0, a.longInteger()); },
    // building
    [](HostThread& host, HostArguments& a) {
        static constexpr double BOX[6] = {0, 0, 0, 8, 4, 2};
        createOPC(output(host, a), a.isRare() ? a.reals(6) : BOX, a.longInteger(), a.isRare() ? text(a) : "key",
                  a.integer() % 4, a.single());
    },
    [](HostThread&, HostArguments& a) {
        const Batch batch(a);
        addPoints(batch.xyz, batch.attributes, batch.count);
    },
    [](HostThread& host, HostArguments& a) {
        indexOPC(a.real(), a.real(), a.real(), a.real());
        if (a.flag()) waitForBuild(host);
    },
    [](HostThread&, HostArguments&) { cancelOPC(); },
    [](HostThread&, HostArguments& a) { getOPCProgress(a.integer()); },
    [](HostThread&, HostArguments& a) { nimbrelGetBuildReport(a.orNull(a.buffer<NimbrelBuildReport>(1))); },
    // cameras and filters
    [](HostThread&, HostArguments& a) {
        setCamera(a.integer(), a.matrixOrNull(), a.matrixOrNull(), a.reals(3), a.real() * 10, a.isRare() ? a.integer() : a.byte() * 8, a.flag());
    },
    [](HostThread&, HostArguments& a) {
        constexpr double FROM_ABOVE[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -4, -2, -12, 1};
        constexpr double WIDE[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.02, -1, 0, 0, -2.02, 0};
        constexpr double EYE[3] = {4, 2, 12};
        setCamera(a.byte() % 3, FROM_ABOVE, WIDE, EYE, 60, 100000, a.flag());
    },
    [](HostThread&, HostArguments& a) {
        constexpr int SIDES[] = {0, 1, 64, 200, -1, INT_MIN, INT_MAX};
        int viewports[2][4];
        for (auto& viewport : viewports) for (int& side : viewport) side = a.isRare() ? a.oneOf(SIDES) : a.byte() % 65;
        setRenderCamera(a.integer(), a.matrixOrNull(), a.matrixOrNull(), a.orNull(viewports[0]), a.orNull(viewports[1]),
                        a.integer(), a.singles(3));
    },
    [](HostThread&, HostArguments& a) { setForceRender(a.isRare()); },
    [](HostThread&, HostArguments& a) { isNodeInFrustum(a.integer(), a.matrixOrNull(), a.matrixOrNull(), a.integer()); },
    [](HostThread&, HostArguments& a) {
        activateShader(a.reals(3), a.reals(3), a.single(), a.single(), a.single(), a.integer(), a.flag(), a.singles(3),
                       a.singles(3), a.singles(3));
    },
    [](HostThread& host, HostArguments& a) { savePPMImage(output(host, a)); },
    [](HostThread&, HostArguments& a) { getWindowPointCount(a.integer()); },
    [](HostThread&, HostArguments& a) { activateClipBox(a.reals(36), a.singles(4), a.integer()); },
    [](HostThread&, HostArguments& a) { setLasClassifications(a.octets(1024)); },
    [](HostThread&, HostArguments& a) { activateMatch(a.flag(), a.flag(), a.octets(5), a.single(), a.single()); },
    [](HostThread&, HostArguments& a) { activateColourProcess(a.octets(3), a.isRare() ? a.integer() : a.byte(), a.integer()); },
    [](HostThread&, HostArguments& a) { activateLuminanceProcess(a.isRare() ? a.integer() : a.byte(), a.flag()); },
    // selections
    [](HostThread&, HostArguments& a) {
        constexpr int COUNTS[] = {4, 15, 4, 15, 4, 15, 0, -1};
        const int count = a.oneOf(COUNTS);
        selectPointsByVolume(a.reals(15), count, a.isRare(), a.flag());
    },
    [](HostThread&, HostArguments& a) {
        const int count = a.integer();
        const auto room = 2 * static_cast<size_t>(std::clamp(count, 0, 8));
        const int viewport[4] = {0, 0, a.isRare() ? a.integer() : 200, 200};
        const NimbrelMatrix view = a.matrix();
        selectPointsByScreen(view, a.matrix(), a.isRare() ? a.integers(4) : viewport, a.integers(room),
                             std::min(count, 8), a.isRare(), a.flag());
    },
    [](HostThread&, HostArguments&) { selectAllPoints(); },
    [](HostThread&, HostArguments&) { invertSelectedPoints(); },
    [](HostThread&, HostArguments&) { clearSelectedPoints(); },
    [](HostThread&, HostArguments&) { getSelectedPointsCount(); },
    [](HostThread&, HostArguments& a) {
        const int64_t count = std::min(a.longInteger(), PAGE);
        const auto room = static_cast<size_t>(std::max<int64_t>(count, 0));
        getSelectedPoints(a.orNull(a.buffer<double>(3 * room)), a.orNull(a.buffer<char>(5 * room)), a.longInteger(), count);
    },
    [](HostThread&, HostArguments& a) { setHideSelectedPoints(a.integer(), a.flag()); },
    [](HostThread&, HostArguments& a) {
        const NimbrelMatrix view = a.matrix();
        findWorldPoint(view, a.matrix(), a.reals(3), a.reals(4), a.octets(5));
    },
    [](HostThread&, HostArguments& a) {
        const int64_t count = std::min(a.longInteger(), PAGE);
        const auto room = static_cast<size_t>(std::max<int64_t>(count, 0));
        getWindowPoints(a.integer(), a.orNull(a.buffer<double>(3 * room)), a.orNull(a.buffer<char>(5 * room)),
                        a.longInteger(), count);
    },
    // models and analysis
    [](HostThread& host, HostArguments& a) {
        exportVoxelModel(a.integer(), a.integer(), output(host, a), a.integer(), a.real(), a.isRare() ? a.real() : 1);
    },
    [](HostThread&, HostArguments&) { getVoxelProgress(); },
    [](HostThread&, HostArguments& a) { nimbrelGetVoxelReport(a.orNull(a.buffer<NimbrelVoxelReport>(1))); },
    [](HostThread&, HostArguments& a) {
        const int limit = std::min(a.integer(), 64);
        const auto room = static_cast<size_t>(std::max(limit, 0));
        doPointCloudCollision(a.integer(), a.integer(), limit, a.orNull(a.buffer<double>(3 * room)));
    },
    [](HostThread&, HostArguments& a) {
        const int limit = std::min(a.integer(), 64);
        const Mesh mesh(a);
        const auto room = static_cast<size_t>(std::max(limit, 0));
        doMeshCollision(a.integer(), limit, a.orNull(a.buffer<double>(3 * room)), mesh.triangles, mesh.count,
                        a.matrixOrNull());
    },
    [](HostThread&, HostArguments& a) {
        const Mesh mesh(a);
        classifyPointsByDistance(mesh.triangles, mesh.count, a.matrixOrNull(), a.real());
    },
    [](HostThread&, HostArguments&) { abortPointsByDistance(); },
    [](HostThread&, HostArguments&) { nimbrelAbortAnalysis(); },
    [](HostThread&, HostArguments&) { nimbrelGetAnalysisProgress(); },
    [](HostThread&, HostArguments& a) { selectPointsByTriangle(a.reals(9), a.integers(2), a.real() * 1000, a.real() * 1000); },
    [](HostThread&, HostArguments& a) {
        const Mesh mesh(a);
        testSurface(mesh.triangles, mesh.count, a.real() * 1000, a.real() * 1000);
    },
    [](HostThread&, HostArguments& a) {
        const Mesh mesh(a);
        calculateErrors(mesh.triangles, mesh.count, a.real() * 1000, a.reals(4));
    },
    // the cloud service: nothing listens where these ask
    [](HostThread&, HostArguments& a) { setGlimmetEndpoints(text(a), text(a), text(a)); },
    [](HostThread&, HostArguments& a) { loginGlimmet(wideText(a), wideText(a), a.integer()); },
    [](HostThread&, HostArguments& a) { loadPointCloudGlimmet(wideText(a)); },
    [](HostThread& host, HostArguments& a) {
        char* body = a.buffer<char>(1 << 20);
        getURLData(a.flag() ? host.server.c_str() : text(a), a.flag() ? "/cloud?info" : text(a), a.orNull(body));
    },
    [](HostThread& host, HostArguments& a) { uploadGlimmetFile(input(host, a)); },
    [](HostThread&, HostArguments&) { abortGlimmetUpload(); },
    [](HostThread&, HostArguments&) { getGlimmetUploadProgress(); },
    [](HostThread&, HostArguments&) { nimbrelGlimmetUploadState(); },
    [](HostThread&, HostArguments&) { if (*listGlimmetFiles() != 0) std::abort(); },
    [](HostThread&, HostArguments& a) { deleteGlimmetFile(wideText(a)); },
    [](HostThread&, HostArguments& a) { emailGlimmetLink(wideText(a), wideText(a), a.integer()); },
    [](HostThread&, HostArguments&) { getGlimmetStorage(); },
    [](HostThread&, HostArguments&) { getGlimmetStorageLimit(); },
    [](HostThread&, HostArguments&) { getGlimmetTier(); },
    [](HostThread&, HostArguments&) { resetGlimmetNetwork(); },
};

constexpr Call MAIN_THREAD[] = {
    [](HostThread&, HostArguments&) { render(); },
    [](HostThread&, HostArguments&) { render(); },
    [](HostThread&, HostArguments& a) {
        const NimbrelMatrix view = a.matrix();
        findClosestPoint(view, a.matrix(), a.integers(4), a.byte(), a.integer(), a.reals(4), a.octets(5));
    },
    [](HostThread& host, HostArguments& a) { createTempCache(output(host, a)); },
    [](HostThread&, HostArguments& a) {
        const Batch batch(a);
        addCachePoints(batch.xyz, batch.attributes, batch.count);
    },
    [](HostThread&, HostArguments&) { getCacheCount(); },
    [](HostThread&, HostArguments& a) { getCacheBoundingBox(a.reals(6)); },
    [](HostThread&, HostArguments&) { rewindCache(); },
    [](HostThread&, HostArguments& a) { transferCachePoints(a.integer(), a.reals(3), a.reals(3)); },
    [](HostThread&, HostArguments&) { closeTempCache(); },
};

constexpr Call ALONE[] = {
    [](HostThread&, HostArguments& a) { initEngine(a.isRare() ? text(a) : "key"); },
    [](HostThread&, HostArguments&) { reset(); },
};
// clang-format on

} // namespace

void HostThread::call() {
    size_t choice = arguments.byte();
    const std::span<const Call> groups[] = {ANY_THREAD, isMain ? MAIN_THREAD : std::span<const Call>(),
                                            isAlone ? ALONE : std::span<const Call>()};
    size_t all = 0;
    for (const auto& group : groups) all += group.size();
    choice %= all;
    for (const auto& group : groups) {
        if (choice < group.size()) {
            group[choice](*this, arguments);
            break;
        }
        choice -= group.size();
    }
    arguments.forgetBuffers();
}

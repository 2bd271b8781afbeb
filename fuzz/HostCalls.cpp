#include "HostCalls.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <tuple>
#include <type_traits>

// Most exports are called with what the types of their parameters ask for, and buffers of the sizes named in the table.
// The others come first: those whose buffers depend on the cloud, and those that arguments by chance would hardly get
// anywhere. In company a size that depends on the cloud can change before the call, and buffers have the largest there
// is.

namespace {

constexpr size_t LARGEST_NODE = 32767;
constexpr int LARGEST_TREE = 1000; // of the host's files

const wchar_t* keep(HostArguments& a, const std::wstring& text) {
    auto* kept = a.buffer<wchar_t>(text.size() + 1);
    std::copy_n(text.c_str(), text.size() + 1, kept);
    return a.orNull(kept);
}
const wchar_t* output(HostThread& host) {
    return keep(host.arguments, host.folder.output(host.arguments.byte()));
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

// ---- What most exports are called with

// An argument of a type. Pointers take the next of the sizes; strings are texts, wide ones paths to write to.
template <typename T>
T make(HostThread& host, const size_t*& sizes) {
    HostArguments& a = host.arguments;
    if constexpr (std::is_same_v<T, bool>) {
        return a.flag();
    } else if constexpr (std::is_same_v<T, int>) {
        return a.integer();
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return a.longInteger();
    } else if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(a.real());
    } else if constexpr (std::is_same_v<T, NimbrelMatrix>) {
        return a.matrix();
    } else if constexpr (std::is_same_v<T, const wchar_t*>) {
        return output(host);
    } else if constexpr (std::is_same_v<T, const char*>) {
        return text(a);
    } else {
        using Value = std::remove_cv_t<std::remove_pointer_t<T>>;
        const size_t size = *sizes++;
        if constexpr (std::is_same_v<T, const double*>) {
            if (size == 16) return a.matrixOrNull();
        }
        if constexpr (std::is_arithmetic_v<Value>) {
            return a.numbers<Value>(size);
        } else {
            return a.orNull(a.buffer<Value>(size));
        }
    }
}

template <typename Result, typename... Parameters>
void callWith(HostThread& host, Result (*function)(Parameters...), [[maybe_unused]] const size_t* sizes) {
    std::apply(function, std::tuple<Parameters...>{make<Parameters>(host, sizes)...}); // in braces: in order
}

template <auto Export, size_t... Sizes>
void plain(HostThread& host) {
    constexpr size_t SIZES[] = {Sizes..., 0};
    callWith(host, Export, SIZES);
}

// ---- The others

void arm(HostThread& host) {
    initEngine(host.arguments.isRare() ? text(host.arguments) : "key");
}

template <auto Load>
void openFile(HostThread& host) {
    Load(keep(host.arguments, host.folder.input(host.arguments.byte())));
}

void openFromServer(HostThread& host) {
    HostArguments& a = host.arguments;
    const std::string url = host.server + (a.flag() ? "/cloud" : "/bad");
    loadPointCloudNetwork(a.isRare() ? wideText(a) : keep(a, {url.begin(), url.end()}));
}

template <auto SetFlag, bool USUAL>
void setFlag(HostThread& host) {
    SetFlag(host.arguments.integer(), host.arguments.isRare() ? !USUAL : USUAL);
}

// Reads all that the notification shows.
void watchLoads(bool loaded, uint64_t, unsigned char* vertices, int pointCount, double, double, double) {
    volatile unsigned char sum = 0;
    for (int i = 0; loaded && i < 20 * pointCount; ++i) sum = static_cast<unsigned char>(sum + vertices[i]);
}

void listenToLoads(HostThread& host) {
    registerCacheCallback(host.arguments.orNull(watchLoads));
}

void askForTree(HostThread& host) {
    HostArguments& a = host.arguments;
    const int id = a.integer();
    const int nodes = host.isAlone ? std::max(getNodeCount(id), 0) : LARGEST_TREE;
    if (nodes <= LARGEST_TREE) getTreeStructure(id, a.orNull(a.buffer<char>(3 * static_cast<size_t>(nodes))));
}

void askForNode(HostThread& host) {
    HostArguments& a = host.arguments;
    const int id = a.integer();
    const int node = a.integer();
    const size_t room = host.isAlone ? static_cast<size_t>(getNodePointCount(id, node)) : LARGEST_NODE;
    if (a.flag()) return getNodePoints(id, node, a.numbers<double>(3 * room), a.orNull(a.buffer<char>(5 * room)));
    getNodeSelections(id, node, a.orNull(a.buffer<char>(room)));
}

template <auto List, typename... Window>
void askForPage(HostThread& host) {
    constexpr int64_t PAGE = 300;
    HostArguments& a = host.arguments;
    const int64_t count = std::min(a.longInteger(), PAGE);
    const auto room = static_cast<size_t>(std::max<int64_t>(count, 0));
    List(Window(a.integer())..., a.numbers<double>(3 * room), a.orNull(a.buffer<char>(5 * room)), a.longInteger(),
         count);
}

void changeHeader(HostThread& host) {
    HostArguments& a = host.arguments;
    if (!a.isRare()) return;
    host.folder.spoilAll(); // ids can repeat, so that even an unchanged header can become that of another cloud
    const int id = a.integer();
    char* header = a.buffer<char>(124);
    getHeader(id, header);
    for (int i = a.byte() % 8; i > 0; --i) header[a.byte() % 124] = static_cast<char>(a.byte());
    setHeader(id, a.orNull(header));
}

void protect(HostThread& host) {
    HostArguments& a = host.arguments;
    setProtection(a.integer(), a.isRare() ? a.longInteger() : 0, a.longInteger());
}

void beginBuild(HostThread& host) {
    HostArguments& a = host.arguments;
    static constexpr double BOX[6] = {0, 0, 0, 8, 4, 2};
    createOPC(output(host), a.isRare() ? a.numbers<double>(6) : BOX, a.longInteger(), a.isRare() ? text(a) : "key",
              a.integer() % 4, static_cast<float>(a.real()));
}

template <auto Add>
void addBatch(HostThread& host) {
    constexpr int LARGE = 120000; // what is spread over all cores
    HostArguments& a = host.arguments;
    const int size = a.isRare() ? LARGE : a.byte();
    uint32_t state = a.byte();
    const bool isOdd = a.isRare();
    auto* xyz = a.buffer<double>(3 * static_cast<size_t>(size));
    auto* attributes = a.buffer<unsigned char>(5 * static_cast<size_t>(size));
    for (int i = 0; i < 3 * size; ++i) {
        state = state * 1664525 + 1013904223;
        xyz[i] = isOdd ? a.real() : (state >> 16) / 8192.0;
    }
    Add(a.orNull(xyz), a.orNull(attributes), a.isRare() ? std::min(a.integer(), size) : size);
}

void compile(HostThread& host) {
    plain<indexOPC>(host);
    const bool waits = host.isAlone && host.arguments.flag();
    while (waits && getOPCProgress(2) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void lookFromAbove(HostThread& host) {
    constexpr double VIEW[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -4, -2, -12, 1};
    constexpr double PROJECTION[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.02, -1, 0, 0, -2.02, 0};
    constexpr double EYE[3] = {4, 2, 12};
    setCamera(host.arguments.byte() % 3, VIEW, PROJECTION, EYE, 60, 100000, host.arguments.flag());
}

// Small pictures, since large ones take long to draw.
void setPicture(HostThread& host) {
    constexpr int SIDES[] = {0, 1, 64, 200, -1, INT_MIN, INT_MAX};
    HostArguments& a = host.arguments;
    int viewports[2][4];
    for (auto& viewport : viewports) {
        for (int& side : viewport) side = a.isRare() ? a.oneOf(SIDES) : a.byte() % 65;
    }
    setRenderCamera(a.integer(), a.matrixOrNull(), a.matrixOrNull(), a.orNull(viewports[0]), a.orNull(viewports[1]),
                    a.integer(), a.numbers<float>(3));
}

void selectVolume(HostThread& host) {
    constexpr int COUNTS[] = {4, 15, 4, 15, 4, 15, 0, -1};
    HostArguments& a = host.arguments;
    selectPointsByVolume(a.numbers<double>(15), a.oneOf(COUNTS), a.isRare(), a.flag());
}

void selectScreen(HostThread& host) {
    HostArguments& a = host.arguments;
    const int count = std::min(a.integer(), 8);
    const int viewport[4] = {0, 0, 200, 200};
    const NimbrelMatrix view = a.matrix();
    selectPointsByScreen(view, a.matrix(), a.isRare() ? a.numbers<int>(4) : viewport,
                         a.numbers<int>(2 * static_cast<size_t>(std::max(count, 0))), count, a.isRare(), a.flag());
}

// The count of triangles always fits the buffer, if it is above 0, and so does the number of contacts.
template <auto Analyse>
void analyse(HostThread& host) {
    HostArguments& a = host.arguments;
    const int count = std::min(a.integer(), 8);
    Analyse(a, a.numbers<double>(9 * static_cast<size_t>(std::max(count, 0))), count);
}
void classify(HostArguments& a, const double* triangles, int count) {
    classifyPointsByDistance(triangles, count, a.matrixOrNull(), a.real());
}
void measureCover(HostArguments& a, const double* triangles, int count) {
    testSurface(triangles, count, 1000 * a.real(), 1000 * a.real());
}
void measureErrors(HostArguments& a, const double* triangles, int count) {
    calculateErrors(triangles, count, 1000 * a.real(), a.numbers<double>(4));
}
void collide(HostArguments& a, const double* triangles, int count) {
    const int limit = std::min(a.integer(), 64);
    double* contacts = a.numbers<double>(3 * static_cast<size_t>(std::max(limit, 0)));
    if (a.flag()) {
        doPointCloudCollision(a.integer(), a.integer(), limit, contacts);
    } else {
        doMeshCollision(a.integer(), limit, contacts, triangles, count, a.matrixOrNull());
    }
}

void signIn(HostThread& host) {
    loginGlimmet(wideText(host.arguments), wideText(host.arguments), host.arguments.integer());
}
void mailLink(HostThread& host) {
    emailGlimmetLink(wideText(host.arguments), wideText(host.arguments), host.arguments.integer());
}
template <auto Export>
void byName(HostThread& host) {
    Export(wideText(host.arguments));
}
void fetch(HostThread& host) {
    HostArguments& a = host.arguments;
    auto* body = a.buffer<char>(1 << 20);
    getURLData(a.flag() ? host.server.c_str() : text(a), a.flag() ? "/cloud?info" : text(a), a.orNull(body));
}

// ---- All of them, by who may call them. What all else depends on stands there more than once.

using Call = void (*)(HostThread& host);

// clang-format off
constexpr Call ANY_THREAD[] = {
    // clouds
    openFile<loadPointCloudFile>, openFile<loadPointCloudFile>, openFile<loadPointCloudFile>, openFromServer,
    plain<closePointCloud>, setFlag<setEnabled, true>, setFlag<setMask, false>, plain<setScale>,
    plain<setPointCloudPosition, 16>, plain<setPointCloudProperties>, plain<unregisterWindow>, plain<nimbrelVersion>,
    plain<nimbrelLastError>, listenToLoads,
    // queries and headers
    plain<getBoundingBox, 6>, plain<getPointCount>, plain<getNodeCount>, plain<getNodePointCount>, askForTree,
    askForNode, askForNode, plain<getHeader, 124>, changeHeader, plain<getVersion>, plain<getReserved>,
    plain<getOrigin, 6>, plain<headerChanged>, plain<isProtected>, protect,
    // editing
    plain<deleteSelectedPoints>, plain<restorePointCloud>, plain<setLasValueOnSelectedPoints>,
    plain<startHistoryRecording>, plain<startHistoryRecording>, plain<stopHistoryRecording>, plain<undo>, plain<redo>,
    plain<nimbrelWaitForHistory>, plain<clearHistory>,
    // building
    beginBuild, addBatch<addPoints>, compile, plain<cancelOPC>, plain<getOPCProgress>, plain<nimbrelGetBuildReport, 1>,
    // cameras and filters
    plain<setCamera, 16, 16, 3>, lookFromAbove, setPicture, plain<setForceRender>, plain<isNodeInFrustum, 16, 16>,
    plain<activateShader, 3, 3, 3, 3, 3>, plain<savePPMImage>, plain<activateClipBox, 36, 4>,
    plain<setLasClassifications, 1024>, plain<activateMatch, 5>, plain<activateColourProcess, 3>,
    plain<activateLuminanceProcess>,
    // selections and lists of points
    selectVolume, selectVolume, selectScreen, plain<selectAllPoints>, plain<invertSelectedPoints>,
    plain<clearSelectedPoints>, plain<setHideSelectedPoints>, plain<getSelectedPointsCount>,
    askForPage<getSelectedPoints>, plain<getWindowPointCount>, askForPage<getWindowPoints, int>,
    plain<findWorldPoint, 3, 4, 5>,
    // models and analysis
    plain<exportVoxelModel>, plain<getVoxelProgress>, plain<nimbrelGetVoxelReport, 1>, analyse<collide>,
    analyse<classify>, plain<abortPointsByDistance>, plain<nimbrelAbortAnalysis>, plain<nimbrelGetAnalysisProgress>,
    plain<selectPointsByTriangle, 9, 2>, analyse<measureCover>, analyse<measureErrors>,
    // the cloud service: nothing listens where these ask
    plain<setGlimmetEndpoints>, signIn, byName<loadPointCloudGlimmet>, fetch, openFile<uploadGlimmetFile>,
    plain<abortGlimmetUpload>, plain<getGlimmetUploadProgress>, plain<nimbrelGlimmetUploadState>,
    plain<listGlimmetFiles>, byName<deleteGlimmetFile>, mailLink, plain<getGlimmetStorage>,
    plain<getGlimmetStorageLimit>, plain<getGlimmetTier>, plain<resetGlimmetNetwork>,
};
constexpr Call MAIN_THREAD[] = {
    plain<render>, plain<render>, plain<findClosestPoint, 4, 4, 5>, plain<createTempCache>, addBatch<addCachePoints>,
    plain<getCacheCount>, plain<getCacheBoundingBox, 6>, plain<rewindCache>, plain<transferCachePoints, 3, 3>,
    plain<closeTempCache>,
};
constexpr Call ALONE[] = {arm, plain<reset>};
// clang-format on

} // namespace

void HostThread::call() {
    std::vector<Call> calls(std::begin(ANY_THREAD), std::end(ANY_THREAD));
    if (isMain) calls.insert(calls.end(), std::begin(MAIN_THREAD), std::end(MAIN_THREAD));
    if (isAlone) calls.insert(calls.end(), std::begin(ALONE), std::end(ALONE));
    calls[arguments.byte() % calls.size()](*this);
    arguments.forgetBuffers();
}

// Loads arbitrary bytes as a point file through the exports, and asks for everything that there is to ask.

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/OPCHeader.h"
#include "ground/Pools.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"
#include "stream/OPCNode.h"
#include "stream/ViewCriteria.h"

#include <cstdio>
#include <cstdlib>
#include <queue>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// The diagnostics of a million loads go nowhere; findings come on standard error.
bool arm() {
    if (!std::freopen("/dev/null", "w", stdout)) std::abort();
    return initEngine("key") == 1;
}

// A file in memory, reached by a path.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : handle(::memfd_create("fuzz", MFD_CLOEXEC)) {
        if (handle == -1 || ::write(handle, data, size) != static_cast<ssize_t>(size)) std::abort();
    }
    ~MemoryFile() { ::close(handle); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    [[nodiscard]] std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(handle); }

private:
    const int handle;
};

void readEveryNode(int id) {
    PointCloud& cloud = *findCloud(id);
    int nodes = 0;
    int64_t total = 0;
    for (; cloud.getOPC().getNode(nodes); ++nodes) {
        const int points = getNodePointCount(id, nodes);
        if (points < 0) std::abort(); // accepted, yet damaged
        total += points;
        std::vector<double> xyz(3 * static_cast<size_t>(points));
        std::vector<char> bytes(5 * static_cast<size_t>(points));
        getNodePoints(id, nodes, xyz.data(), bytes.data());
        getNodeSelections(id, nodes, bytes.data());
        static_cast<OPCNode&>(*cloud.getOPC().getNode(nodes)).setVisible(nodes % 8);
        cloud.getOPC().getNode(nodes)->writeNodeStructure();
    }
    if (nodes > getNodeCount(id) || total != getPointCount(id)) std::abort();
    std::vector<char> structure(3 * static_cast<size_t>(getNodeCount(id)));
    getTreeStructure(id, structure.data());
}

// A model counts its nodes as points, and shows itself to a camera instead of loading.
void lookAtModel(int id) {
    PointCloud& cloud = *findCloud(id);
    OPCInterface& root = *cloud.getOPC().getNode(0);
    if (getPointCount(id) != getNodeCount(id) || cloud.getOPC().getNode(1)) std::abort();
    std::vector<char> structure(3 * static_cast<size_t>(getNodeCount(id)));
    getTreeStructure(id, structure.data());
    double xyz[3];
    char bytes[5];
    getNodePoints(id, 0, xyz, bytes);
    ViewCriteria view;
    view.viewHeight = 100;
    view.fov = 0.5F;
    for (const double detail : {1e30, 100.0, 0.0}) {
        view.lodFactor = detail;
        root.checkVisibility(view, true);
        view.window = 1 - view.window;
    }
    const double* box = root.getBoundingBox();
    const NimbrelMatrix unit{{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
    double result[4] = {0, 0, 0, 1e300};
    unsigned char colour[5];
    findWorldPoint(unit, unit, box, result, colour);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool armed = arm();
    if (!armed) return 0;
    const MemoryFile file(data, size);
    const int id = loadPointCloudFile(file.path().c_str());
    if (id < 0) {
        if (*nimbrelLastError() == '\0') std::abort(); // refused without a reason
        return 0;
    }
    if (getVersion(id) == OPCHeader::VERSION_VOXEL) {
        lookAtModel(id);
    } else {
        readEveryNode(id);
    }
    for (int window = 0; window < 2; ++window) {
        std::queue<OPCInterface*> queue;
        for (queue.push(findCloud(id)->getOPC().getNode(0)); !queue.empty(); queue.pop()) {
            queue.front()->cache(window, &queue);
        }
    }
    diskPool().WaitAll();
    unregisterWindow(0);
    double box[6];
    getBoundingBox(id, box);
    char header[124];
    getHeader(id, header);
    setHeader(id, header);
    setProtection(id, 1, 1);
    closePointCloud(id);
    return 0;
}

#include "nimbrel/NimbrelEngine.h"

#include "engine/CloudTable.h"
#include "engine/EngineState.h"
#include "engine/License.h"
#include "engine/PointCloud.h"
#include "format/FileMemoryMap.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "ground/Pools.h"
#include "remote/S3Utils.h"
#include "stream/LoadNotification.h"
#include "stream/OPC.h"

#include <algorithm>
#include <cstdio>
#include <glm/gtc/type_ptr.hpp>
#include <optional>
#include <sys/stat.h>

// The exports of the engine's life, the table of clouds, the load notification and the last error. What they share, the
// lock and the search for the id, stands in EngineState.h; how a cloud enters and leaves the table stands here.

// ---- Lifecycle

int initEngine(const char* key) {
    const bool accepted = License::isValid(key);
    init = accepted;
    return accepted ? 1 : -1;
}

static void stopPool(const char* line, ThreadPool& pool) {
    logText(line);
    pool.JoinAll(true);
}

void shutdownEngine() {
    reset();
    guarded(0, [] {
        historyTracker.finish(); // its jobs work on the pools that end here
        {
            std::shared_lock lock(mutex_);
            for (const auto& cloud : pointClouds) cloud->endReadAhead();
        }
        for (ThreadPool* pool : {&processingPool(), &diskPool(), &cachePool, &opcCache}) pool->accepting = false;
        stopPool("Joining Processor\n", processingPool());
        stopPool("Joining Disk\n", diskPool());
        stopPool("Joining OPC\n", opcCache);
        stopPool("Joining Cache\n", cachePool);
        return 0;
    });
}

// The id of the cloud at a place in the table, if the table is that long.
static std::optional<int> idAt(size_t place) {
    std::shared_lock lock(mutex_);
    if (place >= pointClouds.size()) return std::nullopt;
    return pointClouds[place]->getID();
}

void reset() {
    guarded(0, [] {
        S3Utils::abortRunningUpload();
        // Each close moves the rest up by one place while the walk goes on to the next: every second cloud stays. Hosts
        // count on it.
        size_t place = 0;
        while (const std::optional<int> id = idAt(place++)) closePointCloud(*id);
        return 0;
    });
}

const char* nimbrelVersion() {
    return NIMBREL_VERSION;
}

const char* nimbrelLastError() {
    thread_local std::string text;
    guarded(0, [] {
        text = lastError();
        return 0;
    });
    // The analyzer takes a thread_local string for a local one that goes with the call.
    return text.c_str(); // NOLINT(clang-analyzer-cplusplus.InnerPointer)
}

// ---- The table of clouds

// The size of the file, if it is a regular one. Asked before it is opened, since opening a pipe or a device can block.
static std::optional<int64_t> regularFileSize(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        setLastError("the file does not exist or can't be reached");
    } else if (!S_ISREG(status.st_mode)) {
        setLastError("this is no regular file");
    } else if (status.st_size < OPCHeader::Layout::SIZE) {
        setLastError("the file is shorter than a header");
    } else {
        return status.st_size;
    }
    return std::nullopt;
}

// Opens the file and enters it into the table; its id, or -1. The first opener of a path may write to it.
static int openCloud(const std::wstring& path, int64_t size) {
    std::lock_guard oneAtATime(loadMutex); // so that one opener alone is the first
    const auto isFirst = [&path] {
        std::shared_lock lock(mutex_);
        return std::none_of(pointClouds.begin(), pointClouds.end(),
                            [&](const auto& cloud) { return cloud->getPath() == path; });
    };
    const auto file = std::make_shared<FileMemoryMap>();
    file->openFile(path, isFirst(), size);
    return enterCloud(file, path, !file->isReadOnly());
}

int loadPointCloudFile(const wchar_t* path) {
    return guarded(-1, [path] {
        const std::wstring name = path ? path : L"";
        const std::string nameForSystem = toUtf8(name);
        setLastError("");
        logText("Loading Point Cloud..\n" + nameForSystem + "\n");
        if (!init) {
            setLastError("the engine is not armed: no key was accepted");
            return -1;
        }
        const std::optional<int64_t> size = regularFileSize(nameForSystem);
        return size ? openCloud(name, *size) : -1;
    });
}

// Ends all loading for as long as it lives, so that no job is at a node that goes.
namespace {
class LoadingPause {
public:
    LoadingPause() : wasAccepting(diskPool().accepting.exchange(false)) {
        diskPool().ClearAll();
        diskPool().WaitAll();
    }
    // After shutdownEngine the pool stays closed.
    ~LoadingPause() { diskPool().accepting = wasAccepting; }
    LoadingPause(const LoadingPause&) = delete;
    LoadingPause& operator=(const LoadingPause&) = delete;

private:
    const bool wasAccepting;
};
} // namespace

static void closeCloud(int id) {
    historyTracker.wait();
    std::lock_guard oneAtATime(closeMutex); // a second close would open the disk pool under the first
    std::shared_lock shared(mutex_);
    PointCloud* cloud = findCloud(id);
    if (!cloud) return;
    cloud->endReadAhead();
    const LoadingPause pause;
    cloud->setEnabled(false);
    OPCInterface& root = *cloud->getOPC().getRootNode();
    root.clearWindowVisibility();
    root.unload(true);
    shared.unlock();

    // Only a close removes entries, and this is the only one.
    std::unique_ptr<PointCloud> closed;
    {
        std::unique_lock exclusive(mutex_);
        root.getVBODeleteData(&deleteVboList);
        historyTracker.forget(cloud->getFile());
        currentHistory.forget(cloud->getFile());
        const auto entry = std::find_if(pointClouds.begin(), pointClouds.end(),
                                        [cloud](const auto& next) { return next.get() == cloud; });
        closed = std::move(*entry);
        pointClouds.erase(entry);
    }
    // The tree goes when nobody can reach it any more, so that frames do not wait for that.
}

void closePointCloud(int id) {
    guarded(0, [id] {
        closeCloud(id);
        return 0;
    });
    pointCloudsChanged = true;
}

void setEnabled(int id, bool enabled) {
    withCloud(id, [enabled](PointCloud& cloud) { cloud.setEnabled(enabled); });
    pointCloudsChanged = true;
}

void setMask(int id, bool mask) {
    withCloud(id, [mask](PointCloud& cloud) { cloud.setMask(mask); });
}

void setScale(int id, double scale) {
    withCloud(id, [scale](PointCloud& cloud) { cloud.setScale(scale); });
}

void setPointCloudPosition(int id, const double* matrix) {
    if (!matrix) return;
    withCloud(id, [matrix](PointCloud& cloud) { cloud.setModelMatrix(glm::make_mat4(matrix)); });
}

void setPointCloudProperties(int id, int lodFactor, int colourMode, int smoothing, int useLasColours, int ignoreClipBox,
                             float pointSize, float pointRatio, float red, float green, float blue, float brightness,
                             float contrast, float opacity, float range, float strength, float resolution) {
    withCloud(id, [&](PointCloud& cloud) {
        cloud.changeProperties([&](PointCloudProperties& properties) {
            properties.lodFactor = lodFactor;
            properties.colourMode = colourMode;
            properties.smoothing = static_cast<uint8_t>(smoothing);
            properties.useLasColours = static_cast<uint8_t>(useLasColours);
            properties.ignoreClipBox = static_cast<uint8_t>(ignoreClipBox);
            properties.pointSize = pointSize;
            properties.pointRatio = pointRatio;
            properties.red = red;
            properties.green = green;
            properties.blue = blue;
            properties.brightness = brightness;
            properties.contrast = contrast;
            properties.opacity = opacity;
            properties.range = range;
            properties.strength = strength;
            properties.resolution = resolution;
        });
    });
}

void unregisterWindow(int window) {
    guarded(0, [window] {
        std::shared_lock lock(mutex_);
        for (const auto& cloud : pointClouds) cloud->unregisterWindow(window);
        return 0;
    });
}

// ---- Load notification

void registerCacheCallback(NimbrelCacheCallback callback) {
    registerLoadNotification(callback);
}

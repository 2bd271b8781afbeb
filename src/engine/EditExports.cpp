#include "engine/EngineState.h"
#include "engine/Participation.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPCInterface.h"

// The exports that change points in the file, and those of the history of changes.

namespace {

OPCInterface& rootOf(const PointCloud& cloud) {
    return *cloud.getOPC().getRootNode();
}

// Begins or ends the recording in all clouds. The caller holds mutex_ exclusively, so that no edit is under way.
void setHistoryGroupOfAll(HistoryGroup* group) {
    for (const auto& cloud : pointClouds) rootOf(*cloud).setHistoryGroup(group);
}

// Ends the recording and keeps what it has; true if that is anything. The caller holds mutex_ exclusively.
bool endRecording() {
    setHistoryGroupOfAll(nullptr);
    history = nullptr; // also where no cloud is open any more
    currentHistory.closeBackupFile();
    if (currentHistory.isEmpty()) return false;
    historyTracker.addToHistory(std::move(currentHistory));
    return true;
}

} // namespace

// ---- Editing

void deleteSelectedPoints() {
    changePoints([] {
        historyTracker.removeTypeFromHistory(HistoryType::SELECTION);
        forEachEnabled([](PointCloud& cloud) {
            if (!cloud.getMask() && cloud.isWritable()) rootOf(cloud).deleteSelectedPoints();
        });
    });
    pointCloudsChanged = true;
}

void restorePointCloud(int id) {
    changePoints([id] {
        if (PointCloud* cloud = findCloud(id)) rootOf(*cloud).restorePointCloud();
    });
    pointCloudsChanged = true;
}

void setLasValueOnSelectedPoints(int value) {
    auto byte = static_cast<unsigned char>(value);
    changePoints([&byte] {
        forEachEnabled([&byte](PointCloud& cloud) {
            if (!cloud.getMask()) rootOf(cloud).setLasValueOnSelectedPoints(byte);
        });
    });
}

// ---- History

void startHistoryRecording(const wchar_t* path, int type) {
    if (isAnyNull(path)) return;
    guarded(0, [path, type] {
        std::unique_lock lock(mutex_);
        endRecording(); // under the same lock: two recordings that begin at once must not share a group
        currentHistory.setPath(path);
        currentHistory.setType(type);
        setHistoryGroupOfAll(&currentHistory);
        return 0;
    });
}

bool stopHistoryRecording() {
    return guarded(false, [] {
        std::unique_lock lock(mutex_);
        return endRecording();
    });
}

void undo() {
    guarded(0, [] {
        historyTracker.undo();
        return 0;
    });
    pointCloudsChanged = true;
}

void redo() {
    guarded(0, [] {
        historyTracker.redo();
        return 0;
    });
    pointCloudsChanged = true;
}

void clearHistory() {
    guarded(0, [] {
        historyTracker.clear();
        return 0;
    });
}

void nimbrelWaitForHistory() {
    guarded(0, [] {
        historyTracker.wait();
        return 0;
    });
}

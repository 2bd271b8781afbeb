#pragma once

#include "edit/HistoryGroup.h"
#include "ground/ThreadPool.h"

#include <functional>
#include <mutex>
#include <shared_mutex>
#include <vector>

// What can be undone and what can be redone. Undoing a group makes the opposite group, so that undo and redo are one
// operation with the stacks exchanged. All operations may be called from any thread; there is no limit on the depth.
class HistoryTracker {
public:
    // Jobs hold `editsIn`, and then `tableIn` in shared mode.
    HistoryTracker(std::mutex& editsIn, std::shared_mutex& tableIn) : edits(editsIn), table(tableIn) {}

    // What could be redone stays so.
    void addToHistory(HistoryGroup group);

    // Queue a job and return; jobs run one after the other in the order of the calls. With nothing to undo and no job
    // under way that could change that, nothing is queued.
    void undo() { exchange(undoList, redoList); }
    void redo() { exchange(redoList, undoList); }

    // Returns when all jobs are done. Whoever edits calls it first, before taking either of those locks.
    void wait() { pool.WaitAll(); }

    // Takes no more jobs, and returns when all are done.
    void finish();

    void clear();
    void removeTypeFromHistory(int type);

    // Drops what belongs to one cloud. The caller holds the table exclusively, so that no job is at it.
    void forget(const PointCloudFile& file);

    // How many groups there are to undo and to redo.
    [[nodiscard]] std::pair<size_t, size_t> depths();

private:
    void exchange(std::vector<HistoryGroup>& from, std::vector<HistoryGroup>& to);
    void removeIf(const std::function<bool(HistoryGroup&)>& isDoomed);

    std::mutex& edits;
    std::shared_mutex& table;
    std::mutex mutex;                   // guards the two lists; no group is processed under it
    std::vector<HistoryGroup> undoList; // last entry on top
    std::vector<HistoryGroup> redoList;
    ThreadPool pool{1}; // last, so that its jobs end first
};

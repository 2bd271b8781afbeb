#include "edit/HistoryTracker.h"

#include "ground/Log.h"

#include <exception>
#include <optional>
#include <utility>

void HistoryTracker::addToHistory(HistoryGroup group) {
    std::lock_guard lock(mutex);
    undoList.push_back(std::move(group));
}

void HistoryTracker::exchange(std::vector<HistoryGroup>& from, std::vector<HistoryGroup>& to) {
    {
        std::lock_guard lock(mutex);
        if (from.empty() && pool.outstandingJobs() == 0) return;
    }
    pool.AddJob([this, &from, &to] {
        try {
            std::lock_guard oneAtATime(edits);
            std::shared_lock tableLock(table);
            std::optional<HistoryGroup> top;
            {
                std::lock_guard lock(mutex);
                if (from.empty()) return;
                top = std::move(from.back());
                from.pop_back();
            }
            HistoryGroup opposite = top->process();
            std::lock_guard lock(mutex);
            to.push_back(std::move(opposite));
        } catch (const std::exception& failure) {
            setLastError(failure.what()); // no memory; an exception would end the process from here
        }
    });
}

void HistoryTracker::finish() {
    pool.accepting = false;
    pool.WaitAll();
}

void HistoryTracker::removeIf(const std::function<bool(HistoryGroup&)>& isDoomed) {
    std::lock_guard lock(mutex);
    std::erase_if(undoList, isDoomed);
    std::erase_if(redoList, isDoomed);
}

void HistoryTracker::removeTypeFromHistory(int type) {
    removeIf([type](HistoryGroup& group) { return group.getType() == type; });
}

void HistoryTracker::forget(const PointCloudFile& file) {
    removeIf([&file](HistoryGroup& group) {
        group.forget(file);
        return group.isEmpty();
    });
}

void HistoryTracker::clear() {
    std::vector<HistoryGroup> undone;
    std::vector<HistoryGroup> redone;
    std::lock_guard lock(mutex);
    undoList.swap(undone);
    redoList.swap(redone);
}

std::pair<size_t, size_t> HistoryTracker::depths() {
    std::lock_guard lock(mutex);
    return {undoList.size(), redoList.size()};
}

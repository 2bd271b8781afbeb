#include "stream/ParallelNodeWalk.h"

#include "ground/Parallel.h"
#include "ground/Pools.h"
#include "stream/OPCInterface.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <vector>

// Each worker goes down its part of the tree on a list of its own, and gives the older half of that list away, which
// holds the larger subtrees, when somebody is out of work. So threads meet only when one runs dry; a job for each node
// would make them meet at every node, and the queue as long as the tree is wide.

namespace {

struct Waiting {
    OPCInterface* node;
    int task;
};

class ParallelWalk {
public:
    ParallelWalk(Waiting first, const NodeVisit& visitIn) : visit(visitIn), shared{first} {}

    // Works until nothing is left anywhere, or a visit fails.
    void work(int worker) {
        std::vector<Waiting> mine;
        std::exception_ptr failure;
        for (bool isFirst = true; take(mine, isFirst); isFirst = false) {
            try {
                while (!mine.empty() && !isEnded) step(mine, worker);
            } catch (...) {
                failure = std::current_exception();
                end();
            }
            mine.clear();
        }
        if (failure) std::rethrow_exception(failure);
    }

private:
    void step(std::vector<Waiting>& mine, int worker) {
        const auto [node, task] = mine.back();
        mine.pop_back();
        const int below = visit(*node, task, worker);
        if (below != STOP_DESCENT) {
            const auto& children = node->getChildren();
            for (auto child = children.rbegin(); child != children.rend(); ++child) {
                mine.push_back({child->get(), below});
            }
        }
        if (idle > 0 && mine.size() > 1) give(mine);
    }

    void give(std::vector<Waiting>& mine) {
        const auto half = mine.begin() + static_cast<std::ptrdiff_t>(mine.size() / 2);
        {
            std::lock_guard lock(mutex);
            shared.insert(shared.end(), mine.begin(), half);
        }
        changed.notify_all();
        mine.erase(mine.begin(), half);
    }

    // Waits for work; false when there is none and nobody is left who could give any.
    bool take(std::vector<Waiting>& mine, bool isFirst) {
        std::unique_lock lock(mutex);
        if (!isFirst && --busy == 0 && shared.empty()) changed.notify_all();
        ++idle;
        changed.wait(lock, [this] { return !shared.empty() || busy == 0; });
        --idle;
        if (shared.empty()) return false;
        const size_t part = idle > 0 ? (shared.size() + 1) / 2 : shared.size();
        const auto from = shared.end() - static_cast<std::ptrdiff_t>(part);
        mine.assign(from, shared.end());
        shared.erase(from, shared.end());
        ++busy;
        return true;
    }

    void end() {
        std::lock_guard lock(mutex);
        shared.clear();
        isEnded = true;
    }

    const NodeVisit& visit; // the caller's
    std::mutex mutex;       // guards everything below
    std::condition_variable changed;
    std::vector<Waiting> shared; // for whoever is out of work
    int busy = 0;                // workers with nodes of their own
    std::atomic<int> idle{0};    // workers that wait; written under the mutex, looked at without it
    std::atomic<bool> isEnded{false};
};

} // namespace

int parallelWalkWorkers() {
    return maxCores();
}

void walkNodesInParallel(OPCInterface& root, int task, const NodeVisit& visit) {
    ParallelWalk walk({&root, task}, visit);
    std::atomic<int> workers{0};
    const int helpers = root.getChildren().empty() ? 0 : parallelWalkWorkers() - 1;
    runWithHelpers(root.getProcessingThreadPool(), helpers, [&] { walk.work(workers++); });
}

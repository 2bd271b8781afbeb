#include "ground/Parallel.h"

#include "ground/Pools.h"
#include "ground/ThreadPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>

namespace {

// What the caller and its helpers share; outlives the call where a helper comes too late.
class Team {
public:
    // `work` is valid until close() has returned.
    explicit Team(const std::function<void()>& workIn) : work(workIn) {}

    // A helper's part; nothing once the team is closed.
    void help() {
        {
            const std::lock_guard lock(mutex);
            if (isClosed) return;
            ++running;
        }
        run();
        const std::lock_guard lock(mutex);
        --running;
        ended.notify_one();
    }

    void run() {
        try {
            work();
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    }

    // Lets no helper begin any more, waits for those that run, and throws what went wrong first.
    void close() {
        std::unique_lock lock(mutex);
        isClosed = true;
        ended.wait(lock, [this] { return running == 0; });
        if (failure) std::rethrow_exception(failure);
    }

private:
    const std::function<void()>& work;
    std::mutex mutex; // guards everything below
    std::condition_variable ended;
    int running = 0; // helpers
    bool isClosed = false;
    std::exception_ptr failure;
};

} // namespace

void runWithHelpers(ThreadPool& pool, int helpers, const std::function<void()>& work) {
    const auto team = std::make_shared<Team>(work);
    try {
        for (int i = 0; i < helpers; ++i) pool.AddJob([team] { team->help(); });
    } catch (const std::bad_alloc&) { // then with fewer of them
    }
    team->run();
    team->close();
}

void forEachInParallel(ThreadPool& pool, size_t count, const std::function<bool(size_t)>& work) {
    if (count == 0) return;
    std::atomic<size_t> next{0};
    const size_t threads = std::min(count, static_cast<size_t>(maxCores()));
    runWithHelpers(pool, static_cast<int>(threads) - 1, [&] {
        try {
            for (size_t i = next++; i < count; i = next++) {
                if (!work(i)) next = count;
            }
        } catch (...) {
            next = count;
            throw;
        }
    });
}

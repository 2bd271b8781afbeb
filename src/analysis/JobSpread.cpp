#include "analysis/JobSpread.h"

#include "ground/Pools.h"
#include "ground/ThreadPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>

namespace {

// Shared by the calling thread and the jobs, the last of which may start long after the call has returned.
class Spread {
public:
    Spread(size_t countIn, const std::function<bool(size_t)>& workIn) : count(countIn), work(&workIn) {}

    // A job's part; nothing once the call is over.
    void join() {
        {
            std::lock_guard lock(mutex);
            if (closed) return;
            ++running;
        }
        run();
        std::lock_guard lock(mutex);
        --running;
        finished.notify_one();
    }

    // Takes numbers until there are none left.
    void run() {
        try {
            for (size_t i = next++; i < count; i = next++) {
                if (!(*work)(i)) next = count;
            }
        } catch (...) {
            next = count;
            std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    }

    // No job begins any more, and those that run are waited for.
    void close() {
        std::unique_lock lock(mutex);
        closed = true;
        finished.wait(lock, [this] { return running == 0; });
    }

    // After close().
    void rethrow() const {
        if (failure) std::rethrow_exception(failure);
    }

private:
    const size_t count;
    const std::function<bool(size_t)>* const work; // valid until closed
    std::atomic<size_t> next{0};
    std::mutex mutex; // guards everything below
    std::condition_variable finished;
    int running = 0;
    bool closed = false;
    std::exception_ptr failure;
};

} // namespace

void spreadOverPool(ThreadPool& pool, size_t count, const std::function<bool(size_t)>& work) {
    if (count == 0) return;
    const auto spread = std::make_shared<Spread>(count, work);
    const struct Closing {
        Spread& toClose;
        ~Closing() { toClose.close(); }
    } closing{*spread};
    const size_t helpers = std::min(count, static_cast<size_t>(maxCores())) - 1;
    for (size_t i = 0; i < helpers; ++i) pool.AddJob([spread] { spread->join(); });
    spread->run();
    spread->close();
    spread->rethrow();
}

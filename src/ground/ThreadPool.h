#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

// A fixed set of workers with two queues: plain jobs, first in first out, and jobs keyed by a 64-bit id.
//
// A keyed job that is still waiting can be replaced or withdrawn, and keyed jobs always run ahead of plain ones. That
// lets the streaming code ask for a node again with each camera and take the request back when the node leaves the
// view. All operations may be called from any thread. A job that throws ends the process.
//
// Locks: queueMutex before waitMutex where both are held; a job runs with neither.
class ThreadPool {
public:
    // Starts `threads` workers. With 0, jobs queue and never run.
    explicit ThreadPool(int threads);
    ~ThreadPool(); // JoinAll(true)
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues `job`; drops it while `accepting` is false. Id 0 makes a plain job. A keyed job takes the place of one
    // that waits under the same id.
    void AddJob(std::function<void()> job, unsigned long long id = 0);

    // Withdraws a keyed job that has not started. One that already runs is not affected.
    void DeleteJob(unsigned long long id);

    // Blocks until no job is queued or running.
    void WaitAll();

    // Stops the workers for good; jobs that still wait are left unrun unless `wait`. Further calls do nothing.
    void JoinAll(bool wait);

    // Discards every job that waits.
    void ClearAll();

    // Jobs queued or running.
    [[nodiscard]] int outstandingJobs() const { return jobsLeft.load(); }

    // False closes the pool to further jobs; it can be opened again.
    std::atomic<bool> accepting{true};

private:
    void Task();
    std::function<void()> next_job();
    void addToJobsLeft(int change);

    const int threadCount;
    std::unordered_map<uint64_t, std::function<void()>> keyedJobs; // guarded by queueMutex
    std::list<std::function<void()>> queue;                        // guarded by queueMutex
    std::atomic<int32_t> jobsLeft{0}; // lowered under waitMutex, so that no waiter misses it
    std::atomic<bool> bailout{false};
    std::atomic<bool> finished{false};
    std::condition_variable jobAvailable;
    std::condition_variable waitVar;
    std::mutex waitMutex;
    std::mutex queueMutex;
    std::vector<std::thread> threads; // last, so that the workers find everything else made
};

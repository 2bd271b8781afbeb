#include "ground/ThreadPool.h"

#include <utility>

// jobsLeft counts jobs that wait or run. It rises under queueMutex, before a worker can see the job, and falls under
// waitMutex, so that WaitAll never misses the change that brings it to 0. Every fall wakes all waiters: a withdrawn
// job can be the last one too.

ThreadPool::ThreadPool(int threadCountIn) : threadCount(threadCountIn) {
    keyedJobs.max_load_factor(1.0F);
    threads.reserve(static_cast<size_t>(threadCount < 0 ? 0 : threadCount));
    for (int i = 0; i < threadCount; ++i) threads.emplace_back([this] { Task(); });
}

ThreadPool::~ThreadPool() {
    JoinAll(true);
}

void ThreadPool::AddJob(std::function<void()> job, unsigned long long id) {
    std::lock_guard lock(queueMutex);
    // Under the lock: whoever clears `accepting` and then ClearAll()s finds no job that got in between.
    if (!accepting) return;
    if (id == 0) {
        queue.push_back(std::move(job));
        ++jobsLeft;
    } else {
        const auto [entry, isNew] = keyedJobs.insert_or_assign(id, std::move(job));
        if (isNew) ++jobsLeft;
    }
    jobAvailable.notify_one();
}

void ThreadPool::DeleteJob(unsigned long long id) {
    std::lock_guard lock(queueMutex);
    if (keyedJobs.erase(id) == 1) addToJobsLeft(-1);
}

void ThreadPool::WaitAll() {
    if (jobsLeft <= 0) return;
    std::unique_lock lock(waitMutex);
    waitVar.wait(lock, [this] { return jobsLeft == 0; });
}

void ThreadPool::JoinAll(bool wait) {
    if (finished) return;
    if (wait) WaitAll();
    {
        // Under the lock, so that no worker sits between its test of bailout and its sleep.
        std::lock_guard lock(queueMutex);
        bailout = true;
    }
    jobAvailable.notify_all();
    for (std::thread& thread : threads) {
        if (thread.joinable()) thread.join();
    }
    finished = true;
}

void ThreadPool::ClearAll() {
    std::lock_guard lock(queueMutex);
    const auto discarded = static_cast<int>(keyedJobs.size() + queue.size());
    keyedJobs.clear();
    queue.clear();
    // Only what was discarded: a job that runs still counts, so that a WaitAll that follows waits for it.
    addToJobsLeft(-discarded);
}

void ThreadPool::addToJobsLeft(int change) {
    std::lock_guard lock(waitMutex);
    jobsLeft += change;
    waitVar.notify_all();
}

std::function<void()> ThreadPool::next_job() {
    std::unique_lock lock(queueMutex);
    jobAvailable.wait(lock, [this] { return bailout || !keyedJobs.empty() || !queue.empty(); });
    if (bailout) {
        ++jobsLeft; // balances the decrement that follows every job
        return [] {};
    }
    std::function<void()> job;
    if (!keyedJobs.empty()) {
        const auto first = keyedJobs.begin();
        job = std::move(first->second);
        keyedJobs.erase(first);
    } else {
        job = std::move(queue.front());
        queue.pop_front();
    }
    return job;
}

void ThreadPool::Task() {
    while (!bailout) {
        {
            const std::function<void()> job = next_job();
            job();
        } // what the job captured goes before the job counts as done
        addToJobsLeft(-1);
    }
}

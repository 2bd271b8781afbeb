#include "build/ReadAhead.h"

#include <utility>

ReadAhead::ReadAhead(Producer producerToRun) : producer(std::move(producerToRun)), thread([this] { run(); }) {}

ReadAhead::~ReadAhead() {
    {
        const std::lock_guard lock(mutex);
        stopped = true;
    }
    changed.notify_all();
    thread.join();
}

const PointBatch* ReadAhead::next() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return hasReady || ended; });
    if (!hasReady) {
        if (failure) std::rethrow_exception(failure);
        return nullptr;
    }
    std::swap(current, ready);
    hasReady = false;
    lock.unlock();
    changed.notify_all();
    return &current;
}

void ReadAhead::run() {
    PointBatch batch;
    bool more = true;
    while (more) {
        std::exception_ptr thrown;
        try {
            more = producer(batch);
        } catch (...) {
            thrown = std::current_exception();
            more = false;
        }
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return !hasReady || stopped; });
        if (stopped) return;
        if (more) {
            std::swap(batch, ready); // both keep their memory for the batches to come
            hasReady = true;
        } else {
            failure = thrown;
            ended = true;
        }
        lock.unlock();
        changed.notify_all();
    }
}

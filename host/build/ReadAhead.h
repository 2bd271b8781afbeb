#pragma once

#include "readers/PointReader.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

// Fetches batches on a thread of its own, one ahead of the caller, so that decoding and building overlap.
//
// Everything but the producer runs on the thread that owns the object.
class ReadAhead {
public:
    // Replaces the contents of a batch by the next points; false at the end. Runs on the thread of the object.
    using Producer = std::function<bool(PointBatch&)>;

    explicit ReadAhead(Producer producer);
    ~ReadAhead(); // waits for the batch that is being read, and drops it
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The next batch, valid until the next call; null at the end. What the producer throws is thrown here.
    const PointBatch* next();

private:
    void run();

    const Producer producer;
    PointBatch current; // the caller's
    std::mutex mutex;   // guards everything below
    std::condition_variable changed;
    PointBatch ready; // the next one, while hasReady
    bool hasReady = false;
    bool ended = false;   // nothing comes after `ready`
    bool stopped = false; // nobody wants more
    std::exception_ptr failure;
    std::thread thread; // last, so that it finds the rest constructed
};

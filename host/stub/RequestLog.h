#pragma once

#include "stub/CloudStub.h"

#include <condition_variable>
#include <mutex>

// What came in to both servers of a stub, and what should go wrong with it. Any thread.
class RequestLog {
public:
    // Notes the request, gives it its number, and asks the hook, without a lock, what should go wrong with it.
    StubFault arrive(StubRequest request);

    void setHook(CloudStub::FaultHook newHook);
    [[nodiscard]] std::vector<StubRequest> all() const;
    void forget();

    // Waits so long, or until end() was called. False once it was.
    bool wait(std::chrono::nanoseconds time);
    void end();

private:
    static constexpr size_t MOST_KEPT = 100000;

    mutable std::mutex mutex; // guards everything below
    std::condition_variable ended;
    bool hasEnded = false;
    std::shared_ptr<const CloudStub::FaultHook> hook; // shared with the calls of it that still run
    std::vector<StubRequest> requests;
    int64_t arrived[2] = {0, 0}; // at the web API, at the store
};

#include "stub/RequestLog.h"

StubFault RequestLog::arrive(StubRequest request) {
    std::shared_ptr<const CloudStub::FaultHook> asked;
    {
        const std::scoped_lock lock(mutex);
        request.number = arrived[request.isStore ? 1 : 0]++;
        if (requests.size() < MOST_KEPT) requests.push_back(request);
        asked = hook;
    }
    return asked ? (*asked)(request) : StubFault();
}

void RequestLog::setHook(CloudStub::FaultHook newHook) {
    auto shared = newHook ? std::make_shared<const CloudStub::FaultHook>(std::move(newHook)) : nullptr;
    const std::scoped_lock lock(mutex);
    hook = std::move(shared);
}

std::vector<StubRequest> RequestLog::all() const {
    const std::scoped_lock lock(mutex);
    return requests;
}

void RequestLog::forget() {
    const std::scoped_lock lock(mutex);
    requests.clear();
}

bool RequestLog::wait(std::chrono::nanoseconds time) {
    std::unique_lock lock(mutex);
    return !ended.wait_for(lock, time, [this] { return hasEnded; });
}

void RequestLog::end() {
    const std::scoped_lock lock(mutex);
    hasEnded = true;
    ended.notify_all();
}

#include "remote/RequestStop.h"

#include <utility>

bool RequestStop::requested() const {
    std::lock_guard lock(mutex);
    return isRequested;
}

void RequestStop::request() {
    std::lock_guard lock(mutex);
    isRequested = true;
    for (const auto& interrupt : interrupts) interrupt();
    changed.notify_all();
}

bool RequestStop::pause(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, time, [this] { return isRequested; });
}

RequestStop::Watch::Watch(RequestStop* stopIn, std::function<void()> interrupt) : stop(stopIn) {
    if (!stop) return;
    std::lock_guard lock(stop->mutex);
    place = stop->interrupts.insert(stop->interrupts.end(), std::move(interrupt));
}

RequestStop::Watch::~Watch() {
    if (!stop) return;
    std::lock_guard lock(stop->mutex);
    stop->interrupts.erase(place);
}

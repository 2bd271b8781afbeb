#include "support/Waiting.h"
#include "support/Text.h"

#include <chrono>
#include <fmt/format.h>
#include <future>

void runAndShow(Console& console, const std::string& stage, const std::function<void()>& work) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    std::future<void> result = std::async(std::launch::async, work);
    while (result.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (seconds >= 1.0 && console.isTerminal()) console.status(fmt::format("{}  {}", stage, duration(seconds)));
    }
    console.clearStatus();
    result.get();
}

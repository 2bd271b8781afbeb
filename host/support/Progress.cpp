#include "support/Progress.h"
#include "support/Text.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

Progress::Progress(Console& consoleToUse, std::string stageName, uint64_t totalToDo, Unit unitOfThat)
    : console(consoleToUse), stage(std::move(stageName)), total(totalToDo), unit(unitOfThat) {}

Progress::~Progress() {
    console.clearStatus();
    constexpr double WORTH_TELLING = 1.0; // seconds
    if (!finished || elapsed < WORTH_TELLING) return;
    std::string text = fmt::format("{}: {} in {}", stage, amount(), duration(elapsed));
    if (done > 0 && !speed().empty()) text += ", " + speed();
    console.note(text);
}

void Progress::update(uint64_t newDone) {
    update(newDone, total > 0 ? static_cast<double>(newDone) / static_cast<double>(total) : -1.0);
}

void Progress::update(uint64_t newDone, double newShare) {
    done = newDone;
    share = std::min(newShare, 1.0);
    const Clock::time_point now = Clock::now();
    if (now < nextShow) return;
    elapsed = std::chrono::duration<double>(now - start).count();
    if (console.isTerminal()) {
        nextShow = now + std::chrono::milliseconds(100);
        console.status(line(true));
    } else {
        nextShow = now + std::chrono::seconds(5);
        console.note(line(false));
    }
}

void Progress::finish(uint64_t newDone) {
    done = newDone;
    elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    finished = true;
}

std::string Progress::amount() const {
    return unit == BYTES ? byteSize(done) : counted(done, "point");
}

// Empty when the time is too short to tell.
std::string Progress::speed() const {
    if (unit == POINTS) return rate(done, elapsed);
    constexpr double TOO_SHORT = 0.001; // seconds
    return elapsed < TOO_SHORT ? std::string()
                               : byteSize(static_cast<uint64_t>(static_cast<double>(done) / elapsed)) + "/s";
}

// Fits 80 columns up to 99,999,999,999 points; what matters least stands last.
std::string Progress::line(bool withBar) const {
    constexpr int BAR_WIDTH = 16;
    constexpr double TOO_LITTLE_TO_TELL = 0.01; // of the whole
    std::string text = withBar ? fmt::format("{:<9}", stage) : stage + ":";
    if (share >= 0.0) {
        const auto filled = static_cast<size_t>(share * BAR_WIDTH);
        if (withBar) text += fmt::format(" [{:-<{}}]", std::string(filled, '#'), BAR_WIDTH);
        text += fmt::format(" {:3.0f} %", share * 100.0);
    }
    if (share > TOO_LITTLE_TO_TELL) text += fmt::format("  {} left", duration(elapsed * (1.0 - share) / share));
    if (done > 0) text += fmt::format("  {}  {}", amount(), speed());
    return text;
}

#pragma once

#include "support/Console.h"

#include <chrono>
#include <cstdint>
#include <string>

// Shows how far one stage of a command is: a bar on a terminal, otherwise a line every few seconds.
//
// A stage of less than a second shows nothing. Belongs to one thread.
class Progress {
public:
    enum Unit { POINTS, BYTES }; // what is counted

    // total  points to come, or bytes; 0 when not known
    Progress(Console& console, std::string stage, uint64_t total, Unit unit = POINTS);
    ~Progress(); // takes the bar away, and leaves a line about the whole stage once it was finished
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // So many are done. Costs a look at the clock most of the time.
    void update(uint64_t newDone);
    // The same where the share, 0 to 1, does not follow from that; below 0 when it is not known.
    void update(uint64_t newDone, double newShare);

    void finish(uint64_t newDone);

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] std::string line(bool withBar) const;
    [[nodiscard]] std::string amount() const;
    [[nodiscard]] std::string speed() const;

    Console& console;
    const std::string stage;
    const uint64_t total;
    const Unit unit;
    const Clock::time_point start = Clock::now();
    Clock::time_point nextShow = start + std::chrono::seconds(1);
    uint64_t done = 0;
    double share = -1.0;
    double elapsed = 0.0; // seconds since `start`, at the last look at the clock
    bool finished = false;
};

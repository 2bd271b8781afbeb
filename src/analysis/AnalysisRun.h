#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// One call of an analysis: how far it is, and whether it was asked to end. Any thread.
//
// A request to end counts for the calls under way, and leaves nothing behind for those that follow: each remembers how
// many requests there were when it began.
class AnalysisRun {
public:
    enum Kind { MEASURE, CLASSIFICATION };

    explicit AnalysisRun(Kind kindIn);
    AnalysisRun(const AnalysisRun&) = delete;
    AnalysisRun& operator=(const AnalysisRun&) = delete;

    // Asks all calls of a kind that are under way to end.
    static void requestEnd(Kind kind);
    [[nodiscard]] bool isToEnd() const;

    // The next advance() is about cloud `index` of `count`.
    void beginCloud(size_t index, size_t count);
    // So much of the cloud's part is done, from 0 to 1.
    void advance(double share);
    // All is done, unless the call was asked to end.
    void finish();

    // How far the call is that began or advanced last.
    static double lastProgress();

private:
    const Kind kind;
    const uint64_t requestsBefore;
    std::atomic<double> start{0.0};
    std::atomic<double> length{1.0};
};

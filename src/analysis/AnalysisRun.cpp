#include "analysis/AnalysisRun.h"

static std::atomic<uint64_t> requests[2]{};
static std::atomic<double> progress{0.0};

AnalysisRun::AnalysisRun(Kind kindIn) : kind(kindIn), requestsBefore(requests[kindIn]) {
    progress = 0.0;
}

void AnalysisRun::requestEnd(Kind kind) {
    ++requests[kind];
}

bool AnalysisRun::isToEnd() const {
    return requests[kind] != requestsBefore;
}

void AnalysisRun::beginCloud(size_t index, size_t count) {
    length = 1.0 / static_cast<double>(count);
    start = static_cast<double>(index) * length;
    advance(0.0);
}

void AnalysisRun::advance(double share) {
    progress = start + length * share;
}

void AnalysisRun::finish() {
    if (!isToEnd()) progress = 1.0;
}

double AnalysisRun::lastProgress() {
    return progress;
}

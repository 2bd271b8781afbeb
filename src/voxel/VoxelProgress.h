#pragma once

#include <atomic>
#include <cstdint>

// How far an export of a model is, as four counters that the library exports as well: a host sees each as a plain
// 32-bit integer, which is why they have C linkage and why no source may include this header beside the public one.
// All are 1 while no export runs. The library itself must reach them through the symbol, too: a program that names one
// may hold the only copy that counts.
#pragma GCC visibility push(default)
extern "C" {
extern std::atomic<int32_t> voxelStageLimit;    // stages of the export
extern std::atomic<int32_t> voxelStageCount;    // stages that are over
extern std::atomic<int32_t> voxelProgressLimit; // steps of the stage
extern std::atomic<int32_t> voxelProgressCount; // steps done
}
#pragma GCC visibility pop

static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t) && std::atomic<int32_t>::is_always_lock_free,
              "hosts read the counters as plain integers");

// (stages + share of the running one) over all stages, in 32-bit float: 2 while no export runs, and not finite while
// there are no stages.
float voxelProgress();

// Begins an export, before its first stage.
void beginVoxelProgress(int32_t stages);

// Goes on to the next stage.
void nextVoxelStage(int64_t steps);

// Notes steps done of the stage; cut to 32 bits.
void setVoxelProgress(uint64_t steps);

// Back to 1, all four.
void endVoxelProgress();

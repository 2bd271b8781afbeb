#include "voxel/VoxelProgress.h"

constinit std::atomic<int32_t> voxelStageLimit{1};
constinit std::atomic<int32_t> voxelStageCount{1};
constinit std::atomic<int32_t> voxelProgressLimit{1};
constinit std::atomic<int32_t> voxelProgressCount{1};

float voxelProgress() {
    const auto stages = static_cast<float>(voxelStageLimit);
    const float over = static_cast<float>(voxelStageCount) / stages;
    const float running = static_cast<float>(voxelProgressCount) / static_cast<float>(voxelProgressLimit);
    return over + running * (1.0F / stages);
}

void beginVoxelProgress(int32_t stages) {
    voxelStageCount = 0;
    voxelStageLimit = stages;
    voxelProgressCount = 0;
    voxelProgressLimit = 1;
}

// The count goes first, so that a reader in between sees a stage that has just begun and never one beyond its end.
void nextVoxelStage(int64_t steps) {
    voxelProgressCount = 0;
    voxelProgressLimit = static_cast<int32_t>(steps);
    ++voxelStageCount;
}

void setVoxelProgress(uint64_t steps) {
    voxelProgressCount = static_cast<int32_t>(steps);
}

void endVoxelProgress() {
    voxelStageCount = 1;
    voxelStageLimit = 1;
    voxelProgressCount = 1;
    voxelProgressLimit = 1;
}

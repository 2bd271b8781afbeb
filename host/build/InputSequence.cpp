#include "build/InputSequence.h"
#include "support/Failure.h"

#include <algorithm>
#include <utility>

static bool isInside(const double* position, const BoundsBox& box) {
    for (size_t axis = 0; axis < 3; ++axis) {
        if (!(position[axis] >= box[axis] && position[axis] <= box[axis + 3])) return false;
    }
    return true;
}

size_t cropBatch(PointBatch& batch, const BoundsBox& box) {
    const size_t count = batch.size();
    size_t kept = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!isInside(&batch.positions[i * 3], box)) continue;
        if (kept != i) {
            std::copy_n(&batch.positions[i * 3], 3, &batch.positions[kept * 3]);
            std::copy_n(&batch.attributes[i * 5], 5, &batch.attributes[kept * 5]);
        }
        ++kept;
    }
    batch.resize(kept);
    return count - kept;
}

InputSequence::InputSequence(std::vector<BuildInput> inputsToRead, ReadOptions readOptions,
                             std::optional<BoundsBox> boundsToKeep)
    : inputs(std::move(inputsToRead)), options(std::move(readOptions)), bounds(boundsToKeep) {}

bool InputSequence::readCurrent(PointBatch& batch) {
    const BuildInput& input = inputs[next - 1];
    try {
        return current->read(batch, BATCH_POINTS) > 0;
    } catch (const FileError& error) {
        throw CommandFailure(input.path, error.what());
    }
}

bool InputSequence::read(PointBatch& batch) {
    while (!current || !readCurrent(batch)) {
        if (next == inputs.size()) return false;
        const BuildInput& input = inputs[next++];
        try {
            current = openPoints(input.path, options);
        } catch (const FileError& error) {
            throw CommandFailure(input.path, error.what());
        }
        current->setScale(input.scale);
    }
    if (bounds) outsideCount += cropBatch(batch, *bounds);
    readCount += batch.size();
    return true;
}

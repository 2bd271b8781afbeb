#include "stream/GPUBatch.h"

#include <algorithm>
#include <cstring>

void GPUBatch::fill(std::unique_ptr<unsigned char[]> vertices, int sizeInBytes) {
    std::lock_guard lock(mutex);
    data = std::move(vertices);
    size = sizeInBytes;
    loaded = true;
    changed = true;
}

bool GPUBatch::clear() {
    std::lock_guard lock(mutex);
    if (!data) return false;
    loaded = false;
    changed = false;
    data.reset();
    size = 0;
    vertexCount = 0;
    return true;
}

bool GPUBatch::copyTo(std::span<unsigned char> out) const {
    std::lock_guard lock(mutex);
    if (!data) return false;
    const size_t common = std::min(out.size(), static_cast<size_t>(size));
    if (common > 0) std::memcpy(out.data(), data.get(), common);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(common), out.end(), static_cast<unsigned char>(0));
    return true;
}

bool GPUBatch::isResident() const {
    std::lock_guard lock(mutex);
    return data != nullptr;
}

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

// The vertices of a resident node (Vertex in PointRecord.h), and the name of the GPU buffer that shows them.
//
// A node is resident while `data` is not null; a resident node without points has a block of no bytes. The disk thread
// fills the batch and any thread empties it, holding the node's mutex; the render thread uploads it. All of them hold
// the batch's mutex while they touch it, taken after the node's.
class GPUBatch {
public:
    // Takes complete vertices in place of what was there, and asks for their upload.
    void fill(std::unique_ptr<unsigned char[]> vertices, int sizeInBytes);

    // Frees the vertices; false if there were none. The GPU buffer stays until the render thread deletes it.
    bool clear();

    // Copies vertices to `out`, as many as both hold, and zeros behind them; false, with `out` untouched, unless the
    // node is resident.
    bool copyTo(std::span<unsigned char> out) const;

    [[nodiscard]] bool isResident() const;

    mutable std::mutex mutex;              // guards everything below, the atomics' reads apart
    std::unique_ptr<unsigned char[]> data; // null: absent
    int32_t size = 0;                      // bytes in data
    int32_t vertexCount = 0;               // vertices in the GPU buffer, as of its upload
    uint32_t vbo = 0;                      // buffer name, 0 if none
    bool visited = false;                  // drawn since its buffers were freed, so that its subtree may have some
    std::atomic<bool> loaded{false};       // data is complete
    std::atomic<bool> changed{false};      // data waits for its upload
};

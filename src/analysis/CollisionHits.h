#pragma once

#include <atomic>
#include <glm/vec3.hpp>
#include <mutex>
#include <vector>

// The contacts of one collision test, never more than its limit. Any thread.
class CollisionHits {
public:
    explicit CollisionHits(int limitIn) : limit(limitIn > 0 ? static_cast<size_t>(limitIn) : 0) {}

    // Whether there is no room for more, which ends a search early.
    [[nodiscard]] bool isFull() const { return count >= limit; }

    void add(const glm::dvec3& place) {
        std::lock_guard lock(collisionMutex);
        if (hits.size() >= limit) return;
        hits.push_back(place);
        count = hits.size();
    }

    // For when no other thread adds any more.
    [[nodiscard]] const std::vector<glm::dvec3>& all() const { return hits; }

private:
    const size_t limit;
    std::atomic<size_t> count{0}; // hits.size(), to be read without the lock
    std::mutex collisionMutex;    // guards hits
    std::vector<glm::dvec3> hits;
};

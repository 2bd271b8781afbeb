#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>

// A map that keeps at most a fixed number of entries: adding one more drops the entry that was used least recently.
//
// Order of use in a list, found through a map from key to place in the list; splice() moves an entry to the front
// without copying it and keeps the places valid. Values are handed out by copy, so that an entry that another thread
// drops stays whole for who is using it: shared pointers, in practice. Callable from any thread.
template <typename Key, typename Value>
class LRUCache {
public:
    // `capacity` is at least 1.
    explicit LRUCache(size_t capacityIn) : capacity(capacityIn) {}

    // Adds or replaces, as the entry used last.
    void put(const Key& key, Value value) {
        std::lock_guard lock(mutex);
        if (const auto found = places.find(key); found != places.end()) {
            found->second->second = std::move(value);
            byUse.splice(byUse.begin(), byUse, found->second);
            return;
        }
        if (places.size() >= capacity) {
            places.erase(byUse.back().first);
            byUse.pop_back();
        }
        byUse.emplace_front(key, std::move(value));
        places.emplace(key, byUse.begin());
    }

    // The value, which counts as a use; empty for a key that is not there.
    [[nodiscard]] std::optional<Value> get(const Key& key) {
        std::lock_guard lock(mutex);
        const auto found = places.find(key);
        if (found == places.end()) return std::nullopt;
        byUse.splice(byUse.begin(), byUse, found->second);
        return found->second->second;
    }

private:
    using Entries = std::list<std::pair<Key, Value>>;
    const size_t capacity;
    std::mutex mutex; // guards everything below
    Entries byUse;    // front: used last
    std::unordered_map<Key, typename Entries::iterator> places;
};

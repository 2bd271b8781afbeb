#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>

class OPCInterface;

// What was worked out for the nodes looked at last, for as long as one analysis runs. Any thread.
template <typename Value>
class NodeCache {
public:
    // capacity  nodes to keep, at least 1
    explicit NodeCache(size_t capacityIn) : capacity(capacityIn) {}

    // The value of a node; made by make(), which returns a std::unique_ptr, where it is not kept. Two threads that ask
    // for a node at the same time may both make it, since nothing is locked meanwhile. A null value is kept as well.
    template <typename Make>
    std::shared_ptr<Value> get(const OPCInterface* node, Make make) {
        {
            std::lock_guard lock(mutex);
            const auto known = entries.find(node);
            if (known != entries.end()) {
                byUse.splice(byUse.begin(), byUse, known->second);
                return known->second->second;
            }
        }
        std::shared_ptr<Value> value = make(); // shared: a reader may hold it beyond its time here
        std::lock_guard lock(mutex);
        byUse.emplace_front(node, value);
        if (const auto [entry, isNew] = entries.try_emplace(node, byUse.begin()); !isNew) {
            byUse.pop_front();
            return entry->second->second;
        }
        if (byUse.size() > capacity) {
            entries.erase(byUse.back().first);
            byUse.pop_back();
        }
        return value;
    }

private:
    using Order = std::list<std::pair<const OPCInterface*, std::shared_ptr<Value>>>;
    const size_t capacity;
    std::mutex mutex; // guards the two below
    Order byUse;      // front: used last
    std::unordered_map<const OPCInterface*, typename Order::iterator> entries;
};

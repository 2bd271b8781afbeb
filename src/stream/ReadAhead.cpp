#include "stream/ReadAhead.h"

#include "ground/Pools.h"
#include "ground/ThreadPool.h"
#include "stream/GPUBatch.h"
#include "stream/OPCNode.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <system_error>

namespace {

// Beyond any file, so that sums of places and sizes do not overflow.
constexpr int64_t FARTHEST = int64_t{1} << 60;

bool adjoins(OPCNode& node) {
    const int64_t location = node.getPointDataByteLocation();
    return !node.isRoot() && location >= 0 && location < FARTHEST;
}

// A read that fails after so long speaks of the server rather than of the node.
constexpr std::chrono::seconds HOPELESS_AFTER{3};

// Reads a node and waits until the disk thread has taken it, or has dropped it because a cloud is closing. False when
// the read failed.
bool fetch(OPCNode& node) {
    if (!node.isVisibleAnyWindows()) return true;
    const auto stored = std::make_shared<std::vector<unsigned char>>();
    if (!node.loadPointData(*stored)) return false;
    auto taken = std::make_shared<std::promise<void>>();
    const std::future<void> end = taken->get_future();
    // The promise ends with the job, whether that ran or not.
    diskPool().AddJob([&node, stored, taken = std::move(taken)] { node.loadFetched(*stored); });
    end.wait();
    return true;
}

enum class Outcome { ARRIVED, FAILED, HOPELESS };

Outcome attempt(const std::function<bool()>& read) {
    const auto start = std::chrono::steady_clock::now();
    try {
        if (read()) return Outcome::ARRIVED;
    } catch (const std::exception&) {
        // No memory: as a failed read, since an exception would end the process from here.
    }
    return std::chrono::steady_clock::now() - start < HOPELESS_AFTER ? Outcome::FAILED : Outcome::HOPELESS;
}

void addWindow(std::vector<int>& windows, int window) {
    if (std::find(windows.begin(), windows.end(), window) == windows.end()) windows.push_back(window);
}

} // namespace

ReadAhead::ReadAhead(int mostReadersIn, int64_t mostBytesIn)
    : mostBytes(mostBytesIn), mostReaders(std::max(1, mostReadersIn)) {}

ReadAhead::~ReadAhead() {
    stop();
}

void ReadAhead::allowReaders(int count) {
    std::lock_guard lock(mutex);
    mostReaders = std::max(1, count);
}

void ReadAhead::request(OPCNode& node, int window) {
    std::lock_guard lock(mutex);
    if (stopped || !diskPool().accepting) return;
    if (const auto entry = reading.find(&node); entry != reading.end()) return addWindow(entry->second, window);
    if (const auto known = places.find(&node); known != places.end()) {
        return addWindow(waiting.at(known->second).windows, window);
    }
    enqueue(node, {window});
}

// The caller holds the mutex.
void ReadAhead::enqueue(OPCNode& node, std::vector<int> windows) {
    const Place place{-node.getRadius(), requests++};
    waiting.emplace(place, Request{&node, std::move(windows)});
    places.emplace(&node, place);
    if (mostBytes > 0 && adjoins(node)) byLocation.emplace(node.getPointDataByteLocation(), &node);
    if (idle < waiting.size() && readers.size() < static_cast<size_t>(mostReaders)) startReader();
    available.notify_one();
}

// The caller holds the mutex.
void ReadAhead::startReader() {
    try {
        readers.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Fewer readers do too, but nobody would ever read what waits for none.
        if (readers.empty()) dropWaiting();
    }
}

void ReadAhead::withdraw(OPCNode& node, int window) {
    std::lock_guard lock(mutex);
    if (const auto entry = reading.find(&node); entry != reading.end()) std::erase(entry->second, window);
    const auto known = places.find(&node);
    if (known == places.end()) return;
    const auto entry = waiting.find(known->second);
    std::erase(entry->second.windows, window);
    if (!entry->second.windows.empty()) return;
    forget(node);
    if (waiting.empty() && reading.empty()) finished.notify_all();
}

void ReadAhead::waitAll() {
    std::unique_lock lock(mutex);
    finished.wait(lock, [this] { return stopped || (waiting.empty() && reading.empty()); });
}

void ReadAhead::stop() {
    std::vector<std::thread> ended;
    {
        std::lock_guard lock(mutex);
        stopped = true;
        dropWaiting();
        ended.swap(readers);
    }
    available.notify_all();
    finished.notify_all();
    for (std::thread& reader : ended) reader.join();
}

// The caller holds the mutex.
void ReadAhead::dropWaiting() {
    waiting.clear();
    places.clear();
    byLocation.clear();
}

// The caller holds the mutex; the node waits.
void ReadAhead::forget(OPCNode& node) {
    const auto place = places.find(&node);
    waiting.erase(place->second);
    places.erase(place);
    const auto located = byLocation.find(node.getPointDataByteLocation());
    if (located != byLocation.end() && located->second == &node) byLocation.erase(located);
}

// The coarsest node that waits, and those that adjoin it, in the order of the file. The caller holds the mutex.
std::vector<OPCNode*> ReadAhead::takeRun() {
    std::deque<OPCNode*> run;
    int64_t size = 0;
    const auto take = [&](OPCNode* node, bool inFront) {
        forget(*node);
        reading.emplace(node, std::vector<int>());
        run.insert(inFront ? run.begin() : run.end(), node);
        size += node->getDiskSize();
    };
    OPCNode* coarsest = waiting.begin()->second.node;
    take(coarsest, false);
    if (mostBytes == 0 || !adjoins(*coarsest)) return {coarsest};
    const auto fits = [&](OPCNode* node) { return node->getDiskSize() <= mostBytes - size; };
    for (;;) {
        const auto next = byLocation.find(run.back()->getPointDataByteLocation() + run.back()->getDiskSize());
        if (next == byLocation.end() || !fits(next->second)) break;
        take(next->second, false);
    }
    for (;;) {
        const int64_t start = run.front()->getPointDataByteLocation();
        const auto behind = byLocation.lower_bound(start);
        if (behind == byLocation.begin()) break;
        OPCNode* before = std::prev(behind)->second;
        if (before->getPointDataByteLocation() + before->getDiskSize() != start || !fits(before)) break;
        take(before, true);
    }
    return {run.begin(), run.end()};
}

// The caller holds the mutex.
void ReadAhead::finish(OPCNode& node, bool arrived) {
    const auto entry = reading.find(&node);
    std::vector<int> windows = std::move(entry->second);
    reading.erase(entry);
    // The node may have left all views, so that its points were dropped, and come back before the reader was done.
    const bool isDropped = arrived && !windows.empty() && !node.getGPUBatch(0)->isResident();
    if (isDropped && !stopped) enqueue(node, std::move(windows));
}

void ReadAhead::work() {
    std::unique_lock lock(mutex);
    for (;;) {
        ++idle;
        available.wait(lock, [this] { return stopped || !waiting.empty(); });
        --idle;
        if (stopped) return;
        const std::vector<OPCNode*> run = takeRun();
        lock.unlock();
        Outcome outcome = Outcome::FAILED;
        // Nodes that do not come together may do so one by one.
        if (run.size() > 1) outcome = attempt([&] { return OPCNode::readTogether(run); });
        for (OPCNode* node : run) {
            if (outcome != Outcome::HOPELESS) outcome = attempt([node] { return fetch(*node); });
            lock.lock();
            finish(*node, outcome == Outcome::ARRIVED);
            lock.unlock();
        }
        lock.lock();
        // Asked for again at the next camera, like the node that failed; else whoever waits for all would wait out the
        // time-out of every node in turn.
        if (outcome == Outcome::HOPELESS) dropWaiting();
        if (waiting.empty() && reading.empty()) finished.notify_all();
    }
}

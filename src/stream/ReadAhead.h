#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

class OPCNode;

// Reads the nodes of one cloud ahead of the disk thread, several at once, for a source whose answers take long to come.
//
// A reader fetches a node's bytes and hands them to the disk thread, which decodes them and tells the host, as it does
// with nodes that it reads itself: one after the other and on that one thread. Of the nodes that wait the coarsest goes
// first, whichever camera asked for it; among nodes of one size it is the order of asking. A reader takes no further
// node before the disk thread has taken its last one, so that no more bytes pile up than there are readers.
//
// A source whose answers have a price may have nodes that follow each other in the file read in one go: with the
// coarsest go those that adjoin it, as far as they wait too.
//
// All operations may be called from any thread, but the two that wait not from the disk thread. Readers start when they
// are first needed: a source that is never shown costs no thread.
class ReadAhead {
public:
    // mostBytes  of nodes that are read in one go; 0 to read each node by itself
    explicit ReadAhead(int mostReadersIn, int64_t mostBytesIn = 0);
    ~ReadAhead(); // stop()
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // How many readers there may be from now on, for a source that learns it when it is opened.
    void allowReaders(int count);

    // Asks for a node's points for a window. One that waits or is being read is not read twice. Does nothing once
    // stopped, or while the disk thread takes no jobs.
    void request(OPCNode& node, int window);

    // Takes a window's request back, if it still waits. The node stays asked for while another window wants it.
    void withdraw(OPCNode& node, int window);

    // Blocks until nothing waits or is being read, and the disk thread has taken it all.
    void waitAll();

    // Drops what waits and ends the readers for good, once they are done with what they read. No node is touched
    // afterwards.
    void stop();

private:
    using Place = std::pair<double, uint64_t>; // minus the radius, then the number of the request
    struct Request {
        OPCNode* node;
        std::vector<int> windows;
    };

    void enqueue(OPCNode& node, std::vector<int> windows);
    void startReader();
    void work();
    void forget(OPCNode& node);
    std::vector<OPCNode*> takeRun();
    void finish(OPCNode& node, bool arrived);
    void dropWaiting();

    const int64_t mostBytes;
    std::mutex mutex; // guards everything below; taken before a batch's mutex
    int mostReaders;
    std::condition_variable available;
    std::condition_variable finished;
    std::map<Place, Request> waiting;
    std::unordered_map<const OPCNode*, Place> places;             // of the nodes in `waiting`
    std::map<int64_t, OPCNode*> byLocation;                       // those of them that may be read together with others
    std::unordered_map<const OPCNode*, std::vector<int>> reading; // with the windows that asked meanwhile
    uint64_t requests = 0;
    size_t idle = 0; // readers with nothing to do
    bool stopped = false;
    std::vector<std::thread> readers;
};

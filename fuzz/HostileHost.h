#pragma once

#include "HostFolder.h"

#include <memory>
#include <span>

// A host that calls every export in any order with anything, and expects of the engine that it neither falls nor hangs
// nor loses points. One at a time; it has the engine to itself.
class HostileHost {
public:
    // Arms the engine.
    HostileHost();
    ~HostileHost();

    // Plays `bytes` as calls, a share of them on each of `threads` threads at once, which keep to docs/threads.md. Then
    // closes all clouds and looks for lost points.
    void play(std::span<const uint8_t> bytes, size_t threads);

    // Ends the engine, and plays on: nothing but failures may come of that. The last thing to do.
    void shutDown(std::span<const uint8_t> bytes);

private:
    void playShares(std::span<const uint8_t> bytes, size_t threads);
    void tidyUp();

    struct Graphics;
    struct Server;
    HostFolder folder;
    std::unique_ptr<Server> server;
    std::unique_ptr<Graphics> graphics;
};

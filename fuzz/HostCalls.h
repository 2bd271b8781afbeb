#pragma once

#include "HostArguments.h"
#include "HostFolder.h"

#include <string>

// One thread of a hostile host.
struct HostThread {
    HostArguments arguments;
    HostFolder& folder;
    std::string server; // http://127.0.0.1:PORT
    const bool isMain;  // has the graphics context and the staging file
    const bool isAlone; // no other thread calls the engine

    // Calls an export that the first byte chooses, with what the next bytes make of its arguments.
    void call();
};

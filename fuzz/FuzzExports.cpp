// Plays arbitrary bytes as the calls of a host: see HostileHost.

#include "HostileHost.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static HostileHost host;
    host.play({data, size}, 1);
    return 0;
}

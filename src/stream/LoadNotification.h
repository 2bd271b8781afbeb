#pragma once

#include <cstdint>

// The function that a host registered to hear of nodes that arrive and go, for all clouds. Callable from any thread.

// Has the shape of NimbrelCacheCallback: whether the node arrived, its number, its vertices (null when gone), its point
// count, and the minimum corner of its box.
using LoadNotification = void (*)(bool loaded, uint64_t nodeIndex, unsigned char* vertices, int pointCount, double minX,
                                  double minY, double minZ);

// Replaces the function. Null is ignored: one that was set can't be removed.
void registerLoadNotification(LoadNotification notification);

// Calls the function, if one is registered, on the calling thread.
void notifyLoad(bool loaded, uint64_t nodeIndex, unsigned char* vertices, int pointCount, const double* corner);

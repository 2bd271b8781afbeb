#include "stream/LoadNotification.h"

#include <atomic>

namespace {
std::atomic<LoadNotification> registered{nullptr};
}

void registerLoadNotification(LoadNotification notification) {
    if (notification) registered = notification;
}

void notifyLoad(bool loaded, uint64_t nodeIndex, unsigned char* vertices, int pointCount, const double* corner) {
    if (const LoadNotification notification = registered) {
        notification(loaded, nodeIndex, vertices, pointCount, corner[0], corner[1], corner[2]);
    }
}

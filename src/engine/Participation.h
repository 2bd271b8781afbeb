#pragma once

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/OPCHeader.h"
#include "stream/OPC.h"

// The frame of what changes points or marks: runs change() with the table shared, when the undo and redo jobs asked for
// before are done, and while nothing else changes points.
template <typename Change>
void changePoints(Change change) noexcept {
    guarded(0, [&] {
        historyTracker.wait();
        std::lock_guard oneAtATime(editMutex);
        std::shared_lock lock(mutex_);
        change();
        return 0;
    });
}

// Which clouds take part in an operation. The caller holds mutex_.

// Calls use(PointCloud&) on each enabled cloud, in table order.
template <typename Use>
void forEachEnabled(Use use) {
    for (const auto& cloud : pointClouds) {
        if (cloud->isEnabled()) use(*cloud);
    }
}

// On each enabled cloud whose mask is clear and whose file is not protected.
template <typename Use>
void forEachSelectable(Use use) {
    forEachEnabled([&](PointCloud& cloud) {
        if (cloud.getMask()) return;
        if (cloud.getOPC().withHeader([](OPCHeader& header) { return header.protectionValue1 != 0; })) return;
        use(cloud);
    });
}

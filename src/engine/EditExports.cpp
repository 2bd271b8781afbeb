#include "engine/EngineState.h"
#include "engine/Participation.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPCInterface.h"

// The exports that change points in the file.

namespace {

OPCInterface& rootOf(const PointCloud& cloud) {
    return *cloud.getOPC().getRootNode();
}

} // namespace

void deleteSelectedPoints() {
    changePoints([] {
        forEachEnabled([](PointCloud& cloud) {
            if (!cloud.getMask() && cloud.isWritable()) rootOf(cloud).deleteSelectedPoints();
        });
    });
    pointCloudsChanged = true;
}

void restorePointCloud(int id) {
    changePoints([id] {
        if (PointCloud* cloud = findCloud(id)) rootOf(*cloud).restorePointCloud();
    });
    pointCloudsChanged = true;
}

void setLasValueOnSelectedPoints(int value) {
    auto byte = static_cast<unsigned char>(value);
    changePoints([&byte] {
        forEachEnabled([&byte](PointCloud& cloud) {
            if (!cloud.getMask()) rootOf(cloud).setLasValueOnSelectedPoints(byte);
        });
    });
}

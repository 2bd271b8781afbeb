// The exports that look into a cloud, and those of its header. A null buffer is treated like an unknown id.

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"

#include <algorithm>
#include <utility>

// ---- Queries

void getBoundingBox(int id, double* out) {
    if (!out) return;
    withCloud(id, [out](PointCloud& cloud) {
        const double* box = cloud.getOPC().getRootNode()->getBoundingBox();
        // Two corners and not eight: with a rotated placement these are no longer a minimum and a maximum.
        for (int corner = 0; corner < 2; ++corner) {
            const double* from = box + 3 * corner;
            const glm::dvec4 placed = cloud.applyTransformationsToVector({from[0], from[1], from[2], 1.0});
            for (int axis = 0; axis < 3; ++axis) out[3 * corner + axis] = placed[axis];
        }
    });
}

int64_t getPointCount(int id) {
    return withCloud(id, int64_t{0}, [](PointCloud& cloud) {
        long long total = 0;
        cloud.getOPC().getRootNode()->getTotalPointCount(&total);
        return total;
    });
}

int getNodeCount(int id) {
    return withCloud(id, 0, [](PointCloud& cloud) {
        return cloud.getOPC().withHeader([](OPCHeader& header) { return header.nodeCount; });
    });
}

void getTreeStructure(int id, char* out) {
    if (!out) return;
    withCloud(id, [out](PointCloud& cloud) { cloud.getTreeStructure(out); });
}

void getNodePoints(int id, int node, double* xyz, char* colour) {
    if (!xyz || !colour) return;
    withCloud(id, [=](PointCloud& cloud) { cloud.getOPC().getPoints(xyz, colour, node); });
}

int getNodePointCount(int id, int node) {
    return withCloud(id, 0, [node](PointCloud& cloud) {
        OPCInterface* found = cloud.getOPC().getNode(node);
        return found ? int{found->getPointCount()} : 0;
    });
}

int getNodeSelections(int id, int node, char* out) {
    if (!out) return 0;
    return withCloud(id, 0, [=](PointCloud& cloud) { return cloud.getOPC().getSelections(out, node); });
}

// ---- Header

void getHeader(int id, char* out) {
    if (!out) return;
    withCloud(id, [out](PointCloud& cloud) {
        cloud.getOPC().withHeader([out](OPCHeader& header) { header.getHeaderData(out); });
    });
}

void setHeader(int id, char* in) {
    if (!in) return;
    guarded(0, [=] {
        std::shared_lock lock(mutex_);
        // The search goes on past a cloud that can't be written: ids can repeat.
        const auto entry = std::find_if(pointClouds.begin(), pointClouds.end(), [id](const auto& cloud) {
            return cloud->getID() == id && cloud->isWritable();
        });
        if (entry == pointClouds.end()) return 0;
        (*entry)->getOPC().withHeader([&](OPCHeader& header) {
            header.setHeaderData(in);
            (*entry)->getFile().saveData(in, 0, OPCHeader::Layout::SIZE);
        });
        return 0;
    });
}

int getVersion(int id) {
    return withCloud(id, 0, [](PointCloud& cloud) {
        return cloud.getOPC().withHeader([](OPCHeader& header) { return header.version; });
    });
}

int64_t getReserved(int id) {
    return withCloud(id, int64_t{0}, [](PointCloud& cloud) {
        return cloud.getOPC().withHeader([](OPCHeader& header) { return header.reserved; });
    });
}

void getOrigin(int id, double* out) {
    if (!out) return;
    withCloud(id, [out](PointCloud& cloud) {
        cloud.getOPC().withHeader(
            [out](OPCHeader& header) { std::copy(header.boundingBox.begin(), header.boundingBox.end(), out); });
    });
}

int headerChanged(int id) {
    return withCloud(id, 0, [](PointCloud& cloud) {
        return cloud.getOPC().withHeader(
            [](OPCHeader& header) { return std::exchange(header.changed, false) ? 1 : 0; });
    });
}

int isProtected(int id) {
    return withCloud(id, 0, [](PointCloud& cloud) {
        return cloud.getOPC().withHeader([](OPCHeader& header) { return header.protectionValue1 != 0 ? 1 : 0; });
    });
}

void setProtection(int id, int64_t value1, int64_t value2) {
    withCloud(id, [=](PointCloud& cloud) {
        cloud.getOPC().withHeader([&](OPCHeader& header) {
            header.protectionValue1 = value1;
            header.protectionValue2 = value2;
            header.changed = true;
            if (!cloud.isWritable()) return;
            char image[OPCHeader::Layout::SIZE];
            header.getHeaderData(image);
            cloud.getFile().saveData(image, 0, OPCHeader::Layout::SIZE);
        });
    });
}

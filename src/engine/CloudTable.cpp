#include "engine/CloudTable.h"

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "stream/OPC.h"

#include <utility>

int enterCloud(const std::shared_ptr<PointCloudFile>& file, const std::wstring& name, bool writable) {
    auto cloud = std::make_unique<PointCloud>(file, name, writable);
    if (!cloud->getOPC().isLoaded()) return -1;
    endLoadsBeforeExit();
    const auto [nodes, points] =
        cloud->getOPC().withHeader([](OPCHeader& header) { return std::pair(header.nodeCount, header.pointCount); });
    int id = 0;
    {
        std::unique_lock lock(mutex_);
        id = static_cast<int>(pointClouds.size());
        cloud->setID(id);
        pointClouds.push_back(std::move(cloud));
    }
    logText("NODES: " + std::to_string(nodes) + "\nPOINTS: " + std::to_string(points) + "\n\n");
    pointCloudsChanged = true;
    return id;
}

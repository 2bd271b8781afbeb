#include "engine/PointCloud.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "ground/Log.h"
#include "stream/OPC.h"
#include "stream/ReadAhead.h"

#include <algorithm>
#include <ctime>
#include <glm/matrix.hpp>

PointCloud::PointCloud(std::shared_ptr<PointCloudFile> fileIn, std::wstring pathIn, bool writableIn)
    : file(std::move(fileIn)), opc(std::make_shared<OPC>(file)), path(std::move(pathIn)), writable(writableIn) {}

PointCloud::~PointCloud() {
    logText("In pointcloud destructor...\n");
}

void PointCloud::setEnabled(bool value) {
    enabled = value;
    file->setEnabled(value);
}

void PointCloud::endReadAhead() const {
    file->abandonReads();
    if (ReadAhead* ahead = file->readAhead()) ahead->stop();
}

PointCloudProperties PointCloud::getProperties() const {
    std::lock_guard lock(placementMutex);
    return properties;
}

void PointCloud::setProperties(const PointCloudProperties& value) {
    std::lock_guard lock(placementMutex);
    properties = value;
}

double PointCloud::getScale() const {
    std::lock_guard lock(placementMutex);
    return scale.x;
}

void PointCloud::setScale(double value) {
    std::lock_guard lock(placementMutex);
    scale = glm::dvec3(value);
}

void PointCloud::setModelMatrix(const glm::dmat4& value) {
    std::lock_guard lock(placementMutex);
    modelMatrix = value;
}

glm::dmat4 PointCloud::getModelMatrix() const {
    std::lock_guard lock(placementMutex);
    return {modelMatrix[0] * scale.x, modelMatrix[1] * scale.y, modelMatrix[2] * scale.z, modelMatrix[3]};
}

DrawnCloud PointCloud::drawn() const {
    const int version = opc->withHeader([](OPCHeader& header) { return header.version; });
    return {opc->getRootNode().get(), version, getProperties(), getModelMatrix(), getScale()};
}

bool PointCloud::isExpired() const {
    return opc->withHeader([](OPCHeader& header) {
        return header.protectionValue1 != 0 && header.protectionValue2 != 0 &&
               std::time(nullptr) >= header.protectionValue2;
    });
}

glm::dvec4 PointCloud::applyTransformationsToVector(const glm::dvec4& v) const {
    return getModelMatrix() * v;
}

glm::dvec4 PointCloud::makeVectorRelative(const glm::dvec4& v) const {
    return glm::inverse(getModelMatrix()) * v;
}

void PointCloud::getTreeStructure(char* out) {
    std::vector<char> structure(opc->countNodes() * NodeRecord::Wire::SIZE);
    int64_t size = 0;
    opc->getRootNode()->getTreeStructure(structure.data(), size);
    // The host has room for the nodes that the header announces, which it can have replaced by fewer.
    const int64_t announced = opc->withHeader([](OPCHeader& header) { return header.nodeCount; });
    const int64_t room = std::max<int64_t>(announced, 0) * NodeRecord::Wire::SIZE;
    std::copy_n(structure.data(), std::min(size, room), out);
}

void PointCloud::unregisterWindow(int window) {
    opc->getRootNode()->unregisterWindow(window);
}

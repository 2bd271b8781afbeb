#include "analysis/NodePlaces.h"

#include "format/PointRecord.h"
#include "ground/Log.h"
#include "stream/OPCInterface.h"

#include <algorithm>
#include <cstring>
#include <glm/geometric.hpp>

std::optional<std::vector<glm::dvec3>> readPlaces(OPCInterface& node) {
    const auto count = static_cast<size_t>(std::max<short>(node.getPointCount(), 0));
    std::vector<unsigned char> vertices(count * Vertex::SIZE);
    if (!node.loadPointDataToGPUFormat(vertices)) {
        setLastError("the points of a node can't be read");
        return std::nullopt;
    }
    const double* corner = node.getBoundingBox();
    std::vector<glm::dvec3> places(count);
    const unsigned char* vertex = vertices.data();
    for (glm::dvec3& place : places) {
        float relative[3];
        std::memcpy(relative, vertex + Vertex::POSITION, sizeof(relative));
        place = {corner[0] + double{relative[0]}, corner[1] + double{relative[1]}, corner[2] + double{relative[2]}};
        vertex += Vertex::SIZE;
    }
    return places;
}

double placedLength(const glm::dmat4& matrix, double length) {
    return glm::length(matrix * glm::dvec4(0.0, 0.0, length, 0.0));
}

glm::dvec3 centreOf(OPCInterface& node) {
    double centre[3];
    node.getNodeCenter(centre);
    return {centre[0], centre[1], centre[2]};
}

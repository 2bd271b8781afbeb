// Grading the points near a mesh by their distance from its triangles, in the file.

#include "analysis/AnalysisRun.h"
#include "analysis/NodePlaces.h"
#include "analysis/PointSearch.h"
#include "analysis/PrismGroups.h"
#include "analysis/TreeOutline.h"
#include "format/NodeRecord.h"
#include "format/OPCNodeParser.h"
#include "format/PointCloudFile.h"
#include "ground/Log.h"
#include "stream/OPCNode.h"

#include <algorithm>
#include <cmath>
#include <glm/vec4.hpp>

namespace {

constexpr int UNTOUCHED = -1;

// The band of a point: 0 on the triangle's plane, `top` on the faces of its prism. Rounding can put a point of a very
// thin prism beyond its face.
int bandOf(double distance, double thickness, double top) {
    const double band = std::trunc(top * (std::abs(distance) / thickness));
    return band >= 0.0 ? static_cast<int>(std::min(band, top)) : 0;
}

// The stored bytes of a node on their way to new classes.
class NodeGrading {
public:
    NodeGrading(OPCInterface& nodeIn, std::vector<unsigned char>& storedIn)
        : node(nodeIn), stored(storedIn), count(std::max<int>(node.getPointCount(), 0)),
          bands(static_cast<size_t>(count), UNTOUCHED) {}

    // Finds for each point the band of the last prism that holds it; false when the run is to end before that is done.
    [[nodiscard]] bool grade(const glm::dmat4& matrix, PrismsOfNode prisms, double thickness, const AnalysisRun& run) {
        const double top = NodeRecord::isStream(node.getVersion()) ? 15.0 : 255.0;
        PointSearch search(placed(matrix));
        for (const TrianglePrism* prism : prisms) {
            if (run.isToEnd()) return false;
            for (const uint32_t i : search.within(prism->low, prism->high)) {
                const glm::dvec3& place = search.all()[i];
                if (!prism->clip.containsPlaced(place)) continue;
                bands[i] = bandOf(prism->clip.getDistanceFromPlane(glm::dvec4(place, 1.0)), thickness, top);
            }
        }
        return true;
    }

    // Writes the bands into the stored bytes; false when that changes nothing.
    bool store() {
        OPCNodeParser parser = makeParser();
        bool isChanged = false;
        for (int i = 0; i < count; ++i) {
            const int band = bands[static_cast<size_t>(i)];
            if (band == UNTOUCHED) continue;
            const OPCPoint point = parser.getPoint(i, true);
            if (point.classification == band) continue;
            unsigned char attributes[5];
            std::copy_n(point.colour, 4, attributes);
            attributes[4] = static_cast<unsigned char>(band);
            parser.paintPoint(attributes, i);
            isChanged = true;
        }
        return isChanged;
    }

private:
    [[nodiscard]] OPCNodeParser makeParser() const {
        return {stored, node.getFilter(), node.getBytesPerVertex(), node.getVersion()};
    }

    // Decoded as the file has them, not as vertices, which round the stream's coordinates to 32-bit floats.
    [[nodiscard]] std::vector<glm::dvec3> placed(const glm::dmat4& matrix) const {
        OPCNodeParser parser = makeParser();
        const double* corner = node.getBoundingBox();
        std::vector<glm::dvec3> places(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            const OPCPoint point = parser.getPoint(i, true);
            const glm::dvec4 place(point.x + corner[0], point.y + corner[1], point.z + corner[2], 1.0);
            places[static_cast<size_t>(i)] = glm::dvec3(matrix * place);
        }
        return places;
    }

    OPCInterface& node;
    std::vector<unsigned char>& stored;
    const int count;
    std::vector<int> bands; // by point
};

} // namespace

void OPCNode::classifyPointsByDistance(const MeshPrisms& prisms, const glm::dmat4& matrix, double thickness,
                                       AnalysisRun& run) {
    if (!file || file->isNetwork() || file->isReadOnly()) {
        setLastError("a cloud is open read-only and keeps its classes");
        return;
    }
    const auto isWanted = [](OPCInterface&) { return true; };
    const auto work = [&](OPCInterface& node, PrismsOfNode prismsOfNode) {
        std::vector<unsigned char> stored;
        if (!node.loadPointData(stored)) {
            setLastError("the points of a node can't be read");
            return true;
        }
        NodeGrading grading(node, stored);
        if (!grading.grade(matrix, prismsOfNode, thickness, run)) return false;
        if (grading.store() && !node.savePointData(stored)) setLastError("the classes of a node can't be written");
        node.resetSelectionColours();
        return true;
    };
    walkPrisms({TreeOutline(*this, matrix), prisms, getProcessingThreadPool(), run, isWanted, work});
}

// Binning: the points of a cloud into the cells of a grid.
//
// Threads take one node after the other. The points of a node go to a table of the thread's own that stays in its
// cache, and only the sums, a record for each cell that the node touches, go to the table that all share. Nodes are
// taken in pre-order and a record keeps the number of its node, so that the result is the same whatever the threads do.

#include "format/NodeRecord.h"
#include "format/PointCloudFile.h"
#include "format/PointRecord.h"
#include "ground/Parallel.h"
#include "ground/Pools.h"
#include "stream/OPCNode.h"
#include "voxel/ModelGrid.h"
#include "voxel/VoxelMap.h"

#include <algorithm>
#include <cstring>

namespace {

// Gives the points of a stream, which vertices hold as 32-bit floats, their 64-bit coordinates back. Each is a whole
// number of at most 21 bits times the grid step; rounding to a float moved it by less than an eighth of a step.
double onGrid(float position, double filter) {
    if (!(filter > 0.0)) return 0.0;
    return static_cast<double>(static_cast<int64_t>(double{position} / filter + 0.5)) * filter;
}

// The cells that the points of one node after the other touch.
class NodeBinner {
public:
    explicit NodeBinner(const ModelGrid& gridIn) : grid(gridIn) {}

    // filter  the step of the grid that the points lie on; 0 for points that are as their floats say
    void bin(OPCInterface& node, int32_t number, double filter, std::span<const unsigned char> vertices) {
        table.clear();
        const double* corner = node.getBoundingBox();
        ModelCell* last = nullptr; // points are often followed by one in the same cell
        for (; !vertices.empty(); vertices = vertices.subspan(Vertex::SIZE)) {
            float position[3];
            std::memcpy(position, vertices.data() + Vertex::POSITION, sizeof(position));
            int64_t cell[3];
            for (size_t axis = 0; axis < 3; ++axis) {
                const double local = filter > 0.0 ? onGrid(position[axis], filter) : double{position[axis]};
                cell[axis] = grid.cellAt(local + corner[axis], axis);
            }
            const int64_t key = grid.keyOf(cell[0], cell[1], cell[2]);
            if (!last || last->key != key) last = &table.find(key);
            if (last->node < 0) {
                last->voxel = {cell[0], cell[1], cell[2], 0, 0, 0, 0, 0};
                last->node = number;
            }
            const unsigned char* colour = vertices.data() + Vertex::COLOUR;
            last->voxel.sumRed += colour[0]; // 32767 points do not overflow these
            last->voxel.sumGreen += colour[1];
            last->voxel.sumBlue += colour[2];
            last->voxel.sumIntensity += colour[3];
            ++last->voxel.pointCount;
        }
    }

    [[nodiscard]] std::span<const ModelCell> cells() { return table.cells(); }

private:
    const ModelGrid& grid;
    ModelCellTable table;
};

} // namespace

void OPCNode::getVoxelData(VoxelMap* map, const ModelGrid& grid, std::atomic<int32_t>* progress) {
    std::vector<OPCInterface*> nodes;
    populateNodeTreeList(&nodes);
    map->begin(grid);
    std::atomic<size_t> next{0};
    runWithHelpers(getProcessingThreadPool(), maxCores() - 1, [&] {
        NodeBinner binner(grid);
        std::vector<unsigned char> vertices;
        for (size_t i = next++; i < nodes.size(); i = next++) {
            auto& node = static_cast<OPCNode&>(*nodes[i]);
            const int count = std::max<int>(node.pointCount, 0);
            vertices.resize(static_cast<size_t>(count) * Vertex::SIZE);
            // From the source, and not from the vertices that a window has loaded: an edit may not have reached them.
            const bool readable = count == 0 || node.decodeStored(vertices);
            if (readable && count > 0) {
                const bool stream = NodeRecord::isStream(node.version) && !node.file->isNetwork();
                binner.bin(node, static_cast<int32_t>(i), stream ? node.getFilter() : 0.0, vertices);
                map->add(binner.cells());
            }
            map->countNode(readable, readable ? count : 0);
            ++*progress;
        }
    });
    map->sort(getProcessingThreadPool());
}

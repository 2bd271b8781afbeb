// Twelve facets a cube, in the model's own axes. Facets are written as they are made: as triangles in memory a cube
// would take a kilobyte.

#include "voxel/ExportFile.h"
#include "voxel/ShortText.h"
#include "voxel/VoxelCube.h"
#include "voxel/VoxelProgress.h"
#include "voxel/VoxelWriters.h"

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>
#include <string_view>

namespace {

constexpr size_t ROOM = 8192; // for the facets of a cube

// The normalised cross product of two sides. A triangle without area divides by zero, and its normal is not a number.
glm::dvec3 normalOf(const glm::dvec3& a, const glm::dvec3& b, const glm::dvec3& c) {
    const glm::dvec3 u = b - a;
    const glm::dvec3 v = c - b;
    const glm::dvec3 product(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
    const double length = std::sqrt(product.x * product.x + product.y * product.y + product.z * product.z);
    return {product.x / length, product.y / length, product.z / length};
}

char* put(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

// The beginnings of the twelve facets of a cube, up to their first corner. They are the same for all cubes that have a
// volume: only the signs of the sides matter.
class FacetHeads {
public:
    explicit FacetHeads(const VoxelCube& cube) {
        for (size_t i = 0; i < heads.size(); ++i) {
            glm::dvec3 corners[3];
            for (int k = 0; k < 3; ++k) {
                const auto& ends = VoxelCube::CORNERS[VoxelCube::TRIANGLES[i][static_cast<size_t>(k)]];
                for (int axis = 0; axis < 3; ++axis) {
                    const auto at = static_cast<size_t>(axis);
                    corners[k][axis] = ends[at] == 0 ? cube.low[at] : cube.high[at];
                }
            }
            heads[i] = make(normalOf(corners[0], corners[1], corners[2]));
        }
    }

    [[nodiscard]] const std::string& operator[](size_t triangle) const { return heads[triangle]; }

private:
    static std::string make(const glm::dvec3& normal) {
        char text[128];
        char* out = put(text, "\tfacet normal");
        for (int axis = 0; axis < 3; ++axis) {
            *out++ = ' ';
            out = putNumber(out, normal[axis]);
        }
        out = put(out, "\n\t\touter loop\n");
        return {text, static_cast<size_t>(out - text)};
    }

    std::array<std::string, 12> heads;
};

bool hasVolume(const VoxelCube& cube) {
    bool all = true;
    for (size_t axis = 0; axis < 3; ++axis) all = all && cube.high[axis] > cube.low[axis];
    return all;
}

VoxelCube unitCube() {
    static constexpr double BOX[6] = {0, 0, 0, 1, 1, 1};
    return VoxelCube(OPCInterface::Voxel{}, ModelGrid(BOX, 1.0, 1.0));
}

class FacetText {
public:
    // The facets of a cube; returns their end.
    char* putCube(const VoxelCube& cube, char* out) {
        if (!hasVolume(cube)) return putFacets(cube, FacetHeads(cube), out);
        return putFacets(cube, usualHeads, out);
    }

private:
    char* putFacets(const VoxelCube& cube, const FacetHeads& heads, char* out) {
        xText.set(cube.low[0], cube.high[0]);
        yText.set(cube.low[1], cube.high[1]);
        zText.set(cube.low[2], cube.high[2]);
        for (size_t i = 0; i < VoxelCube::TRIANGLES.size(); ++i) {
            out = put(out, heads[i]);
            for (const unsigned char corner : VoxelCube::TRIANGLES[i]) {
                const auto& [x, y, z] = VoxelCube::CORNERS[corner];
                out = put(out, "\t\t\t vertex");
                out = xText[x].put(out);
                out = yText[y].put(out);
                out = zText[z].put(out);
            }
            out = put(out, "\t\tendloop\n\tendfacet\n");
        }
        return out;
    }

    const FacetHeads usualHeads{unitCube()};
    AxisText xText{false};
    AxisText yText{false};
    AxisText zText{true};
};

} // namespace

void writeVoxelStl(const VoxelModel& model, ExportFile& file) {
    // All steps are those of making facets: none is left for the writing, though here the two are one.
    nextVoxelStage(static_cast<int64_t>(model.map.cells().size()));
    setVoxelProgress(model.map.cells().size());
    file.write("solid \n");
    FacetText text;
    for (const ModelCell& cell : model.map.cells()) {
        if (!cell.isSolid()) continue;
        file.filled(text.putCube(VoxelCube(cell.voxel, model.grid), file.room(ROOM)));
        if (file.failed()) return;
    }
    file.write("endsolid \n");
}

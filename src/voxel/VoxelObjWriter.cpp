// The OBJ has eight corners of its own for each cube, a texture coordinate, and twelve triangles; the texture has a
// texel for each cube. Y becomes the third axis, turned around, since the viewers of the format take the second for up.

#include "voxel/ExportFile.h"
#include "voxel/ShortText.h"
#include "voxel/VoxelCube.h"
#include "voxel/VoxelProgress.h"
#include "voxel/VoxelWriters.h"

#include <algorithm>
#include <cmath>
#include <png.h>

namespace {

constexpr size_t ROOM = 4096; // for the lines of a cube

// The side of the square texture. All cells count, so that there are at least as many texels as cubes.
int32_t textureSide(const VoxelModel& model) {
    return static_cast<int32_t>(std::ceil(std::sqrt(static_cast<double>(model.map.cells().size()))));
}

unsigned char meanOf(int32_t sum, int32_t count) {
    return static_cast<unsigned char>(sum / count);
}

// The texture coordinates and the triangles are stages without steps.
enum class Steps { NONE, CELLS };

// Calls put(cell, out) for each solid cell, with room for the lines of a cube; put returns their end. The steps are all
// cells, solid or not.
template <typename Put>
void writeCubes(const VoxelModel& model, ExportFile& file, Steps steps, Put put) {
    constexpr uint64_t STEPS_AT_ONCE = 1024;
    uint64_t done = 0;
    for (const ModelCell& cell : model.map.cells()) {
        if (cell.isSolid()) file.filled(put(cell, file.room(ROOM)));
        if (++done % STEPS_AT_ONCE != 0) continue;
        if (file.failed()) return;
        if (steps == Steps::CELLS) setVoxelProgress(done);
    }
    if (steps == Steps::CELLS) setVoxelProgress(done);
}

// The corners, and the texels as they come.
void writeCorners(const VoxelModel& model, ExportFile& file, std::vector<unsigned char>& texels) {
    AxisText first(false);
    AxisText second(true); // the model's Y
    AxisText third(false);
    unsigned char* texel = texels.data();
    writeCubes(model, file, Steps::CELLS, [&](const ModelCell& cell, char* out) {
        *texel++ = meanOf(cell.voxel.sumRed, cell.voxel.pointCount);
        *texel++ = meanOf(cell.voxel.sumGreen, cell.voxel.pointCount);
        *texel++ = meanOf(cell.voxel.sumBlue, cell.voxel.pointCount);
        const VoxelCube cube(cell.voxel, model.grid);
        first.set(cube.low[0], cube.high[0]);
        second.set(-cube.low[1], -cube.high[1]);
        third.set(cube.low[2], cube.high[2]);
        for (const auto& [x, y, z] : VoxelCube::CORNERS) {
            *out++ = 'v';
            out = first[x].put(out);
            out = third[z].put(out);
            out = second[y].put(out);
        }
        return out;
    });
}

// Texel centres, left to right and top row first. Added up rather than computed: the digits are those of the sums.
void writeTextureCoordinates(const VoxelModel& model, ExportFile& file) {
    const double step = 1.0 / textureSide(model);
    double u = 0.5 * step;
    double v = 1.0 - 0.5 * step;
    writeCubes(model, file, Steps::NONE, [&](const ModelCell&, char* out) {
        *out++ = 'v';
        *out++ = 't';
        *out++ = ' ';
        out = putNumber(out, u);
        *out++ = ' ';
        out = putNumber(out, v);
        *out++ = '\n';
        u += step;
        if (u > 1.0) {
            v -= step;
            u = 0.5 * step;
        }
        return out;
    });
}

void writeTriangles(const VoxelModel& model, ExportFile& file) {
    int64_t base = 1;
    int64_t texture = 1;
    writeCubes(model, file, Steps::NONE, [&](const ModelCell&, char* out) {
        ShortText behind;
        behind.append('/');
        behind.append(texture++);
        ShortText corners[8];
        for (ShortText& corner : corners) {
            corner.append(' ');
            corner.append(base++);
            char text[2 * ShortText::SIZE];
            std::memcpy(text, corner.bytes, ShortText::SIZE);
            corner.length = static_cast<int>(behind.put(text + corner.length) - text);
            std::memcpy(corner.bytes, text, ShortText::SIZE);
        }
        for (const auto& [a, b, c] : VoxelCube::TRIANGLES) {
            *out++ = 'f';
            out = corners[a].put(out);
            out = corners[b].put(out);
            out = corners[c].put(out);
            *out++ = '\n';
        }
        return out;
    });
}

// What went wrong, or nothing.
std::string writeTexture(const std::string& path, int32_t side, const std::vector<unsigned char>& texels) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(side);
    image.height = static_cast<png_uint_32>(side);
    image.format = PNG_FORMAT_RGB;
    image.flags = PNG_IMAGE_FLAG_FAST;
    if (png_image_write_to_file(&image, path.c_str(), 0, texels.data(), 0, nullptr) != 0) return {};
    return std::string("the texture can't be written: ") + image.message;
}

std::string writeMaterial(const VoxelObjCompanions& companions) {
    ExportFile file(companions.folder + companions.materialName);
    file.write("newmtl Textured\nKd 1.000 1.000 1.000\nKa 1.000 1.000 1.000\nKs 0 0 0\nd 1.0\nillum 1\nmap_Kd " +
               companions.textureName + "\nmap_Ka " + companions.textureName + "\n");
    file.close();
    return file.failed() ? "the material can't be written: " + file.reason() : std::string();
}

} // namespace

VoxelObjCompanions::VoxelObjCompanions(const std::string& objPath) {
    const size_t slash = objPath.rfind('/');
    const size_t nameAt = slash == std::string::npos ? 0 : slash + 1;
    folder = objPath.substr(0, nameAt);
    std::string stem = objPath.substr(nameAt);
    stem = stem.substr(0, stem.find('.'));
    std::replace(stem.begin(), stem.end(), ' ', '_');
    materialName = stem + ".mtl";
    textureName = stem + ".png";
}

std::string writeVoxelObj(const VoxelModel& model, ExportFile& file, const std::string& path) {
    const auto cells = static_cast<int64_t>(model.map.cells().size());
    const int32_t side = textureSide(model);
    const VoxelObjCompanions companions(path);
    nextVoxelStage(cells);
    file.write("mtllib " + companions.materialName + "\n\n");
    std::vector<unsigned char> texels(3 * static_cast<size_t>(side) * static_cast<size_t>(side));
    writeCorners(model, file, texels);
    nextVoxelStage(cells);
    writeTextureCoordinates(model, file);
    std::string problem;
    if (side > 0) problem = writeTexture(companions.folder + companions.textureName, side, texels);
    texels = {};
    const std::string materialProblem = writeMaterial(companions);
    if (problem.empty()) problem = materialProblem;
    file.write("g defaultobject\nusemtl Textured\n");
    nextVoxelStage(cells);
    writeTriangles(model, file);
    return problem;
}

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The triangles of a mesh file, in the coordinates of the file: no axis is turned and no unit is converted.
struct TriangleMesh {
    std::vector<double> corners; // 9 doubles a triangle
    uint64_t unusable = 0;       // triangles left out: without an area, or with a coordinate that is not a number
    uint64_t other = 0;          // points and lines left out
    double coordinateStep = 0.0; // coordinates are kept to this: the reader has 32-bit floats

    [[nodiscard]] size_t size() const { return corners.size() / 9; }
};

// Whether the name of a file is that of a mesh: .obj, .stl, .ply, .gltf or .glb.
bool isMeshName(const std::string& path);

// Reads a mesh of one of these formats, told apart by name and content. Polygons are cut into triangles, and the parts
// of a scene put where its nodes have them.
//
// goOn  asked from time to time; false ends the reading with a FileError
//
// Throws FileError when the file is no such mesh, is damaged, or holds no triangle.
TriangleMesh readMesh(const std::string& path, const std::function<bool()>& goOn);

#include "meshes/MeshReader.h"

#include "readers/InputFile.h"
#include "readers/PointReader.h"

#include <algorithm>
#include <array>
#include <assimp/BaseImporter.h>
#include <assimp/Importer.hpp>
#include <assimp/ProgressHandler.hpp>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>

// Assimp parses, and cuts polygons. The walk over its scene is our own: it works in doubles, and checks the indices.

static constexpr std::array<const char*, 5> EXTENSIONS{"obj", "stl", "ply", "gltf", "glb"};
static constexpr size_t MOST_TRIANGLES = size_t{std::numeric_limits<int32_t>::max()}; // the engine counts in 32 bits

namespace {
class Watch : public Assimp::ProgressHandler {
public:
    explicit Watch(const std::function<bool()>& goOnIn) : goOn(goOnIn) {}
    bool Update(float /*percentage*/) override { return goOn(); }

private:
    const std::function<bool()>& goOn;
};

// A node of the scene and where it stands: three rows of four.
using Matrix = std::array<double, 12>;
struct PlacedNode {
    const aiNode* node;
    Matrix matrix;
};
} // namespace

static std::string extensionOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool isMeshName(const std::string& path) {
    const std::string extension = extensionOf(path);
    return std::find(EXTENSIONS.begin(), EXTENSIONS.end(), extension) != EXTENSIONS.end();
}

// Takes away the readers of formats that nobody asked for: they are many, and some are brittle.
static void keepOurFormats(Assimp::Importer& importer) {
    for (size_t i = importer.GetImporterCount(); i-- > 0;) {
        std::istringstream names(importer.GetImporterInfo(i)->mFileExtensions);
        bool isOurs = false;
        for (std::string name; names >> name;) {
            isOurs = isOurs || std::find(EXTENSIONS.begin(), EXTENSIONS.end(), name) != EXTENSIONS.end();
        }
        if (isOurs) continue;
        const std::unique_ptr<Assimp::BaseImporter> ours(importer.GetImporter(i)); // from here on
        importer.UnregisterLoader(ours.get());
    }
}

static Matrix below(const Matrix& parent, const aiMatrix4x4& own) {
    const ai_real* o = own[0]; // four rows of four
    Matrix result{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 4; ++column) {
            double sum = column == 3 ? parent[4 * row + 3] : 0.0;
            for (size_t k = 0; k < 3; ++k) sum += parent[4 * row + k] * double{o[4 * k + column]};
            result[4 * row + column] = sum;
        }
    }
    return result;
}

// Adds the corners of a face; false when it is not to be used.
static bool addFace(const aiMesh& mesh, const aiFace& face, const Matrix& m, std::vector<double>& corners) {
    std::array<double, 9> placed{};
    for (size_t k = 0; k < 3; ++k) {
        if (face.mIndices[k] >= mesh.mNumVertices) return false;
        const aiVector3D& v = mesh.mVertices[face.mIndices[k]];
        for (size_t axis = 0; axis < 3; ++axis) {
            const double* row = &m[4 * axis];
            placed[3 * k + axis] = row[0] * double{v.x} + row[1] * double{v.y} + row[2] * double{v.z} + row[3];
        }
    }
    std::array<double, 3> a{};
    std::array<double, 3> b{};
    for (size_t axis = 0; axis < 3; ++axis) {
        a[axis] = placed[3 + axis] - placed[axis];
        b[axis] = placed[6 + axis] - placed[axis];
    }
    const double area = std::hypot(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]);
    if (!std::isfinite(area) || area == 0.0) return false;
    corners.insert(corners.end(), placed.begin(), placed.end());
    return true;
}

static void addMesh(const aiMesh& mesh, const Matrix& matrix, TriangleMesh& result) {
    if (mesh.mNumFaces == 0) result.other += mesh.mNumVertices;
    for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
        const aiFace& face = mesh.mFaces[i];
        if (face.mNumIndices != 3) {
            ++result.other;
        } else if (!addFace(mesh, face, matrix, result.corners)) {
            ++result.unusable;
        }
    }
    if (result.size() > MOST_TRIANGLES) throw FileError("has more triangles than the engine can count");
}

// A list of our own rather than recursion: a scene may be as deep as its file says.
static TriangleMesh flatten(const aiScene& scene, const std::function<bool()>& goOn) {
    TriangleMesh result;
    std::vector<PlacedNode> waiting{{scene.mRootNode, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}}};
    while (!waiting.empty()) {
        if (!goOn()) throw FileError("reading was interrupted");
        const PlacedNode next = waiting.back();
        waiting.pop_back();
        const Matrix matrix = below(next.matrix, next.node->mTransformation);
        for (unsigned i = 0; i < next.node->mNumMeshes; ++i) {
            const unsigned number = next.node->mMeshes[i];
            if (number < scene.mNumMeshes) addMesh(*scene.mMeshes[number], matrix, result);
        }
        for (unsigned i = next.node->mNumChildren; i-- > 0;) waiting.push_back({next.node->mChildren[i], matrix});
    }
    return result;
}

static std::string firstLine(const std::string& text) {
    const std::string line = text.substr(0, text.find('\n'));
    return line.empty() ? "is no mesh that can be read" : "cannot be read as a mesh: " + line;
}

TriangleMesh readMesh(const std::string& path, const std::function<bool()>& goOn) {
    if (!isMeshName(path)) throw FileError("is not named like a mesh: .obj, .stl, .ply, .gltf or .glb");
    { const InputFile readable(path); } // has better words for what keeps a file from being opened
    Assimp::Importer importer;
    keepOurFormats(importer);
    importer.SetProgressHandler(std::make_unique<Watch>(goOn).release()); // the importer's from here on
    const aiScene* scene = nullptr;
    try {
        scene = importer.ReadFile(path, aiProcess_Triangulate);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& failure) {
        throw FileError(firstLine(failure.what()));
    }
    if (!goOn()) throw FileError("reading was interrupted");
    if (!scene || !scene->mRootNode) throw FileError(firstLine(importer.GetErrorString()));
    TriangleMesh mesh = flatten(*scene, goOn);
    if (mesh.size() == 0) {
        throw FileError(mesh.other > 0      ? "holds points or lines only, and no triangles"
                        : mesh.unusable > 0 ? "holds no triangle that has an area"
                                            : "holds no triangles");
    }
    double largest = 0.0;
    for (const double value : mesh.corners) largest = std::max(largest, std::abs(value));
    const auto asFloat = static_cast<float>(std::min(largest, 1e38));
    mesh.coordinateStep = double{std::nextafter(asFloat, std::numeric_limits<float>::infinity()) - asFloat};
    return mesh;
}

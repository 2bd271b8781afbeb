#include "ProgramRunner.h"
#include "TestFiles.h"
#include "cloud/OpenCloud.h"
#include "meshes/MeshReader.h"
#include "meshes/Placement.h"
#include "support/AnalysisReference.h"

#include <nimbrel/NimbrelEngine.h>
#define PICOJSON_USE_INT64
#include <picojson.h>

#include <algorithm>
#include <cmath>

// collide, grade, coverage and deviation as a user meets them, and the reader of meshes behind them.

static bool isIn(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

static TriangleMesh read(const std::string& path) {
    return readMesh(path, [] { return true; });
}

// Two triangles, one without an area, and a quadrilateral, at z = 1.
static const char* const OBJ = "v 0 0 1\nv 4 0 1\nv 4 4 1\nv 0 4 1\nv 2 0 1\nf 1 2 3 4\nf 1 5 2\nl 1 2\n";

static std::string binaryStl() {
    std::string bytes(80, ' ');
    const uint32_t count = 2;
    bytes.append(reinterpret_cast<const char*>(&count), 4);
    const float triangles[2][12] = {{0, 0, 1, 0, 0, 1, 4, 0, 1, 4, 4, 1}, {0, 0, 1, 0, 0, 1, 4, 4, 1, 0, 4, 1}};
    for (const auto& triangle : triangles) {
        bytes.append(reinterpret_cast<const char*>(triangle), sizeof(triangle));
        bytes.append(2, '\0');
    }
    return bytes;
}

// A scene whose node moves and scales its mesh, under a parent that moves it once more. The data is 3 floats for each
// of 4 corners, and 6 indices of 16 bits.
static std::string gltf(const TemporaryFolder& folder) {
    const float corners[12] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    const uint16_t indices[6] = {0, 1, 2, 0, 2, 3};
    std::string data(reinterpret_cast<const char*>(corners), sizeof(corners));
    data.append(reinterpret_cast<const char*>(indices), sizeof(indices));
    static_cast<void>(folder.write("data.bin", data));
    return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
"nodes":[{"children":[1],"translation":[0,0,0.5]},{"mesh":0,"translation":[0,0,0.5],"scale":[4,4,1]}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1}]}],
"accessors":[{"bufferView":0,"componentType":5126,"count":4,"type":"VEC3","min":[0,0,0],"max":[1,1,0]},
{"bufferView":1,"componentType":5123,"count":6,"type":"SCALAR"}],
"bufferViews":[{"buffer":0,"byteLength":48},{"buffer":0,"byteOffset":48,"byteLength":12}],
"buffers":[{"uri":"data.bin","byteLength":60}]})";
}

TEST(MeshReader, ReadsTheSameSquareFromEveryFormat) {
    const TemporaryFolder folder;
    const std::string ply = "ply\nformat ascii 1.0\nelement vertex 4\nproperty double x\nproperty double y\n"
                            "property double z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
                            "0 0 1\n4 0 1\n4 4 1\n0 4 1\n4 0 1 2 3\n";
    const std::pair<const char*, std::string> files[] = {
        {"a.obj", OBJ}, {"b.stl", binaryStl()}, {"c.PLY", ply}, {"d.gltf", gltf(folder)}};
    for (const auto& [name, bytes] : files) {
        const TriangleMesh mesh = read(folder.write(name, bytes));
        ASSERT_EQ(2U, mesh.size()) << name;
        double area = 0;
        for (size_t i = 0; i < 18; i += 9) {
            const double* p = &mesh.corners[i];
            area += 0.5 * std::abs((p[3] - p[0]) * (p[7] - p[1]) - (p[6] - p[0]) * (p[4] - p[1]));
            for (const size_t z : {2U, 5U, 8U}) EXPECT_EQ(1.0, p[z]) << name;
        }
        EXPECT_DOUBLE_EQ(16.0, area) << name;
        EXPECT_EQ(name == std::string("a.obj") ? 1U : 0U, mesh.unusable) << name;
    }
}

TEST(MeshReader, SaysWhatIsWrong) {
    const TemporaryFolder folder;
    const std::string points = "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
                               "property float z\nend_header\n0 0 1\n";
    const std::tuple<const char*, std::string, const char*> files[] = {
        {"points.ply", points, "no triangles"},
        {"flat.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n", "no triangle that has an area"},
        {"empty.obj", "", "is empty"},
        {"junk.stl", std::string(300, 'x'), "mesh"},
        {"junk.gltf", "{", "mesh"},
        {"mesh.fbx", OBJ, "is not named like a mesh"},
    };
    for (const auto& [name, bytes, part] : files) {
        const std::string path = folder.write(name, bytes);
        const std::string error = errorOf([&path = path] { read(path); });
        EXPECT_TRUE(isIn(error, part)) << name << ": " << error;
    }
    EXPECT_EQ("no such file", errorOf([&] { read(folder.file("none.obj")); }));
    EXPECT_TRUE(isIn(errorOf([&] { readMesh(folder.write("a.obj", OBJ), [] { return false; }); }), "interrupted"));
    // No prefix of a file is read beyond its end, whatever comes of it.
    const std::string stl = binaryStl();
    for (size_t size = 1; size < stl.size(); size += 7) {
        errorOf([&] { read(folder.write("cut.stl", stl.substr(0, size))); });
    }
}

TEST(Placement, ParsesRowsAndShifts) {
    double place[3] = {1, 2, 3};
    Placement::parse("10 20,30\n")->apply(place);
    EXPECT_TRUE(place[0] == 11 && place[1] == 22 && place[2] == 33);
    Placement::parse("0 -1 0 5\n1 0 0 6\n0 0 2 7\n0 0 0 1")->apply(place);
    EXPECT_TRUE(place[0] == -17 && place[1] == 17 && place[2] == 73);
    for (const char* text : {"", "1,2", "1,2,x", "1,2,nan", "1,0,0,0,0,1,0,0,0,0,1,0,0,0,1,1", "1,2,3,4,5,6,7"}) {
        EXPECT_FALSE(Placement::parse(text)) << text;
    }
}

namespace {
// A lattice of points at z = 1 on the square from 0 to 4, every tenth of a unit.
class AnalysisCommands : public testing::Test {
protected:
    AnalysisCommands() : cloud(folder.file("flat.opc")), mesh(folder.write("square.obj", OBJ)) {
        std::string text;
        for (int i = 0; i < 41 * 41; ++i) {
            text += std::to_string(i % 41 * 0.1) + ' ' + std::to_string(static_cast<double>(i / 41) * 0.1) + " 1\n";
        }
        EXPECT_EQ(0, runNimbrel({"build", folder.write("flat.xyz", text), "-o", cloud}).status);
    }

    static picojson::value json(const RunResult& result) {
        picojson::value value;
        EXPECT_EQ("", picojson::parse(value, result.out)) << result.out << result.err;
        return value;
    }

    const TemporaryFolder folder;
    const std::string cloud;
    const std::string mesh;
};
} // namespace

TEST_F(AnalysisCommands, CollideTellsByItsExitStatus) {
    const RunResult touching = runNimbrel({"collide", cloud, mesh, "--limit", "5"});
    EXPECT_EQ(3, touching.status) << touching.err;
    EXPECT_TRUE(isIn(touching.out, "touch at 5 places, where --limit ends the search")) << touching.out;
    EXPECT_EQ(7, std::count(touching.out.begin(), touching.out.end(), '\n'));
    const std::string matrix = folder.write("matrix.txt", "1 0 0 0\n0 1 0 0\n0 0 1 0.5\n0 0 0 1\n");
    const RunResult apart = runNimbrel({"collide", cloud, mesh, "--place-b", matrix, "--json"});
    EXPECT_EQ(0, apart.status) << apart.err;
    EXPECT_EQ(0U, json(apart).get("contacts").get<picojson::array>().size());
    EXPECT_EQ(3, runNimbrel({"collide", cloud, mesh, "--place-b", matrix, "--place-a", "0,0,0.5"}).status);
    const std::string copy = folder.write("copy.opc", bytesOf(cloud));
    EXPECT_EQ(3, runNimbrel({"collide", cloud, copy, "--place-b=0,-0.01,0"}).status);
    EXPECT_EQ(0, runNimbrel({"collide", cloud, copy, "--place-a", "0,0,9"}).status);
    std::filesystem::resize_file(copy, std::filesystem::file_size(copy) / 2);
    EXPECT_EQ(1, runNimbrel({"collide", cloud, copy}).status) << "points that can't be read may touch";
    EXPECT_EQ(2, runNimbrel({"collide", cloud, mesh, "--place-b", "1,2"}).status);
    EXPECT_EQ(1, runNimbrel({"collide", cloud, folder.write("p.obj", "v 0 0 0\n")}).status);
}

TEST_F(AnalysisCommands, GradeChangesTheFileOrACopy) {
    const std::string before = bytesOf(cloud);
    const std::string copy = folder.file("graded.opc");
    // Half of the thickness away: the band in the middle, for every point but those that rounding puts on the rim.
    const std::vector<std::string> grade{"grade", cloud, "--mesh", mesh, "--thickness", "0.2", "--place", "0,0,0.1"};
    std::vector<std::string> arguments = grade;
    arguments.insert(arguments.end(), {"-o", copy, "--json"});
    const RunResult graded = runNimbrel(arguments);
    ASSERT_EQ(0, graded.status) << graded.err;
    const auto now = [](const picojson::value& histogram, size_t band) {
        return histogram.get("bands").get<picojson::array>()[band].get("now").get<int64_t>();
    };
    const picojson::value histogram = json(graded);
    EXPECT_GE(now(histogram, 127) + now(histogram, 128), 40 * 40);
    EXPECT_EQ(41 * 41, now(histogram, 127) + now(histogram, 128) + now(histogram, 0));
    EXPECT_EQ(before, bytesOf(cloud));
    EXPECT_FALSE(std::filesystem::exists(copy + ".part"));
    EXPECT_EQ(1, runNimbrel(arguments).status); // the copy is there now
    const RunResult inPlace = runNimbrel(grade);
    EXPECT_EQ(0, inPlace.status) << inPlace.err;
    EXPECT_TRUE(isIn(inPlace.out, "112-127")) << inPlace.out;
    const std::string expected = bytesOf(copy);
    EXPECT_EQ(expected, bytesOf(cloud));

    // What killed edits of an earlier copy left beside it is for that copy alone, and so after a build of the file.
    ASSERT_EQ(1, initEngine("key"));
    std::string journal;
    {
        const OpenCloud edited(copy);
        selectAllPoints();
        setLasValueOnSelectedPoints(77);
        journal = bytesOf(copy + ".journal");
        ASSERT_FALSE(journal.empty());
        arguments.emplace_back("--force");
        EXPECT_TRUE(isIn(runNimbrel(arguments).err, "another process edits it"));
    }
    for (const char* name :
         {"graded.opc.journal", "graded.opc.part.journal", "flat.opc.journal", "flat.opc.part.journal"}) {
        static_cast<void>(folder.write(name, journal));
    }
    ASSERT_EQ(0, runNimbrel({"build", folder.file("flat.xyz"), "-o", cloud, "-f"}).status);
    ASSERT_EQ(0, runNimbrel(arguments).status);
    for (const auto& [file, bytes] : {std::pair(copy, expected), std::pair(cloud, before)}) {
        ASSERT_EQ(0, runNimbrel({"info", file}).status); // opens it
        EXPECT_TRUE(bytes == bytesOf(file)) << file;
        EXPECT_FALSE(std::filesystem::exists(file + ".part.journal"));
    }
    EXPECT_EQ(2, runNimbrel({"grade", cloud, "--mesh", mesh, "--thickness", "0"}).status);
}

TEST_F(AnalysisCommands, CoverageAndDeviationHaveARowForEachMesh) {
    const std::string far = folder.write("far.obj", "v 90 0 0\nv 91 0 0\nv 90 1 0\nf 1 2 3\n");
    const RunResult table =
        runNimbrel({"coverage", cloud, "--mesh", mesh, "--mesh", far, "--thickness", "50", "--cell", "200"});
    EXPECT_EQ(0, table.status) << table.err;
    EXPECT_EQ(3, std::count(table.out.begin(), table.out.end(), '\n')) << table.out;
    EXPECT_TRUE(isIn(table.out, "no points by it")) << table.out << table.err;
    const picojson::value rows = json(runNimbrel(
        {"deviation", cloud, "--mesh", far, "--mesh", mesh, "--thickness", "50", "--place", "0,0,0.02", "--json"}));
    EXPECT_TRUE(rows.get(0).get("mean").is<picojson::null>());
    EXPECT_NEAR(20.0, rows.get(1).get("mean").get<double>(), 0.2);
    EXPECT_NEAR(0.0, rows.get(1).get("deviation").get<double>(), 0.2);
    EXPECT_EQ(2, runNimbrel({"coverage", cloud, "--mesh", mesh, "--thickness", "50"}).status);
    const std::string model = folder.file("flat.ovm");
    ASSERT_EQ(0, runNimbrel({"build", folder.file("flat.xyz"), "-o", model, "--voxel", "0.5"}).status);
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"collide", model, mesh},
                                                      {"collide", cloud, model},
                                                      {"deviation", model, "--mesh", mesh, "--thickness", "5"}}) {
        EXPECT_TRUE(isIn(runNimbrel(arguments).err, "flat.ovm: a voxel model has no points")) << arguments[0];
    }
}

// Two tiles of a real place against each other and against a mesh of their points, in the library that the program
// uses.
TEST(RealClouds, AreAnalysedAsBruteForceHasIt) {
    const std::string first = realCloud("ahn3_1.laz");
    const std::string second = realCloud("ahn3_2.laz");
    if (first.empty() || second.empty()) GTEST_SKIP() << "the clouds are not there";
    const TemporaryFolder folder;
    const std::string paths[] = {folder.file("a.opc"), folder.file("b.opc")};
    ASSERT_EQ(0, runNimbrel({"build", first, "-o", paths[0]}).status);
    ASSERT_EQ(0, runNimbrel({"build", second, "-o", paths[1], "--compressed"}).status);
    ASSERT_EQ(1, initEngine("key"));
    const OpenCloud cloudA(paths[0]);
    const OpenCloud cloudB(paths[1]);
    const glm::dmat4 identity(1.0);
    AnalysisReference a(cloudA.id(), identity);
    const AnalysisReference b(cloudB.id(), identity);

    std::vector<double> out(3 * 100000);
    const auto touching = a.contactsWith(b);
    ASSERT_FALSE(touching.empty());
    EXPECT_EQ(touching, sortedPlaces(out.data(), doPointCloudCollision(cloudA.id(), cloudB.id(), 100000, out.data())));

    std::vector<AnalysisReference::Corners> mesh;
    for (const auto& node : a.nodes) {
        const auto& p = node.points;
        for (size_t i = 0; i + 2 < p.size(); i += p.size() / 4 + 1) mesh.push_back({p[i], p[i + 1], p[i + 2]});
    }
    const auto count = static_cast<int>(mesh.size());
    const double* triangles = &mesh[0][0].x;
    const auto expected = a.contactsWith(mesh, identity, 1.0);
    ASSERT_GT(expected.size(), 100U);
    const int found = doMeshCollision(cloudA.id(), 100000, out.data(), triangles, count, &identity[0].x);
    EXPECT_EQ(expected, sortedPlaces(out.data(), found));

    a.classify(mesh, identity, 0.7);
    classifyPointsByDistance(triangles, count, &identity[0].x, 0.7);
    const AnalysisReference graded(cloudA.id(), identity);
    for (size_t i = 0; i < a.nodes.size(); ++i) EXPECT_EQ(a.nodes[i].classes, graded.nodes[i].classes) << i;
}

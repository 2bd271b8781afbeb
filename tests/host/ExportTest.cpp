#include "ProgramRunner.h"
#include "TestFiles.h"
#include "meshes/MeshReader.h"

// The command around the export: what it writes where, what it warns of, and what it refuses. The bytes of the models
// are tested with the library.

// As the reader of meshes sees it, which is another library's.
static size_t countTriangles(const std::string& path) {
    return readMesh(path, [] { return true; }).size();
}

TEST(Export, WritesEachFormAndRefusesWhatItCannot) {
    const TemporaryFolder folder;
    std::string points = "x y z r g b\n0 0 0 1 2 3\n40000 10 10 1 2 3\n";
    for (const char* place : {"5.5 5.5 5.5", "5.5 7.5 5.5", "100.5 5.5 5.5"}) {
        for (int i = 0; i < 11; ++i) points += std::string(place) + std::to_string(i) + " 200 40 40\n";
    }
    const std::string cloud = folder.file("a cloud.opc");
    ASSERT_EQ(0, runNimbrel({"build", folder.write("p.xyz", points), "-o", cloud, "-q"}).status);
    const auto run = [&](const std::string& output, std::vector<std::string> more) {
        std::vector<std::string> arguments{"export", cloud, "-o", folder.file(output)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runNimbrel(arguments);
    };
    const std::string model = folder.file("a model.x.obj");
    const RunResult obj = run("a model.x.obj", {"--voxel", "1"});
    EXPECT_EQ(0, obj.status) << obj.err;
    EXPECT_EQ("", obj.err);
    EXPECT_NE(std::string::npos, obj.out.find("a_model.mtl")) << obj.out;
    EXPECT_NE(std::string::npos, obj.out.find("3 cubes of 1, in a grid of 40001 x 11 x 11")) << obj.out;
    EXPECT_EQ(36U, countTriangles(model));
    EXPECT_TRUE(std::filesystem::exists(folder.file("a_model.png")));
    EXPECT_FALSE(std::filesystem::exists(model + ".parts"));

    EXPECT_EQ(0, run("s.STL", {"--voxel", "0.1", "--scale", "0.1", "-q"}).status);
    EXPECT_EQ(36U, countTriangles(folder.file("s.STL")));
    const RunResult blocks = run("b.schematic", {"--voxel", "1", "--intensity"});
    EXPECT_EQ(0, blocks.status);
    EXPECT_NE(std::string::npos, blocks.err.find("warning: 40001 x 11 x 11 blocks are more than the format can say"));
    EXPECT_EQ(2U * 40001 * 121 + 88, bytesOf(folder.file("b.schematic")).size());
    EXPECT_NE(std::string::npos, run("d.stl", {"--voxel", "0.02"}).err.find("out of shape"));
    EXPECT_NE(std::string::npos,
              run("e.stl", {"--voxel", "1", "--scale", "1000"}).err.find("warning: the model is empty"));

    const std::string cut = folder.write("cut.opc", bytesOf(cloud).substr(0, bytesOf(cloud).size() - 1));
    const RunResult rest = runNimbrel({"export", cut, "-o", folder.file("rest.stl"), "--voxel", "1"});
    EXPECT_EQ(1, rest.status);
    EXPECT_NE(std::string::npos, rest.err.find("cut.opc: 1 node can't be read")) << rest.err;
    EXPECT_TRUE(std::filesystem::exists(folder.file("rest.stl")));

    std::filesystem::create_directory(folder.file("n.obj.parts")); // of one that was killed
    const std::tuple<const char*, std::vector<std::string>, int, const char*> refused[] = {
        {"a model.x.obj", {}, 1, "a model.x.obj: already exists"},
        {"a_model.obj", {}, 1, "a_model.mtl: already exists"},
        {"n.obj", {}, 1, "n.obj.parts: is left over"},
        {"n.obj", {"--force"}, 0, ""},
        {"p.xyz", {}, 2, "must end in .obj, .stl or .schematic"},
        {"i.obj", {"--intensity"}, 2, "--intensity chooses the blocks"},
        {"i.obj", {"--voxel", "0"}, 2, "not a number from 0.01 to 1000"}};
    for (const auto& [output, more, status, message] : refused) {
        const RunResult result = run(output, more);
        EXPECT_EQ(status, result.status) << output << result.err;
        EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
    }
}

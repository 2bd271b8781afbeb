#include "LasFile.h"
#include "ProgramRunner.h"
#include "TestFiles.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <sys/stat.h>

// The program as a user meets it: what it prints where, and how it ends.

static bool isIn(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

static std::string inputIn(const TemporaryFolder& folder) {
    return folder.write("points.xyz", "0 0 0 10 20 30\n1 2 3 40 50 60\n4 0.5 2 255 0 128\n");
}

static size_t countFiles(const TemporaryFolder& folder) {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path)) ++count;
    return count;
}

TEST(CommandLine, RefusesWrongUsage) {
    const TemporaryFolder folder;
    const std::string input = inputIn(folder);
    const std::string output = folder.file("out.opc");
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "a command is missing"},
        {{"fly"}, "there is no command 'fly'"},
        {{"build"}, "INPUT"},
        {{"build", input}, "--output"},
        {{"build", input, "-o", output, "--sideways"}, "--sideways"},
        {{"build", input, "-o", output, "--grid", "nan"}, "--grid"},
        {{"build", input, "-o", output, "--grid", "0.00001"}, "--grid"},
        {{"build", input, "-o", output, "--bounds", "0,0,0,1,1"}, "six numbers"},
        {{"build", input, "-o", output, "--bounds", "0,0,0,1,1,inf"}, "six numbers"},
        {{"build", input, "-o", output, "--bounds", "0,0,0,1,1,1,"}, "six numbers"},
        {{"build", input, "-o", output, "--bounds", "0,0,5,1,1,1"}, "smallest z"},
        {{"build", input, "-o", ""}, "empty"},
        {{"info"}, "FILE"},
        {{"info", output, "--json", "--tree"}, "--tree"},
        {{"info", output, "--depth", "3"}, "--tree"},
        {{"points", output, "-o", "a.csv", "--class", "256"}, "--class"},
        {{"points", output, "-o", "a.csv", "--every", "0"}, "--every"},
        {{"points", output, "-o", "a.csv", "--level", "1", "--node", "1"}, "--level"},
        {{"render", output, "-o", "picture.jpg"}, ".png or .ppm"},
        {{"render", output, "-o", "a.png", "--size", "100"}, "--size"},
        {{"render", output, "-o", "a.png", "--size", "0x100"}, "--size"},
        {{"render", output, "-o", "a.png", "--size", "100x99999"}, "--size"},
        {{"render", output, "-o", "a.png", "--eye", "1,2"}, "three numbers"},
        {{"render", output, "-o", "a.png", "--eye", "1,2,3", "--view", "top"}, "--view"},
        {{"render", output, "-o", "a.png", "--target", "1,2,3"}, "--eye"},
        {{"render", output, "-o", "a.png", "--colour", "rainbow"}, "--colour"},
        {{"render", output, "-o", "a.png", "--background", "white"}, "--background"},
        {{"render", output, "-o", "a.png", "--opacity", "101"}, "--opacity"},
        {{"render", output, "-o", "a.png", "--point-size", "0"}, "--point-size"},
        {{"render", output, "-o", "a.png", "--fov", "180"}, "--fov"},
        {{"render", output, "-o", "a.png", "--clip", "1,1,1,0,2,2"}, "smallest x"},
        {{"view"}, "FILE"},
        {{"view", output, "--size", "big"}, "--size"},
        {{"sample", "a.las", "--points", "-5"}, "--points"},
        {{"sample", "a.las", "--points", "0"}, "--points"},
    };
    for (const auto& [arguments, part] : cases) {
        const RunResult result = runNimbrel(arguments);
        const std::string what = arguments.empty() ? "no arguments" : arguments.back();
        EXPECT_EQ(2, result.status) << what << result.err;
        EXPECT_TRUE(result.err.starts_with("nimbrel: ")) << result.err;
        EXPECT_TRUE(isIn(result.err, part)) << what << ": " << result.err;
        EXPECT_EQ("", result.out) << what;
    }
    EXPECT_EQ(1U, countFiles(folder));
}

TEST(CommandLine, NamesTheFileThatFails) {
    const TemporaryFolder folder;
    const std::string input = inputIn(folder);
    const std::string output = folder.file("out.opc");
    const std::string taken = folder.write("taken.opc", "mine");
    const std::string garbage = folder.write("garbage.opc", std::string(200, 'x'));
    const std::string empty = folder.write("empty.xyz", "x y z\n");
    const std::string cut = folder.file("cut.opc");
    ASSERT_EQ(0, runNimbrel({"build", input, "-o", cut}).status);
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 1);
    const std::string missing = folder.file("missing.las");
    const std::string badName = folder.file("\xff.opc");
    const std::tuple<std::vector<std::string>, std::string, const char*> cases[] = {
        {{"build", missing, "-o", output}, missing, "no such file"},
        {{"build", input, missing, "-o", output}, missing, ""},
        {{"build", empty, "-o", output}, empty, "no points"},
        {{"build", input, "-o", output, "--bounds", "7,7,7,8,8,8"}, input, "within the bounds"},
        {{"build", input, "-o", taken}, taken, "--force"},
        {{"build", input, "-o", input, "--force"}, input, "is an input"},
        {{"build", input, "-o", folder.path.string(), "--force"}, folder.path.string(), "not a regular file"},
        {{"build", input, "-o", folder.file("no/out.opc")}, folder.file("no/out.opc"), "folder"},
        {{"build", input, "-o", badName}, badName, "UTF-8"},
        {{"build", folder.path.string(), "-o", output}, folder.path.string(), "is a directory"},
        {{"info", missing}, missing, "does not exist"},
        {{"info", garbage}, garbage, "tree"},
        {{"info", input}, input, "is no point file but text"},
        {{"serve", garbage}, garbage, "no point file"},
        {{"info", badName}, badName, "UTF-8"},
        {{"points", missing, "-o", folder.file("a.csv")}, missing, ""},
        {{"render", missing, "-o", folder.file("a.png")}, missing, "does not exist"},
        {{"points", cut, "-o", folder.file("a.csv")}, cut, "node 0 can't be read"},
        {{"points", garbage, "-o", garbage, "-f"}, garbage, "is an input"},
        {{"sample", folder.file("a.doc")}, folder.file("a.doc"), ""},
        {{"sample", taken}, taken, "--force"},
    };
    const size_t before = countFiles(folder);
    for (const auto& [arguments, file, part] : cases) {
        const RunResult result = runNimbrel(arguments);
        EXPECT_EQ(1, result.status) << file << part;
        EXPECT_TRUE(result.err.starts_with("nimbrel: " + file + ": ")) << result.err << part;
        EXPECT_TRUE(isIn(result.err, part)) << part << ": " << result.err;
        EXPECT_EQ("", result.out);
    }
    EXPECT_EQ("mine", bytesOf(taken));
    EXPECT_EQ(before, countFiles(folder));
}

TEST(CommandLine, HelpsOnStandardOutput) {
    for (const char* command : {"build", "info", "points", "sample"}) {
        const RunResult result = runNimbrel({command, "--help"});
        EXPECT_EQ(0, result.status) << command;
        EXPECT_TRUE(isIn(result.out, std::string("nimbrel ") + command)) << result.out;
        EXPECT_TRUE(isIn(runNimbrel({"--help"}).out, command));
    }
    const RunResult version = runNimbrel({"--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_TRUE(version.out.starts_with("nimbrel ")) << version.out;
    EXPECT_EQ("", version.err);
}

TEST(CommandLine, KeepsTheEngineLogOutOfTheResults) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("out.opc");
    ASSERT_EQ(0, runNimbrel({"build", inputIn(folder), "-o", cloud}).status);
    const RunResult plain = runNimbrel({"points", cloud, "-o", "-"});
    EXPECT_EQ(0, plain.status);
    EXPECT_TRUE(plain.out.starts_with("x,y,z,red,green,blue,intensity,class\n")) << plain.out;
    EXPECT_EQ(4, std::count(plain.out.begin(), plain.out.end(), '\n')) << plain.out;
    EXPECT_EQ("", plain.err);
    const RunResult verbose = runNimbrel({"--verbose", "points", cloud, "-o", "-"});
    EXPECT_EQ(plain.out, verbose.out);
    EXPECT_TRUE(isIn(verbose.err, "Joining")) << verbose.err;
}

TEST(CommandLine, EndsQuietlyWhenNobodyReads) {
    const TemporaryFolder folder;
    const std::string sample = folder.file("town.ply");
    const std::string cloud = folder.file("town.opc");
    ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "20000"}).status);
    ASSERT_EQ(0, runNimbrel({"build", sample, "-o", cloud}).status);
    RunSetting unread;
    unread.closedOutput = true;
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"points", cloud, "-o", "-"}, {"info", cloud}, {"--help"}}) {
        const RunResult result = runNimbrel(arguments, unread);
        EXPECT_EQ(0, result.status) << arguments.front();
        EXPECT_EQ("", result.err) << arguments.front();
    }
}

TEST(CommandLine, WritesValidJson) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("quoted \"name\" \xc3\xa9.opc");
    ASSERT_EQ(0, runNimbrel({"build", inputIn(folder), "-o", cloud, "--compressed"}).status);
    const RunResult result = runNimbrel({"info", cloud, "--json"});
    ASSERT_EQ(0, result.status) << result.err;
    picojson::value json;
    ASSERT_EQ("", picojson::parse(json, result.out));
    EXPECT_EQ(18, json.get("version").get<int64_t>());
    EXPECT_EQ(1, json.get("nodes").get<int64_t>());
    EXPECT_EQ(cloud, json.get("file").get<std::string>());
    EXPECT_TRUE(json.get("spacing").is<double>());
    const double bounds[] = {-0.01, -0.01, -0.01, 4.01, 2.01, 3.01};
    ASSERT_EQ(6U, json.get("bounds").get<picojson::array>().size());
    for (size_t i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(bounds[i], json.get("bounds").get(i).get<double>()) << i;
    const picojson::array& levels = json.get("levels").get<picojson::array>();
    ASSERT_EQ(1U, levels.size());
    EXPECT_EQ(1, levels[0].get("nodes").get<int64_t>());
    EXPECT_EQ(json.get("points").get<int64_t>(), levels[0].get("points").get<int64_t>());
    EXPECT_EQ(static_cast<int64_t>(std::filesystem::file_size(cloud)), json.get("fileSize").get<int64_t>());
}

TEST(CommandLine, ReplacesAnOutputWhenForcedAndDone) {
    const TemporaryFolder folder;
    const std::string input = inputIn(folder);
    const std::string cloud = folder.write("out.opc", "mine");
    static_cast<void>(folder.write("out.opc.part", "left over"));
    EXPECT_EQ(1, runNimbrel({"build", folder.file("missing"), "-o", cloud, "--force"}).status);
    EXPECT_EQ("mine", bytesOf(cloud));
    EXPECT_EQ(0, runNimbrel({"build", input, "-o", cloud, "--force"}).status);
    EXPECT_EQ(0, runNimbrel({"info", cloud}).status);
    EXPECT_EQ(2U, countFiles(folder));
}

// Each row reads the three points of inputIn() back through one filter; the first number of a line tells the point.
TEST(CommandLine, FiltersPoints) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("out.opc");
    const std::string input = folder.write("p.xyz", "x y z class\n0 0 0 2\n5 5 5 6\n9 9 9 2\n");
    ASSERT_EQ(0, runNimbrel({"build", input, "-o", cloud, "-q"}).status);
    const std::pair<std::vector<std::string>, size_t> cases[] = {
        {{}, 3},
        {{"--class", "2"}, 2},
        {{"--class", "6,7"}, 1},
        {{"--box", "4,4,4,6,6,6"}, 1},
        {{"--box", "-1,-1,-1,10,10,10", "--every", "2"}, 2},
        {{"--every", "3"}, 1},
        {{"--level", "0"}, 3},
        {{"--node", "0"}, 3},
        {{"--class", "3"}, 0},
    };
    for (const auto& [filter, expected] : cases) {
        std::vector<std::string> arguments{"points", cloud, "-o", "-"};
        arguments.insert(arguments.end(), filter.begin(), filter.end());
        const RunResult result = runNimbrel(arguments);
        EXPECT_EQ(0, result.status) << result.err;
        const auto lines = static_cast<size_t>(std::count(result.out.begin(), result.out.end(), '\n'));
        EXPECT_EQ(expected + 1, lines) << (filter.empty() ? "all" : filter[0] + " " + filter[1]);
    }
    EXPECT_EQ(0, runNimbrel({"points", "--class", "2", cloud, "-o", "-"}).status);
    EXPECT_EQ(1, runNimbrel({"points", cloud, "-o", "-", "--node", "1"}).status);
}

TEST(CommandLine, CountsWhatItLeavesOutAndWarns) {
    const TemporaryFolder folder;
    std::string text;
    for (int i = 0; i < 15000; ++i) {
        // Each point twice; more than a single node holds, since that is not filtered.
        const std::string line = std::to_string(i % 100) + " " + std::to_string(i / 100) + " 1\n";
        text.append(line).append(line);
    }
    const std::string input = folder.write("p.xyz", text + "0 0 5\nnonsense\n7 7 -3\n");
    const RunResult cropped =
        runNimbrel({"build", input, "-o", folder.file("a.opc"), "--bounds", "0,0,0,99,150,2", "--duplicates", "0.1"});
    ASSERT_EQ(0, cropped.status) << cropped.err;
    EXPECT_TRUE(cropped.err.starts_with("nimbrel: " + input + ": warning: ")) << cropped.err;
    EXPECT_EQ(30002U, countIn(cropped.out, "read")) << cropped.out;
    EXPECT_EQ(2U, countIn(cropped.out, "outside the bounds")) << cropped.out;
    EXPECT_EQ(15000U, countIn(cropped.out, "duplicates")) << cropped.out;
    EXPECT_EQ(15000U, countIn(cropped.out, "written")) << cropped.out;
    EXPECT_EQ("", runNimbrel({"build", input, "-o", folder.file("b.opc"), "--quiet"}).out);
    // As close to each other as points of an airborne scan in degrees.
    const std::string degrees = folder.write("degrees.xyz", "7.0001 50 90\n7.0002 50 91\n7.0003 50.0001 92\n");
    EXPECT_TRUE(isIn(runNimbrel({"build", degrees, "-o", folder.file("c.opc")}).err, "are rounded to 0.0001 units"));
}

TEST(CommandLine, LeavesOutWithheldPointsWhenAsked) {
    const TemporaryFolder folder;
    LasFile points(2, 0, 20);
    for (int i = 0; i < 5; ++i) points.addPointAt(i, i, i).putInPoint<uint8_t>(15, i % 2 == 0 ? 0x80 : 0);
    const std::string input = folder.write("marked.las", points.count(5).bytes);
    EXPECT_EQ(5U, countIn(runNimbrel({"build", input, "-o", folder.file("all.opc")}).out, "written"));
    const RunResult result = runNimbrel({"build", input, "-o", folder.file("some.opc"), "--skip-withheld"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(2U, countIn(result.out, "written")) << result.out;
}

#include "CloudComparison.h"
#include "ProgramRunner.h"
#include "TestFiles.h"

#include "support/Text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <sstream>

// Editing as a user does it, judged by the points that come back out of the file.

namespace {
struct Row {
    double x = 0, y = 0, z = 0;
    int red = 0, green = 0, blue = 0, intensity = 0, number = 0;
};

// A cloud of 20 x 20 x 10 points one unit apart, with colours, intensities and classes that tell them apart.
class EditedCloud {
public:
    explicit EditedCloud(bool compressed) {
        std::string text = "x y z r g b intensity class\n";
        for (int i = 0; i < 4000; ++i) {
            text += fmt::format("{} {} {} {} {} {} {} {}\n", i % 20, i / 20 % 20, i / 400, i % 20 * 10, i / 20 % 20 * 5,
                                i / 400 * 20, i % 256, i % 7);
        }
        std::vector<std::string> build{"build", folder.write("grid.xyz", text), "-o", file, "-q"};
        build.insert(build.end(),
                     {"--columns", "x,y,z,r,g,b,intensity,class", "--colour-limit", "255", "--intensity-limit", "255"});
        if (compressed) build.emplace_back("-c");
        EXPECT_EQ(0, runNimbrel(build).status);
    }

    RunResult edit(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"edit", file});
        return runNimbrel(arguments);
    }

    std::vector<Row> points() const { return rows(runNimbrel({"points", file, "-o", "-"}).out); }

    static std::vector<Row> rows(const std::string& csv) {
        std::vector<Row> rows;
        std::istringstream lines(csv);
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line)) {
            Row& p = rows.emplace_back();
            EXPECT_EQ(8, std::sscanf(line.c_str(), "%lf,%lf,%lf,%d,%d,%d,%d,%d", &p.x, &p.y, &p.z, &p.red, &p.green,
                                     &p.blue, &p.intensity, &p.number));
        }
        return rows;
    }

    int count(const std::function<bool(const Row&)>& test) const {
        const std::vector<Row> all = points();
        return static_cast<int>(std::count_if(all.begin(), all.end(), test));
    }

    const TemporaryFolder folder;
    const std::string file = folder.file("grid.opc");
};

bool isInSphere(const Row& row) {
    return std::hypot(row.x - 10.0, row.y - 10.0, row.z - 5.0) <= 4.2;
}
} // namespace

TEST(EditCommand, SelectsByShapesAndFilters) {
    for (const bool compressed : {false, true}) {
        const EditedCloud cloud(compressed);
        const std::string polygon =
            cloud.folder.write("view.json", R"({"eye": [9.5, 9.5, 100], "target": [9.5, 9.5, 0], "size": [200, 200],)"
                                            R"( "corners": [[100, 0], [199, 0], [199, 199], [100, 199]]})");
        const auto isVisibleOutside = [](const Row& p) { return p.number != 2 && !isInSphere(p); };
        const std::pair<std::vector<std::string>, std::function<bool(const Row&)>> cases[] = {
            {{"--select", "all"}, [](const Row&) { return true; }},
            {{"--invert"}, [](const Row&) { return true; }},
            {{"--select", "sphere:10,10,5,4.2"}, isInSphere},
            {{"--select", "box:-0.5,-0.5,-0.5,9.5,4.5,9.5"}, [](const Row& p) { return p.x < 9.5 && p.y < 4.5; }},
            {{"--select", "box:10,10,5,1,1,0,2.6,-1,1,0,3.3,0,0,1,1.5"},
             [](const Row& p) {
                 const double x = p.x - 10.0, y = p.y - 10.0;
                 return std::fabs(x + y) <= 2.6 * std::sqrt(2.0) && std::fabs(y - x) <= 3.3 * std::sqrt(2.0) &&
                        std::fabs(p.z - 5.0) <= 1.5;
             }},
            {{"--select", "polygon:" + polygon}, [](const Row& p) { return p.x > 9.5; }},
            {{"--select", "class:3", "--select", "class:5"},
             [](const Row& p) { return p.number == 3 || p.number == 5; }},
            {{"--select", "all", "--deselect", "sphere:10,10,5,4.2", "--hide-class", "2"}, isVisibleOutside},
            {{"--select", "sphere:10,10,5,4.2", "--invert", "--hide-class", "2"}, isVisibleOutside},
            {{"--select", "sphere:10,10,5,4.2", "--match-colour", "100,50,100:30"},
             [](const Row& p) {
                 return isInSphere(p) && std::abs(p.red - 100) <= 30 && std::abs(p.green - 50) <= 30 &&
                        std::abs(p.blue - 100) <= 30;
             }},
            {{"--select", "all", "--match-intensity", "200:7"},
             [](const Row& p) { return std::abs(p.intensity - 200) <= 7; }},
        };
        for (auto [arguments, test] : cases) {
            arguments.emplace_back("--count");
            const RunResult result = cloud.edit(arguments);
            const int expected = cloud.count(test);
            EXPECT_GT(expected, 0);
            EXPECT_EQ(0, result.status) << result.err;
            const std::string answer = fmt::format(": selected {} of 4,000", grouped(static_cast<uint64_t>(expected)));
            EXPECT_NE(std::string::npos, result.out.find(answer)) << fmt::format("{}", fmt::join(arguments, " "));
        }
    }
}

TEST(EditCommand, ChangesTheFileAndRestoresIt) {
    for (const bool compressed : {false, true}) {
        const EditedCloud cloud(compressed);
        const int inside = cloud.count(isInSphere);
        const std::string shape = "sphere:10,10,5,4.2";
        const std::string before = bytesOf(cloud.file);
        EXPECT_EQ(0, cloud.edit({"--select", shape, "--delete", "--dry-run"}).status);
        EXPECT_EQ(before, bytesOf(cloud.file)) << "a dry run leaves the file as it is";

        const std::string extracted = cloud.folder.file("tree.csv");
        const RunResult cut = cloud.edit({"--select", shape, "--extract", extracted, "--delete"});
        EXPECT_EQ(0, cut.status) << cut.err;
        EXPECT_EQ(4000U - static_cast<size_t>(inside), cloud.points().size());
        EXPECT_EQ(0, cloud.count(isInSphere));
        const std::vector<Row> taken = EditedCloud::rows(bytesOf(extracted));
        EXPECT_EQ(inside, std::count_if(taken.begin(), taken.end(), isInSphere));
        EXPECT_EQ(static_cast<size_t>(inside), taken.size());

        EXPECT_TRUE(runNimbrel({"restore", cloud.file, "--dry-run"}).out.ends_with(" points, 4,000 then\n"));
        const std::string answer = fmt::format("restored {} deleted points", grouped(static_cast<uint64_t>(inside)));
        EXPECT_NE(std::string::npos, runNimbrel({"restore", cloud.file}).out.find(answer));
        EXPECT_EQ(inside, cloud.count(isInSphere));

        EXPECT_EQ(0, cloud.edit({"--select", shape, "--classify", "9"}).status);
        EXPECT_EQ(0, cloud.count([](const Row& p) { return (p.number == 9) != isInSphere(p); }));
        EXPECT_EQ(0, cloud.edit({"--select", shape, "--paint", "255,0,255"}).status);
        const auto isPink = [](const Row& p) { return p.red >= 240 && p.green == 0 && p.blue >= 240; }; // version 18
        EXPECT_EQ(0, cloud.count([&](const Row& p) { return isPink(p) != isInSphere(p); }));
        EXPECT_EQ(0, cloud.edit({"--select", "class:9", "--brightness", "-510"}).status);
        EXPECT_EQ(inside, cloud.count([](const Row& p) { return p.number == 9 && p.red + p.green + p.blue == 0; }));
    }
}

TEST(EditCommand, RefusesWhatItCannotDo) {
    const EditedCloud cloud(false);
    const std::vector<std::vector<std::string>> wrong = {
        {"--select", "all"},
        {"--delete"},
        {"--select", "all", "--delete", "--classify", "1"},
        {"--select", "all", "--invert", "--paint", "1,2,3"},
        {"--select", "cone:1,2,3", "--count"},
        {"--select", "sphere:1,2,3,-4", "--count"},
        {"--select", "box:5,0,0,1,1,1", "--count"},
        {"--select", "class:256", "--count"},
        {"--select", "all", "--paint", "256,0,0"},
        {"--select", "all", "--count", "--match-colour", "1,2:3"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        const RunResult result = cloud.edit(arguments);
        EXPECT_EQ(2, result.status) << fmt::format("{}", fmt::join(arguments, " ")) << result.out << result.err;
        EXPECT_FALSE(result.err.empty());
    }
    const std::string file = cloud.folder.write("bad.json", R"({"corners": [[1, 2], [3, 4]]})");
    const RunResult polygon = cloud.edit({"--select", "polygon:" + file, "--count"});
    EXPECT_EQ(1, polygon.status);
    EXPECT_NE(std::string::npos, polygon.err.find("bad.json")) << polygon.err;
    EXPECT_EQ(1, cloud.edit({"--select", "all", "--extract", cloud.file, "--force"}).status) << "an input is no output";
    EXPECT_EQ(1, runNimbrel({"restore", cloud.folder.file("none.opc")}).status);
    // Without a journal nothing changes, and nobody is told otherwise.
    EXPECT_EQ(0, cloud.edit({"--select", "class:3", "--delete"}).status);
    (void)cloud.folder.write("grid.opc.journal", "of somebody else");
    const std::string before = bytesOf(cloud.file);
    for (const char* change : {"--delete", "--classify=3", "--paint=1,2,3", "--brightness=9", "restore"}) {
        const RunResult result =
            change[0] == '-' ? cloud.edit({"--select", "all", change}) : runNimbrel({change, cloud.file});
        EXPECT_EQ(1, result.status) << change << result.out;
        EXPECT_NE(std::string::npos, result.err.find("journal")) << change << result.err;
    }
    EXPECT_EQ(before, bytesOf(cloud.file));
    // So it is where points can't be read.
    std::filesystem::resize_file(cloud.file, std::filesystem::file_size(cloud.file) / 2);
    const RunResult result = cloud.edit({"--select", "box:1,1,1,9,9,9", "--count"});
    EXPECT_EQ(1, result.status) << result.out;
    EXPECT_NE(std::string::npos, result.err.find("can't be read")) << result.err;
}

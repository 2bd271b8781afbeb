#include "CloudComparison.h"
#include "ProgramRunner.h"
#include "TestFiles.h"

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <unistd.h>

// Files go in through `nimbrel build` and come back through `nimbrel points`; what comes back must be what the readers
// deliver, apart from the rounding and the losses that the two forms have.

namespace {
struct Form {
    const char* name;
    std::vector<std::string> options;
    std::array<unsigned char, 5> mask; // bits of the attributes that survive
};
} // namespace

static const Form FIXED{"version 17", {}, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
static const Form COMPRESSED{"version 18", {"--compressed"}, {0xF8, 0xF8, 0xF0, 0xF8, 0x0F}};

// What the program should take from a file: the byte rule is spelled out here once more, as its users know it.
static PointBatch readScaled(const std::string& path, const std::string& neighbour = {}) {
    const auto reader = openPoints(path, {});
    const PointSurvey survey = reader->survey({});
    PointSurvey all = survey;
    if (!neighbour.empty()) all.include(openPoints(neighbour, {})->survey({}));
    const double bright = std::max(255.0, all.intensities.quantile(0.99));
    reader->setScale({survey.largestColour <= 255 ? 255.0 : 65535.0, all.largestIntensity <= 255 ? 255.0 : bright});
    return readAll(*reader, 100000);
}

// Points are rounded to the grid, half a step, and then truncated to a grid that begins at the corner of their node,
// another step; both in 32-bit floats relative to the corner of a node, whose extent is at most that of the cloud.
static double toleranceFor(const PointBatch& points) {
    double extent = 0;
    for (size_t axis = 0; axis < 3; ++axis) {
        double low = INFINITY, high = -INFINITY;
        for (size_t i = axis; i < points.positions.size(); i += 3) {
            low = std::min(low, points.positions[i]);
            high = std::max(high, points.positions[i]);
        }
        extent = std::max(extent, high - low);
    }
    return 0.00015 + (extent + 1.0) * 0x1p-23;
}

// Builds `inputs` in one form, reads the cloud back and compares it with `expected`. The points of standard input were
// staged as 32-bit floats relative to the first of them, which moves them by up to `staged`.
static void checkForm(const std::vector<std::string>& inputs, PointBatch expected, const Form& form,
                      const std::vector<std::string>& moreOptions = {}, const RunSetting& setting = {},
                      double staged = 0) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("out.opc");
    const std::string back = folder.file("back.ply");
    std::vector<std::string> arguments{"build", "-o", cloud};
    arguments.insert(arguments.end(), form.options.begin(), form.options.end());
    arguments.insert(arguments.end(), moreOptions.begin(), moreOptions.end());
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    const RunResult built = runNimbrel(arguments, setting);
    ASSERT_EQ(0, built.status) << built.err;
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.path), {})) << "and nothing left behind";
    const RunResult returned = runNimbrel({"points", cloud, "-o", back});
    ASSERT_EQ(0, returned.status) << returned.err;
    PointBatch actual = readAll(*openPoints(back, {}), 100000);

    const size_t sameCell = countIn(built.out, "second in a grid cell");
    EXPECT_EQ(expected.size(), countIn(built.out, "read")) << built.out;
    EXPECT_EQ(actual.size(), countIn(built.out, "written")) << built.out;
    if (&form == &FIXED) {
        EXPECT_EQ(0U, sameCell) << built.out;
    }
    for (size_t i = 0; i < expected.attributes.size(); ++i) expected.attributes[i] &= form.mask[i % 5];
    const CloudDifference difference = compareClouds(expected, actual, toleranceFor(expected) + staged);
    EXPECT_EQ(0U, difference.unexpected) << form.name << " of " << inputs.front();
    EXPECT_EQ(sameCell, difference.missing) << form.name << " of " << inputs.front();
}

static void checkBothForms(const std::vector<std::string>& inputs, const PointBatch& expected,
                           const std::vector<std::string>& moreOptions = {}) {
    checkForm(inputs, expected, FIXED, moreOptions);
    checkForm(inputs, expected, COMPRESSED, moreOptions);
}

TEST(RoundTrip, SampleInEveryFormat) {
    for (const char* name : {"town.las", "town.ply", "town.csv"}) {
        const TemporaryFolder folder;
        const std::string sample = folder.file(name);
        ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "150000"}).status);
        const PointBatch expected = readScaled(sample);
        ASSERT_EQ(150000U, expected.size());
        checkBothForms({sample}, expected);
    }
}

// Whole nodes are passed over for a box, but never one that holds a point of it: a coarse grid moves points out of the
// boxes of their nodes.
TEST(RoundTrip, BoxFindsAllItsPoints) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("a.opc");
    ASSERT_EQ(0, runNimbrel({"sample", folder.file("a.ply"), "--points", "60000"}).status);
    ASSERT_EQ(0, runNimbrel({"build", folder.file("a.ply"), "-o", cloud, "--grid", "10"}).status);
    ASSERT_EQ(0, runNimbrel({"points", cloud, "-o", folder.file("all.ply")}).status);
    ASSERT_EQ(0, runNimbrel({"points", cloud, "-o", folder.file("box.ply"), "--box", "95,95,-100,205,150,100"}).status);
    const PointBatch all = readScaled(folder.file("all.ply"));
    const PointBatch box = readScaled(folder.file("box.ply"));
    PointBatch expected;
    for (size_t i = 0; i < all.size(); ++i) {
        const double* p = &all.positions[i * 3];
        if (p[0] < 95 || p[0] > 205 || p[1] < 95 || p[1] > 150) continue;
        expected.positions.insert(expected.positions.end(), p, p + 3);
        expected.attributes.insert(expected.attributes.end(), &all.attributes[i * 5], &all.attributes[i * 5] + 5);
    }
    EXPECT_GT(expected.size(), 1000U);
    EXPECT_EQ(expected.positions, box.positions);
    EXPECT_EQ(expected.attributes, box.attributes);
}

TEST(RoundTrip, StandardInputIsStagedFromWhereItStands) {
    for (const char* name : {"town.csv", "town.ply"}) {
        const TemporaryFolder folder;
        const std::string sample = folder.file(name);
        ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "50000"}).status);
        const std::string line = "a shell has read this line\n";
        const std::string input = folder.write("input", line + bytesOf(sample));
        RunSetting setting;
        setting.inputDescriptor = open(input.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(static_cast<off_t>(line.size()), lseek(setting.inputDescriptor, line.size(), SEEK_SET));
        checkForm({"-"}, readScaled(sample), FIXED, {}, setting, 400 * 0x1p-24);
        close(setting.inputDescriptor);
    }
}

// The limits make other bytes of the same points.
TEST(RoundTrip, LimitsScaleColourAndIntensity) {
    const TemporaryFolder folder;
    const std::string input =
        folder.write("p.csv", "x,y,z,red,green,blue,intensity\n0,0,0,0,512,1023,50\n1,1,1,1,2,3,100\n");
    PointBatch expected;
    expected.positions = {0, 0, 0, 1, 1, 1};
    expected.attributes = {0, 128, 255, 128, 0, 0, 0, 1, 255, 0};
    checkForm({input}, expected, FIXED, {"--colour-limit", "1023", "--intensity-limit", "100"});
    // Above 255, colours are 16-bit values, whatever the largest is; intensities of up to 255 stay.
    expected.attributes = {0, 2, 4, 50, 0, 0, 0, 0, 100, 0};
    checkForm({input}, expected, FIXED);
}

static PointBatch together(const PointBatch& a, const PointBatch& b) {
    PointBatch both = a;
    both.positions.insert(both.positions.end(), b.positions.begin(), b.positions.end());
    both.attributes.insert(both.attributes.end(), b.attributes.begin(), b.attributes.end());
    return both;
}

// Colours are scaled for each input by itself, intensities alike for all.
TEST(RoundTrip, SeveralInputsMakeOneCloud) {
    const TemporaryFolder folder;
    const std::string bright = folder.write("a.csv", "x,y,z,red,green,blue,intensity\n0,0,0,65535,0,0,1000\n");
    const std::string dark = folder.write("b.csv", "x,y,z,red,green,blue,intensity\n5,5,5,255,7,0,500\n");
    PointBatch expected;
    expected.positions = {0, 0, 0, 5, 5, 5};
    expected.attributes = {255, 0, 0, 255, 0, 255, 7, 0, 128, 0};
    checkForm({bright, dark}, expected, FIXED);
}

// ---- Real clouds

class RealCloud : public testing::TestWithParam<std::string> {};

TEST_P(RealCloud, ComesBack) {
    const std::string path = realCloud(GetParam());
    if (path.empty()) GTEST_SKIP() << GetParam() << " is not there";
    checkBothForms({path}, readScaled(path));
}

INSTANTIATE_TEST_SUITE_P(Files, RealCloud,
                         testing::Values("autzen_trim.las", "autzen_trim.laz", "autzen_trim_7.las", "lion.copc.laz",
                                         "lion.las", "rock_face_rgb.laz", "ahn3_1.laz", "ahn3_2.laz", "ahn3_2.las",
                                         "lone-star.laz", "forest_bc_1.laz", "forest_bc_2.laz", "pine_plot.laz",
                                         "mixed_conifer.laz", "mixed_conifer.las", "roofs_rgb.las", "office_rgb.ply",
                                         "milk_rgb.xyz", "bunny.ply"),
                         [](const auto& file) {
                             std::string name = file.param;
                             std::replace_if(
                                 name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
                             return name;
                         });

TEST(RealClouds, NeighbouringTilesMakeOneCloud) {
    const std::string first = realCloud("ahn3_1.laz");
    const std::string second = realCloud("ahn3_2.laz");
    if (first.empty() || second.empty()) GTEST_SKIP() << "the clouds are not there";
    checkForm({first, second}, together(readScaled(first, second), readScaled(second, first)), FIXED);
}

// Damaged and unusual files build or are refused with a reason, and leave nothing but a cloud that opens.
TEST(RealClouds, OddFilesNeverCrash) {
    const std::string odd = realCloud("odd");
    if (odd.empty()) GTEST_SKIP() << "the clouds are not there";
    for (const auto& entry : std::filesystem::directory_iterator(odd)) {
        for (const Form& form : {FIXED, COMPRESSED}) {
            const TemporaryFolder folder;
            const std::string cloud = folder.file("out.opc");
            std::vector<std::string> arguments{"build", entry.path(), "-o", cloud};
            arguments.insert(arguments.end(), form.options.begin(), form.options.end());
            const RunResult built = runNimbrel(arguments);
            if (built.status == 0) {
                EXPECT_EQ(0, runNimbrel({"points", cloud, "-o", folder.file("back.las")}).status) << entry.path();
                continue;
            }
            EXPECT_EQ(1, built.status) << entry.path();
            EXPECT_TRUE(built.err.starts_with("nimbrel: " + entry.path().string() + ": ")) << built.err;
            EXPECT_TRUE(std::filesystem::is_empty(folder.path)) << entry.path();
        }
    }
}

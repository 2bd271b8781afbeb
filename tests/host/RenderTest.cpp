#include "ProgramRunner.h"
#include "TestFiles.h"
#include "writers/PngWriter.h"

#include <png.h>

#include <array>

// Pictures as the program draws them without a window, looked at pixel by pixel.

using Pixel = std::array<int, 3>;

static constexpr Pixel BACKGROUND{0x20, 0x40, 0x60};

static Picture readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Picture picture;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return picture;
    image.format = PNG_FORMAT_RGB;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr);
    return picture;
}

static Pixel pixelAt(const Picture& picture, int x, int y) {
    const auto at = (static_cast<size_t>(y) * static_cast<size_t>(picture.width) + static_cast<size_t>(x)) * 3;
    if (at + 3 > picture.rgb.size()) return {-1, -1, -1};
    return {picture.rgb[at], picture.rgb[at + 1], picture.rgb[at + 2]};
}

// Off by one in a channel is rounding.
static void expectPixel(const Picture& picture, int x, int y, const Pixel& expected, const std::string& what) {
    const Pixel actual = pixelAt(picture, x, y);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(expected[i], actual[i], 1) << what << ": channel " << i << " of " << x << ", " << y;
    }
}

static double shareOtherThan(const Picture& picture, const Pixel& colour) {
    int count = 0;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) count += pixelAt(picture, x, y) != colour ? 1 : 0;
    }
    return static_cast<double>(count) / std::max(picture.width * picture.height, 1);
}

namespace {
// Four points in a plane that faces the camera, far from the origin as in a national grid, and one 10 behind them.
class Render : public testing::Test {
protected:
    void SetUp() override {
        const std::string input = folder.write("points.xyz", "x y z r g b intensity class\n"
                                                             "500000 5400000 100 255 0 0 170 2\n"
                                                             "500005 5400000 100 0 255 0 0 6\n"
                                                             "500000 5400000 105 0 0 255 255 9\n"
                                                             "499995 5400000 95 255 255 0 85 5\n"
                                                             "500015 5400010 95 0 255 255 85 5\n");
        ASSERT_EQ(0, runNimbrel({"build", input, "-o", cloud, "-q"}).status);
    }

    // Drawn into 200 by 200 pixels at a right angle from 10 in front, so that a unit of the plane is 10 pixels.
    Picture draw(const std::vector<std::string>& more, const char* pointSize = "5") const {
        std::vector<std::string> arguments{"render",       cloud,
                                           "-fo",          picture,
                                           "--size",       "200x200",
                                           "--fov",        "90",
                                           "--eye",        "500000,5399990,100",
                                           "--target",     "500000,5400000,100",
                                           "--point-size", pointSize,
                                           "--background", "#204060"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const RunResult result = runNimbrel(arguments);
        EXPECT_EQ(0, result.status) << result.err;
        return readPng(picture);
    }

    TemporaryFolder folder;
    std::string cloud = folder.file("points.opc");
    const std::string picture = folder.file("picture.png");
};
} // namespace

TEST_F(Render, PutsKnownPointsAtTheirPixels) {
    const Picture drawn = draw({"--colour", "rgb"});
    ASSERT_EQ(200, drawn.width);
    ASSERT_EQ(200, drawn.height);
    expectPixel(drawn, 100, 100, {255, 0, 0}, "in the middle");
    expectPixel(drawn, 150, 100, {0, 255, 0}, "5 to the right");
    expectPixel(drawn, 100, 50, {0, 0, 255}, "5 up");
    expectPixel(drawn, 50, 150, {255, 255, 0}, "5 to the left and down");
    expectPixel(drawn, 175, 125, {0, 255, 255}, "behind");
    EXPECT_NEAR(5 * 25.0 / 40000, shareOtherThan(drawn, BACKGROUND), 5 * 11.0 / 40000) << "and nothing else";
}

TEST_F(Render, ColoursByWhatIsAsked) {
    const Picture intensity = draw({"--colour", "intensity"});
    expectPixel(intensity, 100, 100, {179, 179, 179}, "intensity");
    expectPixel(intensity, 150, 100, {26, 26, 26}, "the weakest is not quite black");
    const Picture classes = draw({"--colour", "class"});
    expectPixel(classes, 100, 100, {168, 124, 80}, "ground");
    expectPixel(classes, 100, 50, {64, 132, 224}, "water");
    const Picture heights = draw({"--colour", "height"});
    expectPixel(heights, 100, 50, {252, 232, 77}, "the highest");
    expectPixel(heights, 50, 150, {51, 56, 135}, "the lowest");
    EXPECT_EQ(pixelAt(heights, 50, 150), pixelAt(heights, 175, 125)) << "as high";
    const Picture distances = draw({"--colour", "distance"});
    expectPixel(distances, 50, 150, {255, 237, 158}, "the nearest");
    expectPixel(distances, 175, 125, {71, 41, 115}, "the farthest");
}

TEST_F(Render, SmoothPointsAreRound) {
    std::vector<std::string> options{"--colour", "rgb", "--clip", "499999,5399999,99,500001,5400001,101"}; // one point
    for (const bool isSmooth : {false, true}) {
        if (isSmooth) options.emplace_back("--smooth");
        const Picture drawn = draw(options, "40");
        int reach = 0;
        while (reach < 100 && pixelAt(drawn, 100 + reach, 100) != BACKGROUND) ++reach;
        ASSERT_GE(reach, 19);
        const int corner = reach * 8 / 10; // along both axes: within the square, outside the circle
        EXPECT_EQ(isSmooth, pixelAt(drawn, 100 + corner, 100 + corner) == BACKGROUND);
    }
}

TEST_F(Render, LeavesOutWhatIsClipped) {
    const Picture drawn = draw({"--colour", "rgb", "--clip", "499998,5399999,99,500006,5400001,106"});
    expectPixel(drawn, 100, 100, {255, 0, 0}, "inside");
    expectPixel(drawn, 150, 100, {0, 255, 0}, "inside");
    expectPixel(drawn, 50, 150, BACKGROUND, "outside");
    expectPixel(drawn, 175, 125, BACKGROUND, "outside");
}

// Cubes of 1, whose nearer faces stand 9 in front of the camera: 11.1 pixels. A point on a cube's face belongs below.
TEST_F(Render, DrawsAVoxelModel) {
    const std::string input = folder.file("points.xyz");
    const std::string coloured = folder.file("coloured.ovm");
    const std::vector<std::string> build{
        "build", input, "-o", coloured, "-q", "--bounds", "499992,5399992,92,500008,5400008,108", "--voxel", "1"};
    ASSERT_EQ(0, runNimbrel(build).status);
    cloud = coloured;
    const Picture drawn = draw({});
    expectPixel(drawn, 95, 105, {255, 0, 0}, "in the middle");
    expectPixel(drawn, 150, 105, {0, 255, 0}, "5 to the right");
    expectPixel(drawn, 95, 50, {0, 0, 240}, "5 up, without the low bits of blue");
    expectPixel(drawn, 40, 160, {255, 255, 0}, "5 to the left and down");
    expectPixel(drawn, 105, 105, BACKGROUND, "beside the middle");
    expectPixel(draw({"--colour", "intensity"}), 95, 105, {179, 179, 179},
                "intensity, of four bits, spread like that of points");
    expectPixel(draw({"--lod", "1"}), 95, 105, BACKGROUND, "too small for so little detail");
    const RunResult info = runNimbrel({"info", coloured});
    EXPECT_NE(std::string::npos, info.out.find("voxel model")) << info.out;
    EXPECT_NE(std::string::npos, info.out.find("colours    4, one a cell")) << info.out;
    EXPECT_NE(std::string::npos, runNimbrel({"info", "--json", coloured}).out.find("\"coloured\": 4"));

    const std::string plain = folder.file("plain.ovm");
    ASSERT_EQ(0, runNimbrel({"build", input, "-o", plain, "--voxel", "1", "--no-colour"}).status);
    EXPECT_NE(std::string::npos, runNimbrel({"info", plain}).out.find("colours    none"));
    const std::tuple<int, const char*, std::vector<std::string>> refused[] = {
        {1, "no points to give", {"points", coloured, "-o", "-"}},
        {1, "no points to export", {"export", coloured, "-o", "x.stl"}},
        {1, "not listed", {"info", coloured, "--tree"}},
        {1, "voxel size", {"build", input, "-o", "x.ovm", "--voxel", "0.0001", "--bounds", "0,0,0,1e9,1e9,1e9"}},
        {2, "--voxel", {"build", input, "-o", "x.ovm", "--voxel", "0"}},
        {2, "--no-colour", {"build", input, "-o", "x.ovm", "--no-colour"}},
        {2, "--compressed", {"build", input, "-o", "x.ovm", "--voxel", "1", "-c"}},
    };
    for (const auto& [status, part, arguments] : refused) {
        const RunResult result = runNimbrel(arguments);
        EXPECT_EQ(status, result.status) << part;
        EXPECT_NE(std::string::npos, result.err.find(part)) << result.err;
        EXPECT_FALSE(std::filesystem::exists("x.ovm.part"));
    }
}

TEST_F(Render, FramesTheCloudByItself) {
    for (const char* view : {"top", "front", "side", "iso"}) {
        const RunResult result = runNimbrel(
            {"render", cloud, "-fo", picture, "--size", "120x80", "--view", view, "--background", "#204060"});
        ASSERT_EQ(0, result.status) << result.err;
        EXPECT_NE(std::string::npos, result.out.find("120x80, 5 points")) << result.out;
        const Picture drawn = readPng(picture);
        EXPECT_GT(shareOtherThan(drawn, BACKGROUND), 0.001) << view;
        EXPECT_EQ(BACKGROUND, pixelAt(drawn, 0, 0)) << view << ": a margin is left";
    }
}

TEST_F(Render, DrawsTheSampleSceneDensely) {
    const std::string town = folder.file("town.las");
    ASSERT_EQ(0, runNimbrel({"sample", town, "--points", "200000", "-q"}).status);
    ASSERT_EQ(0, runNimbrel({"build", town, "-o", folder.file("town.opc"), "-q"}).status);
    const std::vector<std::string> start{
        "render", folder.file("town.opc"), "-fo",    picture, "--size", "240x180", "--view",
        "top",    "--background",          "#204060"};
    const std::vector<std::string> variants[] = {{}, {"--light"}, {"--smooth"}, {"--opacity", "50"}};
    for (const auto& variant : variants) {
        auto arguments = start;
        arguments.insert(arguments.end(), variant.begin(), variant.end());
        const RunResult result = runNimbrel(arguments);
        ASSERT_EQ(0, result.status) << result.err;
        // The scene is 4 by 3 like the picture, with a margin of 4 in 100 and the perspective's rim around it.
        EXPECT_GT(shareOtherThan(readPng(picture), BACKGROUND), 0.7) << (variant.empty() ? "plain" : variant.front());
    }
}

TEST_F(Render, ReplacesAPictureOfEitherKindWhenForcedButNoInput) {
    const std::string old = folder.write("old.png", "old");
    EXPECT_EQ(1, runNimbrel({"render", cloud, "-o", old, "--size", "16x16"}).status);
    EXPECT_EQ("old", bytesOf(old));
    EXPECT_EQ(0, runNimbrel({"render", cloud, "-o", old, "--size", "16x16", "--force"}).status);
    EXPECT_EQ(16, readPng(old).width);
    const std::string text = folder.write("old.ppm", "old"); // the engine's own capture
    EXPECT_EQ(0, runNimbrel({"render", cloud, "-fo", text, "--size", "3x2"}).status);
    EXPECT_TRUE(bytesOf(text).starts_with("P3\n3 2\n255\n"));
    EXPECT_FALSE(std::filesystem::exists(text + ".part"));
    const std::string disguised = folder.file("cloud.png");
    std::filesystem::copy_file(cloud, disguised);
    const std::string before = bytesOf(disguised);
    EXPECT_EQ(1, runNimbrel({"render", disguised, "-fo", disguised}).status);
    EXPECT_EQ(before, bytesOf(disguised));
}

TEST_F(Render, SaysWhatFails) {
    const RunResult tooLarge = runNimbrel({"render", cloud, "-o", picture, "--size", "32768x32768"});
    EXPECT_EQ(1, tooLarge.status);
    EXPECT_NE(std::string::npos, tooLarge.err.find("32768x32768")) << tooLarge.err;
    const RunResult samePoint = runNimbrel({"render", cloud, "-o", picture, "--eye", "1,2,3", "--target", "1,2,3"});
    EXPECT_EQ(2, samePoint.status);
    EXPECT_NE(std::string::npos, samePoint.err.find("same point")) << samePoint.err;
    RunSetting noDriver; // an EGL without any behind it
    noDriver.environment = {"__EGL_VENDOR_LIBRARY_FILENAMES=/dev/null"};
    const RunResult result = runNimbrel({"render", cloud, "-o", picture}, noDriver);
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.err.find("without a window")) << result.err;
    EXPECT_FALSE(std::filesystem::exists(picture));
}

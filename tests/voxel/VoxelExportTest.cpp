#include "engine/EngineTest.h"
#include "format/OPCNodeParser.h"
#include "format/PointStream.h"
#include "ground/Pools.h"
#include "stream/OPC.h"
#include "voxel/ModelGrid.h"
#include "voxel/VoxelMap.h"

#include <png.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <thread>

// Models, byte by byte, beside ones that are put together here from the description of the formats alone, with streams.

namespace {

using Cells = std::map<int64_t, OPCInterface::Voxel>;

// Colours that differ from place to place, so that means do not all end up grey.
uint32_t colourAt(uint32_t x, uint32_t y, uint32_t z) {
    return (x * 7 + y * 3 + z + 1) * 2654435761U;
}

Bytes fixedNode(std::minstd_rand& random, int points) {
    Bytes stored;
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random()) % limit; };
    for (int i = 0; i < points; ++i) {
        const uint32_t x = below(4) * 9000 + below(5000); // clumps 0.9 apart and 0.5 wide, so that many cells are solid
        const uint32_t y = below(5000), z = below(9000);
        Bytes point = fixedPoint(x, y, z, 0);
        for (size_t k = 0; k < 4; ++k) {
            point[9 + k] = static_cast<unsigned char>(colourAt(x / 2000, y / 2000, z / 2000) >> (8 * k));
        }
        stored.insert(stored.end(), point.begin(), point.end());
    }
    return stored;
}

Bytes streamNode(std::minstd_rand& random, int points) {
    std::set<uint64_t> codes;
    while (codes.size() < static_cast<size_t>(points) * 2) {
        codes.insert(PointStream::morton(random() % 4 * 9 + random() % 5, random() % 20, random() % 30));
    }
    Bytes stored;
    uint64_t before = 0;
    bool isMarked = false;
    for (const uint64_t code : codes) {
        unsigned char point[PointStream::LARGEST_POINT_BYTES];
        unsigned char* end = PointStream::putDelta(point, code - before);
        before = code;
        PointStream::store(end, (colourAt(0, 0, static_cast<uint32_t>(code >> 9)) >> 8 & 0xFFFFFEU) |
                                    static_cast<uint32_t>(isMarked));
        isMarked = !isMarked;
        stored.insert(stored.end(), point, end + PointStream::PACKED_BYTES);
    }
    return stored;
}

// A root and two children with `points` each, at random in a few clumps; the second child can't be read. Version 18 has
// marked points among the others.
PointFileMaker voxelCloud(int version, int points, const std::array<double, 6>& box, uint32_t seed) {
    std::minstd_rand random(seed);
    PointFileMaker maker(version);
    maker.box = box;
    maker.pointCount = 3 * points;
    for (const uint8_t mask : {uint8_t{7}, uint8_t{4}, uint8_t{4}}) {
        maker.add({.mask = mask,
                   .pointCount = points,
                   .stored = version == 18 ? streamNode(random, points) : fixedNode(random, points),
                   .filter = 1000});
    }
    maker.nodes[2].location = int64_t{1} << 40;
    return maker;
}

// The cells of a file in pre-order of its nodes; of two cells with one key the first one's indices.
Cells expectedCells(const PointFileMaker& file, const ModelGrid& grid) {
    Cells cells;
    for (size_t n = 0; n < 2; ++n) { // their corners are that of the box
        Bytes stored = file.nodes[n].stored;
        OPCNodeParser parser(stored, file.nodes[n].filter / 10000.0, 14, file.version);
        for (int i = 0; i < file.nodes[n].pointCount; ++i) {
            const OPCPoint point = parser.getPoint(i, true);
            const double place[3] = {point.x, point.y, point.z};
            int64_t at[3];
            for (size_t axis = 0; axis < 3; ++axis) {
                const double cell =
                    std::trunc(((place[axis] + file.box[axis]) * grid.scale - grid.minimum[axis]) / grid.voxelSize);
                at[axis] = std::fabs(cell) < 0x1p63 ? static_cast<int64_t>(cell) : INT64_MIN;
            }
            const auto u = [](int64_t value) { return static_cast<uint64_t>(value); };
            const auto key =
                static_cast<int64_t>((u(at[2]) * u(grid.count[1]) + u(at[1])) * u(grid.count[0]) + u(at[0]));
            OPCInterface::Voxel& voxel =
                cells.try_emplace(key, OPCInterface::Voxel{at[0], at[1], at[2], 0, 0, 0, 0, 0}).first->second;
            voxel.sumRed += point.colour[0];
            voxel.sumGreen += point.colour[1];
            voxel.sumBlue += point.colour[2];
            voxel.sumIntensity += point.colour[3];
            ++voxel.pointCount;
        }
    }
    return cells;
}

constexpr int CORNERS[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
constexpr int TRIANGLES[12][3] = {{0, 2, 1}, {0, 3, 2}, {4, 5, 6}, {4, 6, 7}, {0, 7, 3}, {0, 4, 7},
                                  {2, 5, 1}, {2, 6, 5}, {1, 4, 0}, {1, 5, 4}, {7, 2, 3}, {7, 6, 2}};

std::vector<OPCInterface::Voxel> solidOf(const Cells& cells) {
    std::vector<OPCInterface::Voxel> solid;
    for (const auto& [key, voxel] : cells) {
        if (voxel.pointCount > 10) solid.push_back(voxel);
    }
    return solid;
}

glm::dvec3 cornerOf(const OPCInterface::Voxel& voxel, const ModelGrid& grid, int corner) {
    const int64_t cell[3] = {voxel.cellX, voxel.cellY, voxel.cellZ};
    glm::dvec3 place;
    for (int i = 0; i < 3; ++i) {
        const double s = grid.voxelSize;
        place[i] = static_cast<double>(cell[i]) * s + grid.minimum[static_cast<size_t>(i)] - 0.5 * s;
        if (CORNERS[corner][i]) place[i] += s;
    }
    return place;
}

std::string expectedObj(const Cells& cells, const ModelGrid& grid, const std::string& stem) {
    std::ostringstream out;
    const std::vector<OPCInterface::Voxel> solid = solidOf(cells);
    out << "mtllib " << stem << ".mtl\n\n";
    for (const auto& voxel : solid) {
        for (int k = 0; k < 8; ++k) {
            const glm::dvec3 p = cornerOf(voxel, grid, k);
            out << "v " << p.x << " " << p.z << " " << -p.y << "\n";
        }
    }
    const double step = 1.0 / std::ceil(std::sqrt(static_cast<double>(cells.size())));
    double u = 0.5 * step, v = 1 - 0.5 * step;
    for (size_t i = 0; i < solid.size(); ++i) {
        out << "vt " << u << " " << v << "\n";
        if ((u += step) > 1.0) v -= step, u = 0.5 * step;
    }
    out << "g defaultobject\nusemtl Textured\n";
    for (size_t i = 0; i < solid.size(); ++i) {
        for (const auto& triangle : TRIANGLES) {
            out << "f";
            for (const int corner : triangle) out << " " << i * 8 + 1 + static_cast<size_t>(corner) << "/" << i + 1;
            out << "\n";
        }
    }
    return out.str();
}

std::string expectedStl(const Cells& cells, const ModelGrid& grid) {
    std::ostringstream out;
    out << "solid \n";
    for (const auto& voxel : solidOf(cells)) {
        for (const auto& t : TRIANGLES) {
            const glm::dvec3 p[3] = {cornerOf(voxel, grid, t[0]), cornerOf(voxel, grid, t[1]),
                                     cornerOf(voxel, grid, t[2])};
            const glm::dvec3 a = p[1] - p[0], b = p[2] - p[1];
            const glm::dvec3 n(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
            const double length = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
            out << "\tfacet normal " << n.x / length << " " << n.y / length << " " << n.z / length
                << "\n\t\touter loop\n";
            for (const glm::dvec3& q : p) out << "\t\t\t vertex " << q.x << " " << q.y << " " << q.z << "\n";
            out << "\t\tendloop\n\tendfacet\n";
        }
    }
    out << "endsolid \n";
    return out.str();
}

// As the table of blocks has it: id, data, colour.
std::pair<int, int> expectedBlock(const OPCInterface::Voxel& voxel, bool grey) {
    static constexpr int BLOCKS[10][5] = {{1, 0, 125, 125, 125},  {24, 0, 216, 203, 155}, {159, 0, 249, 255, 255},
                                          {159, 1, 249, 128, 29}, {159, 4, 255, 216, 61}, {159, 11, 60, 68, 169},
                                          {159, 12, 130, 84, 50}, {159, 13, 93, 124, 21}, {159, 14, 176, 46, 38},
                                          {159, 15, 29, 28, 33}};
    const auto convert = [](double r, double g, double b) {
        const double v = std::max({r, g, b}), delta = v - std::min({r, g, b});
        if (delta < 0.00001) return glm::dvec3(0, 0, v);
        const double h = r >= v ? (g - b) / delta : g >= v ? (b - r) / delta + 2 : (r - g) / delta + 4;
        return glm::dvec3(h < 0 ? h * 60 + 360 : h * 60, delta / v, v);
    };
    const auto n = static_cast<float>(voxel.pointCount);
    const auto mean = [&](int32_t sum) { return static_cast<float>(grey ? voxel.sumIntensity : sum) / n; };
    const glm::dvec3 own = convert(mean(voxel.sumRed), mean(voxel.sumGreen), mean(voxel.sumBlue));
    double best = 1e300;
    std::pair<int, int> choice;
    for (const auto& block : BLOCKS) {
        const glm::dvec3 other = convert(block[2], block[3], block[4]);
        const double dh = std::fabs(own.x - other.x);
        const auto h = static_cast<float>(std::min(360 - dh, dh) / 180), s = static_cast<float>(own.y - other.y);
        const auto v = static_cast<float>(std::fabs(own.z - other.z) / 255);
        const float distance = std::sqrt(h * h + s * s + v * v);
        if (distance < best) best = distance, choice = {block[0], block[1]};
    }
    return choice;
}

std::string expectedSchematic(const Cells& cells, const ModelGrid& grid, bool grey) {
    const int64_t w = grid.count[0], l = grid.count[1], h = grid.count[2];
    const auto big = [](int64_t value, int bytes) {
        std::string text;
        for (int shift = 8 * bytes - 8; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
        return text;
    };
    const auto text = [&](const std::string& s) { return big(static_cast<int64_t>(s.size()), 2) + s; };
    std::string ids, datas;
    for (int64_t z = 0; z < h; ++z) {
        for (int64_t y = l - 1; y >= 0; --y) {
            for (int64_t x = 0; x < w; ++x) {
                const auto cell = cells.find(x + w * (z * l + y));
                const bool isSolid = cell != cells.end() && cell->second.pointCount >= 11;
                const auto [id, data] = isSolid ? expectedBlock(cell->second, grey) : std::pair(0, 0);
                ids += static_cast<char>(id);
                datas += static_cast<char>(data);
            }
        }
    }
    const std::string n = big(w * l * h, 4);
    const auto tag = [&text](char kind, const char* name) { return std::string(1, kind) + text(name); };
    std::string out = tag(10, "Schematic") + tag(2, "Width") + big(w, 2) + tag(2, "Height") + big(h, 2);
    out += tag(2, "Length") + big(l, 2) + tag(8, "Materials") + text("Alpha");
    out += tag(7, "Blocks") + n + ids + tag(7, "Data") + n + datas;
    return out + '\0';
}

std::string textOf(const TempDir& dir, const std::string& name) {
    const Bytes bytes = dir.read(name);
    return {bytes.begin(), bytes.end()};
}

// Not EXPECT_EQ, which would print the files.
void expectSame(const std::string& expected, const std::string& actual, const std::string& what) {
    const auto [a, b] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    const auto at = a - expected.begin();
    EXPECT_TRUE(expected == actual) << what << " differs from byte " << at << " on: ..."
                                    << expected.substr(static_cast<size_t>(std::max<ptrdiff_t>(at - 30, 0)), 60)
                                    << " - " << actual.substr(static_cast<size_t>(std::max<ptrdiff_t>(at - 30, 0)), 60);
}

void expectTexture(const std::string& path, const Cells& cells) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(0, png_image_begin_read_from_file(&image, path.c_str())) << image.message;
    EXPECT_EQ(PNG_FORMAT_RGB, image.format);
    const auto side = static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(cells.size()))));
    ASSERT_TRUE(image.width == side && image.height == side) << image.width;
    std::vector<unsigned char> texels(PNG_IMAGE_SIZE(image));
    ASSERT_NE(0, png_image_finish_read(&image, nullptr, texels.data(), 0, nullptr));
    std::vector<unsigned char> expected;
    for (const auto& v : solidOf(cells)) {
        for (const int sum : {v.sumRed, v.sumGreen, v.sumBlue}) {
            expected.push_back(static_cast<unsigned char>(sum / v.pointCount));
        }
    }
    expected.resize(texels.size());
    EXPECT_EQ(expected, texels);
}

class VoxelExport : public EngineTest {
protected:
    // Everything that a host sees of an export that is over.
    void exportTo(int id, int format, const std::string& name, bool grey, double size, double scale) {
        exportVoxelModel(id, format, dir.widePath(name).c_str(), grey ? 0x101 : 0x100, size, scale);
        EXPECT_EQ(2.0F, getVoxelProgress());
        EXPECT_TRUE(voxelStageLimit == 1 && voxelStageCount == 1 && voxelProgressLimit == 1 && voxelProgressCount == 1);
    }
};

TEST_F(VoxelExport, WritesModelsByteByByte) {
    const std::tuple<int, std::array<double, 6>, double, double> cases[] = {
        {17, {0, 0, 0, 8, 4, 2}, 0.2, 1},
        {17, {-500000.7, 5400000.25, 0, -499996, 5400001, 1}, 0.25, 2}, // ties among six digits
        {17, {-1e16, 0, 1e16, -1e16 + 8, 8, 1e16 + 8}, 0.5, 1},         // x + size is x: normals are no numbers
        {18, {10, 20, 30, 12.5, 21.5, 32.5}, 0.25, 1},                  // points on the far faces and behind them
        {18, {10, 20, 30, 12.5, 21.5, 32.5}, 0.5, -1},
        {18, {10, 20, 30, 12.5, 21.5, 32.5}, 50, 0.001},
        {17, {1e9, -1e9, 0, 1e9 + 1, 1e9, 1}, 0.1, 1}, // no schematic of a small size
        {17, {-1000.5, 7, 3, -998, 8.5, 5.5}, NAN, 1}, // sizes that are taken to a limit
        {18, {-1000.5, 7, 3, -998, 8.5, 5.5}, -3, 1},
        {17, {-1000.5, 7, 3, -998, 8.5, 5.5}, 5000, 1},
        {18, {-1000.5, 7, 3, -998, 8.5, 5.5}, 0.1, 0}, // and scales that leave no grid
        {17, {-1000.5, 7, 3, -998, 8.5, 5.5}, 0.1, 1e300},
        {18, {-1000.5, 7, 3, -998, 8.5, 5.5}, 0.1, INFINITY},
        {17, {-1000.5, 7, 3, -998, 8.5, 5.5}, 1, NAN}};
    std::set<std::pair<int, int>> kinds;
    for (const auto& [version, box, size, scale] : cases) {
        const PointFileMaker maker = voxelCloud(version, 5000, box, 1);
        const int id = loadPointCloudFile(dir.writeWide("cloud", maker.make()).c_str());
        ASSERT_GE(id, 0);
        setScale(id, 3.0); // makes no difference
        const ModelGrid grid(box.data(), size, scale);
        EXPECT_TRUE(grid.voxelSize >= 0.01 && grid.voxelSize <= 1000) << size;
        VoxelMap map;
        std::atomic<int32_t> progress{5};
        findCloud(id)->getOPC().getRootNode()->getVoxelData(&map, grid, &progress);
        EXPECT_EQ(8, progress) << "a node that can't be read counts";
        const Cells cells = expectedCells(maker, grid);
        const size_t cubes = solidOf(cells).size();
        for (const auto& voxel : solidOf(cells)) kinds.insert(expectedBlock(voxel, false));
        exportTo(id, 0, "my scan.part 2.obj", false, size, scale);
        EXPECT_STREQ("", nimbrelLastError());
        expectSame(expectedObj(cells, grid, "my_scan"), textOf(dir, "my scan.part 2.obj"), "OBJ");
        EXPECT_EQ("newmtl Textured\nKd 1.000 1.000 1.000\nKa 1.000 1.000 1.000\nKs 0 0 0\nd 1.0\nillum 1\n"
                  "map_Kd my_scan.png\nmap_Ka my_scan.png\n",
                  textOf(dir, "my_scan.mtl"));
        expectTexture(dir.path("my_scan.png"), cells);
        for (const int format : {2, -1, 77}) {
            exportTo(id, format, "model.stl", false, size, scale);
            expectSame(expectedStl(cells, grid), textOf(dir, "model.stl"), "STL");
        }
        const auto isSmall = [](int64_t count) { return count >= -10000 && count <= 10000; };
        for (const bool grey : {false, true}) {
            if (!std::all_of(grid.count.begin(), grid.count.end(), isSmall)) continue; // this would be no small file
            exportTo(id, 1, "model.schematic", grey, size, scale);
            expectSame(expectedSchematic(cells, grid, grey), textOf(dir, "model.schematic"), "schematic");
        }
        NimbrelVoxelReport report{};
        nimbrelGetVoxelReport(&report);
        EXPECT_EQ(std::tuple(2, 1, 10000, static_cast<int64_t>(cells.size()), static_cast<int64_t>(cubes)),
                  std::tuple(report.state, report.unreadNodes, report.points, report.cells, report.cubes));
        EXPECT_EQ(grid.count, (std::array<int64_t, 3>{report.sizeX, report.sizeY, report.sizeZ}));
        closePointCloud(id);
    }
    EXPECT_GT(kinds.size(), 7U); // of ten
}

// The widths of this grid wrap in 16 bits and its product in 32. The file is as large as the grid is, and mostly hole.
TEST_F(VoxelExport, WritesSizesThatAFormatCannotCarry) {
    PointFileMaker maker = voxelCloud(17, 5000, {0, 0, 0, 700, 700, 1}, 1); // 70000 x 70000 x 1 cells
    const int id = loadPointCloudFile(dir.writeWide("cloud", maker.make()).c_str());
    exportTo(id, 1, "model.schematic", false, 0.0, 1);
    EXPECT_STREQ("", nimbrelLastError());
    constexpr int64_t CELLS = int64_t{70000} * 70000 * 100;
    EXPECT_EQ(2 * CELLS + 88, static_cast<int64_t>(std::filesystem::file_size(dir.path("model.schematic"))));
    std::ifstream in(dir.path("model.schematic"), std::ios::binary);
    std::string head(73, '\0');
    in.read(head.data(), 73);
    EXPECT_EQ(std::string("\x11\x70", 2), head.substr(20, 2));
    // A grid beyond what any file holds ends with a reason instead of never.
    maker.box = {0, 0, 0, 1e15, 1e15, 1};
    const int huge = loadPointCloudFile(dir.writeWide("huge", maker.make()).c_str());
    for (const double scale : {1.0, 1e10, 1e300}) exportTo(huge, 1, "model.schematic", false, 0.0, scale);
    EXPECT_LT(std::filesystem::file_size(dir.path("model.schematic")),
              200U); // sides that 64 bits don't hold are negative
    exportTo(huge, 1, "model.schematic", false, 0.0, 1);
    EXPECT_STRNE("", nimbrelLastError());
}

TEST_F(VoxelExport, EndsQuietlyWhereNothingCanBeWritten) {
    const int id =
        loadPointCloudFile(dir.writeWide("cloud", voxelCloud(17, 5000, {0, 0, 0, 8, 4, 2}, 1).make()).c_str());
    exportTo(id, 0, "missing/model.obj", false, 0.2, 1);
    EXPECT_STREQ("the file can't be made: No such file or directory", nimbrelLastError());
    std::filesystem::create_directory(dir.path("model.mtl"));
    std::filesystem::create_directory(dir.path("model.png"));
    exportTo(id, 0, "model.obj", false, 0.2, 1);
    EXPECT_TRUE(std::string(nimbrelLastError()).starts_with("the texture can't be written: ")) << nimbrelLastError();
    EXPECT_TRUE(textOf(dir, "model.obj").ends_with("\n"));
    for (const int format : {1, 2}) {
        exportVoxelModel(id, format, L"/dev/full", 0, 0.2, 1);
        EXPECT_STREQ("the file can't be written: No space left on device", nimbrelLastError());
    }
    exportVoxelModel(id, 1, nullptr, 0, 0.2, 1);
    // A cloud that is not there is an empty one, and leaves no picture of no size.
    static constexpr double NOWHERE[6] = {};
    exportTo(99, 0, "none.obj", false, 0.2, 1);
    EXPECT_EQ("mtllib none.mtl\n\ng defaultobject\nusemtl Textured\n", textOf(dir, "none.obj"));
    EXPECT_TRUE(std::filesystem::exists(dir.path("none.mtl")) && !std::filesystem::exists(dir.path("none.png")));
    exportTo(99, 1, "none.schematic", false, 0.2, 1);
    expectSame(expectedSchematic({}, ModelGrid(NOWHERE, 1, 1), false), textOf(dir, "none.schematic"), "schematic");
    EXPECT_STREQ("no cloud has this id", nimbrelLastError());
}

// As many points in one cell as no test has: sums wrap around, and nothing is undefined. Of the cells with one key,
// that of the first node stays, in whatever order they come.
TEST(VoxelMap, WrapsSumsAndKeepsTheFirstNodesCell) {
    static constexpr double BOX[6] = {0, 0, 0, 10, 10, 10};
    VoxelMap map;
    map.begin(ModelGrid(BOX, 1, 1));
    const ModelCell cells[] = {{7, {1, 2, 3, INT32_MAX, 1, -1, INT32_MAX, INT32_MAX}, 5},
                               {7, {4, 5, 6, INT32_MAX, 2, 1, 1, 1}, 3},
                               {7, {7, 8, 9, 0, 3, 5, 0, 0}, 4}};
    for (const ModelCell& cell : cells) map.add({&cell, 1});
    map.sort(processingPool());
    ASSERT_EQ(1U, map.cells().size());
    const OPCInterface::Voxel& v = map.cells().front().voxel;
    EXPECT_EQ(std::tuple(4, 5, 6, -2, 6, 5, INT32_MIN, INT32_MIN),
              std::tuple(v.cellX, v.cellY, v.cellZ, v.sumRed, v.sumGreen, v.sumBlue, v.sumIntensity, v.pointCount));
}

int32_t readNow(const int32_t& counter) {
    return __atomic_load_n(&counter, __ATOMIC_SEQ_CST);
}

// A pipe that nobody reads holds the export up at two places: when it opens the file, and when the pipe is full. Of a
// schematic nothing is counted that a reader could not have; the facets of STL are all counted before the first is
// written, and the last two stages of OBJ count nothing.
TEST_F(VoxelExport, CountsItsStages) {
    const PointFileMaker maker = voxelCloud(17, 5000, {0, 0, 0, 800, 400, 2}, 1);
    const int id = loadPointCloudFile(dir.writeWide("cloud", maker.make()).c_str());
    ASSERT_EQ(0, ::mkfifo(dir.path("pipe").c_str(), 0600));
    for (const auto& [format, stages] : {std::pair(0, 4), std::pair(1, 2), std::pair(2, 2), std::pair(3, 0)}) {
        const double size = format == 1 ? 0.25 : 0.15;
        std::thread worker([&] { exportVoxelModel(id, format, dir.widePath("pipe").c_str(), 0, size, 1); });
        while (readNow(voxelProgressLimit) != 1 || readNow(voxelProgressCount) != 0) std::this_thread::yield();
        EXPECT_EQ(stages, readNow(voxelStageLimit));
        EXPECT_EQ(0, readNow(voxelStageCount));
        EXPECT_EQ(stages > 0, getVoxelProgress() == 0.0F);
        std::ifstream reader(dir.path("pipe"), std::ios::binary);
        while (readNow(voxelStageCount) == 0) std::this_thread::yield();
        const ModelGrid grid(maker.box.data(), size, 1);
        const Cells expected = expectedCells(maker, grid);
        const auto cells = static_cast<int64_t>(expected.size());
        EXPECT_EQ(format == 1 ? 2 * grid.count[0] * grid.count[1] * grid.count[2] : cells, readNow(voxelProgressLimit));
        const float progress = getVoxelProgress();
        EXPECT_EQ(stages > 0, progress >= 1.0F / static_cast<float>(stages) && progress <= 1.0F);
        std::string bytes;
        for (std::vector<char> part(50000); reader;) {
            reader.read(part.data(), static_cast<std::streamsize>(part.size()));
            bytes.append(part.data(), static_cast<size_t>(reader.gcount()));
            const int32_t count = readNow(voxelProgressCount);
            constexpr size_t IN_PIPE = 65536 + 16384; // and in the stream
            const bool isRight = format == 0   ? count == 0 || readNow(voxelStageCount) < 2
                                 : format == 1 ? static_cast<size_t>(count) <= bytes.size() + IN_PIPE
                                               : count == cells || count == 1; // 1 when it is over
            EXPECT_TRUE(isRight) << format << ": " << count << " after " << bytes.size();
        }
        worker.join();
        EXPECT_EQ(2.0F, getVoxelProgress());
        expectSame(format == 0   ? expectedObj(expected, grid, "pipe")
                   : format == 1 ? expectedSchematic(expected, grid, false)
                                 : expectedStl(expected, grid),
                   bytes, "pipe");
    }
}

} // namespace

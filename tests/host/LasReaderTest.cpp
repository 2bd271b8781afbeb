#include "readers/LasReader.h"
#include "LasFile.h"
#include "TestFiles.h"

#include <cmath>
#include <random>

using Doubles = std::vector<double>;
using Bytes = std::vector<unsigned char>;

static std::unique_ptr<PointReader> openBytes(const TemporaryFolder& folder, std::string_view bytes,
                                              const ReadOptions& options = {}) {
    return openLas(folder.write("points.las", bytes), options);
}

static std::string errorOfBytes(std::string_view bytes) {
    const TemporaryFolder folder;
    return errorOf([&] { openBytes(folder, bytes); });
}

static LasFile threePoints() {
    LasFile file(2, 0, 20);
    file.addPointAt(1, 2, 3).addPointAt(-4, 5, 6).addPointAt(7, -8, 9).count(3);
    return file;
}

TEST(LasReader, ReadsEveryPointFormat) {
    // Format, length of a record, offset of the colour or 0, offset of the class.
    const std::tuple<unsigned, unsigned, unsigned, unsigned> formats[] = {
        {0, 20, 0, 15}, {1, 28, 0, 15},  {2, 26, 20, 15}, {3, 34, 28, 15}, {4, 57, 0, 15},   {5, 63, 28, 15},
        {6, 30, 0, 16}, {7, 36, 30, 16}, {8, 38, 30, 16}, {9, 59, 0, 16},  {10, 67, 30, 16},
    };
    for (const auto& [format, length, colour, classification] : formats) {
        for (const unsigned extraBytes : {0U, 3U}) {
            LasFile file(4, format, length + extraBytes);
            file.addPointAt(-3, 4, 2000000000).putInPoint<uint16_t>(12, 77).putInPoint<uint8_t>(classification, 0xE9);
            if (colour != 0) file.putInPoint<uint16_t>(colour, 1).putInPoint<uint16_t>(colour + 2, 2);
            if (colour != 0) file.putInPoint<uint16_t>(colour + 4, 300);
            file.addPointAt(0, 0, 0).put<uint64_t>(247, 2);

            const TemporaryFolder folder;
            const auto reader = openBytes(folder, file.bytes);
            const PointBatch batch = readAll(*reader, 1);
            EXPECT_EQ((Doubles{98.5, 2, 1e9, 100, 0, 0}), batch.positions) << format;
            const unsigned char none = colour != 0 ? 0 : 255;
            const unsigned char pointClass = format < 6 ? 9 : 0xE9; // of five or eight bits
            const Bytes first = colour != 0 ? Bytes{1, 2, 255, 77, pointClass} : Bytes{255, 255, 255, 77, pointClass};
            EXPECT_EQ(first, Bytes(batch.attributes.begin(), batch.attributes.begin() + 5)) << format;
            EXPECT_EQ((Bytes{none, none, none, 0, 0}), Bytes(batch.attributes.begin() + 5, batch.attributes.end()));
            EXPECT_EQ(colour != 0 ? 300 : 0, reader->survey({}).largestColour) << format;
            EXPECT_EQ("LAS 1.4, format " + std::to_string(format) + ", 2 points", reader->describe());
        }
    }
}

TEST(LasReader, LeavesWithheldPointsOutWhereAskedFor) {
    LasFile old(2, 0, 20);
    old.addPointAt(1, 0, 0).putInPoint<uint8_t>(15, 0x80).addPointAt(2, 0, 0).putInPoint<uint8_t>(15, 0x7F).count(2);
    LasFile extended(4, 6, 30);
    extended.addPointAt(1, 0, 0).putInPoint<uint8_t>(15, 4).addPointAt(2, 0, 0).putInPoint<uint8_t>(15, 0xFB).count(2);
    for (const LasFile& file : {old, extended}) {
        const TemporaryFolder folder;
        EXPECT_EQ(2U, readAll(*openBytes(folder, file.bytes)).size());
        const auto reader = openBytes(folder, file.bytes, {.skipWithheld = true, .columns = {}});
        const PointSurvey survey = reader->survey({});
        EXPECT_EQ(1U, survey.count);
        EXPECT_EQ(1U, survey.skipped);
        EXPECT_EQ((Doubles{101, 0, 0}), readAll(*reader).positions);
        EXPECT_EQ(101, survey.bounds[0]);
    }
}

TEST(LasReader, ScalesStoredValuesToBytes) {
    LasFile file(2, 2, 26);
    file.addPoint().putInPoint<uint16_t>(12, 500).count(1);
    file.putInPoint<uint16_t>(20, 65535).putInPoint<uint16_t>(22, 128).putInPoint<uint16_t>(24, 129);
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, file.bytes);
    const std::tuple<double, double, Bytes> cases[] = {
        {255, 255, {255, 128, 129, 255, 0}}, // as stored, and capped
        {65535, 65535, {255, 0, 1, 2, 0}},   // 128 * 255 / 65535 = 0.498, 129: 0.502, 500: 1.95
        {510, 1000, {255, 64, 65, 128, 0}},  // 64 and 64.5 and 127.5, to the nearest
        {0, 0, {255, 255, 255, 255, 0}},     // anything is above a limit of nothing
    };
    for (const auto& [colour, intensity, expected] : cases) {
        reader->setScale({colour, intensity});
        reader->rewind();
        EXPECT_EQ(expected, readAll(*reader).attributes) << colour;
    }
    EXPECT_EQ(500, reader->survey({}).largestIntensity);
}

TEST(LasReader, FindsBoundsInThePointsAndNotInTheHeader) {
    LasFile file = threePoints();
    file.put(139, -0.25); // a negative scale turns the order of y round
    const TemporaryFolder folder;
    const PointSurvey survey = openBytes(folder, file.bytes)->survey({});
    EXPECT_EQ((std::array<double, 6>{98, -1.25, 1.5, 103.5, 2, 4.5}), survey.bounds);
    EXPECT_EQ(3U, survey.count);
}

TEST(LasReader, UsesTheExtendedCountOfVersion14) {
    LasFile file(4, 6, 30);
    for (int i = 0; i < 3; ++i) file.addPoint();
    const TemporaryFolder folder;
    file.count(2);
    EXPECT_EQ(2U, openBytes(folder, file.bytes)->survey({}).count);
    file.put<uint64_t>(247, 3);
    EXPECT_EQ(3U, openBytes(folder, file.bytes)->survey({}).count);
    file.count(0);
    EXPECT_EQ(3U, openBytes(folder, file.bytes)->announcedCount());
    file.put(247, UINT64_MAX);
    PointBatch batch;
    EXPECT_EQ(3U, openBytes(folder, file.bytes)->read(batch, SIZE_MAX)) << "no room for what is not there";
}

TEST(LasReader, RefusesEveryTruncatedHeader) {
    LasFile extended(4, 6, 30);
    extended.addPoint().put<uint64_t>(247, 1);
    const std::string old = threePoints().bytes;
    for (size_t size = 1; size < 227 + 20; ++size) EXPECT_NE("", errorOfBytes(old.substr(0, size))) << size;
    for (size_t size = 1; size < 375 + 30; ++size) EXPECT_NE("", errorOfBytes(extended.bytes.substr(0, size))) << size;
    EXPECT_EQ("the file ends within the LAS header", errorOfBytes(old.substr(0, 226)));
    EXPECT_EQ("the header announces 3 points, the file holds none", errorOfBytes(old.substr(0, 227)));
}

TEST(LasReader, DeliversWholeRecordsOfAFileThatEndsEarly) {
    const std::string whole = threePoints().bytes;
    for (size_t size = 227 + 20; size < whole.size(); ++size) {
        const TemporaryFolder folder;
        const auto reader = openBytes(folder, std::string_view(whole).substr(0, size));
        const size_t points = (size - 227) / 20;
        EXPECT_EQ(points, reader->survey({}).count);
        EXPECT_EQ(points, readAll(*reader).size());
        EXPECT_EQ(std::vector{"the header announces 3 points, the file holds " + std::to_string(points)},
                  reader->warnings());
    }
}

TEST(LasReader, FindsPointsDespiteAWrongNumberOfRecords) {
    for (const uint32_t count : {0U, 1U, 3U, 1069128089U}) {
        LasFile file(2, 0, 20);
        file.addRecord("first", 1, "abc").addRecord("second", 2, "").addPointAt(1, 2, 3).count(1).put(100, count);
        const TemporaryFolder folder;
        const auto reader = openBytes(folder, file.bytes);
        EXPECT_EQ((Doubles{100.5, 1, 1.5}), readAll(*reader).positions);
        EXPECT_EQ(count > 2 ? 1U : 0U, reader->warnings().size()) << count;
    }
}

TEST(LasReader, SkipsPointsWhoseCoordinateOverflows) {
    LasFile file = threePoints();
    file.put(131, 1e300).addPointAt(2000000000, 0, 0).count(4);
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, file.bytes);
    const PointSurvey survey = reader->survey({});
    EXPECT_EQ(3U, survey.count);
    EXPECT_EQ(1U, survey.skipped);
    EXPECT_EQ(7e300, survey.bounds[3]);
    EXPECT_EQ(3U, readAll(*reader).size());
}

TEST(LasReader, RefusesHeadersThatCannotBeMeant) {
    const std::pair<const char*, LasFile> cases[] = {
        {"LAS version 2.2 is not supported (1.0 to 1.4 are)", threePoints().put<uint8_t>(24, 2)},
        {"LAS version 1.5 is not supported (1.0 to 1.4 are)", threePoints().put<uint8_t>(25, 5)},
        {"point format 11 is not known (0 to 10 are)", threePoints().put<uint8_t>(104, 11)},
        {"a record of 19 bytes is too short for point format 0", threePoints().put<uint16_t>(105, 19)},
        {"the points are said to start within the LAS header", threePoints().put<uint32_t>(96, 226)},
        {"the header's scale or offset is not a finite number", threePoints().put(139, std::nan(""))},
        {"the header's scale or offset is not a finite number", threePoints().put(171, HUGE_VAL)},
        {"is not a LAS file", threePoints().put<uint8_t>(0, 'l')},
        {"the points are compressed, but the description of the compression is missing",
         threePoints().put<uint8_t>(104, 128)},
    };
    for (const auto& [error, file] : cases) EXPECT_EQ(error, errorOfBytes(file.bytes));
}

TEST(LasReader, IsContentWithNoPoints) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, LasFile(2, 3, 34).bytes);
    EXPECT_EQ(0U, reader->survey({}).count);
    PointBatch batch;
    batch.resize(4);
    EXPECT_EQ(0U, reader->read(batch, 10));
    EXPECT_EQ(0U, batch.size());
    EXPECT_EQ(1, reader->fractionRead());
    EXPECT_TRUE(reader->warnings().empty());
}

TEST(LasReader, StopsASurveyAndStartsAgain) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, threePoints().bytes);
    EXPECT_EQ(0U, reader->survey([] { return false; }).count);
    PointBatch batch;
    EXPECT_EQ(2U, reader->read(batch, 2));
    EXPECT_DOUBLE_EQ(2.0 / 3, reader->fractionRead());
    EXPECT_EQ(3U, reader->survey([] { return true; }).count);
    EXPECT_EQ(3U, reader->read(batch, 10));
    reader->rewind();
    EXPECT_EQ(3U, reader->read(batch, 3));
}

// Damage may give wrong points or a FileError. That it gives nothing else shows under the sanitizers.
TEST(OpenPoints, SurvivesDamage) {
    std::vector<std::string> files{
        "ply\nformat ascii 1.0\nelement face 1\nproperty list uchar int i\nelement vertex 2\nproperty float x\n"
        "property float y\nproperty float z\nproperty uchar red\nend_header\n3 1 2 3\n1 2 3 4\n5 6 7 8\n",
        "ply\nformat binary_big_endian 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty float z\n"
        "property list int double i\nend_header\n" +
            std::string(48, '\1'),
        "x y z r g b\n1 2 3 0 128 255\n4 5 6 9 9 9\n", threePoints().bytes};
    for (const char* name : {"old_laszip_1.2", "waveform_pf4", "full_int32_range_pf8", "one_point_pf8"}) {
        const std::string path = realCloud(std::string("odd/") + name + ".laz");
        if (!path.empty()) files.push_back(bytesOf(path));
    }
    std::mt19937 random(20);
    for (const std::string& whole : files) {
        const TemporaryFolder folder;
        for (int round = 0; round < 150; ++round) {
            std::string bytes = whole;
            // The header is hit as often as everything behind it; what decides how points are coded stands there.
            for (int hit = 0; hit < 1 + round % 8; ++hit) {
                const size_t reach = hit % 2 == 0 ? std::min<size_t>(bytes.size(), 500) : bytes.size();
                bytes[random() % reach] = static_cast<char>(random());
            }
            if (round % 3 == 0) bytes.resize(random() % bytes.size() + 1);
            bytes.replace(0, 4, whole, 0, std::min<size_t>(bytes.size(), 4)); // still of the same kind
            const std::string damaged = folder.write("damaged", bytes);
            errorOf([&] {
                const auto reader = openPoints(damaged, {});
                // 2^32 points in a code of few bytes are allowed, and take long.
                if (reader->announcedCount() > 10000) return;
                const PointSurvey survey = reader->survey({});
                EXPECT_EQ(survey.count, readAll(*reader).size());
            });
        }
    }
}

TEST(OpenPoints, FindsTheCountAndTheBoundsOfRealClouds) {
    struct Cloud {
        const char* name;
        uint64_t count;
        std::array<double, 6> bounds; // smallest x, y, z, then largest, in nine digits
        double largestIntensity;
    };
    const Cloud clouds[] = {
        {"ahn3_1.laz", 640510, {84808.3, 447412.8, -0.568, 84999.999, 447641.299, 19.398}, 65534},
        {"lone-star.laz", 518862, {515368.602, 4918340.36, 2322.89625, 515401.043, 4918381.12, 2338.5755}, 2744},
        {"forest_bc_1.laz", 531662, {885022.37, 629157.18, 325.83, 885210.15, 629399.99, 358.28}, 190},
        {"pine_plot.laz", 114024, {0.0001, 0.0001, 49.0418, 9.9998, 9.9998, 69.3673}, 0},
        {"rock_face_rgb.laz", 547662, {-9.7138, -1.1006, 0.115, 10.5643, 4.9634, 5.855}, 0},
        {"odd/waveform_pf4.laz", 2250, {433970.299, 103970.072, 28.405, 434029.734, 104029.515, 59.04}, 202},
        {"odd/one_point_pf8.laz", 1, {436049.98, 6383048.82, 83.67, 436049.98, 6383048.82, 83.67}, 3527},
        {"odd/scale_1e-6.las", 1000, {1694038.45, 1816492.71, 5592.74992, 1694539.68, 1816497.98, 5599.06969}, 68},
        {"odd/las10_one_point.las", 1, {470692.44, 4602888.9, 16, 470692.44, 4602888.9, 16}, 0},
        {"office_rgb.ply", 254456, {-2.6454761, -2.19642901, 1.83299994, 1.50435996, 1.58124602, 5.36399984}, 0},
        {"bunny.ply", 35947, {-0.0946899, 0.0329874, -0.0618736, 0.0610091, 0.187321, 0.0587997}, 0.5},
        {"milk_rgb.xyz", 13704, {-0.140082896, -0.263779998, 0.713999987, 0.01380667, -0.0117285699, 0.890999973}, 0},
    };
    for (const Cloud& cloud : clouds) {
        const std::string path = realCloud(cloud.name);
        if (path.empty()) GTEST_SKIP() << cloud.name << " is not there";
        const auto reader = openPoints(path, {});
        const PointSurvey survey = reader->survey({});
        EXPECT_EQ(cloud.count, survey.count) << cloud.name;
        EXPECT_EQ(cloud.largestIntensity, survey.largestIntensity) << cloud.name;
        for (size_t i = 0; i < 6; ++i) {
            EXPECT_NEAR(cloud.bounds[i], survey.bounds[i], std::abs(cloud.bounds[i]) * 1e-8) << cloud.name << i;
        }
        EXPECT_TRUE(reader->warnings().empty()) << cloud.name;
    }
}

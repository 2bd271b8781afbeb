#include "LasFile.h"
#include "TestFiles.h"
#include "readers/LasReader.h"
#include "readers/LazMedian.h"

using Doubles = std::vector<double>;
using Items = std::vector<std::array<uint16_t, 3>>; // type, size, version

template <typename T>
static void append(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

// A compressed file without points yet, and its description of the compression.
static LasFile compressed(unsigned format, unsigned length, uint16_t compressor, uint32_t chunkSize,
                          const Items& items) {
    std::string contents;
    append<uint16_t>(contents, compressor);
    contents.append(10, '\0'); // coder, version, revision, options
    append<uint32_t>(contents, chunkSize);
    contents.append(16, '\0');
    append(contents, static_cast<uint16_t>(items.size()));
    for (const auto& item : items)
        for (const uint16_t value : item) append(contents, value);
    LasFile file(format < 6 ? 2 : 4, format | 128, length);
    file.addRecord("laszip encoded", 22204, contents);
    return file;
}

static std::string errorOfBytes(std::string_view bytes) {
    const TemporaryFolder folder;
    return errorOf([&] {
        const auto reader = openLas(folder.write("points.laz", bytes), {});
        reader->survey({});
    });
}

// A code of zeros stands for the most likely symbol throughout, which is "as predicted". The second version predicts
// height from the heights of like returns, of which there is none yet: 0.
TEST(LazReader, DecodesACodeOfZerosAsPredicted) {
    const std::tuple<unsigned, unsigned, Items, double> cases[] = {
        {0, 20, {{6, 20, 1}}, 1.5},
        {0, 20, {{6, 20, 2}}, 0},
        {3, 34, {{6, 20, 1}, {7, 8, 1}, {8, 6, 1}}, 1.5},
        {3, 36, {{6, 20, 2}, {7, 8, 2}, {8, 6, 2}, {0, 2, 2}}, 0},
        {5, 63, {{6, 20, 2}, {7, 8, 2}, {8, 6, 2}, {9, 29, 1}}, 0},
    };
    for (const auto& [format, length, items, height] : cases) {
        LasFile file = compressed(format, length, 1, 0, items);
        file.addPointAt(1, 2, 3).putInPoint<uint8_t>(15, 17).count(3).bytes.append(64, '\0');
        const TemporaryFolder folder;
        const auto reader = openLas(folder.write("points.laz", file.bytes), {});
        const PointBatch batch = readAll(*reader);
        EXPECT_EQ((Doubles{100.5, 1, 1.5, 100.5, 1, height, 100.5, 1, height}), batch.positions) << format;
        EXPECT_EQ(17, batch.attributes[14]);
        EXPECT_EQ(3U, reader->survey({}).count);
    }
}

// One layered chunk of three points: the horizontal layer is a code of zeros and all others are missing, so that
// nothing else changes. The file has no table, so that the chunk is found through its own sizes.
TEST(LazReader, DecodesLayersThatAreMissingAsUnchanged) {
    LasFile file = compressed(7, 36, 3, 50000, {{10, 30, 3}, {11, 6, 3}});
    file.bytes.append(8, '\xFF');
    file.addPointAt(1, 2, 3).putInPoint<uint8_t>(16, 200).putInPoint<uint16_t>(30, 44).put<uint64_t>(247, 3);
    append<uint32_t>(file.bytes, 3);
    for (size_t i = 0; i < 10; ++i) append<uint32_t>(file.bytes, i == 0 ? 16 : 0);
    file.bytes.append(16, '\0');
    const TemporaryFolder folder;
    const auto reader = openLas(folder.write("points.laz", file.bytes), {});
    const PointBatch batch = readAll(*reader);
    EXPECT_EQ((Doubles{100.5, 1, 1.5, 100.5, 1, 1.5, 100.5, 1, 1.5}), batch.positions);
    EXPECT_EQ(44, batch.attributes[10]);
    EXPECT_EQ(200, batch.attributes[14]);
    EXPECT_EQ(1U, reader->warnings().size());
}

TEST(LazReader, RefusesCompressionsThatItDoesNotKnow) {
    const std::pair<const char*, LasFile> cases[] = {
        {"compressor 4 is not known (1 to 3 are)", compressed(0, 20, 4, 0, {{6, 20, 2}})},
        {"the compressed chunks have a size of 0", compressed(0, 20, 2, 0, {{6, 20, 2}})},
        {"compressed item of type 6: version 3 is not known", compressed(0, 20, 1, 0, {{6, 20, 3}})},
        {"compressed item of type 6: a size of 21 bytes is wrong", compressed(0, 21, 1, 0, {{6, 21, 2}})},
        {"compressed item of type 99: the type is not known", compressed(0, 20, 1, 0, {{99, 20, 2}})},
        {"the compressed items are not those of point format 1", compressed(1, 28, 1, 0, {{6, 20, 2}, {0, 8, 2}})},
        {"the compressed items are not those of point format 6", compressed(6, 30, 2, 9, {{10, 30, 3}})},
        {"the compressed items are not those of point format 0", compressed(0, 20, 1, 0, {})},
        {"the compressed items have 28 bytes a point, the records 29",
         compressed(1, 29, 1, 0, {{6, 20, 2}, {7, 8, 2}})},
        {"the table of compressed chunks is missing or damaged",
         compressed(0, 20, 2, UINT32_MAX, {{6, 20, 2}}).count(1)},
    };
    for (const auto& [error, file] : cases) EXPECT_EQ(error, errorOfBytes(file.bytes));
}

TEST(LazReader, TellsThatNoPointIsThere) {
    for (const uint16_t compressor : {uint16_t{1}, uint16_t{2}}) {
        LasFile file = compressed(0, 20, compressor, 50000, {{6, 20, 2}});
        file.count(5).bytes.append(20, '\0');
        EXPECT_EQ("the header announces 5 points, the file holds none", errorOfBytes(file.bytes));
    }
}

// The format has this median and no other; the values were followed by hand.
TEST(LazMedian, DropsTheEndThatDidNotGoLast) {
    LazMedian median;
    const std::pair<int32_t, int32_t> steps[] = {{5, 0}, {7, 0}, {6, 5}, {-1, 5}, {9, 5}, {8, 6}, {-3, 6}};
    EXPECT_EQ(0, median.get());
    for (const auto& [value, expected] : steps) {
        median.add(value);
        EXPECT_EQ(expected, median.get()) << value;
    }
}

TEST(LazReader, ReadsWhatThePlainTwinHolds) {
    const std::pair<const char*, const char*> twins[] = {
        {"ahn3_2.las", "ahn3_2.laz"},
        {"autzen_trim.las", "autzen_trim.laz"},
        {"mixed_conifer.las", "mixed_conifer.laz"},
        {"lion.las", "lion.copc.laz"},
        {"odd/full_int32_range_pf8.las", "odd/full_int32_range_pf8.laz"},
        {"odd/simple.las", "odd/old_laszip_1.2.laz"},
    };
    for (const auto& [plainName, packedName] : twins) {
        const std::string plainPath = realCloud(plainName);
        const std::string packedPath = realCloud(packedName);
        if (plainPath.empty() || packedPath.empty()) GTEST_SKIP() << packedName << " or its twin is not there";
        const auto plain = openPoints(plainPath, {});
        const auto packed = openPoints(packedPath, {});
        // Both bytes of a stored value: once cut to the low values and once scaled down.
        for (const double limit : {255.0, 65535.0}) {
            plain->setScale({limit, limit});
            packed->setScale({limit, limit});
            plain->rewind();
            packed->rewind();
            const PointBatch expected = readAll(*plain, 5000);
            const PointBatch found = readAll(*packed, 7777);
            EXPECT_EQ(expected.positions, found.positions) << packedName;
            EXPECT_EQ(expected.attributes, found.attributes) << packedName;
        }
        EXPECT_EQ(plain->survey({}).bounds, packed->survey({}).bounds) << packedName;
        EXPECT_TRUE(packed->warnings().empty()) << packedName;
    }
}

TEST(LazReader, ReadsOnWithoutItsTable) {
    for (const char* name : {"ahn3_2.laz", "lion.copc.laz"}) {
        const std::string path = realCloud(name);
        if (path.empty()) GTEST_SKIP() << name << " is not there";
        const PointBatch expected = readAll(*openPoints(path, {}));
        std::string bytes = bytesOf(path);
        uint32_t start = 0;
        std::memcpy(&start, &bytes[96], sizeof(start));
        bytes.replace(start, 8, 8, '\0'); // the position of the table
        const TemporaryFolder folder;
        const auto reader = openPoints(folder.write("no_table.laz", bytes), {});
        const PointBatch found = readAll(*reader);
        EXPECT_EQ(expected.positions, found.positions);
        EXPECT_EQ(expected.attributes, found.attributes);
        EXPECT_EQ(std::vector<std::string>{"the table of compressed chunks is missing or damaged"}, reader->warnings());
    }
}

// What comes before the cut is read rightly; that there is less is told.
TEST(LazReader, DeliversThePointsBeforeACut) {
    for (const char* name : {"odd/old_laszip_1.2.laz", "mixed_conifer.laz", "odd/full_int32_range_pf8.laz"}) {
        const std::string path = realCloud(name);
        if (path.empty()) GTEST_SKIP() << name << " is not there";
        const PointBatch expected = readAll(*openPoints(path, {}));
        const std::string bytes = bytesOf(path);
        const TemporaryFolder folder;
        const auto reader = openPoints(folder.write("cut.laz", bytes.substr(0, bytes.size() * 2 / 3)), {});
        const PointBatch found = readAll(*reader);
        ASSERT_LT(found.size(), expected.size());
        EXPECT_GT(found.size(), expected.size() / 3);
        EXPECT_TRUE(std::equal(found.positions.begin(), found.positions.end(), expected.positions.begin()));
        EXPECT_TRUE(std::equal(found.attributes.begin(), found.attributes.end(), expected.attributes.begin()));
        const std::string shortage = "the header announces " + std::to_string(expected.size()) +
                                     " points, the file holds " + std::to_string(found.size());
        const std::vector<std::string> warnings = reader->warnings();
        EXPECT_NE(warnings.end(), std::find(warnings.begin(), warnings.end(), shortage));
    }
}

TEST(LazReader, NamesTheChunkThatIsDamaged) {
    const std::string path = realCloud("mixed_conifer.laz");
    if (path.empty()) GTEST_SKIP() << "mixed_conifer.laz is not there";
    std::string bytes = bytesOf(path);
    std::fill(bytes.begin() + 100000, bytes.begin() + 200000, '\xA5');
    EXPECT_EQ("compressed chunk 1 of 1 is damaged: its bytes end before its points", errorOfBytes(bytes));
}

TEST(LazReader, RefusesTheBrokenFilesOfTheField) {
    const std::pair<const char*, const char*> cases[] = {
        {"odd/broken_coder.laz", "coder 15 is not known (0 is)"},
        {"odd/broken_size.laz", "compressed item of type 6: version 6 is not known"},
    };
    for (const auto& [name, error] : cases) {
        const std::string path = realCloud(name);
        if (path.empty()) GTEST_SKIP() << name << " is not there";
        EXPECT_EQ(error, errorOf([&] { openPoints(path, {}); }));
    }
}

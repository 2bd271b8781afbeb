#include "readers/PlyReader.h"
#include "TestFiles.h"

using namespace std::string_literals;

static const std::string XYZ = "property float x\nproperty float y\nproperty float z\n";

static std::unique_ptr<PointReader> openBytes(const TemporaryFolder& folder, std::string_view bytes) {
    return openPly(folder.write("points.ply", bytes), {});
}

static PointBatch readBytes(std::string_view bytes) {
    const TemporaryFolder folder;
    return readAll(*openBytes(folder, bytes));
}

static std::string errorOfBytes(std::string_view bytes) {
    return errorOf([&] { readBytes(bytes); });
}

using Doubles = std::vector<double>;
using Bytes = std::vector<unsigned char>;

TEST(PlyReader, ReadsAsciiWithAllChannels) {
    const PointBatch batch = readBytes("ply\r\nformat ascii 1.0\r\ncomment by hand\r\nobj_info none\r\n"
                                       "element vertex 2\r\nproperty double x\r\nproperty double y\r\n"
                                       "property double z\r\nproperty uchar red\r\nproperty uchar green\r\n"
                                       "property uchar blue\r\nproperty uchar alpha\r\n"
                                       "property float scalar_Intensity\r\nproperty uchar label\r\nend_header\r\n"
                                       "1 2 -3.5 10 20 30 99 40.6 6\r\n\r\n1e2 +.5 7. 0 255 300 99 -4 2\r\n");
    EXPECT_EQ((Doubles{1, 2, -3.5, 100, 0.5, 7}), batch.positions);
    EXPECT_EQ((Bytes{10, 20, 30, 41, 6, 0, 255, 255, 0, 2}), batch.attributes);
}

// One point, every field written by hand: x = 1.5 as float, y = -2 as double, z = 513 as short, then red 258, green 1,
// blue 65535 as ushort, and class 9 as char.
TEST(PlyReader, ReadsBothByteOrders) {
    const std::string header = " 1.0\nelement vertex 1\nproperty float32 x\nproperty float64 y\nproperty int16 z\n"
                               "property uint16 red\nproperty ushort green\nproperty ushort blue\n"
                               "property int8 classification\nend_header\n";
    const std::string little = "ply\nformat binary_little_endian" + header +
                               "\0\0\xc0\x3f\0\0\0\0\0\0\0\xc0\x01\x02\x02\x01\x01\0\xff\xff\x09"s;
    const std::string big =
        "ply\nformat binary_big_endian" + header + "\x3f\xc0\0\0\xc0\0\0\0\0\0\0\0\x02\x01\x01\x02\0\x01\xff\xff\x09"s;
    for (const std::string& bytes : {little, big}) {
        const TemporaryFolder folder;
        const auto reader = openBytes(folder, bytes);
        EXPECT_EQ(65535, reader->survey({}).largestColour);
        reader->setScale({65535, 255});
        const PointBatch batch = readAll(*reader);
        EXPECT_EQ((Doubles{1.5, -2, 513}), batch.positions);
        EXPECT_EQ((Bytes{1, 0, 255, 0, 9}), batch.attributes);
        EXPECT_TRUE(reader->warnings().empty());
    }
}

TEST(PlyReader, TakesColoursByTheirNamesAndTypes) {
    const std::tuple<const char*, const char*, Bytes> cases[] = {
        {"property float r\nproperty float g\nproperty double b\n", "0 0.5 1", {0, 128, 255, 0, 0}},
        {"property uchar red\n", "7", {255, 255, 255, 0, 0}}, // red alone is no colour
        {"property uchar diffuse_red\nproperty uchar DIFFUSE_GREEN\nproperty uchar diffuse_blue\n"
         "property uchar nx\nproperty uchar scalar_Classification\n",
         "1 2 3 99 4",
         {1, 2, 3, 0, 4}},
    };
    for (const auto& [properties, values, expected] : cases) {
        const PointBatch batch = readBytes("ply\nformat ascii 1.0\nelement vertex 1\n" + XYZ + properties +
                                           "end_header\n1 2 3 " + values + "\n");
        EXPECT_EQ(expected, batch.attributes) << properties;
    }
}

TEST(PlyReader, PassesOverOtherElements) {
    const std::string elements = " 1.0\nelement camera 2\nproperty uchar a\nproperty list uchar short b\n"
                                 "element plain 3\nproperty ushort c\nelement vertex 1\n" +
                                 XYZ + "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    const PointBatch ascii = readBytes("ply\nformat ascii" + elements + "1 2 3 4\n1 0\n1\n2\n3\n7 8 9\n3 0 0 0\n");
    EXPECT_EQ((Doubles{7, 8, 9}), ascii.positions);
    const PointBatch binary = readBytes("ply\nformat binary_little_endian" + elements +
                                        "\x01\x02\x33\x33\x44\x44\x01\0\x11\x11\x22\x22\x33\x33"s
                                        "\0\0\xe0\x40\0\0\0\x41\0\0\x10\x41\x03\0\0\0\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ((Doubles{7, 8, 9}), binary.positions);
}

TEST(PlyReader, PassesOverListsWithinVertices) {
    const std::string header = " 1.0\nelement vertex 2\nproperty uchar x\nproperty list ushort uchar tags\n"
                               "property uchar y\nproperty uchar z\nend_header\n";
    const Doubles expected{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(expected, readBytes("ply\nformat ascii" + header + "1 2 8 8 2 3\n4 0 5 6\n").positions);
    EXPECT_EQ(
        expected,
        readBytes("ply\nformat binary_big_endian" + header + "\x01\0\x02\x08\x08\x02\x03\x04\0\0\x05\x06"s).positions);
    EXPECT_EQ("line 9: is not a vertex", errorOfBytes("ply\nformat ascii" + header + "1 9 8 8 2 3\n"));
}

TEST(PlyReader, RefusesBrokenHeaders) {
    const std::string start = "ply\nformat ascii 1.0\n";
    const std::string vertex = "element vertex 1\n";
    const std::pair<std::string, const char*> cases[] = {
        {"", "is not a PLY file"},
        {"plyx\n", "is not a PLY file"},
        {start, "the header does not end"},
        {"ply\nend_header\n", "the header names no format"},
        {"ply\nformat binary_middle_endian 1.0\n", "line 2: unknown format \"binary_middle_endian\" version \"1.0\""},
        {"ply\nformat ascii 2.0\n", "line 2: unknown format \"ascii\" version \"2.0\""},
        {start + "elephant\n", "line 3: unknown keyword \"elephant\""},
        {start + "property float x\n", "line 3: a property stands before the first element"},
        {start + "element vertex many\n", "line 3: the count \"many\" is not a whole number"},
        {start + "element vertex -1\n", "line 3: the count \"-1\" is not a whole number"},
        {start + "element vertex 99999999999999999999\n",
         "line 3: the count \"99999999999999999999\" is not a whole number"},
        {start + vertex + "property quad x\n", "line 4: unknown type \"quad\""},
        {start + vertex + "property list float int x\n", "line 4: the length of a list cannot be of type \"float\""},
        {start + "element face 1\nend_header\n", "has no element \"vertex\""},
        {start + vertex + "property float x\nproperty float y\nend_header\n", "its vertices have no property z"},
        {start + vertex + "property list uchar float x\nproperty float y\nproperty float z\nend_header\n",
         "its vertices have no property x"},
        {start + "comment " + std::string(300000, 'x') + "\n", "the header is too long"},
        {start + "comment " + std::string(3000000, 'x') + "\n", "the header is too long"},
    };
    for (const auto& [bytes, expected] : cases) EXPECT_EQ(expected, errorOfBytes(bytes)) << bytes.substr(0, 100);
}

TEST(PlyReader, RefusesBrokenRecords) {
    const std::string header = "ply\nformat ascii 1.0\nelement vertex 2\n" + XYZ + "end_header\n";
    EXPECT_EQ("line 9: is not a vertex", errorOfBytes(header + "1 2 3\n4 five 6\n"));
    EXPECT_EQ("line 8: is not a vertex", errorOfBytes(header + "1 2\n4 5 6\n"));
    EXPECT_EQ("line 8: is too long", errorOfBytes(header + std::string(3000000, '1') + "\n4 5 6\n"));
    const std::string withList = "ply\nformat binary_little_endian 1.0\nelement a 1\nproperty list char int b\n"
                                 "element vertex 1\n" +
                                 XYZ + "end_header\n";
    EXPECT_EQ("a list of negative length, at byte " + std::to_string(withList.size() + 1),
              errorOfBytes(withList + "\xff" + std::string(30, '\0')));
}

// Whatever is cut off, the points before the cut arrive, and the reader says so.
TEST(PlyReader, DeliversWhatIsWholeOfEveryTruncation) {
    const std::string header = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty uchar x\n"
                               "property uchar y\nproperty ushort z\nend_header\n";
    const std::string records = "\x01\x02\x03\0\x04\x05\x06\0\x07\x08\x09\0"s;
    for (size_t size = 0; size + 1 < header.size(); ++size) { // the last line feed may be missing
        EXPECT_NE("", errorOfBytes(header.substr(0, size))) << size << " bytes";
    }
    for (size_t size = 0; size <= records.size(); ++size) {
        const TemporaryFolder folder;
        const auto reader = openBytes(folder, header + records.substr(0, size));
        EXPECT_EQ(size / 4, readAll(*reader).size());
        const auto expected =
            size == records.size()
                ? std::vector<std::string>{}
                : std::vector<std::string>{"the file ends after " + std::to_string(size / 4) + " of 3 points"};
        EXPECT_EQ(expected, reader->warnings()) << size << " bytes";
    }
}

// The last line of "1 2 3\n4 5 6" may be the front of "4 5 67", unless it is the last one announced.
TEST(PlyReader, TakesAnUnfinishedLineOnlyAtTheEnd) {
    const auto countOf = [](const char* count) {
        return readBytes("ply\nformat ascii 1.0\nelement vertex "s + count + "\n" + XYZ + "end_header\n1 2 3\n4 5 6")
            .size();
    };
    EXPECT_EQ(2u, countOf("2"));
    EXPECT_EQ(1u, countOf("3"));
}

TEST(PlyReader, DoesNotBelieveHugeCounts) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, "ply\nformat binary_little_endian 1.0\nelement vertex 9000000000000000000\n" +
                                              XYZ + "end_header\n" + std::string(24, '\0'));
    EXPECT_EQ(2u, reader->announcedCount());
    EXPECT_EQ(2u, readAll(*reader, SIZE_MAX).size());
    EXPECT_EQ(0u, readBytes("ply\nformat binary_little_endian 1.0\nelement a 9000000000000000000\n"
                            "property double b\nelement vertex 1\n" +
                            XYZ + "end_header\n" + std::string(24, '\0'))
                      .size());
}

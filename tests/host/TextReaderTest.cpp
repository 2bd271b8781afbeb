#include "readers/TextReader.h"
#include "TestFiles.h"
#include "readers/ByteInput.h"
#include "readers/TextFields.h"

#include <sys/stat.h>

#include <charconv>
#include <cmath>
#include <random>
#include <thread>

using Doubles = std::vector<double>;
using Bytes = std::vector<unsigned char>;

static std::unique_ptr<PointReader> openBytes(const TemporaryFolder& folder, std::string_view bytes,
                                              const std::string& columns = {}) {
    ReadOptions options;
    options.columns = columns;
    return openText(folder.write("points.txt", bytes), options);
}

static std::string errorOfBytes(std::string_view bytes, const std::string& columns = {}) {
    const TemporaryFolder folder;
    return errorOf([&] { readAll(*openBytes(folder, bytes, columns)); });
}

// The columns as describe() shows them.
static std::string columnsOf(std::string_view bytes, const std::string& columns = {}) {
    const TemporaryFolder folder;
    return openBytes(folder, bytes, columns)->describe();
}

TEST(ParseNumber, AgreesWithTheLibrary) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 200000; ++i) {
        const double exponent = static_cast<double>(random() % 40) - 20;
        const double number = static_cast<double>(static_cast<int64_t>(random())) * 1e-19 * std::pow(10, exponent);
        char text[400];
        // Every form and length: fixed, scientific, short and 17 digits.
        const auto form = i % 2 == 0 ? std::chars_format::fixed : std::chars_format::scientific;
        const char* const end =
            std::to_chars(text, text + sizeof text, number, form, static_cast<int>(random() % 18)).ptr;
        double expected = 0, actual = 0;
        std::from_chars(text, end, expected);
        ASSERT_EQ(end, parseNumber(text, end, actual)) << std::string_view(text, static_cast<size_t>(end - text));
        ASSERT_EQ(expected, actual) << std::string_view(text, static_cast<size_t>(end - text));
    }
}

TEST(ParseNumber, TakesOnlyNumbers) {
    const std::pair<const char*, std::optional<double>> cases[] = {
        {"1", 1},     {"+1.5", 1.5}, {"-.5", -0.5},
        {"7.", 7},    {"1e3", 1000}, {"123456789012345678901", 123456789012345678901.0},
        {"", {}},     {"+", {}},     {"-", {}},
        {".", {}},    {"+-1", {}},   {"1x", {}},
        {"0x10", {}}, {"1,5", {}},   {"1e", {}},
        {"--1", {}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(expected, numberOfField(text)) << text;
}

TEST(TextReader, SplitsAtEverySeparator) {
    const TemporaryFolder folder;
    for (const char* text : {"1 2 3\n4 5 6\n", "  1\t2   3 \r\n4\t5\t6\r\n", "1,2,3\n4,5,6,\n", "1; 2 ;3\n4;5;6",
                             "\357\273\2771 2 3\n# note\n\n// note\n4 5 6\n"}) {
        EXPECT_EQ((Doubles{1, 2, 3, 4, 5, 6}), readAll(*openBytes(folder, text)).positions) << text;
    }
}

TEST(TextReader, GuessesColumns) {
    const std::pair<const char*, const char*> cases[] = {
        {"1 2 3", "x y z"},
        {"1 2 3 0.5", "x y z intensity"},
        {"1 2 3 40 6", "x y z intensity class"},
        {"1 2 3 40 6.5", "x y z intensity"},
        {"1 2 3 40 300", "x y z intensity"},
        {"1 2 3 0 128 255", "x y z r g b"},
        {"1 2 3 0 40000 255", "x y z r g b"},
        {"1 2 3 0.1 0.2 1", "x y z r g b"},
        {"1 2 3 0.1 -0.2 1", "x y z"},
        {"1 2 3 0.1 200 1", "x y z"},
        {"1 2 3 -900 10 20 30", "x y z intensity r g b"},
        {"1 2 3 10 20 30 0.4", "x y z r g b intensity"},
        {"1 2 3 10 20 30 40 6", "x y z r g b intensity class"},
        {"1 2 3 0.4 10 20 30 6", "x y z intensity r g b class"},
        {"1 2 3 10 20 30 0 0 -1", "x y z r g b"},
        {"1 2 3 0 0 -1 10 20 30", "x y z skip skip skip r g b"},
        {"1 2 3 tree 5", "x y z skip class"},
    };
    for (const auto& [line, columns] : cases) {
        EXPECT_EQ("text, columns " + std::string(columns) + " (guessed)", columnsOf(line)) << line;
    }
}

TEST(TextReader, TakesColumnsFromHeaderLines) {
    const std::pair<const char*, const char*> cases[] = {
        {"Z,Y,X,class\n3,2,1,4\n", "z y x class"},
        {"//X Y Z R G B Nx\n1 2 3 4 5 6 7\n", "x y z r g b"},
        {"# made by hand\n# x;y;z;intensity\n1;2;3;4\n", "x y z intensity"},
        {"\"x\",\"y\",\"z\",\"Scalar_Intensity\"\n1,2,3,4\n", "x y z intensity"},
        {"id time x y z red\n7 8 1 2 3 4\n", "skip skip x y z"},
        {"x,y,z\n", "x y z"}, // no points at all
    };
    for (const auto& [text, columns] : cases) {
        EXPECT_EQ("text, columns " + std::string(columns) + " (from the header line)", columnsOf(text)) << text;
        const TemporaryFolder folder;
        EXPECT_TRUE(openBytes(folder, text)->warnings().empty());
    }
}

TEST(TextReader, TakesColumnsAsGiven) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, "x y z a b c\n1 2 3 red 9 70\n", "z,y,x,skip,class,intensity");
    EXPECT_EQ("text, columns z y x skip class intensity (as given)", reader->describe());
    const PointBatch batch = readAll(*reader);
    EXPECT_EQ((Doubles{3, 2, 1}), batch.positions);
    EXPECT_EQ((Bytes{255, 255, 255, 70, 9}), batch.attributes);
    EXPECT_TRUE(reader->warnings().empty()); // the header line is none of the points, but no fault either
    EXPECT_EQ("column \"foo\" is none of x, y, z, r, g, b, intensity, class and skip",
              errorOfBytes("1 2 3\n", "x,y,z,foo"));
    EXPECT_EQ("the columns \"x,y\" do not name x, y and z", errorOfBytes("1 2 3\n", "x,y"));
}

TEST(TextReader, ScalesColoursOfZeroToOne) {
    const TemporaryFolder folder;
    EXPECT_EQ((Bytes{0, 128, 255, 0, 0}), readAll(*openBytes(folder, "1 2 3 0 0.5 1\n")).attributes);
    EXPECT_EQ((Bytes{0, 1, 1, 0, 0}), readAll(*openBytes(folder, "1 2 3 0 1 1\n")).attributes); // no fraction
}

TEST(TextReader, PassesOverCountLines) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, "2\n1 2 3 -5 10 20 30\n4 5 6 -5 10 20 30\n1\n7 8 9 -5 10 20 30\n");
    EXPECT_EQ(2u, reader->announcedCount());
    EXPECT_EQ(3u, readAll(*reader).size());
    EXPECT_TRUE(reader->warnings().empty());
    EXPECT_EQ(0u, openBytes(folder, "4000000000\n1 2 3\n")->announcedCount()); // more than the file can hold
}

TEST(TextReader, CountsLinesThatDoNotParse) {
    const TemporaryFolder folder;
    const std::string longLine(3000000, '1');
    const auto reader = openBytes(folder, "1 2 3\n1 2\n\none two three\n4 5 6\n" + longLine + "\n7 8 9\n");
    const std::vector<std::string> expected{"3 lines do not parse and are left out, the first of them is line 2"};
    EXPECT_EQ(3u, reader->survey({}).count);
    EXPECT_EQ(expected, reader->warnings());
    EXPECT_EQ((Doubles{1, 2, 3, 4, 5, 6, 7, 8, 9}), readAll(*reader).positions);
    EXPECT_EQ(expected, reader->warnings());
}

TEST(TextReader, SkipsAndCountsPointsThatAreNotFinite) {
    const TemporaryFolder folder;
    const auto reader = openBytes(folder, "1 2 3\nnan 2 3\n1 2 inf\n4 5 6\n");
    const PointSurvey survey = reader->survey({});
    EXPECT_EQ(2u, survey.count);
    EXPECT_EQ(2u, survey.skipped);
    EXPECT_EQ((std::array<double, 6>{1, 2, 3, 4, 5, 6}), survey.bounds);
    EXPECT_EQ((Doubles{1, 2, 3, 4, 5, 6}), readAll(*reader, 1).positions);
}

TEST(TextReader, RefusesWhatIsNotText) {
    using namespace std::string_literals;
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {"1 2 3\n\0"s, "", "is neither LAS, LAZ, PLY nor text"},
        {"", "", "line 1: no points in the first mebibyte"},
        {"# nothing\n", "", "line 1: no points in the first mebibyte"},
        {std::string(3000000, 'x'), "", "line 1: no points in the first mebibyte"},
        {"hello world\n", "", "line 1: \"hello\" is not a number"},
        {"\n1 2\n3 4\n", "", "line 2: 2 values where 3 are needed"},
        {"1 2 3\n", "x,y,z,skip,class", "line 1: 3 values where 5 are needed"},
        {"1 2 \x01\x02\n", "", "line 1: \"\?\?\" is not a number"},
    };
    for (const auto& [bytes, columns, expected] : cases) EXPECT_EQ(expected, errorOfBytes(bytes, columns));
    EXPECT_EQ("cannot be opened: No such file or directory", errorOf([] { openText("/does/not/exist", {}); }));
}

// A named pipe stands for every input that cannot be read twice.
TEST(TextReader, ReadsAPipeOnce) {
    const TemporaryFolder folder;
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    std::thread feeder([&] { std::ofstream(pipe) << "1 2 3\n4 5 6\n"; });
    const auto reader = openText(pipe, {});
    feeder.join();
    EXPECT_EQ("cannot be read twice", errorOf([&] { reader->survey({}); }));
    EXPECT_EQ(2u, readAll(*reader).size());
    EXPECT_EQ("cannot be read twice", errorOf([&] { reader->rewind(); }));
}

TEST(TextReader, StopsASurveyWhenAsked) {
    const TemporaryFolder folder;
    std::string text;
    for (int i = 0; i < 200000; ++i) text += "1 2 3\n";
    const auto reader = openBytes(folder, text);
    const uint64_t count = reader->survey([] { return false; }).count;
    EXPECT_GT(count, 0u);
    EXPECT_LT(count, 200000u);
    EXPECT_EQ(200000u, readAll(*reader).size());
}

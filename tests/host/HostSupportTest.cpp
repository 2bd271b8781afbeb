#include "build/BuildInputs.h"
#include "build/ReadAhead.h"
#include "cloud/CloudTree.h"
#include "support/Failure.h"
#include "support/Text.h"
#include "support/WidePath.h"

#include <gtest/gtest.h>

TEST(Text, WritesNumbersForPeople) {
    EXPECT_EQ("0", grouped(0));
    EXPECT_EQ("999", grouped(999));
    EXPECT_EQ("1,000", grouped(1000));
    EXPECT_EQ("18,446,744,073,709,551,615", grouped(UINT64_MAX));
    EXPECT_EQ("1023 B", byteSize(1023));
    EXPECT_EQ("1.5 KiB", byteSize(1536));
    EXPECT_EQ("16384.0 PiB", byteSize(UINT64_MAX));
    EXPECT_EQ("0.84 s", duration(0.84));
    EXPECT_EQ("10 s", duration(9.999));
    EXPECT_EQ("1 min 00 s", duration(59.7));
    EXPECT_EQ("2 h 04 min", duration(7440));
    EXPECT_EQ("0.00 s", duration(-1));
    EXPECT_EQ("277,777 h 46 min", duration(1e300));
    EXPECT_EQ("500 points/s", rate(1000, 2));
    EXPECT_EQ("4.35 M points/s", rate(8700000, 2));
    EXPECT_EQ("", rate(1000, 0));
}

TEST(WidePath, DecodesUtf8AndRefusesTheRest) {
    EXPECT_EQ(L"a\u00e9\u20ac\U0001F600", decodeUtf8("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"));
    EXPECT_EQ(L"", decodeUtf8(""));
    const char* const broken[] = {
        "\x80",             // a follower without a first
        "\xc3",             // cut
        "\xe2\x82",         // cut
        "\xc0\xaf",         // overlong
        "\xe0\x80\xaf",     // overlong
        "\xf0\x80\x80\xaf", // overlong
        "\xed\xa0\x80",     // a surrogate
        "\xf4\x90\x80\x80", // above 10FFFF
        "\xf8\x88\x80\x80\x80",
        "\xff",
        "\xc3(",
    };
    for (const char* bytes : broken) EXPECT_FALSE(decodeUtf8(bytes)) << bytes;
    EXPECT_THROW(widePath("\xff.opc"), CommandFailure);
}

TEST(BuildInputs, FindsTheScale) {
    const std::tuple<double, std::vector<std::pair<double, int>>, double, double> cases[] = {
        // largest colour, intensities and how many points have them, limits
        {0, {}, 255, 255},
        {255, {{255, 10}}, 255, 255},
        {256, {{256, 10}}, 65535, 256},
        {65535, {{100, 50}, {4000, 49}, {65535, 1}}, 65535, 4000},
        {65535, {{100, 50}, {4000, 48}, {65535, 2}}, 65535, 65535},
        {65535, {{100, 99}, {4000, 1}}, 65535, 255},
        {1, {{1e6, 1}}, 255, 1e6},
    };
    PointSurvey survey;
    for (const auto& [colour, intensities, colourLimit, intensityLimit] : cases) {
        survey = PointSurvey();
        for (const auto& [intensity, points] : intensities) {
            survey.largestIntensity = intensity;
            for (int i = 0; i < points; ++i) survey.intensities.add(intensity);
        }
        const ValueScale scale = findScale(colour, survey, {});
        EXPECT_EQ(colourLimit, scale.colourLimit) << colour;
        EXPECT_EQ(intensityLimit, scale.intensityLimit) << survey.largestIntensity;
    }
    const ValueScale given = findScale(65535, survey, {1023.0, 100.0});
    EXPECT_EQ(1023.0, given.colourLimit);
    EXPECT_EQ(100.0, given.intensityLimit);
}

TEST(ReadAhead, DeliversInOrderAndThenTheEndOrTheFailure) {
    constexpr double BATCHES = 50;
    for (const bool fails : {false, true}) {
        double produced = 0;
        ReadAhead ahead([&](PointBatch& batch) {
            if (fails && produced == BATCHES) throw CommandFailure("broken");
            batch.resize(1);
            batch.positions[0] = produced;
            return produced++ < BATCHES;
        });
        for (double expected = 0; expected < BATCHES; ++expected) {
            const PointBatch* batch = ahead.next();
            ASSERT_NE(nullptr, batch);
            EXPECT_EQ(expected, batch->positions[0]);
        }
        if (fails) {
            EXPECT_THROW(ahead.next(), CommandFailure);
        } else {
            EXPECT_EQ(nullptr, ahead.next());
            EXPECT_EQ(nullptr, ahead.next());
        }
    }
}

TEST(ReadAhead, StopsWhenNobodyWantsMore) {
    ReadAhead endless([](PointBatch& batch) {
        batch.resize(1);
        return true;
    });
    EXPECT_NE(nullptr, endless.next());
}

// The root has two children, its low child a high one: 0 (1 (2) 3).
TEST(CloudTree, CountsLevels) {
    const std::vector<unsigned char> structure{0x07, 10, 0, 0x0A, 0, 1, 0x10, 3, 0, 0x10, 4, 0};
    const CloudTree tree(structure, "cloud");
    ASSERT_EQ(3U, tree.levels().size());
    EXPECT_EQ(2U, tree.levels()[1].nodes);
    EXPECT_EQ(260U, tree.levels()[1].points);
    EXPECT_EQ(3U, tree.levels()[2].points);
    EXPECT_EQ('x', tree.nodes()[0].splitAxis);
    EXPECT_EQ('y', tree.nodes()[1].splitAxis);
    EXPECT_EQ(1U, tree.nodes()[3].level);
    EXPECT_EQ(4, tree.nodes()[3].points);
}

TEST(CloudTree, WalksAChainOfAMillion) {
    constexpr size_t NODES = 1000000;
    std::vector<unsigned char> structure(NODES * 3);
    for (size_t i = 0; i + 1 < NODES; ++i) structure[i * 3] = 0x12;
    EXPECT_EQ(NODES, CloudTree(structure, "cloud").levels().size());
}

TEST(CloudTree, RefusesWhatIsNoTree) {
    const std::vector<unsigned char> cases[] = {
        {},                                        // no root
        {0x01, 0, 0},                              // a child is missing
        {0x00, 0, 0, 0x00, 0, 0},                  // a node too many
        {0x00, 0},                                 // cut
        {0x03, 0, 0, 0x00, 0, 0, 0x00, 0, 0, 0x00} // a byte too many
    };
    for (const auto& structure : cases) EXPECT_THROW(CloudTree(structure, "cloud"), CommandFailure);
}

#include "engine/EngineTest.h"

#include <cstring>
#include <ctime>

namespace {

class HeaderExports : public EngineTest {
protected:
    static Bytes headerOf(int id) {
        Bytes image(125, 0xEE);
        getHeader(id, reinterpret_cast<char*>(image.data()));
        EXPECT_EQ(0xEE, image.back());
        image.pop_back();
        return image;
    }
    static void replaceHeader(int id, Bytes image) { setHeader(id, reinterpret_cast<char*>(image.data())); }
    [[nodiscard]] Bytes storedHeader(const std::string& name = "cloud") const {
        const Bytes file = dir.read(name);
        return {file.begin(), file.begin() + 124};
    }
};

} // namespace

TEST_F(HeaderExports, ReadTheHeader) {
    const int id = loadSmallCloud();
    EXPECT_EQ(smallCloud().header(), headerOf(id));
    EXPECT_EQ(17, getVersion(id));
    double box[6];
    getOrigin(id, box);
    EXPECT_TRUE(std::equal(box, box + 6, smallCloud().box.begin()));
}

TEST_F(HeaderExports, ReplaceTheHeaderInMemoryAndInTheFile) {
    const int id = loadSmallCloud();
    PointFileMaker other = smallCloud();
    other.reserved = 99;
    other.spareBits = 1; // goes to the file as it is, and reads back as the number 1: an established oddity
    replaceHeader(id, other.header());
    EXPECT_EQ(99, getReserved(id));
    EXPECT_EQ(other.header(), storedHeader());
    EXPECT_EQ(0x3F, headerOf(id)[115]);
    other.nodeCount = 1; // for which a host makes room
    replaceHeader(id, other.header());
    std::array<char, 4> structure{0, 0, 0, 'x'};
    getTreeStructure(id, structure.data());
    EXPECT_EQ((std::array<char, 4>{7, 2, 0, 'x'}), structure);
}

TEST_F(HeaderExports, ReachOnlyAWritableFile) {
    const int first = loadSmallCloud();
    const int second = loadPointCloudFile(dir.widePath("cloud").c_str());
    PointFileMaker other = smallCloud();
    other.reserved = 99;
    replaceHeader(second, other.header());
    setProtection(second, 0x0102, 0);
    EXPECT_EQ(0, getReserved(second)) << "as an unknown id";
    EXPECT_EQ(1, isProtected(second)) << "in memory alone";
    EXPECT_EQ(smallCloud().header(), storedHeader());
    setProtection(first, 0x0102, 0x0304);
    Bytes expected = smallCloud().header();
    expected[68] = 2, expected[69] = 1, expected[76] = 4, expected[77] = 3;
    EXPECT_EQ(expected, storedHeader());
    // The search goes on past a read-only cloud of the same id.
    closePointCloud(first);
    dir.write("free", smallCloud().make());
    ASSERT_EQ(second, loadPointCloudFile(dir.widePath("free").c_str()));
    replaceHeader(second, other.header());
    EXPECT_EQ(0, getReserved(second));
    EXPECT_EQ(expected, storedHeader());
    EXPECT_EQ(other.header(), storedHeader("free"));
}

// Expiry keeps a cloud out of frames, not a file from being protected.
TEST_F(HeaderExports, ProtectByTheFirstValueAlone) {
    const int id = loadSmallCloud();
    const int64_t now = std::time(nullptr);
    const std::tuple<int64_t, int64_t, int> cases[] = {{0, 0, 0},           {0, now + 1000, 0}, {1, 0, 1},
                                                       {-5, now + 1000, 1}, {1, now - 1000, 1}, {1, -1, 1}};
    for (const auto& [value1, value2, expected] : cases) {
        setProtection(id, value1, value2);
        EXPECT_EQ(expected, isProtected(id)) << value1 << ", " << value2;
        EXPECT_EQ(1, headerChanged(id));
        EXPECT_EQ(0, headerChanged(id));
    }
}

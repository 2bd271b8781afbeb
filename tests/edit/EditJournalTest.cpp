#include "format/EditJournal.h"

#include "edit/EditCloud.h"
#include "engine/EngineTest.h"
#include "stream/OPC.h"

#include <filesystem>

namespace {

class EditJournalFile : public EngineTest {
protected:
    // Loads what stands at "cloud" and returns its stored nodes as the engine shows them: those of the file, unless the
    // load fails or the file is left as it is.
    std::vector<StoredNode> reload() {
        const int id = loadPointCloudFile(dir.widePath("cloud").c_str());
        EXPECT_LE(0, id) << nimbrelLastError();
        closePointCloud(id);
        EXPECT_FALSE(std::filesystem::exists(dir.path("cloud.journal")));
        return storedNodes(dir.read("cloud"));
    }
};

} // namespace

// A journal of two changes beside the file as it was before either: what a kill before the first write leaves.
TEST_F(EditJournalFile, IsReplayedAsFarAsItIsWholeAndOnlyOverItsOwnFile) {
    for (const int version : {17, 18}) {
        const Bytes before = makeEditCloud(version, 4, 9);
        const std::vector<StoredNode> built = storedNodes(before);
        const int id = loadPointCloudFile(dir.writeWide("cloud", before).c_str());
        for (const int n : {0, 1}) {
            findCloud(id)->getOPC().getNode(n)->setSelectionBits({true, false, true, false});
            deleteSelectedPoints();
        }
        const Bytes journal = dir.read("cloud.journal");
        const Bytes after = dir.read("cloud");
        closePointCloud(id);

        int64_t shown[3] = {}; // loads that showed 0, 1 or 2 of the changes
        Random random(7);
        for (size_t cut = 0; cut <= 2 * journal.size(); ++cut) {
            Bytes damaged = journal;
            if (cut <= journal.size()) {
                damaged.resize(cut);
            } else {
                damaged[cut - journal.size() - 1] ^= static_cast<unsigned char>(1 + upTo(random, 254));
            }
            if (cut - journal.size() - 1 < 8) continue; // nobody's file any more
            dir.write("cloud", before);
            dir.write("cloud.journal", damaged);
            const std::vector<StoredNode> stored = reload();
            size_t changed = 0;
            for (size_t n = 0; n < 7; ++n) {
                ASSERT_EQ(built[n].places(version), stored[n].places(version)) << cut;
                changed += stored[n].record.pointCount == 2 ? 1 : 0;
            }
            ++shown[changed];
            EXPECT_EQ(changed == 2, after == dir.read("cloud"));
        }
        EXPECT_EQ(1, shown[2]);
        EXPECT_LT(0, shown[1]);

        // Other points, and the same ones in another place of the file.
        Bytes longer = before;
        longer.push_back(0);
        for (const Bytes& other : {makeEditCloud(version, 5, 9), longer}) {
            dir.write("cloud", other);
            dir.write("cloud.journal", journal);
            reload();
            EXPECT_EQ(other, dir.read("cloud"));
        }

        // A second opener of the path is read-only, and shows the changes without making them.
        dir.write("cloud", before);
        const int writer = loadPointCloudFile(dir.widePath("cloud").c_str());
        dir.write("cloud.journal", journal);
        const int reader = loadPointCloudFile(dir.widePath("cloud").c_str());
        EXPECT_EQ(28, getPointCount(writer));
        EXPECT_EQ(24, getPointCount(reader));
        Bytes points;
        ASSERT_TRUE(findCloud(reader)->getOPC().getNode(0)->loadPointData(points));
        const auto start = after.begin() + built[0].record.pointDataByteLocation;
        EXPECT_EQ(Bytes(start, start + std::ssize(points)), points);
        EXPECT_EQ(before, dir.read("cloud"));
        // What the writer never saw keeps it from editing.
        findCloud(writer)->getOPC().getNode(0)->setSelectionBits({true});
        deleteSelectedPoints();
        EXPECT_EQ(before, dir.read("cloud"));
        EXPECT_EQ(28, getPointCount(writer));
        closePointCloud(reader);
        closePointCloud(writer);
        EXPECT_EQ(journal, dir.read("cloud.journal"));
        std::filesystem::remove(dir.path("cloud.journal"));
    }
}

TEST_F(EditJournalFile, IsOfOneWriterAndNeverOverwritesAStrangersFile) {
    dir.write("cloud", makeEditCloud(17, 4, 9));
    std::filesystem::create_symlink(dir.path("cloud"), dir.path("link"));
    const int first = loadPointCloudFile(dir.widePath("cloud").c_str());
    const int second = loadPointCloudFile(dir.widePath("link").c_str());
    const auto deleteOne = [](int id) {
        findCloud(id)->getOPC().getNode(0)->setSelectionBits({true});
        deleteSelectedPoints();
        findCloud(id)->getOPC().getNode(0)->setSelectionBits({});
        return getPointCount(id);
    };
    dir.write("cloud.journal", {1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(28, deleteOne(first));
    EXPECT_EQ(9U, dir.read("cloud.journal").size());
    std::filesystem::remove(dir.path("cloud.journal"));
    EXPECT_EQ(27, deleteOne(first));
    EXPECT_EQ(28, deleteOne(second));
    EXPECT_STREQ("another process edits this file", nimbrelLastError());
    closePointCloud(first);
    EXPECT_EQ(28, deleteOne(second));
    EXPECT_STREQ("the file was changed since it was opened; it can be edited when it is opened again",
                 nimbrelLastError());
    closePointCloud(second);
    EXPECT_FALSE(std::filesystem::exists(dir.path("cloud.journal")));
}

// Far more changes than it keeps: it starts over, and what it then holds is replayed over any state of the file.
TEST_F(EditJournalFile, StartsOverWhenItHasGrown) {
    const Bytes before = makeEditCloud(17, 30000, 3);
    const int id = loadPointCloudFile(dir.writeWide("cloud", before).c_str());
    for (int round = 0; round < 30; ++round) {
        for (int n = 0; n < 7; ++n) {
            std::vector<bool> bits(30000);
            for (int i = round; i < 30000; i += 30) bits[static_cast<size_t>(i)] = true;
            findCloud(id)->getOPC().getNode(n)->setSelectionBits(bits);
        }
        deleteSelectedPoints();
    }
    const Bytes journal = dir.read("cloud.journal");
    EXPECT_LT(journal.size(), size_t{EditJournal::ENOUGH} + 7 * 14 * 30100);
    closePointCloud(id);
    dir.write("cloud", before);
    dir.write("cloud.journal", journal);
    const std::vector<StoredNode> built = storedNodes(before);
    const std::vector<StoredNode> stored = reload();
    for (size_t n = 0; n < 7; ++n) EXPECT_TRUE(built[n].places(17) == stored[n].places(17)) << n;
}

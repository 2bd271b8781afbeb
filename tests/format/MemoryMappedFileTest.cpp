#include "format/memory_mapped_file.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tuple>

using namespace memory_mapped_file;

TEST(MemoryMappedFile, OpensByTheTableOfModes) {
    // Existing file of 3 bytes: whether it opens, its size, whether it is mapped. Then: whether a missing one opens.
    const std::tuple<mmf_exists_mode, mmf_doesnt_exist_mode, bool, uint64_t, bool, bool> cases[] = {
        {if_exists_fail, if_doesnt_exist_create, false, 0, false, true},
        {if_exists_fail, if_doesnt_exist_fail, false, 0, false, false},
        {if_exists_just_open, if_doesnt_exist_create, true, 3, false, true},
        {if_exists_just_open, if_doesnt_exist_fail, true, 3, false, false},
        {if_exists_map_all, if_doesnt_exist_create, true, 3, true, true},
        {if_exists_map_all, if_doesnt_exist_fail, true, 3, true, false},
        {if_exists_truncate, if_doesnt_exist_create, true, 0, false, true},
        {if_exists_truncate, if_doesnt_exist_fail, true, 0, false, false},
    };
    for (const auto& [exists, absent, opens, size, maps, creates] : cases) {
        const TempDir dir;
        const std::string there = dir.write("there", {1, 2, 3});
        writable_mmf file;
        file.open(there.c_str(), exists, absent);
        EXPECT_EQ(opens, file.is_open()) << exists << absent;
        EXPECT_EQ(size, file.file_size()) << exists << absent;
        EXPECT_EQ(maps, file.data() != nullptr) << exists << absent;
        file.open(dir.path("missing").c_str(), exists, absent);
        EXPECT_EQ(creates, file.is_open()) << exists << absent;
        EXPECT_EQ(creates, std::filesystem::exists(dir.path("missing"))) << exists << absent;
    }
}

TEST(MemoryMappedFile, WritableMapPastTheEndGrowsTheFile) {
    const TempDir dir;
    const std::string path = dir.write("file", {1, 2, 3});
    writable_mmf file;
    file.open(path.c_str(), if_exists_just_open, if_doesnt_exist_fail);
    file.map(4, 1); // an offset past the end does nothing
    EXPECT_EQ(nullptr, file.data());
    file.map(2, 4);
    ASSERT_NE(nullptr, file.data());
    EXPECT_EQ(6U, file.file_size());
    EXPECT_EQ(3, file.data()[0]);
    file.data()[3] = 9;
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(0, file.close());
    EXPECT_EQ((Bytes{1, 2, 3, 0, 0, 9}), dir.read("file"));
}

TEST(MemoryMappedFile, ReadsAndWritesByPosition) {
    const TempDir dir;
    writable_mmf file;
    file.open(dir.path("file").c_str(), if_exists_fail, if_doesnt_exist_create);
    EXPECT_TRUE(file.write("abcd", 2, 4));
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_TRUE(file.read(out, 3, 2));
    EXPECT_EQ(std::string("bcxx"), std::string(out, 4));
    EXPECT_FALSE(file.read(out, 4, 4));
    EXPECT_FALSE(file.read(out, UINT64_MAX, 1));
    EXPECT_FALSE(file.write("a", UINT64_MAX - 1, 1));
    EXPECT_TRUE(file.reserve(0, 100));
    EXPECT_TRUE(file.resize(5));
    EXPECT_EQ((Bytes{0, 0, 'a', 'b', 'c'}), dir.read("file"));
}
